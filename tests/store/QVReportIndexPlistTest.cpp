#include "store/QVPropertyList.h"

#include <QDateTime>
#include <QTemporaryDir>
#include <gtest/gtest.h>

TEST(ReportIndexPlist, ValuesSurviveTheRoundTrip)
{
    const QDateTime date(QDate(2026, 11, 21), QTime(10, 58, 56), Qt::UTC);
    const QVariantMap record { { "text", QStringLiteral("a <b> & \"c\" é") }, { "count", 42 },
        { "big", qint64(1) << 40 }, { "ratio", 0.25 }, { "on", true }, { "off", false }, { "date", date },
        { "bytes", QByteArray("\x00\xff", 2) }, { "names", QStringList { "x", "y" } },
        { "empty", QVariantList {} } };
    const QVariant back
        = QVPropertyList::fromXml(QVPropertyList::toXml(QVariantList { record, QVariantMap {} }));
    ASSERT_EQ(back.typeId(), QMetaType::QVariantList);
    const QVariantMap read = back.toList().first().toMap();
    EXPECT_EQ(read.value("text").toString(), record.value("text").toString());
    EXPECT_EQ(read.value("count").toLongLong(), 42);
    EXPECT_EQ(read.value("big").toLongLong(), qint64(1) << 40);
    EXPECT_DOUBLE_EQ(read.value("ratio").toDouble(), 0.25);
    EXPECT_EQ(read.value("on").typeId(), QMetaType::Bool);
    EXPECT_TRUE(read.value("on").toBool());
    EXPECT_FALSE(read.value("off").toBool());
    EXPECT_EQ(read.value("date").toDateTime(), date);
    EXPECT_EQ(read.value("bytes").toByteArray(), QByteArray("\x00\xff", 2));
    EXPECT_EQ(read.value("names").toStringList(), QStringList({ "x", "y" }));
    EXPECT_TRUE(read.value("empty").toList().isEmpty());
    EXPECT_TRUE(back.toList().at(1).toMap().isEmpty());
}

TEST(ReportIndexPlist, BadInputIsRefusedWithAnError)
{
    const QList<QByteArray> bad = {
        "",
        "<html></html>",
        "<plist version=\"1.0\"><dict><string>no key</string></dict></plist>",
        "<plist version=\"1.0\"><dict><key>k</key></dict></plist>",
        "<plist version=\"1.0\"><integer>12x</integer></plist>",
        "<plist version=\"1.0\"><date>yesterday</date></plist>",
        "<plist version=\"1.0\"><array><widget/></array></plist>",
        "<plist version=\"1.0\"><array><string>unclosed</array></plist>",
    };
    for (const QByteArray &xml : bad) {
        QString error;
        EXPECT_FALSE(QVPropertyList::fromXml(xml, &error).isValid()) << xml.constData();
        EXPECT_FALSE(error.isEmpty()) << xml.constData();
    }
    // Nesting is bounded, so a hostile index cannot exhaust the stack.
    QByteArray deep = "<plist version=\"1.0\">";
    for (int i = 0; i < 100000; ++i)
        deep += "<array>";
    QString error;
    EXPECT_FALSE(QVPropertyList::fromXml(deep, &error).isValid());
    EXPECT_FALSE(error.isEmpty());
}

TEST(ReportIndexPlist, WriteFileReplacesWholeOrReportsTheError)
{
    QTemporaryDir dir;
    const QString path = dir.path() + QStringLiteral("/dataSource");
    EXPECT_TRUE(QVPropertyList::writeFile(path, QVariantList { 1, 2 }).isNull());
    EXPECT_EQ(QVPropertyList::readFile(path).toList().size(), 2);
    EXPECT_TRUE(QVPropertyList::writeFile(path, QVariantList { 1 }).isNull());
    EXPECT_EQ(QVPropertyList::readFile(path).toList().size(), 1);
    EXPECT_FALSE(
        QVPropertyList::writeFile(dir.path() + QStringLiteral("/missing/dataSource"), QVariantList {})
            .isNull());
    QString error;
    EXPECT_FALSE(QVPropertyList::readFile(dir.path() + QStringLiteral("/none"), &error).isValid());
    EXPECT_FALSE(error.isEmpty());
}
