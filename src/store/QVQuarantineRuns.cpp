#include "store/QVQuarantineRuns.h"

#include "engine/QVFontConstants.h"
#include "engine/QVResourceManager.h"
#include "engine/QVType1Files.h"
#include "platform/QVAtomicFile.h"
#include "platform/QVFileName.h"
#include "platform/QVFilePair.h"
#include "platform/QVFileSystem.h"
#include "settings/QVLog.h"
#include "settings/QVProgress.h"
#include "store/QVQuarantineStore.h"
#include "store/QVSuitcaseSurgery.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSet>
#include <algorithm>
#include <sys/stat.h>

namespace
{

QString value(const QVariantMap &map, const char *key)
{
    return map.value(QString::fromLatin1(key)).toString();
}

bool exists(const QString &path)
{
    struct stat st;
    return ::lstat(QVFileName::encode(path).constData(), &st) == 0;
}

// Lower case, accents taken off: "Ärial" and "arial" compare equal.
QString folded(const QString &text)
{
    const QString decomposed = text.normalized(QString::NormalizationForm_KD);
    QString result;
    result.reserve(decomposed.size());
    for (const QChar c : decomposed) {
        if (c.category() != QChar::Mark_NonSpacing && c.category() != QChar::Mark_Enclosing
            && c.category() != QChar::Mark_SpacingCombining)
            result.append(c);
    }
    return result.toCaseFolded();
}

// The index is only a file on disk: what it names is checked before anything
// moves. A quarantined file is one name directly inside the quarantine.
bool isQuarantineName(const QString &name)
{
    return !name.isEmpty() && !name.contains(QLatin1Char('/')) && !name.contains(QChar(0))
        && name != QLatin1String(".") && name != QLatin1String("..");
}

// An original place as Quorvel records one: absolute and normalised, with no
// "." or ".." along the way.
bool isRecordedPath(const QString &path)
{
    if (!path.startsWith(QLatin1Char('/')) || path.contains(QChar(0)) || QDir::cleanPath(path) != path)
        return false;
    const QStringList parts = path.split(QLatin1Char('/'));
    return parts.size() > 1 && !parts.last().isEmpty() && !parts.contains(QLatin1String(".."))
        && !parts.contains(QLatin1String("."));
}

bool isSuitcaseMember(const QVariantMap &row)
{
    const int type = row.value(QStringLiteral("fontType")).toInt();
    return row.value(QStringLiteral("fontFileType")).toInt() == 0 && (type == 0 || type == 3);
}

} // namespace

QVQuarantineRuns::QVQuarantineRuns(QVQuarantineStore *store, QVSuitcaseSurgery *surgery)
    : m_store(store)
    , m_surgery(surgery)
{
    updateRowArray();
}

void QVQuarantineRuns::updateRowArray()
{
    rowArray.clear();
    for (const QVariantMap &record : std::as_const(m_store->quarantinedFilesDataArray)) {
        const QVariantList names = record.value(QStringLiteral("fontNames")).toList();
        const QVariantList psNames = record.value(QStringLiteral("fontPSnames")).toList();
        const QVariantList styles = record.value(QStringLiteral("fontStyles")).toList();
        const QVariantList types = record.value(QStringLiteral("fontTypes")).toList();
        const QVariantList foundries = record.value(QStringLiteral("fontFoundries")).toList();
        const QString original = value(record, "originalFilePath");
        for (qsizetype i = 0; i < names.size(); ++i) {
            QVariantMap row;
            row.insert(QStringLiteral("fontName"), names.at(i).toString());
            row.insert(QStringLiteral("psName"), psNames.value(i).toString());
            row.insert(QStringLiteral("fontStyle"), styles.value(i).toString());
            row.insert(QStringLiteral("fontType"), types.value(i).toInt());
            if (!foundries.isEmpty())
                row.insert(QStringLiteral("fontFoundry"), foundries.value(i).toString());
            row.insert(QStringLiteral("fontFileType"), record.value(QStringLiteral("fontFileType")).toInt());
            row.insert(QStringLiteral("quarantineFileName"), value(record, "quarantineFileName"));
            row.insert(QStringLiteral("originalFilePath"), original);
            // A file found in the quarantine without a record has only its own name.
            row.insert(QStringLiteral("fileName"),
                original.isEmpty() ? value(record, "quarantineFileName") : QFileInfo(original).fileName());
            row.insert(QStringLiteral("reason"), value(record, "reason"));
            rowArray.append(row);
        }
    }
    std::stable_sort(rowArray.begin(), rowArray.end(), [](const QVariantMap &a, const QVariantMap &b) {
        return value(a, "fontName") < value(b, "fontName");
    });
    rowSearchArray = rowArray;
}

bool QVQuarantineRuns::containsIgnoringCaseAndDiacritics(const QString &text, const QString &searched)
{
    return folded(text).contains(folded(searched));
}

void QVQuarantineRuns::handleSearch(const QString &text)
{
    if (text.isEmpty()) {
        updateRowArray();
    } else {
        rowArray.clear();
        for (const QVariantMap &row : std::as_const(rowSearchArray)) {
            if (containsIgnoringCaseAndDiacritics(value(row, "fontName"), text))
                rowArray.append(row);
        }
    }
    checkedRowsArray.clear();
}

QString QVQuarantineRuns::getInfoText(const QVariantMap &row)
{
    const QString original = value(row, "originalFilePath");
    const QString fileName = QFileInfo(original).fileName();
    const int type = row.value(QStringLiteral("fontType")).toInt();
    const QString typeName = getFontTypeName(type);
    const QString foundry = value(row, "fontFoundry");
    if (type == 1 || type == 2)
        return QStringLiteral(
            "File Name: %1\nFont Type: %2\nPostScript Name: %3\nFoundry:%4\nQuarantined From: %5")
            .arg(fileName, typeName, value(row, "psName"), foundry, original);
    if (!foundry.isEmpty() && foundry != QLatin1String("-"))
        return QStringLiteral(
            "File Name: %1\nFont Type: %2\nStyle: %3\nPostScript Name: %4\nFoundry:%5\nQuarantined From: %6")
            .arg(fileName, typeName, value(row, "fontStyle"), value(row, "psName"), foundry, original);
    return QStringLiteral(
        "File Name: %1\nFont Type: %2\nStyle: %3\nPostScript Name: %4\nQuarantined From: %5")
        .arg(fileName, typeName, value(row, "fontStyle"), value(row, "psName"), original);
}

double QVQuarantineRuns::rowHeight(const QVariantMap &row)
{
    const QString reason = value(row, "reason");
    if (!reason.contains(QLatin1Char('\n')))
        return 25;
    return 25 * (reason.count(QLatin1Char('\n')) + 1) * 0.9;
}

template <typename Handler>
QVQuarantineRuns::RunResult QVQuarantineRuns::run(
    Handler handleRow, const QString &label, const QString &kind)
{
    RunResult result;
    cancelRequested = false;
    const QList<int> checked = checkedRowsArray;
    const bool withProgress = progress && checked.size() >= kProgressThreshold;
    // The step is taken from every row shown, so the bar reaches its end
    // only when the run ends.
    const double step = rowArray.isEmpty() ? 0.1 : 100.0 / double(rowArray.size());
    if (withProgress) {
        progress->reset();
        progress->setLabel(label);
        progress->setMaximum(100);
    }
    QList<QVariantMap> recordsToRemove;
    const QString quarantine = m_store->quarantineFolderPath();
    if (!checked.isEmpty()) {
        if (const QString error = m_store->lockForChange(); !error.isNull()) {
            result.errors << error;
            return result;
        }
    }
    // The records of each quarantined file, looked up once per row.
    QHash<QString, QList<qsizetype>> recordsByName;
    const QList<QVariantMap> &index = m_store->quarantinedFilesDataArray;
    for (qsizetype i = 0; i < index.size(); ++i)
        recordsByName[value(index.at(i), "quarantineFileName")].append(i);
    // The records that belong to a row.
    auto recordsOf = [&](const QVariantMap &row) {
        const bool member = isSuitcaseMember(row);
        QList<QVariantMap> records;
        for (const qsizetype i : recordsByName.value(value(row, "quarantineFileName"))) {
            const QVariantMap &record = index.at(i);
            if (!member
                || record.value(QStringLiteral("fontNames")).toStringList().contains(value(row, "fontName")))
                records.append(record);
        }
        return records;
    };
    qsizetype journalledUpTo = 0;
    for (qsizetype k = 0; k < checked.size(); ++k) {
        const int rowNumber = checked.at(k);
        if (withProgress) {
            if (cancelRequested) {
                progress->setValue(100);
                result.cancelled = true;
                break;
            }
            progress->increment(step);
        }
        if (rowNumber < 0 || rowNumber >= rowArray.size())
            continue;
        const QVariantMap row = rowArray.at(rowNumber);
        // Recorded before the files leave, a batch of rows at a time (one
        // sync for all), so that a run cut short still knows they left. A
        // restore moves fonts: one that cannot be recorded stops the run. A
        // removal goes on (it frees the disk; at worst a row outlives its file).
        if (k >= journalledUpTo) {
            QList<QVQuarantineStore::Removal> removals;
            for (journalledUpTo = k; journalledUpTo < checked.size() && journalledUpTo < k + kJournalBatch;
                 ++journalledUpTo) {
                const int ahead = checked.at(journalledUpTo);
                if (ahead < 0 || ahead >= rowArray.size())
                    continue;
                const QString name = value(rowArray.at(ahead), "quarantineFileName");
                if (!name.isEmpty() && !name.contains(QLatin1Char('/'))
                    && exists(quarantine + QLatin1Char('/') + name))
                    removals.append({ name, recordsOf(rowArray.at(ahead)) });
            }
            const QString unrecorded = m_store->journalRemovals(kind, removals);
            if (!unrecorded.isNull() && kind == QLatin1String("restore")) {
                result.errors << unrecorded;
                break;
            }
        }
        const QList<QVariantMap> records = recordsOf(row);
        QString error;
        if (!handleRow(row, &error)) {
            if (!error.isEmpty())
                result.errors << error;
            continue;
        }
        result.handledRows << rowNumber;
        recordsToRemove += records;
    }
    if (withProgress)
        progress->setValue(100);
    if (!result.handledRows.isEmpty()) {
        m_store->removeRecords(recordsToRemove);
        checkedRowsArray.clear();
        updateRowArray();
        result.commitError = m_store->commitQuarantine();
    }
    return result;
}

QList<QList<int>> QVQuarantineRuns::restoreGroups(const QList<int> &rows) const
{
    // A PC Type 1 outline and its metrics files left their folder together;
    // either one restored alone would come back a font with a missing part.
    // An outline brings its metrics files, a metrics file its outlines; two
    // outlines of one name are duplicates, and one never brings the other.
    QHash<QString, QList<int>> outlines, metrics;
    for (int i = 0; i < rowArray.size(); ++i) {
        const QString path = value(rowArray.at(i), "originalFilePath");
        for (const QString &base : QVType1Files::outlineBases(path))
            (QVType1Files::isOutline(path) ? outlines : metrics)[base].append(i);
    }
    QSet<int> placed(rows.cbegin(), rows.cend());
    QList<QList<int>> groups;
    for (const int row : rows) {
        groups.append(QList<int> { row });
        if (row < 0 || row >= rowArray.size())
            continue;
        const QString path = value(rowArray.at(row), "originalFilePath");
        const auto &partners = QVType1Files::isOutline(path) ? metrics : outlines;
        for (const QString &base : QVType1Files::outlineBases(path)) {
            for (const int other : partners.value(base)) {
                if (!placed.contains(other)) {
                    placed.insert(other);
                    groups.last().append(other);
                }
            }
        }
    }
    return groups;
}

QList<int> QVQuarantineRuns::companionsOf(const QList<int> &rows) const
{
    QList<int> companions;
    for (const QList<int> &group : restoreGroups(rows))
        companions += group.mid(1);
    return companions;
}

QVQuarantineRuns::RunResult QVQuarantineRuns::restoreQuarantinedFiles(const QString &chosenFolder)
{
    // Each chosen row is followed by its companions, which go where it goes.
    const QList<QList<int>> groups = restoreGroups(checkedRowsArray);
    QList<int> companions;
    checkedRowsArray.clear();
    for (const QList<int> &group : groups) {
        checkedRowsArray += group;
        companions += group.mid(1);
    }
    // A folder chosen for the first row alone takes its companions too.
    qsizetype firstGroupLeft = groups.isEmpty() ? 0 : groups.first().size();
    QString folder = chosenFolder;
    const QString quarantine = m_store->quarantineFolderPath();
    const QString folderProblem = m_store->folderProblem();
    auto restoreRow = [&](const QVariantMap &row, QString *error) {
        const QString name = value(row, "quarantineFileName");
        const QString quarantined = quarantine + QLatin1Char('/') + name;
        QString destination = folder.isEmpty() ? value(row, "originalFilePath")
                                               : folder + QLatin1Char('/') + value(row, "fileName");
        auto after = [&]() {
            if (--firstGroupLeft <= 0 && isHandlingError && !folder.isEmpty() && !applyToAll)
                folder.clear();
        };
        QString refused = folderProblem;
        if (refused.isNull() && !isQuarantineName(name))
            refused
                = QStringLiteral("the index names \"%1\", which is not a file of the quarantine").arg(name);
        else if (refused.isNull() && !isRecordedPath(value(row, "originalFilePath")))
            refused = QStringLiteral("the index gives \"%1\" as its place, which is not a full path")
                          .arg(value(row, "originalFilePath"));
        else if (refused.isNull() && QVAtomicFile::isSymLink(quarantined))
            refused = QVAtomicFile::errorText(quarantined, ELOOP);
        if (!refused.isNull()) {
            qCWarning(lcStore, "Error: restore refused: %s", qUtf8Printable(refused));
            *error = value(row, "fontName") + QStringLiteral(": ") + refused;
            after();
            return false;
        }
        if (!exists(quarantined)) {
            qCWarning(lcStore, "Error: file not found at %s", qUtf8Printable(quarantined));
            *error = value(row, "fontName") + QStringLiteral(": file not found at ") + quarantined;
            after();
            return false;
        }
        QString failure;
        const QString parent = QFileInfo(destination).absolutePath();
        if (destination.isEmpty()) {
            failure = QStringLiteral("Where it came from is not known; restore it into a chosen folder");
        } else if (folder.isEmpty()) {
            if (QVFileSystem::isDirectory(parent)) {
                if (!QFileInfo(parent).isWritable())
                    failure = QStringLiteral("You don't have permission to write to the folder \"%1\"")
                                  .arg(parent);
            } else if (!QDir().mkpath(parent)) {
                // Made with the user's own default permissions, never wider.
                failure = QStringLiteral("The folder \"%1\" could not be created").arg(parent);
            }
        }
        if (failure.isEmpty() && exists(destination)) {
            if (isSuitcaseMember(row)) {
                // The quarantined copy is deleted after the merge: only when
                // the suitcase then holds every font of it.
                QString merged = m_surgery->checkRestoreIntoSuitcase(quarantined, destination);
                if (merged.isNull())
                    merged = m_surgery->moveFontFromQuarantineToSuitcase(quarantined, destination);
                if (!merged.isNull()) {
                    qCWarning(lcStore, "Error moveFontFromQuarantineToSuitcase = %s", qUtf8Printable(merged));
                    failure = merged;
                } else if (const QVFilePair::Result removed = QVFilePair::remove(quarantined); !removed) {
                    qCWarning(lcStore, "Error removeItemAtPath = %s", qUtf8Printable(removed.message));
                }
                destination.clear();
            } else {
                // Another file took the name meanwhile: the font comes back
                // beside it under a numbered name rather than stay unlisted.
                destination
                    = QVQuarantineStore::uniqueDestination(parent, QFileInfo(destination).fileName(), true);
            }
        }
        if (failure.isEmpty() && !destination.isEmpty()) {
            const QVFilePair::Result moved = QVFilePair::move(quarantined, destination);
            if (!moved)
                failure = moved.message;
        }
        if (!failure.isEmpty()) {
            qCWarning(lcStore, "Error restoring font file: %s", qUtf8Printable(failure));
            *error = value(row, "fontName") + QStringLiteral(": ") + failure;
        }
        after();
        return failure.isEmpty();
    };
    RunResult result = run(restoreRow, QStringLiteral("Restoring Font files..."), QStringLiteral("restore"));
    result.companionRows = companions;
    return result;
}

QVQuarantineRuns::RunResult QVQuarantineRuns::removeQuaratinedFiles()
{
    const QString quarantine = m_store->quarantineFolderPath();
    const QString folderProblem = m_store->folderProblem();
    auto removeRow = [&](const QVariantMap &row, QString *error) {
        if (!folderProblem.isNull()) {
            *error = value(row, "fontName") + QStringLiteral(": ") + folderProblem;
            return false;
        }
        const QString name = value(row, "quarantineFileName");
        // Only files directly inside the quarantine, whatever the index says.
        if (!isQuarantineName(name))
            return true;
        const QString quarantined = quarantine + QLatin1Char('/') + name;
        if (!exists(quarantined)) {
            qCWarning(lcStore, "Error: file not found at %s", qUtf8Printable(quarantined));
            return true;
        }
        const QVFilePair::Result removed = QVFilePair::remove(quarantined);
        if (!removed) {
            // Kept listed: a file still there must stay findable.
            qCWarning(lcStore, "Error removeItemAtPath = %s", qUtf8Printable(removed.message));
            *error = value(row, "fontName") + QStringLiteral(": ") + removed.message;
            return false;
        }
        return true;
    };
    return run(removeRow, QStringLiteral("Removing Font Files..."), QStringLiteral("remove"));
}

qint16 QVQuarantineRuns::removeFontFromSuitcase(const QVariantMap &row)
{
    if (!isQuarantineName(value(row, "quarantineFileName")) || !m_store->folderProblem().isNull())
        return QVResourceError::Permission;
    const QString path
        = m_store->quarantineFolderPath() + QLatin1Char('/') + value(row, "quarantineFileName");
    return m_surgery->removeSuitcaseFontFromQuarantine(
        path, value(row, "psName"), row.value(QStringLiteral("fontType")).toInt() == 3);
}
