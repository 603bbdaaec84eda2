#include "KXAudioFile/KXAudioFileWrapper/KXAudioFilename.h"

#include <gtest/gtest.h>

#include "KXBase/KXDirectories.h"
#include "KXBase/KXFile.h"
#include "KXBase/KXPropertyList.h"
#include "support/KXTestSupport.h"

namespace {
// Points the library at another data folder for one test.
class DataFolder {
public:
    explicit DataFolder(const std::string& path) : saved_(KXDirectories::libraryDataDirectory()) {
        KXDirectories::setLibraryDataDirectory(path);
    }
    ~DataFolder() { KXDirectories::setLibraryDataDirectory(saved_); }

private:
    std::string saved_;
};
}  // namespace

TEST(KXAudioFilename, SingleFileNamesAndNumbers) {
    KXAudioFilename name("/music/Take.wav");
    EXPECT_FALSE(name.isSplit());
    EXPECT_EQ(name.numberOfFiles(), 1u);
    EXPECT_EQ(name.paths(), std::vector<std::string>{"/music/Take.wav"});
    EXPECT_EQ(name.pathForChannel(5), "/music/Take.wav");  // one file holds every channel
    EXPECT_EQ(name.displayName(), "Take.wav");
    name.setNumber(7);
    EXPECT_EQ(name.path(), "/music/Take_007.wav");
    KXAudioFilename bare("Take");
    bare.setNumber(12);
    EXPECT_EQ(bare.path(), "Take_012");  // a bare name stays bare
    EXPECT_EQ(bare.directory(), ".");
    // A channel-like name with no partner file is one file.
    EXPECT_EQ(KXAudioFilename("/nowhere/Take.L.wav").baseName(), "Take.L");
}

TEST(KXAudioFilename, RecognisesSplitSetsInBothSchemes) {
    // Without layout lists the built-in abbreviations decide.
    DataFolder none("");
    KXTemporaryFolder folder;
    for (const char* name : {"Mix.L.wav", "Mix.R.wav", "Mix.C.wav", "Dry-L.aif", "Dry-R.aif", "Old.L", "Old.R",
                             "Sur.LS.wav", "Sur.L.wav", "Sur.LFE.wav"})
        folder.write(name, {});
    struct Case {
        const char* path;
        std::vector<std::string> abbreviations;
        KXAudioFilename::Scheme scheme;
        const char* display;
    } cases[] = {
        {"Mix.R.wav", {"L", "R", "C"}, KXAudioFilename::Scheme::dot, "Mix.wav(L,R,C)"},
        {"Dry-L.aif", {"L", "R"}, KXAudioFilename::Scheme::hyphen, "Dry.aif(L,R)"},
        {"Old.R", {"L", "R"}, KXAudioFilename::Scheme::dot, "Old(L,R)"},
        // The longest abbreviation that ends the name: "LFE", not a base of "Sur.L".
        {"Sur.LFE.wav", {"L", "LFE", "LS"}, KXAudioFilename::Scheme::dot, "Sur.wav(L,LFE,LS)"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        KXAudioFilename name(folder.pathFor(c.path));
        EXPECT_EQ(name.abbreviations(), c.abbreviations);
        EXPECT_EQ(name.scheme(), c.scheme);
        EXPECT_EQ(name.displayName(), c.display);
        EXPECT_EQ(name.numberOfFiles(), c.abbreviations.size());
    }
    KXAudioFilename mix(folder.pathFor("Mix.C.wav"));
    EXPECT_EQ(mix.path(), folder.pathFor("Mix.L.wav"));
    EXPECT_EQ(mix.pathForChannel(2), folder.pathFor("Mix.C.wav"));
    EXPECT_FALSE(mix.pathForChannel(3));
    mix.setNumber(1);
    EXPECT_EQ(mix.pathForChannel(1), folder.pathFor("Mix_001.R.wav"));
    EXPECT_EQ(mix.displayName(), "Mix_001.wav(L,R,C)");
    KXAudioFilename dry(folder.pathFor("Dry-R.aif"));
    dry.setNumber(2);
    EXPECT_EQ(dry.pathForChannel(0), folder.pathFor("Dry_002-L.aif"));
}

TEST(KXAudioFilename, TheShippedLayoutListsNameTheirSets) {
    KXTemporaryFolder folder;
    for (const char* name : {"Mix.L.wav", "Mix.R.wav", "Mix.C.wav", "Mix.LFE.wav", "Mix.LS.wav", "Mix.RS.wav"})
        folder.write(name, {});
    KXAudioFilename name(folder.pathFor("Mix.LFE.wav"));
    EXPECT_EQ(name.channelFormat(), "5_1");
    EXPECT_EQ(name.abbreviations(), (std::vector<std::string>{"L", "R", "C", "LFE", "LS", "RS"}));
}

TEST(KXAudioFilename, LayoutListsChooseTheLongestCompleteList) {
    KXTemporaryFolder folder;
    const std::string data = folder.pathFor("data");
    ASSERT_TRUE(KXFile::createDirectoryAtPath(data + "/KXChannelAbbreviations"));
    auto list = [](std::initializer_list<const char*> abbreviations) {
        KXArray array;
        for (const char* a : abbreviations) array.push_back(a);
        return KXPropertyList::xmlData(KXValue(array));
    };
    folder.write("data/KXChannelAbbreviations/Stereo.abbr", list({"L", "R"}));
    folder.write("data/KXChannelAbbreviations/LCR.abbr", list({"L", "C", "R"}));
    folder.write("data/KXChannelAbbreviations/Quad.abbr", list({"L", "R", "Ls", "Rs"}));  // Ls is missing
    folder.write("data/KXChannelAbbreviations/Wide.abbr", list({"Lw", "Rw"}));
    folder.write("data/KXChannelAbbreviations/Broken.abbr", bytesOf("L\nR\n"));  // not a list: ignored
    for (const char* name : {"t.L.wav", "t.C.wav", "t.R.wav", "t.Rs.wav", "w-Lw.wav", "w-Rw.wav"}) folder.write(name, {});
    DataFolder lists(data);
    KXAudioFilename lcr(folder.pathFor("t.R.wav"));
    KXAudioFilename wide(folder.pathFor("w-Rw.wav"));  // an abbreviation known only from a list
    EXPECT_EQ(lcr.abbreviations(), (std::vector<std::string>{"L", "C", "R"}));
    EXPECT_EQ(lcr.channelFormat(), "LCR");
    EXPECT_EQ(lcr.displayName(), "t.wav(LCR)");
    EXPECT_EQ(wide.abbreviations(), (std::vector<std::string>{"Lw", "Rw"}));
    EXPECT_EQ(wide.scheme(), KXAudioFilename::Scheme::hyphen);
}

TEST(KXAudioFilename, MovedToAPathKeepsTheScheme) {
    KXAudioFilename split = KXAudioFilename::splitFilename("/a", "Take", "wav", {"L", "R"}, KXAudioFilename::Scheme::hyphen);
    split.setNumber(3);
    const KXAudioFilename moved = split.filenameMovedToPath("/b/Song.aif");
    EXPECT_EQ(moved.paths(), (std::vector<std::string>{"/b/Song-L.aif", "/b/Song-R.aif"}));
    EXPECT_FALSE(moved.number());
    // Naming one channel file of the new set gives the set's base name.
    EXPECT_EQ(split.filenameMovedToPath("/b/Song-R.aif").path(), "/b/Song-L.aif");
    EXPECT_EQ(split.filenameMovedToPath("/b/Song-R").path(), "/b/Song-L");
    EXPECT_EQ(KXAudioFilename("/a/x.wav").filenameMovedToPath("/c/y").path(), "/c/y");
}
