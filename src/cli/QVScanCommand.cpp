#include "cli/QVScanCommand.h"

#include "cli/QVTerminalProgress.h"
#include "engine/QVFontConstants.h"
#include "engine/QVFontDataManager.h"
#include "engine/QVFontExaminer.h"
#include "settings/QVNotificationCenter.h"
#include "settings/QVSettings.h"
#include "store/QVFileManager.h"
#include "store/QVOperationQueue.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTimer>
#include <csignal>

namespace {

volatile std::sig_atomic_t interrupted = 0;

void onInterrupt(int)
{
    interrupted = 1;
}

// Ctrl-C asks the scan to stop instead of killing the process, for as long as
// this object lives.
class InterruptGuard
{
public:
    InterruptGuard()
    {
        interrupted = 0;
        struct sigaction action {
        };
        action.sa_handler = onInterrupt;
        sigemptyset(&action.sa_mask);
        sigaction(SIGINT, &action, &m_previous);
    }
    ~InterruptGuard() { sigaction(SIGINT, &m_previous, nullptr); }
    InterruptGuard(const InterruptGuard &) = delete;
    InterruptGuard &operator=(const InterruptGuard &) = delete;

private:
    struct sigaction m_previous {
    };
};

QString statusDefects(const QVStatusPtr &status)
{
    return status->fontErrorsInfo.isEmpty() ? QStringLiteral("OK")
                                            : status->fontErrorsInfo.join(QStringLiteral("; "));
}

} // namespace

QString QVScanCommand::formatFontFile(const QVFontFilePtr &fontFile)
{
    QString text = fontFile->URL + QLatin1Char('\n');
    for (const QVStatusPtr &status : fontFile->fontStatusArray) {
        const QString type = getFontTypeName(status->fontType);
        text += QStringLiteral("    ") + status->fontName;
        if (!type.isEmpty())
            text += QStringLiteral(" (") + type + QLatin1Char(')');
        text += QStringLiteral(": ") + statusDefects(status) + QLatin1Char('\n');
    }
    return text;
}

QJsonObject QVScanCommand::fontFileToJson(const QVFontFilePtr &fontFile)
{
    QJsonArray fonts;
    for (const QVStatusPtr &status : fontFile->fontStatusArray) {
        fonts.append(QJsonObject { { QStringLiteral("index"), status->index },
            { QStringLiteral("fontName"), status->fontName },
            { QStringLiteral("fontType"), status->fontType },
            { QStringLiteral("fontTypeName"), getFontTypeName(status->fontType) },
            { QStringLiteral("PSname"), status->PSname },
            { QStringLiteral("fontErrors"), QJsonArray::fromVariantList([&] {
                 QVariantList codes;
                 for (int code : status->fontErrors)
                     codes.append(code);
                 return codes;
             }()) },
            { QStringLiteral("fontErrorsInfo"), QJsonArray::fromStringList(status->fontErrorsInfo) } });
    }
    return QJsonObject { { QStringLiteral("URL"), fontFile->URL },
        { QStringLiteral("fontFileType"), fontFile->fontFileType },
        { QStringLiteral("macTypeCode"), fontFile->macTypeCode }, { QStringLiteral("fonts"), fonts } };
}

int QVScanCommand::run(const QStringList &arguments)
{
    bool json = false;
    QStringList folders;
    for (const QString &argument : arguments) {
        if (argument == QLatin1String("--json")) {
            json = true;
        } else if (argument.startsWith(QLatin1Char('-'))) {
            err() << "usage: quorvel-cli scan [--json] [FOLDER...]\n";
            err().flush();
            return UsageError;
        } else {
            folders.append(argument);
        }
    }
    QVSettings settings;
    if (folders.isEmpty())
        folders = settings.fontFolderPaths();
    for (const QString &folder : std::as_const(folders)) {
        const QFileInfo info(folder);
        if (!info.exists() || !info.isDir()) {
            err() << "quorvel-cli: " << folder << (info.exists() ? ": not a folder\n" : ": no such folder\n");
            err().flush();
            return UsageError;
        }
    }

    QVFontDataManager dataManager;
    QVFileManager fileManager(&dataManager);
    QVTerminalProgress terminal(fileManager.progress());

    bool cancelled = false;
    if (!folders.isEmpty()) {
        QEventLoop loop;
        QObject::connect(QVNotificationCenter::defaultCenter(), &QVNotificationCenter::notificationPosted,
            &loop, [&](const QString &name, const QVariantMap &userInfo) {
                if (name != QLatin1String(kScanFolderComplete))
                    return;
                cancelled = userInfo.value(QStringLiteral("status")).toString() == QLatin1String("cancelled");
                loop.quit();
            });
        InterruptGuard guard;
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
            if (interrupted && fileManager.isFindingFonts())
                fileManager.cancelScan();
        });
        poll.start(50);
        fileManager.scanFolders(folders);
        loop.exec();
        // The walk may still be finishing its current file.
        fileManager.findFontsGlobalQueue()->waitUntilAllOperationsAreFinished();
    }
    terminal.clear();

    if (cancelled) {
        err() << "quorvel-cli: scan cancelled; " << dataManager.fontFileItems.size()
              << " font files were examined before it stopped\n";
        err().flush();
        return Cancelled;
    }

    if (json) {
        QJsonArray files;
        for (const QVFontFilePtr &fontFile : std::as_const(dataManager.fontFileItems))
            files.append(fontFileToJson(fontFile));
        out() << QJsonDocument(
            QJsonObject { { QStringLiteral("folders"), QJsonArray::fromStringList(folders) },
                { QStringLiteral("totalFonts"), qint64(dataManager.totalFonts) },
                { QStringLiteral("fontFiles"), files } })
                     .toJson(QJsonDocument::Indented);
    } else {
        for (const QVFontFilePtr &fontFile : std::as_const(dataManager.fontFileItems))
            out() << formatFontFile(fontFile);
        out() << dataManager.fontFileItems.size() << " font files, " << dataManager.totalFonts << " fonts\n";
    }
    out().flush();
    return dataManager.foundProblemFonts ? ProblemsFound : Success;
}
