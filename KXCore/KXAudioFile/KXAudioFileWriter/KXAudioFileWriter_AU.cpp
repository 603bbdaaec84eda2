// The AU (".snd") header writer; the layout and the encodings are KXAULayout's.
//
//   0 ".snd"   4 data offset (24)   8 data size, patched at the end   12 encoding   16 rate   20 channels

#include <algorithm>

#include "KXAudioFile/KXAudioFileWrapper/KXAULayout.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"

using namespace KXAULayout;

bool KXAudioFileWriter::writeULawPreDataHeader(KXWritingFile& file, KXError* error) {
    const Encoding* found = std::find_if(std::begin(kEncodings), std::end(kEncodings), [&](const Encoding& e) {
        return isG711() ? e.encoding == encoding_
                    : e.encoding == KXFourCC("lpcm") && e.depth == std::uint32_t(depth_) && e.floatingPoint == isFloatingPoint_;
    });
    if (found == std::end(kEncodings)) {
        // No AU encoding holds these samples.
        return KXAudioFileError::fail(error, KXAudioFileErrorUnsupportedFormat, "Writing the AU header");
    }
    KXChunk header;
    header.setFormat(KXFourCC("ULAW"));
    header.setByteOrder(KXByteOrderBigValue);
    header.appendType(KXFourCC(".snd"));
    // The second word is where the samples begin, 24, as every reader takes it.
    for (std::uint32_t value : {kHeaderSize, 0u, found->code, std::uint32_t(rate_), std::uint32_t(channels_)})
        header.appendInt(value);
    if (!header.appendToFile(file, error)) return false;
    file.setDataChunkSizePosition(kDataSize);
    file.setAudioDataPosition(kHeaderSize);
    return true;
}

bool KXAudioFileWriter::writeULawPostDataHeader(KXWritingFile& file, KXError* error) {
    return patchDataByteCount(file, KXFourCC("ULAW"), error);
}
