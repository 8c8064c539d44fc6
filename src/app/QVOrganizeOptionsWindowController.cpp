#include "QVOrganizeOptionsWindowController.h"

#include "QVAlertSheet.h"
#include "QVAppDelegate.h"
#include "QVFolderChooser.h"
#include "platform/QVFileName.h"
#include "platform/QVFileReveal.h"
#include "settings/QVSettings.h"
#include "settings/QVStringTable.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QRadioButton>
#include <QStandardPaths>
#include <QToolButton>
#include <QVBoxLayout>
#include <unistd.h>

namespace
{

QString buttonTitleFor(const QString &path)
{
    return QStringLiteral("  ") + path;
}

QToolButton *revealButton(const QString &name, QWidget *parent)
{
    auto *button = new QToolButton(parent);
    button->setText(QStringLiteral("Show"));
    button->setToolTip(QStringLiteral("Show the folder in the file manager"));
    button->setAccessibleName(name);
    return button;
}

} // namespace

QVOrganizeOptionsWindowController::QVOrganizeOptionsWindowController(
    QVAppDelegate *delegate, QVSettings *settings, QWidget *parent)
    : QDialog(parent)
    , m_delegate(delegate)
    , m_settings(settings)
    , m_sourceFolderButton(new QPushButton(this))
    , m_destinationFolderButton(new QPushButton(this))
    , m_sourcePathRevealButton(revealButton(QStringLiteral("Show the source folder"), this))
    , m_destinationPathRevealButton(revealButton(QStringLiteral("Show the library folder"), this))
    , m_fileCopyMoveMatrix(new QButtonGroup(this))
    , m_fileNameMatrix(new QButtonGroup(this))
    , m_createAlphaFoldersButton(new QCheckBox(QStringLiteral("Alphabetical folders (A, B, C…)"), this))
    , m_foundryCheckbox(new QCheckBox(QStringLiteral("Foundry folders"), this))
    , m_familyNameCheckbox(new QCheckBox(QStringLiteral("Family folders"), this))
    , m_showLibraryCheckbox(new QCheckBox(QStringLiteral("Show the library folder when done"), this))
    , m_organizeFolderBox(new QGroupBox(QStringLiteral("Library folders"), this))
    , m_continueButton(new QPushButton(QVStringTable::text("any.continue.title"), this))
    , m_doneButton(new QPushButton(QVStringTable::text("any.cancel.title"), this))
{
    setWindowModality(Qt::WindowModal);
    setWindowTitle(QStringLiteral("Organize Fonts"));
    setAccessibleName(QStringLiteral("Organize Fonts"));
    for (QPushButton *button : { m_sourceFolderButton, m_destinationFolderButton }) {
        button->setStyleSheet(QStringLiteral("text-align: left;"));
        button->setMinimumWidth(380);
    }
    m_sourceFolderButton->setAccessibleName(QStringLiteral("Folder of fonts to organize"));
    m_destinationFolderButton->setAccessibleName(QStringLiteral("Library folder"));

    auto *copy = new QRadioButton(QStringLiteral("Copy the font files"), this);
    auto *move = new QRadioButton(QStringLiteral("Move the font files"), this);
    m_fileCopyMoveMatrix->addButton(copy, 0);
    m_fileCopyMoveMatrix->addButton(move, 1);
    auto *postScript = new QRadioButton(QStringLiteral("PostScript name"), this);
    auto *family = new QRadioButton(QStringLiteral("Family name and style"), this);
    auto *neither = new QRadioButton(QStringLiteral("Keep the file name"), this);
    m_fileNameMatrix->addButton(postScript, 0);
    m_fileNameMatrix->addButton(family, 1);
    m_fileNameMatrix->addButton(neither, 2);

    auto *form = new QVBoxLayout(this);
    auto addFolderRow = [&](const QString &title, QPushButton *button, QToolButton *reveal) {
        form->addWidget(new QLabel(title, this));
        auto *row = new QHBoxLayout;
        row->addWidget(button, 1);
        row->addWidget(reveal);
        form->addLayout(row);
    };
    addFolderRow(QStringLiteral("Fonts to organize:"), m_sourceFolderButton, m_sourcePathRevealButton);
    addFolderRow(QStringLiteral("Library folder:"), m_destinationFolderButton, m_destinationPathRevealButton);
    auto *options = new QHBoxLayout;
    auto *files = new QVBoxLayout;
    files->addWidget(new QLabel(QStringLiteral("Font files:"), this));
    files->addWidget(copy);
    files->addWidget(move);
    files->addSpacing(8);
    files->addWidget(new QLabel(QStringLiteral("Name suitcase fonts by:"), this));
    files->addWidget(postScript);
    files->addWidget(family);
    files->addWidget(neither);
    files->addStretch();
    options->addLayout(files);
    auto *levels = new QVBoxLayout(m_organizeFolderBox);
    levels->addWidget(m_foundryCheckbox);
    levels->addWidget(m_createAlphaFoldersButton);
    levels->addWidget(m_familyNameCheckbox);
    levels->addStretch();
    options->addWidget(m_organizeFolderBox);
    form->addLayout(options);
    form->addWidget(m_showLibraryCheckbox);
    auto *buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(m_doneButton);
    buttons->addWidget(m_continueButton);
    form->addLayout(buttons);
    m_continueButton->setDefault(true);

    connect(m_sourceFolderButton, &QPushButton::clicked, this,
        &QVOrganizeOptionsWindowController::scanFolderButtonAction);
    connect(m_destinationFolderButton, &QPushButton::clicked, this,
        &QVOrganizeOptionsWindowController::libraryFolderButtonAction);
    connect(m_sourcePathRevealButton, &QToolButton::clicked, this,
        [this] { QVFileReveal::revealInFinder(m_inputFolderPath); });
    connect(m_destinationPathRevealButton, &QToolButton::clicked, this,
        [this] { QVFileReveal::revealInFinder(m_outputFolderURL); });
    connect(m_fileCopyMoveMatrix, &QButtonGroup::idClicked, this,
        &QVOrganizeOptionsWindowController::fileCopyMoveMatrixAction);
    connect(m_fileNameMatrix, &QButtonGroup::idClicked, this,
        &QVOrganizeOptionsWindowController::fileNameMatrixAction);
    connect(m_createAlphaFoldersButton, &QCheckBox::clicked, this,
        [this](bool on) { m_settings->setCreateAlphabetFolders(on); });
    connect(m_foundryCheckbox, &QCheckBox::clicked, this,
        [this](bool on) { m_settings->setCreateFoundryFolders(on); });
    connect(m_familyNameCheckbox, &QCheckBox::clicked, this,
        [this](bool on) { m_settings->setCreateFamilyFolders(on); });
    connect(m_showLibraryCheckbox, &QCheckBox::clicked, this,
        [this](bool on) { m_settings->setShowLibraryFolder(on); });
    connect(m_continueButton, &QPushButton::clicked, this,
        &QVOrganizeOptionsWindowController::continueButtonAction);
    connect(m_doneButton, &QPushButton::clicked, this, &QVOrganizeOptionsWindowController::doneButtonAction);
}

void QVOrganizeOptionsWindowController::setInputFolderPath(const QString &path)
{
    m_inputFolderPath = path;
}

void QVOrganizeOptionsWindowController::windowDidLoad()
{
    if (!m_inputFolderPath.isEmpty()) {
        m_sourceFolderButton->setText(buttonTitleFor(m_inputFolderPath));
        m_sourcePathRevealButton->setEnabled(true);
    } else {
        m_sourceFolderButton->setText(QVStringTable::text("organize.selectSource.message"));
        m_sourcePathRevealButton->setEnabled(false);
    }
    m_fileCopyMoveMatrix->button(m_settings->copyFontFiles() ? 0 : 1)->setChecked(true);
    // The sheet always starts without a library folder.
    m_outputFolderURL.clear();
    m_destinationFolderButton->setText(QVStringTable::text("organize.selectLocation.message"));
    m_destinationPathRevealButton->setEnabled(false);
    const int naming
        = m_settings->usePostscriptNameForFonts() ? 0 : (m_settings->useFamilyNameForFonts() ? 1 : 2);
    m_fileNameMatrix->button(naming)->setChecked(true);
    m_createAlphaFoldersButton->setChecked(m_settings->createAlphabetFolders());
    m_foundryCheckbox->setChecked(m_settings->createFoundryFolders());
    m_familyNameCheckbox->setChecked(m_settings->createFamilyFolders());
    m_showLibraryCheckbox->setChecked(m_settings->showLibraryFolder());
    updateContinueButtonEnabled();
}

void QVOrganizeOptionsWindowController::scanFolderButtonAction()
{
    const QString start = m_inputFolderPath.isEmpty() ? QDir::homePath() : m_inputFolderPath;
    QVFolderChooser::open(this, QVStringTable::text("any.select.folder.title"), start, QString(),
        [this](const QString &folder) { chooseSourceFolder(folder); });
}

void QVOrganizeOptionsWindowController::chooseSourceFolder(const QString &path)
{
    m_inputFolderPath = path;
    m_sourceFolderButton->setText(buttonTitleFor(path));
    m_sourcePathRevealButton->setEnabled(true);
    updateContinueButtonEnabled();
}

void QVOrganizeOptionsWindowController::libraryFolderButtonAction()
{
    QString desktop = QStandardPaths::writableLocation(QStandardPaths::DesktopLocation);
    if (!QFileInfo(desktop).isDir())
        desktop = QDir::homePath();
    QVFolderChooser::open(this, QVStringTable::text("any.select.folder.title"), desktop,
        QStringLiteral("Select a folder to contain the organized fonts..."),
        [this](const QString &folder) { chooseLibraryFolder(folder); });
}

void QVOrganizeOptionsWindowController::chooseLibraryFolder(const QString &path)
{
    if (isWritableFolder(path)) {
        m_outputFolderURL = path;
        m_destinationFolderButton->setText(buttonTitleFor(path));
        m_destinationPathRevealButton->setEnabled(true);
    } else {
        showLockedVolumeWarningForDestination(path);
    }
    updateContinueButtonEnabled();
}

void QVOrganizeOptionsWindowController::updateContinueButtonEnabled()
{
    m_continueButton->setEnabled(!m_outputFolderURL.isEmpty());
}

void QVOrganizeOptionsWindowController::fileCopyMoveMatrixAction(int row)
{
    m_settings->setCopyFontFiles(row == 0);
    // The choice stays as picked; Continue refuses it.
    if (row == 1 && !m_inputFolderPath.isEmpty() && QFileInfo(m_inputFolderPath).isDir()
        && !isWritableFolder(m_inputFolderPath))
        showLockedVolumeWarningForSource(m_inputFolderPath);
}

void QVOrganizeOptionsWindowController::fileNameMatrixAction(int row)
{
    m_settings->setUsePostscriptNameForFonts(row == 0);
    m_settings->setUseFamilyNameForFonts(row == 1);
}

void QVOrganizeOptionsWindowController::continueButtonAction()
{
    if (m_outputFolderURL.isEmpty()) {
        m_destinationFolderButton->setText(QVStringTable::text("organize.selectLocation.message"));
        m_continueButton->setEnabled(false);
        QVAlertSheet::show(this, QVStringTable::text("organize.missingLocation.title"),
            QVStringTable::text("organize.missingLocation.message"), { QVStringTable::text("any.ok.title") },
            QStringLiteral("missingLocation"), {}, QMessageBox::Critical);
        return;
    }
    if (!m_settings->copyFontFiles() && !isWritableFolder(m_inputFolderPath)) {
        showLockedVolumeWarningForSource(m_inputFolderPath);
        return;
    }
    if (!isWritableFolder(m_outputFolderURL)) {
        showLockedVolumeWarningForDestination(m_outputFolderURL);
        return;
    }
    hide();
    m_settings->setOrganizeFonts(true);
    m_delegate->setOrganizeOutputFolderURL(m_outputFolderURL);
    if (!m_inputFolderPath.isEmpty())
        m_delegate->startManualScan({ m_inputFolderPath });
    endSheet();
}

void QVOrganizeOptionsWindowController::doneButtonAction()
{
    endSheet();
    m_settings->setOrganizeFonts(false);
}

void QVOrganizeOptionsWindowController::reject()
{
    doneButtonAction();
}

void QVOrganizeOptionsWindowController::endSheet()
{
    hide();
    m_delegate->closeOrganizeoptionsWindow();
}

void QVOrganizeOptionsWindowController::showLockedVolumeWarningForSource(const QString &path)
{
    showWarning(QStringLiteral("Source Files Locked"),
        QStringLiteral(
            "The source folder \"%1\" is locked and the files cannot be moved. Use the Copy option instead.")
            .arg(path),
        QStringLiteral("lockedSource"));
}

void QVOrganizeOptionsWindowController::showLockedVolumeWarningForDestination(const QString &path)
{
    showWarning(QStringLiteral("Destination Folder Locked"),
        QStringLiteral("The destination folder \"%1\" is locked and the files cannot be saved there. Please "
                       "choose a different folder.")
            .arg(path),
        QStringLiteral("lockedDestination"));
}

void QVOrganizeOptionsWindowController::showWarning(
    const QString &message, const QString &informativeText, const QString &context)
{
    QVAlertSheet::show(this, message, informativeText, { QVStringTable::text("any.ok.title") }, context, {},
        QMessageBox::Warning);
}

bool QVOrganizeOptionsWindowController::isWritableFolder(const QString &path)
{
    // The kernel's answer covers permissions, read-only mounts and immutable folders.
    return !path.isEmpty() && QFileInfo(path).isDir()
        && ::access(QVFileName::encode(path).constData(), W_OK | X_OK) == 0;
}
