#include "KXAudioFile/KXAudioFileWrapper/KXChunk.h"

#include <gtest/gtest.h>

#include "KXBase/KXFile.h"
#include "KXBase/KXResourceFile.h"
#include "support/KXTestSupport.h"

namespace {

std::shared_ptr<KXChunk> chunkWith(std::uint32_t format, const KXData& payload) {
    auto chunk = KXChunk::chunk();
    chunk->setFormat(format);
    chunk->mutableData() = payload;
    return chunk;
}

}  // namespace

TEST(KXChunkByteOrder, FreshChunkIsLittleEndianUntilFormatIsSet) {
    auto chunk = KXChunk::chunk();
    chunk->mutableData() = {0x01, 0x02, 0x03, 0x04};
    EXPECT_EQ(chunk->format(), KXFourCC("AIFF"));
    EXPECT_EQ(chunk->intValueAtByte(0), 0x04030201);
    chunk->setFormat(KXFourCC("AIFF"));
    EXPECT_EQ(chunk->intValueAtByte(0), 0x01020304);
    chunk->setFormat(KXFourCC("WAVE"));
    EXPECT_EQ(chunk->intValueAtByte(0), 0x04030201);
    chunk->setType(KXFourCC("anal"));  // analysis chunks are big-endian in every format
    EXPECT_EQ(chunk->byteOrder(), 2u);
    EXPECT_EQ(chunk->intValueAtByte(0), 0x01020304);
    chunk->setFormat(KXFourCC("WV64"));
    EXPECT_EQ(chunk->byteOrder(), 1u);
    chunk->setFormat(KXFourCC("caff"));
    EXPECT_EQ(chunk->byteOrder(), 2u);
}

TEST(KXChunkReaders, ReadEveryWidthInChunkOrderAndCodesBigEndian) {
    auto big = chunkWith(KXFourCC("AIFF"), {0xFF, 0xFE, 0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0x3F, 0x80, 0, 0});
    EXPECT_EQ(big->charValueAtByte(0), -1);
    EXPECT_EQ(big->shortValueAtByte(0), std::int16_t(0xFFFE));
    EXPECT_EQ(big->longLongValueAtByte(0), std::int64_t(0xFFFE123456789ABCull));
    EXPECT_EQ(big->floatValueAtByte(8), 1.0f);
    EXPECT_EQ(big->typeValueAtByte(2), 0x12345678u);
    auto little = chunkWith(KXFourCC("WAVE"), {0, 0, 0x80, 0x3F, 0, 0, 0, 0, 0, 0, 0xF0, 0x3F});
    EXPECT_EQ(little->floatValueAtByte(0), 1.0f);
    EXPECT_EQ(little->doubleValueAtByte(4), 1.0);
    EXPECT_EQ(little->typeValueAtByte(0), 0x0000803Fu);  // codes ignore the chunk's order
}

TEST(KXChunkReaders, OutsideThePayloadGiveZeroAndOnlyTheFirstByteIsChecked) {
    auto chunk = chunkWith(KXFourCC("AIFF"), {0x12, 0x34, 0x56});
    EXPECT_EQ(chunk->intValueAtByte(3), 0);
    EXPECT_EQ(chunk->doubleValueAtByte(100), 0.0);
    EXPECT_EQ(chunk->charValueAtByte(3), 0);
    EXPECT_FALSE(chunk->cStringAtByte(3));
    EXPECT_FALSE(chunk->dataAtByte(3, 1));
    EXPECT_EQ(chunk->stringAtByte(7, 4), "");
    // A first byte inside: the missing bytes read as zero.
    EXPECT_EQ(chunk->intValueAtByte(1), 0x34560000);
    EXPECT_EQ(chunk->shortValueAtByte(2), 0x5600);
    EXPECT_EQ(*chunk->dataAtByte(1, 100), (KXData{0x34, 0x56}));
}

TEST(KXChunkFloat80, ReadsTheRatesOfTheExamples) {
    struct Case {
        KXData bytes;
        std::uint32_t rate;
    } cases[] = {
        {{0x40, 0x0E, 0xAC, 0x44, 0, 0, 0, 0, 0, 0}, 44100},
        {{0x40, 0x0E, 0xBB, 0x80, 0, 0, 0, 0, 0, 0}, 48000},
        {{0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 0},  // 30 shifts of zero
        // Rounding on the last bit shifted out: 0xAC448000 >> 16 rounds up.
        {{0x40, 0x0E, 0xAC, 0x44, 0x80, 0x00, 0, 0, 0, 0}, 44101},
        // An exponent above 30 wraps the shift count and shifts everything out.
        {{0x40, 0x20, 0xAC, 0x44, 0, 0, 0, 0, 0, 0}, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.rate);
        EXPECT_EQ(chunkWith(KXFourCC("AIFF"), c.bytes)->float80ValueAtByte(0), c.rate);
    }
}

TEST(KXChunkFloat80, CommonRatesRoundTripByteExactly) {
    struct Case {
        std::uint32_t rate;
        KXData bytes;
    } cases[] = {
        {44100, {0x40, 0x0E, 0xAC, 0x44, 0, 0, 0, 0, 0, 0}},
        {48000, {0x40, 0x0E, 0xBB, 0x80, 0, 0, 0, 0, 0, 0}},
        {96000, {0x40, 0x0F, 0xBB, 0x80, 0, 0, 0, 0, 0, 0}},
        {192000, {0x40, 0x10, 0xBB, 0x80, 0, 0, 0, 0, 0, 0}},
        {0, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
        {22050, {0x40, 0x0D, 0xAC, 0x44, 0, 0, 0, 0, 0, 0}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.rate);
        auto chunk = chunkWith(KXFourCC("AIFF"), {});
        chunk->appendAsFloat80(c.rate);
        EXPECT_EQ(chunk->data(), c.bytes);
        EXPECT_EQ(chunk->float80ValueAtByte(0), c.rate);
    }
}

TEST(KXChunkStrings, PascalStrings) {
    auto chunk = chunkWith(KXFourCC("AIFF"), {3, 'A', 'B', 'C', 0, 9, 'x'});
    EXPECT_EQ(chunk->pascalStringAtByte(0), "ABC");
    EXPECT_FALSE(chunk->pascalStringAtByte(4));  // count 0: nothing, not ""
    EXPECT_FALSE(chunk->pascalStringAtByte(5));  // count runs past the payload

    struct Case {
        std::optional<std::string> text;
        bool pad;
        KXData bytes;
    } cases[] = {
        {"ABC", true, {3, 'A', 'B', 'C'}},
        {"AB", true, {2, 'A', 'B', 0}},
        {"AB", false, {2, 'A', 'B'}},
        {std::nullopt, true, {0, 0}},
        {"", true, {0, 0}},
        {"caf\xC3\xA9", false, {4, 'c', 'a', 'f', 0x8E}},  // Mac OS Roman holds the accent
        {"\xE2\x99\xAA", false, {3, 0xE2, 0x99, 0xAA}},       // and this not: UTF-8
    };
    for (const Case& c : cases) {
        auto out = chunkWith(KXFourCC("AIFF"), {});
        out->appendAsPascalString(c.text, c.pad);
        EXPECT_EQ(out->data(), c.bytes) << c.text.value_or("(nil)");
    }
    auto number = chunkWith(KXFourCC("AIFF"), {});
    number->appendAsPascalString(KXValue(42), false);  // a non-string goes by its text
    EXPECT_EQ(number->data(), (KXData{2, '4', '2'}));
}

TEST(KXChunkStrings, CStrings) {
    struct Case {
        std::optional<std::string> text;
        std::uint32_t size;
        KXData bytes;
    } sized[] = {
        {"ABCDEF", 4, {'A', 'B', 'C', 0}},
        {"AB", 4, {'A', 'B', 0, 0}},
        {"ABC", 4, {'A', 'B', 'C', 0}},
        {std::nullopt, 3, {0, 0, 0}},
    };
    for (const Case& c : sized) {
        auto out = chunkWith(KXFourCC("WAVE"), {});
        out->appendAsCStringSize(c.text, c.size);
        EXPECT_EQ(out->data(), c.bytes) << c.text.value_or("(nil)");
    }
    auto padded = chunkWith(KXFourCC("WAVE"), {});
    padded->appendAsCString(std::optional<std::string>("AB"), true);  // 3 bytes with the NUL: odd
    padded->appendAsCString(std::optional<std::string>("ABC"), true);
    padded->appendAsCString(std::optional<std::string>(), true);  // nil counts 0: no pad byte
    EXPECT_EQ(padded->data(), (KXData{'A', 'B', 0, 0, 'A', 'B', 'C', 0, 0}));

    auto source = chunkWith(KXFourCC("WAVE"), {'h', 'i', 0, 'x', 'y'});
    EXPECT_EQ(source->cStringAtByte(0), "hi");
    EXPECT_EQ(source->cStringAtByte(3), "xy");  // runs to the payload's end
    EXPECT_EQ(source->stringAtByte(0, 5), "hi");
    EXPECT_EQ(source->stringAtByte(3, 100), "xy");
    auto roman = chunkWith(KXFourCC("AIFF"), {0x8E});  // Mac OS Roman e-acute
    EXPECT_EQ(roman->cStringAtByte(0), "\xC3\xA9");
}

TEST(KXChunkStrings, AppendStringCountsCharactersButCopiesUTF8Bytes) {
    auto chunk = chunkWith(KXFourCC("AIFF"), {});
    chunk->appendString("h\xC3\xA9");  // two characters, three bytes: cut to two bytes
    EXPECT_EQ(chunk->data(), (KXData{'h', 0xC3}));
    auto sized = chunkWith(KXFourCC("AIFF"), {});
    sized->appendString("ABCDEF", 4);
    sized->appendString("AB", 4);
    EXPECT_EQ(sized->data(), (KXData{'A', 'B', 'C', 'D', 'A', 'B', 0, 0}));
}

TEST(KXChunkAppenders, NumbersPadsAndReplace) {
    auto chunk = chunkWith(KXFourCC("AIFF"), {});
    chunk->appendShort(0x0102);
    chunk->appendInt(0x03040506);
    chunk->appendType(KXFourCC("COMM"));
    chunk->appendByte(7);
    chunk->appendPadByte();
    chunk->appendPadByte();  // already even: nothing
    EXPECT_EQ(chunk->data(), (KXData{1, 2, 3, 4, 5, 6, 'C', 'O', 'M', 'M', 7, 0}));
    chunk->replaceIntAtByte(10, 0xAABBCCDD);  // grows the payload past its end
    EXPECT_EQ(chunk->data().size(), 14u);
    EXPECT_EQ(std::uint32_t(chunk->intValueAtByte(10)), 0xAABBCCDDu);
    chunk->replaceIntAtByte(15, 1);  // beyond the end: nothing
    EXPECT_EQ(chunk->data().size(), 14u);

    auto little = chunkWith(KXFourCC("WAVE"), {});
    little->appendLongLong(0x0102030405060708ull);
    little->appendDouble(1.0);
    EXPECT_EQ(little->longLongValueAtByte(0), 0x0102030405060708);
    EXPECT_EQ(little->data()[0], 8);
    EXPECT_EQ(little->doubleValueAtByte(8), 1.0);
}

TEST(KXChunkNumbers, UInt32FromDoubleClampsAndTruncates) {
    EXPECT_EQ(KXChunk::uInt32FromDouble(-1.5), 0u);
    EXPECT_EQ(KXChunk::uInt32FromDouble(4294967295.0), 4294967295u);
    EXPECT_EQ(KXChunk::uInt32FromDouble(1e20), 4294967295u);
    EXPECT_EQ(KXChunk::uInt32FromDouble(41.99), 41u);
    EXPECT_EQ(KXChunk::doubleFromUInt32(4294967295u), 4294967295.0);
}

TEST(KXChunkFields, LengthPositionResetAndDescription) {
    auto chunk = chunkWith(KXFourCC("caff"), {1, 2, 3});
    EXPECT_EQ(chunk->length(), 3u);  // never set: the payload's length
    chunk->setPosition(100);
    EXPECT_EQ(chunk->dataPosition(), 112u);
    chunk->setFormat(KXFourCC("WV64"));
    EXPECT_EQ(chunk->dataPosition(), 124u);
    chunk->setFormat(KXFourCC("AIFF"));
    EXPECT_EQ(chunk->dataPosition(), 108u);
    chunk->setType(KXFourCC("NAME"));
    EXPECT_EQ(chunk->description(), "KXChunk 'NAME' 3 bytes ");
    chunk->setName("n");
    chunk->setChunkID(5);
    chunk->setLength(1000);
    chunk->reset();
    EXPECT_EQ(chunk->type(), 0u);
    EXPECT_EQ(chunk->chunkID(), 0);
    EXPECT_FALSE(chunk->name());
    EXPECT_EQ(chunk->length(), 1000u);  // the stored length stays
    EXPECT_EQ(chunk->position(), 100u);
    EXPECT_EQ(chunk->description(), "KXChunk '" + std::string(4, '\0') + "' 1000 bytes (not loaded)");
}

TEST(KXChunkFields, RequiresEvenSizeTable) {
    struct Case {
        const char* format;
        const char* type;
        bool even;
    } cases[] = {
        {"WAVE", "data", true}, {"ACID", "smpl", true}, {"WAVE", "LIST", false}, {"WAVE", "NAME", false},
        {"AIFF", "NAME", true}, {"APLL", "COMT", true}, {"AIFF", "data", false}, {"AIFC", "NAME", false},
        {"WV64", "data", false}, {"caff", "iXML", true}, {"AIFC", "iXML", true}, {"AIFF", "ANNO", false},
    };
    for (const Case& c : cases) {
        auto chunk = KXChunk::chunk();
        chunk->setFormat(fourCC(c.format));
        chunk->setType(fourCC(c.type));
        EXPECT_EQ(chunk->requiresEvenSize(), c.even) << c.format << " " << c.type;
    }
}

TEST(KXChunkCAF, StringForID) {
    // count 2; entries (7, offset 0) and (9, offset 3); then "ab\0cd\0".
    KXData strg = {0, 0, 0, 2, 0, 0, 0, 7, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 9, 0, 0, 0, 0, 0, 0, 0, 3,
                   'a', 'b', 0, 'c', 'd', 0};
    auto chunk = chunkWith(KXFourCC("caff"), strg);
    chunk->setType(KXFourCC("strg"));
    EXPECT_EQ(chunk->stringForID(7), "ab");
    EXPECT_EQ(chunk->stringForID(9), "cd");
    EXPECT_FALSE(chunk->stringForID(8));
    EXPECT_FALSE(chunk->stringForID(0));
    chunk->setFormat(KXFourCC("AIFF"));
    EXPECT_FALSE(chunk->stringForID(7));
    // A count or an offset past the payload gives nothing rather than a read outside it.
    auto broken = chunkWith(KXFourCC("caff"), {0xFF, 0xFF, 0xFF, 0xFF});
    broken->setType(KXFourCC("strg"));
    EXPECT_FALSE(broken->stringForID(7));
    strg[27] = 200;
    auto far = chunkWith(KXFourCC("caff"), strg);
    far->setType(KXFourCC("strg"));
    EXPECT_FALSE(far->stringForID(9));
}

TEST(KXChunkFiles, FlatFileHeadersPerFormat) {
    KXTemporaryFolder folder;
    auto file = KXFile::createFileAtPath(folder.pathFor("out"));
    ASSERT_TRUE(file);
    auto wave = chunkWith(KXFourCC("WAVE"), {1, 2, 3});
    wave->setType(KXFourCC("note"));
    auto caf = chunkWith(KXFourCC("caff"), {9});
    caf->setType(KXFourCC("uuid"));
    caf->setUUID(KXUUID::fromString("00112233-4455-6677-8899-AABBCCDDEEFF"));
    auto raw = chunkWith(KXFourCC("AIFF"), {5, 6});  // type 0: payload only
    ASSERT_TRUE(wave->appendToFile(*file));
    ASSERT_TRUE(caf->appendToFile(*file));
    ASSERT_TRUE(raw->appendToFile(*file));
    KXData expected = {'n', 'o', 't', 'e', 3, 0, 0, 0, 1, 2, 3,  // no pad byte is added
                       'u', 'u', 'i', 'd', 0, 0, 0, 0, 0, 0, 0, 17};
    for (int i = 0; i < 16; ++i) expected.push_back(std::uint8_t((i << 4) | i));
    expected.insert(expected.end(), {9, 5, 6});
    EXPECT_EQ(readWholeFile(folder.pathFor("out")), expected);
}

TEST(KXChunkFiles, ReplacingOverwritesOnlyAnEqualStoredLength) {
    KXTemporaryFolder folder;
    const std::string path = folder.write("f", bytesOf("RIFF\x10\0\0\0WAVEnote\x04\0\0\0abcd"));
    auto file = KXFile::fileWithPath(path, KXFile::Mode::readWrite);
    ASSERT_TRUE(file);
    auto old = chunkWith(KXFourCC("WAVE"), bytesOf("abcd"));
    old->setType(KXFourCC("note"));
    old->setPosition(12);

    auto same = chunkWith(KXFourCC("WAVE"), bytesOf("wxyz"));
    same->setType(KXFourCC("note"));
    same->setLength(4);
    ASSERT_TRUE(same->writeToFile(*file, old.get()));
    EXPECT_EQ(readWholeFile(path), bytesOf("RIFF\x10\0\0\0WAVEnote\x04\0\0\0wxyz"));

    // A length never set never matches: the old chunk becomes JUNK and the new one goes last.
    auto unset = chunkWith(KXFourCC("WAVE"), bytesOf("1234"));
    unset->setType(KXFourCC("note"));
    ASSERT_TRUE(unset->writeToFile(*file, old.get()));
    EXPECT_EQ(readWholeFile(path), bytesOf("RIFF\x10\0\0\0WAVEJUNK\x04\0\0\0wxyznote\x04\0\0\0" "1234"));
}

TEST(KXChunkFiles, ResourceForkWriteReplaceAndRemove) {
    KXTemporaryFolder folder;
    const std::string path = folder.write("sd2", {});
    auto fork = KXResourceFile::createResourceFileAtPath(path);
    ASSERT_TRUE(fork);
    auto chunk = chunkWith(KXFourCC("SDII"), bytesOf("\x01" "2"));
    chunk->setType(KXFourCC("STR "));
    chunk->setChunkID(1000);
    chunk->setName("size");
    ASSERT_TRUE(chunk->appendToFile(*fork));
    auto replacement = chunkWith(KXFourCC("SDII"), bytesOf("\x01" "3"));
    replacement->setType(KXFourCC("STR "));
    replacement->setChunkID(1000);
    ASSERT_TRUE(replacement->writeToFile(*fork, chunk.get()));

    auto reread = KXResourceFile::resourceFileWithPath(path);
    ASSERT_TRUE(reread);
    ASSERT_EQ(reread->resources().size(), 1u);
    EXPECT_EQ(reread->resourceForType(KXFourCC("STR "), 1000)->data(), bytesOf("\x01" "3"));
    ASSERT_TRUE(replacement->removeFromFile(*fork));
    EXPECT_TRUE(KXResourceFile::resourceFileWithPath(path)->resources().empty());
}
