// The Wave64 reader: a RIFF-like container with 64-bit sizes and 16-byte GUIDs for types, whose
// first four bytes name the chunk ('fmt ', 'data'). 'fmt ' is laid out as in WAVE files. No labels
// or metadata are read from Wave64 files; every other chunk is kept.

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXChunkList.h"
#include "KXBase/KXFile.h"

bool KXAudioFile::parseWAVE64Header(KXFile& file, KXError* error) {
    static constexpr const char* kAction = "Parsing the WAVE64 file";
    format_ = KXFourCC("WV64");
    encoding_ = KXFourCC("lpcm");
    blockSizeByteOrder_ = audioDataByteOrder_ = KXByteOrderLittleValue;
    isInterleaved_ = true;
    std::optional<KXChunkArray> walked = chunksForFile(file, error);
    if (!walked) return false;
    KXChunkArray& chunks = *walked;
    const auto fmt = KXChunkList::takeChunk(chunks, KXFourCC("fmt "));
    const auto data = fmt ? KXChunkList::takeChunk(chunks, KXFourCC("data")) : nullptr;
    if (!readWAVEFormatAndData(fmt.get(), data.get(), kAction, error)) return false;
    if (!chunks.empty()) unusedChunkList_ = std::move(chunks);
    return true;
}
