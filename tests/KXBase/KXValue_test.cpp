#include "KXBase/KXValue.h"

#include <gtest/gtest.h>
#include <plist/plist.h>

#include <cstdint>
#include <cstdlib>

#include "KXBase/KXPropertyList.h"

TEST(KXValueAccessors, NumbersAndStringsConvertLikeNumberObjects) {
    EXPECT_EQ(KXValue("  -42 dB").intValue(), -42);
    EXPECT_EQ(KXValue("abc").intValue(), 0);
    EXPECT_EQ(KXValue("99999999999999999999").longLongValue(), INT64_MAX);
    EXPECT_EQ(KXValue(3.9).intValue(), 3);
    EXPECT_EQ(KXValue(1e30).longLongValue(), INT64_MAX);
    EXPECT_EQ(KXValue(std::uint64_t(1) << 63).unsignedLongLongValue(), std::uint64_t(1) << 63);
    EXPECT_EQ(KXValue(7).stringValue(), "7");
    EXPECT_EQ(KXValue(0.5).stringValue(), "0.5");
    EXPECT_FLOAT_EQ(KXValue("120.5").floatValue(), 120.5f);
    EXPECT_TRUE(KXValue("YES").boolValue());
    EXPECT_TRUE(KXValue(0.25).boolValue());
    EXPECT_FALSE(KXValue().boolValue());
    EXPECT_EQ(KXValue(KXData{1}).intValue(), 0);
    EXPECT_TRUE(KXValue(KXArray{}).string().empty());
}

TEST(KXDictionaryOrder, KeepsInsertionOrderAndReplacesInPlace) {
    KXDictionary d{{"b", 1}, {"a", 2}};
    d.setObject(3, "b");
    d.setObject(4, "c");
    EXPECT_EQ(d.keys(), (std::vector<std::string>{"b", "a", "c"}));
    EXPECT_EQ(d.objectForKey("b").intValue(), 3);
    EXPECT_TRUE(d.objectForKey("missing").isNull());
    d.removeObjectForKey("a");
    EXPECT_EQ(d.keys(), (std::vector<std::string>{"b", "c"}));
    KXDictionary more{{"c", 9}, {"d", 10}};
    d.addEntriesFromDictionary(more);
    EXPECT_EQ(d.count(), 3u);
    EXPECT_EQ(d.objectForKey("c").intValue(), 9);
}

TEST(KXPropertyListForms, XmlAndBinaryRoundTripEveryKind) {
    KXDictionary inner{{"data", KXData{0, 1, 254, 255}}, {"date", KXDate{1700000000}}};
    const KXValue value(KXDictionary{{"name", "Take 1"},
                                     {"negative", -5},
                                     {"rate", 44100},
                                     {"gain", 0.5},
                                     {"flag", true},
                                     {"list", KXArray{1, "two", KXArray{}}},
                                     {"inner", inner}});
    for (bool binary : {false, true}) {
        SCOPED_TRACE(binary ? "binary" : "xml");
        const KXData bytes = binary ? KXPropertyList::binaryData(value) : KXPropertyList::xmlData(value);
        auto back = KXPropertyList::propertyListFromData(bytes);
        ASSERT_TRUE(back);
        EXPECT_EQ(*back, value);
    }
    const KXData binary = KXPropertyList::binaryData(value);
    EXPECT_EQ(std::string(binary.begin(), binary.begin() + 6), "bplist");
    const KXValue fine(KXDate{1700000000.25});  // the binary form keeps fractions of a second
    EXPECT_EQ(*KXPropertyList::propertyListFromData(KXPropertyList::binaryData(fine)), fine);
}

TEST(KXPropertyListForms, BinaryListsOfEverySizeReadHereAndInLibplist) {
    // Sizes that change the encoding: lengths past the marker's nibble and past 16 bits, more
    // than 255 objects (two-byte references), text that is not ASCII (UTF-16 with a surrogate
    // pair), integers of every width and unsigned 64-bit values past the signed range.
    KXArray many;
    for (int i = 0; i < 300; ++i) many.push_back(i * 1000003LL - 150000000LL);
    KXData large(70000);
    for (std::size_t i = 0; i < large.size(); ++i) large[i] = std::uint8_t(i * 7);
    const KXValue value(KXDictionary{{"Café ♪ 𝄞", "Ünïcödé 𝄞 text that runs past fifteen units"},
                                     {"many", many},
                                     {"large", large},
                                     {"small", KXData{1, 2, 3}},
                                     {"widths", KXArray{0, 255, 256, 65535, 65536, 4294967295LL, 4294967296LL, INT64_MAX, -1}},
                                     {"unsigned", std::uint64_t(UINT64_MAX)},
                                     {"date", KXDate{1700000000.5}},
                                     {"nothing", KXDictionary{}}});
    const KXData bytes = KXPropertyList::binaryData(value);
    const auto back = KXPropertyList::propertyListFromData(bytes);
    ASSERT_TRUE(back);
    KXValue expected = value;
    // Integers come back signed: the unsigned one reads as its bit pattern.
    expected.mutableDictionary()->setObject(static_cast<long long>(UINT64_MAX), "unsigned");
    EXPECT_EQ(*back, expected);

    // libplist reads the same list: through its XML, it gives the same values.
    plist_t node = nullptr;
    plist_from_bin(reinterpret_cast<const char*>(bytes.data()), std::uint32_t(bytes.size()), &node);
    ASSERT_NE(node, nullptr);
    char* xml = nullptr;
    std::uint32_t length = 0;
    plist_to_xml(node, &xml, &length);
    plist_free(node);
    ASSERT_NE(xml, nullptr);
    const auto fromXML = KXPropertyList::propertyListFromData(KXData(xml, xml + length));
    std::free(xml);
    ASSERT_TRUE(fromXML);
    const KXDictionary& d = fromXML->dictionary();
    EXPECT_EQ(d.objectForKey("Café ♪ 𝄞").string(), "Ünïcödé 𝄞 text that runs past fifteen units");
    EXPECT_EQ(d.objectForKey("many"), value.dictionary().objectForKey("many"));
    EXPECT_EQ(d.objectForKey("large").data(), large);
    EXPECT_EQ(d.objectForKey("widths"), value.dictionary().objectForKey("widths"));
    EXPECT_EQ(d.objectForKey("date").date().secondsSince1970, 1700000000.0);  // XML keeps whole seconds
}

TEST(KXPropertyListForms, GarbageIsRefused) {
    KXError error;
    EXPECT_FALSE(KXPropertyList::propertyListFromData({'n', 'o', 'p', 'e'}, &error));
    EXPECT_EQ(error.code(), EINVAL);
    EXPECT_FALSE(KXPropertyList::propertyListFromData({}));
    KXData truncated = KXPropertyList::binaryData(KXValue(KXDictionary{{"k", "v"}}));
    truncated.resize(truncated.size() - 10);
    EXPECT_FALSE(KXPropertyList::propertyListFromData(truncated));
}
