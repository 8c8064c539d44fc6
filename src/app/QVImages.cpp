#include "QVImages.h"

#include <QApplication>
#include <QFile>
#include <QPainter>
#include <QPalette>
#include <QSvgRenderer>

bool QVImages::isDarkPalette()
{
    return QApplication::palette().color(QPalette::Window).lightness() < 128;
}

QString QVImages::exactPath(const QString &name)
{
    const QString candidate = QStringLiteral(":/quorvel/images/") + name + QStringLiteral(".svg");
    return QFile::exists(candidate) ? candidate : QString();
}

QString QVImages::path(const QString &name)
{
    if (isDarkPalette()) {
        if (const QString dark = exactPath(name + QStringLiteral("Dark")); !dark.isEmpty())
            return dark;
    }
    return exactPath(name);
}

QPixmap QVImages::pixmap(const QString &name, int size, qreal devicePixelRatio)
{
    return pixmapOfFile(path(name), size, devicePixelRatio);
}

QPixmap QVImages::pixmapOfFile(const QString &file, int size, qreal devicePixelRatio)
{
    if (file.isEmpty())
        return QPixmap();
    QSvgRenderer renderer(file);
    const int pixels = qRound(size * devicePixelRatio);
    QPixmap image(pixels, pixels);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    renderer.render(&painter);
    painter.end();
    image.setDevicePixelRatio(devicePixelRatio);
    return image;
}

QIcon QVImages::icon(const QString &name, int size)
{
    return iconOfFile(path(name), size);
}

QIcon QVImages::iconOfFile(const QString &file, int size)
{
    QIcon result;
    result.addPixmap(pixmapOfFile(file, size, 1.0));
    result.addPixmap(pixmapOfFile(file, size, 2.0));
    return result;
}
