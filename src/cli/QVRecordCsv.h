// The records as CSV (RFC 4180): one line per font, the columns named by the
// record's fields, for spreadsheets and scripts.
#pragma once

#include <QHash>
#include <QString>
#include <QStringList>

class QVFontDataManager;
class QVStatus;

class QVRecordCsv
{
public:
    // The columns of every font; extraColumns follow them.
    static QStringList columns();
    // The header and one line per font of the scan. Each extra column's
    // value for a font comes from extra (keyed by its status), empty when
    // it has none.
    static QString write(const QVFontDataManager &dataMgr, const QStringList &extraColumns = {},
        const QHash<const QVStatus *, QStringList> &extra = {});
    // A field, quoted when it holds a comma, a quote or a line break.
    static QString field(const QString &text);
};
