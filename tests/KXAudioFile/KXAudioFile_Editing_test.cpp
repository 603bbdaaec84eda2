#include <gtest/gtest.h>

#include <cmath>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "support/KXTestSupport.h"

namespace {

using Channels = std::vector<std::vector<float>>;

using KXTestSamples::samplesOf;

std::shared_ptr<KXAudioFile> monoFile(const KXTemporaryFolder& folder, std::uint32_t frames) {
    auto file = KXAudioFile::audioFileWithPath(KXTestSamples::writeSignalFile(
        folder, "in.wav", 1, 44100, frames, false, [](std::uint32_t f, std::uint32_t c) { return KXTestSamples::sample(f, c); }));
    EXPECT_TRUE(file);
    return file;
}

}  // namespace

TEST(KXAudioFileEditing, AbuttingCutsOfOneSourceMergeWithoutWritingAFile) {
    KXTemporaryFolder folder;
    auto file = monoFile(folder, 4000);
    const Channels original = samplesOf(*file);
    file->spliceRange({1000, 1000}, KXIndexSet{0}, "Middle");
    ASSERT_EQ(file->editList()->blockCount(), 3u);
    ASSERT_TRUE(file->mergeEditList(*file->editList()->copy()));
    ASSERT_EQ(file->editList()->blockCount(), 1u);
    EXPECT_EQ(file->editList()->blockAtIndex(0, 0)->sampleRange(), (KXSampleRange{0, 4000}));
    EXPECT_TRUE(file->tempFileList().empty());
    EXPECT_EQ(samplesOf(*file), original);
}

TEST(KXAudioFileEditing, AGapOrAGainMakesTheMergeRenderANewFile) {
    KXTemporaryFolder folder;
    for (const bool gap : {true, false}) {
        auto file = monoFile(folder, 4000);
        file->spliceRange({1000, 1000}, KXIndexSet{0}, "Middle");
        if (gap) file->removeRange({2000, 1}, KXIndexSet{0});  // one silent frame
        else file->editList()->blockAtIndex(1, 0)->setGain(0.5f);
        file->resetBuffers();
        Channels before = samplesOf(*file);
        // The merged file has the file's sample format: 16 bits.
        for (float& sample : before[0]) sample = float(std::lrint(sample * 32768.0f)) / 32768.0f;
        ASSERT_TRUE(file->mergeEditList(*file->editList()->copy()));
        ASSERT_EQ(file->editList()->blockCount(), 1u);
        const auto merged = file->editList()->blockAtIndex(0, 0);
        EXPECT_EQ(merged->sourceType(), KXEditList::kSourceWriter);
        EXPECT_EQ(merged->name(), "Edit");
        ASSERT_EQ(file->tempFileList().size(), 1u);
        EXPECT_EQ(merged->sourcePath(), file->tempFileList()[0]);
        EXPECT_EQ(samplesOf(*file), before) << (gap ? "gap" : "gain");
        file->removeTempFiles();
    }
}

TEST(KXAudioFileEditing, DeletingMovesTheLabelsAfterAndDropsThoseWithin) {
    KXTemporaryFolder folder;
    auto file = monoFile(folder, 44100);
    const Channels original = samplesOf(*file);
    file->markerList()->addMarkerWithPosition(0.1, "Within");
    file->markerList()->addMarkerWithPosition(0.5, "After");
    file->deleteRange({4410, 8820}, KXIndexSet{0});  // 0.1 s to 0.3 s
    EXPECT_EQ(file->frames(), 44100u - 8820u);
    ASSERT_EQ(file->markerList()->count(), 1u);
    EXPECT_NEAR(file->markerList()->labelAtIndex(0)->position(), 0.3, 1e-9);
    const Channels after = samplesOf(*file);
    EXPECT_EQ(after[0][4409], original[0][4409]);
    EXPECT_EQ(after[0][4410], original[0][4410 + 8820]);
    // Silence inserted as a block moves the marker on, and plays nothing.
    file->insertSilence({100, 441}, KXIndexSet{0});
    EXPECT_NEAR(file->markerList()->labelAtIndex(0)->position(), 0.31, 1e-9);
    const Channels silent = samplesOf(*file);
    EXPECT_EQ(silent[0][100], 0.0f);
    EXPECT_EQ(silent[0][540], 0.0f);
    EXPECT_EQ(silent[0][541], original[0][100]);
    // Cropping keeps the range and starts it at 0.
    file->cropRange({541, 1000}, KXIndexSet{0}, false);
    EXPECT_EQ(file->frames(), 1000u);
    EXPECT_EQ(samplesOf(*file)[0][0], original[0][100]);
    EXPECT_EQ(file->markerList()->count(), 0u);
}

TEST(KXAudioFileEditing, ChannelsAreAddedMovedAndRemovedWithTheirNames) {
    KXTemporaryFolder folder;
    auto file = monoFile(folder, 1000);
    file->addChannel();
    EXPECT_EQ(file->numberOfChannels(), 2u);
    EXPECT_EQ(file->channelsList()->channel(1)->name(), "New Channel");
    EXPECT_EQ(samplesOf(*file)[1], std::vector<float>(1000, 0.0f));
    file->duplicateChannelAtIndex(0);
    file->moveChannels(KXIndexSet{0}, 3);
    EXPECT_EQ(samplesOf(*file)[2], samplesOf(*file)[0]);
    file->removeChannelAtIndex(0);
    EXPECT_EQ(file->numberOfChannels(), 2u);
    EXPECT_EQ(file->editList()->numberOfChannels(), 2u);
}

TEST(KXAudioFileEditing, ThePasteboardCarriesMaterialBetweenFiles) {
    KXTemporaryFolder folder;
    auto source = monoFile(folder, 3000);
    const Channels original = samplesOf(*source);
    auto target = KXAudioFile::audioFileWithPath(KXTestSamples::writeSignalFile(
        folder, "target.wav", 1, 44100, 1000, false, [](std::uint32_t, std::uint32_t) { return 0.25f; }));
    ASSERT_TRUE(target);
    source->copyFrom({500, 200}, KXIndexSet{0});
    ASSERT_TRUE(target->pasteFromPasteboard({100, 50}, KXIndexSet{0}, false));
    EXPECT_EQ(target->frames(), 1150u);
    // The material is the target's own now: the source may go.
    ASSERT_EQ(target->tempFileList().size(), 1u);
    source.reset();
    std::remove(folder.pathFor("in.wav").c_str());
    const Channels pasted = samplesOf(*target);
    EXPECT_EQ(pasted[0][99], 0.25f);
    for (std::uint32_t i = 0; i < 200; ++i) ASSERT_EQ(pasted[0][100 + i], original[0][500 + i]) << i;
    EXPECT_EQ(pasted[0][300], 0.25f);
    target->removeTempFiles();
}

TEST(KXAudioFileEditing, AWrittenFileReplacesARangeAndASelectionBecomesAFileOfItsOwn) {
    KXTemporaryFolder folder;
    auto file = monoFile(folder, 1000);
    const Channels original = samplesOf(*file);
    // A processed range (half gain) written in the file's own sample format, then put in place.
    auto writer = KXAudioFileWriter::writerWithAudioFile(*file);
    writer->setTempDirectory(folder.path());
    KXAmplitudeInstructions half;
    half.start = 100;
    half.end = 300;
    half.gain = 0.5f;
    ASSERT_EQ(file->changeAmplitude(half, *writer), KXProgressDelegate::kGoOn);
    ASSERT_TRUE(file->writerFile(*writer, {100, 200}, KXIndexSet{0}, false));
    EXPECT_EQ(file->frames(), 1000u);
    EXPECT_FALSE(file->tempFileList().empty());
    const Channels processed = samplesOf(*file);
    for (std::uint32_t i = 0; i < 1000; ++i) {
        const float expected = i >= 100 && i < 300 ? float(std::lrint(original[0][i] * 0.5f * 32768.0f)) / 32768.0f
                                                   : original[0][i];
        ASSERT_EQ(processed[0][i], expected) << i;
    }
    auto selection = file->newFileFromEditList(*file->editList()->editListFromRange({250, 100}, KXIndexSet{0}), false);
    ASSERT_TRUE(selection);
    EXPECT_EQ(selection->frames(), 100u);
    EXPECT_EQ(selection->rate(), file->rate());
    const Channels own = samplesOf(*selection);
    for (std::uint32_t i = 0; i < 100; ++i) ASSERT_EQ(own[0][i], processed[0][250 + i]) << i;
    selection->removeTempFiles();
    file->removeTempFiles();
}

TEST(KXAudioFileEditing, PastedBlocksKeepTheMaterialTheirFadesPlay) {
    KXTemporaryFolder folder;
    auto source = monoFile(folder, 1000);
    // A block at 50–150 playing source frames 500–600, faded in over the 50 frames before it and
    // out over the 20 after it: it plays source frames 450–620.
    auto block = source->editList()->blockAtIndex(0, 0)->copy();
    block->setSampleRange({50, 100});
    block->setSourceLocation(500);
    block->setStartFadeLength(50);
    block->setEndFadeLength(20);
    auto clip = KXEditList::editListWithChannelCount(1);
    clip->addBlock(block, 0);
    source->setEditList(clip->copy());
    source->setFrames(170);
    source->resetBuffers();
    const Channels expected = samplesOf(*source);
    KXAudioFile::copyEditList(*clip);
    auto target = KXAudioFile::audioFileWithPath(KXTestSamples::writeSignalFile(
        folder, "target.wav", 1, 44100, 10, false, [](std::uint32_t, std::uint32_t) { return 0.0f; }));
    ASSERT_TRUE(target);
    ASSERT_TRUE(target->pasteFromPasteboard({0, 10}, KXIndexSet{0}, false));
    ASSERT_EQ(target->frames(), 170u);
    EXPECT_EQ(samplesOf(*target), expected);
    EXPECT_NE(expected[0][10], 0.0f);  // the fade-in plays material
    target->removeTempFiles();
}
