#include "support/QVFixtures.h"

#include "engine/QVFontDataManager.h"
#include "engine/QVFontExaminer.h"
#include "engine/QVResouceFork.h"
#include "engine/QVResourceFile.h"
#include "support/QVTestHome.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QThread>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/statvfs.h>
#include <unistd.h>

void PrintTo(const QString &text, std::ostream *os)
{
    *os << '"' << text.toStdString() << '"';
}

namespace QVFixtures
{

ToolRun runTool(
    const QString &program, const QStringList &arguments, const QString &workDir, const QByteArray &input)
{
    QProcess process;
    if (!workDir.isEmpty())
        process.setWorkingDirectory(workDir);
    process.start(program, arguments);
    process.write(input);
    process.closeWriteChannel();
    const bool finished = process.waitForFinished(300000) && process.exitStatus() == QProcess::NormalExit;
    return { finished ? process.exitCode() : -1, process.readAllStandardOutput(),
        process.readAllStandardError() };
}

QString python(const QString &script, const QStringList &arguments, int *status)
{
    const ToolRun run = runTool(
        QStringLiteral("/usr/bin/python3"), QStringList { QStringLiteral("-c"), script } + arguments);
    if (status)
        *status = run.exitCode;
    return QString::fromUtf8(run.exitCode == 0 ? run.out : run.out + run.err);
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size();
}

QString copyFont(const QString &source, const QString &folder, const QString &name)
{
    QDir().mkpath(folder);
    const QString path = folder + QLatin1Char('/') + (name.isEmpty() ? QFileInfo(source).fileName() : name);
    return QFile::copy(source, path) ? path : QString();
}

QString sha256(const QByteArray &bytes)
{
    return QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex());
}

QString fileSha256(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? sha256(file.readAll()) : QStringLiteral("missing");
}

QString forkHashes(const QString &path)
{
    QByteArray fork, info;
    QVForkStorage::Place place;
    const qint16 forkError = QVForkStorage::readResourceFork(path, &fork, &place);
    QVForkStorage::readFinderInfo(path, &info);
    return QStringLiteral("data %1\nfork %2\ninfo %3")
        .arg(fileSha256(path), forkError == 0 ? sha256(fork) : QStringLiteral("none"), sha256(info));
}

bool setFinderInfo(
    const QString &path, const QByteArray &typeCreator, quint16 flags, QVForkStorage::Place place)
{
    QByteArray info = typeCreator.leftJustified(8, '\0', true).leftJustified(32, '\0');
    info[8] = char(flags >> 8);
    info[9] = char(flags & 0xFF);
    return QVForkStorage::writeFinderInfo(path, info, place) == 0;
}

QByteArray ufondFork(const QString &workDir, const QList<Strike> &strikes)
{
    QDir().mkpath(workDir);
    QStringList bdfs;
    for (const Strike &strike : strikes) {
        bdfs << QStringLiteral("strike%1.bdf").arg(bdfs.size());
        // Printable ASCII at 72 dpi, so that pixel and point sizes agree.
        // otf2bdf answers non-zero even when it wrote the font: its file tells.
        runTool(QStringLiteral("otf2bdf"),
            { QStringLiteral("-r"), QStringLiteral("72"), QStringLiteral("-p"),
                QString::number(strike.pointSize), QStringLiteral("-l"), QStringLiteral("32_126"),
                strike.font, QStringLiteral("-o"), bdfs.last() },
            workDir);
        if (QFileInfo(workDir + QLatin1Char('/') + bdfs.last()).size() == 0)
            return {};
    }
    const QStringList before = QDir(workDir).entryList({ QStringLiteral("*.rsrc") });
    if (runTool(QStringLiteral("ufond"), QStringList { QStringLiteral("-res") } + bdfs, workDir).exitCode
        != 0)
        return {};
    for (const QString &name : QDir(workDir).entryList({ QStringLiteral("*.rsrc") })) {
        if (!before.contains(name))
            return readFile(workDir + QLatin1Char('/') + name);
    }
    return {};
}

QByteArray c059Fork(const QString &workDir)
{
    return ufondFork(
        workDir + QStringLiteral("/c059"), { { kC059Roman, 10 }, { kC059Roman, 12 }, { kC059Bold, 10 } });
}

QByteArray dejaVuSerifFork(const QString &workDir)
{
    return ufondFork(workDir + QStringLiteral("/dejavu"), { { kDejaVuSerif, 10 } });
}

QByteArray mergeForks(const QByteArray &a, const QByteArray &b)
{
    qint16 error = 0;
    auto first = QVResourceFile::parse(a, &error);
    const auto second = QVResourceFile::parse(b, &error);
    if (!first || !second)
        return {};
    first->entries += second->entries;
    return first->serialize(&error);
}

QByteArray withPostScriptName(const QByteArray &fork, const QByteArray &postScriptName)
{
    qint16 error = 0;
    auto parsed = QVResourceFile::parse(fork, &error);
    if (!parsed)
        return fork;
    for (QVResourceFile::Entry &entry : parsed->entries) {
        if (entry.type != qvFourCC("FOND") || entry.data.size() < 59)
            continue;
        // 58 bytes of table header (every style on the first name), then the list.
        const qint32 table = qint32(entry.data.size());
        for (int i = 0; i < 4; ++i)
            entry.data[24 + i] = char(table >> (24 - 8 * i));
        entry.data
            += QByteArray(58, '\0') + QByteArray("\0\1", 2) + char(postScriptName.size()) + postScriptName;
    }
    return parsed->serialize(&error);
}

bool makeSuitcase(const QString &path, const QByteArray &fork, QVForkStorage::Place place)
{
    if (!writeFile(path, QByteArray()) || QVForkStorage::writeResourceFork(path, fork, place) != 0)
        return false;
    return setFinderInfo(
        path, "FFILDMOV", 0, place == QVForkStorage::Place::None ? QVForkStorage::Place::AppleDouble : place);
}

QString makeLwfn(const QString &folder, const QString &name, const QString &type1)
{
    QDir().mkpath(folder);
    if (runTool(QStringLiteral("t1mac"),
            { QStringLiteral("--appledouble"), QStringLiteral("-n"), name, type1,
                QStringLiteral("._") + name },
            folder)
            .exitCode
        != 0)
        return {};
    const QString path = folder + QLatin1Char('/') + name;
    return writeFile(path, QByteArray()) ? path : QString();
}

QVFontFilePtr examined(const QString &path)
{
    QVFontDataManager dataMgr;
    return dataMgr.addFontFileItem(path);
}

QString extractFork(const QString &path, const QString &workDir)
{
    QByteArray fork;
    QVForkStorage::Place place;
    const QString out = workDir + QLatin1Char('/') + QFileInfo(path).fileName() + QStringLiteral(".rsrc");
    return QVForkStorage::readResourceFork(path, &fork, &place) == 0 && writeFile(out, fork) ? out
                                                                                             : QString();
}

QStringList fontToolsResources(const QString &bareFork, QString *error)
{
    int status = 0;
    const QString out = python(QStringLiteral(R"(
import hashlib, sys
from fontTools.misc.macRes import ResourceReader
r = ResourceReader(sys.argv[1])
for t in r.keys():
    for res in r[t]:
        print(t, res.id, len(res.data), res.attr, hashlib.sha1(res.data).hexdigest(),
              'null' if res.name is None else res.name)
)"),
        { bareFork }, &status);
    if (status != 0) {
        if (error)
            *error = out;
        return {};
    }
    QStringList lines = out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    lines.sort();
    return lines;
}

QString fontToolsFONDEntries(const QString &bareFork)
{
    return python(QStringLiteral(R"(
import sys, struct
from fontTools.misc.macRes import ResourceReader
r = ResourceReader(sys.argv[1])
for res in r.get('FOND', []):
    d = res.data
    n = struct.unpack('>h', d[52:54])[0] + 1
    entries = [struct.unpack('>hhh', d[54 + 6 * i:60 + 6 * i]) for i in range(n)]
    print(res.name, res.id, ' '.join('%d/%d/%d' % e for e in entries))
)"),
        { bareFork });
}

QStringList fontToolsMembers(const QStringList &bareForks)
{
    QStringList lines = python(QStringLiteral(R"(
import hashlib, struct, sys
from fontTools.misc.macRes import ResourceReader
for path in sys.argv[1:]:
    r = ResourceReader(path)
    def find(types, rid):
        for t in types:
            for res in r.get(t, []):
                if res.id == rid:
                    return hashlib.sha256(res.data).hexdigest()
        return 'missing'
    for res in r.get('FOND', []):
        d = res.data
        n = struct.unpack('>h', d[52:54])[0] + 1
        for i in range(n):
            size, style, rid = struct.unpack('>hhh', d[54 + 6 * i:60 + 6 * i])
            print(res.name, size, style, find(['sfnt'] if size == 0 else ['NFNT', 'FONT'], rid))
)"),
        bareForks)
                            .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    lines.sort();
    lines.removeDuplicates();
    return lines;
}

QString showfond(const QString &bareFork, int *status)
{
    const ToolRun run = runTool(QStringLiteral("showfond"), { bareFork });
    if (status)
        *status = run.exitCode;
    return QString::fromLocal8Bit(run.out);
}

bool lockFolder(const QString &folder, bool lock)
{
    if (::geteuid() != 0)
        return QFile::setPermissions(folder,
            QFileDevice::ReadOwner | QFileDevice::ExeOwner
                | (lock ? QFileDevice::Permissions() : QFileDevice::WriteOwner));
    const int fd = ::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY);
    int flags = 0;
    bool ok = fd >= 0 && ::ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0;
    if (ok) {
        flags = lock ? (flags | FS_IMMUTABLE_FL) : (flags & ~FS_IMMUTABLE_FL);
        ok = ::ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
    }
    if (fd >= 0)
        ::close(fd);
    return ok;
}

bool waitFor(const std::function<bool()> &condition, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::msleep(2);
    }
    return true;
}

SmallDisk::SmallDisk(const QString &folder, int kilobytes)
    : m_folder(folder)
{
    QDir().mkpath(folder);
    m_mounted = ::geteuid() == 0
        && runTool(QStringLiteral("mount"),
               { QStringLiteral("-t"), QStringLiteral("tmpfs"), QStringLiteral("-o"),
                   QStringLiteral("size=%1k").arg(kilobytes), QStringLiteral("tmpfs"), folder })
                .exitCode
            == 0;
}

SmallDisk::~SmallDisk()
{
    if (m_mounted)
        runTool(QStringLiteral("umount"), { QStringLiteral("-l"), m_folder });
}

bool SmallDisk::fill() const
{
    // dd stops with "No space left on device", which is the point.
    runTool(QStringLiteral("dd"),
        { QStringLiteral("if=/dev/zero"), QStringLiteral("of=%1/.filler").arg(m_folder),
            QStringLiteral("bs=1k") });
    struct statvfs st;
    return ::statvfs(QFile::encodeName(m_folder).constData(), &st) == 0 && st.f_bavail == 0;
}

QProcessEnvironment cliEnvironment(const QVTestHome &home)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), home.path());
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.configHome());
    env.insert(QStringLiteral("XDG_DATA_HOME"), home.dataHome());
    return env;
}

namespace
{

CliRun run(const QVTestHome &home, const QString &program, const QStringList &arguments,
    const QByteArray &input = QByteArray())
{
    QProcess process;
    process.setProcessEnvironment(cliEnvironment(home));
    process.start(program, arguments);
    process.write(input);
    process.closeWriteChannel();
    process.waitForFinished(120000);
    return { process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
        QString::fromUtf8(process.readAllStandardError()) };
}

} // namespace

CliRun runCli(const QVTestHome &home, const QStringList &arguments, const QByteArray &input)
{
    return run(home, QStringLiteral(QV_CLI_PATH), arguments, input);
}

std::optional<CliRun> runCliAsOrdinaryUser(const QVTestHome &home, const QStringList &arguments)
{
    if (::geteuid() != 0)
        return runCli(home, arguments);
    const QString setpriv = QStandardPaths::findExecutable(QStringLiteral("setpriv"));
    constexpr uid_t kNobody = 65534;
    if (setpriv.isEmpty() || ::chown(QFile::encodeName(home.path()).constData(), kNobody, kNobody) != 0)
        return std::nullopt;
    QDirIterator it(home.path(), QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
        QDirIterator::Subdirectories);
    while (it.hasNext()) {
        if (::lchown(QFile::encodeName(it.next()).constData(), kNobody, kNobody) != 0)
            return std::nullopt;
    }
    return run(home, setpriv,
        QStringList { QStringLiteral("--reuid=65534"), QStringLiteral("--regid=65534"),
            QStringLiteral("--clear-groups"), QStringLiteral("--"), QStringLiteral(QV_CLI_PATH) }
            + arguments);
}

} // namespace QVFixtures
