#include "KXBase/KXResourceFile.h"

#include <gtest/gtest.h>

#include "KXBase/KXByteOrder.h"
#include "KXBase/KXFile.h"
#include "support/KXTestSupport.h"

namespace {
std::shared_ptr<KXResource> resource(const char* type, std::int16_t id, std::optional<std::string> name, const KXData& data) {
    return std::make_shared<KXResource>(fourCC(type), id, std::move(name), data);
}
}  // namespace

TEST(KXResourceFork, ForkBytesFollowTheClassicLayout) {
    const KXData fork = KXResourceFile::resourceForkData(
        {resource("STR ", 1000, "size", bytesOf("\x01" "2")), resource("sdML", 128, std::nullopt, {})});
    auto be32 = [&](std::size_t at) { return kx::load32(fork.data() + at, KXByteOrder::big); };
    auto be16 = [&](std::size_t at) { return kx::load16(fork.data() + at, KXByteOrder::big); };
    EXPECT_EQ(be32(0), 256u);                  // data offset
    EXPECT_EQ(be32(8), 4u + 2 + 4 + 0);        // data length: two length-prefixed resources
    EXPECT_EQ(be32(4), 256u + be32(8));        // the map follows the data
    const std::size_t map = be32(4);
    EXPECT_EQ(be32(map), 256u);                // the map begins with a copy of the header
    const std::size_t types = map + be16(map + 24);
    EXPECT_EQ(be16(types), 1u);                // two types, stored as count − 1
    EXPECT_EQ(be32(types + 2), KXFourCC("STR "));
    EXPECT_EQ(be16(types + 2 + 4), 0u);        // one resource of the type
    const std::size_t reference = types + be16(types + 2 + 6);
    EXPECT_EQ(std::int16_t(be16(reference)), 1000);
    const std::size_t names = map + be16(map + 26);
    EXPECT_EQ(fork[names + be16(reference + 2)], 4);  // Pascal string "size"

    auto parsed = KXResourceFile::resourcesFromForkData(fork);
    ASSERT_TRUE(parsed);
    ASSERT_EQ(parsed->size(), 2u);
    EXPECT_EQ((*parsed)[0]->name(), "size");
    EXPECT_EQ((*parsed)[0]->data(), bytesOf("\x01" "2"));
    EXPECT_FALSE((*parsed)[1]->name());
    EXPECT_EQ((*parsed)[1]->resourceID(), 128);
}

TEST(KXResourceFork, DamagedForksAreRefusedNotOverread) {
    KXData fork = KXResourceFile::resourceForkData({resource("STR ", 1, "n", bytesOf("abc"))});
    const std::size_t map = kx::load32(fork.data() + 4, KXByteOrder::big);
    struct Case {
        const char* name;
        std::size_t offset;
        std::uint8_t value;
    } breaks[] = {
        {"map offset past the end", 4, 0x7F},
        {"data length past the end", 8, 0x7F},
        {"type count larger than the map", map + 28, 0x7F},
        {"name offset past the map", 0, 0},  // set below
    };
    for (const Case& c : breaks) {
        SCOPED_TRACE(c.name);
        KXData broken = fork;
        if (c.offset == 0) {
            const std::size_t reference = map + 28 + 2 + 8;
            broken[reference + 2] = 0x7F;
        } else {
            broken[c.offset] = c.value;
        }
        EXPECT_FALSE(KXResourceFile::resourcesFromForkData(broken));
    }
    EXPECT_FALSE(KXResourceFile::resourcesFromForkData(KXData(10, 0)));
    EXPECT_TRUE(KXResourceFile::resourcesFromForkData({})->empty());
}

TEST(KXResourceFork, TypesThatShareTheirReferencesAreRefused) {
    // 2000 types all listing the same 65,536 references: an 800 KB map that would make 131
    // million resources.
    const std::uint32_t types = 2000, references = 65536;
    KXPayload map = KXPayload::big();
    map.bytes.resize(24, 0);
    map.u16(28).u16(0).u16(std::uint16_t(types - 1));
    for (std::uint32_t t = 0; t < types; ++t) map.u32(0x41000000 + t).u16(std::uint16_t(references - 1)).u16(std::uint16_t(2 + 8 * types));
    for (std::uint32_t r = 0; r < references; ++r) map.u16(1).u16(0xFFFF).u32(0).u32(0);
    KXPayload fork = KXPayload::big();
    fork.u32(256).u32(260).u32(4).u32(std::uint32_t(map.bytes.size()));
    fork.bytes.resize(256, 0);
    fork.u32(0).raw(map.bytes);
    EXPECT_FALSE(KXResourceFile::resourcesFromForkData(fork.bytes));
}

TEST(KXResourceFork, SidecarRoundTripKeepsOtherEntries) {
    KXTemporaryFolder folder;
    const std::string path = folder.write("take.sd2", bytesOf("samples"));
    KXError error;
    EXPECT_FALSE(KXResourceFile::resourceFileWithPath(path, KXResourceFile::Mode::read, &error));
    EXPECT_EQ(error.code(), ENOENT);

    auto fork = KXResourceFile::createResourceFileAtPath(path);
    ASSERT_TRUE(fork);
    ASSERT_TRUE(fork->addResource(resource("STR ", 1001, std::nullopt, bytesOf("\x05" "44100"))));
    ASSERT_TRUE(fork->addResource(resource("STR ", 1001, std::nullopt, bytesOf("\x05" "48000"))));  // replaces
    ASSERT_TRUE(fork->addResource(resource("KXAn", 1, "analysis", KXData(300, 7))));
    // A Finder-info entry in the sidecar survives rewrites.
    KXData sidecar = readWholeFile(KXFile::sidecarPathForPath(path));
    ASSERT_EQ(kx::load32(sidecar.data(), KXByteOrder::big), 0x00051607u);
    ASSERT_EQ(kx::load32(sidecar.data() + 26, KXByteOrder::big), 9u);
    const std::size_t finderInfo = kx::load32(sidecar.data() + 30, KXByteOrder::big);
    sidecar[finderInfo] = 'X';
    folder.write("._take.sd2", sidecar);

    auto reread = KXResourceFile::resourceFileWithPath(path, KXResourceFile::Mode::readWrite);
    ASSERT_TRUE(reread);
    ASSERT_EQ(reread->resources().size(), 2u);
    EXPECT_EQ(reread->resourceForType(KXFourCC("STR "), 1001)->data(), bytesOf("\x05" "48000"));
    EXPECT_EQ(reread->resourceForTypeName(KXFourCC("KXAn"), "analysis")->data(), KXData(300, 7));
    ASSERT_TRUE(reread->removeResource(*reread->resourceForType(KXFourCC("KXAn"), 1)));
    EXPECT_EQ(readWholeFile(KXFile::sidecarPathForPath(path))[finderInfo], 'X');
    EXPECT_EQ(KXResourceFile::resourceFileWithPath(path)->resources().size(), 1u);
    EXPECT_EQ(readWholeFile(path), bytesOf("samples"));  // the data fork is never touched

    folder.write("._bad", bytesOf("not an AppleDouble file at all"));
    EXPECT_FALSE(KXResourceFile::resourceFileWithPath(folder.pathFor("bad"), KXResourceFile::Mode::read, &error));
    EXPECT_EQ(error.code(), EINVAL);
    auto readOnly = KXResourceFile::resourceFileWithPath(path);
    EXPECT_FALSE(readOnly->addResource(resource("STR ", 1, std::nullopt, {}), &error));
    EXPECT_EQ(error.code(), EBADF);
}

TEST(KXResourceFork, BareForksInTheSidecarReadAndAreRewrittenAsAppleDouble) {
    KXTemporaryFolder folder;
    const std::string path = folder.write("take.sd2", bytesOf("samples"));
    KXData fork = KXResourceFile::resourceForkData(
        {resource("STR ", 1000, "sample-size", bytesOf("\x01" "2")), resource("sdML", 1000, "Marker", {})});
    // libsndfile's map is two bytes short: its last name runs past the fork's end.
    fork.resize(fork.size() - 2);
    const std::size_t mapLength = kx::load32(fork.data() + 12, KXByteOrder::big) - 2;
    kx::store32(fork.data() + 12, std::uint32_t(mapLength), KXByteOrder::big);
    folder.write("._take.sd2", fork);

    auto bare = KXResourceFile::resourceFileWithPath(path, KXResourceFile::Mode::readWrite);
    ASSERT_TRUE(bare);
    ASSERT_EQ(bare->resources().size(), 2u);
    EXPECT_EQ(bare->resources()[0]->name(), "sample-size");
    EXPECT_EQ(bare->resources()[1]->name(), "Mark");
    ASSERT_TRUE(bare->addResource(resource("KXAn", 1000, std::nullopt, bytesOf("abc"))));
    const KXData sidecar = readWholeFile(KXFile::sidecarPathForPath(path));
    EXPECT_EQ(kx::load32(sidecar.data(), KXByteOrder::big), 0x00051607u);
    EXPECT_EQ(KXResourceFile::resourceFileWithPath(path)->resources().size(), 3u);
}

TEST(KXResourceFork, WrittenSidecarsPutTheForkWhereLibsndfileLooks) {
    // libsndfile takes the fork at 0x52 of an AppleDouble file (after the header, two entries and
    // 32 bytes of Finder info) and wants it to end the file.
    KXTemporaryFolder folder;
    const std::string path = folder.write("take.sd2", bytesOf("samples"));
    auto fork = KXResourceFile::createResourceFileAtPath(path);
    ASSERT_TRUE(fork->setResources({resource("STR ", 1000, std::nullopt, bytesOf("\x01" "2")),
                                    resource("STR ", 1001, std::nullopt, bytesOf("\x05" "44100"))}));
    const KXData sidecar = readWholeFile(KXFile::sidecarPathForPath(path));
    EXPECT_EQ(kx::load16(sidecar.data() + 24, KXByteOrder::big), 2u);
    EXPECT_EQ(kx::load32(sidecar.data() + 38, KXByteOrder::big), 2u);     // the second entry is the fork
    EXPECT_EQ(kx::load32(sidecar.data() + 42, KXByteOrder::big), 0x52u);  // at 0x52
    EXPECT_EQ(0x52 + kx::load32(sidecar.data() + 46, KXByteOrder::big), sidecar.size());
    EXPECT_EQ(KXResourceFile::resourceFileWithPath(path)->resources().size(), 2u);
}
