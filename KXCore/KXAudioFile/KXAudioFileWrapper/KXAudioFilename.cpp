#include "KXAudioFile/KXAudioFileWrapper/KXAudioFilename.h"

#include <dirent.h>

#include <algorithm>
#include <map>
#include <mutex>
#include <cstdio>

#include "KXAudioFile/KXChannels/KXChannelLayouts.h"
#include "KXBase/KXDirectories.h"
#include "KXBase/KXFile.h"
#include "KXBase/KXString.h"

namespace {

// The folder of a path, empty for a bare name.
std::string folderOfPath(const std::string& path) {
    return path.find('/') == std::string::npos ? std::string() : KXFile::directoryOfPath(path);
}

constexpr std::size_t kMaximumListLength = 64;

struct NameParts {
    std::string stem, extension;  // "Take.L" and "wav" for "Take.L.wav"
};

NameParts splitExtension(const std::string& name) {
    const std::size_t dot = name.find_last_of('.');
    if (dot == std::string::npos || dot == 0 || dot + 1 == name.size()) return {name, {}};
    return {name.substr(0, dot), name.substr(dot + 1)};
}

char separatorOf(KXAudioFilename::Scheme scheme) {
    return scheme == KXAudioFilename::Scheme::dot ? '.' : '-';
}

// If `stem` is "<base><separator><abbreviation>", the base.
std::optional<std::string> baseBefore(const std::string& stem, char separator,
                                      const std::string& abbreviation) {
    const std::string suffix = separator + abbreviation;
    if (stem.size() <= suffix.size() || stem.compare(stem.size() - suffix.size(), suffix.size(), suffix) != 0)
        return std::nullopt;
    return stem.substr(0, stem.size() - suffix.size());
}

struct AbbreviationList {
    std::string layout;
    std::vector<std::string> abbreviations;
};

// The channel-layout abbreviation lists of a data folder, ordered by file name.
std::vector<AbbreviationList> readAbbreviationLists(const std::string& data) {
    std::vector<AbbreviationList> lists;
    if (data.empty()) return lists;
    const std::string folder = data + "/KXChannelAbbreviations";
    DIR* directory = opendir(folder.c_str());
    if (!directory) return lists;
    std::vector<std::string> names;
    while (dirent* entry = readdir(directory)) {
        const std::string name = entry->d_name;
        if (name.size() > 5 && name.ends_with(".abbr")) names.push_back(name);
    }
    closedir(directory);
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
        auto abbreviations = KXChannelLayouts::readStringList(folder + "/" + name);
        if (abbreviations && !abbreviations->empty() && abbreviations->size() <= kMaximumListLength)
            lists.push_back({name.substr(0, name.size() - 5), std::move(*abbreviations)});
    }
    return lists;
}

// The lists of the library's data folder, read once per folder: the files ship with the library
// and do not change while it runs, and every name scheme consults them.
const std::vector<AbbreviationList>& abbreviationLists() {
    static std::mutex mutex;
    static std::map<std::string, std::vector<AbbreviationList>> byFolder;
    const std::string data = KXDirectories::libraryDataDirectory();
    std::lock_guard lock(mutex);
    auto found = byFolder.find(data);
    if (found == byFolder.end()) found = byFolder.emplace(data, readAbbreviationLists(data)).first;
    return found->second;
}

}  // namespace

const std::vector<std::string>& KXAudioFilename::defaultAbbreviations() {
    static const std::vector<std::string> kAbbreviations = {
        "L", "R", "C", "LFE", "LS", "RS", "CS", "LC", "RC", "LW", "RW", "LH", "RH", "LSB", "RSB", "*"};
    return kAbbreviations;
}

KXAudioFilename KXAudioFilename::singleFile(const std::string& path) {
    KXAudioFilename single;
    single.directory_ = folderOfPath(path);
    const NameParts parts = splitExtension(KXFile::lastPathComponent(path));
    single.baseName_ = parts.stem;
    single.extension_ = parts.extension;
    return single;
}

KXAudioFilename::KXAudioFilename(const std::string& path) {
    directory_ = folderOfPath(path);
    const std::string name = KXFile::lastPathComponent(path);
    const NameParts parts = splitExtension(name);
    baseName_ = parts.stem;
    extension_ = parts.extension;

    const auto& lists = abbreviationLists();
    std::vector<std::string> known = defaultAbbreviations();
    for (const auto& list : lists)
        for (const auto& abbreviation : list.abbreviations)
            if (std::find(known.begin(), known.end(), abbreviation) == known.end()) known.push_back(abbreviation);

    // The longest abbreviation that ends the name wins: "Take.LFE" is not a "FE" of "Take.L".
    for (Scheme scheme : {Scheme::dot, Scheme::hyphen}) {
        const char separator = separatorOf(scheme);
        std::optional<KXAudioFilename> best;
        std::size_t bestLength = 0;
        for (const std::string& abbreviation : known) {
            // "<base><sep><abbr>.<ext>", or "<base><sep><abbr>" with no extension.
            KXAudioFilename candidate;
            candidate.directory_ = directory_;
            candidate.scheme_ = scheme;
            if (auto base = baseBefore(parts.stem, separator, abbreviation); base && !parts.extension.empty()) {
                candidate.baseName_ = *base;
                candidate.extension_ = parts.extension;
            } else if (auto whole = baseBefore(name, separator, abbreviation)) {
                candidate.baseName_ = *whole;
            } else {
                continue;
            }
            if (abbreviation.size() <= bestLength) continue;
            auto exists = [&](const std::string& a) {
                return KXFile::existsAtPath(KXFile::pathByAppendingComponent(directory_, candidate.nameForAbbreviation(a)));
            };
            const AbbreviationList* chosen = nullptr;
            for (const auto& list : lists) {
                if (chosen && list.abbreviations.size() <= chosen->abbreviations.size()) continue;
                if (std::all_of(list.abbreviations.begin(), list.abbreviations.end(), exists)) chosen = &list;
            }
            if (chosen) {
                candidate.abbreviations_ = chosen->abbreviations;
                candidate.channelFormat_ = chosen->layout;
            } else {
                for (const std::string& a : defaultAbbreviations())
                    if (exists(a)) candidate.abbreviations_.push_back(a);
            }
            const bool includesOwn = std::find(candidate.abbreviations_.begin(), candidate.abbreviations_.end(),
                                               abbreviation) != candidate.abbreviations_.end();
            if (candidate.abbreviations_.size() < 2 || !includesOwn) continue;
            best = std::move(candidate);
            bestLength = abbreviation.size();
        }
        if (best) {
            *this = std::move(*best);
            return;
        }
    }
}

KXAudioFilename KXAudioFilename::splitFilename(const std::string& directory, const std::string& baseName,
                                               const std::string& extension,
                                               const std::vector<std::string>& abbreviations, Scheme scheme,
                                               const std::string& channelFormat) {
    KXAudioFilename filename;
    filename.directory_ = directory;
    filename.baseName_ = baseName;
    filename.extension_ = extension;
    filename.abbreviations_ = abbreviations;
    filename.scheme_ = scheme;
    filename.channelFormat_ = channelFormat;
    return filename;
}

std::string KXAudioFilename::nameForAbbreviation(const std::string& abbreviation) const {
    std::string name = baseName_;
    if (number_) {
        char numbered[16];
        std::snprintf(numbered, sizeof numbered, "_%.3u", *number_);
        name += numbered;
    }
    if (!abbreviation.empty()) name += separatorOf(scheme_) + abbreviation;
    if (!extension_.empty()) name += "." + extension_;
    return name;
}

std::string KXAudioFilename::path() const { return paths().front(); }

std::vector<std::string> KXAudioFilename::paths() const {
    std::vector<std::string> all;
    if (abbreviations_.empty()) {
        all.push_back(KXFile::pathByAppendingComponent(directory_, nameForAbbreviation({})));
        return all;
    }
    for (const std::string& abbreviation : abbreviations_)
        all.push_back(KXFile::pathByAppendingComponent(directory_, nameForAbbreviation(abbreviation)));
    return all;
}

std::optional<std::string> KXAudioFilename::pathForChannel(std::uint32_t channel) const {
    if (abbreviations_.empty()) return path();
    if (channel >= abbreviations_.size()) return std::nullopt;
    return KXFile::pathByAppendingComponent(directory_, nameForAbbreviation(abbreviations_[channel]));
}

void KXAudioFilename::setNumberOfFiles(std::uint32_t count) {
    if (count <= 1) {
        abbreviations_.clear();
        channelFormat_.clear();
        return;
    }
    if (abbreviations_.size() == count) return;
    channelFormat_.clear();
    for (const std::string& layout : KXChannelLayouts::layoutNames()) {
        auto abbreviations = KXChannelLayouts::abbreviationsForLayout(layout);
        if (abbreviations.size() == count) {
            abbreviations_ = std::move(abbreviations);
            channelFormat_ = layout;
            return;
        }
    }
    abbreviations_.clear();
    const auto& defaults = defaultAbbreviations();
    for (std::uint32_t c = 0; c < count; ++c)
        abbreviations_.push_back(c + 1 < defaults.size() ? defaults[c] : std::to_string(c + 1));
}

std::string KXAudioFilename::filename() const { return KXFile::lastPathComponent(path()); }

std::uint32_t KXAudioFilename::numberOfFiles() const {
    return abbreviations_.empty() ? 1 : std::uint32_t(abbreviations_.size());
}

// File names are bytes; one that is not UTF-8 (a Latin-1 name, say) shows U+FFFD where it is not.
std::string KXAudioFilename::displayName() const {
    if (abbreviations_.empty()) return KXString::validUTF8(nameForAbbreviation({}));
    std::string channels = channelFormat_;
    if (channels.empty()) {
        for (const std::string& abbreviation : abbreviations_)
            channels += (channels.empty() ? "" : ",") + abbreviation;
    }
    KXAudioFilename whole = *this;
    whole.abbreviations_.clear();
    return KXString::validUTF8(whole.nameForAbbreviation({})) + "(" + channels + ")";
}

KXAudioFilename KXAudioFilename::filenameMovedToPath(const std::string& path) const {
    KXAudioFilename moved = *this;
    moved.number_.reset();
    moved.directory_ = folderOfPath(path);
    const std::string name = KXFile::lastPathComponent(path);
    const NameParts parts = splitExtension(name);
    moved.baseName_ = parts.stem;
    moved.extension_ = parts.extension;
    // A path that names one channel file of the scheme gives the set's base name.
    for (const std::string& abbreviation : abbreviations_) {
        if (auto base = baseBefore(parts.stem, separatorOf(scheme_), abbreviation); base && !parts.extension.empty()) {
            moved.baseName_ = *base;
            break;
        }
        if (auto base = baseBefore(name, separatorOf(scheme_), abbreviation)) {
            moved.baseName_ = *base;
            moved.extension_.clear();
            break;
        }
    }
    return moved;
}
