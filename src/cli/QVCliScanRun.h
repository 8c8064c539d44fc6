// The manual scan as the command line runs it: the discovery scan of some
// folders into a data manager, then the diagnosis of what was found, each with
// a terminal bar on stderr. Ctrl-C (or SIGTERM) asks the running step to stop
// instead of killing the process, for as long as this object lives.
#pragma once

#include "diagnosis/QVDiagnosis.h"
#include "diagnosis/QVDiagnosisViewState.h"

#include <QString>
#include <QStringList>
#include <csignal>
#include <cstdio>
#include <memory>

class QVSettings;

class QVFontDataManager;

class QVCliScanRun
{
public:
    // The terminal bars are drawn on progressStream, when it is a terminal.
    explicit QVCliScanRun(QVFontDataManager *dataManager, FILE *progressStream = stderr);
    ~QVCliScanRun();
    QVCliScanRun(const QVCliScanRun &) = delete;
    QVCliScanRun &operator=(const QVCliScanRun &) = delete;

    // Finds and examines the fonts of the folders. False when the scan was
    // cancelled.
    bool scanFolders(const QStringList &folders);
    // Runs the diagnosis with the settings in force, unpaced (nobody watches
    // its bars here), as a manual scan of the folders. Returns when it ended.
    QVDiagnosis &diagnose(const QStringList &folders);
    QVDiagnosis *diagnosis() const { return m_diagnosis.get(); }
    // The alert the run would have shown (no fonts at all), or empty.
    QString alert() const { return m_alert; }

    // "FOLDER: no such folder", "FOLDER: not a folder" or "FOLDER: cannot be
    // read (REASON)" for the first folder that cannot be scanned; empty when
    // all can.
    static QString folderError(const QStringList &folders);
    // An empty list becomes the configured font folders; returns folderError.
    static QString prepareFolders(QStringList *folders);
    // Why a diagnosis cannot run with these settings (every pass off), or null.
    static QString passesError(const QVSettings &settings);

    // Takes "--jobs N" out of the arguments; the scans that follow read N
    // files at once (their output is the same whatever N). Returns why the
    // option is wrong, or null.
    static QString takeJobsOption(QStringList *arguments);
    // Takes "--deep" out of the arguments; the scans that follow end with the
    // deep check of their SFNT fonts whatever the setting says.
    static void takeDeepOption(QStringList *arguments);
    // Whether Ctrl-C was pressed (or SIGTERM came) while this object lived.
    static bool interrupted();

private:
    QVFontDataManager *m_dataManager;
    FILE *m_progressStream;
    // The command line has no window: it keeps the one sheet a run can show.
    QString m_alert;
    std::unique_ptr<QVDiagnosis> m_diagnosis;
    std::unique_ptr<QVDiagnosisViewState> m_view;
    struct sigaction m_previous {
    };
    struct sigaction m_previousTerm {
    };
};
