// The scanned fonts as a comma-separated file for spreadsheets: a header line,
// then one line per font of every file of the data manager, in its order.
#pragma once

#include "engine/QVFontFile.h"

#include <QByteArray>
#include <QList>
#include <QString>

class QVFontDataExport
{
public:
    // The name a save panel proposes.
    static constexpr const char *kDefaultFileName = "Quorvel_Data.csv";
    static constexpr const char *kHeader
        = "Type, Name, Style, Size, PostScript Name, Foundry, Version Key, Path\n";

    // The whole file's text, UTF-8: the header even when there are no files.
    static QByteArray csv(const QList<QVFontFilePtr> &fontFiles);
    // Writes csv() to path (replacing it whole) and marks it as a spreadsheet
    // (HFS type XLS8, creator XCEL) where the file system keeps extended
    // attributes. A null string on success, else what went wrong.
    static QString write(const QList<QVFontFilePtr> &fontFiles, const QString &path);
};
