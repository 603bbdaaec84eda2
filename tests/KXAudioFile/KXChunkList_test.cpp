#include "KXAudioFile/KXAudioFileWrapper/KXChunkList.h"

#include <gtest/gtest.h>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXBase/KXResourceFile.h"
#include "support/KXTestSupport.h"

namespace {

struct Walked {
    std::shared_ptr<KXAudioFile> audioFile;
    std::shared_ptr<KXChunkList> list;
    KXError error;
};

Walked walk(const std::string& path, const char* format, std::int32_t order) {
    Walked walked;
    walked.audioFile = KXAudioFile::audioFile();
    walked.audioFile->setPath(path);
    walked.audioFile->setFormat(fourCC(format));
    walked.audioFile->setBlockSizeByteOrder(order);
    walked.list = KXChunkList::chunkListForAudioFile(*walked.audioFile, &walked.error);
    return walked;
}

std::vector<std::string> typesOf(const KXChunkArray& chunks) {
    std::vector<std::string> types;
    for (const auto& chunk : chunks) types.push_back(KXFourCCString(chunk->type()));
    return types;
}

KXTestFile smallWave() {
    return KXTestFile::riff()
        .chunk("fmt ", KXData(16, 1))
        .chunk("data", KXData(10, 0x55))
        .chunk("LIST", bytesOf("INFOINAM\x02\0\0\0hi"));
}

}  // namespace

TEST(KXChunkListWalk, AChunkSizeFarPastTheEndIsRetriedThenEndsTheWalk) {
    // An implausible header is retried one byte on; with no room left for a header the walk
    // ends there, and a parser then finds its data chunk missing.
    KXTemporaryFolder folder;
    auto w = walk(folder.write("a.wav", KXTestFile::riff().chunk("fmt ", KXData(16)).bytes(bytesOf("data\x40\0\0\0")).finish().data()),
                  "WAVE", 1);
    ASSERT_TRUE(w.list);
    EXPECT_EQ(typesOf(w.list->chunks()[0]), (std::vector<std::string>{"fmt "}));
}

TEST(KXChunkListWalk, RiffFileWithDataUnloadedAndListSubtype) {
    KXTemporaryFolder folder;
    auto w = walk(folder.write("a.wav", smallWave().finish().data()), "WAVE", 1);
    ASSERT_TRUE(w.list);
    EXPECT_EQ(w.error, KXError());
    ASSERT_EQ(w.list->chunks().size(), 1u);
    EXPECT_EQ(typesOf(w.list->chunks()[0]), (std::vector<std::string>{"fmt ", "data", "LIST"}));
    auto data = w.list->chunkOfType(KXFourCC("data"));
    EXPECT_TRUE(data->data().empty());
    EXPECT_EQ(data->length(), 10u);
    EXPECT_EQ(data->position(), 36u);
    EXPECT_EQ(data->dataPosition(), 44u);
    auto list = w.list->chunkOfTypeSubtype(KXFourCC("LIST"), KXFourCC("INFO"));
    ASSERT_TRUE(list);
    EXPECT_EQ(list->data(), bytesOf("INAM\x02\0\0\0hi"));  // the subtype is not kept in the payload
    EXPECT_EQ(list->format(), KXFourCC("WAVE"));
}

TEST(KXChunkListVerify, RiffSizeShortOfTheFileIsAdjustedWithAWarning) {
    KXTemporaryFolder folder;
    KXTestFile file = smallWave().finish().bytes({0, 0});  // two bytes past the declared size
    auto w = walk(folder.write("a.wav", file.data()), "WAVE", 1);
    ASSERT_TRUE(w.list);
    EXPECT_EQ(w.error.code(), KXAudioFileErrorFileSizeAdjusted);
    EXPECT_EQ(w.error.action(), "Verifying the chunks");
    EXPECT_EQ(w.error.reason(), "the file size was adjusted.");
    EXPECT_EQ(w.audioFile->fileSize(), file.data().size() - 2);
    EXPECT_EQ(w.list->chunks()[0].size(), 3u);
}

TEST(KXChunkListVerify, Failures) {
    struct Case {
        const char* name;
        KXData bytes;
        std::int64_t code;
    } cases[] = {
        {"RIFF size past the end", smallWave().finish().setU32At(4, 1000).data(), KXAudioFileErrorIncorrectFileSize},
        {"garbage after the last chunk", smallWave().bytes({0, 0, 0, 0, 0, 0, 0, 0, 0, 0}).finish().data(),
         KXAudioFileErrorChunkVerificationFailed},
        // The size passes (36 + 4 < 46), but header and payload end at 48, past the limit.
        {"last chunk past the limit", KXTestFile::riff().chunk("fmt ", KXData(16)).bytes(bytesOf("data\x04\0\0\0ab")).finish().data(),
         KXAudioFileErrorChunkVerificationFailed},
        {"shorter than a header", bytesOf("RIF"), KXAudioFileErrorIncorrectFileSize},
    };
    KXTemporaryFolder folder;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto w = walk(folder.write("bad.wav", c.bytes), "WAVE", 1);
        EXPECT_FALSE(w.list);
        EXPECT_EQ(w.error.code(), c.code);
        EXPECT_EQ(w.error.action(), "Verifying the chunks");
    }
}

TEST(KXChunkListWalk, PadBytesAndTheOneByteRetry) {
    KXTemporaryFolder folder;
    // 'NAME' of odd length requires its pad byte; an odd 'ANNO' written without one is found by
    // the retry; a skipped odd 'JUNK' is not padded by the walk.
    KXTestFile aiff = KXTestFile::aiff()
                          .chunk("NAME", bytesOf("abc"))
                          .chunk("ANNO", bytesOf("xyz"), false)
                          .chunk("COMM", KXData(18, 0))
                          .chunk("JUNK", KXData(3, 0), false)
                          .chunk("SSND", KXData(8, 0))
                          .finish();
    auto w = walk(folder.write("a.aif", aiff.data()), "AIFF", 2);
    ASSERT_TRUE(w.list) << w.error.description();
    EXPECT_EQ(typesOf(w.list->chunks()[0]), (std::vector<std::string>{"NAME", "ANNO", "COMM", "SSND"}));
    EXPECT_EQ(w.list->chunkOfType(KXFourCC("COMM"))->position(), 12u + 12 + 11);
    EXPECT_TRUE(w.list->chunkOfType(KXFourCC("SSND"))->data().empty());
    // In 'AIFC' the sample data is loaded like any other chunk.
    auto c = walk(folder.write("c.aif", aiff.data()), "AIFC", 2);
    ASSERT_TRUE(c.list);
    EXPECT_EQ(c.list->chunkOfType(KXFourCC("SSND"))->data().size(), 8u);
}

TEST(KXChunkListWalk, AppleLoopsApplicationChunkKeepsItsSignatureAsSubtype) {
    KXTemporaryFolder folder;
    auto w = walk(folder.write("a.aif", KXTestFile::aiff().chunk("APPL", bytesOf("auFMdata")).finish().data()), "AIFF", 2);
    ASSERT_TRUE(w.list);
    auto appl = w.list->chunkOfTypeSubtype(KXFourCC("APPL"), KXFourCC("auFM"));
    ASSERT_TRUE(appl);
    EXPECT_EQ(appl->data(), bytesOf("data"));
}

TEST(KXChunkListWalk, CafChunksAndAnAllOnesDataSize) {
    KXTemporaryFolder folder;
    KXData uuidPayload = bytesOf("0123456789ABCDEFpayload");
    KXTestFile caf = KXTestFile::caf().chunk("desc", KXData(32, 0)).chunk("uuid", uuidPayload).chunk("data", KXData(6, 1));
    caf.setU64At(caf.data().size() - 6 - 8, ~0ull);
    caf.bytes(KXData(4, 2));  // the all-ones data chunk runs to the end of the file, these too
    auto w = walk(folder.write("a.caf", caf.data()), "caff", 2);
    ASSERT_TRUE(w.list) << w.error.description();
    EXPECT_EQ(typesOf(w.list->chunks()[0]), (std::vector<std::string>{"desc", "uuid", "data"}));
    EXPECT_EQ(w.list->chunkOfType(KXFourCC("data"))->length(), 10u);
    const KXUUID uuid = *KXUUID::fromData(uuidPayload.data(), 16);
    auto found = w.list->chunkWithUUID(uuid);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->data(), bytesOf("payload"));
    EXPECT_FALSE(w.list->chunkWithUUID(KXUUID()));
}

TEST(KXChunkListWalk, Wave64SizesCountTheirHeaders) {
    KXTemporaryFolder folder;
    KXTestFile w64 = KXTestFile::wave64().chunk("fmt ", KXData(16, 3)).chunk("data", KXData(8, 4)).finish();
    auto w = walk(folder.write("a.w64", w64.data()), "WV64", 1);
    ASSERT_TRUE(w.list) << w.error.description();
    EXPECT_EQ(typesOf(w.list->chunks()[0]), (std::vector<std::string>{"fmt ", "data"}));
    EXPECT_EQ(w.list->chunkOfType(KXFourCC("fmt "))->data(), KXData(16, 3));
    EXPECT_EQ(w.list->chunkOfType(KXFourCC("data"))->length(), 8u);

    w64.bytes({0, 0, 0});
    auto longer = walk(folder.write("b.w64", w64.data()), "WV64", 1);
    ASSERT_TRUE(longer.list);
    EXPECT_EQ(longer.error.code(), KXAudioFileErrorFileSizeAdjusted);
    w64.setU64At(16, w64.data().size() + 1);
    EXPECT_EQ(walk(folder.write("c.w64", w64.data()), "WV64", 1).error.code(), KXAudioFileErrorIncorrectFileSize);
    // A chunk size below its own header is implausible, not a wrap-around.
    KXTestFile tiny = KXTestFile::wave64().chunk("fmt ", KXData(16, 3)).finish();
    tiny.setU64At(40 + 16, 3);
    EXPECT_EQ(walk(folder.write("d.w64", tiny.data()), "WV64", 1).error.code(),
              KXAudioFileErrorChunkVerificationFailed);
}

TEST(KXChunkListSplit, LookupsMarkingAndUnusedChunksOverEveryFile) {
    KXTemporaryFolder folder;
    folder.write("t.L.wav", smallWave().chunk("iXML", bytesOf("<a/>")).finish().data());
    folder.write("t.R.wav", smallWave().chunk("iXML", bytesOf("<b/>")).finish().data());
    auto w = walk(folder.pathFor("t.L.wav"), "WAVE", 1);
    ASSERT_TRUE(w.list) << w.error.description();
    ASSERT_EQ(w.list->chunks().size(), 2u);
    EXPECT_EQ(w.list->chunkOfType(KXFourCC("iXML"), 1)->data(), bytesOf("<b/>"));
    EXPECT_FALSE(w.list->chunkOfType(KXFourCC("iXML"), 2));  // an index equal to the file count
    w.list->usedChunkOfType(KXFourCC("iXML"));
    w.list->usedChunkOfTypeSubtype(KXFourCC("LIST"), KXFourCC("INFO"));
    EXPECT_TRUE(w.list->chunkOfType(KXFourCC("iXML"), 0)->used());
    EXPECT_TRUE(w.list->chunkOfType(KXFourCC("iXML"), 1)->used());
    EXPECT_EQ(typesOf(w.list->unusedChunks()), (std::vector<std::string>{"fmt ", "data", "fmt ", "data"}));
}

TEST(KXChunkListWalk, RexHasNoChunksAndSoundDesignerWalksTheResourceFork) {
    KXTemporaryFolder folder;
    auto rex = walk(folder.write("a.rx2", bytesOf("CAT garbage")), "REX2", 2);
    ASSERT_TRUE(rex.list);
    EXPECT_TRUE(rex.list->chunks().empty());
    EXPECT_TRUE(rex.list->unusedChunks().empty());
    EXPECT_FALSE(rex.list->chunkOfType(KXFourCC("CAT ")));

    const std::string sd = folder.write("a.sd", bytesOf("\x05\x38"));
    auto missing = walk(sd, "SFIL", 2);
    EXPECT_FALSE(missing.list);
    EXPECT_EQ(missing.error.domain(), KXPOSIXErrorDomain);
    EXPECT_EQ(missing.error.code(), ENOENT);

    auto fork = KXResourceFile::createResourceFileAtPath(sd);
    ASSERT_TRUE(fork->addResource(std::make_shared<KXResource>(KXFourCC("STR "), 1001, "Comments", bytesOf("\x02hi"))));
    auto w = walk(sd, "SFIL", 2);
    ASSERT_TRUE(w.list);
    auto chunk = w.list->chunkOfTypeName(KXFourCC("STR "), "Comments");
    ASSERT_TRUE(chunk);
    EXPECT_EQ(chunk->format(), KXFourCC("SDII"));  // every resource chunk, even of an 'SFIL' file
    EXPECT_EQ(chunk->chunkID(), 1001);
    EXPECT_EQ(chunk->pascalStringAtByte(0), "hi");
    EXPECT_EQ(w.list->chunkOfTypeChunkID(KXFourCC("STR "), 1001), chunk);
    EXPECT_FALSE(w.list->chunkOfTypeName(KXFourCC("STR "), "comments"));
}

TEST(KXChunkListWalk, SingleChunkReadAtAPathLeavesTheObjectsSizeAlone) {
    KXTemporaryFolder folder;
    auto file = KXAudioFile::audioFile();
    file->setFormat(KXFourCC("WAVE"));
    file->setBlockSizeByteOrder(1);
    file->setFileSize(7);
    const std::string other = folder.write("o.wav", smallWave().finish().bytes({0, 0}).data());
    auto fmt = file->chunkOfTypeAtPath(KXFourCC("fmt "), other);
    ASSERT_TRUE(fmt);
    EXPECT_EQ(fmt->data(), KXData(16, 1));
    EXPECT_EQ(file->fileSize(), 7u);
    EXPECT_FALSE(file->chunkOfTypeAtPath(KXFourCC("smpl"), other));
}
