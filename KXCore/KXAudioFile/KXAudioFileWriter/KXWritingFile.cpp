#include "KXAudioFile/KXAudioFileWriter/KXWritingFile.h"

#include <atomic>

#include "KXAudioFile/KXChannels/KXWaveformCache.h"
#include "KXBase/KXUserInterface.h"

namespace {
std::atomic<std::uint32_t> gCreatorCode{0};
}

std::shared_ptr<KXWritingFile> KXWritingFile::writingFileWithPath(const std::string& path, KXError* error) {
    std::unique_ptr<KXFile> file = KXFile::createFileAtPath(path, error);
    if (!file) return nullptr;
    return std::shared_ptr<KXWritingFile>(new KXWritingFile(std::move(file)));
}

std::uint32_t KXWritingFile::applicationCreatorCode() { return gCreatorCode.load(); }
void KXWritingFile::setApplicationCreatorCode(std::uint32_t code) { gCreatorCode.store(code); }

bool KXWritingFile::writeCreatorAndFileType(std::uint32_t typeCode) {
    KXFile::setTypeCode(typeCode, path());
    if (const std::uint32_t creator = applicationCreatorCode()) KXFile::setCreatorCode(creator, path());
    return true;
}

bool KXWritingFile::setPath(const std::string& path, bool replacing, KXError* error) {
    const std::string old = this->path();
    KXError failure;
    if (!KXFile::setPath(path, replacing, &failure)) {
        KXUserInterface::shared().presentError(failure);
        KXSetError(error, failure);
        return false;
    }
    KXWaveformCache::sharedInstance().moveEntry(old, path);
    return true;
}
