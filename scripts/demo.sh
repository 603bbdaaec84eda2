#!/usr/bin/env bash
# The demo: makes a file with the library (four seconds of a plucked chord, stereo 24-bit 48 kHz,
# with markers, a region, a sustain loop, Broadcast WAVE and iXML fields), then shows what kxaudio
# makes of it: info, chunks, stats, a waveform picture, a conversion to AIFF and back with the
# labels kept, tag, processing, editing into a document and playback; sox and ffprobe read the
# results when installed.
set -euo pipefail
tool=$(realpath "${1:-build/bin/kxaudio}")
bin=$(dirname "$tool")
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
cd "$dir"
run() {  # prints the command as typed, then runs it
  printf '$ kxaudio'
  printf ' %q' "$@"
  echo
  "$tool" "$@"
  echo
}

"$bin/make_demo_file" demo.wav
echo "(demo.wav made by examples/make_demo_file.cpp with the library)"
echo
run info demo.wav
run chunks demo.wav
run stats demo.wav
run waveform demo.wav -o demo.png --width 800 --height 200
run convert demo.wav demo.aif
run convert demo.aif back.wav
echo "# the labels and metadata survive the trip to AIFF and back:"
diff <("$tool" info demo.wav | sed 1d) <("$tool" info back.wav | sed 1d) && echo "info of demo.wav and back.wav agree"
echo
run tag back.wav --set "Original Artist=The Demo Band" --add-marker 3:Tail --add-loop 2:3:alternate
run info back.wav
run process demo.wav faded.wav --fade-out 1 --rate 44100
echo "# non-destructive editing: demo.wav stays as it is, the edits are saved as a document"
run edit demo.wav --save Edit.tess --op "cut 0.5 1" --op "paste 3" --op "copy faded.wav 0 0.5" --op "paste 0" \
  --op "silence 2 0.25" --op "fade 0.1 0.1 0"
echo "Edit.tess holds: $(ls Edit.tess | tr "\n" " ")"; echo
run convert Edit.tess edited.wav
echo "\$ kxaudio play demo.wav --repeat 1:1.5 --mode alternate --seconds 1 --statistics > played.f32"
"$tool" play demo.wav --repeat 1:1.5 --mode alternate --seconds 1 --statistics 2>&1 >played.f32
echo "$(($(wc -c < played.f32) / 8)) frames played"
echo
if command -v sox > /dev/null && command -v ffprobe > /dev/null; then
  echo "# other tools read what kxaudio wrote:"
  sox --i demo.aif | grep -E "Channels|Sample Rate|Precision|Duration"
  ffprobe -v error -show_entries stream=codec_name,sample_rate,channels -show_entries format_tags -of compact back.wav
else
  echo "(sox and ffprobe are not installed: the check that they read the results is skipped)"
fi
