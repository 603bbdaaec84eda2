#!/usr/bin/env bash
# Runs kxaudio on a file the demo makes itself: a stereo 16-bit WAVE of 0.1 s (a 441 Hz square
# wave at -12 dBFS) with an INFO list, an odd-sized chunk with its pad byte, and two spare bytes
# past the declared RIFF size; then converts it to Sound Designer II, measures it, and processes it
# (a fade-out and a conversion to 48 kHz) and measures the result; last it plays a second of it
# through the play buffers, back and forth over a repeat range.
set -euo pipefail
tool=${1:-build/bin/kxaudio}
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
wav="$dir/demo.wav"

le32() { printf "\\x$(printf %02x $(($1 & 255)))\\x$(printf %02x $(($1 >> 8 & 255)))\\x$(printf %02x $(($1 >> 16 & 255)))\\x$(printf %02x $(($1 >> 24 & 255)))"; }
frames=4410
data=$((frames * 4))
{
  printf 'RIFF'; le32 $((4 + 24 + 8 + data + 8 + 4 + 8 + 6 + 8 + 5 + 1))
  printf 'WAVE'
  printf 'fmt '; le32 16; printf '\x01\x00\x02\x00'; le32 44100; le32 176400; printf '\x04\x00\x10\x00'
  printf 'data'; le32 $data
  # 44 periods of 100 frames (50 at +8192, 50 at -8192), then 10 frames at +8192.
  high=$(printf '\\x00\\x20\\x00\\x20%.0s' $(seq 50)); low=$(printf '\\x00\\xe0\\x00\\xe0%.0s' $(seq 50))
  for _ in $(seq 44); do printf "$high$low"; done
  printf "$(printf '\\x00\\x20\\x00\\x20%.0s' $(seq 10))"
  printf 'LIST'; le32 $((4 + 8 + 6)); printf 'INFO'; printf 'INAM'; le32 6; printf 'Demo\x00\x00'
  printf 'note'; le32 5; printf 'hello\x00'   # odd length, then its pad byte
  printf '\x00\x00'                           # past the declared size
} > "$wav"

echo "\$ kxaudio --version"
"$tool" --version
echo
echo "\$ kxaudio chunks demo.wav"
"$tool" chunks "$wav"
echo
echo "\$ kxaudio chunks --json demo.wav"
"$tool" chunks --json "$wav"
echo
echo "\$ kxaudio info demo.wav"
"$tool" info "$wav"
echo
echo "\$ kxaudio convert demo.wav demo.sd2 && kxaudio chunks demo.sd2"
"$tool" convert "$wav" "$dir/demo.sd2" > /dev/null
"$tool" chunks "$dir/demo.sd2"
echo
echo "\$ kxaudio stats demo.wav"
"$tool" stats "$wav"
echo
echo "\$ kxaudio process demo.wav faded.wav --fade-out 0.05 --rate 48000 && kxaudio stats faded.wav"
"$tool" process "$wav" "$dir/faded.wav" --fade-out 0.05 --rate 48000 > /dev/null
"$tool" stats "$dir/faded.wav"
echo
echo "\$ kxaudio play demo.wav --repeat 0.02:0.05 --mode alternate --seconds 1 --statistics > played.f32"
"$tool" play "$wav" --repeat 0.02:0.05 --mode alternate --seconds 1 --statistics 2>&1 >"$dir/played.f32" | grep -v warning
echo "$(($(wc -c < "$dir/played.f32") / 8)) frames played (1 s at 44.1 kHz)"
