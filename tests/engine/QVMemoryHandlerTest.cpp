#include "engine/QVMemoryHandler.h"

#include "engine/QVResouceFork.h"

#include <cstring>
#include <gtest/gtest.h>

namespace
{

QVResourceHandle bytesHandle(std::initializer_list<int> bytes)
{
    QByteArray data;
    for (int b : bytes)
        data.append(char(b));
    return newHandleFromBytes(data);
}

} // namespace

TEST(QVMemoryHandler, LongNeedsEightBytesFromItsOffset)
{
    QVMemoryHandler mem;
    // The same long at the end of 8 bytes reads 0, inside 12 bytes reads right.
    auto eight = bytesHandle({ 0, 0, 0, 0, 0x12, 0x34, 0x56, 0x78 });
    EXPECT_EQ(mem.Handle_ReadLong(eight, 4), 0);
    EXPECT_EQ(mem.Handle_ReadLong(eight, 0), 0x12345678 & 0); // bytes 0..3 are zero
    auto twelve = bytesHandle({ 0, 0, 0, 0, 0x12, 0x34, 0x56, 0x78, 0, 0, 0, 0 });
    EXPECT_EQ(mem.Handle_ReadLong(twelve, 4), 0x12345678);
    auto negative = bytesHandle({ 0xFF, 0xFF, 0xFF, 0xFE, 0, 0, 0, 0 });
    EXPECT_EQ(mem.Handle_ReadLong(negative, 0), -2);
    EXPECT_EQ(mem.Handle_ReadLong(twelve, -1), 0);
    EXPECT_EQ(mem.Handle_ReadLong(twelve, 5), 0);
}

TEST(QVMemoryHandler, ShortsAreSignExtendedWhateverTheName)
{
    QVMemoryHandler mem;
    auto h = bytesHandle({ 0xFF, 0xFE, 0x7F, 0xFF });
    EXPECT_EQ(mem.Handle_ReadUnsignedShort(h, 0), -2);
    EXPECT_EQ(mem.Handle_ReadShort(h, 0), -2);
    EXPECT_EQ(mem.Handle_ReadShort(h, 2), 0x7FFF);
    EXPECT_EQ(mem.Handle_ReadUnsignedShort(h, 2), 0x7FFF);
    // One byte short of a value.
    EXPECT_EQ(mem.Handle_ReadUnsignedShort(h, 3), 0);
    EXPECT_EQ(mem.Handle_ReadShort(h, 3), 0);
    EXPECT_EQ(mem.Handle_ReadShort(h, 1000000), 0);
    EXPECT_EQ(mem.Handle_ReadShort(h, -2), 0);
    // The signed read tolerates a null handle.
    EXPECT_EQ(mem.Handle_ReadShort(nullptr, 0), 0);
}

TEST(QVMemoryHandler, CharIsSignedAndRangeChecked)
{
    QVMemoryHandler mem;
    auto h = bytesHandle({ 0x80, 0x7F });
    EXPECT_EQ(mem.Handle_ReadChar(h, 0), -128);
    EXPECT_EQ(mem.Handle_ReadChar(h, 1), 127);
    EXPECT_EQ(mem.Handle_ReadChar(h, 2), 0);
    EXPECT_EQ(mem.Handle_ReadChar(h, -1), 0);
}

TEST(QVMemoryHandler, PStringNeedsItsWholeLengthInsideTheData)
{
    QVMemoryHandler mem;
    auto h = bytesHandle({ 3, 'a', 'b', 'c', 5, 'x' });
    const auto p = mem.Handle_ReadPString(h, 0);
    ASSERT_EQ(p[0], 3);
    EXPECT_EQ(std::memcmp(p.data() + 1, "abc", 3), 0);
    EXPECT_EQ(mem.toCStr(p.data()), "abc");
    // Length 5 at offset 4 runs past the 6 bytes: empty.
    EXPECT_EQ(mem.Handle_ReadPString(h, 4)[0], 0);
    // size > offset + 1 is required even for an empty string at the last byte.
    auto tail = bytesHandle({ 'z', 0 });
    EXPECT_EQ(mem.Handle_ReadPString(tail, 1)[0], 0);
    EXPECT_EQ(mem.Handle_ReadPString(h, -3)[0], 0);
}

TEST(QVMemoryHandler, StringTestsTheFirstByteAsIfItWereALength)
{
    QVMemoryHandler mem;
    auto h = bytesHandle({ 2, 'H', 'i', 0, 'x' });
    const auto s = mem.Handle_ReadString(h, 0, 3);
    EXPECT_EQ(std::memcmp(s.data(), "\x02Hi\0", 4), 0);
    // 'H' (72) at offset 1 is taken as a length and fails the test: cleared buffer.
    auto small = bytesHandle({ 0, 'H', 'i' });
    EXPECT_EQ(mem.Handle_ReadString(small, 1, 2)[0], 0);
    // Length 0 copies nothing.
    EXPECT_EQ(mem.Handle_ReadString(h, 0, 0)[0], 0);
    // A length beyond the data copies only what is there, never past it.
    const auto clipped = mem.Handle_ReadString(h, 0, 1000);
    EXPECT_EQ(clipped[0], 2);
    EXPECT_EQ(clipped[4], 'x');
    EXPECT_EQ(clipped[5], 0);
    // A huge length stays inside the 1024-byte buffer and keeps its last byte 0.
    auto big = newHandleFromBytes(QByteArray(4000, 'A').prepend(char(1)));
    const auto full = mem.Handle_ReadString(big, 0, 5000);
    EXPECT_EQ(full[1022], 'A');
    EXPECT_EQ(full[1023], 0);
}

TEST(QVMemoryHandler, WritesKeepTheirRangeRules)
{
    QVMemoryHandler mem;
    auto h = newHandle(8);
    mem.Handle_WriteShort(h, 6, -2);
    EXPECT_EQ(mem.Handle_ReadUnsignedShort(h, 6), -2);
    mem.Handle_WriteShort(h, 7, 0x1234); // would end past the data
    EXPECT_EQ(quint8(h->data.at(7)), 0xFE);
    mem.Handle_WriteLong(h, 0, 0x01020304);
    EXPECT_EQ(mem.Handle_ReadLong(h, 0), 0x01020304);
    // A long write also wants 8 bytes: at offset 4 of 8 nothing is written.
    mem.Handle_WriteLong(h, 4, 0x7F7F7F7F);
    EXPECT_EQ(h->data.mid(4), QByteArray::fromHex("0000fffe"));
    mem.Handle_WriteShort(nullptr, 0, 1);
    mem.Handle_WriteLong(h, -4, 1);
    EXPECT_EQ(h->lockCount, 0);
}

TEST(QVMemoryHandler, DoubleToSingleDropsZeroBytes)
{
    QVMemoryHandler mem;
    const unsigned char source[] = { 0, 'A', 0, 'b', 0, 'C' };
    unsigned char dest[8];
    std::memset(dest, 'x', sizeof dest);
    mem.doubleToSingleConversion(source, 6, dest, 8, 6);
    EXPECT_STREQ(reinterpret_cast<const char *>(dest), "AbC");
    // min(destSize - 1, sourceLength, sourceSize) source bytes only.
    std::memset(dest, 'x', sizeof dest);
    mem.doubleToSingleConversion(source, 6, dest, 3, 6);
    EXPECT_EQ(dest[0], 'A');
    EXPECT_EQ(dest[1], 0);
    EXPECT_EQ(dest[3], 'x');
    mem.doubleToSingleConversion(source, 6, dest, 8, 4);
    EXPECT_STREQ(reinterpret_cast<const char *>(dest), "Ab");
    mem.doubleToSingleConversion(source, 6, dest, 8, 3);
    EXPECT_STREQ(reinterpret_cast<const char *>(dest), "A");
    mem.doubleToSingleConversion(nullptr, 6, dest, 8, 3);
    EXPECT_STREQ(reinterpret_cast<const char *>(dest), "A");
}

TEST(QVMemoryHandler, PCopyCopiesLengthAndBytes)
{
    QVMemoryHandler mem;
    const unsigned char source[] = { 4, 'F', 'O', 'N', 'D', 'z' };
    unsigned char dest[256] = {};
    mem.pCopy(dest, source);
    EXPECT_EQ(dest[0], 4);
    EXPECT_EQ(std::memcmp(dest + 1, "FOND", 4), 0);
    EXPECT_EQ(dest[5], 0);
}

#ifndef NDEBUG
TEST(QVMemoryHandlerDeathTest, NullHandleIsAProgrammingError)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    QVMemoryHandler mem;
    EXPECT_DEATH(mem.Handle_ReadLong(nullptr, 0), "h != NULL");
    EXPECT_DEATH(mem.Handle_ReadUnsignedShort(nullptr, 0), "h != NULL");
    EXPECT_DEATH(mem.toCStr(nullptr), "ch != NULL");
}
#else
TEST(QVMemoryHandler, NullHandleReadsZeroInReleaseBuilds)
{
    QVMemoryHandler mem;
    EXPECT_EQ(mem.Handle_ReadLong(nullptr, 0), 0);
    EXPECT_EQ(mem.Handle_ReadUnsignedShort(nullptr, 0), 0);
    EXPECT_EQ(mem.Handle_ReadChar(nullptr, 0), 0);
    EXPECT_EQ(mem.Handle_ReadPString(nullptr, 0)[0], 0);
    EXPECT_EQ(mem.Handle_ReadString(nullptr, 0, 10)[0], 0);
    EXPECT_TRUE(mem.toCStr(nullptr).isEmpty());
}
#endif

TEST(QVResouceForkMessages, ErrorMessageTable)
{
    const struct {
        int code;
        const char *text;
    } table[] = {
        { -33, "Folder is full" },
        { -34, "Disk is full" },
        { -35, "No such volume" },
        { -36, "Disk I/O error" },
        { -37, "Bad file name" },
        { -38, "File not opened" },
        { -39, "Unexpected end of file" },
        { -42, "Too many file opened" },
        { -43, "File not found" },
        { -44, "Disk is write protected" },
        { -45, "File is locked" },
        { -46, "Volume is locked" },
        { -47, "File is busy (delete)" },
        { -48, "Duplicate filename (rename)" },
        { -49, "File already open with with write permission" },
        { -51, "File cant be opened (rfNum)" },
        { -52, "File position error" },
        { -53, "Volume not on line error (was ejected)" },
        { -54, "Permissions error (on file open)" },
        { -55, "Volume already on-line" },
        { -56, "Volume not found" },
        { -57, "Not a mac disk" },
        { -58, "Volume belongs to an external file system" },
        { -59, "Internal error during rename" },
        { -60, "Bad disk (master directory block)" },
        { -61, "Write permissions error" },
        { -120, "Folder not found" },
        { -124, "Server disconnected" },
        { -185, "Extended resource has a bad format" },
        { -186, "Can't decompress a compressed resource" },
        { -188, "Resource already in memory" },
        { -189, "Writing past end of file" },
        { -190, "Offset or count out of bounds" },
        { -192, "Resource not found" },
        { -193, "Resource file not found" },
        { -194, "AddResource failed" },
        { -195, "AddReference failed" },
        { -196, "RmveResource failed" },
        { -197, "RmveReference failed" },
        { -198, "Inconsistent attribute" },
        { -199, "Inconsistent resource map" },
    };
    for (const auto &row : table)
        EXPECT_EQ(QVResouceFork::errorMessageForCode(row.code), QString::fromUtf8(row.text)) << row.code;
    for (int code : { -40, -41, -50, -187, -191, 0, 1, 255, -32, -200, -108 })
        EXPECT_EQ(QVResouceFork::errorMessageForCode(code), QStringLiteral("Resource error (%1)").arg(code));
    EXPECT_EQ(QVResouceFork::errorMessageForCode(-50), QStringLiteral("Resource error (-50)"));
}

TEST(QVResouceForkMessages, PascalStringsAreMacRoman)
{
    unsigned char buffer[256];
    ASSERT_TRUE(QVResouceFork::pascalString(QStringLiteral("Café ƒ™"), buffer, sizeof buffer));
    EXPECT_EQ(buffer[0], 7);
    EXPECT_EQ(buffer[4], 0x8E); // é
    EXPECT_EQ(buffer[6], 0xC4); // ƒ
    EXPECT_EQ(buffer[7], 0xAA); // ™
    EXPECT_EQ(QVResouceFork::stringWithPascalString(buffer), QStringLiteral("Café ƒ™"));
    // No Mac Roman form, or too long for the buffer or a Pascal string.
    EXPECT_FALSE(QVResouceFork::pascalString(QStringLiteral("漢"), buffer, sizeof buffer));
    EXPECT_FALSE(QVResouceFork::pascalString(QStringLiteral("abcd"), buffer, 4));
    EXPECT_FALSE(QVResouceFork::pascalString(QString(256, QLatin1Char('a')), buffer, sizeof buffer));
    EXPECT_TRUE(QVResouceFork::pascalString(QString(255, QLatin1Char('a')), buffer, sizeof buffer));
    // Every byte maps to a character and back.
    for (int b = 0; b < 256; ++b) {
        const QString s = QVResouceFork::fromMacRoman(QByteArray(1, char(b)));
        QByteArray back;
        ASSERT_TRUE(QVResouceFork::toMacRoman(s, &back)) << b;
        EXPECT_EQ(quint8(back.at(0)), b);
    }
    EXPECT_EQ(qvFourCC("FOND"), 0x464F4E44u);
    EXPECT_EQ(qvFourCCString(0x464F4E44u), QStringLiteral("FOND"));
}
