#include "store/QVStoreFixtures.h"

#include "engine/QVResouceFork.h"
#include "engine/QVResourceFile.h"
#include "engine/QVResourceManager.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QtEndian>

namespace QVStoreFixtures
{

namespace
{

// otf2bdf answers a non-zero status even when it wrote the font (it counts
// the glyphs it left out), so callers that need it check the output instead.
bool run(
    const QString &program, const QStringList &arguments, const QString &workDir, bool checkStatus = true)
{
    QProcess process;
    process.setWorkingDirectory(workDir);
    process.start(program, arguments);
    return process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit
        && (!checkStatus || process.exitCode() == 0);
}

QString styleName(int style)
{
    switch (style) {
    case 0:
        return QStringLiteral("Plain");
    case 1:
        return QStringLiteral("Bold");
    case 2:
        return QStringLiteral("Italic");
    case 3:
        return QStringLiteral("Bold, Italic");
    default:
        return QString::number(style);
    }
}

} // namespace

QByteArray ufondFork(const QString &workDir, const QList<Strike> &strikes)
{
    QDir().mkpath(workDir);
    QStringList bdfs;
    int n = 0;
    for (const Strike &strike : strikes) {
        const QString bdf = QStringLiteral("strike%1.bdf").arg(n++);
        // Printable ASCII only, at 72 dpi so pixel and point sizes agree.
        if (!run(QStringLiteral("otf2bdf"),
                { QStringLiteral("-r"), QStringLiteral("72"), QStringLiteral("-p"),
                    QString::number(strike.pointSize), QStringLiteral("-l"), QStringLiteral("32_126"),
                    strike.font, QStringLiteral("-o"), bdf },
                workDir, false)
            || QFileInfo(workDir + QLatin1Char('/') + bdf).size() == 0)
            return {};
        bdfs << bdf;
    }
    const QStringList before = QDir(workDir).entryList({ QStringLiteral("*.rsrc") });
    if (!run(QStringLiteral("ufond"), QStringList { QStringLiteral("-res") } + bdfs, workDir))
        return {};
    for (const QString &name : QDir(workDir).entryList({ QStringLiteral("*.rsrc") })) {
        if (before.contains(name))
            continue;
        QFile file(workDir + QLatin1Char('/') + name);
        if (file.open(QIODevice::ReadOnly))
            return file.readAll();
    }
    return {};
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
        const qint32 table = qint32(entry.data.size());
        entry.data[24] = char(table >> 24);
        entry.data[25] = char(table >> 16);
        entry.data[26] = char(table >> 8);
        entry.data[27] = char(table);
        entry.data.append(QByteArray(58, '\0'));
        entry.data.append(char(0));
        entry.data.append(char(1));
        entry.data.append(char(postScriptName.size()));
        entry.data.append(postScriptName);
    }
    return parsed->serialize(&error);
}

QByteArray c059Fork(const QString &workDir)
{
    const QString roman = QStringLiteral("/usr/share/fonts/opentype/urw-base35/C059-Roman.otf");
    const QString bold = QStringLiteral("/usr/share/fonts/opentype/urw-base35/C059-Bold.otf");
    return ufondFork(workDir + QStringLiteral("/c059"), { { roman, 10 }, { roman, 12 }, { bold, 10 } });
}

QByteArray dejaVuSerifFork(const QString &workDir)
{
    return ufondFork(workDir + QStringLiteral("/dejavu"),
        { { QStringLiteral("/usr/share/fonts/truetype/dejavu/DejaVuSerif.ttf"), 10 } });
}

QByteArray mergeForks(const QByteArray &a, const QByteArray &b)
{
    qint16 error = 0;
    auto first = QVResourceFile::parse(a, &error);
    auto second = QVResourceFile::parse(b, &error);
    if (!first || !second)
        return {};
    for (const QVResourceFile::Entry &entry : std::as_const(second->entries))
        first->entries.append(entry);
    return first->serialize(&error);
}

bool makeSuitcase(const QString &path, const QByteArray &fork, QVForkStorage::Place place)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    file.close();
    QByteArray info(32, '\0');
    info.replace(0, 8, "FFILDMOV");
    if (QVForkStorage::writeResourceFork(path, fork, place) != 0)
        return false;
    const QVForkStorage::Place infoPlace
        = place == QVForkStorage::Place::None ? QVForkStorage::Place::AppleDouble : place;
    return QVForkStorage::writeFinderInfo(path, info, infoPlace) == 0;
}

QString extractFork(const QString &path, const QString &workDir)
{
    QByteArray fork;
    QVForkStorage::Place place;
    if (QVForkStorage::readResourceFork(path, &fork, &place) != 0)
        return QString();
    QDir().mkpath(workDir);
    const QString out = workDir + QLatin1Char('/') + QFileInfo(path).fileName() + QStringLiteral(".rsrc");
    QFile file(out);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return QString();
    file.write(fork);
    return out;
}

QString showfond(const QString &bareFork, int *status)
{
    QProcess process;
    process.start(QStringLiteral("showfond"), { bareFork });
    process.waitForFinished(60000);
    if (status)
        *status = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    return QString::fromLocal8Bit(process.readAllStandardOutput());
}

QString python(const QString &script, const QStringList &arguments, int *status)
{
    QProcess process;
    process.start(
        QStringLiteral("/usr/bin/python3"), QStringList { QStringLiteral("-c"), script } + arguments);
    process.waitForFinished(60000);
    const int code = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    if (status)
        *status = code;
    QString out = QString::fromUtf8(process.readAllStandardOutput());
    if (code != 0)
        out += QString::fromUtf8(process.readAllStandardError());
    return out;
}

QString fontToolsListing(const QString &bareFork)
{
    return python(QStringLiteral(R"(
import sys
from fontTools.misc.macRes import ResourceReader
r = ResourceReader(sys.argv[1])
for t in sorted(r.keys()):
    for res in r[t]:
        print(t, res.id, res.name, len(res.data))
)"),
        { bareFork });
}

QString fontToolsResources(const QString &bareFork)
{
    return python(QStringLiteral(R"(
import hashlib, sys
from fontTools.misc.macRes import ResourceReader
r = ResourceReader(sys.argv[1])
for t in sorted(r.keys()):
    for res in r[t]:
        print(t, res.id, res.name, res.attr, hashlib.sha256(res.data).hexdigest())
)"),
        { bareFork });
}

QString timesSuitcase(const QString &folder, const QString &workDir)
{
    const QString roman = QStringLiteral("/usr/share/fonts/opentype/urw-base35/C059-Roman.otf");
    const QString bold = QStringLiteral("/usr/share/fonts/opentype/urw-base35/C059-Bold.otf");
    qint16 error = 0;
    auto fork = QVResourceFile::parse(
        ufondFork(workDir + QStringLiteral("/times"), { { roman, 10 }, { bold, 10 } }), &error);
    if (!fork)
        return QString();
    for (QVResourceFile::Entry &entry : fork->entries) {
        if (entry.type == qvFourCC("NFNT")) {
            entry.type = qvFourCC("FONT");
            entry.attributes = 0x20;
        } else if (entry.type == qvFourCC("FOND") && entry.data.size() >= 60) {
            // ufond writes no style-mapping table; one naming the two styles
            // C059-Roman and C059-Bold (base name plus one suffix each).
            const qint32 table = qint32(entry.data.size());
            qToBigEndian<qint32>(table, entry.data.data() + 24);
            QByteArray styles(58, '\0');
            styles[10] = 2; // plain: suffix list 2
            styles[11] = 3; // bold: suffix list 3
            entry.data += styles
                + QByteArray("\x00\x05\x04"
                             "C059"
                             "\x01\x04"
                             "\x01\x05"
                             "\x06-Roman"
                             "\x05-Bold",
                    24);
        }
    }
    const QString path = folder + QStringLiteral("/Times");
    if (!makeSuitcase(path, fork->serialize(&error), QVForkStorage::Place::AppleDouble))
        return QString();
    QByteArray info;
    QVForkStorage::readFinderInfo(path, &info);
    info[8] = 0x01;
    info[9] = 0x00;
    if (QVForkStorage::writeFinderInfo(path, info) != 0)
        return QString();
    const QDateTime then(QDate(2001, 2, 3), QTime(4, 5, 6), Qt::UTC);
    for (const QString &file : { path, QVForkStorage::sidecarPath(path) }) {
        QFile f(file);
        if (!f.open(QIODevice::ReadWrite) || !f.setFileTime(then, QFileDevice::FileModificationTime))
            return QString();
    }
    return path;
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
            kinds = ['sfnt'] if size == 0 else ['NFNT', 'FONT']
            print(res.name, size, style, find(kinds, rid))
)"),
        bareForks)
                            .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    lines.sort();
    lines.removeDuplicates();
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

QVFontFilePtr suitcaseRecord(const QString &path)
{
    auto file = std::make_shared<QVFontFile>(path);
    file->fontFileType = 0;
    std::lock_guard guard(QVResouceFork::lock());
    QVResouceFork fork;
    const qint16 ref = fork.openResourceFile(QVPermission::Read, path);
    if (ref < 1)
        return file;
    const quint32 fondType = qvFourCC("FOND");
    const int count = fork.countResourceTypes(ref, fondType);
    int index = 0;
    for (int i = 1; i <= count; ++i) {
        const QVResourceHandle fond = fork.getIndexResource(ref, fondType, i);
        if (!fond || fond->data.size() < 59)
            continue;
        const QVariantMap info = fork.getResourceInfo(fond);
        const int entries = fork.memoryHandler->Handle_ReadShort(fond, 52) + 1;
        for (int j = 0; j < entries && 60 + 6 * j <= fond->data.size(); ++j) {
            auto status = std::make_shared<QVStatus>();
            const int size = fork.memoryHandler->Handle_ReadShort(fond, 54 + 6 * j);
            const int style = fork.memoryHandler->Handle_ReadShort(fond, 56 + 6 * j);
            status->fontName = info.value(QStringLiteral("name")).toString();
            status->PSname = fork.getBitmapPSname(fond, style);
            status->fontSize = size;
            status->fontStyle = styleName(style);
            status->fontType = size < 1 ? 3 : 0;
            status->fontID = info.value(QStringLiteral("id")).toInt();
            status->fontURL = path;
            status->index = index++;
            file->fontStatusArray.append(status);
        }
    }
    fork.closeResourceFile(ref);
    return file;
}

QString sha256(const QByteArray &bytes)
{
    return QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex());
}

QString fileSha256(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QStringLiteral("missing");
    return sha256(file.readAll());
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

} // namespace QVStoreFixtures
