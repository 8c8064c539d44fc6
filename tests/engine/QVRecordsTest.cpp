#include "engine/QVFontConstants.h"
#include "engine/QVFontDataManager.h"
#include "engine/QVFontExaminer.h"
#include "engine/QVFontFile.h"
#include "engine/QVStatus.h"
#include "support/QVTestHome.h"

#include <gtest/gtest.h>

TEST(QVStatus, RepeatedMessageKeepsParallelArraysInStep)
{
    QVStatus status;
    status.setFontError(QVErrorClass::Defect);
    status.setFontErrorInfo(QString::fromUtf8(QVDefect::BadTableData));
    status.setFontErrorInfo(QString::fromUtf8(QVDefect::BadTableData));
    status.setFontErrorInfo(QString::fromUtf8(QVDefect::BadFileName));
    status.setFontError(QVErrorClass::Defect);

    EXPECT_EQ(status.fontErrors, QList<int> { 0 });
    EXPECT_EQ(status.fontErrorsInfo, (QStringList { "Bad Table Data", "Bad File Name" }));
    EXPECT_EQ(status.fixedErrors, (QList<bool> { false, false }));
    EXPECT_EQ(status.fixedErrorMessages, (QStringList { "", "" }));
}

TEST(QVStatus, HasErrorsIsBoundedByErrorClassesNotMessages)
{
    QVStatus status;
    EXPECT_FALSE(status.hasErrors());

    status.setFontError(QVErrorClass::Defect);
    status.setFontErrorInfo(QStringLiteral("A"));
    status.setFontErrorInfo(QStringLiteral("B"));
    EXPECT_TRUE(status.hasErrors());

    // Fixing the first of two defects under the one class clears the status.
    status.fixedErrors[0] = true;
    EXPECT_FALSE(status.hasErrors());

    // A second class brings the second defect into view again.
    status.setFontError(QVErrorClass::Duplicate);
    EXPECT_TRUE(status.hasErrors());
    status.fixedErrors[1] = true;
    EXPECT_FALSE(status.hasErrors());
}

TEST(QVStatus, ClassWithoutMessageCountsAsUnfixedInsteadOfReadingPastTheArray)
{
    QVStatus status;
    status.setFontError(QVErrorClass::MissingBitmap);
    EXPECT_TRUE(status.hasErrors());
}

TEST(QVStatus, CopiedOrMovedAndCopy)
{
    QVStatus status;
    EXPECT_FALSE(status.copiedOrMoved());
    status.copiedToLibrary = true;
    EXPECT_TRUE(status.copiedOrMoved());

    status.fontName = QStringLiteral("Garamond");
    status.setFontErrorInfo(QStringLiteral("A"));
    const QVStatusPtr copy = status.copy();
    copy->setFontErrorInfo(QStringLiteral("B"));
    copy->fontName = QStringLiteral("Other");
    EXPECT_EQ(status.fontErrorsInfo.size(), 1);
    EXPECT_EQ(status.fontName, QStringLiteral("Garamond"));
    EXPECT_EQ(copy->fontErrorsInfo.size(), 2);
    EXPECT_TRUE(copy->copiedToLibrary);
}

TEST(QVFontFile, ArchiveKeepsExactlyThreeKeys)
{
    QVFontFile file(QStringLiteral("/fonts/Garamond"));
    file.fontFileType = 1;
    file.macTypeCode = QStringLiteral("FFIL");
    file.fileMovedToQuarantine = true;
    file.fileCopiedToLibraryErrorInfo = QStringLiteral("disk full");
    file.fontStatusArray.append(std::make_shared<QVStatus>());

    const QVFontFilePtr restored = QVFontFile::decode(file.encode());
    ASSERT_TRUE(restored);
    EXPECT_EQ(restored->URL, file.URL);
    EXPECT_EQ(restored->fontFileType, 1);
    EXPECT_EQ(restored->macTypeCode, QStringLiteral("FFIL"));
    EXPECT_TRUE(restored->fontStatusArray.isEmpty());
    EXPECT_FALSE(restored->fileMovedToQuarantine);
    EXPECT_TRUE(restored->fileCopiedToLibraryErrorInfo.isNull());
    EXPECT_FALSE(restored->hasErrors());

    EXPECT_EQ(QVFontFile::decode(QByteArray("\xff\x00garbage", 9)), nullptr);
}

TEST(QVFontFile, CopySharesStatusesAndHasErrorsLooksAtLibraryErrorsOnly)
{
    QVFontFile file(QStringLiteral("/fonts/A.ttf"));
    auto status = std::make_shared<QVStatus>();
    status->setFontError(0);
    status->setFontErrorInfo(QStringLiteral("Bad Table Data"));
    file.fontStatusArray.append(status);
    EXPECT_FALSE(file.hasErrors());

    const QVFontFilePtr copy = file.copy();
    EXPECT_EQ(copy->fontStatusArray.first().get(), status.get());
    copy->fontStatusArray.append(std::make_shared<QVStatus>());
    EXPECT_EQ(file.fontStatusArray.size(), 1);

    file.fileMovedToLibraryErrorInfo = QStringLiteral("No such folder");
    EXPECT_TRUE(file.hasErrors());
    EXPECT_FALSE(file.copiedOrMoved());
    file.fileCopiedToLibrary = true;
    EXPECT_TRUE(file.copiedOrMoved());
}

TEST(QVFontConstants, TypeNamesExistOnlyForKnownCodes)
{
    EXPECT_EQ(getFontTypeNameKey(0), QStringLiteral("font.type.bitmap"));
    EXPECT_EQ(getFontTypeNameKey(4), QStringLiteral("font.type.truetypeCollection"));
    EXPECT_EQ(getFontTypeNameKey(5), QStringLiteral("font.type.opentype"));
    EXPECT_TRUE(getFontTypeName(6).isEmpty());
    EXPECT_TRUE(getFontTypeName(-1).isEmpty());
    for (int code = 0; code <= 5; ++code) {
        const QString name = getFontTypeName(code);
        EXPECT_FALSE(name.isEmpty());
        EXPECT_NE(name, getFontTypeNameKey(code)) << "no text in the string table for code " << code;
    }
    EXPECT_EQ(QVDefect::withDetail(QVDefect::FileError, QStringLiteral("No such file")),
        QStringLiteral("File Error (No such file)"));
}

namespace
{

// Gives each examined file a fixed number of statuses, some with a defect.
class FakeExaminer final : public QVFontExaminer
{
public:
    int statusesPerFile = 2;
    bool defective = false;
    bool fork = false;
    QString typeCode = QStringLiteral("");
    int initializeCalls = 0;
    int finalizeCalls = 0;
    bool lastActivation = true;

    void initialize() override
    {
        ++initializeCalls;
        m_statuses.clear();
    }
    void setDoActivation(bool value) override { lastActivation = value; }
    void examineFont(const QString &path) override
    {
        for (int i = 0; i < statusesPerFile; ++i) {
            auto status = std::make_shared<QVStatus>();
            status->fontURL = path;
            if (defective && i == statusesPerFile - 1) {
                status->setFontError(0);
                status->setFontErrorInfo(QStringLiteral("Bad Table Data"));
            }
            m_statuses.append(status);
        }
    }
    QList<QVStatusPtr> fontStatusArray() const override { return m_statuses; }
    void finalize() override { ++finalizeCalls; }
    bool hasResourceFork(const QString &) override { return fork; }
    QString quotedTypeCode(const QString &) override { return typeCode; }

private:
    QList<QVStatusPtr> m_statuses;
};

} // namespace

TEST(QVFontDataManager, RunningIndexTotalsAndProblemFlag)
{
    QVTestHome home;
    auto examinerOwner = std::make_unique<FakeExaminer>();
    FakeExaminer *examiner = examinerOwner.get();
    QVFontDataManager manager(std::move(examinerOwner));

    const QVFontFilePtr first = manager.addFontFileItem(QStringLiteral("/fonts/a.ttf"));
    EXPECT_EQ(first->fontFileType, 1);
    EXPECT_EQ(first->macTypeCode, QStringLiteral(""));
    EXPECT_FALSE(manager.foundProblemFonts);
    EXPECT_FALSE(examiner->lastActivation); // checkFontActivation defaults to off

    examiner->defective = true;
    examiner->fork = true;
    examiner->typeCode = QStringLiteral("'FFIL'");
    examiner->statusesPerFile = 3;
    const QVFontFilePtr second = manager.addFontFileItem(QStringLiteral("/fonts/Suitcase"));
    EXPECT_EQ(second->fontFileType, 0);
    EXPECT_EQ(second->macTypeCode, QStringLiteral("FFIL"));
    EXPECT_TRUE(manager.foundProblemFonts);
    EXPECT_EQ(manager.totalFonts, 5u);
    ASSERT_EQ(second->fontStatusArray.size(), 3);
    EXPECT_EQ(first->fontStatusArray.at(0)->index, 0);
    EXPECT_EQ(first->fontStatusArray.at(1)->index, 1);
    EXPECT_EQ(second->fontStatusArray.at(2)->index, 4);
    EXPECT_EQ(examiner->initializeCalls, 2);
    EXPECT_EQ(examiner->finalizeCalls, 2);

    manager.removeFontFileItem(first);
    EXPECT_EQ(manager.totalFonts, 3u);
    EXPECT_EQ(manager.fontFileItems.size(), 1);

    manager.removeAllFontFileItems();
    EXPECT_EQ(manager.totalFonts, 0u);
    EXPECT_FALSE(manager.foundProblemFonts);
    const QVFontFilePtr again = manager.addFontFileItem(QStringLiteral("/fonts/b.otf"));
    EXPECT_EQ(again->fontStatusArray.first()->index, 0);
}

TEST(QVFontDataManager, ShortTypeCodeIsEmptyAndRestoredItemsCountFiles)
{
    QVTestHome home;
    auto examinerOwner = std::make_unique<FakeExaminer>();
    examinerOwner->typeCode = QStringLiteral("''");
    QVFontDataManager manager(std::move(examinerOwner));
    EXPECT_EQ(manager.addFontFileItem(QStringLiteral("/x"))->macTypeCode, QStringLiteral(""));

    QList<QVFontFilePtr> restored;
    for (int i = 0; i < 3; ++i)
        restored.append(std::make_shared<QVFontFile>(QStringLiteral("/f%1").arg(i)));
    manager.setAllFontItems(restored);
    EXPECT_EQ(manager.totalFonts, 3u);
    EXPECT_EQ(manager.fontFileItems.size(), 3);
}
