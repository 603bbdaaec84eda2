#!/usr/bin/env bash
# Makes the fuzzer's seed files with sox: short WAVE, Wave64, AU and AIFF files in every sample format
# the readers take, so that fuzzing starts from files that open.
set -euo pipefail
out=${1:?seed folder}
mkdir -p "$out"
make() { sox -n -r 8000 "$@" synth 0.005 sine 440 2>/dev/null; }
for channels in 1 2 6; do
  for bits in 8 16 24 32; do
    make -c $channels -b $bits "$out/pcm-$channels-$bits.wav"
  done
  make -c $channels -b 32 -e floating-point "$out/float-$channels.wav"
  make -c $channels -e mu-law "$out/ulaw-$channels.wav"
  make -c $channels -e a-law "$out/alaw-$channels.wav"
  make -c $channels -b 16 "$out/pcm-$channels.w64"
  make -c $channels -b 16 "$out/pcm-$channels.au"
  make -c $channels -e mu-law "$out/ulaw-$channels.au"
  make -c $channels -b 16 "$out/pcm-$channels.aif"
  make -c $channels -b 24 "$out/pcm-$channels-24.aif"
  make -c $channels -b 32 -e floating-point "$out/float-$channels.aifc"
done
