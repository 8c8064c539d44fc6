#include "platform/QVPackageFiles.h"

#include "platform/QVFileName.h"
#include "platform/QVFileSystem.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QMutexLocker>
#include <QSet>

namespace
{

const QString kDefaultListFolder = QStringLiteral("/var/lib/dpkg/info");

// A system holds some hundred thousand owned paths; their 64-bit hashes are
// kept rather than the paths. A collision could only protect a file more.
quint64 pathHash(const QByteArray &path)
{
    quint64 hash = 14695981039346656037ULL;
    for (const char c : path) {
        hash ^= quint8(c);
        hash *= 1099511628211ULL;
    }
    return hash;
}

struct Lists {
    QMutex mutex;
    QString folder = kDefaultListFolder;
    bool loaded = false;
    QSet<quint64> owned;
};

Lists &lists()
{
    static Lists instance;
    return instance;
}

void load(Lists &l)
{
    l.owned.clear();
    const QDir dir(l.folder);
    for (const QString &name : dir.entryList({ QStringLiteral("*.list") }, QDir::Files, QDir::Name)) {
        QFile file(dir.filePath(name));
        if (!file.open(QIODevice::ReadOnly))
            continue;
        const QByteArray text = file.readAll();
        qsizetype start = 0;
        while (start < text.size()) {
            qsizetype end = text.indexOf('\n', start);
            if (end < 0)
                end = text.size();
            if (end > start)
                l.owned.insert(pathHash(text.mid(start, end - start)));
            start = end + 1;
        }
    }
    l.loaded = true;
}

} // namespace

bool QVPackageFiles::isPackageFile(const QString &path)
{
    Lists &l = lists();
    QMutexLocker locker(&l.mutex);
    if (!l.loaded)
        load(l);
    if (l.owned.isEmpty() || path.isEmpty())
        return false;
    const QFileInfo info(path);
    // The path as given, the file it resolves to, and the link itself in its
    // folder's real place (packages list /lib/x while the disk has /usr/lib/x).
    const QString realFolder = QVFileSystem::canonicalPath(info.absolutePath());
    const QString candidates[] = { QDir::cleanPath(info.absoluteFilePath()), info.canonicalFilePath(),
        realFolder.isEmpty() ? QString() : realFolder + QLatin1Char('/') + info.fileName() };
    for (const QString &candidate : candidates) {
        if (!candidate.isEmpty() && candidate != QLatin1String("/")
            && l.owned.contains(pathHash(QVFileName::encode(candidate))))
            return true;
    }
    return false;
}

void QVPackageFiles::setListFolder(const QString &folder)
{
    Lists &l = lists();
    QMutexLocker locker(&l.mutex);
    l.folder = folder;
    l.loaded = false;
    l.owned.clear();
}

QString QVPackageFiles::listFolder()
{
    Lists &l = lists();
    QMutexLocker locker(&l.mutex);
    return l.folder;
}

QString QVPackageFiles::refusal(const QString &path)
{
    return QStringLiteral(
        "%1 belongs to an installed package; system files are never moved, renamed or deleted")
        .arg(path);
}
