// quorvel [FOLDER...]: the desktop application; folders named here are
// scanned at once, as if dropped on the window.
#include "QVAppDelegate.h"

#include <QApplication>

int main(int argc, char **argv)
{
    // The report viewer's engine shares its drawing contexts: set before the
    // application exists.
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Quorvel"));
    QApplication::setApplicationDisplayName(QStringLiteral("Quorvel"));
    QApplication::setApplicationVersion(QStringLiteral(QV_VERSION));
    QApplication::setDesktopFileName(QStringLiteral("org.quorvel.Quorvel"));
    QStringList folders = QApplication::arguments();
    folders.removeFirst();
    QVAppDelegate delegate;
    delegate.launch(folders);
    return QApplication::exec();
}
