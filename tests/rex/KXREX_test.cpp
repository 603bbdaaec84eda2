// The REX loader and REX2 loops, against stand-in REX libraries (tests/rex/KXFakeREX.cpp)
// installed into temporary search folders.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <tuple>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXBase/KXFile.h"
#include "KXREX/KXREX.h"
#include "rex/KXFakeREXLoop.h"
#include "support/KXTestSupport.h"

namespace {

namespace fs = std::filesystem;

// A home and an application folder of their own; everything loaded is unloaded at the end.
struct KXREXLoading : ::testing::Test {
    KXTemporaryFolder home, application;
    std::string savedHome = std::getenv("HOME") ? std::getenv("HOME") : "";
    std::string rexFolder = home.path() + "/.local/lib/Propellerhead Software/Rex";

    void SetUp() override {
        setenv("HOME", home.path().c_str(), 1);
        KXREX::setApplicationFolder(application.path());
        fs::create_directories(rexFolder);
    }
    void TearDown() override {
        while (KXREX::isLoaded()) REXUnloadDLL();
        KXREX::setApplicationFolder("");
        setenv("HOME", savedHome.c_str(), 1);
    }
    // A bundle "<name>.bundle" in `folder` of `version` holding `library`.
    static void installBundle(const std::string& folder, const std::string& name, const std::string& version,
                              const char* library) {
        const fs::path contents = fs::path(folder) / (name + ".bundle") / "Contents";
        fs::create_directories(contents / "Linux");
        fs::copy_file(library, contents / "Linux" / (name + ".so"));
        const std::string plist = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
                                  "<key>CFBundleVersion</key><string>" + version + "</string></dict></plist>\n";
        ASSERT_TRUE(KXFile::writeDataToPath(bytesOf(plist), (contents / "Info.plist").string()));
    }
    // A plain "<name>.so" linked to "<name>.so.<version>".
    static void installPlain(const std::string& folder, const std::string& name, const std::string& version,
                             const char* library) {
        const std::string real = name + ".so" + (version.empty() ? "" : "." + version);
        fs::copy_file(library, fs::path(folder) / real);
        if (!version.empty()) fs::create_symlink(real, fs::path(folder) / (name + ".so"));
    }
};

KXFakeREXLoop::Loop twoBars() {
    KXFakeREXLoop::Loop loop;  // 2 bars of 4/4 at 120 BPM, 44.1 kHz, stereo
    // Slices at beats 0, 1 (tick 15,360 = 0.5 s) and 3, each shorter than a beat: gaps between.
    loop.slices = {{0, 20000}, {15360, 15000}, {46080, 22050}};
    return loop;
}

std::string writeLoop(const KXTemporaryFolder& folder, const std::string& name, const KXFakeREXLoop::Loop& loop) {
    const std::vector<char> bytes = KXFakeREXLoop::encode(loop);
    return folder.write(name, KXData(bytes.begin(), bytes.end()));
}

}  // namespace

TEST_F(KXREXLoading, NothingLoadedAnswers200AndREX2FilesAreRefused) {
    REXInfo info;
    EXPECT_EQ(REXGetInfo(nullptr, sizeof info, &info), kREXImplError_DLLNotInitialized);
    EXPECT_EQ(REXLoadDLL(), kREXError_UnableToLoadDLL);  // nothing installed
    EXPECT_FALSE(KXREX::isLoaded());
    KXError error;
    EXPECT_EQ(KXAudioFile::audioFileWithPath(writeLoop(home, "loop.rx2", twoBars()), &error), nullptr);
    EXPECT_EQ(error.code(), KXAudioFileErrorUnsupportedFormat);
    EXPECT_EQ(error.action(), "Parsing the ReCycle file");
}

TEST_F(KXREXLoading, NamesBeforeFoldersAndALoadCount) {
    // The release library in the application folder, the testing one in the user's Rex folder:
    // the testing one is looked for first.
    installBundle(application.path(), "REX Shared Library", "1.9.0", KX_FAKE_REX);
    installPlain(rexFolder, "REX Shared Library Testing", "1.2", KX_FAKE_REX);
    EXPECT_EQ(REXLoadDLL(), kREXError_NoError);
    EXPECT_NE(KXREX::loadedPath().find("REX Shared Library Testing.so"), std::string::npos);
    EXPECT_EQ(REXLoadDLL(), kREXImplError_DLLAlreadyLoaded);
    REXUnloadDLL();
    EXPECT_TRUE(KXREX::isLoaded());
    REXUnloadDLL();
    EXPECT_FALSE(KXREX::isLoaded());
    REXInfo info;
    EXPECT_EQ(REXGetInfo(nullptr, sizeof info, &info), kREXImplError_DLLNotInitialized);

    // Without it, the bundle in the application folder.
    fs::remove(fs::path(rexFolder) / "REX Shared Library Testing.so");
    EXPECT_EQ(REXLoadDLL(), kREXError_NoError);
    EXPECT_EQ(KXREX::loadedPath(), application.path() + "/REX Shared Library.bundle/Contents/Linux/REX Shared Library.so");
}

TEST_F(KXREXLoading, LibrariesThatAreRefused) {
    const auto refused = [this](auto install) {
        KXTemporaryFolder folder;
        KXREX::setApplicationFolder(folder.path());
        install(folder.path());
        EXPECT_EQ(REXLoadDLL(), kREXError_UnableToLoadDLL);
        EXPECT_FALSE(KXREX::isLoaded());
    };
    refused([](const std::string& f) { installBundle(f, "REX Shared Library", "2.0", KX_FAKE_REX); });
    refused([](const std::string& f) { installBundle(f, "REX Shared Library", "1.0", KX_FAKE_REX_OPEN_FAILS); });
    refused([](const std::string& f) { installBundle(f, "REX Shared Library", "1.0", KX_FAKE_REX_WITHOUT_RENDER); });
    refused([](const std::string& f) { installPlain(f, "REX Shared Library", "", KX_FAKE_REX); });  // no version
    refused([](const std::string& f) { installPlain(f, "REX Shared Library", "3.1", KX_FAKE_REX); });
}

TEST_F(KXREXLoading, ALoopsDescriptionSlicesAndSamples) {
    installBundle(rexFolder, "REX Shared Library", "1.0", KX_FAKE_REX);
    ASSERT_EQ(REXLoadDLL(), kREXError_NoError);
    KXError error;
    auto file = KXAudioFile::audioFileWithPath(writeLoop(home, "loop.rx2", twoBars()), &error);
    ASSERT_NE(file, nullptr) << error.description();
    EXPECT_EQ(file->format(), KXFourCC("REX2"));
    EXPECT_EQ(file->frames(), 176400u);
    EXPECT_EQ(file->eighthBeats(), 16);
    EXPECT_FLOAT_EQ(file->tempo(), 120.0f);
    EXPECT_EQ(file->meterNumerator(), 4);
    EXPECT_EQ(file->numberOfChannels(), 2u);
    ASSERT_EQ(file->sliceList()->count(), 3u);
    EXPECT_DOUBLE_EQ(file->sliceList()->sliceAtIndex(1)->position(), 0.5);
    EXPECT_NE(file->rexHandle(), nullptr);

    // Each slice's samples at its frame (0, 22,050, 66,150); nothing in the gaps.
    const std::pair<std::uint32_t, std::int32_t> starts[] = {{0, 0}, {22050, 1}, {66150, 2}};
    for (const auto& [first, slice] : starts)
        for (std::int32_t f : {0, 7, 14999})
            for (std::uint32_t c : {0u, 1u})
                EXPECT_EQ(file->readSample(first + std::uint32_t(f), c), KXFakeREXLoop::sliceSample(slice, f, c))
                    << "slice " << slice << " frame " << f << " channel " << c;
    EXPECT_EQ(file->readSample(21000, 0), 0.0f);
    // Frames no slice covers keep what the buffer held before: silence only in a fresh buffer.
    const float held = file->readBuffer()->sampleValueAtIndex(0, 1);  // the next load starts at 120,000
    EXPECT_EQ(file->readSample(120000, 1), held);
    file->resetBuffers();
    EXPECT_EQ(file->readSample(120000, 1), 0.0f);
    // Reading backwards and playing go through the same slices.
    EXPECT_EQ(file->readSample(66150 + 22049, 1), KXFakeREXLoop::sliceSample(2, 22049, 1));
    EXPECT_EQ(file->playSample(22050 + 10, 0), KXFakeREXLoop::sliceSample(1, 10, 0));
    // A copy has a document of its own.
    auto copy = file->copy();
    EXPECT_NE(copy->rexHandle(), file->rexHandle());
    file.reset();
    EXPECT_EQ(copy->readSample(22050 + 3, 1), KXFakeREXLoop::sliceSample(1, 3, 1));
}

TEST_F(KXREXLoading, LoopsTheLibraryRefuses) {
    installBundle(rexFolder, "REX Shared Library", "1.0", KX_FAKE_REX);
    ASSERT_EQ(REXLoadDLL(), kREXError_NoError);
    const auto refusal = [this](const std::string& name, const KXData& bytes) {
        KXError error;
        EXPECT_EQ(KXAudioFile::audioFileWithPath(home.write(name, bytes), &error), nullptr) << name;
        EXPECT_EQ(error.action(), "Parsing the ReCycle file");
        return error.code();
    };
    EXPECT_EQ(refusal("corrupt.rx2", bytesOf("CAT NOT A LOOP AT ALL")), KXAudioFileErrorCorruptFile);
    KXFakeREXLoop::Loop tooNew = twoBars();
    tooNew.answer = kREXError_REX2FileTooNew;
    std::vector<char> bytes = KXFakeREXLoop::encode(tooNew);
    EXPECT_EQ(refusal("new.rx2", KXData(bytes.begin(), bytes.end())), KXAudioFileErrorUnsupportedFormat);
    KXFakeREXLoop::Loop empty = twoBars();
    empty.slices.clear();
    bytes = KXFakeREXLoop::encode(empty);
    EXPECT_EQ(refusal("empty.rx2", KXData(bytes.begin(), bytes.end())), KXAudioFileErrorMissingRequiredData);
    KXFakeREXLoop::Loop noTempo = twoBars();
    noTempo.tempo = 0;
    bytes = KXFakeREXLoop::encode(noTempo);
    EXPECT_EQ(refusal("still.rx2", KXData(bytes.begin(), bytes.end())), KXAudioFileErrorUnsupportedFormat);
}

TEST_F(KXREXLoading, TheToolOpensConvertsAndNamesWhereItLooked) {
    const std::string loop = writeLoop(home, "loop.rx2", twoBars());
    const std::string tool = KXAUDIO_TOOL;
    const auto run = [&](const std::string& arguments) {
        // The tool runs with this test's HOME: the library below is in its user folder.
        const std::string command = "'" + tool + "' " + arguments + " 2>&1";
        std::string out;
        if (FILE* pipe = popen(command.c_str(), "r")) {
            char buffer[4096];
            while (std::size_t got = fread(buffer, 1, sizeof buffer, pipe)) out.append(buffer, got);
            pclose(pipe);
        }
        return out;
    };
    EXPECT_NE(run("info '" + loop + "'").find("looked for \"REX Shared Library Debugging.bundle\""), std::string::npos);

    installBundle(rexFolder, "REX Shared Library", "1.0", KX_FAKE_REX);
    const std::string aiff = home.pathFor("loop.aif");
    run("convert '" + loop + "' '" + aiff + "'");
    ASSERT_EQ(REXLoadDLL(), kREXError_NoError);
    auto rex = KXAudioFile::audioFileWithPath(loop);
    auto converted = KXAudioFile::audioFileWithPath(aiff);
    ASSERT_NE(rex, nullptr);
    ASSERT_NE(converted, nullptr);
    EXPECT_EQ(converted->format(), KXFourCC("APLL"));
    EXPECT_EQ(converted->frames(), rex->frames());
    EXPECT_FLOAT_EQ(converted->tempo(), 120.0f);
    ASSERT_EQ(converted->sliceList()->count(), 3u);
    EXPECT_NEAR(converted->sliceList()->sliceAtIndex(1)->position(), 0.5, 1e-6);
    // Every frame of every slice (what the gaps hold depends on the order of reads).
    for (const auto& [first, slice, length] : {std::tuple{0u, 0, 20000}, {22050u, 1, 15000}, {66150u, 2, 22050}})
        for (std::int32_t f = 0; f < length; ++f)
            for (std::uint32_t c : {0u, 1u})
                ASSERT_EQ(converted->readSample(first + std::uint32_t(f), c), KXFakeREXLoop::sliceSample(slice, f, c))
                    << "slice " << slice << " frame " << f;
}
