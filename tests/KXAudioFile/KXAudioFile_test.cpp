#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXBase/KXFile.h"
#include "KXBase/KXResourceFile.h"
#include "KXBase/KXUserInterface.h"
#include "support/KXTestSupport.h"

TEST(KXAudioFileError, ReasonsOfEveryCode) {
    struct Case {
        std::int64_t code;
        const char* reason;
    } cases[] = {
        {-1, "the initialization failed."},
        {-2, "an undefined error occurred: -2"},
        {-3, "the file has no data."},
        {-4, "the described file size is incorrect."},
        {-5, "the file is missing required data."},
        {-6, "the file format is unsupported."},
        {-7, "the file is corrupt."},
        {-8, "the chunk verification failed."},
        {-9, "the user cancelled the operation."},
        {-10, "the file size was adjusted."},
        {5, "an undefined error occurred: 5"},
        {-11, "an undefined error occurred: -11"},
    };
    for (const Case& c : cases) EXPECT_EQ(KXAudioFileError::failureReasonForError(c.code), c.reason) << c.code;
    const KXError error = KXAudioFileError::errorWithCode(KXAudioFileErrorMissingRequiredData, "Parsing the AIFF file");
    EXPECT_EQ(error.domain(), "KXAudioFileErrorDomain");
    EXPECT_EQ(error.alertMessage(), "An audio file error occurred");
    EXPECT_EQ(error.description(), "Parsing the AIFF file: the file is missing required data. (code -5)");
}

TEST(KXAudioFileOpen, EmptyMissingAndShortFiles) {
    KXTemporaryFolder folder;
    KXError error;
    EXPECT_FALSE(KXAudioFile::audioFileWithPath(folder.write("empty.wav", {}), &error));
    EXPECT_EQ(error, KXAudioFileError::errorWithCode(KXAudioFileErrorNoData, "Opening the audio file"));

    EXPECT_FALSE(KXAudioFile::audioFileWithPath(folder.pathFor("none.wav"), &error));
    EXPECT_EQ(error.domain(), KXPOSIXErrorDomain);
    EXPECT_EQ(error.code(), ENOENT);

    // Three bytes match nothing and reach Sound Designer II, which finds no resource fork.
    EXPECT_FALSE(KXAudioFile::audioFileWithPath(folder.write("three", bytesOf("RIF")), &error));
    EXPECT_EQ(error.domain(), KXPOSIXErrorDomain);
    EXPECT_EQ(error.code(), ENOENT);
    EXPECT_EQ(error.action(), "Opening the resource fork of " + folder.pathFor("three"));
}

TEST(KXAudioFileOpen, DispatchesOnTheLeadingBytes) {
    struct Case {
        KXData bytes;
        std::int64_t code;
        const char* action;
    } cases[] = {
        {KXTestFile::aiff().chunk("JUNK", bytesOf("abcd")).finish().data(), -5, "Parsing the AIFF file"},  // no COMM
        {KXTestFile::riff().chunk("JUNK", bytesOf("abcd")).finish().data(), -5, "Parsing the WAVE file"},  // no fmt
        {KXTestFile::wave64().chunk("JUNK", bytesOf("abcdefgh")).finish().data(), -5, "Parsing the WAVE64 file"},
        {bytesOf("\x05\x38" "FORM"), -6, "Parsing the Sound Designer I file"},  // 05 38 wins whatever follows
        {bytesOf("CAT ...."), -6, "Parsing the ReCycle file"},
        {bytesOf(".snd...."), -6, "Parsing the AU file"},
        {bytesOf("<?xml version"), -5, "Parsing the Tessaro file"},
        {bytesOf("caff\0\1\0\0"), -5, "Parsing the CoreAudio file"},  // no 'desc'
    };
    KXTemporaryFolder folder;
    for (const Case& c : cases) {
        KXError error;
        EXPECT_FALSE(KXAudioFile::audioFileWithPath(folder.write("f", c.bytes), &error));
        EXPECT_EQ(error, KXAudioFileError::errorWithCode(c.code, c.action));
    }
    // Sound Designer II with a resource fork gets as far as its parser, which needs 'STR ' resources.
    const std::string sd2 = folder.write("take.sd2", bytesOf("\0\1\0\1"));
    ASSERT_TRUE(KXResourceFile::createResourceFileAtPath(sd2));
    KXError error;
    EXPECT_FALSE(KXAudioFile::audioFileWithPath(sd2, &error));
    EXPECT_EQ(error, KXAudioFileError::errorWithCode(KXAudioFileErrorMissingRequiredData, "Parsing the SDII file"));

    EXPECT_EQ(KXAudioFile::containerKindForLeadingBytes(0x0538FFFF).format, KXFourCC("SFIL"));
    EXPECT_EQ(KXAudioFile::containerKindForLeadingBytes(0x05390000).format, KXFourCC("SDII"));
}

TEST(KXAudioFileConverter, SourceDescriptionFlags) {
    struct Case {
        const char* format;
        std::uint32_t depth;
        bool floating;
        std::int32_t order;
        std::uint32_t flags;
    } cases[] = {
        {"WAVE", 16, false, 1, 4 + 32},
        {"WAVE", 8, false, 1, 32},  // unsigned bytes
        {"WV64", 8, false, 1, 32},
        {"AIFF", 8, false, 2, 2 + 4 + 32},
        {"AIFF", 32, true, 2, 1 + 2 + 4 + 32},
    };
    for (const Case& c : cases) {
        auto file = KXAudioFile::audioFile();
        file->setFormat(fourCC(c.format));
        file->setDepth(c.depth);
        file->setIsFloatingPoint(c.floating);
        file->setAudioDataByteOrder(c.order);
        file->setRate(48000);
        file->setEncoding(KXFourCC("lpcm"));
        file->setUpAudioConverter();
        EXPECT_EQ(file->sourceDescription().flags(), c.flags) << c.format << c.depth;
        EXPECT_EQ(file->sourceDescription().range(), c.depth);
        EXPECT_EQ(file->sourceDescription().rate(), 48000);
        EXPECT_EQ(file->destinationDescription().rate(), 48000);
        EXPECT_TRUE(file->destinationDescription().isFloat());
    }
}

TEST(KXAudioFileRepair, RiffAndFormSizes) {
    KXTemporaryFolder folder;
    // RIFF: a wrong size is rewritten; the answer is true either way.
    const std::string riff = folder.write("a.wav", bytesOf("RIFF\x02\0\0\0WAVEabcd"));
    EXPECT_TRUE(KXAudioFile::repairAtPath(riff));
    EXPECT_EQ(readWholeFile(riff), bytesOf("RIFF\x08\0\0\0WAVEabcd"));
    EXPECT_TRUE(KXAudioFile::repairAtPath(riff));

    // FORM: a size short of the file cuts the file; 0 or too large rewrites the size; a correct
    // file is left alone and answers false.
    const std::string cut = folder.write("a.aif", bytesOf("FORM\0\0\0\x08" "AIFFabcdEXTRA"));
    EXPECT_TRUE(KXAudioFile::repairAtPath(cut));
    EXPECT_EQ(readWholeFile(cut), bytesOf("FORM\0\0\0\x08" "AIFFabcd"));
    EXPECT_FALSE(KXAudioFile::repairAtPath(cut));
    const std::string zero = folder.write("b.aif", bytesOf("FORM\0\0\0\0AIFFabcd"));
    EXPECT_TRUE(KXAudioFile::repairAtPath(zero));
    EXPECT_EQ(readWholeFile(zero), bytesOf("FORM\0\0\0\x08" "AIFFabcd"));
    const std::string large = folder.write("c.aif", bytesOf("FORM\0\0\1\0AIFFabcd"));
    EXPECT_TRUE(KXAudioFile::repairAtPath(large));
    EXPECT_EQ(readWholeFile(large), bytesOf("FORM\0\0\0\x08" "AIFFabcd"));

    EXPECT_FALSE(KXAudioFile::repairAtPath(folder.write("d", bytesOf("caff...."))));
    EXPECT_FALSE(KXAudioFile::repairAtPath(folder.write("e", {})));
    EXPECT_FALSE(KXAudioFile::repairAtPath(folder.pathFor("missing")));
}

namespace {

// An object that refers to a file set, as opening one would leave it.
std::shared_ptr<KXAudioFile> objectFor(const std::string& path, const char* format = "WAVE") {
    auto file = KXAudioFile::audioFile();
    file->setPath(path);
    file->setFormat(fourCC(format));
    return file;
}

class RecordingInterface : public KXUserInterface {
public:
    std::vector<std::string> changed;
    void noteFileSystemChanged(const std::string& path) override { changed.push_back(path); }
};

}  // namespace

TEST(KXAudioFileOperations, MoveCarriesTheSidecarAndRenamesACaseChange) {
    KXTemporaryFolder folder;
    const std::string path = folder.write("Take.wav", bytesOf("data"));
    ASSERT_TRUE(KXResourceFile::createResourceFileAtPath(path));
    auto file = objectFor(path);
    ASSERT_TRUE(file->moveToPath(folder.pathFor("Moved.wav")));
    EXPECT_EQ(file->path(), folder.pathFor("Moved.wav"));
    EXPECT_FALSE(KXFile::existsAtPath(path));
    EXPECT_TRUE(KXFile::existsAtPath(folder.pathFor("._Moved.wav")));

    ASSERT_TRUE(file->moveToPath(folder.pathFor("MOVED.wav")));  // case only: a plain rename
    EXPECT_EQ(readWholeFile(folder.pathFor("MOVED.wav")), bytesOf("data"));

    // Onto an existing file: refused, nothing moves, the object keeps its name.
    folder.write("Other.wav", bytesOf("other"));
    EXPECT_FALSE(file->moveToPath(folder.pathFor("Other.wav")));
    EXPECT_EQ(file->path(), folder.pathFor("MOVED.wav"));
    EXPECT_EQ(readWholeFile(folder.pathFor("Other.wav")), bytesOf("other"));
}

TEST(KXAudioFileOperations, SplitSetsMoveAndCopyEveryChannel) {
    KXTemporaryFolder folder;
    folder.write("Take.L.wav", bytesOf("left"));
    folder.write("Take.R.wav", bytesOf("right"));
    auto file = objectFor(folder.pathFor("Take.L.wav"));
    ASSERT_EQ(file->filename()->numberOfFiles(), 2u);
    ASSERT_TRUE(file->moveToPath(folder.pathFor("Song.wav")));
    EXPECT_EQ(readWholeFile(folder.pathFor("Song.R.wav")), bytesOf("right"));
    ASSERT_TRUE(file->copyToPath(folder.pathFor("Copy.wav")));
    EXPECT_EQ(file->pathForChannel(1), folder.pathFor("Copy.R.wav"));
    EXPECT_EQ(readWholeFile(folder.pathFor("Song.L.wav")), bytesOf("left"));
    EXPECT_EQ(readWholeFile(folder.pathFor("Copy.L.wav")), bytesOf("left"));
}

TEST(KXAudioFileOperations, CopyTellsTheWorkspaceAndDuplicateTakesTheFirstFreeNumber) {
    auto recording = std::make_shared<RecordingInterface>();
    KXUserInterface::install(recording);
    KXTemporaryFolder folder;
    auto file = objectFor(folder.write("Take.wav", bytesOf("data")));
    folder.write("Take_000.wav", bytesOf("taken"));
    // The argument is ignored on purpose: the duplicate is named after the file itself.
    const auto duplicate = file->duplicateToPath("/nowhere/else.wav");
    KXUserInterface::install(nullptr);
    ASSERT_TRUE(duplicate);
    EXPECT_EQ(*duplicate, folder.pathFor("Take_001.wav"));
    EXPECT_EQ(file->path(), *duplicate);
    EXPECT_EQ(readWholeFile(*duplicate), bytesOf("data"));
    EXPECT_EQ(recording->changed, std::vector<std::string>{folder.path()});
    EXPECT_FALSE(file->copyToPath(folder.pathFor("Take.wav")));  // exists: refused
}

TEST(KXAudioFileOperations, TemporaryFilesBelongToTheirObjectAndItsCopies) {
    KXTemporaryFolder folder;
    const std::string path = folder.write("render.wav", bytesOf("samples"));
    auto file = objectFor(path);
    file->setAsTemp();
    EXPECT_EQ(file->path(), "");
    EXPECT_FALSE(file->filename());
    ASSERT_EQ(file->tempFileList(), std::vector<std::string>{path});

    auto copy = file->copy();
    ASSERT_EQ(copy->tempFileList().size(), 1u);
    const std::string copied = copy->tempFileList()[0];
    EXPECT_NE(copied, path);
    EXPECT_EQ(KXFile::directoryOfPath(copied), folder.path());
    EXPECT_TRUE(KXFile::lastPathComponent(copied).starts_with("TSTemp_"));
    EXPECT_TRUE(copied.ends_with(".wav"));
    EXPECT_EQ(readWholeFile(copied), bytesOf("samples"));

    copy->removeTempFiles();
    EXPECT_TRUE(copy->tempFileList().empty());
    EXPECT_FALSE(KXFile::existsAtPath(copied));
    EXPECT_TRUE(KXFile::existsAtPath(path));  // the first object's file is its own
    file->removeTempFiles();
    EXPECT_FALSE(KXFile::existsAtPath(path));
}

TEST(KXAudioFileOperations, CopyKeepsTheDescriptionAndItsOwnDelegate) {
    auto file = KXAudioFile::audioFile();
    file->setFormat(KXFourCC("AIFF"));
    file->setRate(44100);
    file->setDepth(24);
    file->setNumberOfChannels(2);
    file->setFrames(1000);
    file->mutableMetadata().setObject("Title", "metaName");
    file->setUnusedChunkList(KXChunkArray{KXChunk::chunk()});
    file->markerList()->addMarkerWithPosition(1.5, "Hit");
    file->loopList()->addLoopWithType(KXLoop::kForward, KXRange::rangeWithStart(0, 1));
    auto copy = file->copy();
    // The labels come over by state: equal, but the copy's own.
    ASSERT_EQ(copy->markerList()->count(), 1u);
    EXPECT_EQ(copy->markerList()->markerAtIndex(0)->name(), "Hit");
    EXPECT_NE(copy->markerList()->markerAtIndex(0), file->markerList()->markerAtIndex(0));
    EXPECT_EQ(copy->markerList()->owner(), copy.get());
    EXPECT_EQ(copy->loopList()->count(), 1u);
    EXPECT_EQ(copy->regionList()->count(), 0u);
    EXPECT_EQ(copy->rate(), 44100u);
    EXPECT_EQ(copy->depth(), 24u);
    EXPECT_EQ(copy->frames(), 1000u);
    EXPECT_EQ(copy->metadata(), file->metadata());
    ASSERT_TRUE(copy->unusedChunkList());
    EXPECT_EQ(copy->unusedChunkList()->size(), 1u);
    EXPECT_EQ(copy->progressDelegate(), copy.get());
    copy->mutableMetadata().removeAllObjects();
    EXPECT_EQ(file->metadata().count(), 1u);  // a copy, not the same dictionary

    KXProgressDelegate other;
    file->setProgressDelegate(&other);
    file->setProgressDelegate(nullptr);  // ignored
    EXPECT_EQ(file->copy()->progressDelegate(), &other);
    EXPECT_EQ(file->update(0.5), KXProgressDelegate::kGoOn);
    EXPECT_TRUE(file->update(0.5, nullptr));
}

TEST(KXAudioFileOperations, DeleteAndTrashTakeTheWholeSet) {
    KXTemporaryFolder folder;
    const std::string path = folder.write("Take.wav", bytesOf("data"));
    ASSERT_TRUE(KXResourceFile::createResourceFileAtPath(path));
    EXPECT_TRUE(objectFor(path)->deleteFiles());
    EXPECT_FALSE(KXFile::existsAtPath(path));
    EXPECT_FALSE(KXFile::existsAtPath(KXFile::sidecarPathForPath(path)));

    const std::string data = folder.pathFor("share");
    setenv("XDG_DATA_HOME", data.c_str(), 1);
    folder.write("Song.L.wav", bytesOf("l"));
    folder.write("Song.R.wav", bytesOf("r"));
    EXPECT_TRUE(objectFor(folder.pathFor("Song.R.wav"))->moveToTrash());
    unsetenv("XDG_DATA_HOME");
    EXPECT_FALSE(KXFile::existsAtPath(folder.pathFor("Song.L.wav")));
    EXPECT_EQ(readWholeFile(data + "/Trash/files/Song.R.wav"), bytesOf("r"));
    EXPECT_TRUE(KXFile::existsAtPath(data + "/Trash/info/Song.L.wav.trashinfo"));
}

TEST(KXAudioFileOperations, TypeAndCreatorCodes) {
    KXTemporaryFolder folder;
    if (!supportsUserAttributes(folder.path())) GTEST_SKIP() << "no user attributes on this file system";
    struct Case {
        const char* format;
        std::uint32_t type;
    } cases[] = {
        {"AIFF", KXFourCC("AIFF")}, {"APLL", KXFourCC("AIFF")}, {"REX1", KXFourCC("AIFF")},
        {"ACID", KXFourCC("WAVE")}, {"SDII", KXFourCC("Sd2f")}, {"ULAW", KXFourCC("ULAW")},
        {"AIFC", 0},                {"WV64", 0},                {"caff", 0},
    };
    for (const Case& c : cases) {
        const std::string path = folder.write(std::string("f-") + c.format, {});
        objectFor(path, c.format)->conformHFSType();
        EXPECT_EQ(KXFile::typeCodeAtPath(path), c.type) << c.format;
    }
    const std::string path = folder.write("c.wav", {});
    auto file = objectFor(path);
    file->setCreator("KXAF");
    EXPECT_EQ(file->creator(), "KXAF");
    EXPECT_EQ(KXFile::creatorCodeAtPath(path), KXFourCC("KXAF"));
    file->setCreator("toolong");  // does not parse: nothing changes
    EXPECT_EQ(file->creatorCode(), KXFourCC("KXAF"));
    file->conformHFSType();
    EXPECT_EQ(KXFile::typeCodeAtPath(path), KXFourCC("WAVE"));
    EXPECT_EQ(KXFile::creatorCodeAtPath(path), KXFourCC("KXAF"));  // the type keeps the creator
}
