// The AU (".snd") reader; the layout and the encodings are KXAULayout's. Every sample from the
// data offset to the end of the file counts, whatever the data size field says.

#include "KXAudioFile/KXAudioFileWrapper/KXAULayout.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXBase/KXFile.h"

using namespace KXAULayout;

bool KXAudioFile::parseAUHeader(KXFile& file, KXError* error) {
    static constexpr const char* kAction = "Parsing the AU file";
    format_ = KXFourCC("ULAW");
    encoding_ = KXFourCC("lpcm");
    blockSizeByteOrder_ = audioDataByteOrder_ = KXByteOrderBigValue;
    isInterleaved_ = true;
    const std::uint32_t offset = file.readIntValueAtPosition(kDataOffset, KXByteOrder::big);
    const std::uint32_t code = file.readIntValueAtPosition(kEncoding, KXByteOrder::big);
    const std::uint32_t rate = file.readIntValueAtPosition(kRate, KXByteOrder::big);
    const std::uint32_t channels = file.readIntValueAtPosition(kChannels, KXByteOrder::big);
    const Encoding* found = nullptr;
    for (const Encoding& e : kEncodings)
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
