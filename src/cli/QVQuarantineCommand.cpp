#include "cli/QVQuarantineCommand.h"

#include "diagnosis/QVDiagnosisResolution.h"
#include "engine/QVFontDataManager.h"
#include "platform/QVFileSystem.h"
#include "store/QVQuarantineRuns.h"
#include "store/QVQuarantineStore.h"
#include "store/QVSuitcaseSurgery.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSet>
#include <cstdio>

namespace
{

QString field(const QVariantMap &row, const char *key)
{
    return row.value(QString::fromLatin1(key)).toString();
}

QJsonObject fontJson(const QVFontFilePtr &file, const QVStatusPtr &status)
{
    return QJsonObject { { QStringLiteral("fontName"), QVQuarantineStore::displayName(file, status) },
        { QStringLiteral("path"), status->fontURL.isEmpty() ? file->URL : status->fontURL } };
}

} // namespace

int QVQuarantineCommand::usage()
{
    err() << "usage: quorvel-cli quarantine list [--json]\n"
             "       quorvel-cli quarantine restore [--to DIR] ROW...\n"
             "       quorvel-cli quarantine remove [--yes] ROW...\n"
             "Rows are numbered as \"quarantine list\" shows them.\n";
    err().flush();
    return UsageError;
}

int QVQuarantineCommand::run(const QStringList &arguments)
{
    const QString action = arguments.value(0);
    QStringList rest = arguments.mid(1);
    QVQuarantineStore store;
    if (!lockQuarantine(&store, false))
        return ProblemsFound;
    QVSuitcaseSurgery surgery(&store);
    QVQuarantineRuns runs(&store, &surgery);
    if (action == QLatin1String("list")) {
        const bool json = rest.removeAll(QStringLiteral("--json")) > 0;
        return rest.isEmpty() ? list(runs, json) : usage();
    }
    if (action == QLatin1String("restore"))
        return restore(runs, rest);
    if (action == QLatin1String("remove") || action == QLatin1String("rm"))
        return remove(runs, rest);
    return usage();
}

int QVQuarantineCommand::list(QVQuarantineRuns &runs, bool json)
{
    if (json) {
        QJsonArray rows;
        int number = 0;
        for (const QVariantMap &row : std::as_const(runs.rowArray)) {
            QJsonObject object = QJsonObject::fromVariantMap(row);
            object.insert(QStringLiteral("number"), ++number);
            rows.append(object);
        }
        out() << QJsonDocument(rows).toJson(QJsonDocument::Indented);
    } else if (runs.rowArray.isEmpty()) {
        out() << "The quarantine is empty.\n";
    } else {
        int number = 0;
        for (const QVariantMap &row : std::as_const(runs.rowArray)) {
            out() << QString::number(++number).rightJustified(4) << "  " << field(row, "fontName") << "  ("
                  << field(row, "fileName") << ")\n      from " << field(row, "originalFilePath") << '\n';
            for (const QString &line : field(row, "reason").split(QLatin1Char('\n')))
                out() << "      " << line << '\n';
        }
    }
    out().flush();
    return Success;
}

bool QVQuarantineCommand::parseRows(
    const QVQuarantineRuns &runs, const QStringList &arguments, QList<int> *rows)
{
    for (const QString &text : arguments) {
        bool ok = false;
        const int number = text.toInt(&ok);
        if (!ok || number < 1 || number > runs.rowArray.size()) {
            err() << "quorvel-cli: no row " << text << " (see: quorvel-cli quarantine list)\n";
            err().flush();
            return false;
        }
        if (!rows->contains(number - 1))
            rows->append(number - 1);
    }
    return !rows->isEmpty();
}

int QVQuarantineCommand::restore(QVQuarantineRuns &runs, const QStringList &arguments)
{
    QStringList rest = arguments;
    QString folder;
    const qsizetype to = rest.indexOf(QStringLiteral("--to"));
    if (to >= 0) {
        if (to + 1 >= rest.size())
            return usage();
        folder = QFileInfo(rest.at(to + 1)).absoluteFilePath();
        rest.remove(to, 2);
        if (!QVFileSystem::isDirectory(folder)) {
            err() << "quorvel-cli: " << folder << ": no such folder\n";
            err().flush();
            return UsageError;
        }
    }
    QList<int> rows;
    if (rest.isEmpty())
        return usage();
    if (!parseRows(runs, rest, &rows))
        return UsageError;
    runs.checkedRowsArray = rows;
    const QVQuarantineRuns::RunResult result = runs.restoreQuarantinedFiles(folder);
    for (const QString &error : result.errors)
        err() << "quorvel-cli: " << error << '\n';
    if (!result.commitError.isNull())
        err() << "quorvel-cli: " << result.commitError << '\n';
    err().flush();
    out() << "Restored " << result.handledRows.size() << " of " << rows.size()
          << (rows.size() == 1 ? " font.\n" : " fonts.\n");
    out().flush();
    return result.errors.isEmpty() && result.commitError.isNull() ? Success : ProblemsFound;
}

int QVQuarantineCommand::remove(QVQuarantineRuns &runs, const QStringList &arguments)
{
    QStringList rest = arguments;
    const bool yes = rest.removeAll(QStringLiteral("--yes")) + rest.removeAll(QStringLiteral("-y")) > 0;
    QList<int> rows;
    if (rest.isEmpty())
        return usage();
    if (!parseRows(runs, rest, &rows))
        return UsageError;
    if (!yes) {
        for (const int row : std::as_const(rows))
            err() << "  " << row + 1 << "  " << field(runs.rowArray.at(row), "fontName") << '\n';
        if (!confirm(QStringLiteral("Are you sure you want to remove the selected files? Click Continue to "
                                    "permanently delete the "
                                    "font files."))) {
            err() << "Nothing was removed.\n";
            err().flush();
            return Success;
        }
    }
    runs.checkedRowsArray = rows;
    const QVQuarantineRuns::RunResult result = runs.removeQuaratinedFiles();
    for (const QString &error : result.errors)
        err() << "quorvel-cli: " << error << '\n';
    if (!result.commitError.isNull())
        err() << "quorvel-cli: " << result.commitError << '\n';
    err().flush();
    out() << "Removed " << result.handledRows.size() << " of " << rows.size()
          << (rows.size() == 1 ? " font.\n" : " fonts.\n");
    out().flush();
    return result.errors.isEmpty() && result.commitError.isNull() ? Success : ProblemsFound;
}

bool QVQuarantineCommand::lockQuarantine(
    QVQuarantineStore *store, bool movingIn, const std::function<bool()> &interrupted)
{
    bool told = false;
    const QString error = store->lockForRun(QVQuarantineStore::kLockWaitMs, [&](qint64 holder) {
        if (!told) {
            err() << "quorvel-cli: waiting for another Quorvel run"
                  << (holder > 0 ? QStringLiteral(" (process %1)").arg(holder) : QString())
                  << " to finish with " << QFileInfo(store->lockPath()).absolutePath() << "...\n";
            err().flush();
            told = true;
        }
        return !(interrupted && interrupted());
    });
    if (!store->damagedIndexPath.isEmpty())
        err() << "quorvel-cli: the quarantine index was damaged; it was kept as " << store->damagedIndexPath
              << " and rebuilt from what could be read of it, the journal and the files\n";
    if (!store->unrecordedFiles.isEmpty())
        err() << "quorvel-cli: " << store->unrecordedFiles.size()
              << " files in the quarantine had no record; they are listed with the reason \"Found in the "
                 "quarantine without a record\"\n";
    if (!error.isNull())
        err() << "quorvel-cli: " << error << '\n';
    else if (!store->quarantineError().isNull())
        err() << "quorvel-cli: " << store->quarantineError()
              << (movingIn ? QStringLiteral("; nothing is quarantined until it can be written")
                           : QStringLiteral("; fonts can still be listed, restored and removed"))
              << '\n';
    err().flush();
    return error.isNull() && (!movingIn || store->quarantineError().isNull());
}

QJsonObject QVQuarantineCommand::resolve(QVQuarantineStore *store,
    const QList<QVProblemFontPtr> &problemFonts, const std::function<bool()> &stopRequested)
{
    QVSuitcaseSurgery surgery(store);
    QVDiagnosisResolution resolution(store, &surgery);
    resolution.stopRequested = stopRequested;
    resolution.setProblemFontsArray(problemFonts);
    const QList<QVProblemFontPtr> rows = resolution.rowArray;
    const qsizetype recordsBefore = store->addedRecords.size();
    const QVDiagnosisResolution::Outcome outcome = resolution.resolveIssues();

    QJsonArray repaired, quarantined, errors;
    for (const int row : outcome.repairedRows) {
        const QVProblemFontPtr &entry = rows.at(row);
        const QVStatusPtr &status = entry->fontStatus;
        QJsonObject font = fontJson(entry->fontFile, status);
        QJsonArray fixes;
        for (int i = 0; i < status->fontErrorsInfo.size(); ++i) {
            const bool fixed = status->fixedErrors.value(i);
            const QString message = status->fixedErrorMessages.value(i);
            if (fixed)
                fixes.append(status->fontErrorsInfo.at(i));
            else if (!message.isEmpty())
                errors.append(
                    QJsonObject { { QStringLiteral("fontName"), font.value(QStringLiteral("fontName")) },
                        { QStringLiteral("error"), message } });
        }
        font.insert(QStringLiteral("repaired"), fixes);
        repaired.append(font);
    }
    // What went into the quarantine: the records this run added, one per font.
    for (qsizetype i = recordsBefore; i < store->addedRecords.size(); ++i) {
        const QVariantMap &record = store->addedRecords.at(i);
        quarantined.append(QJsonObject {
            { QStringLiteral("fontName"), record.value(QStringLiteral("fontNames")).toStringList().value(0) },
            { QStringLiteral("path"), record.value(QStringLiteral("originalFilePath")).toString() },
            { QStringLiteral("quarantineFileName"),
                record.value(QStringLiteral("quarantineFileName")).toString() } });
    }
    // A font in several rows (a damaged font that is also a duplicate) is one font.
    QSet<const QVStatus *> seen;
    auto noteError = [&](const QVFontFilePtr &file, const QVStatusPtr &status) {
        if (status->movedToQuarantine || status->movedToQuarantineErrorInfo.isEmpty()
            || seen.contains(status.get()))
            return;
        seen.insert(status.get());
        errors.append(
            QJsonObject { { QStringLiteral("fontName"), QVQuarantineStore::displayName(file, status) },
                { QStringLiteral("error"), status->movedToQuarantineErrorInfo } });
    };
    for (const int row : outcome.quarantinedRows) {
        const QVProblemFontPtr &entry = rows.at(row);
        for (const QVFontRef &member : std::as_const(entry->duplicatesArray))
            noteError(member.fontFile, member.fontStatus);
        noteError(entry->fontFile, entry->fontStatus);
    }
    QJsonObject result { { QStringLiteral("repaired"), repaired },
        { QStringLiteral("quarantined"), quarantined }, { QStringLiteral("errors"), errors },
        { QStringLiteral("qv_total_quarantined"), store->qv_total_quarantined },
        { QStringLiteral("stopped"), outcome.cancelled } };
    if (!outcome.error.isNull())
        result.insert(QStringLiteral("error"), outcome.error);
    return result;
}

QString QVQuarantineCommand::resolutionText(const QJsonObject &resolution)
{
    QString text;
    const QJsonArray repaired = resolution.value(QStringLiteral("repaired")).toArray();
    const QJsonArray quarantined = resolution.value(QStringLiteral("quarantined")).toArray();
    const QJsonArray errors = resolution.value(QStringLiteral("errors")).toArray();
    text += QStringLiteral("\nRepaired: %1\n").arg(repaired.size());
    for (const QJsonValue &value : repaired) {
        const QJsonObject font = value.toObject();
        QStringList fixes;
        for (const QJsonValue &fix : font.value(QStringLiteral("repaired")).toArray())
            fixes << fix.toString();
        text += QStringLiteral("  %1 (%2): %3\n")
                    .arg(font.value(QStringLiteral("fontName")).toString(),
                        font.value(QStringLiteral("path")).toString(), fixes.join(QStringLiteral(", ")));
    }
    text += QStringLiteral("Quarantined: %1\n").arg(quarantined.size());
    for (const QJsonValue &value : quarantined) {
        const QJsonObject font = value.toObject();
        text += QStringLiteral("  %1 (%2)\n")
                    .arg(font.value(QStringLiteral("fontName")).toString(),
                        font.value(QStringLiteral("path")).toString());
    }
    if (resolution.contains(QStringLiteral("error")))
        text += QStringLiteral("The resolution stopped: %1\n")
                    .arg(resolution.value(QStringLiteral("error")).toString());
    if (!errors.isEmpty()) {
        text += QStringLiteral("Errors: %1\n").arg(errors.size());
        for (const QJsonValue &value : errors) {
            const QJsonObject error = value.toObject();
            text += QStringLiteral("  %1: %2\n")
                        .arg(error.value(QStringLiteral("fontName")).toString(),
                            error.value(QStringLiteral("error")).toString());
        }
    }
    return text;
}
