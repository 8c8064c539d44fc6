#include "QVSettingsTabItem.h"

#include "QVImages.h"
#include "settings/QVSettings.h"
#include "settings/QVStringTable.h"

#include <QCheckBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QLabel>
#include <QMenu>
#include <QToolButton>

namespace
{

// The setting behind each switch.
const char *const kSwitchKeys[] = { "diagnoseFileStructure", "findDuplicateFonts", "findOrpanedFonts" };

} // namespace

QVSettingsTabItem::QVSettingsTabItem(QVSettings *settings, QWidget *parent)
    : QWidget(parent)
    , m_settings(settings)
{
    const QString titles[] = { QStringLiteral("Diagnose corrupt fonts"),
        QStringLiteral("Find duplicate fonts"), QStringLiteral("Find orphaned fonts") };
    const QString hints[]
        = { QStringLiteral("Looks inside every font file for damaged tables, resources and names."),
              QStringLiteral("Finds fonts installed more than once and picks the copies to set aside."),
              QStringLiteral("Finds PostScript outlines without their bitmap fonts, and the reverse.") };
    const QList<QPair<QString, QString>> options[] = {
        { { QStringLiteral("checkFontActivation"), QStringLiteral("Check that fonts can be activated") } },
        { { QStringLiteral("matchVersionNumbers"),
            QStringLiteral("Duplicates must have the same version") } },
        { { QStringLiteral("diagnoseType3fonts"), QStringLiteral("Include PostScript Type 3 fonts") },
            { QStringLiteral("allStylesRequirePostScript"),
                QStringLiteral("Every style needs its own PostScript font") } },
    };

    auto *passes = new QGroupBox(QStringLiteral("Diagnosis"), this);
    auto *grid = new QGridLayout(passes);
    grid->setHorizontalSpacing(8);
    grid->setVerticalSpacing(8);
    grid->setColumnStretch(2, 1);
    for (int i = 0; i < 3; ++i) {
        const auto which = Switch(i);
        m_dots[i] = new QLabel(passes);
        m_dots[i]->setFixedSize(16, 16);
        m_switches[i] = new QCheckBox(titles[i], passes);
        m_switches[i]->setAccessibleName(titles[i]);
        m_switches[i]->setToolTip(hints[i]);
        connect(m_switches[i], &QCheckBox::clicked, this, [this, which] { passSwitchAction(which); });
        auto *hint = new QLabel(hints[i], passes);
        hint->setForegroundRole(QPalette::PlaceholderText);
        hint->setWordWrap(true);
        m_optionButtons[i] = makeOptions(titles[i], options[i]);
        grid->addWidget(m_dots[i], i * 2, 0);
        grid->addWidget(m_switches[i], i * 2, 1);
        grid->addWidget(m_optionButtons[i], i * 2, 3);
        grid->addWidget(hint, i * 2 + 1, 1, 1, 3);
    }
    // Beside the damaged-font pass, which it extends.
    m_deepCheck = new QCheckBox(QStringLiteral("Deep check"), passes);
    m_deepCheck->setAccessibleName(QStringLiteral("Deep check"));
    const QString deepHelp = QStringLiteral(
        "Also recomputes the checksum of every table of TrueType and OpenType fonts, follows every table "
        "and loads every glyph. Finds damage the quick look cannot see; takes longer.");
    m_deepCheck->setToolTip(deepHelp);
    m_deepCheck->setAccessibleDescription(deepHelp);
    connect(m_deepCheck, &QCheckBox::clicked, this, [this](bool on) { m_settings->setDeepCheck(on); });
    grid->addWidget(m_deepCheck, 0, 2);

    auto *reports = new QGroupBox(QStringLiteral("Reports"), this);
    m_saveReports = new QCheckBox(QStringLiteral("Save a report after every diagnosis"), reports);
    m_saveReports->setAccessibleName(m_saveReports->text());
    m_showReports = new QCheckBox(QStringLiteral("Show the report when it is saved"), reports);
    m_showReports->setAccessibleName(m_showReports->text());
    connect(m_saveReports, &QCheckBox::clicked, this,
        [this](bool on) { m_settings->setAutomaticallySaveReports(on); });
    connect(m_showReports, &QCheckBox::clicked, this, [this](bool on) { m_settings->setShowReports(on); });
    auto *reportsLayout = new QVBoxLayout(reports);
    reportsLayout->setSpacing(8);
    reportsLayout->addWidget(m_saveReports);
    reportsLayout->addWidget(m_showReports);

    auto *autoScan = new QGroupBox(QStringLiteral("AutoScan"), this);
    m_helperMenu = new QCheckBox(QStringLiteral("Show the AutoScan menu in the system tray"), autoScan);
    m_helperMenu->setAccessibleName(m_helperMenu->text());
    connect(m_helperMenu, &QCheckBox::clicked, this, [this](bool on) {
        m_settings->setShowHelperMenu(on);
        Q_EMIT helperMenuToggled(on);
    });
    auto *autoScanLayout = new QVBoxLayout(autoScan);
    autoScanLayout->addWidget(m_helperMenu);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(24, 24, 24, 24);
    layout->setSpacing(16);
    layout->addWidget(passes);
    layout->addWidget(reports);
    layout->addWidget(autoScan);
    layout->addStretch();
    setStateFromUserPrefs();
}

QToolButton *QVSettingsTabItem::makeOptions(
    const QString &passTitle, const QList<QPair<QString, QString>> &items)
{
    auto *button = new QToolButton(this);
    button->setText(QStringLiteral("Options"));
    button->setAccessibleName(QStringLiteral("Options: ") + passTitle);
    button->setPopupMode(QToolButton::InstantPopup);
    button->setFocusPolicy(Qt::StrongFocus);
    auto *menu = new QMenu(button);
    for (const auto &[key, title] : items) {
        QAction *action = menu->addAction(title);
        action->setCheckable(true);
        action->setData(key);
        // Choosing an item toggles its mark and stores the new state.
        connect(action, &QAction::triggered, this, [this, key](bool on) { m_settings->setValue(key, on); });
    }
    button->setMenu(menu);
    return button;
}

void QVSettingsTabItem::setStateFromUserPrefs()
{
    for (int i = 0; i < 3; ++i) {
        m_switches[i]->setChecked(m_settings->value(QLatin1String(kSwitchKeys[i])).toBool());
        updateDot(Switch(i));
        for (QAction *action : m_optionButtons[i]->menu()->actions())
            action->setChecked(m_settings->value(action->data().toString()).toBool());
    }
    m_deepCheck->setChecked(m_settings->deepCheck());
    m_saveReports->setChecked(m_settings->automaticallySaveReports());
    m_showReports->setChecked(m_settings->showReports());
    m_helperMenu->setChecked(m_settings->showHelperMenu());
}

void QVSettingsTabItem::passSwitchAction(Switch which)
{
    m_settings->setValue(QLatin1String(kSwitchKeys[which]), m_switches[which]->isChecked());
    if (!validateSettings()) {
        // A scan needs one pass: the switch just turned off stays on.
        m_switches[which]->setChecked(true);
        m_settings->setValue(QLatin1String(kSwitchKeys[which]), true);
    }
    updateDot(which);
}

bool QVSettingsTabItem::validateSettings()
{
    if (m_settings->diagnoseFileStructure() || m_settings->findDuplicateFonts()
        || m_settings->findOrpanedFonts())
        return true;
    Q_EMIT alertRequested(QVStringTable::text(QStringLiteral("settings.errorMessage.dignosisOptions")),
        QVStringTable::text(QStringLiteral("settings.errorMessage.dignosisOptions.info")),
        QStringLiteral("validateSettings"));
    return false;
}

void QVSettingsTabItem::updateDot(Switch which)
{
    const bool on = m_switches[which]->isChecked();
    m_dots[which]->setPixmap(QVImages::pixmap(
        on ? QStringLiteral("ok_dot") : QStringLiteral("fail_dot"), 16, devicePixelRatioF()));
    m_dots[which]->setAccessibleName(on ? QStringLiteral("On") : QStringLiteral("Off"));
}

void QVSettingsTabItem::setControlsEnabled(bool enabled)
{
    for (int i = 0; i < 3; ++i) {
        m_switches[i]->setEnabled(enabled);
        m_optionButtons[i]->setEnabled(enabled);
    }
    m_deepCheck->setEnabled(enabled);
    m_saveReports->setEnabled(enabled);
    m_showReports->setEnabled(enabled);
    m_helperMenu->setEnabled(enabled);
}
