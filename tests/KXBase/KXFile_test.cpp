#include "KXBase/KXFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/KXTestSupport.h"

TEST(KXFileRead, BothByteOrdersPositionedAndSequential) {
    KXTemporaryFolder folder;
    auto file = KXFile::fileWithPath(folder.write("f", {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09}));
    ASSERT_TRUE(file);
    EXPECT_EQ(file->readIntValueAtPosition(0, KXByteOrder::big), 0x01020304u);
    EXPECT_EQ(file->readIntValueAtPosition(0, KXByteOrder::little), 0x04030201u);
    EXPECT_EQ(file->readLongLongValueAtPosition(1, KXByteOrder::big), 0x0203040506070809ull);
    EXPECT_EQ(file->position(), 0u);  // positioned reads leave the position alone
    EXPECT_EQ(file->readShortValue(KXByteOrder::little), 0x0201);
    EXPECT_EQ(file->readByteValue(), 0x03);
    EXPECT_EQ(file->position(), 3u);
    // Past the end: zeros, and data reads are as long as the file is.
    EXPECT_EQ(file->readIntValueAtPosition(7, KXByteOrder::big), 0x08090000u);
    EXPECT_EQ(file->readIntValueAtPosition(100, KXByteOrder::big), 0u);
    EXPECT_EQ(file->readDataOfLengthAtPosition(1u << 30, 6), (KXData{7, 8, 9}));
    EXPECT_TRUE(file->readDataOfLengthAtPosition(4, 50).empty());
    EXPECT_EQ(file->readDataOfLength(2), (KXData{4, 5}));
    EXPECT_EQ(file->position(), 5u);
}

TEST(KXFileWrite, WritesLengthAndErrors) {
    KXTemporaryFolder folder;
    auto file = KXFile::createFileAtPath(folder.pathFor("w"));
    ASSERT_TRUE(file);
    ASSERT_TRUE(file->writeIntValue(0x01020304, KXByteOrder::little));
    ASSERT_TRUE(file->writeShortValue(0xAABB, KXByteOrder::big));
    ASSERT_TRUE(file->writeLongLongValue(1, KXByteOrder::big));
    ASSERT_TRUE(file->writeIntValueToPosition(0x4A554E4B, 0, KXByteOrder::big));
    EXPECT_EQ(file->length(), 14u);
    ASSERT_TRUE(file->setLength(6));
    ASSERT_TRUE(file->synchronize());
    ASSERT_TRUE(file->moveToEnd());
    EXPECT_EQ(file->position(), 6u);
    ASSERT_TRUE(file->close());
    EXPECT_EQ(readWholeFile(folder.pathFor("w")), bytesOf("JUNK\xAA\xBB"));

    KXError error;
    auto readOnly = KXFile::fileWithPath(folder.pathFor("w"), KXFile::Mode::read);
    EXPECT_FALSE(readOnly->writeData({1}, &error));
    EXPECT_EQ(error.domain(), KXPOSIXErrorDomain);
    EXPECT_EQ(error.code(), EBADF);
    EXPECT_FALSE(KXFile::fileWithPath(folder.path(), KXFile::Mode::read, &error));
    EXPECT_EQ(error.code(), EISDIR);
    EXPECT_FALSE(KXFile::fileWithPath(folder.pathFor("nope"), KXFile::Mode::read, &error));
    EXPECT_EQ(error.code(), ENOENT);
    EXPECT_EQ(error.reason(), "No such file or directory");
    EXPECT_EQ(error.action(), "Opening " + folder.pathFor("nope"));
}

TEST(KXFileWholeFiles, MoveCopyAndDeleteCarryTheSidecarAndAttributes) {
    KXTemporaryFolder folder;
    const std::string a = folder.write("a.wav", bytesOf("audio"));
    folder.write("._a.wav", bytesOf("fork"));
    chmod(a.c_str(), 0640);
    const bool attributes = supportsUserAttributes(folder.path());
    if (attributes) {
        ASSERT_TRUE(KXFile::setTypeCode(KXFourCC("WAVE"), a));
    }

    ASSERT_TRUE(KXFile::copyPath(a, folder.pathFor("b.wav")));
    EXPECT_EQ(readWholeFile(folder.pathFor("b.wav")), bytesOf("audio"));
    EXPECT_EQ(readWholeFile(folder.pathFor("._b.wav")), bytesOf("fork"));
    struct stat info {};
    ASSERT_EQ(stat(folder.pathFor("b.wav").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0640u);
    if (attributes) {
        EXPECT_EQ(KXFile::typeCodeAtPath(folder.pathFor("b.wav")), KXFourCC("WAVE"));
    }

    KXError error;
    EXPECT_FALSE(KXFile::copyPath(a, folder.pathFor("b.wav"), &error));
    EXPECT_EQ(error.code(), EEXIST);
    EXPECT_FALSE(KXFile::movePath(a, folder.pathFor("b.wav"), &error));
    EXPECT_EQ(error.code(), EEXIST);
    EXPECT_EQ(readWholeFile(folder.pathFor("b.wav")), bytesOf("audio"));

    ASSERT_TRUE(KXFile::movePath(a, folder.pathFor("c.wav")));
    EXPECT_FALSE(KXFile::existsAtPath(a));
    EXPECT_FALSE(KXFile::existsAtPath(folder.pathFor("._a.wav")));
    EXPECT_EQ(readWholeFile(folder.pathFor("._c.wav")), bytesOf("fork"));

    ASSERT_TRUE(KXFile::deleteFileAtPath(folder.pathFor("c.wav")));
    EXPECT_FALSE(KXFile::existsAtPath(folder.pathFor("._c.wav")));
    EXPECT_FALSE(KXFile::deleteFileAtPath(folder.pathFor("c.wav"), &error));
    EXPECT_EQ(error.code(), ENOENT);

    ASSERT_TRUE(KXFile::createDirectoryAtPath(folder.pathFor("x/y/z")));
    EXPECT_TRUE(KXFile::isDirectoryAtPath(folder.pathFor("x/y/z")));
    EXPECT_TRUE(KXFile::createDirectoryAtPath(folder.pathFor("x/y")));
}

TEST(KXFilePaths, Components) {
    EXPECT_EQ(KXFile::sidecarPathForPath("/a/b.wav"), "/a/._b.wav");
    EXPECT_EQ(KXFile::sidecarPathForPath("b.wav"), "._b.wav");
    EXPECT_EQ(KXFile::directoryOfPath("/a/b.wav"), "/a");
    EXPECT_EQ(KXFile::directoryOfPath("/b.wav"), "/");
    EXPECT_EQ(KXFile::directoryOfPath("b.wav"), ".");
    EXPECT_EQ(KXFile::lastPathComponent("/a/b.wav"), "b.wav");
    EXPECT_EQ(KXFile::pathByAppendingComponent("/a/", "b"), "/a/b");
}
