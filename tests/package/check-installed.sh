#!/usr/bin/env bash
# Installs the build tree into a scratch prefix (not the one it was configured for, so the
# installed tree must find itself), then builds against it as other projects do: a consumer
# project through find_package (shared and static), the same program through pkg-config (shared
# and static), and every C++ block of the README.
set -euo pipefail
build=$(realpath "$1")
source=$(realpath "$2")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix="$work/prefix"
cmake --install "$build" --prefix "$prefix" > /dev/null
[ -x "$prefix/bin/kxaudio" ] && grep -q '^\.SS tag' "$(find "$prefix" -name kxaudio.1)" || { echo "FAILED: kxaudio or its manual page not installed" >&2; exit 1; }

fail() { echo "FAILED: $*" >&2; exit 1; }
expect_data() {  # program output, expected data folder
  grep -qx "data $2" <<< "$1" || fail "data folder: $1"
}

echo "== find_package"
cmake -S "$source/tests/package/consumer" -B "$work/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" > /dev/null
cmake --build "$work/consumer" > /dev/null
out=$("$work/consumer/consumer" "$work/a.wav") || fail "consumer: $out"
echo "$out"
expect_data "$out" "$(realpath "$prefix/share/kxaudio")"
out=$("$work/consumer/consumer_static" "$work/b.wav") || fail "consumer_static: $out"
objdump -p "$work/consumer/consumer_static" | grep -q 'NEEDED.*libkxaudiofile' && fail "consumer_static needs the shared library"
objdump -p "$work/consumer/consumer" | grep -q 'NEEDED.*libkxaudiofile.so.0' || fail "consumer does not need libkxaudiofile.so.0"

echo "== pkg-config"
export PKG_CONFIG_PATH
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name kxaudiofile.pc)")
libdir=$(pkg-config --variable=libdir kxaudiofile)
# shellcheck disable=SC2046
g++ -std=c++20 "$source/tests/package/consumer/consumer.cpp" -o "$work/pc-consumer" \
    $(pkg-config --cflags --libs kxaudiofile) -Wl,-rpath,"$libdir"
out=$("$work/pc-consumer" "$work/c.wav") || fail "pkg-config consumer: $out"
expect_data "$out" "$(realpath "$prefix/share/kxaudio")"
# shellcheck disable=SC2046
g++ -std=c++20 "$source/tests/package/consumer/consumer.cpp" -o "$work/pc-consumer-static" \
    $(pkg-config --cflags kxaudiofile) $(pkg-config --static --libs kxaudiofile | sed 's/-lkxaudiofile /-l:libkxaudiofile.a /')
"$work/pc-consumer-static" "$work/d.wav" > /dev/null || fail "pkg-config static consumer"

echo "== README"
"$source/tests/package/readme_blocks.py" "$source/README.md" "$work/readme.cpp"
# shellcheck disable=SC2046
g++ -std=c++20 -Wall -Werror -Wno-unused-variable -Wno-unused-but-set-variable "$work/readme.cpp" -o "$work/readme" \
    $(pkg-config --cflags --libs kxaudiofile) -Wl,-rpath,"$libdir" || fail "the README's code does not compile"
mkdir "$work/music"
sox -n -r 44100 -b 16 -c 2 "$work/music/take.wav" synth 4 sine 440 sine 660 gain -6
sox -n -r 44100 -b 24 -c 2 "$work/music/loop.wav" synth 4 pluck 220 pluck 330
(cd "$work/music" && "$work/readme") || fail "the README's code fails when run"
echo "all passed"
