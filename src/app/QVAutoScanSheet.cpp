#include "QVAutoScanSheet.h"

#include "QVFolderChooser.h"
#include "platform/QVFileReveal.h"
#include "settings/QVSettings.h"
#include "settings/QVStringTable.h"

#include <QBoxLayout>
#include <QButtonGroup>
#include <QCheckBox>
#include <QDateTime>
#include <QDir>
#include <QGroupBox>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QRadioButton>
#include <QToolButton>
#include <algorithm>

namespace
{

// A folder as a prefix: clean, with one trailing slash.
QString asPrefix(const QString &folder)
{
    QString clean = QDir::cleanPath(folder);
    if (!clean.endsWith(QLatin1Char('/')))
        clean += QLatin1Char('/');
    return clean;
}

} // namespace

QVAutoScanSheet::QVAutoScanSheet(QVSettings *settings, QWidget *parent)
    : QDialog(parent)
    , m_settings(settings)
{
    setWindowTitle(QStringLiteral("AutoScan"));
    setWindowModality(Qt::WindowModal);
    setAccessibleName(QStringLiteral("AutoScan settings"));

    auto *title = new QLabel(QStringLiteral("<b>AutoScan</b>"), this);
    auto *intro = new QLabel(QStringLiteral("Quorvel can scan your font folders by itself, on a schedule and "
                                            "whenever one of them changes."),
        this);
    intro->setWordWrap(true);
    m_switch = new QButtonGroup(this);
    auto *switchRow = new QHBoxLayout;
    switchRow->setSpacing(0);
    for (int segment = 0; segment < 2; ++segment) {
        auto *button = new QToolButton(this);
        button->setText(segment ? QStringLiteral("On") : QStringLiteral("Off"));
        button->setAccessibleName(QStringLiteral("AutoScan ") + button->text());
        button->setCheckable(true);
        button->setMinimumWidth(56);
        // The chosen segment must show in dark palettes too.
        button->setStyleSheet(QStringLiteral(
            "QToolButton { padding: 3px 12px; border: 1px solid palette(mid); background: palette(button); }"
            "QToolButton:checked { background: palette(highlight); color: palette(highlighted-text); }"));
        m_switch->addButton(button, segment);
        switchRow->addWidget(button);
    }
    switchRow->addStretch();
    connect(m_switch, &QButtonGroup::idClicked, this, &QVAutoScanSheet::autoScanSwitchAction);

    m_optionsGroup = new QGroupBox(this);
    m_optionsGroup->setFlat(true);
    auto *frequencyLabel = new QLabel(QStringLiteral("Scan font folders:"), m_optionsGroup);
    m_daily = new QRadioButton(QStringLiteral("Once a day"), m_optionsGroup);
    m_weekly = new QRadioButton(QStringLiteral("Once a week"), m_optionsGroup);
    m_monthly = new QRadioButton(QStringLiteral("Once a month"), m_optionsGroup);
    m_never = new QRadioButton(QStringLiteral("Never on a schedule"), m_optionsGroup);
    auto *frequency = new QButtonGroup(this);
    auto *frequencyRow = new QHBoxLayout;
    for (QRadioButton *button : { m_daily, m_weekly, m_monthly, m_never }) {
        button->setAccessibleName(button->text());
        frequency->addButton(button);
        frequencyRow->addWidget(button);
    }
    frequencyRow->addStretch();
    connect(frequency, &QButtonGroup::buttonClicked, this,
        [this](QAbstractButton *button) { autoScanFreqMatrix(static_cast<QRadioButton *>(button)); });
    m_modifiedFolders
        = new QCheckBox(QStringLiteral("Scan when an AutoScan folder is modified"), m_optionsGroup);
    m_quit = new QCheckBox(
        QStringLiteral("Quit Quorvel after an AutoScan that finds no problems"), m_optionsGroup);
    for (QCheckBox *box : { m_modifiedFolders, m_quit })
        box->setAccessibleName(box->text());
    connect(m_modifiedFolders, &QCheckBox::toggled, this,
        [this](bool on) { m_settings->setAutoScanModifiedFolders(on); });
    connect(m_quit, &QCheckBox::toggled, this, [this](bool on) { m_settings->setAutoScanQuitWhenDone(on); });

    auto *foldersLabel = new QLabel(QStringLiteral("AutoScan folders:"), m_optionsGroup);
    m_folders = new QListWidget(m_optionsGroup);
    m_folders->setAccessibleName(QStringLiteral("AutoScan folders"));
    m_folders->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_folders->setMinimumHeight(120);
    m_folders->setToolTip(QStringLiteral("Double-click a folder to show it in the file manager"));
    connect(m_folders, &QListWidget::itemDoubleClicked, this,
        [](QListWidgetItem *item) { QVFileReveal::revealInFinder(item->text()); });
    m_addButton = new QPushButton(QStringLiteral("+"), m_optionsGroup);
    m_addButton->setAccessibleName(QStringLiteral("Add Folder"));
    m_addButton->setToolTip(QStringLiteral("Add a folder to scan"));
    m_removeButton = new QPushButton(QStringLiteral("−"), m_optionsGroup);
    m_removeButton->setAccessibleName(QStringLiteral("Remove Folder"));
    m_removeButton->setToolTip(QStringLiteral("Remove the selected folders"));
    for (QPushButton *button : { m_addButton, m_removeButton }) {
        button->setFixedWidth(32);
        button->setAutoDefault(false);
    }
    connect(m_addButton, &QPushButton::clicked, this, &QVAutoScanSheet::autoScanAddFolderButtonHandler);
    connect(m_removeButton, &QPushButton::clicked, this, &QVAutoScanSheet::autoScanRemoveFolderButtonHandler);
    connect(m_folders, &QListWidget::itemSelectionChanged, this,
        [this] { m_removeButton->setEnabled(!m_folders->selectedItems().isEmpty()); });

    auto *listButtons = new QHBoxLayout;
    listButtons->setSpacing(2);
    listButtons->addWidget(m_addButton);
    listButtons->addWidget(m_removeButton);
    listButtons->addStretch();
    auto *options = new QVBoxLayout(m_optionsGroup);
    options->setContentsMargins(0, 0, 0, 0);
    options->addWidget(frequencyLabel);
    options->addLayout(frequencyRow);
    options->addWidget(m_modifiedFolders);
    options->addWidget(m_quit);
    options->addSpacing(8);
    options->addWidget(foldersLabel);
    options->addWidget(m_folders, 1);
    options->addLayout(listButtons);

    m_advancedButton = new QPushButton(QStringLiteral("Advanced…"), this);
    m_advancedButton->setAccessibleName(QStringLiteral("Advanced AutoScan settings"));
    m_advancedButton->setAutoDefault(false);
    connect(m_advancedButton, &QPushButton::clicked, this, &QVAutoScanSheet::advancedSettingsRequested);
    m_actionButton = new QPushButton(QVStringTable::text(QStringLiteral("any.done.title")), this);
    m_actionButton->setAccessibleName(m_actionButton->text());
    m_actionButton->setDefault(true);
    connect(m_actionButton, &QPushButton::clicked, this, &QDialog::accept);
    auto *bottom = new QHBoxLayout;
    bottom->addWidget(m_advancedButton);
    bottom->addStretch();
    bottom->addWidget(m_actionButton);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 20, 20, 20);
    layout->setSpacing(10);
    layout->addWidget(title);
    layout->addWidget(intro);
    layout->addLayout(switchRow);
    layout->addWidget(m_optionsGroup, 1);
    layout->addLayout(bottom);
    resize(std::max(520, sizeHint().width()), std::max(460, sizeHint().height()));
    setStateFromUserPrefs();
}

void QVAutoScanSheet::setStateFromUserPrefs()
{
    const bool enabled = m_settings->autoScanEnabled();
    m_switch->button(enabled ? 1 : 0)->setChecked(true);
    m_optionsGroup->setEnabled(enabled);
    const QSignalBlocker modified(m_modifiedFolders);
    const QSignalBlocker quit(m_quit);
    m_modifiedFolders->setChecked(m_settings->autoScanModifiedFolders());
    m_quit->setChecked(m_settings->autoScanQuitWhenDone());
    const QString frequency = m_settings->autoScanFrequency();
    QRadioButton *selected = m_never;
    if (frequency == QLatin1String("kDaily"))
        selected = m_daily;
    else if (frequency == QLatin1String("kWeekly"))
        selected = m_weekly;
    else if (frequency == QLatin1String("kMonthly"))
        selected = m_monthly;
    selected->setChecked(true);
    reloadFolders();
}

void QVAutoScanSheet::autoScanSwitchAction(int segment)
{
    m_optionsGroup->setEnabled(segment == 1);
    m_settings->setAutoScanEnabled(segment == 1);
    Q_EMIT autoScanSwitched(segment == 1);
}

void QVAutoScanSheet::autoScanFreqMatrix(QRadioButton *button)
{
    QString frequency = QStringLiteral("kNever");
    if (button == m_daily)
        frequency = QStringLiteral("kDaily");
    else if (button == m_weekly)
        frequency = QStringLiteral("kWeekly");
    else if (button == m_monthly)
        frequency = QStringLiteral("kMonthly");
    m_settings->setAutoScanFrequency(frequency);
    // The next scheduled scan counts from this change.
    m_settings->setLastAutoScanDate(QDateTime::currentDateTime());
}

QStringList QVAutoScanSheet::addFolders(const QStringList &existing, const QStringList &added)
{
    QStringList folders = existing;
    for (const QString &folder : added) {
        const QString prefix = asPrefix(folder);
        bool covered = false;
        for (qsizetype i = folders.size() - 1; i >= 0; --i) {
            const QString entry = asPrefix(folders.at(i));
            if (entry.startsWith(prefix))
                folders.removeAt(i);
            else if (prefix.startsWith(entry))
                covered = true;
        }
        if (!covered)
            folders.append(prefix);
    }
    return folders;
}

void QVAutoScanSheet::autoScanAddFolderButtonHandler()
{
    QVFolderChooser::open(this, QVStringTable::text("any.select.folder.title"), QDir::homePath(),
        QStringLiteral("Choose a folder for AutoScan to watch and scan."),
        [this](const QString &folder) { addFolder(folder); });
}

void QVAutoScanSheet::addFolder(const QString &folder)
{
    m_settings->setFontFolderPaths(addFolders(m_settings->fontFolderPaths(), { folder }));
    reloadFolders();
}

void QVAutoScanSheet::autoScanRemoveFolderButtonHandler()
{
    QStringList folders = m_settings->fontFolderPaths();
    QList<int> rows;
    for (const QListWidgetItem *item : m_folders->selectedItems())
        rows.append(m_folders->row(item));
    std::sort(rows.begin(), rows.end(), std::greater<int>());
    for (const int row : rows) {
        if (row < folders.size())
            folders.removeAt(row);
    }
    m_settings->setFontFolderPaths(folders);
    reloadFolders();
}

void QVAutoScanSheet::reloadFolders()
{
    m_folders->clear();
    m_folders->addItems(m_settings->fontFolderPaths());
    m_folders->clearSelection();
    m_removeButton->setEnabled(false);
}
