#pragma once
// Test fixtures: a temporary folder that removes itself, and a builder of chunked files that
// gets sizes and pad bytes right so that a test can then break exactly one thing.

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "KXBase/KXByteOrder.h"
#include "KXBase/KXFourCC.h"
#include "KXBase/KXData.h"

class KXAudioFile;

class KXTemporaryFolder {
public:
    KXTemporaryFolder();
    ~KXTemporaryFolder();
    KXTemporaryFolder(const KXTemporaryFolder&) = delete;
    KXTemporaryFolder& operator=(const KXTemporaryFolder&) = delete;

    const std::string& path() const { return path_; }
    std::string pathFor(const std::string& name) const { return path_ + "/" + name; }
    // Writes `bytes` to `name` in the folder and answers its path.
    std::string write(const std::string& name, const KXData& bytes) const;
    // A sparse file of `header` and `tailBytes` zero bytes after it (taking no disk space), with
    // the bytes `marks` (offset into the tail, value) set; answers its path.
    std::string writeSparse(const std::string& name, const KXData& header, std::uint64_t tailBytes,
                            std::initializer_list<std::pair<std::uint64_t, std::uint8_t>> marks) const;

private:
    std::string path_;
};

KXData readWholeFile(const std::string& path);
KXData bytesOf(const std::string& text);
// Every byte of a literal, NULs included, but not its terminating one.
template <std::size_t N>
KXData bytesOf(const char (&literal)[N]) {
    return KXData(literal, literal + N - 1);
}
// The code of a four-character text known only at run time.
std::uint32_t fourCC(const std::string& text);
// Whether the folder's file system keeps user extended attributes.
bool supportsUserAttributes(const std::string& folder);

// The fields of a chunk payload, in one byte order.
struct KXPayload {
    static KXPayload little() { return KXPayload{KXByteOrder::little, {}}; }
    static KXPayload big() { return KXPayload{KXByteOrder::big, {}}; }

    KXByteOrder order;
    KXData bytes;

    KXPayload& u8(std::uint8_t v) { return bytes.push_back(v), *this; }
    KXPayload& u16(std::uint16_t v);
    KXPayload& u32(std::uint32_t v);
    KXPayload& u64(std::uint64_t v);
    KXPayload& f32(float v);
    KXPayload& raw(const KXData& data) { return bytes.insert(bytes.end(), data.begin(), data.end()), *this; }
    // A text field of exactly `size` bytes, NUL-padded.
    KXPayload& text(const std::string& s, std::size_t size);
    // A Pascal string padded so that count byte and text are even.
    KXPayload& pascal(const std::string& text);
    // A sub-chunk of a 'LIST': type, size, payload, and a pad byte after an odd payload.
    KXPayload& sub(const char* type, const KXData& payload);
};

// The chunks of an IFF or RIFF file (the first at 12) walked by their sizes, independently of
// the library's walker; payloads without pad bytes.
struct KXWalkedChunks {
    std::uint32_t containerSize = 0;
    std::vector<std::pair<std::string, KXData>> chunks;
    // The first chunk of the type; nullptr when there is none.
    const KXData* find(const std::string& type) const;
    std::vector<std::string> order() const;
};
KXWalkedChunks walkChunks(const KXData& bytes, KXByteOrder order);

class KXTestFile {
public:
    // "RIFF" <size> "WAVE", little-endian sizes.
    static KXTestFile riff(const char* form = "WAVE");
    // "FORM" <size> "AIFF", big-endian sizes.
    static KXTestFile aiff(const char* form = "AIFF");
    // "caff", version 1, flags 0, then chunks with 64-bit sizes.
    static KXTestFile caf();
    // The Wave64 header: the 'riff' GUID, 64-bit size, the 'wave' GUID.
    static KXTestFile wave64();

    // A chunk: header, payload, and a pad byte after an odd payload when `pad` is set.
    KXTestFile& chunk(const char* type, const KXData& payload, bool pad = true);
    KXTestFile& bytes(const KXData& raw);
    // Stores the container size (total − 8, or the whole length for Wave64).
    KXTestFile& finish();

    KXTestFile& setU32At(std::size_t offset, std::uint32_t value);
    KXTestFile& setU64At(std::size_t offset, std::uint64_t value);
    const KXData& data() const { return data_; }

private:
    enum class Kind { iff, caf, wave64 };
    KXTestFile(Kind kind, KXByteOrder order) : kind_(kind), order_(order) {}

    Kind kind_;
    KXByteOrder order_;
    KXData data_;
};

// Headerless 16-bit little-endian sample files with a known pattern, and audio-file objects over
// them (one block per channel, as a parser sets them up).
namespace KXTestSamples {
// The stored value of `frame` of `channel`: a ramp that wraps, distinct per channel.
std::int16_t value(std::uint32_t frame, std::uint32_t channel);
inline float sample(std::uint32_t frame, std::uint32_t channel) { return float(value(frame, channel)) / 32768.0f; }
// Writes `frames` interleaved frames of `channels` channels after `offset` zero bytes.
std::string writeFile(const KXTemporaryFolder& folder, const std::string& name, std::uint32_t channels,
                      std::uint32_t frames, std::uint32_t offset = 0);
// A WAVE file of `frames` frames of a signal given per frame and channel: 16-bit integers
// (rounded, clamped), or 32-bit floats.
std::string writeSignalFile(const KXTemporaryFolder& folder, const std::string& name, std::uint32_t channels,
                            std::uint32_t rate, std::uint32_t frames, bool floats,
                            const std::function<float(std::uint32_t frame, std::uint32_t channel)>& signal);
// Every frame of every channel of an open file, read through its edit list.
std::vector<std::vector<float>> samplesOf(KXAudioFile& file);
}  // namespace KXTestSamples
