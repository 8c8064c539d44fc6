#include "QVScanRootViewController.h"

#include "QVImages.h"
#include "settings/QVAutoScanSchedule.h"
#include "settings/QVSettings.h"
#include "settings/QVStringTable.h"

#include <QBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QPushButton>

QVScanRootViewController::QVScanRootViewController(QVSettings *settings, QWidget *parent)
    : QWidget(parent)
    , m_settings(settings)
{
    m_iconLabel = new QLabel(this);
    m_iconLabel->setFixedSize(64, 64);
    m_textLabel = new QLabel(this);
    m_textLabel->setWordWrap(true);
    m_textLabel->setTextFormat(Qt::RichText);
    m_textLabel->setTextInteractionFlags(Qt::TextBrowserInteraction);
    m_textLabel->setAlignment(Qt::AlignTop | Qt::AlignLeft);
    m_textLabel->setAccessibleDescription(QStringLiteral("Last scan"));
    connect(m_textLabel, &QLabel::linkActivated, this, &QVScanRootViewController::linkActivated);
    m_autoScanLabel = new QLabel(this);
    m_autoScanLabel->setWordWrap(true);
    m_autoScanLabel->setTextFormat(Qt::RichText);
    m_autoScanLabel->setTextInteractionFlags(Qt::TextBrowserInteraction);
    m_autoScanLabel->setAccessibleDescription(QStringLiteral("AutoScan status"));
    connect(m_autoScanLabel, &QLabel::linkActivated, this, &QVScanRootViewController::linkActivated);

    m_scanButton = new QPushButton(QVStringTable::text(QStringLiteral("scan.button.title.default")), this);
    m_scanButton->setAccessibleName(m_scanButton->text());
    m_scanButton->setToolTip(QStringLiteral("Scan the font folders chosen in Settings"));
    m_scanButton->setDefault(true);
    m_scanFolderButton = new QPushButton(QStringLiteral("Scan a Folder…"), this);
    m_scanFolderButton->setAccessibleName(QStringLiteral("Scan a Folder"));
    m_scanFolderButton->setToolTip(QStringLiteral("Choose a folder of fonts to scan"));
    m_organizeButton = new QPushButton(QStringLiteral("Organize Fonts…"), this);
    m_organizeButton->setAccessibleName(QStringLiteral("Organize Fonts"));
    m_organizeButton->setToolTip(QStringLiteral("Gather the healthy fonts of a folder into a library"));
    connect(m_organizeButton, &QPushButton::clicked, this, &QVScanRootViewController::organizeButtonClicked);
    connect(m_scanButton, &QPushButton::clicked, this, &QVScanRootViewController::scanButtonClicked);
    connect(
        m_scanFolderButton, &QPushButton::clicked, this, &QVScanRootViewController::scanFolderButtonClicked);
    auto *dropHint = new QLabel(QStringLiteral("You can also drop folders onto this window."), this);
    dropHint->setForegroundRole(QPalette::PlaceholderText);

    auto *top = new QHBoxLayout;
    top->setSpacing(16);
    top->addWidget(m_iconLabel, 0, Qt::AlignTop);
    top->addWidget(m_textLabel, 1);
    auto *buttons = new QHBoxLayout;
    buttons->setSpacing(8);
    buttons->addWidget(m_scanButton);
    buttons->addWidget(m_scanFolderButton);
    buttons->addWidget(m_organizeButton);
    buttons->addStretch();
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(24, 24, 24, 24);
    layout->setSpacing(16);
    layout->addLayout(top);
    layout->addWidget(m_autoScanLabel);
    layout->addStretch();
    layout->addLayout(buttons);
    layout->addWidget(dropHint);
    updateScanViewText();
    updateAutoScanStatus();
}

QString QVScanRootViewController::getDefaultText()
{
    return QStringLiteral("\nQuorvel has not scanned any fonts on this computer yet.\nTo get started, review "
                          "the scan options below.");
}

QString QVScanRootViewController::getScanText() const
{
    const QDateTime date = m_settings->lastScanDate().toLocalTime();
    const QLocale locale;
    QString day = locale.toString(date.date(), QLocale::LongFormat);
    const QDate today = QDate::currentDate();
    if (date.date() == today)
        day = QStringLiteral("Today");
    else if (date.date() == today.addDays(-1))
        day = QStringLiteral("Yesterday");
    QString text = QStringLiteral("Last Scan: %1 at %2")
                       .arg(day.toHtmlEscaped(), date.time().toString(QStringLiteral("h:mmAP")))
        + QStringLiteral("<br>")
        + QStringLiteral("Total Fonts Scanned: %1<br>").arg(m_settings->lastScanTotalCount().toHtmlEscaped())
        + QStringLiteral("Total Font Problems Diagnosed: %1")
              .arg(m_settings->lastScanProblemCount().toHtmlEscaped());
    if (const QString report = m_settings->lastReportName(); !report.isEmpty())
        text += QStringLiteral("<br>Last Saved Report: %1<br><a href=\"report\">Show last saved report</a>")
                    .arg(report.toHtmlEscaped());
    return text;
}

void QVScanRootViewController::updateScanViewText()
{
    const bool scanned = m_settings->lastScanDate().isValid();
    m_textLabel->setText(scanned
            ? getScanText()
            : getDefaultText().trimmed().toHtmlEscaped().replace(QLatin1Char('\n'), QStringLiteral("<br>")));
    QString icon = QStringLiteral("mac-icon");
    if (scanned)
        icon += m_settings->lastScanProblemCount().toInt() > 0 ? QStringLiteral("-caution")
                                                               : QStringLiteral("-ok");
    m_iconLabel->setPixmap(QVImages::pixmap(icon, 64, devicePixelRatioF()));
}

QString QVScanRootViewController::relativeDateStringForDate(const QDateTime &date, const QDateTime &now)
{
    const qint64 seconds = now.secsTo(date);
    const int days = int(seconds / 86400);
    if (days != 0)
        return QStringLiteral("%1 Days from now").arg(days);
    const QDateTime midnight = QDateTime(now.date(), QTime(0, 0)).addSecs(86400);
    return seconds > now.secsTo(midnight) ? QStringLiteral("Tomorrow") : QStringLiteral("Today");
}

QString QVScanRootViewController::autoScanStatusText(const QDateTime &now) const
{
    if (!m_settings->autoScanEnabled())
        return QStringLiteral("\nAutoScan is turned off\nUse AutoScan settings to turn on AutoScan");
    const QString frequency = m_settings->autoScanFrequency();
    QString text = QStringLiteral("AutoScan is active with these settings:\n");
    if (frequency == QLatin1String("kDaily"))
        text += QStringLiteral("• Scan font folders once per day\n");
    else if (frequency == QLatin1String("kWeekly"))
        text += QStringLiteral("• Scan font folders once a week\n");
    else if (frequency == QLatin1String("kMonthly"))
        text += QStringLiteral("• Scan font folders once a month\n");
    if (m_settings->autoScanModifiedFolders())
        text += QVAutoScanSchedule::isScheduled(frequency)
            ? QStringLiteral("• Scan if an AutoScan folder is modified\n")
            : QStringLiteral("\n• Scan only if an AutoScan folder is modified");
    const QDateTime next = QVAutoScanSchedule::nextScanDate(m_settings->lastAutoScanDate(), frequency, now);
    if (next.isValid()) {
        const QDateTime local = next.toLocalTime();
        QString day;
        if (frequency == QLatin1String("kDaily"))
            day = relativeDateStringForDate(local, now);
        else if (local.date() == now.date())
            day = QStringLiteral("Today");
        else if (local.date() == now.date().addDays(1))
            day = QStringLiteral("Tomorrow");
        else
            day = QLocale().toString(local.date(), QLocale::LongFormat);
        text += QStringLiteral("• Next Scheduled AutoScan:\n   %1 around %2")
                    .arg(day, local.time().toString(QStringLiteral("h:mmAP")));
    }
    return text;
}

void QVScanRootViewController::updateAutoScanStatus()
{
    // The heading in bold; bullet lines hang under their first word.
    const QStringList lines = autoScanStatusText(QDateTime::currentDateTime()).split(QLatin1Char('\n'));
    QString html;
    for (qsizetype i = 0; i < lines.size(); ++i) {
        const QString line = lines.at(i).toHtmlEscaped();
        if (line.isEmpty())
            continue;
        if (i <= 1 && line.startsWith(QLatin1String("AutoScan is")))
            html += QStringLiteral("<p style=\"margin:0\"><b>%1</b></p>").arg(line);
        else
            html += QStringLiteral("<p style=\"margin:0 0 0 20px; text-indent:-20px\">%1</p>")
                        .arg(line.startsWith(QLatin1String("   "))
                                ? QStringLiteral("&nbsp;&nbsp;&nbsp;") + line.trimmed()
                                : line);
    }
    html += QStringLiteral("<p style=\"margin:6px 0 0 0\"><a href=\"AutoScan\">AutoScan settings…</a></p>");
    m_autoScanLabel->setText(html);
}

QString QVScanRootViewController::scanText() const
{
    return m_textLabel->text();
}

void QVScanRootViewController::linkActivated(const QString &link)
{
    if (link == QLatin1String("report"))
        Q_EMIT showReportRequested(m_settings->lastReportFilePath(), m_settings->lastReportName());
    else if (link == QLatin1String("AutoScan"))
        Q_EMIT autoScanSettingsRequested();
}
