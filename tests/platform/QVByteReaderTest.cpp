#include "platform/QVByteReader.h"

#include "platform/QVByteWriter.h"

#include <gtest/gtest.h>
#include <limits>

TEST(QVByteReader, ReadsBigEndianAndStaysFailedAfterAShortRead)
{
    const QByteArray data = QByteArray::fromHex("12345678fffe806162"); // ..."ab"
    QVByteReader in(data);
    EXPECT_EQ(in.u16(), 0x1234);
    EXPECT_EQ(in.at(0).u32(), 0x12345678u);
    EXPECT_EQ(in.at(4).i16(), -2);
    EXPECT_EQ(in.at(6).i8(), -128);
    EXPECT_EQ(in.at(0).i32(), 0x12345678);
    in.seek(7);
    EXPECT_EQ(in.bytes(2), QByteArrayView("ab"));
    EXPECT_TRUE(in.ok());
    EXPECT_EQ(in.remaining(), 0);
    // One byte short: nothing is read, and nothing after it either, even
    // where the bytes are there.
    QVByteReader cut(data);
    cut.seek(6);
    EXPECT_EQ(cut.u32(), std::nullopt);
    EXPECT_FALSE(cut.ok());
    EXPECT_EQ(cut.u8(), std::nullopt);
    EXPECT_FALSE(cut.seek(0));
    EXPECT_FALSE(cut.at(0).u8());
    EXPECT_EQ(cut.remaining(), 0);
}

TEST(QVByteReader, PositionsAndLengthsOutsideTheDataFail)
{
    const QByteArray data(8, 'x');
    const QVByteReader in(data);
    EXPECT_TRUE(in.at(8).ok()); // the end itself, with nothing left
    EXPECT_EQ(in.at(8).remaining(), 0);
    for (qint64 pos : { qint64(-1), qint64(9), std::numeric_limits<qint64>::max() })
        EXPECT_FALSE(in.at(pos).ok()) << pos;
    // Huge or negative lengths from a length field: refused, nothing allocated.
    for (qint64 n : { qint64(-1), qint64(9), std::numeric_limits<qint64>::max() }) {
        QVByteReader r = in.at(0);
        EXPECT_FALSE(r.bytes(n)) << n;
        EXPECT_FALSE(in.at(1).skip(n)) << n;
    }
    EXPECT_FALSE(in.has(1, std::numeric_limits<qint64>::max()));
    QVByteReader end = in.at(8);
    EXPECT_TRUE(end.skip(0) && end.bytes(0) && end.ok());
    QVByteReader empty((QByteArrayView()));
    EXPECT_TRUE(empty.bytes(0).has_value());
    EXPECT_FALSE(empty.u8());
}

TEST(QVByteWriter, AppendsAndOverwritesOnlyInside)
{
    QByteArray out;
    QVByteWriter w(out);
    w.u8(0x01).u16(0x0203).u32(0x04050607).bytes("zz");
    EXPECT_EQ(out, QByteArray::fromHex("010203040506077a7a"));
    EXPECT_TRUE(w.setU16(0, 0xAABB));
    EXPECT_TRUE(w.setU32(5, 0x11223344));
    EXPECT_FALSE(w.setU32(6, 0));
    EXPECT_FALSE(w.setU16(-1, 0));
    EXPECT_EQ(out, QByteArray::fromHex("aabb03040511223344"));
}
