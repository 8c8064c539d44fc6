// The Quarantine view used as a person would: real quarantined suitcases with
// their forks in each place a file server keeps them, found by a search,
// restored byte for byte to their folders or to a chosen one, a restore that
// is refused, and a removal that asks first and deletes nothing else.
#include "app/QVQuarantineTab.h"

#include "app/QVAlertSheet.h"
#include "app/QVAppDelegate.h"
#include "app/QVMainWindow.h"
#include "app/QVViewButton.h"
#include "engine/QVResourceManager.h"
#include "settings/QVNotificationCenter.h"
#include "settings/QVSettings.h"
#include "store/QVQuarantineStore.h"
#include "support/QVFixtures.h"
#include "support/QVTestHome.h"

#include <QApplication>
#include <QDesktopServices>
#include <QDir>
#include <QCheckBox>
#include <QFileDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <gtest/gtest.h>
#include <memory>

using namespace QVFixtures;

namespace
{

// Takes the folders the view reveals.
class FileManager : public QObject
{
    Q_OBJECT

public:
    QList<QUrl> shown;
public Q_SLOTS:
    void openUrl(const QUrl &url) { shown << url; }
};

class QuarantineTabTest : public ::testing::Test
{
protected:
    void SetUp() override { QDesktopServices::setUrlHandler("file", &fileManager, "openUrl"); }
    void TearDown() override
    {
        QDesktopServices::unsetUrlHandler("file");
        app.reset();
        QVResourceManager::closeAll();
    }
    // Moves the files into the quarantine as a resolution does, with the records it makes.
    void quarantine(const QList<QVFontFilePtr> &files)
    {
        QVQuarantineStore store;
        for (const QVFontFilePtr &file : files)
            ASSERT_TRUE(
                store.moveFileToQuarantine(file, file->fontStatusArray.first(), "· Bad Table Data").isNull());
        ASSERT_TRUE(store.commitQuarantine().isNull());
    }
    void launch(int rows)
    {
        QVSettings::unregisterUserPreferences();
        app = std::make_unique<QVAppDelegate>();
        app->setDelay(0);
        ASSERT_TRUE(app->launch());
        window = app->mainWindow();
        tab = app->quarantineTab();
        window->viewButton(QVMainWindow::QuarantineView)->click();
        ASSERT_TRUE(waitFor([&] { return !tab->isLoading() && tab->rowArray().size() == rows; }));
    }
    QStringList shownNames() const
    {
        QStringList names;
        for (const QVariantMap &row : tab->rowArray())
            names << row.value("fontName").toString();
        return names;
    }
    int rowOf(const QString &fontName) const { return int(shownNames().indexOf(fontName)); }
    bool waitForRun()
    {
        return waitFor([&] { return !tab->isDisabled() && !tab->isLoading(); });
    }
    QString quarantined(const QString &name) const
    {
        return QVQuarantineStore().quarantineFolderPath() + "/" + name;
    }

    QVTestHome home;
    FileManager fileManager;
    std::unique_ptr<QVAppDelegate> app;
    QVMainWindow *window = nullptr;
    QVQuarantineTab *tab = nullptr;
};

} // namespace

TEST_F(QuarantineTabTest, FoundBySearchAndRestoredByteIdenticalToTheirFoldersOrAChosenOne)
{
    // Suitcases made by ufond, each fork where a file server keeps it.
    const QByteArray fork = dejaVuSerifFork(home.path() + "/work");
    ASSERT_FALSE(fork.isEmpty());
    using Place = QVForkStorage::Place;
    const QList<QPair<QString, Place>> suitcases { { "Ärial Book", Place::ExtendedAttribute },
        { "ARIAL Black", Place::AppleDouble }, { "Courier", Place::NetatalkFolder } };
    QStringList paths, hashes;
    QList<QVFontFilePtr> files;
    for (const auto &[name, place] : suitcases) {
        paths << home.path() + "/fonts/" + name + "/" + name;
        ASSERT_TRUE(makeSuitcase(paths.last(), fork, place));
        ASSERT_EQ(QVForkStorage::resourceForkPlace(paths.last()), place);
        hashes << placedHashes(paths.last());
        files << oneFontFile(paths.last(), 0, 0);
    }
    quarantine(files);
    ASSERT_FALSE(QFileInfo::exists(paths.first()));
    launch(3);

    // Case and accents aside, "ari" finds both Arials; clearing shows all again.
    tab->searchField()->setText("ari");
    EXPECT_EQ(shownNames(), QStringList({ "ARIAL Black", "Ärial Book" }));
    tab->setRowChecked(0, true);
    tab->searchField()->clear();
    EXPECT_EQ(tab->rowArray().size(), 3);
    EXPECT_TRUE(tab->checkedRowsArray().isEmpty()) << "a search unchecks every row";
    EXPECT_FALSE(tab->restoreButton()->isEnabled());

    tab->searchField()->setText("ARI");
    tab->setRowChecked(0, true);
    tab->setRowChecked(1, true);
    ASSERT_TRUE(tab->restoreButton()->isEnabled());
    tab->restoreButton()->click();
    EXPECT_TRUE(tab->isDisabled());
    ASSERT_TRUE(waitForRun());
    EXPECT_EQ(shownNames(), QStringList({ "Courier" }));
    EXPECT_TRUE(tab->searchField()->text().isEmpty());
    EXPECT_EQ(window->infoText(), "Restored 2 fonts to their folders.");
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(placedHashes(paths.at(i)), hashes.at(i)) << paths.at(i).toStdString();

    // Alt: into a chosen folder, which is then shown.
    const QString chosen = home.path() + "/Restored";
    ASSERT_TRUE(QDir().mkpath(chosen));
    tab->setRowChecked(0, true);
    tab->restoreButtonaction(Qt::AltModifier);
    auto *panel = window->findChild<QFileDialog *>("selectFolderToRestoreTo");
    ASSERT_NE(panel, nullptr);
    panel->selectFile(chosen);
    static_cast<QDialog *>(panel)->accept();
    ASSERT_TRUE(waitForRun());
    EXPECT_TRUE(tab->rowArray().isEmpty());
    EXPECT_EQ(placedHashes(chosen + "/Courier"), hashes.at(2));
    EXPECT_FALSE(QFileInfo::exists(paths.at(2)));
    EXPECT_TRUE(waitFor([&] { return fileManager.shown == QList<QUrl> { QUrl::fromLocalFile(chosen) }; }));
    EXPECT_TRUE(QVQuarantineStore().quarantinedFilesDataArray.isEmpty());
}

TEST_F(QuarantineTabTest, ARefusedRestoreKeepsItsRowAndRemovalAsksFirstAndDeletesOnlyThat)
{
    const QString sans = copyFont(kDejaVuSans, home.path() + "/fonts/sans");
    const QString serif = copyFont(kDejaVuSerif, home.path() + "/fonts/serif");
    const QString sansHash = fileSha256(sans), serifHash = fileSha256(serif);
    quarantine({ examined(sans), examined(serif) });
    launch(2);
    const QString sansName = tab->rowArray().at(rowOf("DejaVu Sans")).value("quarantineFileName").toString();
    const QString serifName
        = tab->rowArray().at(rowOf("DejaVu Serif")).value("quarantineFileName").toString();

    // The folder it came from is now a file: nothing can go back there.
    ASSERT_TRUE(QDir(home.path() + "/fonts/sans").removeRecursively());
    ASSERT_TRUE(writeFile(home.path() + "/fonts/sans", "in the way"));
    tab->setRowChecked(rowOf("DejaVu Sans"), true);
    tab->restoreButton()->click();
    ASSERT_TRUE(waitForRun());
    EXPECT_EQ(shownNames(), QStringList({ "DejaVu Sans", "DejaVu Serif" }));
    EXPECT_EQ(tab->checkedRowsArray(), QList<int> { rowOf("DejaVu Sans") }) << "kept checked to try again";
    EXPECT_TRUE(window->infoText().startsWith("Restored 0 of 1 fonts.")) << window->infoText().toStdString();
    EXPECT_EQ(fileSha256(quarantined(sansName)), sansHash);

    // Asked first: Cancel deletes nothing, Continue deletes the checked font alone.
    tab->removeButton()->click();
    QMessageBox *ask = QVAlertSheet::find(window, "removeButtonaction");
    ASSERT_NE(ask, nullptr);
    EXPECT_TRUE(ask->informativeText().contains("1 font: DejaVu Sans"));
    ask->buttons().at(1)->click();
    QApplication::processEvents();
    EXPECT_EQ(fileSha256(quarantined(sansName)), sansHash);
    tab->removeButton()->click();
    ask = QVAlertSheet::find(window, "removeButtonaction");
    ASSERT_NE(ask, nullptr);
    ask->buttons().at(0)->click();
    ASSERT_TRUE(waitForRun());
    EXPECT_EQ(shownNames(), QStringList({ "DejaVu Serif" }));
    EXPECT_FALSE(QFileInfo::exists(quarantined(sansName)));
    EXPECT_EQ(fileSha256(quarantined(serifName)), serifHash);
    EXPECT_EQ(window->infoText(), "Removed 1 font.");

    // A resolution that quarantines more is seen when it ends.
    const QString mono = copyFont(kDejaVuSansBold, home.path() + "/fonts/bold");
    quarantine({ examined(mono) });
    QVNotificationCenter::defaultCenter()->postEndDiagnosisAction();
    EXPECT_TRUE(waitFor([&] { return tab->rowArray().size() == 2; }));

    // The error alert's folder takes the first checked row only; the next
    // goes back to its own folder, unless "Apply to all" is checked.
    const QString chosen = home.path() + "/Chosen";
    ASSERT_TRUE(QDir().mkpath(chosen));
    const int serifRow = rowOf("DejaVu Serif");
    tab->setRowChecked(1 - serifRow, true);
    tab->setRowChecked(serifRow, true);
    tab->showRestoreAlert("Not a directory");
    QMessageBox *alert = QVAlertSheet::find(window, "restoreQuarantinedFiles");
    ASSERT_NE(alert, nullptr);
    EXPECT_EQ(alert->checkBox()->text(), "Apply to all");
    alert->buttons().at(0)->click();
    auto *panel = window->findChild<QFileDialog *>("showRestoreAlert");
    ASSERT_NE(panel, nullptr);
    panel->selectFile(chosen);
    static_cast<QDialog *>(panel)->accept();
    EXPECT_TRUE(tab->isHandlingError() && !tab->applyToAll());
    ASSERT_TRUE(waitForRun());
    EXPECT_TRUE(tab->rowArray().isEmpty());
    EXPECT_EQ(fileSha256(chosen + "/DejaVuSans-Bold.ttf"), fileSha256(kDejaVuSansBold));
    EXPECT_EQ(fileSha256(serif), serifHash);
    EXPECT_FALSE(QFileInfo::exists(chosen + "/DejaVuSerif.ttf"));
}

#include "QVQuarantineTabTest.moc"
