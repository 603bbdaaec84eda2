// Property lists from hostile files: nesting, shared references, cycles and text that is not
// UTF-8, in both forms. Each list is built here byte by byte.

#include "KXBase/KXPropertyList.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "KXBase/KXString.h"
#include "support/KXTestSupport.h"

namespace {

// A binary property list from its objects (each one's bytes, references as 4-byte numbers):
// "bplist00", the objects, a table of 4-byte offsets, the 32-byte trailer.
KXData binaryList(const std::vector<KXData>& objects, std::uint64_t top = 0) {
    KXData bytes = bytesOf("bplist00");
    std::vector<std::uint32_t> offsets;
    for (const KXData& object : objects) {
        offsets.push_back(std::uint32_t(bytes.size()));
        bytes.insert(bytes.end(), object.begin(), object.end());
    }
    const std::uint64_t table = bytes.size();
    const auto put = [&](std::uint64_t value, int size) {
        for (int shift = (size - 1) * 8; shift >= 0; shift -= 8) bytes.push_back(std::uint8_t(value >> shift));
    };
    for (std::uint32_t offset : offsets) put(offset, 4);
    bytes.insert(bytes.end(), 6, 0);
    bytes.push_back(4);  // offset size
    bytes.push_back(4);  // reference size
    put(objects.size(), 8);
    put(top, 8);
    put(table, 8);
    return bytes;
}

// An array (or, with `marker` 0xD0, a dictionary) of 4-byte references.
KXData container(const std::vector<std::uint32_t>& references, std::uint8_t marker = 0xA0) {
    const std::size_t count = marker == 0xD0 ? references.size() / 2 : references.size();
    KXData bytes;
    if (count < 15) {
        bytes.push_back(std::uint8_t(marker | count));
    } else {
        bytes = {std::uint8_t(marker | 0x0F), 0x12};  // the count follows as a 4-byte integer
        for (int shift = 24; shift >= 0; shift -= 8) bytes.push_back(std::uint8_t(count >> shift));
    }
    for (std::uint32_t reference : references)
        for (int shift = 24; shift >= 0; shift -= 8) bytes.push_back(std::uint8_t(reference >> shift));
    return bytes;
}

KXData asciiString(const std::string& text) {
    KXData bytes{std::uint8_t(0x50 | text.size())};
    bytes.insert(bytes.end(), text.begin(), text.end());
    return bytes;
}

}  // namespace

TEST(KXPropertyListHostile, NestingBeyondTheLimitIsRefusedWithoutRecursingThatDeep) {
    // 100,000 arrays each holding the next: refused, not a stack overflow.
    constexpr std::uint32_t kDepth = 100000;
    std::vector<KXData> objects;
    for (std::uint32_t i = 0; i + 1 < kDepth; ++i) objects.push_back(container({i + 1}));
    objects.push_back(container({}));
    KXError error;
    EXPECT_FALSE(KXPropertyList::propertyListFromData(binaryList(objects), &error));
    EXPECT_EQ(error.code(), EINVAL);

    std::string xml = "<plist><array>";
    for (std::uint32_t i = 0; i < kDepth; ++i) xml += "<array>";
    for (std::uint32_t i = 0; i < kDepth; ++i) xml += "</array>";
    xml += "</array></plist>";
    EXPECT_FALSE(KXPropertyList::propertyListFromData(bytesOf(xml)));

    // Nesting within the limit still reads.
    objects.clear();
    for (std::uint32_t i = 0; i < 100; ++i) objects.push_back(container({i + 1}));
    objects.push_back(asciiString("deep"));
    auto value = KXPropertyList::propertyListFromData(binaryList(objects));
    ASSERT_TRUE(value);
    const KXValue* inner = &*value;
    for (int i = 0; i < 100; ++i) inner = &inner->array().at(0);
    EXPECT_EQ(inner->string(), "deep");
}

TEST(KXPropertyListHostile, SharedReferencesMayNotExpandFarBeyondTheListsSize) {
    // Each array holds the next one twice: 60 levels would expand to 2^60 objects.
    std::vector<KXData> objects;
    for (std::uint32_t i = 0; i < 60; ++i) objects.push_back(container({i + 1, i + 1}));
    objects.push_back(asciiString("x"));
    EXPECT_FALSE(KXPropertyList::propertyListFromData(binaryList(objects)));

    // Sharing that stays small reads: a dictionary whose 100 keys share one value.
    objects = {};
    std::vector<std::uint32_t> references;
    for (std::uint32_t i = 0; i < 100; ++i) {
        objects.push_back(asciiString("k" + std::to_string(i)));
        references.push_back(i);
    }
    for (std::uint32_t i = 0; i < 100; ++i) references.push_back(100);
    objects.push_back(asciiString("shared"));
    objects.push_back(container(references, 0xD0));
    auto value = KXPropertyList::propertyListFromData(binaryList(objects, 101));
    ASSERT_TRUE(value);
    EXPECT_EQ(value->dictionary().count(), 100u);
    EXPECT_EQ(value->dictionary().objectForKey("k99").string(), "shared");
}

TEST(KXPropertyListHostile, AContainerThatHoldsItselfIsRefused) {
    EXPECT_FALSE(KXPropertyList::propertyListFromData(binaryList({container({0})})));
    EXPECT_FALSE(KXPropertyList::propertyListFromData(binaryList({container({1}), container({0})})));
}

TEST(KXPropertyListHostile, BrokenTablesAndReferencesAreRefused) {
    const KXData good = binaryList({container({1}), asciiString("v")});
    ASSERT_TRUE(KXPropertyList::propertyListFromData(good));
    struct Case {
        const char* what;
        std::size_t at;
        std::uint8_t value;
    };
    const std::size_t trailer = good.size() - 32;
    for (const Case& c : {Case{"offset size 0", trailer + 6, 0}, Case{"reference size 9", trailer + 7, 9},
                          Case{"object count past the table", trailer + 15, 200},
                          Case{"top object out of range", trailer + 23, 7},
                          Case{"reference out of range", 8 + 4, 9},
                          Case{"offset into the trailer", trailer - 1, 0xF0}}) {
        SCOPED_TRACE(c.what);
        KXData broken = good;
        broken[c.at] = c.value;
        EXPECT_FALSE(KXPropertyList::propertyListFromData(broken));
    }
}

TEST(KXPropertyListHostile, TextThatIsNotUTF8ComesOutValid) {
    // An ASCII string object with Latin-1 bytes, UTF-16 with a lone surrogate, an XML string
    // with bytes that are no UTF-8.
    KXData latin1{0x54, 'c', 'a', 'f', 0xE9};
    KXData utf16{0x62, 0xD8, 0x3D, 0x00, 'A'};
    auto value = KXPropertyList::propertyListFromData(binaryList({container({1, 2}), latin1, utf16}));
    ASSERT_TRUE(value);
    EXPECT_EQ(value->array().at(0).string(), "caf\xEF\xBF\xBD");
    EXPECT_EQ(value->array().at(1).string(), "\xEF\xBF\xBD" "A");
    KXData xml = bytesOf("<plist><dict><key>k\xFF</key><string>x\xC3</string></dict></plist>");
    value = KXPropertyList::propertyListFromData(xml);
    ASSERT_TRUE(value);
    EXPECT_EQ(value->dictionary().objectForKey("k\xEF\xBF\xBD").string(), "x\xEF\xBF\xBD");
}

TEST(KXStringUTF8, InvalidSequencesBecomeOneReplacementEach) {
    struct Case {
        const char* bytes;
        const char* expected;
    };
    for (const Case& c : {Case{"plain", "plain"}, Case{"\xC3\xA9", "\xC3\xA9"}, Case{"\xF0\x9F\x8E\xB5", "\xF0\x9F\x8E\xB5"},
                          Case{"a\xFF" "b", "a\xEF\xBF\xBD" "b"},
                          Case{"\xC0\xAF", "\xEF\xBF\xBD\xEF\xBF\xBD"},           // overlong
                          Case{"\xED\xA0\x80", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},  // a surrogate
                          Case{"\xF4\x90\x80\x80", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},  // past U+10FFFF
                          Case{"\xE2\x82", "\xEF\xBF\xBD"},                          // cut short
                          Case{"\xE2\x82x", "\xEF\xBF\xBDx"}}) {
        SCOPED_TRACE(c.bytes);
        EXPECT_EQ(KXString::validUTF8(c.bytes), c.expected);
        EXPECT_TRUE(KXString::isValidUTF8(KXString::validUTF8(c.bytes)));
    }
}
