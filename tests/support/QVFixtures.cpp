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
#include <gtest/gtest.h>
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

ToolRun runTool(const QString &program, const QStringList &arguments, const QString &workDir,
    const QByteArray &input, const QProcessEnvironment &environment)
{
    QProcess process;
    process.setWorkingDirectory(workDir);
    process.setProcessEnvironment(
        environment.isEmpty() ? QProcessEnvironment::systemEnvironment() : environment);
    process.start(program, arguments);
    process.write(input);
    process.closeWriteChannel();
    const bool finished = process.waitForFinished(300000) && process.exitStatus() == QProcess::NormalExit;
    return { finished ? process.exitCode() : -1, process.readAllStandardOutput(),
        process.readAllStandardError() };
}

QString python(const QString &script, const QStringList &arguments, int *status)
{
    const ToolRun run = runTool("/usr/bin/python3", QStringList { "-c", script } + arguments);
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
    return file.open(QIODevice::ReadOnly) ? sha256(file.readAll()) : "missing";
}

QStringList sortedLines(const QString &text)
{
    QStringList lines = text.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    lines.sort();
    return lines;
}

QString forkHashes(const QString &path)
{
    QByteArray fork, info;
    QVForkStorage::Place place;
    const qint16 forkError = QVForkStorage::readResourceFork(path, &fork, &place);
    QVForkStorage::readFinderInfo(path, &info);
    return QStringLiteral("data %1\nfork %2\ninfo %3")
        .arg(fileSha256(path), forkError == 0 ? sha256(fork) : "none", sha256(info));
}

QString placedHashes(const QString &path)
{
    return forkHashes(path) + QLatin1Char('\n')
        + QVForkStorage::placeName(QVForkStorage::resourceForkPlace(path)) + QLatin1Char(' ')
        + QVForkStorage::placeName(QVForkStorage::finderInfoPlace(path));
}

bool setFinderInfo(
    const QString &path, const QByteArray &typeCreator, quint16 flags, QVForkStorage::Place place)
{
    QByteArray info = typeCreator.leftJustified(8, '\0', true).leftJustified(32, '\0');
    info[8] = char(flags >> 8);
    info[9] = char(flags & 0xFF);
    return QVForkStorage::writeFinderInfo(path, info, place) == 0;
}

QVResourceFile::Entry rsrc(
    const char *type, qint16 id, const QByteArray &data, const QByteArray &name, quint8 attributes)
{
    return { qFromBigEndian<quint32>(type), id, name, !name.isEmpty(), attributes, data, true, {} };
}

QByteArray forkOf(const QList<QVResourceFile::Entry> &entries)
{
    QVResourceFile file;
    file.entries = entries;
    qint16 error = 0;
    const QByteArray bytes = file.serialize(&error);
    EXPECT_EQ(error, 0);
    return bytes;
}

QByteArray ufondFork(const QString &workDir, const QList<Strike> &strikes)
{
    QDir().mkpath(workDir);
    QStringList bdfs;
    for (const Strike &strike : strikes) {
        bdfs << QStringLiteral("strike%1.bdf").arg(bdfs.size());
        // Printable ASCII at 72 dpi, so pixel and point sizes agree; otf2bdf's exit status says nothing.
        runTool("otf2bdf",
            { "-r", "72", "-p", QString::number(strike.pointSize), "-l", "32_126", strike.font, "-o",
                bdfs.last() },
            workDir);
        if (QFileInfo(workDir + QLatin1Char('/') + bdfs.last()).size() == 0)
            return {};
    }
    const QStringList before = QDir(workDir).entryList({ "*.rsrc" });
    if (runTool("ufond", QStringList { "-res" } + bdfs, workDir).exitCode != 0)
        return {};
    for (const QString &name : QDir(workDir).entryList({ "*.rsrc" })) {
        if (!before.contains(name))
            return readFile(workDir + QLatin1Char('/') + name);
    }
    return {};
}

QByteArray c059Fork(const QString &workDir)
{
    return ufondFork(workDir + "/c059", { { kC059Roman, 10 }, { kC059Roman, 12 }, { kC059Bold, 10 } });
}

QByteArray dejaVuSerifFork(const QString &workDir)
{
    return ufondFork(workDir + "/dejavu", { { kDejaVuSerif, 10 } });
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
    if (runTool("t1mac", { "--appledouble", "-n", name, type1, "._" + name }, folder).exitCode != 0)
        return {};
    const QString path = folder + QLatin1Char('/') + name;
    return writeFile(path, QByteArray()) ? path : QString();
}

QVFontFilePtr examined(const QString &path)
{
    QVFontDataManager dataMgr;
    return dataMgr.addFontFileItem(path);
}

QVFontFilePtr oneFontFile(const QString &path, int fontType, int fileType)
{
    auto file = std::make_shared<QVFontFile>(path);
    file->fontFileType = fileType;
    auto status = std::make_shared<QVStatus>();
    status->fontURL = path;
    status->fontName = QFileInfo(path).completeBaseName();
    status->PSname = status->fontName + "-Regular";
    status->fontType = fontType;
    status->fontStyle = "Regular";
    file->fontStatusArray.append(status);
    return file;
}

QString extractFork(const QString &path, const QString &workDir)
{
    QByteArray fork;
    QVForkStorage::Place place;
    const QString out = workDir + QLatin1Char('/') + QFileInfo(path).fileName() + ".rsrc";
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
    return sortedLines(out);
}

namespace
{

// Each family record of the forks in sys.argv[2:]: its entries on one line ("entries"), or each member with
// the hash of its strike or outline ("members").
const char *const kFondScript = R"(
import hashlib, struct, sys
from fontTools.misc.macRes import ResourceReader
for path in sys.argv[2:]:
    r = ResourceReader(path)
    def find(types, rid):
        hits = [res.data for t in types for res in r.get(t, []) if res.id == rid]
        return hashlib.sha256(hits[0]).hexdigest() if hits else 'missing'
    for res in r.get('FOND', []):
        d = res.data
        entries = [struct.unpack('>hhh', d[54 + 6 * i:60 + 6 * i]) for i in range(struct.unpack('>h', d[52:54])[0] + 1)]
        if sys.argv[1] == 'entries':
            print(res.name, res.id, ' '.join('%d/%d/%d' % e for e in entries))
        for size, style, rid in entries if sys.argv[1] == 'members' else []:
            print(res.name, size, style, find(['sfnt'] if size == 0 else ['NFNT', 'FONT'], rid))
)";

} // namespace

QString fontToolsFONDEntries(const QString &bareFork)
{
    return python(QString::fromLatin1(kFondScript), { "entries", bareFork });
}

QStringList fontToolsMembers(const QStringList &bareForks)
{
    QStringList lines
        = sortedLines(python(QString::fromLatin1(kFondScript), QStringList { "members" } + bareForks));
    lines.removeDuplicates();
    return lines;
}

QString showfond(const QString &bareFork, int *status)
{
    const ToolRun run = runTool("showfond", { bareFork });
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

RecordingRunner::RecordingRunner(QString answer, Perform perform)
    : QVPrivilegedRunner(perform == Real ? QString() : "/bin/true")
    , m_answer(std::move(answer))
    , m_perform(perform)
{
}

std::shared_ptr<RecordingRunner> RecordingRunner::install(const QString &answer, Perform perform)
{
    auto runner = std::make_shared<RecordingRunner>(answer, perform);
    QVPrivilegedRunner::setShared(runner);
    return runner;
}

QString RecordingRunner::runWithAdministratorRights(const QString &program, const QStringList &arguments)
{
    calls << (QStringList { program } + arguments).join(QLatin1Char(' '));
    if (before)
        std::exchange(before, nullptr)();
    if (m_perform == Real)
        return QVPrivilegedRunner::runWithAdministratorRights(program, arguments);
    const QString from = arguments.value(arguments.size() - 2), to = arguments.value(arguments.size() - 1);
    const bool move = program == QLatin1String("/bin/mv");
    if (move && m_perform == Rename)
        QFile::rename(from, to);
    if (move && m_perform == CopyBytesOnly && !(writeFile(to, readFile(from)) && QFile::remove(from)))
        return "Authorization Error: 1";
    return m_answer;
}

SmallDisk::SmallDisk(const QString &folder, int kilobytes)
    : m_folder(folder)
{
    QDir().mkpath(folder);
    m_mounted = ::geteuid() == 0
        && runTool(
               "mount", { "-t", "tmpfs", "-o", QStringLiteral("size=%1k").arg(kilobytes), "tmpfs", folder })
                .exitCode
            == 0;
}

SmallDisk::~SmallDisk()
{
    if (m_mounted)
        runTool("umount", { "-l", m_folder });
}

bool SmallDisk::fill() const
{
    // dd stops with "No space left on device", which is the point.
    runTool("dd", { "if=/dev/zero", QStringLiteral("of=%1/.filler").arg(m_folder), "bs=1k" });
    struct statvfs st;
    return ::statvfs(QFile::encodeName(m_folder).constData(), &st) == 0 && st.f_bavail == 0;
}

QProcessEnvironment cliEnvironment(const QVTestHome &home)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("HOME", home.path());
    env.insert("XDG_CONFIG_HOME", home.configHome());
    env.insert("XDG_DATA_HOME", home.dataHome());
    return env;
}

namespace
{

CliRun run(const QVTestHome &home, const QString &program, const QStringList &arguments,
    const QByteArray &input = {})
{
    const ToolRun run = runTool(program, arguments, QString(), input, cliEnvironment(home));
    return { run.exitCode, QString::fromUtf8(run.out), QString::fromUtf8(run.err) };
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
    const QString setpriv = QStandardPaths::findExecutable("setpriv");
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
        QStringList { "--reuid=65534", "--regid=65534", "--clear-groups", "--", QStringLiteral(QV_CLI_PATH) }
            + arguments);
}

} // namespace QVFixtures
