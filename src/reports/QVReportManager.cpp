#include "reports/QVReportManager.h"

#include "engine/QVFontConstants.h"
#include "engine/QVProblemCounts.h"
#include "platform/QVFileName.h"
#include "platform/QVUserAccount.h"
#include "settings/QVLog.h"
#include "settings/QVProgress.h"
#include "settings/QVSettings.h"
#include "store/QVReportStore.h"

#include <QCoreApplication>
#include <QFile>
#include <QLocale>
#include <QMutex>
#include <QMutexLocker>
#include <QUrl>
#include <condition_variable>
#include <mutex>

namespace
{

QMutex hookMutex;
QVReportManager::ShowReportHook showReportHook;

const QString kRed = QStringLiteral("<span style=\"color:red;\">%1</span>");
const QString kIgnored
    = QStringLiteral("<span style=\"color:red;\"><p style=\"text-align:center;\">Ignored</p></span>");
// A run that nobody resolved (the command line without --resolve): nothing
// was decided, so nothing is shown as turned down.
const QString kNotResolved
    = QStringLiteral("<span style=\"color:#777;\"><p style=\"text-align:center;\">Not resolved</p></span>");
const QString kRepaired
    = QStringLiteral("<span style=\"color:green;\"><p style=\"text-align:center;\">Repaired</p></span>");
const QString kMovedStar = QStringLiteral("<p style=\"text-align:center;\">Moved to<br>Quarantine*</p>");
const QString kMoved = QStringLiteral("<p style=\"text-align:center;\">Moved to<br>Quarantine</p>");
const QString kFooter = QStringLiteral("<span style=\"font-style:italic;font-size:12px;\">* The Bitmap and "
                                       "PostScript files for this font have been "
                                       "moved to the Quarantine.</span>");

// Escaped, and with the bytes of names that are not UTF-8 shown as characters.
QString esc(const QString &text)
{
    return QVFileName::display(text).toHtmlEscaped();
}

// Status and file paths are absolute paths; a file URL is taken too.
QString pathOf(const QString &location)
{
    if (location.startsWith(QLatin1String("file:")))
        return QUrl(location).toLocalFile();
    return location;
}

QString displayName(const QVFontFile &file, const QVStatus &status)
{
    if (status.fontType == QVFontType::TrueType && file.fontFileType == 0
        && !status.trueTypeFontName.isEmpty())
        return status.trueTypeFontName;
    return status.fontName;
}

QString threeLineCell(const QVFontFile &file, const QVStatus &status)
{
    return QStringLiteral("<b>%1</b><ul style=\"font-size:12px;color:#555\"><li>%2<li>%3</ul>")
        .arg(esc(displayName(file, status)), esc(status.fontStyle), esc(getFontTypeName(status.fontType)));
}

QString twoLineCell(const QVFontFile &file, const QVStatus &status)
{
    return QStringLiteral("<b>%1</b><ul style=\"font-size:12px;color:#555\"><li>%2</ul>")
        .arg(esc(displayName(file, status)), esc(getFontTypeName(status.fontType)));
}

QString locationCell(const QVStatus &status, bool noneAsText)
{
    const bool noPSname = status.PSname == QLatin1String("<none>");
    // The organize section prints "<none>" itself where the others print the path.
    const QString path = noPSname && noneAsText ? status.PSname : pathOf(status.fontURL);
    if (noPSname)
        return esc(path);
    return QStringLiteral("%1<br><br><span style=\"color:#555;\">PostScript Name: </span><span "
                          "style=\"color:#333;\">%2</span>")
        .arg(esc(path), esc(status.PSname));
}

QString quarantineRule(
    const QVFontFile &file, const QVStatus &status, bool starAllowed, bool *usedStar, bool resolved)
{
    const bool moved = status.movedToQuarantine || file.fileMovedToQuarantine;
    if (!status.movedToQuarantineErrorInfo.isEmpty())
        return kRed.arg(esc(status.movedToQuarantineErrorInfo));
    if (!moved)
        return resolved ? kIgnored : kNotResolved;
    if (starAllowed && status.movedSisterToQuarantine) {
        *usedStar = true;
        return kMovedStar;
    }
    return kMoved;
}

QString corruptAction(const QVFontFile &file, const QVStatus &status, bool *usedStar, bool resolved)
{
    const qsizetype index = status.fontErrors.indexOf(QVErrorClass::Defect);
    if (index >= 0) {
        const QString message = status.fixedErrorMessages.value(index);
        if (!message.isEmpty())
            return kRed.arg(esc(message));
        if (status.fixedErrors.value(index, false))
            return kRepaired;
    }
    return quarantineRule(file, status, true, usedStar, resolved);
}

QString heading(qsizetype count, const char *plural, const char *singular)
{
    if (count == 1)
        return QString::fromUtf8(singular);
    return QString::fromUtf8(plural).arg(count);
}

void appendSection(QList<QVReportRow> &out, QList<QVReportRow> &&rows, const QString &header)
{
    if (rows.isEmpty())
        return;
    rows.first().qv_diagnosis_header = header;
    out.append(std::move(rows));
}

QString scanSummary(const QVReportInput &input)
{
    if (input.scanType.isEmpty() && input.scanFolders.isEmpty())
        return QString();
    QString html = QStringLiteral("<dl class=\"scan\">");
    if (!input.scanType.isEmpty())
        html += QStringLiteral("<dt>Scan</dt><dd>%1</dd>").arg(esc(input.scanType));
    if (!input.scanFolders.isEmpty()) {
        QStringList folders;
        for (const QString &folder : input.scanFolders)
            folders.append(esc(folder));
        html += QStringLiteral("<dt>Folders</dt><dd>%1</dd>").arg(folders.join(QStringLiteral("<br>")));
    }
    html += QStringLiteral(
        "<dt>Found by pass</dt><dd>File structure %1 &middot; Missing bitmap fonts %2 &middot; "
        "Missing PostScript fonts %3 &middot; Duplicates %4</dd></dl>")
                .arg(QVReportStore::formatCount(input.fileStructureProblemCount),
                    QVReportStore::formatCount(input.missingBitmapProblemCount),
                    QVReportStore::formatCount(input.missingPSProblemCount),
                    QVReportStore::formatCount(input.duplicateProblemCount));
    return html;
}

// One marker's text between its opening and closing tag: [begin, end).
struct Block {
    qsizetype begin = -1;
    qsizetype end = -1;
    bool found() const { return begin >= 0 && end >= begin; }
};

Block findBlock(const QString &text, const QString &open, const QString &close)
{
    Block block;
    const qsizetype start = text.indexOf(open);
    if (start < 0)
        return block;
    const qsizetype stop = text.indexOf(close, start + open.size());
    if (stop < 0)
        return block;
    block.begin = start + open.size();
    block.end = stop;
    return block;
}

} // namespace

QVReportManager::QVReportManager(QObject *parent)
    : QObject(parent)
    , m_settings(std::make_unique<QVSettings>())
    , m_progress(std::make_unique<QVProgress>())
    , m_templatePath(QStringLiteral(":/quorvel/QVReportTemplate1.html"))
{
    m_generateHTMLqueue.setMaxThreadCount(1);
}

QVReportManager::~QVReportManager()
{
    m_cancel.store(true);
    m_generateHTMLqueue.waitForDone();
}

QVReportData QVReportManager::createReportDataDictionary(const QDateTime &date) const
{
    QVReportData data;
    data.qv_report_title = QStringLiteral("Quorvel Report ") + date.toString(QStringLiteral("M/d/yyyy"));
    data.qv_date = date;
    data.qv_total_examined = m_input.totalFonts;
    data.qv_total_quarantined = m_input.qv_total_quarantined;
    data.qv_total_problems = QVProblemCounts::problemFonts(m_input.problemFontsArray);
    data.qv_total_healthy = QVProblemCounts::healthyFonts(m_input.totalFonts, m_input.problemFontsArray);
    data.qv_scan_summary = scanSummary(m_input);

    // Sort the problem list into the sections.
    QList<QVFontRef> duplicates;
    QList<const QVProblemFont *> owners, corrupt, missingBitmap, missingPostScript;
    for (const QVProblemFontPtr &entry : m_input.problemFontsArray) {
        if (!entry || !entry->fontFile || !entry->fontStatus)
            continue;
        for (const QVFontRef &duplicate : entry->duplicatesArray) {
            if (!duplicate.fontFile || !duplicate.fontStatus)
                continue;
            duplicates.append(duplicate);
            owners.append(entry.get());
        }
        for (int kind : std::as_const(entry->fontStatus->fontErrors)) {
            if (kind == QVErrorClass::Defect)
                corrupt.append(entry.get());
            else if (kind == QVErrorClass::MissingBitmap)
                missingBitmap.append(entry.get());
            else if (kind == QVErrorClass::MissingPostScript)
                missingPostScript.append(entry.get());
        }
    }

    struct Failure {
        const QVFontFile *file;
        const QVStatus *status;
        QString description;
    };
    QList<Failure> failures;
    for (const QVFontFilePtr &file : m_input.fontFileItems) {
        if (!file)
            continue;
        for (const QVStatusPtr &status : std::as_const(file->fontStatusArray)) {
            if (!status)
                continue;
            if (!status->movedToLibraryErrorInfo.isEmpty())
                failures.append({ file.get(), status.get(), status->movedToLibraryErrorInfo });
            else if (!status->copiedToLibraryErrorInfo.isEmpty())
                failures.append({ file.get(), status.get(), status->copiedToLibraryErrorInfo });
        }
    }

    bool usedStar = false;
    QList<QVReportRow> &rows = data.diagnosisArray;

    QList<QVReportRow> section;
    for (const QVProblemFont *entry : std::as_const(corrupt)) {
        const QVFontFile &file = *entry->fontFile;
        const QVStatus &status = *entry->fontStatus;
        QVReportRow row;
        row.qv_diagnosis_fontName
            = status.fontStyle.isEmpty() ? twoLineCell(file, status) : threeLineCell(file, status);
        row.qv_diagnosis_location = locationCell(status, false);
        row.qv_diagnosis_condition = esc(status.fontErrorsInfo.value(0));
        row.qv_diagnosis_action = corruptAction(file, status, &usedStar, m_input.resolved);
        section.append(std::move(row));
    }
    appendSection(rows, std::move(section),
        heading(corrupt.size(),
            "%1 fonts were diagnosed as corrupt or damaged:", "1 font was diagnosed as corrupt or damaged:"));

    section = {};
    for (qsizetype i = 0; i < duplicates.size(); ++i) {
        const QVFontFile &file = *duplicates.at(i).fontFile;
        const QVStatus &status = *duplicates.at(i).fontStatus;
        const QVProblemFont &owner = *owners.at(i);
        const QVStatus &ownerStatus = *owner.fontStatus;
        for (qsizetype e = 0; e < ownerStatus.fontErrors.size(); ++e) {
            if (ownerStatus.fontErrors.at(e) != QVErrorClass::Duplicate)
                continue;
            QVReportRow row;
            row.qv_diagnosis_fontName = threeLineCell(file, status);
            row.qv_diagnosis_location = locationCell(status, false);
            row.qv_diagnosis_condition
                = QStringLiteral("<b>%1</b><br><div style=\"padding-top:5px;font-size:11px;\">Matched Font: "
                                 "%2<br><span style=\"color:#777;\">%3</span></div>")
                      .arg(esc(ownerStatus.fontErrorsInfo.value(e)), esc(displayName(file, status)),
                          esc(pathOf(owner.fontFile->URL)));
            row.qv_diagnosis_action = quarantineRule(file, status, true, &usedStar, m_input.resolved);
            section.append(std::move(row));
        }
    }
    appendSection(rows, std::move(section),
        heading(duplicates.size(), "%1 fonts were diagnosed as having duplicate fonts:",
            "1 font was diagnosed as having duplicate fonts:"));

    section = {};
    for (const QVProblemFont *entry : std::as_const(missingBitmap)) {
        const QVFontFile &file = *entry->fontFile;
        const QVStatus &status = *entry->fontStatus;
        QVReportRow row;
        row.qv_diagnosis_fontName = twoLineCell(file, status);
        row.qv_diagnosis_location = locationCell(status, false);
        row.qv_diagnosis_condition
            = esc(status.fontErrorsInfo.value(status.fontErrors.indexOf(QVErrorClass::MissingBitmap)));
        row.qv_diagnosis_action = quarantineRule(file, status, false, &usedStar, m_input.resolved);
        section.append(std::move(row));
    }
    appendSection(rows, std::move(section),
        heading(missingBitmap.size(),
            "%1 PostScript fonts were diagnosed as missing their bitmap font counterparts:",
            "1 PostScript font was diagnosed as missing it's bitmap font counterpart:"));

    section = {};
    for (const QVProblemFont *entry : std::as_const(missingPostScript)) {
        const QVFontFile &file = *entry->fontFile;
        const QVStatus &status = *entry->fontStatus;
        QVReportRow row;
        row.qv_diagnosis_fontName = threeLineCell(file, status);
        row.qv_diagnosis_location = locationCell(status, false);
        row.qv_diagnosis_condition
            = esc(status.fontErrorsInfo.value(status.fontErrors.indexOf(QVErrorClass::MissingPostScript)));
        row.qv_diagnosis_action = quarantineRule(file, status, false, &usedStar, m_input.resolved);
        section.append(std::move(row));
    }
    appendSection(rows, std::move(section),
        heading(missingPostScript.size(),
            "%1 bitmap fonts were diagnosed as missing their PostScript font counterparts:",
            "1 bitmap font was diagnosed as missing it's PostScript font counterpart:"));

    section = {};
    const QString condition = m_settings->copyFontFiles()
        ? QStringLiteral("Couldn't copy font to folder \"%1\"")
        : QStringLiteral("Couldn't move font to folder \"%1\"");
    const QString organizeFolder = esc(m_settings->organizeFontsFolder());
    for (const Failure &failure : std::as_const(failures)) {
        QVReportRow row;
        row.qv_diagnosis_fontName = twoLineCell(*failure.file, *failure.status);
        row.qv_diagnosis_location = locationCell(*failure.status, true);
        row.qv_diagnosis_condition = condition.arg(organizeFolder);
        row.qv_diagnosis_action = kRed.arg(esc(failure.description));
        section.append(std::move(row));
    }
    appendSection(rows, std::move(section),
        heading(failures.size(),
            "%1 fonts had problems when being organized:", "1 font had a problem when being organized:"));

    if (usedStar)
        data.qv_diagnosis_info_footer = kFooter;
    return data;
}

QString QVReportManager::fillTemplate(const QVReportData &data)
{
    QString html;
    {
        QFile file(m_templatePath);
        if (file.open(QIODevice::ReadOnly))
            html = QString::fromUtf8(file.readAll());
        else
            qCWarning(lcReports).noquote()
                << QStringLiteral("Error: report template %1").arg(file.errorString());
    }
    if (html.isEmpty()) {
        m_reportIsProcessing.store(false);
        return QStringLiteral("");
    }

    const QLocale locale = QLocale::system();
    QString userName = m_settings->userName();
    if (userName.isEmpty())
        userName = QVUserAccount::fullUserName();
    html.replace(QLatin1String("<qv_user_name>"), esc(userName));
    html.replace(QLatin1String("<qv_computer_name>"), esc(QVUserAccount::localizedHostName()));
    html.replace(QLatin1String("<qv_date>"), esc(locale.toString(data.qv_date.date(), QLocale::LongFormat)));
    html.replace(QLatin1String("<qv_time>"),
        esc(locale.toString(data.qv_date, locale.timeFormat(QLocale::LongFormat))));
    html.replace(QLatin1String("<qv_report_title>"), esc(data.qv_report_title));
    html.replace(QLatin1String("<qv_total_examined>"), QVReportStore::formatCount(data.qv_total_examined));
    html.replace(QLatin1String("<qv_total_problems>"), QVReportStore::formatCount(data.qv_total_problems));
    html.replace(QLatin1String("<qv_total_healthy>"), QVReportStore::formatCount(data.qv_total_healthy));
    html.replace(
        QLatin1String("<qv_total_quarantined>"), QVReportStore::formatCount(data.qv_total_quarantined));
    html.replace(QLatin1String("<qv_scan_summary>"), data.qv_scan_summary);

    // The version and the footnote first: row values are escaped, so they
    // cannot hold a marker, and the big text is then never copied again.
    html.replace(QLatin1String("<qv_diagnosis_version>"), QStringLiteral(QV_VERSION));
    html.replace(QLatin1String("<qv_diagnosis_info_footer>"),
        data.qv_diagnosis_info_footer.isEmpty() ? QStringLiteral("<br>") : data.qv_diagnosis_info_footer);

    const Block table
        = findBlock(html, QStringLiteral("<qv_diagnosis_table>"), QStringLiteral("</qv_diagnosis_table>"));
    if (!table.found())
        return html;
    const QString tableTemplate = html.mid(table.begin, table.end - table.begin);
    const Block row = findBlock(
        tableTemplate, QStringLiteral("<qv_diagnosis_row>"), QStringLiteral("</qv_diagnosis_row>"));
    // Without a row block the table is cloned whole and no rows are added.
    const QString tableHead = row.found() ? tableTemplate.left(row.begin) : tableTemplate;
    const QString tableTail = row.found() ? tableTemplate.mid(row.end) : QString();
    const QString rowTemplate = row.found() ? tableTemplate.mid(row.begin, row.end - row.begin) : QString();

    const qsizetype count = data.diagnosisArray.size();
    const bool showProgress = count > kProgressThreshold;
    double step = count > 0 ? 100.0 / double(count) : 0.0;
    if (step == 0.0)
        step = 0.1;
    if (showProgress) {
        m_progress->reset();
        m_progress->setTitle(QStringLiteral("Generating Report..."));
        m_progress->setLabel(QStringLiteral("Generating Report..."));
        m_progress->setMaximum(100);
        Q_EMIT progressShown();
    }

    // The tables are written straight into the output, between the text before
    // the table block and the text after it.
    QString output = html.left(table.begin);
    // Long tables are cut into row groups of the template's own tbody, which
    // the page lays out only when they scroll into view.
    QString groupBreak;
    if (const qsizetype body = tableHead.lastIndexOf(QLatin1String("<tbody")); body >= 0) {
        if (const qsizetype end = tableHead.indexOf(QLatin1Char('>'), body); end > body)
            groupBreak = QStringLiteral("</tbody>") + tableHead.mid(body, end - body + 1);
    }
    qsizetype rowsInTable = 0;
    QString openTail;
    bool tableOpen = false;
    int colour = 0;
    QString line;
    for (const QVReportRow &item : data.diagnosisArray) {
        if (m_cancel.load()) {
            if (showProgress)
                Q_EMIT progressClosed();
            m_reportIsProcessing.store(false);
            return QString();
        }
        if (!item.qv_diagnosis_header.isEmpty()) {
            if (tableOpen)
                output += openTail;
            QString openHead = tableHead;
            openHead.replace(QLatin1String("<qv_diagnosis_header>"), item.qv_diagnosis_header);
            output += openHead;
            openTail = tableTail;
            openTail.replace(QLatin1String("<qv_diagnosis_header>"), item.qv_diagnosis_header);
            tableOpen = true;
            colour = 0;
            rowsInTable = 0;
        }
        line = rowTemplate;
        line.replace(QLatin1String("<qv_row_color>"),
            colour == 0 ? QLatin1String("#CCCCCC") : QLatin1String("#E1E1E1"));
        line.replace(QLatin1String("<qv_diagnosis_fontName>"), item.qv_diagnosis_fontName);
        line.replace(QLatin1String("<qv_diagnosis_location>"), item.qv_diagnosis_location);
        line.replace(QLatin1String("<qv_diagnosis_condition>"), item.qv_diagnosis_condition);
        line.replace(QLatin1String("<qv_diagnosis_action>"), item.qv_diagnosis_action);
        // Rows before the first heading have no table to go into.
        if (tableOpen) {
            if (rowsInTable > 0 && rowsInTable % kRowsPerGroup == 0)
                output += groupBreak;
            output += line;
            ++rowsInTable;
        }
        colour ^= 1;
        if (showProgress)
            m_progress->increment(step);
    }
    if (tableOpen)
        output += openTail;
    output += QStringView(html).mid(table.end);
    if (showProgress) {
        m_progress->setValue(100);
        Q_EMIT progressClosed();
    }
    return output;
}

void QVReportManager::getReportHTML(
    const QVReportData &data, std::function<void(const QString &html)> completion)
{
    m_reportIsProcessing.store(true);
    m_cancel.store(false);
    m_generateHTMLqueue.start([this, data, completion = std::move(completion)] {
        const QString html = fillTemplate(data);
        if (html.isNull()) {
            Q_EMIT reportCancelled();
            return;
        }
        completion(html);
    });
}

QVariantMap QVReportManager::storeReport(const QVReportData &data, const QString &html, bool show)
{
    QVariantMap report;
    report.insert(QStringLiteral("date"), data.qv_date);
    report.insert(QStringLiteral("reportName"), data.qv_report_title);
    report.insert(QStringLiteral("qv_total_examined"), data.qv_total_examined);
    report.insert(QStringLiteral("qv_total_problems"), data.qv_total_problems);
    report.insert(QStringLiteral("qv_total_quarantined"), data.qv_total_quarantined);
    report.insert(QStringLiteral("reportData"), html);

    QVariantMap record;
    if (m_fileMgr) {
        // A failed store leaves the previous report as the newest one.
        m_fileMgr->addFileToReports(report);
        if (!m_fileMgr->reportFilesDataArray().isEmpty())
            record = m_fileMgr->reportFilesDataArray().last();
    }
    if (!record.isEmpty()) {
        if (show || m_settings->showReports())
            showReport(record);
        m_settings->setLastReportName(record.value(QStringLiteral("reportName")).toString());
        m_settings->setLastScanTotalCount(record.value(QStringLiteral("qv_total_examined")).toString());
        m_settings->setLastScanProblemCount(record.value(QStringLiteral("qv_total_problems")).toString());
        m_settings->setLastReportFilePath(record.value(QStringLiteral("filePath")).toString());
    }
    m_reportIsReady.store(true);
    m_reportIsProcessing.store(false);
    Q_EMIT reportStored(record);
    return record;
}

void QVReportManager::createReport(const QDateTime &scanDate, bool showReport)
{
    m_reportIsReady.store(false);
    const QVReportData data = createReportDataDictionary(scanDate);
    getReportHTML(
        data, [this, data, showReport](const QString &html) { storeReport(data, html, showReport); });
}

QVariantMap QVReportManager::writeReport(const QDateTime &scanDate)
{
    m_reportIsReady.store(false);
    const QVReportData data = createReportDataDictionary(scanDate);
    std::mutex mutex;
    std::condition_variable done;
    bool finished = false;
    QVariantMap record;
    const auto finish = [&](const QVariantMap &result) {
        std::lock_guard<std::mutex> lock(mutex);
        record = result;
        finished = true;
        done.notify_all();
    };
    const QMetaObject::Connection cancelled = connect(
        this, &QVReportManager::reportCancelled, this, [&] { finish({}); }, Qt::DirectConnection);
    getReportHTML(data, [&](const QString &html) { finish(storeReport(data, html, false)); });
    {
        std::unique_lock<std::mutex> lock(mutex);
        done.wait(lock, [&] { return finished; });
    }
    // The job may still be returning from the callback that woke us.
    m_generateHTMLqueue.waitForDone();
    disconnect(cancelled);
    return record;
}

void QVReportManager::showReport(const QVariantMap &record)
{
    ShowReportHook hook;
    {
        QMutexLocker locker(&hookMutex);
        hook = showReportHook;
    }
    if (!hook)
        return;
    QCoreApplication *app = QCoreApplication::instance();
    if (!app) {
        hook(record);
        return;
    }
    QMetaObject::invokeMethod(
        app, [hook, record] { hook(record); }, Qt::QueuedConnection);
}

void QVReportManager::setShowReportHook(ShowReportHook hook)
{
    QMutexLocker locker(&hookMutex);
    showReportHook = std::move(hook);
}
