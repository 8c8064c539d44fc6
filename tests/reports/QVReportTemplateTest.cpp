#include <QFile>
#include <QRegularExpression>
#include <gtest/gtest.h>

namespace
{

QString templateText()
{
    QFile file(QStringLiteral(":/quorvel/QVReportTemplate1.html"));
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

} // namespace

TEST(ReportTemplate, HoldsEveryMarkerAndOneTableBlockWithOneRowBlock)
{
    const QString text = templateText();
    ASSERT_FALSE(text.isEmpty());
    for (const char *marker : { "<qv_user_name>", "<qv_computer_name>", "<qv_date>", "<qv_time>",
             "<qv_total_examined>", "<qv_total_problems>", "<qv_total_healthy>", "<qv_total_quarantined>",
             "<qv_diagnosis_header>", "<qv_row_color>", "<qv_diagnosis_fontName>", "<qv_diagnosis_location>",
             "<qv_diagnosis_condition>", "<qv_diagnosis_action>", "<qv_diagnosis_version>",
             "<qv_diagnosis_info_footer>" })
        EXPECT_TRUE(text.contains(QLatin1String(marker))) << marker;

    EXPECT_EQ(text.count(QStringLiteral("<qv_diagnosis_table>")), 1);
    EXPECT_EQ(text.count(QStringLiteral("</qv_diagnosis_table>")), 1);
    EXPECT_EQ(text.count(QStringLiteral("<qv_diagnosis_row>")), 1);
    EXPECT_EQ(text.count(QStringLiteral("</qv_diagnosis_row>")), 1);
    const qsizetype tableOpen = text.indexOf(QStringLiteral("<qv_diagnosis_table>"));
    const qsizetype rowOpen = text.indexOf(QStringLiteral("<qv_diagnosis_row>"));
    const qsizetype rowClose = text.indexOf(QStringLiteral("</qv_diagnosis_row>"));
    const qsizetype tableClose = text.indexOf(QStringLiteral("</qv_diagnosis_table>"));
    EXPECT_LT(tableOpen, rowOpen);
    EXPECT_LT(rowOpen, rowClose);
    EXPECT_LT(rowClose, tableClose);
    // The heading belongs to the table, the cells to the row.
    const QString table = text.mid(tableOpen, tableClose - tableOpen);
    const QString row = text.mid(rowOpen, rowClose - rowOpen);
    EXPECT_TRUE(table.contains(QStringLiteral("<qv_diagnosis_header>")));
    EXPECT_FALSE(row.contains(QStringLiteral("<qv_diagnosis_header>")));
    for (const char *cell : { "<qv_row_color>", "<qv_diagnosis_fontName>", "<qv_diagnosis_location>",
             "<qv_diagnosis_condition>", "<qv_diagnosis_action>" })
        EXPECT_TRUE(row.contains(QLatin1String(cell))) << cell;
}

TEST(ReportTemplate, IsASelfContainedPrintableDocument)
{
    const QString text = templateText();
    // No scripts and nothing fetched from elsewhere: a stored report opens the
    // same in a browser, a web view or on paper years later.
    EXPECT_FALSE(text.contains(QStringLiteral("<script"), Qt::CaseInsensitive));
    EXPECT_FALSE(
        text.contains(QRegularExpression(QStringLiteral("(src|href)=\"(?!https://quorvel\\.org/)"))));
    EXPECT_TRUE(text.contains(QStringLiteral("Content-Security-Policy")));
    EXPECT_TRUE(text.contains(QStringLiteral("@media print")));
    EXPECT_TRUE(text.contains(QStringLiteral("<meta charset=\"utf-8\">")));
}
