#include "engine/QVResouceFork.h"

#include "engine/QVFontLayouts.h"
#include "engine/QVSFNTDirectory.h"
#include "platform/QVByteReader.h"
#include "platform/QVByteWriter.h"
#include "platform/QVFileName.h"
#include "platform/QVFileSnapshot.h"
#include "platform/QVFileSystem.h"
#include "platform/QVForkStorage.h"
#include "settings/QVLog.h"

#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

using namespace QVFontLayouts;

namespace
{

// Mac Roman 0x80..0xFF in Unicode.
constexpr char16_t kMacRomanHigh[128] = {
    0x00C4,
    0x00C5,
    0x00C7,
    0x00C9,
    0x00D1,
    0x00D6,
    0x00DC,
    0x00E1,
    0x00E0,
    0x00E2,
    0x00E4,
    0x00E3,
    0x00E5,
    0x00E7,
    0x00E9,
    0x00E8,
    0x00EA,
    0x00EB,
    0x00ED,
    0x00EC,
    0x00EE,
    0x00EF,
    0x00F1,
    0x00F3,
    0x00F2,
    0x00F4,
    0x00F6,
    0x00F5,
    0x00FA,
    0x00F9,
    0x00FB,
    0x00FC,
    0x2020,
    0x00B0,
    0x00A2,
    0x00A3,
    0x00A7,
    0x2022,
    0x00B6,
    0x00DF,
    0x00AE,
    0x00A9,
    0x2122,
    0x00B4,
    0x00A8,
    0x2260,
    0x00C6,
    0x00D8,
    0x221E,
    0x00B1,
    0x2264,
    0x2265,
    0x00A5,
    0x00B5,
    0x2202,
    0x2211,
    0x220F,
    0x03C0,
    0x222B,
    0x00AA,
    0x00BA,
    0x03A9,
    0x00E6,
    0x00F8,
    0x00BF,
    0x00A1,
    0x00AC,
    0x221A,
    0x0192,
    0x2248,
    0x2206,
    0x00AB,
    0x00BB,
    0x2026,
    0x00A0,
    0x00C0,
    0x00C3,
    0x00D5,
    0x0152,
    0x0153,
    0x2013,
    0x2014,
    0x201C,
    0x201D,
    0x2018,
    0x2019,
    0x00F7,
    0x25CA,
    0x00FF,
    0x0178,
    0x2044,
    0x20AC,
    0x2039,
    0x203A,
    0xFB01,
    0xFB02,
    0x2021,
    0x00B7,
    0x201A,
    0x201E,
    0x2030,
    0x00C2,
    0x00CA,
    0x00C1,
    0x00CB,
    0x00C8,
    0x00CD,
    0x00CE,
    0x00CF,
    0x00CC,
    0x00D3,
    0x00D4,
    0xF8FF,
    0x00D2,
    0x00DA,
    0x00DB,
    0x00D9,
    0x0131,
    0x02C6,
    0x02DC,
    0x00AF,
    0x02D8,
    0x02D9,
    0x02DA,
    0x00B8,
    0x02DD,
    0x02DB,
    0x02C7,
};

const QHash<char16_t, quint8> &macRomanReverse()
{
    static const QHash<char16_t, quint8> table = [] {
        QHash<char16_t, quint8> t;
        for (int i = 0; i < 128; ++i)
            t.insert(kMacRomanHigh[i], quint8(0x80 + i));
        return t;
    }();
    return table;
}

// Restores the current resource file when a lookup is done with it.
class CurrentFileKeeper
{
public:
    explicit CurrentFileKeeper(qint16 refNum)
        : m_saved(QVResourceManager::curResFile())
    {
        QVResourceManager::useResFile(refNum);
    }
    ~CurrentFileKeeper()
    {
        const qint16 error = QVResourceManager::resError();
        QVResourceManager::useResFile(m_saved);
        QVResourceManager::setResError(error);
    }
    CurrentFileKeeper(const CurrentFileKeeper &) = delete;
    CurrentFileKeeper &operator=(const CurrentFileKeeper &) = delete;

private:
    qint16 m_saved;
};

constexpr int kMaxCreateNameLength = 1025;
constexpr quint16 kFinderFlagsOffset = 8;

} // namespace

QString qvFourCCString(quint32 code)
{
    QByteArray bytes;
    bytes.append(char(code >> 24)).append(char(code >> 16)).append(char(code >> 8)).append(char(code));
    return QVResouceFork::fromMacRoman(bytes);
}

QVResouceFork::QVResouceFork()
    : memoryHandler(std::make_shared<QVMemoryHandler>())
    , settings(std::make_shared<QVSettings>())
{
}

std::recursive_mutex &QVResouceFork::lock()
{
    return QVResourceManager::lock();
}

bool QVResouceFork::hasResourceFork(const QString &path)
{
    // During a scan nothing writes forks, so a file with no place for one has
    // none, and the probe below (which opens and locks the file) is skipped.
    if (QVFileSnapshot::of(path) && !QVForkStorage::mayHaveResourceFork(path))
        return false;
    std::lock_guard guard(lock());
    const QList<qint16> before = QVResourceManager::openFiles();
    const qint16 saved = QVResourceManager::curResFile();
    const qint16 refNum = openResourceFile(QVPermission::Read, path);
    const bool result = refNum >= 1 && QVResourceManager::resError() == 0;
    // A probe: a fork someone already has open stays open for them.
    if (refNum >= 1 && !before.contains(refNum))
        QVResourceManager::closeResFile(refNum);
    QVResourceManager::useResFile(saved);
    return result;
}

qint16 QVResouceFork::openResourceFile(quint8 permission, const QString &path)
{
    std::lock_guard guard(lock());
    if (permission & 6) {
        if (QFileInfo(path).fileName().size() >= kMaxCreateNameLength)
            return 0;
        const qint16 created = QVResourceManager::createResFork(path);
        if (created != 0 && created != QVResourceError::DuplicateFile) {
            QVResourceManager::setResError(created);
            return -1;
        }
    }
    return QVResourceManager::openResFile(path, permission);
}

qint16 QVResouceFork::openDataForkAtResourceFile(const QVFSRef *, const QString &path)
{
    return QVResourceManager::openDataForkResFile(path);
}

qint16 QVResouceFork::createNewResourceFileAtPath(const QString &path, quint32 creatorCode, quint32 typeCode)
{
    std::lock_guard guard(lock());
    if (!QVFileSystem::exists(path)) {
        const int fd
            = ::open(QVFileName::encode(path).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd < 0) {
            switch (errno) {
            case EACCES:
            case EPERM:
            case EROFS:
                return QVResourceError::Permission;
            case ENOENT:
            case ENOTDIR:
                return QVResourceError::DirNotFound;
            default:
                return QVResourceError::IoErr;
            }
        }
        ::close(fd);
        QByteArray info(32, '\0');
        for (int i = 0; i < 4; ++i) {
            info[i] = char(typeCode >> (24 - 8 * i));
            info[4 + i] = char(creatorCode >> (24 - 8 * i));
        }
        if (const qint16 error = QVForkStorage::writeFinderInfo(path, info); error != 0)
            return error;
    }
    QVFSRef ref;
    if (!getFSRef(path, &ref))
        return QVResourceError::NoErr;
    const qint16 created = QVResourceManager::createResFork(ref.path);
    if (created != 0 && created != QVResourceError::DuplicateFile)
        return created;
    const qint16 saved = QVResourceManager::curResFile();
    const qint16 refNum = QVResourceManager::openResFile(ref.path, QVPermission::ReadWrite);
    if (refNum < 1)
        return QVResourceManager::resError();
    QVResourceManager::closeResFile(refNum);
    const qint16 closeError = QVResourceManager::resError();
    QVResourceManager::useResFile(saved);
    return closeError;
}

qint16 QVResouceFork::addResource(
    const QVResourceHandle &h, quint32 type, qint16 resID, const QString &resName)
{
    std::lock_guard guard(lock());
    unsigned char name[256];
    if (!pascalString(resName, name, sizeof name))
        return -1;
    if (h && h->homeRefNum != 0)
        QVResourceManager::detachResource(h);
    QVResourceManager::addResource(
        h, type, resID, QByteArray(reinterpret_cast<const char *>(name + 1), name[0]), true);
    if (QVResourceManager::resError() == 0)
        QVResourceManager::writeResource(h);
    return QVResourceManager::resError();
}

qint16 QVResouceFork::getCurrentResource()
{
    return QVResourceManager::curResFile();
}

void QVResouceFork::useResourceFile(qint16 refNum)
{
    QVResourceManager::useResFile(refNum);
}

QList<QVResourceHandle> QVResouceFork::getResourcesOfType(quint32 type, qint16 refNum)
{
    std::lock_guard guard(lock());
    CurrentFileKeeper keeper(refNum);
    QList<QVResourceHandle> result;
    if (QVResourceManager::resError() != 0) {
        qCWarning(lcEngine, "Error: Could not get number of resource types");
        return result;
    }
    const int count = QVResourceManager::count1Resources(type);
    if (QVResourceManager::resError() != 0) {
        qCWarning(lcEngine, "Error: Could not get number of resource types");
        return result;
    }
    for (int i = 1; i <= count; ++i) {
        QVResourceHandle h = QVResourceManager::get1IndResource(type, i);
        if (!h || QVResourceManager::resError() != 0) {
            qCWarning(lcEngine, "Error: Could not get type for resource %i", i);
            continue;
        }
        result.append(h);
    }
    return result;
}

QVResourceHandle QVResouceFork::getResourceOfID(qint16 resID, quint32 type, qint16 refNum)
{
    std::lock_guard guard(lock());
    CurrentFileKeeper keeper(refNum);
    if (QVResourceManager::resError() != 0)
        return nullptr;
    return QVResourceManager::get1Resource(type, resID);
}

QVResourceHandle QVResouceFork::getIndexResource(qint16 refNum, quint32 type, int index)
{
    std::lock_guard guard(lock());
    CurrentFileKeeper keeper(refNum);
    if (QVResourceManager::resError() != 0)
        return nullptr;
    return QVResourceManager::get1IndResource(type, index);
}

int QVResouceFork::countResourceTypes(qint16 refNum, quint32 type)
{
    std::lock_guard guard(lock());
    CurrentFileKeeper keeper(refNum);
    if (QVResourceManager::resError() != 0)
        return 0;
    return QVResourceManager::count1Resources(type);
}

QVResourceHandle QVResouceFork::getNamedResource(const QString &name, quint32 type, qint16 refNum)
{
    std::lock_guard guard(lock());
    QByteArray bytes;
    if (!toMacRoman(name, &bytes)) {
        QVResourceManager::setResError(QVResourceError::ResNotFound);
        return nullptr;
    }
    CurrentFileKeeper keeper(refNum);
    if (QVResourceManager::resError() != 0)
        return nullptr;
    return QVResourceManager::get1NamedResource(type, bytes);
}

QVariantMap QVResouceFork::getResourceInfo(const QVResourceHandle &h)
{
    std::lock_guard guard(lock());
    QVariantMap info;
    info.insert(QStringLiteral("name"), QStringLiteral("<none>"));
    info.insert(QStringLiteral("id"), QStringLiteral("0"));
    info.insert(QStringLiteral("type"), 0u);
    if (!h) {
        QVResourceManager::setResError(QVResourceError::ResNotFound);
        return info;
    }
    if (h->hasName && !h->name.isEmpty())
        info.insert(QStringLiteral("name"), fromMacRoman(h->name));
    info.insert(QStringLiteral("id"), QString::number(h->id));
    info.insert(QStringLiteral("type"), uint(h->type));
    QVResourceManager::setResError(
        QVResourceManager::homeResFile(h) > 0 ? QVResourceError::NoErr : QVResourceError::ResNotFound);
    return info;
}

qint16 QVResouceFork::getHomeResourceRefWithHandle(const QVResourceHandle &h)
{
    return QVResourceManager::homeResFile(h);
}

void QVResouceFork::closeResourceFile(qint16 refNum)
{
    QVResourceManager::closeResFile(refNum);
}

void QVResouceFork::releaseResource(const QVResourceHandle &h)
{
    QVResourceManager::releaseResource(h);
}

qint16 QVResouceFork::resourceError()
{
    return QVResourceManager::resError();
}

qint16 QVResouceFork::removeResource(const QVResourceHandle &h)
{
    return QVResourceManager::removeResource(h);
}

qint16 QVResouceFork::changedResource(const QVResourceHandle &h)
{
    return QVResourceManager::changedResource(h);
}

qint16 QVResouceFork::writeResource(const QVResourceHandle &h)
{
    return QVResourceManager::writeResource(h);
}

void QVResouceFork::detachResource(const QVResourceHandle &h)
{
    QVResourceManager::detachResource(h);
}

qint16 QVResouceFork::updateResourceFile(qint16 refNum)
{
    return QVResourceManager::updateResFile(refNum);
}

qint64 QVResouceFork::getHandleSize(const QVResourceHandle &h)
{
    return QVResourceManager::getHandleSize(h);
}

bool QVResouceFork::setHandleSize(const QVResourceHandle &h, qint64 size)
{
    return QVResourceManager::setHandleSize(h, size);
}

qint16 QVResouceFork::memoryError()
{
    return QVResourceManager::memError();
}

QString QVResouceFork::errorMessageForCode(qint32 code)
{
    switch (code) {
    case -33:
        return QStringLiteral("Folder is full");
    case -34:
        return QStringLiteral("Disk is full");
    case -35:
        return QStringLiteral("No such volume");
    case -36:
        return QStringLiteral("Disk I/O error");
    case -37:
        return QStringLiteral("Bad file name");
    case -38:
        return QStringLiteral("File not opened");
    case -39:
        return QStringLiteral("Unexpected end of file");
    case -42:
        return QStringLiteral("Too many file opened");
    case -43:
        return QStringLiteral("File not found");
    case -44:
        return QStringLiteral("Disk is write protected");
    case -45:
        return QStringLiteral("File is locked");
    case -46:
        return QStringLiteral("Volume is locked");
    case -47:
        return QStringLiteral("File is busy (delete)");
    case -48:
        return QStringLiteral("Duplicate filename (rename)");
    case -49:
        return QStringLiteral("File already open with with write permission");
    case -51:
        return QStringLiteral("File cant be opened (rfNum)");
    case -52:
        return QStringLiteral("File position error");
    case -53:
        return QStringLiteral("Volume not on line error (was ejected)");
    case -54:
        return QStringLiteral("Permissions error (on file open)");
    case -55:
        return QStringLiteral("Volume already on-line");
    case -56:
        return QStringLiteral("Volume not found");
    case -57:
        return QStringLiteral("Not a mac disk");
    case -58:
        return QStringLiteral("Volume belongs to an external file system");
    case -59:
        return QStringLiteral("Internal error during rename");
    case -60:
        return QStringLiteral("Bad disk (master directory block)");
    case -61:
        return QStringLiteral("Write permissions error");
    case -120:
        return QStringLiteral("Folder not found");
    case -124:
        return QStringLiteral("Server disconnected");
    case -185:
        return QStringLiteral("Extended resource has a bad format");
    case -186:
        return QStringLiteral("Can't decompress a compressed resource");
    case -188:
        return QStringLiteral("Resource already in memory");
    case -189:
        return QStringLiteral("Writing past end of file");
    case -190:
        return QStringLiteral("Offset or count out of bounds");
    case -192:
        return QStringLiteral("Resource not found");
    case -193:
        return QStringLiteral("Resource file not found");
    case -194:
        return QStringLiteral("AddResource failed");
    case -195:
        return QStringLiteral("AddReference failed");
    case -196:
        return QStringLiteral("RmveResource failed");
    case -197:
        return QStringLiteral("RmveReference failed");
    case -198:
        return QStringLiteral("Inconsistent attribute");
    case -199:
        return QStringLiteral("Inconsistent resource map");
    default:
        return QStringLiteral("Resource error (%1)").arg(code);
    }
}

QString QVResouceFork::getSNFTResourceName(const QVResourceHandle &h, int nameCode)
{
    std::lock_guard guard(lock());
    if (!h || h->data.size() < 5)
        return QString();
    QVMemoryHandler &mem = *memoryHandler;
    const qint64 size = h->data.size();
    const QVSFNTDirectory directory(h->data);
    // The count is read signed: one of 0x8000 or more counts no tables.
    const int tableCount = qint16(directory.tableCount().value_or(0));
    if (tableCount < 1)
        return QString();
    const qint64 found = directory.find("name", tableCount);
    if (found < 0)
        return QString();
    const qint64 nameEntry = SFNT::entry(found);
    const qint64 table = quint32(mem.Handle_ReadLong(h, nameEntry + SFNT::kEntryOffset));
    const int recordCount = mem.Handle_ReadShort(h, table + Name::kRecordCount);
    const int storage = mem.Handle_ReadShort(h, table + Name::kStorageOffset);
    if (recordCount < 1)
        return QString();
    for (int i = 0; i < recordCount; ++i) {
        const qint64 record = table + Name::kHeaderSize + qint64(i) * Name::kRecordSize;
        if (record >= size)
            break;
        const int nameID = mem.Handle_ReadShort(h, record + Name::kRecordNameID);
        const int length = mem.Handle_ReadShort(h, record + Name::kRecordLength);
        const int stringOffset = mem.Handle_ReadShort(h, record + Name::kRecordOffset);
        if (nameID != nameCode)
            continue;
        const auto text = mem.Handle_ReadString(h, table + storage + stringOffset, length);
        const QString name = QString::fromLatin1(reinterpret_cast<const char *>(text.data()));
        if (!name.isEmpty())
            return name;
    }
    return QString();
}

int QVResouceFork::NthStyleName(
    const QVResourceHandle &h, int index, qint64 offset, unsigned char *suffixIndices)
{
    std::lock_guard guard(lock());
    if (!h || !suffixIndices)
        return 1;
    QVMemoryHandler &mem = *memoryHandler;
    qint64 at = offset;
    // The length byte is read signed: a length of 128 or more steps backwards.
    for (int i = 1; i < index; ++i)
        at += mem.Handle_ReadChar(h, at) + 1;
    if (at < 0 || at >= h->data.size())
        return 1;
    mem.pCopy(suffixIndices, mem.Handle_ReadPString(h, at).data());
    return 0;
}

QString QVResouceFork::getBitmapPSname(const QVResourceHandle &h, int style)
{
    std::lock_guard guard(lock());
    const QString none = QStringLiteral("<none>");
    const qint64 size = QVResourceManager::getHandleSize(h);
    if (!h || size <= 0 || QVResourceManager::memError() != 0)
        return none;
    QVMemoryHandler &mem = *memoryHandler;
    const qint64 table = mem.Handle_ReadLong(h, FOND::kStyleTable);
    if (table < 0 || !(size > table) || !(table + FOND::kStyleStringCount < size))
        return none;
    const int count = mem.Handle_ReadShort(h, table + FOND::kStyleStringCount);
    if (!(table + FOND::kStyleStrings < size) || !(count < size))
        return none;
    const qint64 list = table + FOND::kStyleStrings;
    QByteArray name = mem.toCStr(mem.Handle_ReadPString(h, list).data());
    if (name.isEmpty())
        return none;
    const int index = mem.Handle_ReadChar(h, table + FOND::kStyleIndexes + style);
    if (index < 2 || index > count)
        return fromMacRoman(name);
    unsigned char suffixes[256];
    if (NthStyleName(h, index, list, suffixes) != 0)
        return none;
    for (int i = 1; i <= suffixes[0]; ++i) {
        unsigned char suffix[256];
        if (NthStyleName(h, suffixes[i], list, suffix) != 0)
            return none;
        const int room = 254 - int(name.size());
        if (room <= 0)
            break;
        name.append(reinterpret_cast<const char *>(suffix + 1), qMin<int>(suffix[0], room));
    }
    return fromMacRoman(name);
}

quint16 QVResouceFork::finderInfoFlags(const QString &path)
{
    // Under the lock, so a flag change on another thread is seen whole.
    std::lock_guard guard(lock());
    QByteArray info;
    if (QVForkStorage::readFinderInfo(path, &info) != 0)
        return 0;
    return QVByteReader(info).at(kFinderFlagsOffset).u16().value_or(0);
}

qint16 QVResouceFork::setFinderInfoFlag(quint16 mask, bool value, const QString &path)
{
    std::lock_guard guard(lock());
    QByteArray info;
    if (const qint16 error = QVForkStorage::readFinderInfo(path, &info); error != 0)
        return error;
    const quint16 old = QVByteReader(info).at(kFinderFlagsOffset).u16().value_or(0);
    const quint16 flags = value ? (old | mask) : (old & ~mask);
    // Nothing to change: write nothing (no sidecar appears for flags already right).
    if (flags == old)
        return QVResourceError::NoErr;
    QVByteWriter(info).setU16(kFinderFlagsOffset, flags);
    return QVForkStorage::writeFinderInfo(path, info);
}

QDateTime QVResouceFork::creationDate(const QString &path)
{
    return QVForkStorage::creationDate(path);
}

qint16 QVResouceFork::setCreationDate(const QString &path, const QDateTime &date)
{
    return QVForkStorage::setCreationDate(path, date);
}

bool QVResouceFork::getFSRef(const QString &path, QVFSRef *ref)
{
    const QFileInfo info(path);
    if (path.isEmpty() || !QVFileSystem::exists(path))
        return false;
    if (ref)
        ref->path = info.absoluteFilePath();
    return true;
}

QString QVResouceFork::stringWithPascalString(const unsigned char *pascal)
{
    if (!pascal)
        return QString();
    return fromMacRoman(QByteArray(reinterpret_cast<const char *>(pascal + 1), pascal[0]));
}

bool QVResouceFork::pascalString(const QString &string, unsigned char *strBuffer, int length)
{
    QByteArray bytes;
    if (!strBuffer || length < 1 || !toMacRoman(string, &bytes) || bytes.size() > 255
        || bytes.size() + 1 > length)
        return false;
    strBuffer[0] = quint8(bytes.size());
    std::memcpy(strBuffer + 1, bytes.constData(), size_t(bytes.size()));
    return true;
}

QString QVResouceFork::fromMacRoman(const QByteArray &bytes)
{
    QString result;
    result.reserve(bytes.size());
    for (char c : bytes) {
        const auto b = quint8(c);
        result.append(b < 0x80 ? QChar(b) : QChar(kMacRomanHigh[b - 0x80]));
    }
    return result;
}

bool QVResouceFork::toMacRoman(const QString &string, QByteArray *bytes)
{
    bytes->clear();
    bytes->reserve(string.size());
    for (QChar c : string) {
        if (c.unicode() < 0x80) {
            bytes->append(char(c.unicode()));
            continue;
        }
        const auto it = macRomanReverse().constFind(c.unicode());
        if (it == macRomanReverse().constEnd())
            return false;
        bytes->append(char(*it));
    }
    return true;
}
