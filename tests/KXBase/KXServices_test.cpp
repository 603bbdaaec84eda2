// User defaults, the trash, the application log, UUIDs, creator codes and text conversions.

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "KXBase/KXApplicationLog.h"
#include "KXBase/KXCreatorFormatter.h"
#include "KXBase/KXFile.h"
#include "KXBase/KXString.h"
#include "KXBase/KXUserDefaults.h"
#include "KXBase/KXUserInterface.h"
#include "KXBase/KXUUID.h"
#include "support/KXTestSupport.h"

TEST(KXUserDefaults, VolatileThenPersistentThenRegistered) {
    KXTemporaryFolder folder;
    KXUserDefaults& defaults = KXUserDefaults::standardUserDefaults();
    defaults.setStoragePath(folder.pathFor("config/kxaudio/defaults.plist"));
    defaults.registerDefaults({{"Waveform Cache Enabled", true}, {"Edit Fade Type", 1}});
    EXPECT_TRUE(defaults.boolForKey("Waveform Cache Enabled"));
    defaults.setObject(false, "Waveform Cache Enabled");
    EXPECT_FALSE(defaults.boolForKey("Waveform Cache Enabled"));
    defaults.setVolatileObject(true, "Waveform Cache Enabled");
    EXPECT_TRUE(defaults.boolForKey("Waveform Cache Enabled"));
    defaults.removeVolatileObjectForKey("Waveform Cache Enabled");
    defaults.setObject("/cache", "Waveform Cache Location");
    ASSERT_TRUE(defaults.synchronize());

    // A fresh load from disk sees what was synchronized.
    defaults.setStoragePath(folder.pathFor("config/kxaudio/defaults.plist"));
    EXPECT_FALSE(defaults.boolForKey("Waveform Cache Enabled"));
    EXPECT_EQ(defaults.stringForKey("Waveform Cache Location"), "/cache");
    EXPECT_EQ(defaults.integerForKey("Edit Fade Type"), 1);
    // A damaged file reads as empty rather than failing.
    folder.write("config/kxaudio/defaults.plist", bytesOf("<plist><dict><key>"));
    defaults.setStoragePath(folder.pathFor("config/kxaudio/defaults.plist"));
    EXPECT_TRUE(defaults.boolForKey("Waveform Cache Enabled"));
}

TEST(KXTrash, MovesIntoTheHomeTrashWithAnInfoRecord) {
    KXTemporaryFolder folder;
    setenv("XDG_DATA_HOME", folder.pathFor("share").c_str(), 1);
    const std::string first = folder.write("take one.wav", bytesOf("1"));
    auto trashed = KXTrash::trashItemAtPath(first);
    folder.write("take one.wav", bytesOf("2"));
    auto again = KXTrash::trashItemAtPath(first);
    KXError error;
    auto missing = KXTrash::trashItemAtPath(folder.pathFor("gone"), &error);
    unsetenv("XDG_DATA_HOME");
    ASSERT_TRUE(trashed);
    ASSERT_TRUE(again);
    EXPECT_EQ(*trashed, folder.pathFor("share/Trash/files/take one.wav"));
    EXPECT_EQ(*again, folder.pathFor("share/Trash/files/take one.1.wav"));  // no name is reused
    EXPECT_EQ(readWholeFile(*again), bytesOf("2"));
    std::ifstream info(folder.pathFor("share/Trash/info/take one.wav.trashinfo"));
    std::string header, pathLine, dateLine;
    std::getline(info, header);
    std::getline(info, pathLine);
    std::getline(info, dateLine);
    EXPECT_EQ(header, "[Trash Info]");
    EXPECT_EQ(pathLine, "Path=" + folder.path() + "/take%20one.wav");
    EXPECT_TRUE(dateLine.starts_with("DeletionDate=20"));
    EXPECT_EQ(dateLine.size(), std::string("DeletionDate=2026-11-22T02:40:00").size());
    EXPECT_FALSE(missing);
    EXPECT_EQ(error.code(), ENOENT);
}

TEST(KXCreatorFormatter, CodesAndText) {
    EXPECT_EQ(KXCreatorFormatter::stringForCode(KXFourCC("KXAF")), "KXAF");
    EXPECT_EQ(KXCreatorFormatter::stringForCode(0), "");
    EXPECT_EQ(KXCreatorFormatter::codeForString("sd"), KXFourCC("sd  "));
    EXPECT_FALSE(KXCreatorFormatter::codeForString(""));
    EXPECT_FALSE(KXCreatorFormatter::codeForString("five!"));
    EXPECT_FALSE(KXCreatorFormatter::codeForString("a\tb"));
}

TEST(KXString, FileTextIsUTF8WhenWellFormedElseTheFormatsEightBitEncoding) {
    EXPECT_EQ(KXString::stringFromFileText("Caf\xC3\xA9", KXTextEncoding::macRoman), "Caf\xC3\xA9");
    EXPECT_EQ(KXString::stringFromFileText("Caf\x8E", KXTextEncoding::macRoman), "Caf\xC3\xA9");
    EXPECT_EQ(KXString::stringFromFileText("Caf\xE9 \x80", KXTextEncoding::windows1252), "Caf\xC3\xA9 \xE2\x82\xAC");
    EXPECT_EQ(KXString::stringFromWindows1252("\x81\x9F\xFF"), "\xC2\x81\xC5\xB8\xC3\xBF");
}

TEST(KXString, FileTextReadsBackAsTheSameTextInEveryEncoding) {
    const char* texts[] = {"plain", "Caf\xC3\xA9 cr\xC3\xA8me \xE2\x99\xAA", "\xC2\xAC\xC3\x84", "\xE6\x97\xA5\xE6\x9C\xAC",
                           "\xF0\x9F\x8E\xB5 tune"};
    for (const char* text : texts)
        for (KXTextEncoding encoding : {KXTextEncoding::macRoman, KXTextEncoding::windows1252})
            EXPECT_EQ(KXString::stringFromFileText(KXString::fileTextFromString(text, encoding), encoding), text) << text;
    // Mac OS Roman where it holds the text, UTF-8 where it does not or would read as UTF-8.
    EXPECT_EQ(KXString::fileTextFromString("Caf\xC3\xA9", KXTextEncoding::macRoman), "Caf\x8E");
    EXPECT_EQ(KXString::fileTextFromString("\xC2\xAC\xC3\x84", KXTextEncoding::macRoman), "\xC2\xAC\xC3\x84");
    EXPECT_EQ(KXString::fileTextFromString("Caf\xC3\xA9", KXTextEncoding::windows1252), "Caf\xC3\xA9");
    EXPECT_EQ(KXString::fileTextFromString("bad \xFF", KXTextEncoding::windows1252), "bad \xEF\xBF\xBD");
}

TEST(KXString, FileTextIsCutBetweenCharacters) {
    EXPECT_EQ(KXString::fileTextFromString("a\xC3\xA9", KXTextEncoding::windows1252, 2), "a");
    EXPECT_EQ(KXString::fileTextFromString("a\xC3\xA9", KXTextEncoding::macRoman, 2), "a\x8E");
    EXPECT_EQ(KXString::fileTextFromString("\xE2\x99\xAA\xE2\x99\xAA", KXTextEncoding::macRoman, 5), "\xE2\x99\xAA");
}

TEST(KXString, MacRomanAndUTF16) {
    EXPECT_EQ(KXString::stringFromMacRoman("\x8E\xA5"), "\xC3\xA9\xE2\x80\xA2");
    EXPECT_EQ(KXString::utf16Length("a\xC3\xA9\xF0\x9F\x8E\xB5"), 4u);  // a, é, and a pair for U+1F3B5
    EXPECT_TRUE(KXString::equalIgnoringCase("/a/Take.WAV", "/A/take.wav"));
    EXPECT_FALSE(KXString::equalIgnoringCase("a", "ab"));
}

namespace {
class CollectingSink : public KXLogSink {
public:
    std::vector<KXLogRecord> records;
    void write(const KXLogRecord& record) override { records.push_back(record); }
};
}  // namespace

TEST(KXApplicationLog, RecordsReachTheInstalledSinkOnly) {
    KXLogInformation("Writing", "before", "dropped by the default sink");
    auto sink = std::make_shared<CollectingSink>();
    KXApplicationLog::setSink(sink);
    KXLogInformation("Writing", "KXAudioFileWriter", "beginWrite");
    KXApplicationLog::setSink(nullptr);
    KXLogInformation("Writing", "after", "dropped again");
    ASSERT_EQ(sink->records.size(), 1u);
    const KXLogRecord& record = sink->records[0];
    EXPECT_EQ(record.domain, "Writing");
    EXPECT_EQ(record.message, "beginWrite");
    EXPECT_EQ(record.sender, "KXAudioFileWriter");
    EXPECT_EQ(record.level, KXLogLevel::information);
    EXPECT_TRUE(std::string(record.file).ends_with("KXServices_test.cpp"));
    EXPECT_GT(record.line, 0);
    EXPECT_STREQ(record.function, "TestBody");
}

TEST(KXUUID, TextFormsAndRandomVersion) {
    const auto uuid = KXUUID::fromString("00112233-4455-6677-8899-aabbccddeeff");
    ASSERT_TRUE(uuid);
    EXPECT_EQ(uuid->stringValue(), "00112233-4455-6677-8899-AABBCCDDEEFF");
    EXPECT_EQ(uuid->dataValue()[15], 0xFF);
    EXPECT_FALSE(KXUUID::fromString("00112233-4455-6677-8899-aabbccddeef"));
    EXPECT_FALSE(KXUUID::fromString("00112233x4455-6677-8899-aabbccddeeff"));
    EXPECT_FALSE(KXUUID::fromString("0011223g-4455-6677-8899-aabbccddeeff"));
    const KXUUID a = KXUUID::uuid(), b = KXUUID::uuid();
    EXPECT_NE(a, b);
    EXPECT_EQ(a.bytes()[6] >> 4, 4);         // version 4
    EXPECT_EQ(a.bytes()[8] & 0xC0, 0x80);    // RFC 4122 variant
    EXPECT_FALSE(KXUUID::fromData(a.bytes().data(), 15));
}
