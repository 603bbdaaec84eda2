// The Wave64 reader: a RIFF-like container with 64-bit sizes and 16-byte GUIDs for types, whose
// first four bytes name the chunk ('fmt ', 'data'). 'fmt ' is laid out as in WAVE files. No labels
// or metadata are read from Wave64 files; every other chunk is kept.

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXChunkList.h"
#include "KXBase/KXFile.h"

bool KXAudioFile::parseWAVE64Header(KXFile& /*file*/, KXError* error) {
    static constexpr const char* kAction = "Parsing the WAVE64 file";
    format_ = KXFourCC("WV64");
    encoding_ = KXFourCC("lpcm");
    blockSizeByteOrder_ = audioDataByteOrder_ = KXByteOrderLittleValue;
    isInterleaved_ = true;
    const std::shared_ptr<KXChunkList> chunks = KXChunkList::chunkListForAudioFile(*this, error);
    if (!chunks) return false;
    const auto fmt = chunks->consumeChunk(KXFourCC("fmt "));
    const auto data = fmt ? chunks->consumeChunk(KXFourCC("data")) : nullptr;
    if (!readWAVEFormatAndData(fmt.get(), data.get(), kAction, error)) return false;
    KXChunkArray unused = chunks->unusedChunks();
    if (!unused.empty()) unusedChunkList_ = std::move(unused);
    return true;
}
