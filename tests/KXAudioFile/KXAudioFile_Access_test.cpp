#include <gtest/gtest.h>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXBase/KXMusicalFormatters.h"
#include "support/KXTestSupport.h"

TEST(KXAudioFileProperties, DerivedValuesAndExtensions) {
    auto file = KXAudioFile::audioFile();
    file->setNumberOfChannels(1);
    EXPECT_EQ(file->difference(), -2.0f);
    EXPECT_EQ(file->length(), 0.0);
    file->setRate(48000);
    file->setFrames(96000);
    EXPECT_EQ(file->length(), 2.0);
    EXPECT_EQ(file->range().sampleEnd(), 96000u);
    EXPECT_EQ(file->channelSet(), (KXIndexSet{0}));
    const struct {
        const char* format;
        std::optional<std::string> extension;
    } kCases[] = {{"REX1", "aif"}, {"REX2", "rx2"}, {"WV64", "w64"}, {"TESS", "tess"}, {"RAW ", std::nullopt}};
    for (const auto& c : kCases) {
        file->setFormat(fourCC(c.format));
        EXPECT_EQ(file->formatExtension(), c.extension) << c.format;
    }
    // Not counted yet: the percentage is the negative count itself.
    EXPECT_LT(file->clipAsPercentage(), 0.0f);
}

TEST(KXAudioFileProperties, MetadataClampsAndKeyRules) {
    auto file = KXAudioFile::audioFile();
    file->setMIDIBaseNote(200);
    EXPECT_EQ(file->MIDIBaseNote(), 127);
    file->setMIDIBaseNote(-5);
    EXPECT_EQ(file->MIDIBaseNote(), 0);
    EXPECT_TRUE(file->metadata().contains("baseNote"));
    file->mutableMetadata().setObject(64, "MIDI Base Note");
    file->setMIDIBaseNote(0);
    EXPECT_FALSE(file->metadata().contains("baseNote"));
    EXPECT_FALSE(file->metadata().contains("MIDI Base Note"));
    file->setDetune(-80);
    EXPECT_EQ(file->detune(), -50);
    file->setKey(50);
    EXPECT_EQ(file->key(), 2);
    file->setKey(47);
    EXPECT_EQ(file->key(), 47);
    file->mutableMetadata().setObject("Bb", "Key");
    EXPECT_EQ(file->key(), 10);
    file->mutableMetadata().setObject("None", "Key");
    EXPECT_EQ(file->key(), -1);
    file->mutableMetadata().setObject("7 sharp", "Key");
    EXPECT_EQ(file->key(), 7);
    file->setKey(0);
    EXPECT_FALSE(file->metadata().contains("key"));
    EXPECT_FALSE(file->metadata().contains("Key"));
    EXPECT_EQ(file->key(), -1);
    file->mutableMetadata().setObject("One Shot", "Playback Type");
    EXPECT_EQ(file->playbackType(), 2);
    EXPECT_EQ(KXScaleFormatter::stringForObjectValue(file->scaleType()), "");
    file->setTempo(0.0f);
    EXPECT_EQ(file->tempo(), 0.0f);
}

TEST(KXAudioFileProperties, MeterBeatsAndTempoGuess) {
    auto file = KXAudioFile::audioFile();
    file->setMeterNumeratorDenominator(4, 4);
    file->setBarsBeats(2 * 256 + 1);
    EXPECT_EQ(file->eighthBeats(), 18);
    file->setEighthBeats(18);
    EXPECT_EQ(file->barsBeats(), 2u * 256 + 1);
    file->setMeterDenominator(8);
    EXPECT_EQ(file->timeSignature(), 4u * 256 + 8);
    file->setMeterNumerator(0);
    EXPECT_FALSE(file->metadata().contains("timeSignature"));
    file->setEighthBeats(10);  // without a meter nothing is stored
    EXPECT_EQ(file->barsBeats(), 2u * 256 + 1);

    // A 4-bar 4/4 loop of 8 seconds is 120; one bar of 8 seconds is 30, doubled to 60.
    file->setRate(44100);
    file->setFrames(8 * 44100);
    file->setMeterNumeratorDenominator(4, 4);
    file->setBarsBeats(4 * 256);
    EXPECT_FLOAT_EQ(file->tempoGuess(), 120.0f);
    file->setBarsBeats(1 * 256);
    EXPECT_FLOAT_EQ(file->tempoGuess(), 60.0f);
    file->setFrames(0);
    EXPECT_EQ(file->tempoGuess(), 0.0f);
}

TEST(KXAudioFileProperties, FileEntryAndState) {
    KXTemporaryFolder folder;
    auto file = KXAudioFile::audioFile();
    file->setPath(folder.pathFor("Take.wav"));
    file->setFileSize(5000000000ull);
    file->setDepth(24);
    file->setNumberOfChannels(2);
    file->mutableMetadata().setObject("mine", "name");
    file->setChannelsList(KXChannelsList::channelsListWithChannelCount(2));
    KXDictionary entry = file->fileEntry();
    EXPECT_EQ(entry.objectForKey("fileSize").intValue(), std::int32_t(std::uint32_t(5000000000ull)));
    EXPECT_EQ(entry.objectForKey("range").intValue(), 24);
    EXPECT_EQ(entry.objectForKey("name").string(), "mine");
    EXPECT_FALSE(entry.contains("max"));

    EXPECT_TRUE(file->stateIgnoring(35).empty());
    EXPECT_EQ(file->stateIgnoring(1 + 2).objectForKey("filename").string(), folder.pathFor("Take.wav"));
    // A state restores the properties, the edit list and the channels, and recounts from them.
    auto list = KXEditList::editListWithChannelCount(2);
    auto block = KXEditBlock::editBlock();
    block->setSourcePath("/x.raw");
    block->setSampleRange({0, 777});
    list->mutableBlocksForChannel(1).push_back(block);
    file->setEditList(list);
    file->markerList()->setState({});
    const KXDictionary state = file->state();
    auto other = KXAudioFile::audioFile();
    other->setState(state);
    EXPECT_EQ(other->path(), "");  // "filename" does not move the object
    EXPECT_EQ(other->depth(), 24u);
    EXPECT_EQ(other->numberOfChannels(), 2u);
    EXPECT_EQ(other->frames(), 777u);
    EXPECT_EQ(other->editList()->state(), list->state());
    KXDictionary moved = state;
    moved.setObject(folder.pathFor("Other.wav"), "path");
    other->setState(moved);
    EXPECT_EQ(other->path(), folder.pathFor("Other.wav"));
}
