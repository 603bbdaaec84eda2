#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "KXAudioFile/KXEditList/KXEditBlock.h"
#include "KXBase/KXConverter.h"
#include "support/KXTestSupport.h"

namespace {

using KXTestSamples::sample;

std::unique_ptr<KXConverter> sixteenBitConverter() {
    KXAudioStreamDescription stored;
    stored.setRange(16);
    stored.setFlags(KXAudioStreamDescription::kFlagIsSignedInteger);
    return KXConverter::converterWithSourceFormat(stored, KXAudioStreamDescription::description());
}

// A mono source of 4000 frames whose frame t plays at timeline frame t (source location = location).
struct KXEditBlockRendering : ::testing::Test {
    KXTemporaryFolder folder;
    std::string path = KXTestSamples::writeFile(folder, "source.raw", 1, 4000);
    std::unique_ptr<KXConverter> converter = sixteenBitConverter();

    std::shared_ptr<KXEditBlock> block(std::uint32_t location, std::uint32_t length, std::uint32_t fadeIn,
                                       std::uint32_t fadeOut, std::uint32_t fadeType = 0) {
        auto b = KXEditBlock::editBlock();
        b->setSourcePath(path);
        b->setSourceTotalChannels(1);
        b->setSourceEnd(4000);
        b->setSampleRange({location, length});
        b->setSourceLocation(location);
        b->setStartFadeLength(fadeIn);
        b->setEndFadeLength(fadeOut);
        b->setStartFadeType(fadeType);
        b->setEndFadeType(fadeType);
        return b;
    }

    std::vector<float> render(KXEditBlock& b, KXSampleRange range) {
        std::vector<float> out(range.length, 0.0f);
        b.fillBuffer(out.data(), range, *converter);
        return out;
    }
};

}  // namespace

TEST_F(KXEditBlockRendering, LinearFadesTouchTheHandlesOnly) {
    auto b = block(1000, 500, 100, 50);
    const auto out = render(*b, {0, 2000});
    for (std::uint32_t t = 0; t < 2000; ++t) {
        float expected = 0.0f;
        if (t >= 900 && t < 1000) expected = sample(t, 0) * (float(t - 900) / 100.0f);
        else if (t >= 1000 && t < 1500) expected = sample(t, 0);
        else if (t >= 1500 && t < 1550) expected = sample(t, 0) * (1.0f - float(t - 1500) / 50.0f);
        ASSERT_FLOAT_EQ(out[t], expected) << "frame " << t;
    }
    EXPECT_EQ(out[900], 0.0f);
    EXPECT_FLOAT_EQ(out[950], sample(950, 0) * 0.5f);
}

TEST_F(KXEditBlockRendering, FadeTypesFollowTheTable) {
    // Type 3: a constant 0.5 over the fade-in, no ramp. Type 1: a square-root curve.
    auto constant = block(1000, 500, 100, 0, 3);
    EXPECT_FLOAT_EQ(constant->startFadeValue(), 0.5f);
    auto out = render(*constant, {900, 200});
    for (std::uint32_t t = 900; t < 1000; ++t) ASSERT_FLOAT_EQ(out[t - 900], sample(t, 0) * 0.5f);
    auto curve = block(1000, 500, 100, 0, 1);
    out = render(*curve, {900, 200});
    EXPECT_FLOAT_EQ(out[925 - 900], sample(925, 0) * std::sqrt(0.25f));
    // Type 2 stores 0.70710677; types 5 and 6 keep the value; 7 does not fade at all.
    auto b = KXEditBlock::editBlock();
    b->setStartFadeType(2);
    EXPECT_EQ(b->startFadeValue(), 0.70710677f);
    b->setStartFadeValue(0.25f);
    b->setStartFadeType(6);
    EXPECT_EQ(b->startFadeValue(), 0.25f);
    auto none = block(1000, 500, 100, 0, 7);
    out = render(*none, {900, 100});
    for (std::uint32_t t = 900; t < 1000; ++t) ASSERT_FLOAT_EQ(out[t - 900], sample(t, 0));
}

TEST_F(KXEditBlockRendering, EffectsSwitchChokeRangeAndReversal) {
    // With effects off, an inactive block of gain 0 and inverted phase plays at full level, added.
    auto plain = block(1000, 500, 0, 0);
    plain->setActive(false);
    plain->setGain(0.0f);
    plain->setInvertPhase(true);
    plain->setEffectsEnabled(false);
    auto out = render(*plain, {1000, 500});
    for (std::uint32_t t = 1000; t < 1500; ++t) ASSERT_FLOAT_EQ(out[t - 1000], sample(t, 0));
    // With effects on: inactive is silent; gain and inversion apply.
    plain->setEffectsEnabled(true);
    out = render(*plain, {1000, 500});
    for (float v : out) ASSERT_EQ(v, 0.0f);
    plain->setActive(true);
    plain->setGain(0.5f);
    out = render(*plain, {1000, 500});
    for (std::uint32_t t = 1000; t < 1500; ++t) ASSERT_FLOAT_EQ(out[t - 1000], -0.5f * sample(t, 0));

    auto choked = block(1000, 500, 0, 0);
    choked->setChokeRange({1200, 100});
    out = render(*choked, {1000, 500});
    for (std::uint32_t t = 1000; t < 1500; ++t)
        ASSERT_FLOAT_EQ(out[t - 1000], t >= 1200 && t < 1300 ? sample(t, 0) : 0.0f) << t;

    // Reversed: timeline frame t plays source frame (start + end − 1 − t); rendering a part
    // of the block reads the matching part of the source.
    auto reversed = block(1000, 500, 0, 0);
    reversed->setReverse(true);
    out = render(*reversed, {1100, 100});
    for (std::uint32_t t = 1100; t < 1200; ++t) ASSERT_FLOAT_EQ(out[t - 1100], sample(2499 - t, 0)) << t;
}

TEST_F(KXEditBlockRendering, OverlappingFadesAddUpAndRenderingInPlaceMatchesAdding) {
    auto first = block(1000, 500, 0, 100);
    auto second = block(1500, 500, 100, 0);
    std::vector<float> out(1000, 0.0f);
    first->fillBuffer(out.data(), {1000, 1000}, *converter);
    second->fillBuffer(out.data(), {1000, 1000}, *converter);
    for (std::uint32_t t = 1400; t < 1600; ++t) {
        const float in = t >= 1400 && t < 1500 ? float(t - 1400) / 100.0f : 0.0f;
        const float outGain = t >= 1500 && t < 1600 ? 1.0f - float(t - 1500) / 100.0f : 0.0f;
        const float mine = t < 1500 ? 1.0f : outGain;
        const float theirs = t >= 1500 ? 1.0f : in;
        ASSERT_NEAR(out[t - 1000], sample(t, 0) * (mine + theirs), 1e-6f) << t;
    }
    // renderBuffer writes what clearing and adding would give, silence included.
    auto lone = block(1200, 300, 50, 80);
    lone->setGain(0.75f);
    lone->setReverse(true);
    lone->setInvertPhase(true);
    std::vector<float> added(1000, 0.0f), rendered(1000, 9.0f);
    lone->fillBuffer(added.data(), {1000, 1000}, *converter);
    lone->renderBuffer(rendered.data(), {1000, 1000}, *converter);
    EXPECT_EQ(added, rendered);
}

TEST_F(KXEditBlockRendering, SourceFramesBeforeTheStartAndPastTheEndAreSilence) {
    // A fade-in that reaches before source frame 0, and a block that runs past the file's end.
    auto early = block(50, 100, 100, 0);
    early->setSourceLocation(0);
    auto out = render(*early, {0, 200});
    for (std::uint32_t t = 0; t < 50; ++t) ASSERT_EQ(out[t], 0.0f);
    EXPECT_FLOAT_EQ(out[60], sample(10, 0));
    auto late = block(3900, 200, 0, 0);
    out = render(*late, {3900, 200});
    EXPECT_FLOAT_EQ(out[99], sample(3999, 0));
    for (std::uint32_t t = 100; t < 200; ++t) ASSERT_EQ(out[t], 0.0f);
    // A missing source adds nothing.
    auto missing = block(0, 100, 0, 0);
    missing->setSourcePath(folder.pathFor("gone.raw"));
    std::vector<float> untouched(100, 0.25f);
    missing->fillBuffer(untouched.data(), {0, 100}, *converter);
    for (float v : untouched) ASSERT_EQ(v, 0.25f);
}

TEST(KXEditBlockFields, RangesEdgesAndHitTests) {
    auto b = KXEditBlock::editBlock();
    EXPECT_EQ(b->chokeRange(), (KXSampleRange{0, 0xFFFFFFFF}));
    EXPECT_EQ(b->gain(), 1.0f);
    EXPECT_EQ(b->name(), "Edit");
    b->setSampleRange({1000, 500});
    b->setStartSample(900);
    EXPECT_EQ(b->sampleRange(), (KXSampleRange{900, 600}));
    b->setEndSample(1600);
    EXPECT_EQ(b->sampleRange(), (KXSampleRange{900, 700}));
    b->setSampleRange({1000, 500});
    EXPECT_TRUE(b->sampleInBlock(1000));
    EXPECT_FALSE(b->sampleWithinBlock(1000));
    EXPECT_TRUE(b->sampleWithinBlock(1001));
    EXPECT_FALSE(b->sampleInBlock(1500));
    b->setStartFadeLength(100);
    b->setEndFadeLength(50);
    EXPECT_TRUE(b->sampleInBlock(900, true));
    EXPECT_TRUE(b->sampleInBlock(1549, true));
    EXPECT_FALSE(b->sampleInBlock(1550, true));
    // Edges in order: 1000, 900, 1500, 1550; a tie keeps the earlier.
    EXPECT_EQ(b->positionOfEdgeNearestTo(940), 900);
    EXPECT_EQ(b->positionOfEdgeNearestTo(950), 1000);
    EXPECT_EQ(b->positionOfEdgeNearestTo(1525), 1500);
    EXPECT_EQ(b->positionOfEdgeNearestTo(5000), 1550);
    auto later = KXEditBlock::editBlock();
    later->setSampleRange({2000, 10});
    EXPECT_EQ(b->positionCompare(*later), -1);
    EXPECT_EQ(later->positionCompare(*b), 1);

    b->setColorIndex(12);
    EXPECT_EQ(b->colorIndex(), 12u);
    EXPECT_EQ(b->color(), KXColor::whiteColor(0.75f, 1.0f));
    b->setColorIndex(7);
    EXPECT_EQ(b->color(), KXColor::blueColor());
}

TEST(KXEditBlockFields, StateKeysOrderAndTheStopAtTheFirstAbsentValue) {
    auto b = KXEditBlock::editBlock();
    b->setSampleRange({1000, 500});
    KXDictionary state = b->state();
    EXPECT_EQ(state.keys(), (std::vector<std::string>{"Range", "Original Range", "Choke Range"}));
    EXPECT_EQ(state.objectForKey("Range").string(), "{1000, 500}");
    b->setSourcePath("/a/b.wav");
    b->setSourceLocation(0x123456789ull);
    b->setGain(0.5f);
    b->setColorIndex(3);
    state = b->state();
    EXPECT_EQ(state.count(), 24u);
    EXPECT_EQ(state.keys()[3], "Path");
    EXPECT_EQ(state.keys()[23], "Selected");
    auto restored = KXEditBlock::editBlock();
    restored->setState(state);
    EXPECT_TRUE(restored->isEqualToBlock(*b));
    EXPECT_EQ(restored->sourceLocation(), 0x123456789ull);
    EXPECT_EQ(restored->colorIndex(), 3u);
    EXPECT_EQ(restored->state(), state);
    // Without "Gain" the gain is 0; the choke range and fade values keep what they were.
    state.removeObjectForKey("Gain");
    state.removeObjectForKey("Choke Range");
    state.removeObjectForKey("Start Fade Value");
    restored->setChokeRange({5, 6});
    restored->setStartFadeValue(0.3f);
    state.setObject(6u, "Start Fade Type");
    restored->setState(state);
    EXPECT_EQ(restored->gain(), 0.0f);
    EXPECT_EQ(restored->chokeRange(), (KXSampleRange{5, 6}));
    EXPECT_EQ(restored->startFadeValue(), 0.3f);
    b->setName(std::nullopt);
    EXPECT_EQ(b->state().keys().back(), "Reverse");
}

TEST(KXEditBlockFields, ArchiveAndCopyKeepTheFields) {
    auto b = KXEditBlock::editBlock();
    b->setSampleRange({10, 20});
    b->setOriginalRange({1, 2});
    b->setChokeRange({3, 4});
    b->setSourcePath("/x/y.aif");
    b->setSourceChannel(1);
    b->setSourceTotalChannels(2);
    b->setSourceOffset(54);
    b->setEndFadeType(3);
    b->setEndFadeValue(0.2f);
    b->setReverse(true);
    b->setTopBarBounds({1, 2, 3, 4});
    b->setSelected(true);
    b->setEffectsEnabled(false);
    auto decoded = std::dynamic_pointer_cast<KXEditBlock>(KXDecoder::unarchiveObjectWithData(
        KXCoder::archivedDataWithRootObject(*b), [](const std::string&) { return KXEditBlock::editBlock(); }));
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->state(), b->state());
    EXPECT_EQ(decoded->topBarBounds(), b->topBarBounds());
    EXPECT_FALSE(decoded->effectsEnabled());
    EXPECT_EQ(decoded->description(), b->description());
    EXPECT_EQ(b->description(),
              "KXEditBlock: path:y.aif name:Edit range:{10, 20} originalRange:{1, 2} sourceChannels:1/2 sourceLocation:0");
    // A copy leaves selection and the effects switch at a new block's defaults.
    auto copy = b->copy();
    EXPECT_TRUE(copy->isEqualToBlock(*b));
    EXPECT_EQ(copy->endFadeValue(), 0.2f);
    EXPECT_FALSE(copy->selected());
    EXPECT_TRUE(copy->effectsEnabled());
}
