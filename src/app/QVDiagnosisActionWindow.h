// The issue resolution window: the problem fonts of a diagnosis, each with a
// check box and the action taken for it ("Repair" or "Quarantine"), rows that
// expand into one line per defect with its explanation and the font's
// particulars, and the resolve and ignore buttons. The work is the core
// resolution's (QVDiagnosisResolution), run on a worker with a quarantine
// store made there too: this window never waits for a file.
#pragma once

#include "diagnosis/QVDiagnosisResolution.h"
#include "engine/QVProblemFont.h"
#include "settings/QVProgress.h"

#include <QFutureWatcher>
#include <QPointer>
#include <QTimer>
#include <QWidget>
#include <atomic>
#include <memory>

class QAbstractButton;
class QDialog;
class QLabel;
class QMessageBox;
class QProgressBar;
class QPushButton;
class QTreeView;
class QVFontDataManager;
class QVPopover;
class QVProblemFontModel;
class QVQuarantineStore;
class QVSuitcaseSurgery;

class QVDiagnosisActionWindow : public QWidget
{
    Q_OBJECT

public:
    QVDiagnosisActionWindow(QVFontDataManager *dataMgr, QWidget *parent = nullptr);
    ~QVDiagnosisActionWindow() override;

    // The sorted problem list: every row checked, nothing to warn about.
    void setProblemFontsArray(const QList<QVProblemFontPtr> &problemFonts);
    QVDiagnosisResolution *resolution() const { return m_resolution; }
    QVProblemFontModel *model() const { return m_model; }
    QTreeView *tableView() const { return m_tableView; }
    QPushButton *resolveIssuesButton() const { return m_resolveIssuesButton; }
    QPushButton *ignoreIssuesButton() const { return m_ignoreIssuesButton; }
    QLabel *iconImageView() const { return m_iconImageView; }
    QLabel *statusLabel() const { return m_statusLabel; }
    QVPopover *popover() const { return m_popover; }
    QDialog *progressWindow() const { return m_progressWindow; }
    QString iconName() const { return m_iconName; }

    bool isDisabled() const { return m_isDisabled; }
    bool showCloseWarning() const { return m_showCloseWarning; }
    void setShowCloseWarning(bool show) { m_showCloseWarning = show; }
    bool dontShowAgain() const { return m_dontShowAgain; }
    bool isResolving() const { return m_resolving; }
    // The rows now expanded, with the height their lines take.
    QList<QPair<int, int>> expandedRowsArray() const { return m_expandedRowsArray; }

    // The explanation of a defect ("Diagnosis: ...\n\nRecommendation: ..."),
    // empty for a name it does not know.
    static QString getCautionText(const QString &defectName);
    // The font's file name, type, style, PostScript name and location.
    static QString getInfoText(const QVProblemFontPtr &entry);
    // Rich text: small type, each heading bold at its first occurrence,
    // paragraphs with a hanging indent.
    static QString styledText(const QString &text, const QStringList &headings);
    static QStringList cautionHeadings();
    static QStringList infoHeadings();

    // Checks or unchecks one row, or every selected row when two or more are
    // selected (the check box's action).
    void checkBoxAction(int row, bool checked);
    void checkSelectedRows(bool checked);
    void resolveIssues();
    // The ignore button.
    void doneButtonAction();
    // Expands or collapses a row (the disclosure triangle does the same).
    void disclosureAction(int row, bool expand);
    // The line widget of an expanded row, or null.
    QWidget *expandedLine(int row, int line) const;
    void cautionButtonAction(QAbstractButton *button);
    void infoButtonAction(QAbstractButton *button);
    void handleTableViewDoubleClick();
    bool windowShouldClose();
    void endDiagnosis();
    // A warning sheet on this window with a "do not show again" box.
    void presentErrorDialog(const QString &message, const QString &information, const QString &cancelTitle,
        const QString &continueTitle = QString());

Q_SIGNALS:
    // Fonts went into the quarantine: its view reloads.
    void quarantineChanged();
    // After each resolution run: how many fonts it moved into the quarantine.
    void fontsQuarantined(int count);
    void userInterfaceEnabled(bool enabled);

protected:
    void closeEvent(QCloseEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    struct StoreHandle {
        std::shared_ptr<QVQuarantineStore> store;
        QString error;
    };
    void startResolving(const StoreHandle &handle);
    void resolved(const QVDiagnosisResolution::Outcome &outcome);
    void rowResolved(int row, const QString &error);
    // The rows done since last time and the bar.
    void showProgress();
    void showNextError();
    void modalEnded(int returnCode, const QString &context);
    void updateButtons();
    QList<int> selectedRows() const;
    void addExpandedRowContent(int row);
    void removeExpandedRowContent(int row);
    void clearExpandedRowsArray();
    void refreshImages();

    QVFontDataManager *m_dataMgr;
    QVDiagnosisResolution *m_resolution;
    QVProblemFontModel *m_model;
    QTreeView *m_tableView;
    QLabel *m_iconImageView;
    QLabel *m_headline;
    QLabel *m_statusLabel;
    QPushButton *m_resolveIssuesButton;
    QPushButton *m_ignoreIssuesButton;
    QVPopover *m_popover;
    QDialog *m_progressWindow = nullptr;
    QProgressBar *m_progressBar = nullptr;
    QVProgress m_progress;
    QTimer m_refreshTimer;
    QList<QPair<int, QString>> m_doneRows;
    QString m_iconName;

    QFutureWatcher<StoreHandle> m_storeWatcher;
    std::shared_ptr<QVQuarantineStore> m_store;
    std::unique_ptr<QVSuitcaseSurgery> m_surgery;
    std::shared_ptr<std::atomic<bool>> m_stop;
    QList<QVProblemFontPtr> m_checkedBefore;
    QList<QPair<int, int>> m_expandedRowsArray;
    QList<QPair<QString, QString>> m_pendingErrors;
    QPointer<QMessageBox> m_errorDialog;

    bool m_isDisabled = false;
    bool m_showCloseWarning = false;
    bool m_dontShowAgain = false;
    bool m_resolving = false;
    bool m_closeWhenResolved = false;
    bool m_closeAfterErrors = false;
    bool m_closing = false;
    bool m_ended = false;
};
