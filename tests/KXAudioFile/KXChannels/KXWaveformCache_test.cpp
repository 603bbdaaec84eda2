#include "KXAudioFile/KXChannels/KXWaveformCache.h"

#include <gtest/gtest.h>
#include <sys/time.h>

#include "KXBase/KXFile.h"
#include "KXBase/KXPropertyList.h"
#include "KXBase/KXUserDefaults.h"
#include "KXBase/KXUserInterface.h"
#include "support/KXTestSupport.h"

namespace {

// The shared cache, moved into a temporary folder and enabled (or not) for one test.
class CacheFixture : public ::testing::Test {
protected:
    void SetUp() override {
        auto& defaults = KXUserDefaults::standardUserDefaults();
        defaults.setStoragePath(folder.pathFor("defaults.plist"));
        defaults.setVolatileObject(folder.pathFor("support/Cache"), KXWaveformCache::kLocationKey);
        defaults.setVolatileObject(true, KXWaveformCache::kEnabledKey);
        cache().loadWaveformCache();
    }
    void TearDown() override {
        auto& defaults = KXUserDefaults::standardUserDefaults();
        defaults.removeVolatileObjectForKey(KXWaveformCache::kLocationKey);
        defaults.removeVolatileObjectForKey(KXWaveformCache::kEnabledKey);
        KXUserInterface::install(nullptr);
    }
    static KXWaveformCache& cache() { return KXWaveformCache::sharedInstance(); }
    std::size_t cacheFiles() const {
        std::size_t count = 0;
        for (const auto& name : KXFile::contentsOfDirectoryAtPath(cache().directoryPath())) count += name.ends_with(".analysis");
        return count;
    }
    // Moves the file's modification time by whole seconds.
    static void touch(const std::string& path, long seconds) {
        setTime(path, long(*KXFile::modificationDateAtPath(path)) + seconds);
    }
    static void setTime(const std::string& path, long seconds) {
        timeval times[2] = {{seconds, 0}, {seconds, 0}};
        utimes(path.c_str(), times);
    }

    KXTemporaryFolder folder;
};

class AnswerNo : public KXUserInterface {
public:
    std::size_t runAlert(const KXAlert& alert) override {
        asked.push_back(alert.title);
        return 1;
    }
    std::vector<std::string> asked;
};

}  // namespace

TEST_F(CacheFixture, AddLookupAndSizeBookkeeping) {
    EXPECT_TRUE(KXFile::existsAtPath(cache().directoryPath() + "/directory.xml"));
    EXPECT_EQ(cache().size(), 0u);
    const std::string audio = folder.write("take.au", bytesOf("audio"));
    cache().addEntry(KXData(100, 7), audio);
    cache().addEntry(KXData(40, 8), audio);  // replaces: one file, counted once
    EXPECT_EQ(cacheFiles(), 1u);
    EXPECT_EQ(cache().size(), 40u);
    EXPECT_EQ(cache().entryForPath(audio), KXData(40, 8));
    auto chunk = cache().chunkForPath(audio);
    ASSERT_TRUE(chunk);
    EXPECT_EQ(chunk->type(), KXFourCC("KXAn"));
    EXPECT_EQ(cache().cacheSize(), "40 bytes");

    // The index on disk says the same, and a fresh load reads it back.
    auto index = KXPropertyList::propertyListFromData(readWholeFile(cache().directoryPath() + "/directory.xml"));
    ASSERT_TRUE(index);
    EXPECT_EQ(index->dictionary().objectForKey("Size").intValue(), 40);
    EXPECT_TRUE(index->dictionary().objectForKey(audio).dictionary().contains("modDate"));
    cache().loadWaveformCache();
    EXPECT_EQ(cache().entryForPath(audio), KXData(40, 8));
}

TEST_F(CacheFixture, ATouchedFileLosesItsEntry) {
    const std::string audio = folder.write("take.au", bytesOf("audio"));
    cache().addEntry(KXData(64, 1), audio);
    touch(audio, 10);
    EXPECT_FALSE(cache().entryForPath(audio));
    EXPECT_EQ(cache().size(), 0u);
    EXPECT_EQ(cacheFiles(), 0u);
    EXPECT_FALSE(cache().entryForPath(folder.pathFor("never.au")));
}

TEST_F(CacheFixture, MoveCopyAndRemove) {
    const std::string a = folder.write("a.au", bytesOf("a"));
    const std::string b = folder.write("b.au", bytesOf("b"));
    const std::string c = folder.write("c.au", bytesOf("c"));
    // One modification time for all three, so that moved and copied entries match their new files.
    for (const auto& path : {a, b, c}) setTime(path, 1700000000);
    cache().addEntry(KXData(10, 1), a);
    cache().moveEntry(a, b);
    EXPECT_FALSE(cache().entryForPath(a));
    EXPECT_EQ(cache().entryForPath(b), KXData(10, 1));
    cache().copyEntry(b, c);
    EXPECT_EQ(cacheFiles(), 2u);
    EXPECT_EQ(cache().size(), 20u);
    cache().removeEntriesAtPaths({b, c});
    EXPECT_EQ(cacheFiles(), 0u);
    EXPECT_EQ(cache().size(), 0u);
}

TEST_F(CacheFixture, DisabledCacheDoesNothing) {
    KXUserDefaults::standardUserDefaults().setVolatileObject(false, KXWaveformCache::kEnabledKey);
    const std::string audio = folder.write("take.au", bytesOf("audio"));
    cache().addEntry(KXData(10, 1), audio);
    EXPECT_EQ(cacheFiles(), 0u);
    EXPECT_FALSE(cache().entryForPath(audio));
}

TEST_F(CacheFixture, EmptyAndUpdateAskFirst) {
    const std::string kept = folder.write("kept.au", bytesOf("k"));
    const std::string changed = folder.write("changed.au", bytesOf("c"));
    const std::string gone = folder.write("gone.au", bytesOf("g"));
    for (const auto& path : {kept, changed, gone}) cache().addEntry(KXData(8, 1), path);
    auto no = std::make_shared<AnswerNo>();
    KXUserInterface::install(no);
    cache().updateCache();
    cache().emptyCache();
    EXPECT_EQ(no->asked, (std::vector<std::string>{"Are you sure you want to update the waveform cache?",
                                                   "Are you sure you want to empty the waveform cache?"}));
    EXPECT_EQ(cacheFiles(), 3u);  // "No" changes nothing

    KXUserInterface::install(nullptr);  // the headless answer is "Yes"
    touch(changed, 5);
    KXFile::deleteFileAtPath(gone);
    cache().updateCache();
    EXPECT_EQ(cacheFiles(), 1u);
    EXPECT_EQ(cache().size(), 8u);
    EXPECT_TRUE(cache().entryForPath(kept));
    cache().emptyCache();
    EXPECT_EQ(cacheFiles(), 0u);
    EXPECT_EQ(cache().size(), 0u);
    EXPECT_TRUE(KXFile::existsAtPath(cache().directoryPath() + "/directory.xml"));
}

TEST_F(CacheFixture, MovingTheCacheChangesTheSettingOnlyOnSuccess) {
    const std::string audio = folder.write("take.au", bytesOf("audio"));
    cache().addEntry(KXData(10, 1), audio);
    auto& defaults = KXUserDefaults::standardUserDefaults();
    defaults.removeVolatileObjectForKey(KXWaveformCache::kLocationKey);
    defaults.setObject(folder.pathFor("support/Cache"), KXWaveformCache::kLocationKey);
    ASSERT_TRUE(KXFile::createDirectoryAtPath(folder.pathFor("elsewhere")));
    cache().setCacheLocation(folder.pathFor("elsewhere"));
    EXPECT_EQ(cache().directoryPath(), folder.pathFor("elsewhere/Cache"));
    EXPECT_EQ(defaults.stringForKey(KXWaveformCache::kLocationKey), folder.pathFor("elsewhere/Cache"));
    EXPECT_EQ(cache().entryForPath(audio), KXData(10, 1));
    cache().setCacheLocation(folder.pathFor("missing/parent"));  // fails: nothing changes
    EXPECT_EQ(defaults.stringForKey(KXWaveformCache::kLocationKey), folder.pathFor("elsewhere/Cache"));
}
