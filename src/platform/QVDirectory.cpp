#include "platform/QVDirectory.h"

#include "platform/QVFileName.h"

#include <algorithm>
#include <cstring>
#include <dirent.h>

std::vector<QVDirectory::Entry> QVDirectory::sortedEntries(const QString &folder)
{
    std::vector<Entry> entries;
    DIR *dir = ::opendir(QVFileName::encode(folder).constData());
    if (!dir)
        return entries;
    while (const dirent *entry = ::readdir(dir)) {
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0)
            continue;
        QByteArray native(entry->d_name);
        QString name = QVFileName::decode(native);
        entries.push_back({ std::move(native), std::move(name), entry->d_type });
    }
    ::closedir(dir);
    std::sort(
        entries.begin(), entries.end(), [](const Entry &a, const Entry &b) { return a.native < b.native; });
    return entries;
}
