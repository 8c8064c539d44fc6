// The files of installed packages, as the package manager lists them.
#include "platform/QVPackageFiles.h"

#include "support/QVPackageLists.h"
#include "support/QVTestHome.h"

#include <QFile>
#include <QFileInfo>
#include <gtest/gtest.h>

TEST(QVPackageFiles, ListedFilesAreFoundUnderEveryNameThatLeadsToThem)
{
    QVTestHome home;
    const QString owned = home.writeFile("usr/share/fonts/Owned.ttf", "x"),
                  other = home.writeFile("usr/share/fonts/Other.ttf", "y");
    ASSERT_TRUE(QFile::link(home.path() + "/usr", home.path() + "/merged"));
    ASSERT_TRUE(QFile::link(owned, home.path() + "/Link.ttf"));
    home.writeFile("dpkg/a.list", "/.\n/usr\n" + owned.toUtf8() + "\n");
    home.writeFile("dpkg/b.md5sums", other.toUtf8() + "\n");
    const QVPackageLists lists(home.path() + "/dpkg");
    for (const QString &path :
        QStringList { owned, home.path() + "/merged/share/fonts/Owned.ttf", home.path() + "/Link.ttf" })
        EXPECT_TRUE(QVPackageFiles::isPackageFile(path)) << qPrintable(path);
    // Only the *.list files count.
    for (const QString &path : QStringList { other, home.path() + "/usr/share/fonts/Gone.ttf" })
        EXPECT_FALSE(QVPackageFiles::isPackageFile(path)) << qPrintable(path);
    EXPECT_TRUE(QVPackageFiles::refusal(owned).startsWith(owned + " belongs to an installed package"));
}

TEST(QVPackageFiles, TheInstalledFontsOfThisSystemAreFound)
{
    const QString dejaVu = QStringLiteral("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf");
    if (!QFileInfo::exists(QVPackageFiles::listFolder() + "/fonts-dejavu-core.list"))
        GTEST_SKIP() << "no package list of the DejaVu fonts here";
    EXPECT_TRUE(QVPackageFiles::isPackageFile(dejaVu));
    QVTestHome home;
    const QString copy = home.path() + "/DejaVuSans.ttf";
    ASSERT_TRUE(QFile::copy(dejaVu, copy));
    EXPECT_FALSE(QVPackageFiles::isPackageFile(copy));
}
