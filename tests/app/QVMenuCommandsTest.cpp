// The menu commands driven as a person would: the export's save panel, the
// two questions of cleaning the font caches, an update check against a feed
// served on this machine, uninstalling in a private home, help and About.
#include "app/QVAlertSheet.h"
#include "app/QVAppDelegate.h"
#include "app/QVHelpWindow.h"
#include "app/QVMainWindow.h"
#include "engine/QVFontDataManager.h"
#include "platform/QVExtendedAttributes.h"
#include "platform/QVForkStorage.h"
#include "platform/QVLoginItem.h"
#include "platform/QVSystemRestart.h"
#include "reports/QVFontDataExport.h"
#include "settings/QVSettings.h"
#include "support/QVFixtures.h"
#include "support/QVTestHome.h"

#include <QAbstractButton>
#include <QDialog>
#include <QDir>
#include <QFileDialog>
#include <QLabel>
#include <QMenuBar>
#include <QPushButton>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>
#include <QTextBrowser>
#include <gtest/gtest.h>

using namespace QVFixtures;

namespace
{

// Serves one body to every request, as a web server would.
class FeedServer
{
public:
    FeedServer()
    {
        EXPECT_TRUE(m_server.listen(QHostAddress::LocalHost));
        QObject::connect(&m_server, &QTcpServer::newConnection, &m_server, [this] {
            QTcpSocket *socket = m_server.nextPendingConnection();
            QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
                if (!socket->readAll().contains("\r\n\r\n"))
                    return;
                socket->write(m_status + "\r\nContent-Type: application/rss+xml\r\nContent-Length: "
                    + QByteArray::number(m_body.size()) + "\r\nConnection: close\r\n\r\n" + m_body);
                socket->disconnectFromHost();
            });
            QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        });
    }
    QString url() const
    {
        return QStringLiteral("http://127.0.0.1:%1/appcast.xml").arg(m_server.serverPort());
    }
    void serve(const QByteArray &body, const QByteArray &status = "HTTP/1.1 200 OK")
    {
        m_body = body;
        m_status = status;
    }

private:
    QTcpServer m_server;
    QByteArray m_body;
    QByteArray m_status;
};

QByteArray feed(const QByteArray &versions)
{
    QByteArray items;
    for (const QByteArray &version : versions.split(' '))
        items += "<item><title>Quorvel " + version + "</title><link>https://quorvel.org/releases/" + version
            + "</link><enclosure url=\"https://quorvel.org/quorvel_" + version + "_amd64.deb\" q:version=\""
            + version + "\" type=\"application/octet-stream\"/></item>";
    return "<?xml version=\"1.0\"?><rss version=\"2.0\" xmlns:q=\"https://quorvel.org/xml/feed\"><channel>"
           "<title>Quorvel</title>"
        + items + "</channel></rss>";
}

class MenuTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        QVSettings::unregisterUserPreferences();
        QVSettings::migratePreferences();
        QVSettings settings;
        settings.setAutoScanEnabled(false);
        settings.setShowHelperMenu(false);
        settings.setDontShowWelcomeScreenAtStartup(true);
        app = std::make_unique<QVAppDelegate>();
        app->setDelay(0);
        ASSERT_TRUE(app->launch());
        QVSettings().setShowReports(false);
        window = app->mainWindow();
    }
    void TearDown() override { app.reset(); }

    QAction *menuItem(const QString &menu, const QString &item) const
    {
        for (QAction *top : window->menuBar()->actions()) {
            if (top->text().remove(QLatin1Char('&')) != menu)
                continue;
            for (QAction *action : top->menu()->actions())
                if (action->text().remove(QLatin1Char('&')) == item)
                    return action;
        }
        ADD_FAILURE() << "no menu item " << menu.toStdString() << " > " << item.toStdString();
        return nullptr;
    }
    // Waits for the alert of that context and returns it.
    QMessageBox *alert(const QString &context)
    {
        QMessageBox *box = nullptr;
        waitFor([&] { return (box = QVAlertSheet::find(window, context)) != nullptr; });
        return box;
    }
    static void press(QMessageBox *box, const QString &title)
    {
        for (QAbstractButton *button : box->buttons())
            if (button->text() == title)
                return button->click();
        ADD_FAILURE() << "no button " << title.toStdString();
    }

    QVTestHome home;
    std::unique_ptr<QVAppDelegate> app;
    QVMainWindow *window = nullptr;
};

TEST_F(MenuTest, ExportSavesTheScannedFontsThroughThePanelWithTheSpreadsheetType)
{
    const auto saveThroughPanel = [&](const QString &path) {
        menuItem(QStringLiteral("File"), QStringLiteral("Export Font Data…"))->trigger();
        QFileDialog *panel = nullptr;
        for (QFileDialog *open : window->findChildren<QFileDialog *>(QStringLiteral("exportFontDataPanel")))
            panel = open->isVisible() ? open : panel;
        ASSERT_NE(panel, nullptr);
        EXPECT_EQ(panel->windowTitle(), QStringLiteral("Save font data file"));
        EXPECT_EQ(panel->directory().absolutePath(), home.path() + QStringLiteral("/Documents"));
        panel->selectFile(path);
        QMetaObject::invokeMethod(panel, "accept");
    };
    // Before any scan: the header alone.
    QDir().mkpath(home.path() + QStringLiteral("/Documents"));
    const QString empty = home.path() + QStringLiteral("/Documents/Quorvel_Data.csv");
    saveThroughPanel(empty);
    EXPECT_EQ(readFile(empty), QByteArray(QVFontDataExport::kHeader));
    if (QVExtendedAttributes::supported(empty)) {
        EXPECT_EQ(QVExtendedAttributes::get(empty, QVForkStorage::kFinderInfoAttribute).value_or("").left(8),
            "XLS8XCEL");
    }
    // The type lives in the attribute only: no sidecar beside the export.
    EXPECT_FALSE(QFileInfo::exists(home.path() + QStringLiteral("/Documents/._Quorvel_Data.csv")));

    const QString folder = home.path() + QStringLiteral("/fonts");
    const QString font = copyFont(kDejaVuSans, folder);
    ASSERT_TRUE(app->openFolders({ folder }));
    ASSERT_TRUE(waitFor([&] { return app->isShowingDoneButton() && !app->isBusy(); }, 60000));
    const QString scanned = home.path() + QStringLiteral("/scanned.csv");
    saveThroughPanel(scanned);
    EXPECT_EQ(readFile(scanned),
        QByteArray(QVFontDataExport::kHeader) + "TrueType, DejaVu Sans, Plain, , DejaVuSans, "
            + app->dataManager()->fontFileItems.value(0)->fontStatusArray.value(0)->fontFoundry.toUtf8()
            + ", "
            + QByteArray::number(
                app->dataManager()->fontFileItems.value(0)->fontStatusArray.value(0)->fontVersion)
            + ", " + font.toUtf8() + "\n");

    // A file that cannot be written is said so, and nothing else changes.
    const QString locked = home.path() + QStringLiteral("/no-such-folder/data.csv");
    saveThroughPanel(locked);
    QMessageBox *failure = alert(QStringLiteral("exportFontData"));
    ASSERT_NE(failure, nullptr);
    EXPECT_TRUE(failure->informativeText().contains(QStringLiteral("no-such-folder")));
    failure->buttons().first()->click();
}

TEST_F(MenuTest, CleaningFontCachesAsksTwiceAndRestartsOnlyWhenTold)
{
    const auto runner = RecordingRunner::install();
    int restarts = 0;
    QVSystemRestart::setHook([&] {
        ++restarts;
        return QString();
    });
    const QString cache = home.writeFile(QStringLiteral(".cache/fontconfig/abc-le64.cache-8"), "cache");
    QAction *clean = menuItem(QStringLiteral("Tools"), QStringLiteral("Clean Font Caches…"));

    // Escape on the first question is Cancel: nothing is cleaned.
    clean->trigger();
    QMessageBox *ask = alert(QStringLiteral("cleanFontCachesAction"));
    ASSERT_NE(ask, nullptr);
    EXPECT_EQ(ask->text(), QStringLiteral("Are you sure you want to clean your font caches?"));
    ask->escapeButton()->click();
    QApplication::processEvents();
    EXPECT_TRUE(QFileInfo::exists(cache));
    EXPECT_TRUE(runner->calls.isEmpty());

    for (const QString &answer : { QStringLiteral("Cancel"), QStringLiteral("Restart") }) {
        clean->trigger();
        press(alert(QStringLiteral("cleanFontCachesAction")), QStringLiteral("Clean Font Caches Now"));
        QMessageBox *restart = alert(QStringLiteral("restartAfterCleaningCaches"));
        ASSERT_NE(restart, nullptr);
        EXPECT_EQ(restart->text(), QStringLiteral("You should restart your computer now."));
        press(restart, answer);
        QTest::qWait(200);
    }
    EXPECT_FALSE(QFileInfo::exists(cache));
    EXPECT_EQ(runner->calls,
        QStringList({ QStringLiteral("/usr/bin/fc-cache -r"), QStringLiteral("/usr/bin/fc-cache -r") }));
    EXPECT_EQ(restarts, 1);

    // A refused rebuild ends without the restart question.
    RecordingRunner::install(QStringLiteral("Not Authorized"));
    clean->trigger();
    press(alert(QStringLiteral("cleanFontCachesAction")), QStringLiteral("Clean Font Caches Now"));
    EXPECT_TRUE(waitFor([&] { return window->infoText().contains(QStringLiteral("Not Authorized")); }));
    EXPECT_EQ(QVAlertSheet::find(window, QStringLiteral("restartAfterCleaningCaches")), nullptr);
    QVSystemRestart::setHook(nullptr);
    QVPrivilegedRunner::setShared(nullptr);
}

TEST_F(MenuTest, UpdateCheckReadsTheFeedAndTellsANewerAnOlderOrABrokenOne)
{
    FeedServer server;
    app->settings()->setUpdateFeedURL(server.url());
    const struct {
        QByteArray body;
        QByteArray status;
        QString message;
        QString detail;
    } cases[] = {
        { feed("0.0.9 0.2.0 0.1.5"), "HTTP/1.1 200 OK",
            QStringLiteral("A new version of Quorvel is available."),
            QStringLiteral("Quorvel 0.2.0 is available; you have 0.1.0.") },
        { feed("0.0.9 0.1.0"), "HTTP/1.1 200 OK", QStringLiteral("Quorvel is up to date."),
            QStringLiteral("the newest listed is 0.1.0") },
        { "<rss><channel><item>", "HTTP/1.1 200 OK", QStringLiteral("Updates could not be checked."),
            QStringLiteral("not a valid feed") },
        { "gone", "HTTP/1.1 404 Not Found", QStringLiteral("Updates could not be checked."),
            QStringLiteral("could not be read") },
    };
    for (const auto &check : cases) {
        server.serve(check.body, check.status);
        menuItem(QStringLiteral("Help"), QStringLiteral("Check for Updates…"))->trigger();
        QMessageBox *box = alert(QStringLiteral("checkForUpdates"));
        ASSERT_NE(box, nullptr) << check.body.constData();
        EXPECT_EQ(box->text(), check.message);
        EXPECT_TRUE(box->informativeText().contains(check.detail)) << box->informativeText().toStdString();
        box->buttons().last()->click();
        QApplication::processEvents();
    }

    // At launch only news is told: an older feed says nothing, a newer one does.
    app->settings()->setCheckForUpdates(true);
    for (const QByteArray &versions : { QByteArray("0.1.0"), QByteArray("1.0") }) {
        server.serve(feed(versions));
        app.reset();
        app = std::make_unique<QVAppDelegate>();
        ASSERT_TRUE(app->launch());
        window = app->mainWindow();
        const bool told
            = waitFor([&] { return QVAlertSheet::find(window, QStringLiteral("checkForUpdates")); }, 3000);
        EXPECT_EQ(told, versions == "1.0");
    }
}

TEST_F(MenuTest, UninstallRemovesWhatIsOursAfterTheQuestionAndNothingElse)
{
    // What Quorvel keeps of the user's: settings of all three programs, autostart
    // entries, a quarantined font and a report made by the command line.
    const QString fonts = home.path() + QStringLiteral("/fonts");
    const QStringList copies = { copyFont(kDejaVuSans, fonts + QStringLiteral("/one")),
        copyFont(kDejaVuSans, fonts + QStringLiteral("/two")) };
    const CliRun run = runCli(
        home, { QStringLiteral("diagnose"), QStringLiteral("--resolve"), QStringLiteral("--report"), fonts });
    ASSERT_EQ(run.exitCode, 1) << run.err.toStdString();
    const QString data = home.dataHome() + QStringLiteral("/Quorvel");
    ASSERT_TRUE(QDir(data + QStringLiteral("/Quarantine"))
                    .entryList(QDir::Files)
                    .contains(QStringLiteral("DejaVuSans.ttf")));
    const QString kept = QFileInfo::exists(copies.at(0)) ? copies.at(0) : copies.at(1);
    ASSERT_FALSE(QDir(data + QStringLiteral("/Reports")).entryList(QDir::Files).isEmpty());
    QStringList ours;
    for (const char *id : { QVSettings::kBundleIdentifier, QVSettings::kHandlerBundleIdentifier,
             QVSettings::kSchedulerBundleIdentifier }) {
        QVSettings(QString::fromLatin1(id)).setValue(QStringLiteral("doLogging"), false);
        ours << QVSettings(QString::fromLatin1(id)).fileName();
        if (id != QVSettings::kBundleIdentifier)
            ours << home.writeFile(
                QVLoginItem::entryPath(QString::fromLatin1(id)).mid(home.path().size() + 1),
                "[Desktop Entry]\n");
    }
    const QStringList theirs = { home.writeFile(QStringLiteral(".config/autostart/other.desktop"), "x"),
        home.writeFile(QStringLiteral(".config/org.example.Other.conf"), "x"),
        home.writeFile(QStringLiteral(".local/share/Quorvel/notes.txt"), "mine"),
        home.writeFile(QStringLiteral(".local/share/Quorvel-old/keep"), "mine"), kept };
    QAction *uninstall = menuItem(QStringLiteral("Tools"), QStringLiteral("Uninstall Quorvel…"));

    // Enter or Escape on the question is Cancel.
    uninstall->trigger();
    QMessageBox *ask = alert(QStringLiteral("uninstallMenuAction"));
    ASSERT_NE(ask, nullptr);
    EXPECT_EQ(ask->escapeButton(), static_cast<QAbstractButton *>(ask->defaultButton()));
    ask->escapeButton()->click();
    QApplication::processEvents();
    for (const QString &path : ours)
        EXPECT_TRUE(QFileInfo::exists(path)) << path.toStdString();

    uninstall->trigger();
    press(alert(QStringLiteral("uninstallMenuAction")), QStringLiteral("Uninstall"));
    QMessageBox *done = alert(QStringLiteral("uninstalled"));
    ASSERT_NE(done, nullptr);
    EXPECT_TRUE(done->informativeText().contains(QStringLiteral("not installed by a package")))
        << done->informativeText().toStdString();
    press(done, QStringLiteral("Quit"));
    EXPECT_FALSE(window->isVisible());
    app.reset();

    for (const QString &path : ours)
        EXPECT_FALSE(QFileInfo::exists(path)) << path.toStdString();
    for (const QString &path : theirs)
        EXPECT_TRUE(QFileInfo::exists(path)) << path.toStdString();
    EXPECT_FALSE(QFileInfo::exists(data + QStringLiteral("/Quarantine")));
    EXPECT_FALSE(QFileInfo::exists(data + QStringLiteral("/Reports")));
    EXPECT_EQ(QDir(data).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
        QStringList { QStringLiteral("notes.txt") });
    EXPECT_EQ(fileSha256(kept), sha256(readFile(kDejaVuSans)));
}

TEST_F(MenuTest, HelpPagesLinkToEachOtherAndAboutNamesVersionAndLibraries)
{
    menuItem(QStringLiteral("Help"), QStringLiteral("Quorvel Help"))->trigger();
    QVHelpWindow *help = QVHelpWindow::instance();
    ASSERT_NE(help, nullptr);
    EXPECT_TRUE(help->isVisible());
    QTextBrowser *browser = help->browser();
    // Every page the contents link to opens, has a title and links back.
    const QStringList pages = { "diagnoses.html", "quarantine.html", "library.html", "reports.html",
        "commands.html", "command-line.html" };
    for (const QString &page : pages) {
        help->showPage(page);
        EXPECT_EQ(help->currentPage(), page);
        EXPECT_FALSE(browser->documentTitle().isEmpty()) << page.toStdString();
        EXPECT_GT(browser->toPlainText().size(), 300) << page.toStdString();
        help->showPage(QStringLiteral("index.html"));
        EXPECT_TRUE(browser->toHtml().contains(QStringLiteral("href=\"%1\"").arg(page)))
            << page.toStdString();
    }
    help->close();

    menuItem(QStringLiteral("Help"), QStringLiteral("About Quorvel"))->trigger();
    QDialog *about = app->aboutWindow();
    ASSERT_NE(about, nullptr);
    EXPECT_TRUE(about->isVisible());
    QString text;
    for (const QLabel *label : about->findChildren<QLabel *>())
        text += label->text() + QLatin1Char('\n');
    EXPECT_TRUE(text.contains(QStringLiteral("Version " QV_VERSION)));
    for (const char *library : { "Qt 6.", "Qt WebEngine 6.", "FreeType 2.", "Fontconfig 2." })
        EXPECT_TRUE(text.contains(QLatin1String(library))) << library;
    EXPECT_TRUE(text.contains(QStringLiteral("All rights reserved")));
    about->close();

    // Printing needs a report window; without one the command says how to get one.
    menuItem(QStringLiteral("File"), QStringLiteral("Print Report…"))->trigger();
    QMessageBox *none = alert(QStringLiteral("noReportShown"));
    ASSERT_NE(none, nullptr);
    EXPECT_TRUE(none->informativeText().contains(QStringLiteral("Reports view")));
    none->buttons().first()->click();
}

} // namespace
