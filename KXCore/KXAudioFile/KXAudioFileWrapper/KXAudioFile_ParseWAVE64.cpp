// The Wave64 reader: a RIFF-like container with 64-bit sizes and 16-byte GUIDs for types, whose
// first four bytes name the chunk ('fmt ', 'data'). 'fmt ' is laid out as in WAVE files. No labels
// or metadata are read from Wave64 files; every other chunk is kept.

#include <algorithm>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXBase/KXFile.h"

bool KXAudioFile::parseWAVE64Header(KXFile& file, KXError* error) {
    static constexpr const char* kAction = "Parsing the WAVE64 file";
    format_ = KXFourCC("WV64");
    encoding_ = KXFourCC("lpcm");
    blockSizeByteOrder_ = audioDataByteOrder_ = 1;
    isInterleaved_ = true;
    std::optional<KXChunkArray> walked = chunksForFile(file, error);
    if (!walked) return false;
    KXChunkArray& chunks = *walked;
    const auto take = [&](std::uint32_t type) -> std::shared_ptr<KXChunk> {
        const auto found = std::find_if(chunks.begin(), chunks.end(), [&](const auto& c) { return c->type() == type; });
        if (found == chunks.end()) return nullptr;
        auto chunk = *found;
        chunks.erase(found);
        return chunk;
    };
    const auto fmt = take(KXFourCC("fmt "));
    if (!fmt) {
        KXSetError(error, KXAudioFileError::errorWithCode(KXAudioFileErrorMissingRequiredData, kAction));
        return false;
    }
    if (!readWAVEFormatChunk(*fmt, kAction, error)) return false;
    buildChannelsList();
    const auto data = take(KXFourCC("data"));
    const std::uint64_t frames = data ? data->length() / (std::uint64_t(depth_ / 8) * numberOfChannels_) : 0;
    if (frames == 0) {
        KXSetError(error, KXAudioFileError::errorWithCode(KXAudioFileErrorMissingRequiredData, kAction));
        return false;
    }
    frames_ = std::uint32_t(std::min<std::uint64_t>(frames, 0xFFFFFFFFu));
    setEditList(KXEditList::editListWithAudioFile(*this, std::int64_t(data->dataPosition())));
    if (!chunks.empty()) unusedChunkList_ = std::move(chunks);
    return true;
}
