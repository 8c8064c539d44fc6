// What the tests share: inputs made by tools that are not ours (Debian's
// fonts, t1mac, otf2bdf and fondu's ufond, ruby-prawn's .dfont), checks of our
// output by others (fontTools through /usr/bin/python3, showfond), hashes of a
// file with its fork and Finder info, a full disk, and runs of quorvel-cli.
#pragma once

#include "engine/QVFontFile.h"
#include "platform/QVForkStorage.h"

#include <QByteArray>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
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
    const QByteArray &input = QByteArray());
// /usr/bin/python3 -c script: its output, with its errors after it when it fails.
QString python(const QString &script, const QStringList &arguments, int *status = nullptr);

QByteArray readFile(const QString &path);
// Writes the file whole, making its folder.
bool writeFile(const QString &path, const QByteArray &bytes);
// A copy of an installed font in folder (made), under its own name or another.
QString copyFont(const QString &source, const QString &folder, const QString &name = QString());
QString sha256(const QByteArray &bytes);
QString fileSha256(const QString &path); // "missing" when it cannot be read
// Hashes of the data fork, resource fork and Finder info, wherever they live.
QString forkHashes(const QString &path);
// Finder info with the type and creator (8 bytes, or 4 for the type) and flags.
bool setFinderInfo(const QString &path, const QByteArray &typeCreator, quint16 flags = 0,
    QVForkStorage::Place place = QVForkStorage::Place::AppleDouble);

// The bare fork that `ufond -res` makes of strikes of one family, drawn by
// otf2bdf at 72 dpi from installed fonts; empty when a tool fails.
struct Strike {
    QString font;
    int pointSize;
};
QByteArray ufondFork(const QString &workDir, const QList<Strike> &strikes);
QByteArray c059Fork(const QString &workDir); // C059 10 and 12 plain, 10 bold
QByteArray dejaVuSerifFork(const QString &workDir); // DejaVu Serif 10 plain: FOND and NFNT 2100
// The resources of both forks in one (a suitcase of two families).
QByteArray mergeForks(const QByteArray &a, const QByteArray &b);
// ufond names the PostScript font only when given a pfb its build cannot read;
// this gives every family record the style table naming it, all styles alike.
QByteArray withPostScriptName(const QByteArray &fork, const QByteArray &postScriptName);
// An empty data file with the fork in the place and suitcase Finder info.
bool makeSuitcase(const QString &path, const QByteArray &fork,
    QVForkStorage::Place place = QVForkStorage::Place::AppleDouble);
// An outline file as t1mac writes it for a file server: the empty data file
// folder/name and its AppleDouble sidecar. The path, or empty.
QString makeLwfn(const QString &folder, const QString &name, const QString &type1 = kC059ItalicPfb);
// The file's record as a scan makes it.
QVFontFilePtr examined(const QString &path);

// The file's fork written out bare (workDir/NAME.rsrc), for outside readers.
QString extractFork(const QString &path, const QString &workDir);
// Every resource as fontTools' macRes reads it, "TYPE ID SIZE ATTRIBUTES SHA1
// NAME" (NAME "null" for none), sorted; empty with *error set when it fails.
QStringList fontToolsResources(const QString &bareFork, QString *error = nullptr);
// "NAME ID size/style/id ..." for every family record, as fontTools reads it.
QString fontToolsFONDEntries(const QString &bareFork);
// Every family member the forks hold, each once: "FAMILY SIZE STYLE SHA256" of
// its strike or outline ("missing" when the family lists one it lacks), sorted.
QStringList fontToolsMembers(const QStringList &bareForks);
QString showfond(const QString &bareFork, int *status = nullptr);

// Makes a folder refuse changes: read-only for an ordinary user, immutable for
// root. False when neither can be had here.
bool lockFolder(const QString &folder, bool lock);
// Runs the event loop until the condition holds or the time is up.
bool waitFor(const std::function<bool()> &condition, int timeoutMs = 20000);

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
// As the user "nobody", for whom permissions hold (as root the home is given to
// it and the run goes through setpriv); std::nullopt when that cannot be done.
std::optional<CliRun> runCliAsOrdinaryUser(const QVTestHome &home, const QStringList &arguments);

} // namespace QVFixtures
