// Font records: defect lists, their archived form read from untrusted bytes, foundry names.
#include "engine/QVFontConstants.h"
#include "engine/QVFontDiagnose.h"
#include "engine/QVFontFile.h"
#include "engine/QVStatus.h"

#include <gtest/gtest.h>

TEST(QVStatus, DefectListsStayInStepAndAreNeverReadPastTheirEnd)
{
    QVStatus status;
    EXPECT_FALSE(status.hasErrors());
    status.setFontError(QVErrorClass::Defect);
    for (const char *message : { "Bad Table Data", "Bad Table Data", "Bad File Name" })
        status.setFontErrorInfo(QString::fromUtf8(message));
    status.setFontError(QVErrorClass::Defect);
    EXPECT_EQ(status.fontErrors, QList<int> { 0 });
    EXPECT_EQ(status.fontErrorsInfo, (QStringList { "Bad Table Data", "Bad File Name" }));
    EXPECT_EQ(status.fixedErrors, (QList<bool> { false, false }));
    EXPECT_EQ(status.fixedErrorMessages, (QStringList { "", "" }));
    // Errors are counted by class: fixing the first defect of the one class clears the status, a second
    // class brings the second defect back.
    EXPECT_TRUE(status.hasErrors());
    status.fixedErrors[0] = true;
    EXPECT_FALSE(status.hasErrors());
    status.setFontError(QVErrorClass::Duplicate);
    EXPECT_TRUE(status.hasErrors());
    QVStatus bare; // a class without its message counts as not fixed
    bare.setFontError(QVErrorClass::MissingBitmap);
    EXPECT_TRUE(bare.hasErrors());
}

TEST(QVFontFile, TheArchiveKeepsThreeKeysAndRefusesGarbage)
{
    QVFontFile file(QStringLiteral("/fonts/Garamond"));
    file.fontFileType = 1;
    file.macTypeCode = QStringLiteral("FFIL");
    file.fileMovedToQuarantine = true;
    file.fontStatusArray.append(std::make_shared<QVStatus>());
    const QVFontFilePtr restored = QVFontFile::decode(file.encode());
    ASSERT_TRUE(restored);
    EXPECT_EQ(restored->URL + ' ' + QString::number(restored->fontFileType) + ' ' + restored->macTypeCode,
        QStringLiteral("/fonts/Garamond 1 FFIL"));
    EXPECT_TRUE(restored->fontStatusArray.isEmpty() && !restored->fileMovedToQuarantine);
    EXPECT_EQ(QVFontFile::decode(QByteArray("\xff\x00garbage", 9)), nullptr);
}

TEST(QVFoundryNames, TheShippedListFindsFoundriesInRealNotices)
{
    QVFontDiagnose examiner;
    const QStringList &list = examiner.foundryArray;
    ASSERT_GT(list.size(), 100);
    // The first match wins, so no name may contain one listed before it.
    for (qsizetype i = 0; i < list.size(); ++i) {
        for (qsizetype j = i + 1; j < list.size(); ++j)
            EXPECT_FALSE(list.at(j).toLower().contains(list.at(i).toLower()))
                << qPrintable(list.at(j)) << " is shadowed by " << qPrintable(list.at(i));
    }
    for (const auto &[notice, foundry] :
        { std::pair { "Copyright 1990 Linotype-Hell AG and/or its subsidiaries.", "Linotype-Hell" },
            std::pair { "Digitized data copyright Monotype Corporation", "Monotype Corporation" },
            std::pair { "(URW)++,Copyright 2014 by (URW)++ Design & Development", "URW" },
            std::pair { "Made by hand in a shed", "Generic" } })
        EXPECT_EQ(examiner.matchFoundryName(QString::fromUtf8(notice)), QString::fromUtf8(foundry));
}
