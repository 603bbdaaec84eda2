#!/usr/bin/env bash
# Installs the Debian packages a target needs, when any is missing:
#   build  the library and kxaudio (make demo)
#   test   build, plus GoogleTest and the peers the tests check against (sox, ffmpeg, libsndfile,
#          SGI audiofile, libambix), python3 for the README's code
#   fuzz   test, plus clang with libFuzzer
#   bench  build, plus Google Benchmark and the peers measured beside us
set -euo pipefail
target=${1:-test}
build=(cmake ninja-build g++ pkg-config libplist-dev libkissfft-dev libebur128-dev libsoxr-dev libsoundtouch-dev
       libpugixml-dev libpng-dev libcli11-dev nlohmann-json3-dev)
peers=(libsndfile1-dev sndfile-programs sox ffmpeg)
case "$target" in
  build) packages=("${build[@]}") ;;
  test) packages=("${build[@]}" "${peers[@]}" libgtest-dev attr audiofile-tools libaudiofile-dev libambix-dev python3) ;;
  fuzz) packages=("${build[@]}" "${peers[@]}" libgtest-dev attr audiofile-tools libaudiofile-dev libambix-dev python3
                  clang libclang-rt-14-dev) ;;
  bench) packages=("${build[@]}" "${peers[@]}" libbenchmark-dev) ;;
  *) echo "usage: $0 build|test|fuzz|bench" >&2; exit 2 ;;
esac
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
echo "Installing: ${missing[*]}"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}"
