// qv-screenshots [OUTDIR]: pictures of every view of the main window, in a
// light and a dark palette: the welcome of a first start, idle, after a
// diagnosis of duplicated fonts, and the resolution window with a row
// expanded and its explanation open, drawn off screen in a throw-away home
// (default OUTDIR: docs/screenshots).
#include "app/QVAppDelegate.h"
#include "app/QVDiagnosisActionWindow.h"
#include "app/QVDiagnosisViewController.h"
#include "app/QVMainWindow.h"
#include "app/QVPopover.h"
#include "settings/QVSettings.h"
#include "support/QVFixtures.h"
#include "support/QVTestHome.h"

#include <QApplication>
#include <QDir>
#include <QPainter>
#include <QPushButton>
#include <QStyle>
#include <QStyleFactory>
#include <QToolButton>
#include <cstdio>

namespace
{

QPalette darkPalette()
{
    QPalette palette;
    const QColor text(0xe6, 0xe9, 0xed);
    palette.setColor(QPalette::Window, QColor(0x1e, 0x23, 0x29));
    palette.setColor(QPalette::WindowText, text);
    palette.setColor(QPalette::Base, QColor(0x16, 0x19, 0x1d));
    palette.setColor(QPalette::AlternateBase, QColor(0x22, 0x27, 0x2e));
    palette.setColor(QPalette::Text, text);
    palette.setColor(QPalette::Button, QColor(0x2a, 0x30, 0x38));
    palette.setColor(QPalette::ButtonText, text);
    palette.setColor(QPalette::Light, QColor(0x3a, 0x42, 0x4c));
    palette.setColor(QPalette::Midlight, QColor(0x32, 0x39, 0x42));
    palette.setColor(QPalette::Mid, QColor(0x26, 0x2b, 0x32));
    palette.setColor(QPalette::Dark, QColor(0x12, 0x14, 0x17));
    palette.setColor(QPalette::Shadow, QColor(0x08, 0x09, 0x0a));
    palette.setColor(QPalette::Highlight, QColor(0x4f, 0x86, 0xc6));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::Link, QColor(0x9c, 0xc3, 0xea));
    palette.setColor(QPalette::PlaceholderText, QColor(0x9a, 0xa5, 0xb1));
    palette.setColor(QPalette::ToolTipBase, QColor(0x2a, 0x30, 0x38));
    palette.setColor(QPalette::ToolTipText, text);
    for (const auto role : { QPalette::WindowText, QPalette::Text, QPalette::ButtonText })
        palette.setColor(QPalette::Disabled, role, QColor(0x6b, 0x76, 0x83));
    return palette;
}

bool save(QWidget *window, const QString &folder, const QString &name)
{
    // Views are switched here without a click, so the keyboard focus would
    // still ring the first button: draw them as a mouse user sees them.
    if (QWidget *focused = QApplication::focusWidget())
        focused->clearFocus();
    QApplication::processEvents();
    const QString path = folder + QLatin1Char('/') + name + QStringLiteral(".png");
    if (!window->grab().save(path)) {
        std::fprintf(stderr, "qv-screenshots: cannot write %s\n", qPrintable(path));
        return false;
    }
    std::printf("%s\n", qPrintable(path));
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    const QString out = QDir(argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral("docs/screenshots"))
                            .absolutePath();
    QDir().mkpath(out);
    const QPalette light = QApplication::style()->standardPalette();

    bool ok = true;
    for (const bool dark : { false, true }) {
        QApplication::setPalette(dark ? darkPalette() : light);
        const QString scheme = dark ? QStringLiteral("dark") : QStringLiteral("light");
        QVTestHome home;
        QVSettings::unregisterUserPreferences();
        QVAppDelegate delegate;
        delegate.launch();
        QVMainWindow *window = delegate.mainWindow();
        window->resize(880, 680);
        // A first start: the welcome over the Scan view.
        ok = save(window, out, QStringLiteral("welcome-%1").arg(scheme)) && ok;
        const char *const names[] = { "scan", "settings", "quarantine", "reports" };
        for (int i = 3; i >= 0; --i) {
            window->selectButton(i);
            ok = save(window, out, QStringLiteral("%1-%2").arg(QLatin1String(names[i]), scheme)) && ok;
        }
        // Two copies of two fonts and a damaged one: duplicates and damage to show.
        const QString folder = home.path() + QStringLiteral("/Fonts");
        for (const QString &sub : { QStringLiteral("/Studio"), QStringLiteral("/Archive") }) {
            QVFixtures::copyFont(QVFixtures::kDejaVuSans, folder + sub);
            QVFixtures::copyFont(QVFixtures::kDejaVuSansBold, folder + sub);
        }
        QByteArray damaged = QVFixtures::readFile(QVFixtures::kDejaVuSerif);
        damaged.replace(damaged.indexOf("kern") + 4, 4, QByteArray(4, '\0'));
        QVFixtures::writeFile(folder + QStringLiteral("/Studio/Serif.ttf"), damaged);
        delegate.setDelay(0);
        delegate.performDragOperation({ folder });
        if (!QVFixtures::waitFor(
                [&] { return delegate.isShowingDoneButton() && !delegate.isBusy(); }, 60000)) {
            std::fprintf(stderr, "qv-screenshots: the diagnosis did not finish\n");
            return 1;
        }
        ok = save(window, out, QStringLiteral("diagnosis-%1").arg(scheme)) && ok;
        if (QVDiagnosisActionWindow *actions = delegate.diagnosisActionWindow()) {
            // The first row expanded, the explanation of its duplicates line open.
            actions->resize(780, 460);
            actions->disclosureAction(0, true);
            QApplication::processEvents();
            if (QWidget *line = actions->expandedLine(0, 1)) {
                line->findChild<QToolButton *>(QStringLiteral("iconView1"))->click();
            }
            QApplication::processEvents();
            QPixmap shot = actions->grab();
            QPainter painter(&shot);
            if (actions->popover()->isVisible())
                painter.drawPixmap(
                    actions->mapFromGlobal(actions->popover()->pos()), actions->popover()->grab());
            painter.end();
            const QString path = out + QStringLiteral("/resolution-%1.png").arg(scheme);
            ok = shot.save(path) && ok;
            std::printf("%s\n", qPrintable(path));
            actions->popover()->close();
        }
        delegate.diagnosisViewController()->cancelButton()->click();
        ok = save(window, out, QStringLiteral("scan-after-%1").arg(scheme)) && ok;
    }
    return ok ? 0 : 1;
}
