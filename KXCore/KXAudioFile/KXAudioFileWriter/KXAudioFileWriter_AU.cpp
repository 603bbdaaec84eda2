// The AU (".snd") header writer: 24 big-endian bytes before the samples.
//
//   0 ".snd"   4 data offset (24)   8 data size, patched at the end   12 encoding   16 rate   20 channels
//
// Encodings: 1 µ-law, 27 A-law, 2/3/4/5 signed 8/16/24/32-bit, 6 32-bit float.

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"

bool KXAudioFileWriter::writeULawPreDataHeader(KXWritingFile& file, KXError* error) {
    std::uint32_t encoding = 0;
    if (encoding_ == KXFourCC("ulaw")) encoding = 1;
    else if (encoding_ == KXFourCC("alaw")) encoding = 27;
    else if (depth_ == 8) encoding = 2;
    else if (depth_ == 16) encoding = 3;
    else if (depth_ == 24) encoding = 4;
    else if (depth_ == 32) encoding = isFloatingPoint_ ? 6 : 5;
    if (encoding == 0) {
        // No AU encoding holds these samples.
        return KXAudioFileError::fail(error, KXAudioFileErrorUnsupportedFormat, "Writing the AU header");
    }
    KXChunk header;
    header.setFormat(KXFourCC("ULAW"));
    header.setByteOrder(KXByteOrderBigValue);
    header.appendType(KXFourCC(".snd"));
    // The second word is where the samples begin, 24, as every reader takes it.
    for (std::uint32_t value : {24u, 0u, encoding, std::uint32_t(rate_), std::uint32_t(channels_)}) header.appendInt(value);
    if (!header.appendToFile(file, error)) return false;
    file.setDataChunkSizePosition(8);
    file.setAudioDataPosition(24);
    return true;
}

bool KXAudioFileWriter::writeULawPostDataHeader(KXWritingFile& file, KXError* error) {
    return patchDataByteCount(file, KXFourCC("ULAW"), error);
}
