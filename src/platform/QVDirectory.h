// A folder's entries as the file system names them. Qt's own listing leaves
// out names that are not UTF-8, so the scan lists folders here.
#pragma once

#include <QByteArray>
#include <QString>
#include <vector>

class QVDirectory
{
public:
    struct Entry {
        // The name's bytes, which also give the scan its order.
        QByteArray native;
        // The name in QVFileName's form.
        QString name;
        // What the listing says the entry is (DT_REG, DT_DIR, DT_LNK...);
        // DT_UNKNOWN where the file system does not say.
        unsigned char type = 0;
    };

    // Every entry but "." and "..", hidden ones included, in byte order of
    // their names. Empty when the folder cannot be listed.
    static std::vector<Entry> sortedEntries(const QString &folder);
};
