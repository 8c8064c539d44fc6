// PostScript outline files made by t1mac from the URW Type 1 fonts, and the
// file-level checks that go with them.
#include "QVDiagnoseFixtures.h"
#include "engine/QVFontConstants.h"
#include "engine/QVResouceFork.h"
#include "platform/QVForkStorage.h"
#include "support/QVTestHome.h"

#include <QDir>
#include <QFile>
#include <gtest/gtest.h>

using namespace QVDiagnoseFixtures;

namespace
{

class QVFontDiagnosePostScript : public ::testing::Test
{
protected:
    // t1mac writes the LWFN's fork and Finder info as an AppleDouble sidecar
    // beside an empty data file.
    QString makeLWFN(const QString &fileName, const QString &pfb = kC059RomanPfb)
    {
        const QString path = home.path() + QLatin1Char('/') + fileName;
        const QString sidecar = home.path() + QStringLiteral("/._") + fileName;
        QString log;
        EXPECT_TRUE(runTool(QStringLiteral("t1mac"), { "--appledouble", pfb, sidecar }, &log))
            << qPrintable(log);
        EXPECT_TRUE(writeFile(path, QByteArray()));
        return path;
    }

    QVTestHome home;
    QVFontDiagnose examiner;
};

} // namespace

TEST_F(QVFontDiagnosePostScript, CorrectFileNamePasses)
{
    const QString path = makeLWFN(QStringLiteral("C059Rom"));
    EXPECT_EQ(examiner.quotedTypeCode(path), "'LWFN'");
    EXPECT_TRUE(examiner.hasResourceFork(path));
    EXPECT_EQ(examiner.getType1PSname(path), "C059-Roman");
    Examination result = examine(examiner, path);
    ASSERT_EQ(result.statuses.size(), 1);
    const QVStatus &status = *result.statuses.first();
    EXPECT_EQ(result.result, 0);
    EXPECT_EQ(status.fontType, QVFontType::PostScriptType1);
    EXPECT_EQ(status.fontName, "C059-Roman");
    EXPECT_EQ(status.PSname, "C059-Roman");
    EXPECT_EQ(status.PS533name, "C059Rom");
    EXPECT_TRUE(status.fontErrorsInfo.isEmpty()) << qPrintable(status.fontErrorsInfo.join(", "));

    // The PostScript name itself is a correct file name too.
    Examination full = examine(examiner, makeLWFN(QStringLiteral("C059-Roman")));
    ASSERT_EQ(full.statuses.size(), 1);
    EXPECT_TRUE(full.statuses.first()->fontErrorsInfo.isEmpty());
}

TEST_F(QVFontDiagnosePostScript, RenamedCopyHasABadFileName)
{
    const QString path = makeLWFN(QStringLiteral("C059 Roman"));
    Examination result = examine(examiner, path);
    ASSERT_EQ(result.statuses.size(), 1);
    EXPECT_EQ(result.result, 1);
    EXPECT_EQ(result.statuses.first()->fontName, "C059 Roman");
    EXPECT_EQ(result.statuses.first()->PSname, "C059-Roman");
    EXPECT_EQ(result.statuses.first()->fontErrorsInfo, QStringList { "Bad File Name" });
}

TEST_F(QVFontDiagnosePostScript, MultipleMasterFileYieldsNoStatus)
{
    Examination result = examine(examiner, makeLWFN(QStringLiteral("C059MMRom")));
    EXPECT_TRUE(result.statuses.isEmpty());
    EXPECT_EQ(result.result, 0);
}

TEST_F(QVFontDiagnosePostScript, WrongFinderFlags)
{
    // t1mac gives the file a BNDL resource and sets the has-bundle flag;
    // clearing the flag makes the two disagree.
    const QString path = makeLWFN(QStringLiteral("C059Rom"));
    EXPECT_FALSE(examiner.validateFinderFlags(path));
    ASSERT_TRUE(setFinderInfo(path, "LWFN", 0));
    EXPECT_TRUE(examiner.validateFinderFlags(path));
    Examination result = examine(examiner, path);
    ASSERT_EQ(result.statuses.size(), 1);
    EXPECT_EQ(result.result, 1);
    EXPECT_EQ(result.statuses.first()->fontName, "C059-Roman");
    EXPECT_EQ(result.statuses.first()->fontErrorsInfo, QStringList { "Incorrect File Flags" });

    // Invisible and misnamed: both defects on the one status.
    const QString hidden = makeLWFN(QStringLiteral("Hidden C059"));
    ASSERT_TRUE(setFinderInfo(hidden, "LWFN", 0x6100));
    result = examine(examiner, hidden);
    ASSERT_EQ(result.statuses.size(), 1);
    EXPECT_EQ(
        result.statuses.first()->fontErrorsInfo, (QStringList { "Incorrect File Flags", "Bad File Name" }));

    // Flags that agree with the fork are right.
    ASSERT_TRUE(setFinderInfo(path, "LWFN", 0x2100));
    EXPECT_FALSE(examiner.validateFinderFlags(path));
}

TEST_F(QVFontDiagnosePostScript, MissingNamesAndType3Programs)
{
    // A fork with no POST resources: no PostScript name at all.
    const QString emptyFork = home.path() + QStringLiteral("/Nothing");
    ASSERT_TRUE(writeFile(emptyFork, QByteArray()));
    QVResouceFork fork;
    ASSERT_EQ(fork.createNewResourceFileAtPath(emptyFork, 0x41535043 /* ASPC */, 0x4C57464E /* LWFN */), 0);
    ASSERT_TRUE(setFinderInfo(emptyFork, "LWFN", 0));
    Examination missing = examine(examiner, emptyFork);
    ASSERT_EQ(missing.statuses.size(), 1);
    EXPECT_EQ(missing.result, 1);
    EXPECT_EQ(missing.statuses.first()->fontName, "Nothing");
    EXPECT_EQ(missing.statuses.first()->PSname, "<none>");
    EXPECT_EQ(missing.statuses.first()->fontErrorsInfo, QStringList { "Missing PostScript Name" });

    // A Type 3 program in the data fork is found there.
    ASSERT_TRUE(writeFile(emptyFork, "%!PS-AdobeFont-1.0\n/FontType 3 def\n/FontName /Ornaments def\n"));
    EXPECT_EQ(examiner.getType3PSname(emptyFork), "Ornaments");
    Examination type3 = examine(examiner, emptyFork);
    ASSERT_EQ(type3.statuses.size(), 1);
    EXPECT_EQ(type3.result, 0);
    EXPECT_EQ(type3.statuses.first()->fontType, QVFontType::PostScriptType3);
    EXPECT_EQ(type3.statuses.first()->fontName, "Ornaments");
    EXPECT_TRUE(type3.statuses.first()->fontErrorsInfo.isEmpty());
}

TEST(QVFontDiagnoseNames, PostScriptValueSearch)
{
    // Patterns in their order, each ending at its own character; the search
    // starts at the third byte.
    EXPECT_EQ(
        QVFontDiagnose::findPostScriptValue("xx/FontName /Times-Roman def", "/FontName"), "Times-Roman");
    EXPECT_EQ(
        QVFontDiagnose::findPostScriptValue("xx/FontName(Times Roman) def", "/FontName"), "Times Roman");
    EXPECT_EQ(
        QVFontDiagnose::findPostScriptValue("xx/FontName (Times) /FontName /Other ", "/FontName"), "Other");
    EXPECT_EQ(QVFontDiagnose::findPostScriptValue("xx/FontName/Tail", "/FontName"), "Tail");
    EXPECT_EQ(QVFontDiagnose::findPostScriptValue("/FontName /Early def", "/FontName"), "");
    EXPECT_EQ(QVFontDiagnose::findPostScriptValue("xx/version (001.005) def", "/version"), "001.005");
    EXPECT_EQ(
        QVFontDiagnose::findPostScriptValue("xx/FontName /" + QByteArray(400, 'A'), "/FontName").size(), 255);
}

TEST(QVFontDiagnoseNames, Names533)
{
    EXPECT_EQ(QVFontDiagnose::get533postScriptName("HelveticaNeue-BoldItalic"), "HelveNeuBolIta");
    EXPECT_EQ(QVFontDiagnose::get533postScriptName("Times-Roman"), "TimesRom");
    EXPECT_EQ(QVFontDiagnose::get533postScriptName(""), "");
    // No prefix is ever removed.
    EXPECT_EQ(QVFontDiagnose::get533postScriptName("ITC-Garamond"), "ITCGar");
    EXPECT_EQ(QVFontDiagnose::get533postScriptName("Univers_55-Roman"), "UniveRom");
    EXPECT_TRUE(QVFontDiagnose::isMultipleMaster("MinionMM"));
    EXPECT_FALSE(QVFontDiagnose::isMultipleMaster("Minionmm"));
    EXPECT_EQ(QVFontDiagnose::getVersionFromString("Version 2.37 . 1"), "Version2371");
}

TEST(QVFontDiagnoseFiles, FileAgeAndFontsFolder)
{
    QVTestHome home;
    QVFontDiagnose examiner;
    const QString path = home.writeFile(QStringLiteral("Aged.ttf"), "x");
    EXPECT_EQ(examiner.getFileVersion(path), 0);
    // Ten days older through the AppleDouble File Dates entry.
    ASSERT_TRUE(setFinderInfo(path, "TEXT", 0));
    ASSERT_EQ(
        QVForkStorage::setCreationDate(path, QDateTime::currentDateTimeUtc().addDays(-10).addSecs(-60)), 0);
    EXPECT_EQ(examiner.getFileVersion(path), 10);
    EXPECT_EQ(examiner.getFileVersion(path + QStringLiteral(".gone")), 0);
    // Never true: the listed paths are relative.
    const QString inFonts = home.writeFile(QStringLiteral(".local/share/fonts/In.ttf"), "x");
    EXPECT_FALSE(examiner.inFontsFolder(inFonts));
}

TEST_F(QVFontDiagnosePostScript, FirstPostResourceWithTheKeyEndsTheSearch)
{
    const QString path = makeLWFN(QStringLiteral("C059Rom"));
    // Resource 502 names another font; 501 names none: the search goes on.
    ASSERT_TRUE(editResource(path, "POST", 502, [](QByteArray &post) {
        post = post.left(2) + QByteArray("/FontName /Elsewhere def ");
        return true;
    }));
    ASSERT_TRUE(editResource(path, "POST", 501, [](QByteArray &post) {
        post = post.left(2) + QByteArray("no name here ");
        return true;
    }));
    EXPECT_EQ(examiner.getType1PSname(path), "Elsewhere");

    // Now 501 has the key with an empty value: that answer stands.
    ASSERT_TRUE(editResource(path, "POST", 501, [](QByteArray &post) {
        post = post.left(2) + QByteArray("/FontName() def ");
        return true;
    }));
    EXPECT_EQ(examiner.getType1PSname(path), "");
    Examination result = examine(examiner, path);
    ASSERT_EQ(result.statuses.size(), 1);
    EXPECT_EQ(result.statuses.first()->PSname, "<none>");
    EXPECT_EQ(result.statuses.first()->fontErrorsInfo, QStringList { "Missing PostScript Name" });

    bool found = false;
    EXPECT_EQ(QVFontDiagnose::findPostScriptValue("xx/FontName() def", "/FontName", &found), "");
    EXPECT_TRUE(found);
    EXPECT_EQ(QVFontDiagnose::findPostScriptValue("xx/FamilyName (C059) def", "/FontName", &found), "");
    EXPECT_FALSE(found);
}
