// The sheet that sets up organizing: the folder of fonts to organize, the
// library folder that receives them, copy or move, how files are named and
// which folder levels the library gets. Each choice is stored at once;
// Continue hands the library to the application controller and starts a scan
// of the source, after whose diagnosis the organizer runs.
#pragma once

#include <QDialog>
#include <QString>

class QAbstractButton;
class QButtonGroup;
class QCheckBox;
class QGroupBox;
class QPushButton;
class QToolButton;
class QVAppDelegate;
class QVSettings;

class QVOrganizeOptionsWindowController : public QDialog
{
    Q_OBJECT

public:
    QVOrganizeOptionsWindowController(QVAppDelegate *delegate, QVSettings *settings, QWidget *parent);

    QString inputFolderPath() const { return m_inputFolderPath; }
    void setInputFolderPath(const QString &path);
    QString outputFolderURL() const { return m_outputFolderURL; }

    // Sets the controls from the settings and the known source.
    void windowDidLoad();
    // The folder choosers; a choice arrives in the two setters below.
    void scanFolderButtonAction();
    void libraryFolderButtonAction();
    // A source folder chosen in the sheet.
    void chooseSourceFolder(const QString &path);
    // A library folder chosen in the sheet: refused with a warning when it
    // cannot be written.
    void chooseLibraryFolder(const QString &path);
    void updateContinueButtonEnabled();
    void continueButtonAction();
    void doneButtonAction();
    void showLockedVolumeWarningForSource(const QString &path);
    void showLockedVolumeWarningForDestination(const QString &path);

    // Whether the current user may write into the folder.
    static bool isWritableFolder(const QString &path);

    QPushButton *sourceFolderButton() const { return m_sourceFolderButton; }
    QPushButton *destinationFolderButton() const { return m_destinationFolderButton; }
    QToolButton *sourcePathRevealButton() const { return m_sourcePathRevealButton; }
    QToolButton *destinationPathRevealButton() const { return m_destinationPathRevealButton; }
    QButtonGroup *fileCopyMoveMatrix() const { return m_fileCopyMoveMatrix; }
    QButtonGroup *fileNameMatrix() const { return m_fileNameMatrix; }
    QCheckBox *createAlphaFoldersButton() const { return m_createAlphaFoldersButton; }
    QCheckBox *foundryCheckbox() const { return m_foundryCheckbox; }
    QCheckBox *familyNameCheckbox() const { return m_familyNameCheckbox; }
    QCheckBox *showLibraryCheckbox() const { return m_showLibraryCheckbox; }
    QPushButton *continueButton() const { return m_continueButton; }
    QPushButton *doneButton() const { return m_doneButton; }

public Q_SLOTS:
    // Escape cancels.
    void reject() override;

private:
    void fileCopyMoveMatrixAction(int row);
    void fileNameMatrixAction(int row);
    void showWarning(const QString &message, const QString &informativeText, const QString &context);
    void endSheet();

    QVAppDelegate *m_delegate;
    QVSettings *m_settings;
    QString m_inputFolderPath;
    QString m_outputFolderURL;
    QPushButton *m_sourceFolderButton;
    QPushButton *m_destinationFolderButton;
    QToolButton *m_sourcePathRevealButton;
    QToolButton *m_destinationPathRevealButton;
    QButtonGroup *m_fileCopyMoveMatrix;
    QButtonGroup *m_fileNameMatrix;
    QCheckBox *m_createAlphaFoldersButton;
    QCheckBox *m_foundryCheckbox;
    QCheckBox *m_familyNameCheckbox;
    QCheckBox *m_showLibraryCheckbox;
    QGroupBox *m_organizeFolderBox;
    QPushButton *m_continueButton;
    QPushButton *m_doneButton;
};
