#pragma once
// KXWritingFile: one output file of a writer, with the places of the size fields that are known
// only once the samples are written and of the first sample byte. Header writers record them;
// post-data header writers patch them.

#include <cstdint>
#include <memory>
#include <string>

#include "KXBase/KXFile.h"

class KXWritingFile : public KXFile {
public:
    // Creates (or empties) the file and opens it for writing; nullptr with the error otherwise.
    static std::shared_ptr<KXWritingFile> writingFileWithPath(const std::string& path, KXError* error = nullptr);

    // Sets the HFS type code, and the creator code of the application (KXWritingFile::setCreatorCode)
    // when there is one. Always true: a file system without user attributes simply has no codes.
    bool writeCreatorAndFileType(std::uint32_t typeCode);
    // The creator code written files carry; 0 (none) until the host sets its signature.
    static std::uint32_t applicationCreatorCode();
    static void setApplicationCreatorCode(std::uint32_t code);

    // Moves the file (replacing what is there when `replacing`), the cached overview following
    // it. A failure is shown to the user and also answered.
    bool setPath(const std::string& path, bool replacing = false, KXError* error = nullptr);

    std::int64_t dataChunkSizePosition() const { return dataChunkSizePosition_; }
    void setDataChunkSizePosition(std::int64_t position) { dataChunkSizePosition_ = position; }
    std::int64_t fileChunkSizePosition() const { return fileChunkSizePosition_; }
    void setFileChunkSizePosition(std::int64_t position) { fileChunkSizePosition_ = position; }
    std::int64_t sampleCountPosition() const { return sampleCountPosition_; }
    void setSampleCountPosition(std::int64_t position) { sampleCountPosition_ = position; }
    std::int64_t audioDataPosition() const { return audioDataPosition_; }
    void setAudioDataPosition(std::int64_t position) { audioDataPosition_ = position; }

private:
    explicit KXWritingFile(std::unique_ptr<KXFile> file) : KXFile(std::move(file)) {}

    std::int64_t dataChunkSizePosition_ = 0;
    std::int64_t fileChunkSizePosition_ = 0;
    std::int64_t sampleCountPosition_ = 0;
    std::int64_t audioDataPosition_ = 0;
};
