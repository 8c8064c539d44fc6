// qv-icon-render SVG OUTDIR NAME SIZE...: draws the program's icon at each
// size into OUTDIR/SIZExSIZE/apps/NAME.png, the hicolor theme's layout, so the
// package's bitmaps always match the one drawing kept in the sources.
#include <QDir>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QSvgRenderer>
#include <cstdio>

int main(int argc, char *argv[])
{
    // A build step: no display is needed or wanted.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() < 5) {
        std::fprintf(stderr, "usage: qv-icon-render SVG OUTDIR NAME SIZE...\n");
        return 2;
    }
    QSvgRenderer renderer(arguments.at(1));
    if (!renderer.isValid()) {
        std::fprintf(stderr, "qv-icon-render: cannot read %s\n", qPrintable(arguments.at(1)));
        return 1;
    }
    for (const QString &sizeText : arguments.mid(4)) {
        const int size = sizeText.toInt();
        if (size <= 0 || size > 1024) {
            std::fprintf(stderr, "qv-icon-render: bad size %s\n", qPrintable(sizeText));
            return 2;
        }
        QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        renderer.render(&painter, QRectF(0, 0, size, size));
        painter.end();
        const QString folder = QStringLiteral("%1/%2x%2/apps").arg(arguments.at(2)).arg(size);
        const QString path = folder + QLatin1Char('/') + arguments.at(3) + QStringLiteral(".png");
        if (!QDir().mkpath(folder) || !image.save(path)) {
            std::fprintf(stderr, "qv-icon-render: cannot write %s\n", qPrintable(path));
            return 1;
        }
    }
    return 0;
}
