#pragma once
// KXAudioFilename: the names of an audio file's file set — one file holding every channel, or
// one file per channel ("split").
//
// Split sets are recognised from the name of any one of their files, which carries a channel
// abbreviation after the base name:
//   scheme 0 (dot):     "<base>.<abbr>" then ".<ext>" when there is one   Take.L.wav  Take.R.wav
//                                                                         Take.L      Take.R
//   scheme 1 (hyphen):  "<base>-<abbr>" then ".<ext>"                     Take-L.aif  Take-R.aif
// The abbreviations are "L", "R", "C", "LFE", "LS", "RS", "CS", "LC", "RC", "LW", "RW", "LH",
// "RH", "LSB", "RSB" and "*", matched exactly (letter case included).
//
// Which channels the set has:
//   1. Each channel-layout list file "KXChannelAbbreviations/<Layout>.abbr" of the library's
//      data folder (a property-list array of abbreviations in channel order, see
//      KXChannelLayouts) whose every abbreviation names an existing file is a candidate; the longest wins, the first (by file name) of equally
//      long ones staying. Its channels are the list's, and "<Layout>" is the channel format.
//   2. Otherwise the channels are the abbreviations above whose files exist, in the order above,
//      and the channel format is empty.
// A name that names fewer than two existing channel files is a single file: "Take.L.wav" alone
// is one file whose base name is "Take.L".
//
// Numbering (setNumber) makes a distinct name in the same scheme, the number in three digits
// after the base name:
//   single file   "<base>_%03d.<ext>"   Take_001.wav   (no extension: "Take_001")
//   scheme 0      "<base>_%03d.<abbr>"  then ".<ext>"   Take_001.L.wav
//   scheme 1      "<base>_%03d-<abbr>"  then ".<ext>"   Take_001-L.wav
//
// Display names (valid UTF-8 whatever bytes the file names hold): a single file shows its file name ("Take.wav"); a split set shows
// "<base>.<ext>(<format>)" — "Take.wav(Stereo)" — with the channel format, or the
// abbreviations joined by commas when it has none ("Take.wav(L,R)"); without an extension
// "Take(L,R)".

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

class KXAudioFilename {
public:
    enum class Scheme { dot = 0, hyphen = 1 };

    // The name scheme of the file set that `path` belongs to (initWithPath:).
    explicit KXAudioFilename(const std::string& path);
    // `path` alone, never a member of a set: how each file of a split set is read by itself.
    static KXAudioFilename singleFile(const std::string& path);
    // A split set under `directory` with the given names, as a writer makes one.
    static KXAudioFilename splitFilename(const std::string& directory, const std::string& baseName,
                                         const std::string& extension,
                                         const std::vector<std::string>& abbreviations,
                                         Scheme scheme, const std::string& channelFormat = {});

    // The path of the first file of the set.
    std::string path() const;
    // One path per file, in channel order.
    std::vector<std::string> paths() const;
    // The file that holds `channel`: for a single file its path, for a split set the channel's
    // own file; nullopt for a channel the set does not have.
    std::optional<std::string> pathForChannel(std::uint32_t channel) const;
    std::string displayName() const;
    std::uint32_t numberOfFiles() const;
    bool isSplit() const { return !abbreviations_.empty(); }

    // "." for a bare name, whose paths stay bare ("take.wav", not "./take.wav").
    std::string directory() const { return directory_.empty() ? std::string(".") : directory_; }
    const std::string& baseName() const { return baseName_; }
    const std::string& extension() const { return extension_; }
    const std::vector<std::string>& abbreviations() const { return abbreviations_; }
    const std::string& channelFormat() const { return channelFormat_; }
    Scheme scheme() const { return scheme_; }
    std::optional<std::uint32_t> number() const { return number_; }
    void setNumber(std::optional<std::uint32_t> number) { number_ = number; }

    // What a writer sets before it names its files. A set of one file is a single file; a larger
    // one keeps its abbreviations when it has as many, else takes those of the first layout with
    // that many channels (KXChannelLayouts), else the default abbreviations in order ("*" left
    // out), then the channel numbers ("16", "17" …).
    void setScheme(Scheme scheme) { scheme_ = scheme; }
    void setNumberOfFiles(std::uint32_t count);
    // nullopt or empty: no extension.
    void setExtension(const std::optional<std::string>& extension) { extension_ = extension.value_or(""); }
    // The first file's name.
    std::string filename() const;

    // The same scheme (single or split, same abbreviations) under a new path; the name of
    // `path` gives the folder, base name and extension, and any number is dropped.
    KXAudioFilename filenameMovedToPath(const std::string& path) const;

    // The default channel abbreviations, in order.
    static const std::vector<std::string>& defaultAbbreviations();

    friend bool operator==(const KXAudioFilename&, const KXAudioFilename&) = default;

private:
    KXAudioFilename() = default;
    std::string nameForAbbreviation(const std::string& abbreviation) const;

    std::string directory_;  // empty for a bare name
    std::string baseName_;
    std::string extension_;  // without the dot; empty when the name has none
    std::vector<std::string> abbreviations_;  // empty for a single file
    std::string channelFormat_;
    Scheme scheme_ = Scheme::dot;
    std::optional<std::uint32_t> number_;
};
