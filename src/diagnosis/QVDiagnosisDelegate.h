// What the diagnosis run asks of the application around it: the main window,
// the sheets, the scan view and the helper channel. Every call comes on the
// main thread; each has a harmless default so a host implements only what it
// shows (the command line implements none of the window calls).
#pragma once

#include "engine/QVProblemFont.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QVariantMap>

class QVDiagnosisDelegate
{
public:
    virtual ~QVDiagnosisDelegate() = default;

    virtual void setUserInterfaceEnabled(bool /*enabled*/) { }
    virtual void updateScanViewText() { }
    virtual bool isAutoScanLaunch() const { return false; }
    virtual void setIsAutoScanLaunch(bool /*isAutoScanLaunch*/) { }
    // Cancels a discovery scan that is still looking for fonts.
    virtual void handleScanButton() { }
    virtual void closeDiagnosisView(int /*value*/) { }
    virtual void selectButton(int /*index*/) { }
    // Hides the main window and ends the application (an auto-scan that quits
    // when done).
    virtual void terminateApplication() { }
    // Whether the file manager's discovery scan is still running.
    virtual bool isFindingFonts() const { return false; }

    // An alert sheet on the main window. The host answers through
    // QVDiagnosis::modalEnded with 1000 for the first button, 1001 for the
    // second, and the same context.
    virtual void showAlert(const QString & /*message*/, const QString & /*informativeText*/,
        const QStringList & /*buttonTitles*/, const QString & /*context*/)
    {
    }
    virtual void dismissAlert() { }

    // Opens the issue resolution window on the sorted problem list.
    virtual void presentDiagnosisActionWindow(const QList<QVProblemFontPtr> & /*problemFonts*/) { }

    // Where the auto-scan answer goes when the run has no helper channel of its
    // own: sendResponse:toRecipient:withOptionsDictionary:. An
    // empty recipient means no particular one.
    virtual void sendResponse(
        const QString & /*response*/, const QString & /*recipient*/, const QVariantMap & /*options*/)
    {
    }
};
