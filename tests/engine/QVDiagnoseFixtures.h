// Test inputs for the examiner, made from the installed fonts and tools
// (fontTools, t1mac, the ufond suitcase under tests/data/fonts) and damaged
// copies of them.
#pragma once

#include "engine/QVFontDiagnose.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

namespace QVDiagnoseFixtures
{

inline const QString kDejaVuSans = QStringLiteral("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf");
inline const QString kDejaVuSansBold = QStringLiteral("/usr/share/fonts/truetype/dejavu/DejaVuSans-Bold.ttf");
inline const QString kP052Roman = QStringLiteral("/usr/share/fonts/opentype/urw-base35/P052-Roman.otf");
inline const QString kC059RomanPfb = QStringLiteral("/usr/share/fonts/X11/Type1/C059-Roman.pfb");
inline const QString kPanicSansDfont = QStringLiteral("/usr/share/ruby-prawn/fonts/Panic+Sans.dfont");
inline const QString kFontToolsPython = QStringLiteral("/usr/bin/python3");

QByteArray readFile(const QString &path);
bool writeFile(const QString &path, const QByteArray &bytes);
// Runs a tool; false (with its output in *log) unless it exits 0.
bool runTool(const QString &program, const QStringList &arguments, QString *log = nullptr);

// Sets the stored checksum of an SFNT table; false when the tag is absent.
bool setTableChecksum(QByteArray &font, const char tag[4], quint32 checksum);

// Writes an empty data file with the fork in its AppleDouble sidecar and the
// HFS type (and Finder flags) in its Finder info.
bool installForkFile(
    const QString &path, const QByteArray &fork, const char type[5], quint16 finderFlags = 0);
bool setFinderInfo(const QString &path, const char type[5], quint16 finderFlags);

// A real suitcase made by ufond from DejaVu Sans strikes: FOND 2861 "DejaVu
// Sans" with 10 and 12 point plain and 12 point bold NFNTs 2862, 2861, 2863.
QByteArray ufondSuitcaseFork();

// Changes one resource of a file's fork in place through the resource layer:
// edit gets the bytes; returning false removes the resource.
bool editResource(const QString &path, const char type[5], qint16 id, bool (*edit)(QByteArray &bytes));

struct Examination {
    qint32 result = 0;
    QList<QVStatusPtr> statuses;
};
Examination examine(QVFontDiagnose &examiner, const QString &path, bool activation = false);

} // namespace QVDiagnoseFixtures
