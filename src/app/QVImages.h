// The application's images, by name, as drawn in resources/images/. A dark
// palette (a dark window colour) picks the "Dark" variant where one exists.
#pragma once

#include <QIcon>
#include <QPixmap>
#include <QString>

class QWidget;

class QVImages
{
public:
    // Whether the application palette's window colour is dark.
    static bool isDarkPalette();
    // The resource path of NAME, or of NAMEDark under a dark palette when it exists.
    static QString path(const QString &name);
    // The exact resource path of NAME, or empty when there is no such image.
    static QString exactPath(const QString &name);
    static QPixmap pixmap(const QString &name, int size, qreal devicePixelRatio = 1.0);
    static QIcon icon(const QString &name, int size);
    // The image of a resource path (one of the above), drawn at 1x and 2x.
    static QPixmap pixmapOfFile(const QString &file, int size, qreal devicePixelRatio);
    static QIcon iconOfFile(const QString &file, int size);
};
