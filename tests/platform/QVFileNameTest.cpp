// Names that are not UTF-8 survive the trip into a QString and back.
#include "platform/QVFileName.h"

#include <QRandomGenerator>
#include <gtest/gtest.h>

TEST(QVFileName, EveryByteStringRoundTripsAndUtf8StaysUtf8)
{
    QRandomGenerator random(7);
    for (int round = 0; round < 20000; ++round) {
        QByteArray bytes(random.bounded(1, 24), '\0');
        for (char &b : bytes)
            b = char(random.bounded(1, 256));
        ASSERT_EQ(QVFileName::encode(QVFileName::decode(bytes)), bytes) << bytes.toHex().constData();
    }
    const QByteArray utf8 = QStringLiteral("Zapf Dingbats \u00e9\u4e2d\U0001F600.ttf").toUtf8();
    EXPECT_EQ(QVFileName::decode(utf8), QString::fromUtf8(utf8));
    EXPECT_FALSE(QVFileName::hasEscapes(QVFileName::decode(utf8)));
    // A real U+F78E in a name is kept apart from the escaped byte 0x8E.
    const QByteArray privateUse = QString(QChar(0xF78E)).toUtf8();
    EXPECT_NE(QVFileName::decode(privateUse), QVFileName::decode("\x8e"));
    EXPECT_EQ(QVFileName::encode(QVFileName::decode(privateUse)), privateUse);
    // Overlong and surrogate forms are bytes, not characters.
    for (const QByteArray &bad :
        { QByteArray("\xc0\xaf"), QByteArray("\xed\xa0\x80"), QByteArray("\xf4\x90\x80\x80") })
        EXPECT_TRUE(QVFileName::hasEscapes(QVFileName::decode(bad)));
}
