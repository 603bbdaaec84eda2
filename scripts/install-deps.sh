#!/usr/bin/env bash
# Installs the Debian packages the build, the tests, the fuzzers' seeds (python3) and the demo need, when
# any is missing.
set -euo pipefail
packages=(cmake ninja-build g++ clang libclang-rt-14-dev pkg-config libgtest-dev libbenchmark-dev libsndfile1-dev sndfile-programs libplist-dev libkissfft-dev libebur128-dev libsoxr-dev libsoundtouch-dev libpng-dev libcli11-dev nlohmann-json3-dev libpugixml-dev attr sox ffmpeg audiofile-tools libaudiofile-dev libambix-dev python3)
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
