// Helpers shared by the resource-fork tests: running the outside tools that
// make and read real forks (t1utils, fondu, otf2bdf, fontTools), and hashing a
// file together with its fork and Finder info.
#pragma once

#include "platform/QVForkStorage.h"

#include <QByteArray>
#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>
#include <QString>
#include <QStringList>

namespace QVResourceTestTools
{

struct ToolResult {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

inline ToolResult runTool(const QString &program, const QStringList &arguments, const QString &workDir = {},
    const QByteArray &input = {})
{
    QProcess process;
    if (!workDir.isEmpty())
        process.setWorkingDirectory(workDir);
    process.start(program, arguments);
    if (!input.isEmpty())
        process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(120000) || process.exitStatus() != QProcess::NormalExit)
        return { -1, process.readAllStandardOutput(), process.readAllStandardError() };
    return { process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError() };
}

inline bool toolExists(const QString &program)
{
    return !QStandardPaths::findExecutable(program).isEmpty();
}

// The system interpreter with fontTools (not whatever python3 is first on PATH).
inline QString python()
{
    return QStringLiteral("/usr/bin/python3");
}

// fontTools' macRes listing of a raw fork file: "TYPE ID NAME-or-null SIZE
// SHA1" lines, sorted. Empty with *error set when it cannot read the fork.
inline QStringList macResListing(const QString &rawForkPath, QString *error = nullptr)
{
    static const char script[] = R"(
import sys, json, hashlib
from fontTools.misc.macRes import ResourceReader
r = ResourceReader(sys.argv[1])
out = []
for t in r.keys():
    for res in r.get(t):
        out.append({"type": t, "id": res.id, "name": res.name, "size": len(res.data),
                    "sha1": hashlib.sha1(res.data).hexdigest()})
print(json.dumps(out))
)";
    const ToolResult result
        = runTool(python(), { QStringLiteral("-c"), QString::fromLatin1(script), rawForkPath });
    if (result.exitCode != 0) {
        if (error)
            *error = QString::fromUtf8(result.err);
        return {};
    }
    QStringList lines;
    for (const QJsonValue &v : QJsonDocument::fromJson(result.out).array()) {
        const QJsonObject o = v.toObject();
        lines.append(QStringLiteral("%1 %2 %3 %4 %5")
                         .arg(o.value("type").toString())
                         .arg(o.value("id").toInt())
                         .arg(o.value("name").isNull() ? QStringLiteral("null") : o.value("name").toString())
                         .arg(o.value("size").toInt())
                         .arg(o.value("sha1").toString()));
    }
    lines.sort();
    return lines;
}

// Writes bytes to a file; false on failure.
inline bool writeBytes(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size();
}

inline QByteArray readBytes(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// An LWFN file made by t1mac: an empty data file NAME with its AppleDouble
// sidecar ._NAME. Returns the data file's path, empty on failure.
inline QString makeLwfn(const QString &dir, const QString &name,
    const QString &pfb = QStringLiteral("/usr/share/fonts/X11/Type1/C059-Italic.pfb"))
{
    const QString sidecar = dir + QStringLiteral("/._") + name;
    if (runTool(QStringLiteral("t1mac"), { QStringLiteral("--appledouble"), pfb, sidecar }).exitCode != 0)
        return {};
    const QString path = dir + QLatin1Char('/') + name;
    return writeBytes(path, {}) ? path : QString();
}

// A raw suitcase fork made by fondu's ufond from two bitmap strikes of one
// family (made by otf2bdf). Returns the raw fork's path, empty on failure.
inline QString makeSuitcaseFork(const QString &dir)
{
    const QString ttf = QStringLiteral("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf");
    for (const char *size : { "10", "12" }) {
        // otf2bdf's exit status is not meaningful (it answers 8 on success).
        const QString bdf = dir + QStringLiteral("/s%1.bdf").arg(QString::fromLatin1(size));
        runTool(QStringLiteral("otf2bdf"),
            { QStringLiteral("-p"), QString::fromLatin1(size), QStringLiteral("-l"), QStringLiteral("32_126"),
                ttf, QStringLiteral("-o"), bdf });
        if (!QFile::exists(bdf))
            return {};
    }
    if (runTool(QStringLiteral("ufond"),
            { QStringLiteral("-res"), QStringLiteral("s10.bdf"), QStringLiteral("s12.bdf") }, dir)
            .exitCode
        != 0)
        return {};
    const QString fork = dir + QStringLiteral("/DejaVu Sans.fam.rsrc");
    return QFile::exists(fork) ? fork : QString();
}

// The real data-fork suitcase shipped with ruby-prawn.
inline QString dfontPath()
{
    const QString known = QStringLiteral("/usr/share/ruby-prawn/fonts/Panic+Sans.dfont");
    if (QFile::exists(known))
        return known;
    QDirIterator it(QStringLiteral("/usr/share"), { QStringLiteral("*.dfont") }, QDir::Files,
        QDirIterator::Subdirectories);
    return it.hasNext() ? it.next() : QString();
}

// SHA-256 over the data fork, the resource fork and the Finder info, wherever
// they live, plus where they live.
struct PairHash {
    QByteArray data, fork, finderInfo;
    QVForkStorage::Place forkPlace = QVForkStorage::Place::None;
    QVForkStorage::Place finderPlace = QVForkStorage::Place::None;
    bool operator==(const PairHash &) const = default;
};

inline PairHash hashPair(const QString &path)
{
    auto sha
        = [](const QByteArray &b) { return QCryptographicHash::hash(b, QCryptographicHash::Sha256).toHex(); };
    PairHash h;
    h.data = sha(readBytes(path));
    QByteArray fork;
    QVForkStorage::readResourceFork(path, &fork, &h.forkPlace);
    h.fork = sha(fork);
    QByteArray info;
    QVForkStorage::readFinderInfo(path, &info, &h.finderPlace);
    h.finderInfo = sha(info);
    return h;
}

} // namespace QVResourceTestTools
