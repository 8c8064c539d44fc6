#include "QVReportSchemeHandler.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QWebEngineProfile>
#include <QWebEngineUrlRequestJob>
#include <QWebEngineUrlScheme>

void QVReportSchemeHandler::registerScheme()
{
    QWebEngineUrlScheme scheme(kScheme);
    scheme.setSyntax(QWebEngineUrlScheme::Syntax::Path);
    // Local: a report page may not reach the network nor other local pages.
    scheme.setFlags(QWebEngineUrlScheme::LocalScheme | QWebEngineUrlScheme::SecureScheme);
    QWebEngineUrlScheme::registerScheme(scheme);
}

QVReportSchemeHandler *QVReportSchemeHandler::shared()
{
    static QVReportSchemeHandler *handler = [] {
        auto *made = new QVReportSchemeHandler(QCoreApplication::instance());
        QWebEngineProfile::defaultProfile()->installUrlSchemeHandler(kScheme, made);
        return made;
    }();
    return handler;
}

QVReportSchemeHandler::QVReportSchemeHandler(QObject *parent)
    : QWebEngineUrlSchemeHandler(parent)
{
}

QUrl QVReportSchemeHandler::addPage(const QString &fileName, const QByteArray &html)
{
    QUrl url;
    url.setScheme(QLatin1String(kScheme));
    url.setPath(QStringLiteral("/%1/%2").arg(++m_serial).arg(fileName));
    m_pages.insert(url.path(), html);
    return url;
}

void QVReportSchemeHandler::forget(const QUrl &url)
{
    m_pages.remove(url.path());
}

void QVReportSchemeHandler::requestStarted(QWebEngineUrlRequestJob *job)
{
    const auto page = m_pages.constFind(job->requestUrl().path());
    if (page == m_pages.constEnd()) {
        job->fail(QWebEngineUrlRequestJob::UrlNotFound);
        return;
    }
    auto *buffer = new QBuffer(job);
    buffer->setData(*page);
    buffer->open(QIODevice::ReadOnly);
    job->reply(QByteArrayLiteral("text/html;charset=utf-8"), buffer);
}
