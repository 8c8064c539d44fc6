// Inputs for the store tests, made at test time by tools that are not ours:
// bitmap suitcases by otf2bdf and fondu's ufond from the installed fonts, and
// checks of our output by fontTools and showfond.
#pragma once

#include "engine/QVFontFile.h"
#include "platform/QVForkStorage.h"

#include <QByteArray>
#include <QList>
#include <QString>

namespace QVStoreFixtures
{
struct Strike {
    QString font; // path of an installed outline font
    int pointSize;
};

// The bare resource fork that `ufond -res` writes for strikes of one family
// (made in workDir); empty when the tools fail.
QByteArray ufondFork(const QString &workDir, const QList<Strike> &strikes);
// The resources of both forks in one (a suitcase holding both families).
QByteArray mergeForks(const QByteArray &a, const QByteArray &b);
// An empty data file at path whose fork (and suitcase Finder info) is stored
// in the given place.
bool makeSuitcase(const QString &path, const QByteArray &fork, QVForkStorage::Place place);

// ufond names the PostScript font of a family only when given its pfb, which
// this fondu build cannot read; without the name the examiner rightly finds
// "Missing PostScript Name". This gives every family record of the fork the
// style-mapping table that names it (58 bytes of header, all styles on the
// first name, then the name list).
QByteArray withPostScriptName(const QByteArray &fork, const QByteArray &postScriptName);

// C059 (10 plain, 12 plain, 10 bold) and DejaVu Serif (10 plain).
QByteArray c059Fork(const QString &workDir);
QByteArray dejaVuSerifFork(const QString &workDir);

// The file's fork written out bare, for the outside readers.
QString extractFork(const QString &path, const QString &workDir);
// `showfond` output for a bare fork file, and its exit status.
QString showfond(const QString &bareFork, int *status = nullptr);
// fontTools' macRes: "TYPE ID NAME SIZE" lines, or "ERROR ..." when it fails.
QString fontToolsListing(const QString &bareFork);
// Every resource as fontTools reads it: "TYPE ID NAME ATTRIBUTES SHA256" lines.
QString fontToolsResources(const QString &bareFork);
// Every family member the bare forks hold, each once however many hold it:
// "FAMILY SIZE STYLE SHA256" of its strike or outline ("missing" when the
// family lists one its file lacks), sorted.
QStringList fontToolsMembers(const QStringList &bareForks);
// Family names and (size, style) entries of every FOND, as fontTools reads them.
QString fontToolsFONDEntries(const QString &bareFork);
// Runs /usr/bin/python3 with a script; stdout (stderr appended on failure).
QString python(const QString &script, const QStringList &arguments, int *status = nullptr);

// A classic bitmap suitcase "Times" in folder: C059 10 pt plain and bold as
// old-style FONT resources (purgeable), no outlines, the fork in "._Times",
// Finder flags 0x0100 and its times set in 2001. The path, or empty.
QString timesSuitcase(const QString &folder, const QString &workDir);

// A record for one suitcase member as the examiner describes it.
QVFontFilePtr suitcaseRecord(const QString &path);

QString sha256(const QByteArray &bytes);
QString fileSha256(const QString &path);
// Hashes of data fork, resource fork and Finder info, one line each.
QString forkHashes(const QString &path);
} // namespace QVStoreFixtures
