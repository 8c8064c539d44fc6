// What the tests share: inputs made by tools that are not ours, checks of our output by others
// (fontTools, showfond), hashes of a file with its fork and Finder info, a full disk, quorvel-cli runs.
#pragma once

#include "engine/QVFontFile.h"
#include "engine/QVResourceFile.h"
#include "platform/QVForkStorage.h"
#include "platform/QVPrivilegedRunner.h"

#include <QByteArray>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QtEndian>
#include <functional>
#include <optional>
#include <ostream>

class QVTestHome;

// Readable failures for texts.
void PrintTo(const QString &text, std::ostream *os);

namespace QVFixtures
{

inline const QString kDejaVuSans = QStringLiteral("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf");
inline const QString kDejaVuSansBold = QStringLiteral("/usr/share/fonts/truetype/dejavu/DejaVuSans-Bold.ttf");
inline const QString kDejaVuSerif = QStringLiteral("/usr/share/fonts/truetype/dejavu/DejaVuSerif.ttf");
inline const QString kP052Roman = QStringLiteral("/usr/share/fonts/opentype/urw-base35/P052-Roman.otf");
inline const QString kC059Roman = QStringLiteral("/usr/share/fonts/opentype/urw-base35/C059-Roman.otf");
inline const QString kC059Bold = QStringLiteral("/usr/share/fonts/opentype/urw-base35/C059-Bold.otf");
inline const QString kC059RomanPfb = QStringLiteral("/usr/share/fonts/X11/Type1/C059-Roman.pfb");
inline const QString kC059ItalicPfb = QStringLiteral("/usr/share/fonts/X11/Type1/C059-Italic.pfb");
// Four TrueType faces whose data fork is a resource fork.
inline const QString kPanicSansDfont = QStringLiteral("/usr/share/ruby-prawn/fonts/Panic+Sans.dfont");

struct ToolRun {
    int exitCode = -1; // -1 when it could not run, crashed or took over five minutes
    QByteArray out;
    QByteArray err;
};
ToolRun runTool(const QString &program, const QStringList &arguments, const QString &workDir = QString(),
    const QByteArray &input = QByteArray(), const QProcessEnvironment &environment = QProcessEnvironment());
// /usr/bin/python3 -c script: its output, with its errors after it when it fails.
QString python(const QString &script, const QStringList &arguments, int *status = nullptr);

QByteArray readFile(const QString &path);
// Writes the file whole, making its folder.
bool writeFile(const QString &path, const QByteArray &bytes);
// A copy of an installed font in folder (made), under its own name or another.
QString copyFont(const QString &source, const QString &folder, const QString &name = QString());
QString sha256(const QByteArray &bytes);
QString fileSha256(const QString &path); // "missing" when it cannot be read
QStringList sortedLines(const QString &text);
inline quint32 be32at(const QByteArray &bytes, qsizetype at)
{
    return at >= 0 && at + 4 <= bytes.size() ? qFromBigEndian<quint32>(bytes.constData() + at) : 0;
}
// Hashes of the data fork, resource fork and Finder info, wherever they live.
QString forkHashes(const QString &path);
QString placedHashes(const QString &path); // forkHashes and where the fork and the Finder info live
// Finder info with the type and creator (8 bytes, or 4 for the type) and flags.
bool setFinderInfo(const QString &path, const QByteArray &typeCreator, quint16 flags = 0,
    QVForkStorage::Place place = QVForkStorage::Place::AppleDouble);

// One resource ("TYPE" as text), named when a name is given; a fork of them.
QVResourceFile::Entry rsrc(
    const char *type, qint16 id, const QByteArray &data, const QByteArray &name = {}, quint8 attributes = 0);
QByteArray forkOf(const QList<QVResourceFile::Entry> &entries);
// The bare fork `ufond -res` makes of strikes of one family, drawn by otf2bdf at 72 dpi; empty on failure.
struct Strike {
    QString font;
    int pointSize;
};
QByteArray ufondFork(const QString &workDir, const QList<Strike> &strikes);
QByteArray c059Fork(const QString &workDir); // C059 10 and 12 plain, 10 bold
QByteArray dejaVuSerifFork(const QString &workDir); // DejaVu Serif 10 plain: FOND and NFNT 2100
// The resources of both forks in one (a suitcase of two families).
QByteArray mergeForks(const QByteArray &a, const QByteArray &b);
// Gives every family record a style table naming the PostScript font for all styles (ufond writes none).
QByteArray withPostScriptName(const QByteArray &fork, const QByteArray &postScriptName);
// An empty data file with the fork in the place and suitcase Finder info.
bool makeSuitcase(const QString &path, const QByteArray &fork,
    QVForkStorage::Place place = QVForkStorage::Place::AppleDouble);
// t1mac's outline file for a file server: empty data file folder/name and its sidecar. The path, or empty.
QString makeLwfn(const QString &folder, const QString &name, const QString &type1 = kC059ItalicPfb);
// The file's record as a scan makes it.
QVFontFilePtr examined(const QString &path);
// A hand-made record of a file holding one font named as the file (PostScript name NAME-Regular).
QVFontFilePtr oneFontFile(const QString &path, int fontType = 5, int fileType = 1);

// The file's fork written out bare (workDir/NAME.rsrc), for outside readers.
QString extractFork(const QString &path, const QString &workDir);
// Every resource as fontTools' macRes reads it, "TYPE ID SIZE ATTRIBUTES SHA1 NAME" (NAME "null" for
// none), sorted; empty with *error set when it fails.
QStringList fontToolsResources(const QString &bareFork, QString *error = nullptr);
// "NAME ID size/style/id ..." for every family record, as fontTools reads it.
QString fontToolsFONDEntries(const QString &bareFork);
// Every family member the forks hold, each once and sorted: "FAMILY SIZE STYLE SHA256" of its strike or
// outline ("missing" when the family lists one it lacks).
QStringList fontToolsMembers(const QStringList &bareForks);
QString showfond(const QString &bareFork, int *status = nullptr);

// Makes a folder refuse changes: read-only for an ordinary user, immutable for root; false if neither works.
bool lockFolder(const QString &folder, bool lock);
// Runs the event loop until the condition holds or the time is up.
bool waitFor(const std::function<bool()> &condition, int timeoutMs = 20000);

// A privileged runner that records each command line, runs `before` once, and answers as told; for mv it
// may also move the file itself (Rename) or keep only its bytes (CopyBytesOnly). Real runs the real tool.
class RecordingRunner : public QVPrivilegedRunner
{
public:
    enum Perform { Nothing, Rename, CopyBytesOnly, Real };
    explicit RecordingRunner(QString answer = {}, Perform perform = Nothing);
    // Made the runner of every privileged operation (until setShared(nullptr)).
    static std::shared_ptr<RecordingRunner> install(const QString &answer = {}, Perform perform = Nothing);
    QString runWithAdministratorRights(const QString &program, const QStringList &arguments) override;
    QStringList calls;
    std::function<void()> before;

private:
    QString m_answer;
    Perform m_perform;
};

// A full disk for real: a tmpfs of a few hundred KB on folder (root only).
class SmallDisk
{
public:
    explicit SmallDisk(const QString &folder, int kilobytes = 400);
    ~SmallDisk();
    SmallDisk(const SmallDisk &) = delete;
    SmallDisk &operator=(const SmallDisk &) = delete;
    bool mounted() const { return m_mounted; }
    QString path() const { return m_folder; }
    bool fill() const; // true when the disk is full afterwards

private:
    QString m_folder;
    bool m_mounted = false;
};

// quorvel-cli as a separate process living in the test's home.
struct CliRun {
    int exitCode = -1;
    QString out;
    QString err;
};
QProcessEnvironment cliEnvironment(const QVTestHome &home);
CliRun runCli(const QVTestHome &home, const QStringList &arguments, const QByteArray &input = QByteArray());
// As "nobody", for whom permissions hold (as root the home is given to it and the run goes through
// setpriv); std::nullopt when that cannot be done.
std::optional<CliRun> runCliAsOrdinaryUser(const QVTestHome &home, const QStringList &arguments);

} // namespace QVFixtures
