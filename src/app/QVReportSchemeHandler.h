// Serves report pages to the web view under the "qvreport:" scheme. Report
// files have no extension, so a file URL would show them as plain text; and
// their text is read on a worker beforehand, so serving it here touches no
// disk on the window's thread.
#pragma once

#include <QByteArray>
#include <QHash>
#include <QUrl>
#include <QWebEngineUrlSchemeHandler>

class QVReportSchemeHandler : public QWebEngineUrlSchemeHandler
{
    Q_OBJECT

public:
    static constexpr const char *kScheme = "qvreport";

    // Declares the scheme to the web engine; before the QApplication is made.
    static void registerScheme();
    // The handler of the default profile, installed on first use.
    static QVReportSchemeHandler *shared();

    // A new address serving the page until forget() is called with it.
    QUrl addPage(const QString &fileName, const QByteArray &html);
    void forget(const QUrl &url);

    void requestStarted(QWebEngineUrlRequestJob *job) override;

private:
    explicit QVReportSchemeHandler(QObject *parent);

    QHash<QString, QByteArray> m_pages;
    quint64 m_serial = 0;
};
