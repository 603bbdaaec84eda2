#include "KXAudioFile/KXEditList/KXTessaroDocument.h"

#include <cstdio>
#include <filesystem>

#include "KXAudioFile/KXChannels/KXChannelsList.h"
#include "KXAudioFile/KXLabels/KXLabelList.h"
#include "KXBase/KXFile.h"
#include "KXBase/KXPropertyList.h"

namespace KXTessaroDocument {

KXDictionary header(const Contents& contents) {
    KXDictionary header;
    header.setObject(contents.channels ? contents.channels->state() : KXArray(), kChannelsKey);
    if (contents.difference) header.setObject(*contents.difference, kDifferenceKey);
    header.setObject(KXDate::now(), kDateKey);
    header.setObject(false, kTablesAreBigEndianKey);
    header.setObject(float(contents.rate), kRateKey);
    if (contents.editList) header.setObject(*contents.editList, kEditListKey);
    for (std::size_t i = 0; i < 4; ++i)
        if (const KXLabelList* list = contents.labelLists[i]; list && list->count() > 0)
            header.setObject(list->state(), kLabelKeys[i]);
    return header;
}

bool writeHeader(const KXDictionary& header, const std::string& path, KXError* error) {
    return KXFile::writeDataToPath(KXPropertyList::xmlData(header), path, error);
}

namespace {

std::string numbered(const std::string& base, const char* format, std::uint32_t number) {
    char suffix[32];
    std::snprintf(suffix, sizeof suffix, format, unsigned(number));
    return base + suffix;
}

}  // namespace

std::string headerPath(const std::string& base) { return base + "." + kHeaderExtension; }
std::string contiguousPartPath(const std::string& base, std::uint32_t channel) {
    return numbered(base, "_0000.%.2u", channel);
}
std::string separatePartPath(const std::string& base, std::uint32_t block) { return numbered(base, "_%.4u", block); }
std::string channelFilePath(const std::string& base, std::uint32_t channel) { return numbered(base, ".%.2u", channel); }

std::optional<std::string> headerPathInFolder(const std::string& folder) {
    if (!KXFile::isDirectoryAtPath(folder)) return std::nullopt;
    std::string stem = KXFile::lastPathComponent(folder);
    if (const std::size_t dot = stem.find_last_of('.'); dot != std::string::npos && dot > 0) stem.resize(dot);
    const std::string header = headerPath(KXFile::pathByAppendingComponent(folder, stem));
    return KXFile::existsAtPath(header) ? std::optional<std::string>(header) : std::nullopt;
}

std::uint64_t sizeOfFolder(const std::string& folder) {
    std::uint64_t size = 0;
    std::error_code failed;
    for (const auto& entry : std::filesystem::directory_iterator(folder, failed)) {
        std::error_code ignored;
        if (entry.is_regular_file(ignored)) size += entry.file_size(ignored);
    }
    return size;
}

}  // namespace KXTessaroDocument
