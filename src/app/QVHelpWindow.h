// The help pages (HTML in the application's resources) in a window of their
// own, with back, forward and contents. Links to other pages of the help
// stay in the window; links out of it open in the browser.
#pragma once

#include <QString>
#include <QWidget>

class QTextBrowser;
class QToolButton;

class QVHelpWindow : public QWidget
{
    Q_OBJECT

public:
    // The one help window, made or raised, on the page ("index.html" by default).
    static QVHelpWindow *showHelp(const QString &page = QString());
    static QVHelpWindow *instance();
    static QString helpFolder() { return QStringLiteral("qrc:/quorvel/help/"); }

    QTextBrowser *browser() const { return m_browser; }
    void showPage(const QString &page);
    // The page shown, relative to the help folder ("diagnoses.html").
    QString currentPage() const;

private:
    QVHelpWindow();

    QTextBrowser *m_browser;
    QToolButton *m_back;
    QToolButton *m_forward;
};
