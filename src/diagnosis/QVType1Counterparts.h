// The counterparts of PC Type 1 fonts: an outline needs a metrics file of its
// base name (.afm or .pfm) beside it, or in TeX's parallel metrics folder, and
// a metrics file needs its outline. An outline that its folder's X font index
// (fonts.dir or fonts.scale) lists is served to the X server and fontconfig,
// which read no metrics: it needs none.
#pragma once

#include "engine/QVFontFile.h"

#include <QHash>
#include <QList>
#include <QSet>
#include <QString>

class QVType1Counterparts
{
public:
    // A PC outline or metrics file (a Mac outline file is examined by its
    // HFS type, whatever its name).
    static bool isPCFile(const QVFontFile &file);
    static bool isPCOutline(const QVFontFile &file);
    static bool isPCMetrics(const QVFontFile &file);

    bool lacksMetrics(const QString &outlinePath);
    static bool lacksOutline(const QString &metricsPath);

    // The records of the metrics files that go with an outline that has just
    // left its folder and that no other outline still needs; a metrics file
    // the scan did not list gets a record of its own.
    static QList<QVFontFilePtr> companionsLeftBehind(
        const QList<QVFontFilePtr> &fontFiles, const QVFontFilePtr &outline);

private:
    // The file names that the X font index of a folder lists, read once.
    const QSet<QString> &xFontIndex(const QString &folder);
    QHash<QString, QSet<QString>> m_xFontIndexes;
};
