#!/usr/bin/env bash
# Makes the fuzzers' seed files, one folder per target under the given folder:
#   fuzz_chunks    short WAVE, RF64, Wave64, AU, AIFF and CAF files made by sox and ffmpeg in every
#                  sample format the readers take, so that fuzzing starts from files that open, and
#                  (given the kxaudio tool) editor document headers;
#   fuzz_plist     binary and XML property lists of every kind (Python's plistlib);
#   fuzz_ixml      iXML documents of the kinds recorders write;
#   fuzz_resource  classic resource forks with named and unnamed resources;
#   fuzz_sounddesigner  Sound Designer II files that libsndfile writes (bare forks) and, given the
#                  kxaudio tool as the second argument, Sound Designer I and II files it writes
#                  (AppleDouble sidecars), each packed as a 32-bit big-endian data-fork length, the
#                  data fork and the sidecar.
set -euo pipefail
out=${1:?seed folder}
kxaudio=${2:-}
mkdir -p "$out"/fuzz_chunks "$out"/fuzz_plist "$out"/fuzz_ixml "$out"/fuzz_resource "$out"/fuzz_sounddesigner
make() { sox -n -r 8000 "$@" synth 0.005 sine 440 2>/dev/null; }
for channels in 1 2 6; do
  for bits in 8 16 24 32; do
    make -c $channels -b $bits "$out/fuzz_chunks/pcm-$channels-$bits.wav"
  done
  make -c $channels -b 32 -e floating-point "$out/fuzz_chunks/float-$channels.wav"
  make -c $channels -e mu-law "$out/fuzz_chunks/ulaw-$channels.wav"
  make -c $channels -e a-law "$out/fuzz_chunks/alaw-$channels.wav"
  make -c $channels -b 16 "$out/fuzz_chunks/pcm-$channels.w64"
  make -c $channels -b 16 "$out/fuzz_chunks/pcm-$channels.au"
  make -c $channels -e mu-law "$out/fuzz_chunks/ulaw-$channels.au"
  make -c $channels -b 16 "$out/fuzz_chunks/pcm-$channels.aif"
  make -c $channels -b 24 "$out/fuzz_chunks/pcm-$channels-24.aif"
  make -c $channels -b 32 -e floating-point "$out/fuzz_chunks/float-$channels.aifc"
  ffmpeg -v error -y -f lavfi -i sine=d=0.005:r=8000 -ac $channels -c:a pcm_s24le -rf64 always \
    "$out/fuzz_chunks/rf64-$channels.wav"
  for codec in pcm_s16be pcm_s24le pcm_f32be pcm_f64le pcm_s8; do
    ffmpeg -v error -y -f lavfi -i sine=d=0.005:r=8000 -ac $channels -c:a $codec -metadata title=Seed \
      "$out/fuzz_chunks/$codec-$channels.caf"
  done
done

/usr/bin/python3 - "$out" <<'PY'
import datetime, plistlib, struct, sys
out = sys.argv[1]
values = {
    "metadata": {"metaName": "Take 1", "tempo": 120.5, "baseNote": 60, "loop": True, "data": b"\x00\x01\xff",
                 "created": datetime.datetime(2024, 5, 1, 12, 0, 0), "keys": ["C", "Dm", "caf\u00e9 \u266a"],
                 "big": 2**63 + 5, "negative": -7, "nested": {"a": [{"b": [1, 2.5, False]}]}},
    "analysis": [{"max": [0.5] * 16, "rms": b"\x3f\x00\x00\x00" * 8, "peak": 0.99}],
    "empty": {},
}
for name, value in values.items():
    for form, suffix in ((plistlib.FMT_BINARY, "bin"), (plistlib.FMT_XML, "xml")):
        with open(f"{out}/fuzz_plist/{name}.{suffix}", "wb") as f:
            f.write(plistlib.dumps(value, fmt=form, sort_keys=False))

ixml = {
    "recorder": '<?xml version="1.0" encoding="UTF-8"?><BWFXML><IXML_VERSION>2.10</IXML_VERSION>'
                '<PROJECT>Film</PROJECT><SCENE>12A</SCENE><TAKE>3</TAKE><NOTE>caf\u00e9</NOTE>'
                '<SPEED><MASTER_SPEED>24/1</MASTER_SPEED><TIMECODE_RATE>24/1</TIMECODE_RATE></SPEED>'
                '<TRACK_LIST><TRACK_COUNT>2</TRACK_COUNT><TRACK><CHANNEL_INDEX>1</CHANNEL_INDEX><NAME>Boom</NAME></TRACK>'
                '<TRACK><CHANNEL_INDEX>2</CHANNEL_INDEX><NAME>Lav</NAME></TRACK></TRACK_LIST>'
                '<BEXT><BWF_DESCRIPTION>scene</BWF_DESCRIPTION><BWF_TIME_REFERENCE_LOW>48000</BWF_TIME_REFERENCE_LOW>'
                '<BWF_TIME_REFERENCE_HIGH>0</BWF_TIME_REFERENCE_HIGH></BEXT>'
                '<SYNC_POINT_LIST><SYNC_POINT><SYNC_POINT_TYPE>RELATIVE</SYNC_POINT_TYPE></SYNC_POINT></SYNC_POINT_LIST>'
                '<STEINBERG><ATTR_LIST/></STEINBERG></BWFXML>',
    "latin1": '<?xml version="1.0" encoding="ISO-8859-1"?><BWFXML><NOTE>caf\u00e9</NOTE></BWFXML>',
}
for name, text in ixml.items():
    with open(f"{out}/fuzz_ixml/{name}.xml", "wb") as f:
        f.write(text.encode("latin-1" if name == "latin1" else "utf-8"))

# A resource fork: 256-byte header area, data (each item a 4-byte length and its bytes), then
# the map: 16 reserved, 4 next map, 2 file ref, 2 attributes, 2 type-list and 2 name-list
# offsets, the type list (count − 1; per type: type, count − 1, reference-list offset), the
# references (ID, name offset or 0xFFFF, attributes and 24-bit data offset, 4 reserved), names.
resources = [(b"STR ", 1000, b"Left", b"\x0544100"), (b"STR ", 1001, None, b"\x0216"), (b"KXAn", 1000, b"analysis", b"bplist00")]
data = b"".join(struct.pack(">I", len(r[3])) + r[3] for r in resources)
types = []
for r in resources:
    if r[0] not in types:
        types.append(r[0])
type_list = struct.pack(">H", len(types) - 1)
refs, names, offset = b"", b"", 0
ref_start = 2 + 8 * len(types)
data_offsets, at = {}, 0
for r in resources:
    data_offsets[id(r)] = at
    at += 4 + len(r[3])
for t in types:
    members = [r for r in resources if r[0] == t]
    type_list += t + struct.pack(">HH", len(members) - 1, ref_start + len(refs))
    for r in members:
        name_offset = 0xFFFF
        if r[2] is not None:
            name_offset = len(names)
            names += bytes([len(r[2])]) + r[2]
        refs += struct.pack(">hHI4x", r[1], name_offset, data_offsets[id(r)])
map_body = bytes(24) + struct.pack(">HH", 28, 28 + len(type_list) + len(refs)) + type_list + refs + names
fork = struct.pack(">IIII", 256, 256 + len(data), len(data), len(map_body)) + bytes(240) + data + map_body
with open(f"{out}/fuzz_resource/fork.rsrc", "wb") as f:
    f.write(fork)
PY

# Sound Designer files, made in a folder of their own and packed with their sidecars.
sd=$(mktemp -d)
trap 'rm -rf "$sd"' EXIT
ffmpeg -v error -y -f lavfi -i sine=d=0.005:r=8000 -ac 2 -c:a pcm_s16le -metadata title=Seed -metadata artist=Band \
  "$sd/source.wav"
for bits in s8 16 24 32; do
  for channels in 1 2; do
    sox -n -r 8000 -c $channels -b 16 "$sd/in.wav" synth 0.005 sine 440 2>/dev/null
    sndfile-convert -pcm$bits "$sd/in.wav" "$sd/libsndfile-$bits-$channels.sd2" >/dev/null
  done
done
if [ -n "$kxaudio" ]; then
  "$kxaudio" convert "$sd/source.wav" "$sd/ours.sd2" >/dev/null
  "$kxaudio" convert --depth 24 "$sd/source.wav" "$sd/ours24.sd2" >/dev/null
  sox "$sd/source.wav" -c 1 "$sd/mono.wav" 2>/dev/null
  "$kxaudio" convert "$sd/mono.wav" "$sd/ours.sd" >/dev/null
  # Editor document headers: one as saved, one whose blocks are linked from missing folders.
  "$kxaudio" edit "$sd/source.wav" --save "$sd/doc" --op "cut 0.001 0.002" --op "silence 0 0.001" \
    --op "fade 0.003 0.0005 0.0005" >/dev/null
  cp "$sd/doc.tess/doc.info" "$out/fuzz_chunks/document.info"
  /usr/bin/python3 - "$sd/doc.tess/doc.info" "$out/fuzz_chunks/linked.info" <<'PY'
import plistlib, sys
header = plistlib.load(open(sys.argv[1], "rb"))
for n, channel in enumerate(header["Edit List"]):
    for block in channel:
        block["Source Type"] = 2
        block["Path"] = f"/missing/folder{n}/{block['Path']}"
with open(sys.argv[2], "wb") as f:
    plistlib.dump(header, f, fmt=plistlib.FMT_XML, sort_keys=False)
PY
fi
/usr/bin/python3 - "$sd" "$out/fuzz_sounddesigner" <<'PY'
import os, struct, sys
folder, out = sys.argv[1], sys.argv[2]
for name in sorted(os.listdir(folder)):
    if name.startswith("._") or not name.endswith((".sd", ".sd2")):
        continue
    data = open(os.path.join(folder, name), "rb").read()
    sidecar_path = os.path.join(folder, "._" + name)
    sidecar = open(sidecar_path, "rb").read() if os.path.exists(sidecar_path) else b""
    with open(os.path.join(out, name + ".seed"), "wb") as f:
        f.write(struct.pack(">I", len(data)) + data + sidecar)
PY
