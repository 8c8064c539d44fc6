#include "engine/QVResourceManager.h"

#include "engine/QVResourceFile.h"
#include "platform/QVFileName.h"
#include "platform/QVFileSystem.h"
#include "platform/QVForkStorage.h"
#include "settings/QVLog.h"

#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <sys/file.h>
#include <unistd.h>

namespace
{

using Place = QVForkStorage::Place;

// Resource attribute: the resource's data is compressed (we cannot expand it).
constexpr quint8 kResCompressed = 0x01;

struct OpenFile {
    qint16 refNum = 0;
    QString path; // absolute path as given
    QString identity; // canonical path, to find a second open of the same fork
    bool dataFork = false;
    bool writable = false;
    bool dirty = false;
    Place place = Place::None;
    QVResourceFile file;
    // Holds the advisory lock while the fork is open for writing.
    int lockFd = -1;
};

struct State {
    std::recursive_mutex mutex;
    // Newest first: the resource chain.
    std::vector<std::unique_ptr<OpenFile>> chain;
    qint16 current = 0;
    qint16 resError = 0;
    qint16 memError = 0;
    qint16 lastRefNum = 1;

    ~State();
};

State &state()
{
    static State s;
    return s;
}

OpenFile *fileOf(qint16 refNum)
{
    for (auto &f : state().chain) {
        if (f->refNum == refNum)
            return f.get();
    }
    return nullptr;
}

OpenFile *currentFile()
{
    return state().current ? fileOf(state().current) : nullptr;
}

// The entry a handle belongs to, with its file.
QVResourceFile::Entry *entryOf(const QVResourceHandle &h, OpenFile **file = nullptr)
{
    if (!h || h->homeRefNum == 0)
        return nullptr;
    OpenFile *f = fileOf(h->homeRefNum);
    if (!f)
        return nullptr;
    for (auto &entry : f->file.entries) {
        if (entry.loaded == h) {
            if (file)
                *file = f;
            return &entry;
        }
    }
    return nullptr;
}

qint16 nextRefNum()
{
    State &s = state();
    for (int tries = 0; tries < 0x8000; ++tries) {
        s.lastRefNum = s.lastRefNum >= 0x7FFF ? 2 : qint16(s.lastRefNum + 1);
        if (!fileOf(s.lastRefNum))
            return s.lastRefNum;
    }
    return -1;
}

qint16 openErrorFromErrno(int error)
{
    switch (error) {
    case ENOENT:
    case ENOTDIR:
        return QVResourceError::FileNotFound;
    case EACCES:
    case EPERM:
        return QVResourceError::Permission;
    case EMFILE:
    case ENFILE:
        return -42; // too many files open
    default:
        return QVResourceError::IoErr;
    }
}

// Takes the advisory lock of a fork's file: exclusive for writing, shared for
// the moment of reading. Returns the descriptor or -1 with *error set.
int lockForkFile(const QString &path, bool exclusive, qint16 *error)
{
    const int fd = ::open(QVFileName::encode(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        *error = openErrorFromErrno(errno);
        return -1;
    }
    if (::flock(fd, (exclusive ? LOCK_EX : LOCK_SH) | LOCK_NB) != 0) {
        const int lockError = errno;
        ::close(fd);
        *error = lockError == EWOULDBLOCK ? QVResourceError::OpenForWriting : QVResourceError::IoErr;
        return -1;
    }
    return fd;
}

void releaseForkFile(int fd)
{
    if (fd >= 0) {
        ::flock(fd, LOCK_UN);
        ::close(fd);
    }
}

// Puts changed handles into the image and writes the fork when anything changed.
qint16 flush(OpenFile &f, bool log = true)
{
    if (!f.writable)
        return QVResourceError::NoErr;
    for (auto &entry : f.file.entries) {
        if (entry.loaded && entry.loaded->changed) {
            entry.data = entry.loaded->data;
            entry.dataValid = true;
            entry.loaded->changed = false;
            f.dirty = true;
        }
    }
    if (!f.dirty)
        return QVResourceError::NoErr;
    qint16 error = 0;
    const QByteArray bytes = f.file.serialize(&error);
    if (error != 0)
        return error;
    Place written = Place::None;
    error = QVForkStorage::writeResourceFork(f.path, bytes, f.place, &written);
    if (error != 0) {
        if (log)
            qCWarning(lcEngine) << "Error: could not write the resource fork of" << f.path << error;
        return error;
    }
    f.place = written;
    f.dirty = false;
    return QVResourceError::NoErr;
}

void closeFile(qint16 refNum)
{
    State &s = state();
    auto it = std::find_if(
        s.chain.begin(), s.chain.end(), [refNum](const auto &f) { return f->refNum == refNum; });
    if (it == s.chain.end()) {
        s.resError = QVResourceError::ResFileNotFound;
        return;
    }
    OpenFile &f = **it;
    s.resError = flush(f);
    for (auto &entry : f.file.entries) {
        if (entry.loaded)
            entry.loaded->homeRefNum = 0;
    }
    releaseForkFile(f.lockFd);
    const auto next = std::next(it);
    const qint16 nextRef = next != s.chain.end() ? (*next)->refNum : 0;
    if (s.current == refNum)
        s.current = nextRef;
    s.chain.erase(it);
}

State::~State()
{
    // Like the Mac at exit: every open fork is written back and closed. Only
    // this object is touched here; logging may already be gone.
    for (auto &f : chain) {
        flush(*f, false);
        releaseForkFile(f->lockFd);
    }
}

qint16 openFork(const QString &path, quint8 permission, bool dataFork)
{
    State &s = state();
    const bool wantsWrite = (permission & QVPermission::Write) != 0;
    const QFileInfo info(path);
    if (!QVFileSystem::exists(path) || QVFileSystem::isDirectory(path)) {
        s.resError = QVResourceError::FileNotFound;
        return -1;
    }
    const QString absolute = info.absoluteFilePath();
    const QString identity = QVFileSystem::canonicalPath(path);

    for (auto &f : s.chain) {
        if (f->identity != identity || f->dataFork != dataFork)
            continue;
        if (wantsWrite && !f->writable) {
            if (!info.isWritable() || !f->file.allDataValid()) {
                s.resError = f->file.allDataValid() ? QVResourceError::Permission : QVResourceError::MapRead;
                return -1;
            }
            qint16 error = 0;
            const int fd = lockForkFile(absolute, true, &error);
            if (fd < 0) {
                s.resError = error;
                return -1;
            }
            f->lockFd = fd;
            f->writable = true;
        }
        s.current = f->refNum;
        s.resError = QVResourceError::NoErr;
        return f->refNum;
    }

    if (wantsWrite && (dataFork || !info.isWritable())) {
        s.resError = QVResourceError::Permission;
        return -1;
    }
    qint16 error = 0;
    const int fd = lockForkFile(absolute, wantsWrite, &error);
    if (fd < 0) {
        s.resError = error;
        return -1;
    }
    auto f = std::make_unique<OpenFile>();
    QByteArray bytes;
    if (dataFork) {
        QFile file;
        if (!QVFileSystem::openForReading(file, absolute)) {
            releaseForkFile(fd);
            s.resError = QVResourceError::Permission;
            return -1;
        }
        // Whatever the file claims, nothing beyond a plausible fork is read in.
        if (file.size() > QVForkStorage::kMaxForkSize) {
            releaseForkFile(fd);
            s.resError = QVResourceError::MapRead;
            return -1;
        }
        bytes = file.readAll();
        f->place = Place::DataFork;
        error = bytes.isEmpty() ? QVResourceError::ResFileNotFound : QVResourceError::NoErr;
    } else {
        error = QVForkStorage::readResourceFork(absolute, &bytes, &f->place);
    }
    std::optional<QVResourceFile> parsed;
    if (error == 0) {
        parsed = QVResourceFile::parse(bytes, &error);
        // A fork with resources outside its data is only ever read, never rewritten.
        if (parsed && wantsWrite && !parsed->allDataValid())
            error = QVResourceError::MapRead;
    }
    if (error != 0) {
        releaseForkFile(fd);
        s.resError = error;
        return -1;
    }
    if (wantsWrite) {
        f->lockFd = fd;
    } else {
        releaseForkFile(fd);
    }
    const qint16 refNum = nextRefNum();
    if (refNum < 0) {
        releaseForkFile(f->lockFd);
        s.resError = -42;
        return -1;
    }
    f->refNum = refNum;
    f->path = absolute;
    f->identity = identity;
    f->dataFork = dataFork;
    f->writable = wantsWrite;
    f->file = std::move(*parsed);
    s.chain.insert(s.chain.begin(), std::move(f));
    s.current = refNum;
    s.resError = QVResourceError::NoErr;
    return refNum;
}

QVResourceHandle load(OpenFile &f, int index)
{
    State &s = state();
    if (index < 0) {
        s.resError = QVResourceError::ResNotFound;
        return nullptr;
    }
    QVResourceFile::Entry &entry = f.file.entries[index];
    if (entry.loaded) {
        s.resError = QVResourceError::NoErr;
        return entry.loaded;
    }
    if (!entry.dataValid) {
        s.resError = QVResourceError::Eof;
        return nullptr;
    }
    if (entry.attributes & kResCompressed) {
        s.resError = QVResourceError::CantDecompress;
        return nullptr;
    }
    auto h = std::make_shared<QVResourceHandleData>();
    h->data = entry.data;
    h->homeRefNum = f.refNum;
    h->type = entry.type;
    h->id = entry.id;
    h->name = entry.name;
    h->hasName = entry.hasName;
    h->attributes = entry.attributes;
    entry.loaded = h;
    s.resError = QVResourceError::NoErr;
    return h;
}

} // namespace

std::recursive_mutex &QVResourceManager::lock()
{
    return state().mutex;
}

qint16 QVResourceManager::openResFile(const QString &path, quint8 permission)
{
    std::lock_guard guard(lock());
    return openFork(path, permission, false);
}

qint16 QVResourceManager::openDataForkResFile(const QString &path)
{
    std::lock_guard guard(lock());
    return openFork(path, QVPermission::Read, true);
}

qint16 QVResourceManager::createResFork(const QString &path)
{
    std::lock_guard guard(lock());
    State &s = state();
    const QFileInfo info(path);
    if (!QVFileSystem::exists(path) || QVFileSystem::isDirectory(path))
        return s.resError = QVResourceError::FileNotFound;
    QByteArray fork;
    Place place = Place::None;
    const qint16 error = QVForkStorage::readResourceFork(info.absoluteFilePath(), &fork, &place);
    if (place != Place::None)
        return s.resError = QVResourceError::DuplicateFile;
    if (error != QVResourceError::ResFileNotFound)
        return s.resError = error;
    return s.resError
        = QVForkStorage::writeResourceFork(info.absoluteFilePath(), QVResourceFile::emptyFork(), Place::None);
}

void QVResourceManager::closeResFile(qint16 refNum)
{
    std::lock_guard guard(lock());
    closeFile(refNum);
}

qint16 QVResourceManager::updateResFile(qint16 refNum)
{
    std::lock_guard guard(lock());
    OpenFile *f = fileOf(refNum);
    if (!f)
        return state().resError = QVResourceError::ResFileNotFound;
    return state().resError = flush(*f);
}

qint16 QVResourceManager::curResFile()
{
    std::lock_guard guard(lock());
    return state().current;
}

void QVResourceManager::useResFile(qint16 refNum)
{
    std::lock_guard guard(lock());
    State &s = state();
    if (refNum == 0 || fileOf(refNum)) {
        s.current = refNum;
        s.resError = QVResourceError::NoErr;
    } else {
        s.resError = QVResourceError::ResFileNotFound;
    }
}

QString QVResourceManager::pathOfResFile(qint16 refNum)
{
    std::lock_guard guard(lock());
    const OpenFile *f = fileOf(refNum);
    return f ? f->path : QString();
}

bool QVResourceManager::isWritable(qint16 refNum)
{
    std::lock_guard guard(lock());
    const OpenFile *f = fileOf(refNum);
    return f && f->writable;
}

int QVResourceManager::count1Resources(quint32 type)
{
    std::lock_guard guard(lock());
    const OpenFile *f = currentFile();
    if (!f) {
        state().resError = QVResourceError::ResFileNotFound;
        return 0;
    }
    state().resError = QVResourceError::NoErr;
    return f->file.count(type);
}

int QVResourceManager::count1Types()
{
    std::lock_guard guard(lock());
    const OpenFile *f = currentFile();
    if (!f) {
        state().resError = QVResourceError::ResFileNotFound;
        return 0;
    }
    state().resError = QVResourceError::NoErr;
    return int(f->file.types().size());
}

quint32 QVResourceManager::get1IndType(int oneBasedIndex)
{
    std::lock_guard guard(lock());
    const OpenFile *f = currentFile();
    if (!f) {
        state().resError = QVResourceError::ResFileNotFound;
        return 0;
    }
    const QList<quint32> types = f->file.types();
    if (oneBasedIndex < 1 || oneBasedIndex > types.size()) {
        state().resError = QVResourceError::ResNotFound;
        return 0;
    }
    state().resError = QVResourceError::NoErr;
    return types.at(oneBasedIndex - 1);
}

QVResourceHandle QVResourceManager::get1IndResource(quint32 type, int oneBasedIndex)
{
    std::lock_guard guard(lock());
    OpenFile *f = currentFile();
    if (!f) {
        state().resError = QVResourceError::ResFileNotFound;
        return nullptr;
    }
    return load(*f, f->file.indexOf(type, oneBasedIndex));
}

QVResourceHandle QVResourceManager::get1Resource(quint32 type, qint16 id)
{
    std::lock_guard guard(lock());
    OpenFile *f = currentFile();
    if (!f) {
        state().resError = QVResourceError::ResFileNotFound;
        return nullptr;
    }
    return load(*f, f->file.find(type, id));
}

QVResourceHandle QVResourceManager::get1NamedResource(quint32 type, const QByteArray &name)
{
    std::lock_guard guard(lock());
    OpenFile *f = currentFile();
    if (!f) {
        state().resError = QVResourceError::ResFileNotFound;
        return nullptr;
    }
    return load(*f, f->file.findNamed(type, name));
}

qint16 QVResourceManager::addResource(
    const QVResourceHandle &h, quint32 type, qint16 id, const QByteArray &name, bool hasName)
{
    std::lock_guard guard(lock());
    State &s = state();
    OpenFile *f = currentFile();
    if (!h || h->homeRefNum != 0 || !f || !f->writable || name.size() > 255)
        return s.resError = QVResourceError::AddResFailed;
    QVResourceFile::Entry entry;
    entry.type = type;
    entry.id = id;
    entry.name = name;
    // An empty name is stored as no name, as the Mac does.
    entry.hasName = hasName && !name.isEmpty();
    entry.attributes = h->attributes & ~quint8(0x02);
    entry.data = h->data;
    entry.loaded = h;
    f->file.entries.append(std::move(entry));
    h->homeRefNum = f->refNum;
    h->type = type;
    h->id = id;
    h->name = name;
    h->hasName = entry.hasName;
    h->changed = true;
    f->dirty = true;
    return s.resError = QVResourceError::NoErr;
}

qint16 QVResourceManager::removeResource(const QVResourceHandle &h)
{
    std::lock_guard guard(lock());
    State &s = state();
    OpenFile *f = nullptr;
    QVResourceFile::Entry *entry = entryOf(h, &f);
    if (!entry)
        return s.resError = QVResourceError::RmvResFailed;
    if (!f->writable)
        return s.resError = QVResourceError::RmvResFailed;
    f->file.entries.removeIf([&h](const QVResourceFile::Entry &e) { return e.loaded == h; });
    h->homeRefNum = 0;
    h->changed = false;
    f->dirty = true;
    return s.resError = QVResourceError::NoErr;
}

qint16 QVResourceManager::changedResource(const QVResourceHandle &h)
{
    std::lock_guard guard(lock());
    State &s = state();
    OpenFile *f = nullptr;
    if (!entryOf(h, &f))
        return s.resError = QVResourceError::ResNotFound;
    if (!f->writable)
        return s.resError = QVResourceError::WritePermissionErr;
    h->changed = true;
    return s.resError = QVResourceError::NoErr;
}

qint16 QVResourceManager::writeResource(const QVResourceHandle &h)
{
    std::lock_guard guard(lock());
    State &s = state();
    OpenFile *f = nullptr;
    QVResourceFile::Entry *entry = entryOf(h, &f);
    if (!entry)
        return s.resError = QVResourceError::ResNotFound;
    if (!h->changed)
        return s.resError = QVResourceError::NoErr;
    if (!f->writable)
        return s.resError = QVResourceError::WritePermissionErr;
    entry->data = h->data;
    entry->dataValid = true;
    h->changed = false;
    f->dirty = true;
    return s.resError = QVResourceError::NoErr;
}

void QVResourceManager::detachResource(const QVResourceHandle &h)
{
    std::lock_guard guard(lock());
    QVResourceFile::Entry *entry = entryOf(h);
    if (!entry) {
        state().resError = QVResourceError::ResNotFound;
        return;
    }
    entry->loaded = nullptr;
    h->homeRefNum = 0;
    h->changed = false;
    state().resError = QVResourceError::NoErr;
}

void QVResourceManager::releaseResource(const QVResourceHandle &h)
{
    std::lock_guard guard(lock());
    QVResourceFile::Entry *entry = entryOf(h);
    if (!entry) {
        state().resError = QVResourceError::ResNotFound;
        return;
    }
    // A changed resource is not let go before it is written (as on the Mac).
    if (h->changed) {
        state().resError = QVResourceError::ResAttrErr;
        return;
    }
    entry->loaded = nullptr;
    h->homeRefNum = 0;
    state().resError = QVResourceError::NoErr;
}

qint16 QVResourceManager::setResInfo(const QVResourceHandle &h, qint16 id, const QByteArray &name)
{
    std::lock_guard guard(lock());
    State &s = state();
    OpenFile *f = nullptr;
    QVResourceFile::Entry *entry = entryOf(h, &f);
    if (!entry)
        return s.resError = QVResourceError::ResNotFound;
    if (!f->writable || name.size() > 255)
        return s.resError = QVResourceError::ResAttrErr;
    entry->id = h->id = id;
    entry->name = h->name = name;
    entry->hasName = h->hasName = !name.isEmpty();
    f->dirty = true;
    return s.resError = QVResourceError::NoErr;
}

qint16 QVResourceManager::homeResFile(const QVResourceHandle &h)
{
    std::lock_guard guard(lock());
    if (!entryOf(h)) {
        state().resError = QVResourceError::ResNotFound;
        return -1;
    }
    state().resError = QVResourceError::NoErr;
    return h->homeRefNum;
}

qint64 QVResourceManager::getResourceSizeOnDisk(const QVResourceHandle &h)
{
    std::lock_guard guard(lock());
    const QVResourceFile::Entry *entry = entryOf(h);
    if (!entry) {
        state().resError = QVResourceError::ResNotFound;
        return -1;
    }
    return entry->data.size();
}

bool QVResourceManager::setHandleSize(const QVResourceHandle &h, qint64 size)
{
    std::lock_guard guard(lock());
    if (!h || size < 0 || size > QVResourceFile::kMaxDataArea) {
        state().memError = QVResourceError::MemFull;
        return false;
    }
    h->data.resize(qsizetype(size), '\0');
    state().memError = QVResourceError::NoErr;
    return true;
}

qint64 QVResourceManager::getHandleSize(const QVResourceHandle &h)
{
    std::lock_guard guard(lock());
    if (!h) {
        state().memError = -109; // nilHandleErr
        return 0;
    }
    state().memError = QVResourceError::NoErr;
    return h->data.size();
}

qint16 QVResourceManager::resError()
{
    std::lock_guard guard(lock());
    return state().resError;
}

qint16 QVResourceManager::memError()
{
    std::lock_guard guard(lock());
    return state().memError;
}

void QVResourceManager::setResError(qint16 error)
{
    std::lock_guard guard(lock());
    state().resError = error;
}

void QVResourceManager::closeAll()
{
    std::lock_guard guard(lock());
    while (!state().chain.empty())
        closeFile(state().chain.front()->refNum);
}

QList<qint16> QVResourceManager::openFiles()
{
    std::lock_guard guard(lock());
    QList<qint16> result;
    for (const auto &f : state().chain)
        result.append(f->refNum);
    return result;
}
