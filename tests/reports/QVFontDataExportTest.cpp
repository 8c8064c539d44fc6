// The exported font data for a folder of real fonts, line by line: one line
// format per kind of font, names as the fonts' own tables give them.
#include "reports/QVFontDataExport.h"

#include "engine/QVStatus.h"
#include "platform/QVFileName.h"
#include "support/QVFixtures.h"
#include "support/QVTestHome.h"

#include <QDir>
#include <filesystem>
#include <gtest/gtest.h>

using namespace QVFixtures;

TEST(FontDataExport, EachKindOfFontHasItsLineFormat)
{
    QVTestHome home;
    const QString folder = home.path() + QStringLiteral("/fonts");
    QDir().mkpath(folder);
    // A Mac Roman name, as old collections carry them: shown as read.
    const QString ttf = folder + QLatin1Char('/') + QVFileName::decode("Caf\x8e.ttf");
    std::filesystem::copy_file(kDejaVuSans.toStdString(), QVFileName::encode(ttf).toStdString());
    const QString otf = copyFont(kP052Roman, folder);
    const QString lwfn = makeLwfn(folder, QStringLiteral("C059Ita"));
    const QString suitcase = folder + QStringLiteral("/DejaVu Serif");
    ASSERT_TRUE(makeSuitcase(suitcase, dejaVuSerifFork(home.path())));
    QList<QVFontFilePtr> files;
    for (const QString &path : { ttf, otf, lwfn, suitcase })
        files.append(examined(path));
    // A style with the separator in it keeps its columns.
    files.append(oneFontFile(folder + QStringLiteral("/Hand.otf")));
    files.last()->fontStatusArray.first()->fontStyle = QStringLiteral("Bold, Italic");
    // The foundry and the version key are the examiner's; the rest is the fonts' own.
    const auto tail = [&](int i) -> QString {
        const QVStatus &status = *files.at(i)->fontStatusArray.first();
        return (status.fontType ? status.fontFoundry : QStringLiteral("-")) + QStringLiteral(", ")
            + QString::number(status.fontVersion) + QStringLiteral(", ");
    };

    const QStringList lines = QString::fromUtf8(QVFontDataExport::csv(files)).split(QLatin1Char('\n'));
    EXPECT_EQ(lines,
        QStringList({ QStringLiteral("Type, Name, Style, Size, PostScript Name, Foundry, Version Key, Path"),
            QStringLiteral("TrueType, DejaVu Sans, Plain, , DejaVuSans, ") + tail(0) + folder
                + QStringLiteral("/Café.ttf"),
            QStringLiteral("OpenType, P052-Roman, Plain, , P052-Roman, ") + tail(1) + otf,
            QStringLiteral("PostScript Type 1, C059-Italic, , , C059-Italic, ") + tail(2) + lwfn,
            QStringLiteral("Bitmap, DejaVu Serif, Plain, 10, <none>, ") + tail(3) + suitcase,
            QStringLiteral("OpenType, Hand, Bold  Italic, , Hand-Regular, ") + tail(4) + folder
                + QStringLiteral("/Hand.otf"),
            QString() }));
    EXPECT_EQ(tail(1), QStringLiteral("URW, 0, "));
    EXPECT_EQ(tail(2).left(5), QStringLiteral("URW, "));
}
