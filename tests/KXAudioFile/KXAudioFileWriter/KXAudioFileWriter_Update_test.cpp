#include <gtest/gtest.h>
#include <sndfile.h>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXChunkList.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXAudioFile/KXLabels/KXLoop.h"
#include "KXAudioFile/KXLabels/KXMarker.h"
#include "KXBase/KXFile.h"
#include "support/KXTestSupport.h"

namespace {

constexpr std::uint32_t kFrames = 50;

// Stereo 32-bit integer samples whose bytes a conversion through floats would not keep.
KXData sampleBytes(std::size_t offset = 0) {
    KXData bytes(offset, 0);
    for (std::uint32_t i = 0; i < kFrames * 2 * 4; ++i) bytes.push_back(std::uint8_t(i * 37 + 11));
    return bytes;
}

struct Case {
    const char* name;
    KXData bytes;
    std::uint32_t sampleChunk;
    std::vector<std::uint32_t> kept;  // chunks that must come through byte for byte
};

std::vector<Case> cases() {
    const KXData fmt = KXPayload::little().u16(1).u16(2).u32(44100).u32(352800).u16(8).u16(32).bytes;
    const KXData comm =
        KXPayload::big().u16(2).u32(kFrames).u16(32).raw({0x40, 0x0E, 0xAC, 0x44, 0, 0, 0, 0, 0, 0}).bytes;
    KXPayload desc = KXPayload::big();
    desc.raw({0x40, 0xE5, 0x88, 0x80, 0, 0, 0, 0}).raw(bytesOf("lpcm")).u32(0).u32(8).u32(1).u32(2).u32(32);
    return {
        {"wave",
         KXTestFile::riff()
             .chunk("fmt ", fmt)
             .chunk("abcd", bytesOf("odd"))  // an odd chunk nobody reads, with its pad byte
             .chunk("data", sampleBytes())
             .chunk("zzzz", bytesOf("after"))
             .finish()
             .data(),
         KXFourCC("data"),
         {KXFourCC("fmt "), KXFourCC("abcd"), KXFourCC("zzzz")}},
        {"aiff",
         KXTestFile::aiff()
             .chunk("COMM", comm)
             .chunk("abcd", bytesOf("odd"))
             .chunk("SSND", sampleBytes(8))
             .finish()
             .data(),
         KXFourCC("SSND"),
         {KXFourCC("COMM"), KXFourCC("abcd")}},
        {"caf",
         KXTestFile::caf().chunk("desc", desc.bytes).chunk("abcd", bytesOf("odd")).chunk("data", sampleBytes(4)).data(),
         KXFourCC("data"),
         {KXFourCC("desc"), KXFourCC("abcd")}},
    };
}

// The payload of the first chunk of `type`, read from the file.
KXData payloadOf(const std::string& path, std::uint32_t type) {
    KXError error;
    auto file = KXAudioFile::audioFileWithPath(path, &error);
    if (!file) return {};
    auto list = KXChunkList::chunkListForAudioFile(*file, &error);
    const auto chunk = list ? list->chunkOfType(type) : nullptr;
    const auto bytes = KXFile::dataWithContentsOfPath(path, 1 << 20);
    if (!chunk || !bytes) return {};
    const std::size_t header = file->format() == KXFourCC("caff") ? 12 : 8;
    const std::size_t start = std::size_t(chunk->position()) + header;
    const std::size_t length = std::size_t(chunk->length());
    return start + length <= bytes->size()
               ? KXData(bytes->begin() + std::ptrdiff_t(start), bytes->begin() + std::ptrdiff_t(start + length))
               : KXData();
}

std::shared_ptr<KXAudioFileWriter> writerFor(const std::string& path) {
    auto file = KXAudioFile::audioFileWithPath(path);
    return file ? KXAudioFileWriter::writerWithAudioFile(*file) : nullptr;
}

}  // namespace

TEST(KXAudioFileWriterUpdate, LabelsAndMetadataChangeWhileTheSamplesAndEveryOtherChunkStayByteForByte) {
    for (const Case& c : cases()) {
        SCOPED_TRACE(c.name);
        KXTemporaryFolder folder;
        const std::string path = folder.write(std::string("take.") + c.name, c.bytes);
        const KXData samples = payloadOf(path, c.sampleChunk);
        ASSERT_FALSE(samples.empty());
        std::vector<KXData> kept;
        for (std::uint32_t type : c.kept) kept.push_back(payloadOf(path, type));

        // No padding before the samples: the file is written anew, with room for next time.
        auto writer = writerFor(path);
        ASSERT_TRUE(writer);
        auto marker = KXMarker::marker();
        marker->setPosition(10.0 / 44100);
        marker->setName("Hit");
        writer->markerList()->addLabel(marker);
        auto loop = KXLoop::loop();
        loop->setStart(5.0 / 44100);
        loop->setEnd(40.0 / 44100);
        writer->loopList()->addLabel(loop);
        writer->mutableMetadata().setObject("Band", "originalArtist");
        KXError error;
        EXPECT_EQ(writer->updateHeaderOfFile(path, &error), KXAudioFileWriter::HeaderUpdate::rewritten)
            << error.description();
        EXPECT_EQ(KXFile::contentsOfDirectoryAtPath(folder.path()),
                  std::vector<std::string>{std::string("take.") + c.name});

        auto updated = KXAudioFile::audioFileWithPath(path, &error);
        ASSERT_TRUE(updated) << error.description();
        ASSERT_EQ(updated->markerList()->count(), 1u);
        EXPECT_EQ(updated->markerList()->labelAtIndex(0)->name(), "Hit");
        EXPECT_NEAR(updated->markerList()->labelAtIndex(0)->position(), 10.0 / 44100, 1e-9);
        ASSERT_EQ(updated->loopList()->count(), 1u);
        EXPECT_EQ(updated->metadata().objectForKey("originalArtist").stringValue(), "Band");
        EXPECT_EQ(payloadOf(path, c.sampleChunk), samples);
        for (std::size_t i = 0; i < kept.size(); ++i) EXPECT_EQ(payloadOf(path, c.kept[i]), kept[i]) << i;

        // The second change fits the padding: written in place, the length unchanged.
        const std::uint64_t length = KXFile::lengthOfFileAtPath(path);
        writer = writerFor(path);
        writer->markerList()->labelAtIndex(0)->setName("Downbeat");
        writer->mutableMetadata().setObject("A much longer artist name than before", "originalArtist");
        EXPECT_EQ(writer->updateHeaderOfFile(path, &error), KXAudioFileWriter::HeaderUpdate::inPlace);
        EXPECT_EQ(KXFile::lengthOfFileAtPath(path), length);
        updated = KXAudioFile::audioFileWithPath(path);
        ASSERT_TRUE(updated);
        EXPECT_EQ(updated->markerList()->labelAtIndex(0)->name(), "Downbeat");
        EXPECT_EQ(updated->metadata().objectForKey("originalArtist").stringValue(),
                  "A much longer artist name than before");
        EXPECT_EQ(payloadOf(path, c.sampleChunk), samples);
        for (std::size_t i = 0; i < kept.size(); ++i) EXPECT_EQ(payloadOf(path, c.kept[i]), kept[i]) << i;

        // libsndfile finds the same samples where they were.
        SF_INFO info{};
        SNDFILE* peer = sf_open(path.c_str(), SFM_READ, &info);
        ASSERT_TRUE(peer) << sf_strerror(nullptr);
        EXPECT_EQ(info.frames, kFrames);
        std::vector<int> read(kFrames * 2);
        EXPECT_EQ(sf_readf_int(peer, read.data(), kFrames), kFrames);
        sf_close(peer);
        const KXByteOrder order =
            c.sampleChunk == KXFourCC("SSND") || std::string(c.name) == "caf" ? KXByteOrder::big : KXByteOrder::little;
        const std::size_t skip = c.sampleChunk == KXFourCC("SSND") ? 8 : std::string(c.name) == "caf" ? 4 : 0;
        EXPECT_EQ(std::uint32_t(read[7]), kx::load32(samples.data() + skip + 28, order));
    }
}

TEST(KXAudioFileWriterUpdate, AnRF64FileKeepsItsSizesInDs64) {
    KXTemporaryFolder folder;
    const std::string source = KXTestSamples::writeSignalFile(
        folder, "in.wav", 2, 44100, 1000, false,
        [](std::uint32_t f, std::uint32_t c) { return float(f % 100) / 200.0f - 0.2f * float(c); });
    auto writer = writerFor(source);
    writer->setWAVEContainer(KXFourCC("RF64"));
    ASSERT_TRUE(writer->beginWrite());
    auto in = KXAudioFile::audioFileWithPath(source);
    KXNativeAudioBuffer buffer(2, 1000);
    ASSERT_EQ(in->readSamplesToBuffer(buffer, 0), 1000);
    writer->writeBuffer(buffer);
    ASSERT_TRUE(writer->endWrite());
    const std::string path = folder.pathFor("big.wav");
    ASSERT_TRUE(writer->saveToPath(path));
    const KXData samples = payloadOf(path, KXFourCC("data"));

    writer = writerFor(path);
    writer->mutableMetadata().setObject(std::string(5000, 'x'), "comments");  // too long for any padding
    KXError error;
    ASSERT_EQ(writer->updateHeaderOfFile(path, &error), KXAudioFileWriter::HeaderUpdate::rewritten)
        << error.description();
    const auto bytes = KXFile::dataWithContentsOfPath(path, 1 << 20);
    ASSERT_TRUE(bytes);
    EXPECT_EQ(kx::load32(bytes->data(), KXByteOrder::big), KXFourCC("RF64"));
    EXPECT_EQ(kx::load64(bytes->data() + 20, KXByteOrder::little), bytes->size() - 8);
    auto updated = KXAudioFile::audioFileWithPath(path, &error);
    ASSERT_TRUE(updated) << error.description();
    EXPECT_EQ(updated->metadata().objectForKey("comments").stringValue().size(), 5000u);
    EXPECT_EQ(payloadOf(path, KXFourCC("data")), samples);
}

TEST(KXAudioFileWriterUpdate, AUAndSoundDesignerFilesAreWrittenAnewWithTheirSampleBytes) {
    KXTemporaryFolder folder;
    // An AU file of 16-bit samples whose header sox would write (28 bytes, an annotation).
    KXData au = KXPayload::big().raw(bytesOf(".snd")).u32(28).u32(200).u32(3).u32(8000).u32(2).u32(0).bytes;
    const KXData auSamples = sampleBytes();
    au.insert(au.end(), auSamples.begin(), auSamples.begin() + 200);
    const std::string auPath = folder.write("take.au", au);
    // A Sound Designer II file written here: samples in the data fork, the rest in the resource fork.
    const std::string source = KXTestSamples::writeSignalFile(
        folder, "in.wav", 2, 44100, 300, false,
        [](std::uint32_t f, std::uint32_t c) { return float((f * 7 + c) % 50) / 60.0f; });
    auto converting = writerFor(source);
    converting->setFormat(KXFourCC("SDII"));
    converting->setDepth(16);
    ASSERT_TRUE(converting->beginWrite());
    KXNativeAudioBuffer buffer(2, 300);
    ASSERT_EQ(KXAudioFile::audioFileWithPath(source)->readSamplesToBuffer(buffer, 0), 300);
    converting->writeBuffer(buffer);
    ASSERT_TRUE(converting->endWrite());
    const std::string sd2 = folder.pathFor("take.sd2");
    ASSERT_TRUE(converting->saveToPath(sd2));

    for (const auto& [path, offset] : {std::pair{auPath, std::size_t(28)}, std::pair{sd2, std::size_t(0)}}) {
        SCOPED_TRACE(path);
        const KXData before = *KXFile::dataWithContentsOfPath(path, 1 << 20);
        auto writer = writerFor(path);
        ASSERT_TRUE(writer);
        auto marker = KXMarker::marker();
        marker->setPosition(0.001);
        marker->setName("Here");
        writer->markerList()->addLabel(marker);
        KXError error;
        ASSERT_EQ(writer->updateHeaderOfFile(path, &error), KXAudioFileWriter::HeaderUpdate::rewritten)
            << error.description();
        const KXData after = *KXFile::dataWithContentsOfPath(path, 1 << 20);
        auto updated = KXAudioFile::audioFileWithPath(path, &error);
        ASSERT_TRUE(updated) << error.description();
        const std::size_t samples = updated->frames() * updated->numberOfChannels() * 2;
        // AU holds no labels; Sound Designer II keeps the marker in its resource fork.
        EXPECT_EQ(updated->markerList()->count(), path == sd2 ? 1u : 0u);
        const std::size_t start = after.size() - samples;  // the samples end both files
        ASSERT_GE(after.size(), samples);
        EXPECT_EQ(KXData(after.begin() + std::ptrdiff_t(start), after.end()),
                  KXData(before.begin() + std::ptrdiff_t(offset), before.begin() + std::ptrdiff_t(offset + samples)));
    }
    EXPECT_EQ(KXFile::contentsOfDirectoryAtPath(folder.path()).size(), 4u);  // in.wav, take.au, take.sd2, its fork
}

TEST(KXAudioFileWriterUpdate, WhatCannotBeUpdatedIsRefusedAndLeftAsItWas) {
    KXTemporaryFolder folder;
    const KXData w64 = KXTestFile::wave64()
                           .chunk("fmt ", {1, 0, 1, 0, 0x40, 0x1F, 0, 0, 0x40, 0x1F, 0, 0, 1, 0, 8, 0})
                           .chunk("data", KXData(16, 0x80))
                           .finish()
                           .data();
    const std::string path = folder.write("take.w64", w64);
    auto writer = writerFor(path);
    ASSERT_TRUE(writer);
    writer->mutableMetadata().setObject("Band", "originalArtist");
    KXError error;
    EXPECT_FALSE(writer->updateHeaderOfFile(path, &error));
    EXPECT_EQ(error.code(), -6);
    EXPECT_EQ(KXFile::dataWithContentsOfPath(path, 1 << 20), w64);
}
