// The AU (".snd") reader: a 24-byte big-endian header and the samples.
//
//   0 ".snd"   4 data offset   8 data size (not read)   12 encoding   16 rate   20 channels
//
// Encodings: 1 µ-law, 2/3/4/5 signed 8/16/24/32-bit, 6 32-bit float, 27 A-law. Every sample from
// the data offset to the end of the file counts, whatever the data size field says.

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXBase/KXFile.h"

namespace {
struct AUEncoding {
    std::uint32_t code;
    std::uint32_t depth;
    std::uint32_t encoding;
    bool floatingPoint;
};
constexpr AUEncoding kEncodings[] = {
    {1, 8, KXFourCC("ulaw"), false},  {2, 8, KXFourCC("lpcm"), false},  {3, 16, KXFourCC("lpcm"), false},
    {4, 24, KXFourCC("lpcm"), false},
    {5, 32, KXFourCC("lpcm"), false}, {6, 32, KXFourCC("lpcm"), true}, {27, 8, KXFourCC("alaw"), false},
};
}  // namespace

bool KXAudioFile::parseAUHeader(KXFile& file, KXError* error) {
    static constexpr const char* kAction = "Parsing the AU file";
    format_ = KXFourCC("ULAW");
    encoding_ = KXFourCC("lpcm");
    blockSizeByteOrder_ = audioDataByteOrder_ = KXByteOrderBigValue;
    isInterleaved_ = true;
    const std::uint32_t offset = file.readIntValueAtPosition(4, KXByteOrder::big);
    const std::uint32_t code = file.readIntValueAtPosition(12, KXByteOrder::big);
    const std::uint32_t rate = file.readIntValueAtPosition(16, KXByteOrder::big);
    const std::uint32_t channels = file.readIntValueAtPosition(20, KXByteOrder::big);
    const AUEncoding* found = nullptr;
    for (const AUEncoding& e : kEncodings)
        if (e.code == code) found = &e;
    // Nothing that would divide by zero either.
    if (!found || rate == 0 || channels == 0 || channels > 0x7FFF) {
        return KXAudioFileError::fail(error, KXAudioFileErrorUnsupportedFormat, kAction);
    }
    depth_ = found->depth;
    encoding_ = found->encoding;
    isFloatingPoint_ = found->floatingPoint;
    rate_ = rate;
    numberOfChannels_ = channels;
    const std::uint64_t sampleBytes = fileSize_ > offset ? fileSize_ - offset : 0;
    // Sample data that cannot hold one frame: a channel count no real file has.
    if (sampleBytes > 0 && sampleBytes < std::uint64_t(depth_ / 8) * channels) {
        return KXAudioFileError::fail(error, KXAudioFileErrorUnsupportedFormat, kAction);
    }
    const std::uint64_t frames = sampleBytes / (std::uint64_t(depth_ / 8) * channels);
    // Deliberate: more frames than the model counts is a refusal, not a file cut short.
    if (frames > 0xFFFFFFFFu) {
        KXSetError(error, KXAudioFileError::tooManyFramesError(kAction));
        return false;
    }
    frames_ = std::uint32_t(frames);
    buildChannelsList();
    setEditList(KXEditList::editListWithAudioFile(*this, offset));
    return true;
}
