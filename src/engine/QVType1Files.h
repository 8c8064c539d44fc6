// The files of a PC Type 1 font: its outline (.pfb, .pfa, .t1) and its
// metrics files (.afm, .pfm), which belong together by base name in one
// folder, or in TeX's trees by the same name in the parallel "afm" folder
// (".../fonts/afm/public/NAME/" beside ".../fonts/type1/public/NAME/").
#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QStringList>

class QVType1Files
{
public:
    static bool isOutline(const QString &path);
    static bool isMetrics(const QString &path);

    // The metrics files of an outline that exist on disk.
    static QStringList metricsOf(const QString &outlinePath);
    // The outline files of a metrics file that exist on disk.
    static QStringList outlinesOf(const QString &metricsPath);
    // The outlines a PC Type 1 file goes with, by its name alone (nothing
    // need exist): the paths of the outline without its extension. An
    // outline and a metrics file that share one belong together. Empty for
    // other files.
    static QStringList outlineBases(const QString &path);

    struct Metrics {
        // The file has the structure of its kind (an AFM's opening keyword, a
        // PFM's header with its name inside the file).
        bool sound = false;
        QByteArray fontName, familyName, weight, notice;
    };
    // What a metrics file's bytes name; pfm chooses the binary form.
    static Metrics readMetrics(QByteArrayView bytes, bool pfm);

private:
    // The same file name in the parallel folder of a TeX tree ("type1" and
    // "afm" below "fonts"); empty outside such a tree.
    static QString texParallel(const QString &path, const QString &from, const QString &to);
    static QStringList existing(const QString &base, const QStringList &extensions);
};
