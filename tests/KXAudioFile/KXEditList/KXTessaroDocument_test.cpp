#include <gtest/gtest.h>

#include <filesystem>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXAudioFile/KXEditList/KXTessaroDocument.h"
#include "KXBase/KXFile.h"
#include "KXBase/KXPropertyList.h"
#include "KXBase/KXUserInterface.h"
#include "support/KXTestSupport.h"

namespace {

using Channels = std::vector<std::vector<float>>;

using KXTestSamples::samplesOf;

float signal(std::uint32_t frame, std::uint32_t channel) {
    return float(int((frame * 37 + channel * 1001) % 2000) - 1000) / 1024.0f;
}

std::shared_ptr<KXAudioFile> waveFile(const KXTemporaryFolder& folder, const std::string& name, std::uint32_t channels,
                                      std::uint32_t frames) {
    auto file = KXAudioFile::audioFileWithPath(
        KXTestSamples::writeSignalFile(folder, name, channels, 44100, frames, true, signal));
    EXPECT_TRUE(file);
    return file;
}

KXDictionary headerAt(const std::string& path) {
    const auto plist = KXPropertyList::propertyListFromData(readWholeFile(path));
    return plist && plist->type() == KXValue::Type::dictionary ? plist->dictionary() : KXDictionary();
}

// Answers alerts from a script (then "Skip") and open panels with one path; remembers them.
class ScriptedInterface : public KXUserInterface {
public:
    std::vector<std::size_t> answers;
    std::optional<std::string> chosen;
    std::vector<KXAlert> alerts;
    std::vector<KXOpenPanelRequest> panels;
    std::size_t runAlert(const KXAlert& alert) override {
        alerts.push_back(alert);
        return alerts.size() <= answers.size() ? answers[alerts.size() - 1] : 2;
    }
    std::optional<std::string> runOpenPanel(const KXOpenPanelRequest& request) override {
        panels.push_back(request);
        return chosen;
    }
};

struct InstalledInterface {
    std::shared_ptr<ScriptedInterface> ui = std::make_shared<ScriptedInterface>();
    InstalledInterface() { KXUserInterface::install(ui); }
    ~InstalledInterface() { KXUserInterface::install(nullptr); }
};

}  // namespace

TEST(KXTessaroDocument, TheWritersDocumentOpensAgainWithItsSamplesAndLabels) {
    KXTemporaryFolder folder;
    auto writer = KXAudioFileWriter::writer();  // an editor document by default
    writer->setTempDirectory(folder.path());
    writer->setRate(48000);
    ASSERT_TRUE(writer->beginWrite());
    for (std::uint32_t frame = 0; frame < 3000; ++frame)
        for (std::int32_t c = 0; c < 2; ++c) writer->writeSample(signal(frame, c), c);
    writer->markerList()->addMarkerWithPosition(0.01, "Here");
    ASSERT_TRUE(writer->endWrite());
    ASSERT_EQ(writer->filePaths().size(), 3u);
    EXPECT_EQ(KXFile::pathExtension(writer->filePaths().back()), "info");
    ASSERT_TRUE(writer->saveToPath(folder.pathFor("Song")));
    for (const char* name : {"Song.tess/Song.00", "Song.tess/Song.01", "Song.tess/Song.info"})
        EXPECT_TRUE(KXFile::existsAtPath(folder.pathFor(name))) << name;

    const KXDictionary header = headerAt(folder.pathFor("Song.tess/Song.info"));
    EXPECT_FALSE(header.find("Edit List"));
    EXPECT_TRUE(header.find("Markers"));
    EXPECT_FALSE(header.find("Loops"));  // empty lists are left out
    EXPECT_EQ(header.objectForKey("TablesAreBigEndian").type(), KXValue::Type::boolean);

    // The folder opens as its header, and so does the writer's document.
    for (const char* path : {"Song.tess", "Song.tess/Song.info", ""}) {
        KXError error;
        auto file = *path ? KXAudioFile::audioFileWithPath(folder.pathFor(path), &error)
                          : KXAudioFile::audioFileWithWriter(*writer, &error);
        ASSERT_TRUE(file) << error.description();
        EXPECT_EQ(file->format(), KXFourCC("TESS"));
        EXPECT_EQ(file->rate(), 48000u);
        EXPECT_EQ(file->numberOfChannels(), 2u);
        EXPECT_EQ(file->frames(), 3000u);
        ASSERT_EQ(file->markerList()->count(), 1u);
        EXPECT_EQ(file->markerList()->labelAtIndex(0)->name(), "Here");
        EXPECT_EQ(file->channelsList()->analysisState(), 1);
        const Channels samples = samplesOf(*file);
        for (std::uint32_t frame = 0; frame < 3000; frame += 7)
            for (std::uint32_t c = 0; c < 2; ++c) ASSERT_EQ(samples[c][frame], signal(frame, c)) << frame;
    }
}

TEST(KXTessaroDocument, AHeaderWithoutAnEditListReadsOneFloatFilePerChannel) {
    KXTemporaryFolder folder;
    const auto header = [&](std::uint32_t channels, bool difference) {
        KXArray list;
        for (std::uint32_t c = 0; c < channels; ++c) list.emplace_back(KXDictionary{{"Name", "Ch"}});
        KXDictionary dictionary{{"Channels", list}, {"Rate", 22050.0}};
        if (difference) dictionary.setObject(12.5f, "Difference");
        return KXPropertyList::xmlData(dictionary);
    };
    folder.write("Song.00", KXData(4000, 0));
    folder.write("Song.01", KXData(4000, 0));
    for (std::uint32_t channels : {1u, 2u}) {
        folder.write("Song.info", header(channels, false));
        auto file = KXAudioFile::audioFileWithPath(folder.pathFor("Song.info"));
        ASSERT_TRUE(file);
        EXPECT_EQ(file->frames(), 1000u);
        EXPECT_EQ(file->rate(), 22050u);
        // Not measured: −2.0 for one channel, −1.0 for more.
        EXPECT_EQ(file->channelsList()->difference(), channels == 1 ? -2.0f : -1.0f);
        EXPECT_EQ(file->fileSize(), 8000u + KXFile::lengthOfFileAtPath(folder.pathFor("Song.info")));
    }
    folder.write("Song.info", header(2, true));
    EXPECT_EQ(KXAudioFile::audioFileWithPath(folder.pathFor("Song.info"))->channelsList()->difference(), 12.5f);

    // Overview tables stored big-endian are turned round when the header says so.
    for (const bool bigEndian : {true, false}) {
        const KXDictionary channel{{"Name", "Mono"}, {"Magnitude Maxima", KXData{0x3F, 0x00, 0x00, 0x00}}};
        folder.write("Song.info", KXPropertyList::xmlData(KXDictionary{
                                      {"Channels", KXArray{channel}}, {"Rate", 22050.0}, {"TablesAreBigEndian", bigEndian}}));
        auto file = KXAudioFile::audioFileWithPath(folder.pathFor("Song.info"));
        ASSERT_TRUE(file);
        const auto entries = file->channelsList()->channel(0)->waveformForType(KXWaveform::kMax)->entries();
        ASSERT_EQ(entries.size(), 1u);
        EXPECT_EQ(entries[0] == 0.5f, bigEndian);
    }

    // No channels, no property list, no rate: refused.
    const auto refusal = [&](const KXData& bytes) {
        folder.write("Bad.info", bytes);
        KXError error;
        EXPECT_FALSE(KXAudioFile::audioFileWithPath(folder.pathFor("Bad.info"), &error));
        return error.code();
    };
    EXPECT_EQ(refusal(KXPropertyList::xmlData(KXDictionary{{"Rate", 44100}})), KXAudioFileErrorMissingRequiredData);
    EXPECT_EQ(refusal(bytesOf("<?xml version=\"1.0\"?><nothing")), KXAudioFileErrorMissingRequiredData);
    EXPECT_EQ(refusal(KXPropertyList::xmlData(KXDictionary{{"Channels", KXArray{KXDictionary{}}}})),
              KXAudioFileErrorUnsupportedFormat);
}

TEST(KXTessaroDocument, ContiguousPartsMeetInTheMiddleOfAnOverlapAndPlayAsBefore) {
    KXTemporaryFolder folder;
    auto file = waveFile(folder, "in.wav", 1, 1000);
    // Two blocks of the file that overlap by ten frames, the second from frame 500 of the source.
    auto list = file->editList()->copy();
    auto first = list->blockAtIndex(0, 0);
    first->setSampleRange({0, 110});
    auto second = first->copy();
    second->setSampleRange({100, 100});
    second->setSourceLocation(500);
    list->mutableBlocksForChannel(0).push_back(second);
    file->setEditList(list);
    file->setFrames(200);
    file->resetBuffers();
    const Channels before = samplesOf(*file);

    ASSERT_TRUE(file->writeToTessaroFile(folder.pathFor("Doc/Doc"), {}));
    EXPECT_TRUE(KXFile::existsAtPath(folder.pathFor("Doc/Doc_0000.00")));
    const auto& blocks = file->editList()->blocksForChannel(0);
    ASSERT_EQ(blocks.size(), 2u);
    EXPECT_EQ(blocks[0]->sampleRange(), (KXSampleRange{0, 105}));
    EXPECT_EQ(blocks[1]->sampleRange(), (KXSampleRange{105, 95}));
    EXPECT_EQ(blocks[1]->sourceLocation(), 105u);
    EXPECT_EQ(blocks[0]->sourcePath(), folder.pathFor("Doc/Doc_0000.00"));
    // The header stores bare names; no label list was written.
    const KXDictionary header = headerAt(folder.pathFor("Doc/Doc.info"));
    EXPECT_EQ(header.objectForKey("Edit List").array()[0].array()[0].dictionary().objectForKey("Path").string(),
              "Doc_0000.00");
    for (const char* key : {"Markers", "Slices", "Regions", "Loops"}) EXPECT_FALSE(header.find(key)) << key;

    // The object is the document now, and so is the file reopened: both play the mix as it was.
    EXPECT_EQ(file->format(), KXFourCC("TESS"));
    EXPECT_EQ(samplesOf(*file), before);
    auto reopened = KXAudioFile::audioFileWithPath(folder.pathFor("Doc/Doc.info"));
    ASSERT_TRUE(reopened);
    EXPECT_EQ(reopened->frames(), 200u);
    EXPECT_EQ(samplesOf(*reopened), before);
}

TEST(KXTessaroDocument, SeparatePartsKeepHandlesAndPlayAsBefore) {
    KXTemporaryFolder folder;
    auto file = waveFile(folder, "in.wav", 2, 2000);
    auto list = file->editList()->copy();
    for (std::uint32_t c = 0; c < 2; ++c) {
        auto block = list->blockAtIndex(0, c);
        block->setSampleRange({100, 300});
        block->setSourceLocation(700);
        block->setStartFadeLength(50);
        block->setGain(0.5f);
    }
    file->setEditList(list);
    file->setFrames(400);
    file->resetBuffers();
    const Channels before = samplesOf(*file);
    // 0.001 s at 44100 Hz: 44 frames of handle.
    ASSERT_TRUE(file->writeToTessaroFile(folder.pathFor("Doc/Doc"), {{"contiguous", false}, {"extra", 0.001}}));
    EXPECT_TRUE(KXFile::existsAtPath(folder.pathFor("Doc/Doc_0000")));
    EXPECT_TRUE(KXFile::existsAtPath(folder.pathFor("Doc/Doc_0001")));
    const auto block = file->editList()->blockAtIndex(0, 1);
    EXPECT_EQ(block->sourceLocation(), 50u + 44u);
    EXPECT_EQ(block->sourceEnd(), 44u + 50u + 300u + 44u);
    EXPECT_EQ(block->gain(), 0.5f);
    EXPECT_EQ(samplesOf(*file), before);
    auto reopened = KXAudioFile::audioFileWithPath(folder.pathFor("Doc"));
    ASSERT_TRUE(reopened);
    EXPECT_EQ(samplesOf(*reopened), before);
}

namespace {

// A document header of one channel at 44100 Hz and nothing else.
void writePlainHeader(const std::string& path) {
    const KXDictionary header{{"Channels", KXArray{KXDictionary{{"Name", "Mono"}}}}, {"Rate", 44100.0}};
    EXPECT_TRUE(KXTessaroDocument::writeHeader(header, path));
}

// A document "Doc.tess" in `root` whose one channel plays, as remote blocks, the part files
// Clip_0000.00 (100 frames of 0.5) of the documents in each of `linked` folders (absolute paths).
void writeLinkedDocument(const std::string& root, const std::vector<std::string>& linked) {
    (void)KXFile::createDirectoryAtPath(root + "/Doc.tess");
    KXArray blocks;
    std::uint32_t location = 0;
    for (const std::string& folder : linked) {
        (void)KXFile::createDirectoryAtPath(folder);
        KXData samples;
        for (int i = 0; i < 100; ++i) samples.insert(samples.end(), {0x3F, 0x00, 0x00, 0x00});  // 0.5, big-endian
        EXPECT_TRUE(KXFile::writeDataToPath(samples, folder + "/Clip_0000.00"));
        writePlainHeader(folder + "/Clip.info");
        auto block = KXEditBlock::editBlock();
        block->setSourcePath(folder + "/Clip_0000.00");
        block->setSourceType(KXEditList::kSourceRemote);
        block->setSourceTotalChannels(1);
        block->setSourceEnd(100);
        block->setSampleRange({location, 100});
        location += 100;
        blocks.emplace_back(block->state());
    }
    const KXDictionary header{{"Channels", KXArray{KXDictionary{{"Name", "Mono"}}}},
                              {"Rate", 44100.0},
                              {"Edit List", KXArray{blocks}}};
    EXPECT_TRUE(KXTessaroDocument::writeHeader(header, root + "/Doc.tess/Doc.info"));
}

}  // namespace

TEST(KXTessaroDocumentLinks, AFolderMovedWithTheDocumentIsFoundWithoutAsking) {
    KXTemporaryFolder folder;
    const std::string before = folder.pathFor("Before"), after = folder.pathFor("After");
    (void)KXFile::createDirectoryAtPath(before);
    writeLinkedDocument(before, {before + "/Media"});
    std::filesystem::rename(before, after);
    InstalledInterface installed;
    auto file = KXAudioFile::audioFileWithPath(after + "/Doc.tess");
    ASSERT_TRUE(file);
    EXPECT_TRUE(installed.ui->alerts.empty());
    EXPECT_EQ(file->editList()->blockAtIndex(0, 0)->sourcePath(), after + "/Media/Clip_0000.00");
    EXPECT_EQ(samplesOf(*file)[0][50], 0.5f);
}

TEST(KXTessaroDocumentLinks, SkipAsksAboutTheNextFolderFindRepointsAndCancelRefuses) {
    KXTemporaryFolder folder;
    const std::string root = folder.pathFor("Root");
    (void)KXFile::createDirectoryAtPath(root);
    writeLinkedDocument(root, {folder.pathFor("A"), folder.pathFor("B")});
    std::filesystem::rename(folder.pathFor("A"), folder.pathFor("A moved"));
    std::filesystem::rename(folder.pathFor("B"), folder.pathFor("B moved"));
    {
        InstalledInterface installed;  // "Skip", "Skip"
        auto file = KXAudioFile::audioFileWithPath(root + "/Doc.tess");
        ASSERT_TRUE(file);
        ASSERT_EQ(installed.ui->alerts.size(), 2u);
        const KXAlert& alert = installed.ui->alerts[0];
        EXPECT_EQ(alert.title, "Linked File Not Found");
        EXPECT_EQ(alert.message, "The document could not find the linked file 'A'. Would you like to find the file, "
                                 "skip it or cancel opening the document?");
        EXPECT_EQ(alert.buttons, (std::vector<std::string>{"Find", "Cancel", "Skip"}));
        EXPECT_NE(installed.ui->alerts[1].message.find("'B'"), std::string::npos);
        // Skipped links play nothing.
        EXPECT_EQ(samplesOf(*file)[0][50], 0.0f);
    }
    {
        InstalledInterface installed;
        installed.ui->answers = {0, 2};  // "Find" the first, "Skip" the second
        installed.ui->chosen = folder.pathFor("A moved");
        auto file = KXAudioFile::audioFileWithPath(root + "/Doc.tess");
        ASSERT_TRUE(file);
        ASSERT_EQ(installed.ui->panels.size(), 1u);
        EXPECT_EQ(installed.ui->panels[0].title, "Find 'A'");
        EXPECT_EQ(file->editList()->blockAtIndex(0, 0)->sourcePath(), folder.pathFor("A moved/Clip_0000.00"));
        EXPECT_EQ(samplesOf(*file)[0][50], 0.5f);
    }
    {
        InstalledInterface installed;
        installed.ui->answers = {1};  // "Cancel"
        KXError error;
        EXPECT_FALSE(KXAudioFile::audioFileWithPath(root + "/Doc.tess", &error));
        EXPECT_EQ(error.code(), KXAudioFileErrorUserCancelled);
        EXPECT_EQ(error.action(), "Finding the links in a Tessaro file");
    }
}

TEST(KXTessaroDocumentLinks, ReplacingAPathFindsPartFilesByTheirDocument) {
    KXTemporaryFolder folder;
    folder.write("Old.info", bytesOf("<?xml"));
    auto list = KXEditList::editListWithChannelCount(1);
    auto part = KXEditBlock::editBlock();
    part->setSourcePath(folder.pathFor("Old_0003"));
    auto plain = KXEditBlock::editBlock();
    plain->setSourcePath(folder.pathFor("Take.wav"));  // no "Take.info": a plain file
    list->mutableBlocksForChannel(0) = {part, plain};
    list->replacePath(folder.pathFor("Old.info"), "/new/place/New.info");
    EXPECT_EQ(part->sourcePath(), "/new/place/Old_0003");
    EXPECT_EQ(plain->sourcePath(), folder.pathFor("Take.wav"));
    list->replacePath(folder.pathFor("Take.wav"), "/new/place/Take 2.wav");
    EXPECT_EQ(plain->sourcePath(), "/new/place/Take 2.wav");
    EXPECT_EQ(part->sourcePath(), "/new/place/Old_0003");
}

TEST(KXTessaroDocumentLinks, LinkedBlocksStayLinkedUntilLocalised) {
    KXTemporaryFolder folder;
    const std::string root = folder.pathFor("Root");
    (void)KXFile::createDirectoryAtPath(root);
    writeLinkedDocument(root, {folder.pathFor("Media")});
    auto document = KXAudioFile::audioFileWithPath(root + "/Doc.tess");
    ASSERT_TRUE(document);

    // Saved with an empty operation: contiguous, the linked block not merged (no part for it).
    ASSERT_TRUE(document->writeToTessaroFile(folder.pathFor("Copy.tess/Copy"), {}));
    EXPECT_FALSE(KXFile::existsAtPath(folder.pathFor("Copy.tess/Copy_0000.00")));
    auto linked = document->editList()->blockAtIndex(0, 0);
    EXPECT_EQ(linked->sourceType(), KXEditList::kSourceRemote);
    EXPECT_EQ(linked->sourcePath(), folder.pathFor("Media/Clip_0000.00"));

    // Another document's material pasted with a link stays linked; without, it is copied.
    auto target = KXAudioFile::audioFileWithPath(folder.pathFor("Copy.tess"));
    ASSERT_TRUE(target);
    auto part = KXEditBlock::editBlock();
    (void)KXFile::createDirectoryAtPath(folder.pathFor("Other.tess"));
    writePlainHeader(folder.pathFor("Other.tess/Other.info"));
    ASSERT_TRUE(KXFile::copyPath(folder.pathFor("Media/Clip_0000.00"), folder.pathFor("Other.tess/Other_0000.00")));
    part->setSourcePath(folder.pathFor("Other.tess/Other_0000.00"));
    part->setSourceTotalChannels(1);
    part->setSourceEnd(100);
    part->setSampleRange({0, 100});
    auto clip = KXEditList::editListWithChannelCount(1);
    clip->addBlock(part, 0);
    KXAudioFile::copyEditList(*clip);
    ASSERT_TRUE(target->pasteFromPasteboard({0, 0}, KXIndexSet{0}, true));
    EXPECT_EQ(target->editList()->blockAtIndex(0, 0)->sourceType(), KXEditList::kSourceRemote);
    EXPECT_EQ(target->editList()->blockAtIndex(0, 0)->sourcePath(), folder.pathFor("Other.tess/Other_0000.00"));

    // Localised, the linked material is the document's own: the linked folders may go.
    ASSERT_TRUE(target->localizeEditList(*target->editList()));
    for (const auto& block : target->editList()->blocks()) EXPECT_EQ(block->sourceType(), KXEditList::kSourceWriter);
    std::filesystem::remove_all(folder.pathFor("Media"));
    std::filesystem::remove_all(folder.pathFor("Other.tess"));
    target->resetBuffers();
    const Channels samples = samplesOf(*target);
    ASSERT_EQ(samples[0].size(), 200u);
    EXPECT_EQ(samples[0][50], 0.5f);
    EXPECT_EQ(samples[0][150], 0.5f);
    target->removeTempFiles();
}

TEST(KXTessaroDocument, ADocumentSavedOverItselfKeepsWhatItsBlocksPlay) {
    KXTemporaryFolder folder;
    auto file = waveFile(folder, "in.wav", 1, 3000);
    ASSERT_TRUE(file->writeToTessaroFile(folder.pathFor("Doc/Doc"), {}));
    // Channel 1 plays what channel 0's part holds now; channel 0 then changes. Saving renders
    // channel 0's new part before channel 1 is rendered from the old one.
    file->duplicateChannelAtIndex(0);
    file->deleteRange({0, 1000}, KXIndexSet{0});
    const Channels before = samplesOf(*file);
    for (const bool contiguous : {true, false}) {
        ASSERT_TRUE(file->writeToTessaroFile(folder.pathFor("Doc/Doc"), {{"contiguous", contiguous}}));
        EXPECT_EQ(samplesOf(*file), before) << contiguous;
        auto reopened = KXAudioFile::audioFileWithPath(folder.pathFor("Doc"));
        ASSERT_TRUE(reopened);
        EXPECT_EQ(samplesOf(*reopened), before) << contiguous;
    }
    // Nothing is left of the staging.
    for (const std::string& name : KXFile::contentsOfDirectoryAtPath(folder.pathFor("Doc")))
        EXPECT_EQ(name.find(".kxaudio"), std::string::npos) << name;
}
