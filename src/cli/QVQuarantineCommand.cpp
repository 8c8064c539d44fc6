#include "cli/QVQuarantineCommand.h"

#include "cli/QVResolutionPlan.h"
#include "cli/QVTerminalProgress.h"
#include "diagnosis/QVDiagnosisResolution.h"
#include "engine/QVFontDataManager.h"
#include "platform/QVFileSystem.h"
#include "settings/QVProgress.h"
#include "store/QVQuarantineRuns.h"
#include "store/QVQuarantineStore.h"
#include "store/QVSuitcaseSurgery.h"

#include <QCryptographicHash>
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
    err() << "usage: quorvel-cli quarantine list [--json] [--match TEXT]\n"
             "       quorvel-cli quarantine restore [--to DIR] (--all | --match TEXT | ID...)\n"
             "       quorvel-cli quarantine remove [--yes] (--all | --match TEXT | ID...)\n"
             "Each font has the id \"quarantine list\" shows.\n";
    err().flush();
    return UsageError;
}

QString QVQuarantineCommand::rowId(const QVariantMap &row)
{
    // The row's identity in the index: its quarantined file, where it came
    // from and, for a suitcase's fonts, which font. Restores and removals of
    // other rows leave it as it is; a font quarantined later from elsewhere
    // under a freed name gets another.
    QCryptographicHash hash(QCryptographicHash::Sha1);
    for (const char *key : { "quarantineFileName", "originalFilePath", "fontName", "psName", "fontStyle" }) {
        hash.addData(field(row, key).toUtf8());
        hash.addData(QByteArrayView("\0", 1));
    }
    return QString::fromLatin1(hash.result().toHex().left(8));
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
        const qsizetype match = rest.indexOf(QStringLiteral("--match"));
        if (match >= 0 && match + 1 < rest.size()) {
            runs.handleSearch(rest.at(match + 1));
            rest.remove(match, 2);
        }
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
        for (const QVariantMap &row : std::as_const(runs.rowArray)) {
            QJsonObject object = QJsonObject::fromVariantMap(row);
            object.remove(QStringLiteral("reason"));
            object.insert(QStringLiteral("reasons"), QVResolutionPlan::reasons(field(row, "reason")));
            object.insert(QStringLiteral("id"), rowId(row));
            rows.append(object);
        }
        out() << QJsonDocument(rows).toJson(QJsonDocument::Indented);
    } else if (runs.rowArray.isEmpty()) {
        out() << (runs.rowSearchArray.isEmpty() ? "The quarantine is empty.\n" : "No font matches.\n");
    } else {
        for (const QVariantMap &row : std::as_const(runs.rowArray)) {
            out() << rowId(row) << "  " << field(row, "fontName") << "  (" << field(row, "fileName")
                  << ")\n          from " << field(row, "originalFilePath") << '\n';
            for (const QString &line : field(row, "reason").split(QLatin1Char('\n')))
                out() << "          " << line << '\n';
        }
    }
    out().flush();
    return Success;
}

bool QVQuarantineCommand::selectRows(QVQuarantineRuns &runs, QStringList arguments, QList<int> *rows)
{
    const bool all = arguments.removeAll(QStringLiteral("--all")) > 0;
    const qsizetype match = arguments.indexOf(QStringLiteral("--match"));
    if (match >= 0) {
        if (match + 1 >= arguments.size() || all) {
            usage();
            return false;
        }
        runs.handleSearch(arguments.at(match + 1));
        arguments.remove(match, 2);
    }
    if (all || match >= 0) {
        if (!arguments.isEmpty()) {
            usage();
            return false;
        }
        for (int row = 0; row < runs.rowArray.size(); ++row)
            rows->append(row);
        if (rows->isEmpty()) {
            err() << "quorvel-cli: no font in the quarantine" << (all ? "" : " matches") << '\n';
            err().flush();
        }
        return !rows->isEmpty();
    }
    if (arguments.isEmpty()) {
        usage();
        return false;
    }
    for (const QString &id : std::as_const(arguments)) {
        // An id, or a beginning of one long enough not to be a row number.
        QList<int> found;
        for (int row = 0; row < runs.rowArray.size(); ++row) {
            if (id.size() >= 4 && rowId(runs.rowArray.at(row)).startsWith(id.toLower()))
                found.append(row);
        }
        if (found.size() != 1) {
            err() << "quorvel-cli: "
                  << (found.isEmpty() ? "no font has the id " : "several fonts have ids beginning ") << id
                  << " (see: quorvel-cli quarantine list)\n";
            err().flush();
            return false;
        }
        if (!rows->contains(found.first()))
            rows->append(found.first());
    }
    return true;
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
    if (!selectRows(runs, rest, &rows))
        return UsageError;
    runs.checkedRowsArray = rows;
    for (const int row : std::as_const(rows))
        step(QStringLiteral("restoring %1 (%2)")
                 .arg(field(runs.rowArray.at(row), "fontName"), rowId(runs.rowArray.at(row))));
    const QList<int> companions = runs.companionsOf(rows);
    for (const int row : companions)
        step(QStringLiteral("restoring %1 (%2) with the font it belongs to")
                 .arg(field(runs.rowArray.at(row), "fontName"), rowId(runs.rowArray.at(row))));
    const qsizetype total = rows.size() + companions.size();
    const QVQuarantineRuns::RunResult result = runs.restoreQuarantinedFiles(folder);
    for (const QString &error : result.errors)
        err() << "quorvel-cli: " << error << '\n';
    if (!result.commitError.isNull())
        err() << "quorvel-cli: " << result.commitError << '\n';
    err().flush();
    if (!quiet())
        out() << "Restored " << result.handledRows.size() << " of " << total
              << (total == 1 ? " font.\n" : " fonts.\n");
    out().flush();
    return result.errors.isEmpty() && result.commitError.isNull() ? Success : ProblemsFound;
}

int QVQuarantineCommand::remove(QVQuarantineRuns &runs, const QStringList &arguments)
{
    QStringList rest = arguments;
    const bool yes = rest.removeAll(QStringLiteral("--yes")) + rest.removeAll(QStringLiteral("-y")) > 0;
    QList<int> rows;
    if (!selectRows(runs, rest, &rows))
        return UsageError;
    if (!yes) {
        for (const int row : std::as_const(rows))
            err() << "  " << rowId(runs.rowArray.at(row)) << "  " << field(runs.rowArray.at(row), "fontName")
                  << '\n';
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
    if (!quiet())
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
    const QList<QVProblemFontPtr> &problemFonts, const std::function<bool()> &stopRequested,
    const std::function<bool(const QVProblemFontPtr &)> &include)
{
    QVSuitcaseSurgery surgery(store);
    QVDiagnosisResolution resolution(store, &surgery);
    resolution.stopRequested = stopRequested;
    resolution.setProblemFontsArray(problemFonts);
    const QList<QVProblemFontPtr> rows = resolution.rowArray;
    for (int row = 0; row < rows.size(); ++row) {
        if (include && !include(rows.at(row)))
            resolution.setRowChecked(row, false);
    }
    // Long resolutions show their bar, like the window's.
    QVProgress bar;
    resolution.progress = &bar;
    QVTerminalProgress terminal(&bar, stderr);
    terminal.setPhase([](const QString &) { return QStringLiteral("Resolving"); });
    step(QStringLiteral("resolving %1 problem fonts").arg(resolution.checkedRowsArray.size()));
    QObject::connect(
        &resolution, &QVDiagnosisResolution::rowResolved, [&rows](int row, const QString &error) {
            const QVProblemFontPtr &entry = rows.at(row);
            const QString name = QVQuarantineStore::displayName(entry->fontFile, entry->fontStatus);
            if (!error.isNull())
                step(name + QStringLiteral(": ") + error);
            else if (QVDiagnosisResolution::getActionTitleForErrors(entry->fontStatus)
                == QLatin1String("Repair"))
                step(QStringLiteral("repaired ") + name);
            else if (!entry->duplicatesArray.isEmpty())
                step(QStringLiteral("quarantined the other copies of ") + name);
            else
                step(QStringLiteral("quarantined ") + name);
        });
    const qsizetype recordsBefore = store->addedRecords.size();
    const QVDiagnosisResolution::Outcome outcome = resolution.resolveIssues();
    terminal.clear();

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
                record.value(QStringLiteral("quarantineFileName")).toString() },
            { QStringLiteral("reasons"),
                QVResolutionPlan::reasons(record.value(QStringLiteral("reason")).toString()) } });
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

QVCliHelp::Command QVQuarantineCommand::help() const
{
    return { {}, {},
        { QStringLiteral("quarantine list [--json] [--match TEXT]"),
            QStringLiteral("quarantine restore [--to DIR] (--all | --match TEXT | ID...)"),
            QStringLiteral("quarantine remove [--yes] (--all | --match TEXT | ID...)") },
        QStringLiteral(
            "Lists the fonts held in the quarantine, sorted by name, each with its id, the file it "
            "was in and why it was moved; puts fonts back where they came from (or into a folder); "
            "or deletes them for good, after asking. An id stays the same as long as its font is in "
            "the quarantine, whatever is restored or removed before it; a unique beginning of an id "
            "is enough."),
        { { QStringLiteral("--match TEXT"),
              QStringLiteral("The fonts whose name contains TEXT, ignoring case and "
                             "accents (the Quarantine view's search).") },
            { QStringLiteral("--all"), QStringLiteral("Every font in the quarantine.") },
            { QStringLiteral("--to DIR"),
                QStringLiteral("Restore into DIR instead of the original folders.") },
            { QStringLiteral("-y, --yes"), QStringLiteral("Remove without asking.") },
            { QStringLiteral("--json"), QStringLiteral("List the rows as JSON.") } },
        { QStringLiteral("quarantine restore --match \"DejaVu Sans\""),
            QStringLiteral("quarantine remove --yes 3f9a1c") } };
}
