#include <gtest/gtest.h>

#include "KXBase/KXNativeAudioBuffer.h"

TEST(KXNativeAudioBuffer, CopyingReversingAndSearches) {
    KXNativeAudioBuffer source(2, 8), target(3, 4);
    for (std::uint32_t i = 0; i < 8; ++i) source.setSampleValue(float(i), i, 0), source.setSampleValue(-float(i), i, 1);
    EXPECT_EQ(source.frames(), 8u);
    KXError error;
    EXPECT_FALSE(target.copyFrames({6, 3}, source, 0, &error));  // past the source
    EXPECT_FALSE(target.copyFrames({0, 3}, source, 2));           // past the target
    ASSERT_TRUE(target.copyFrames({5, 3}, source, 1));
    EXPECT_EQ(target.sampleValueAtIndex(1, 0), 5.0f);
    EXPECT_EQ(target.sampleValueAtIndex(3, 1), -7.0f);
    EXPECT_EQ(target.sampleValueAtIndex(3, 2), 0.0f);
    EXPECT_EQ(target.sampleValueAtIndex(4, 0), 0.0f);  // outside reads 0

    source.setFrames(4);
    source.reverse();
    EXPECT_EQ(source.sampleValueAtIndex(0, 0), 3.0f);
    EXPECT_EQ(source.sampleValueAtIndex(4, 0), 4.0f);  // past `frames`: untouched
    source.scale(0.5f);
    EXPECT_EQ(source.sampleValueAtIndex(0, 1), -1.5f);
    // Magnitudes 1.5 1 0.5 0 in both channels.
    EXPECT_EQ(source.positionOfSampleGreaterThanOrEqualToMagnitude(1.0f, false), 0u);
    EXPECT_EQ(source.positionOfSampleGreaterThanOrEqualToMagnitude(0.5f, true), 2u);
    EXPECT_EQ(source.positionOfSampleGreaterThanOrEqualToMagnitude(2.0f, false), KXNativeAudioBuffer::kNotFound);
    EXPECT_FLOAT_EQ(source.energy(), (2.25f + 1.0f + 0.25f) / 4.0f);
    source.setChannelEnabled(0, false);
    source.setSampleValue(0.0f, 0, 1);
    EXPECT_EQ(source.positionOfSampleGreaterThanOrEqualToMagnitude(1.0f, false), 1u);
    source.clear();
    EXPECT_EQ(source.energy(), 0.0f);
}
