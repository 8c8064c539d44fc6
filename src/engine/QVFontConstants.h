// The engine's vocabulary: font type codes, error classes and the defect
// messages that the passes compare literally. Keep every text exactly as it is.
#pragma once

#include <QString>

namespace QVFontType
{
constexpr int Bitmap = 0;
constexpr int PostScriptType1 = 1;
constexpr int PostScriptType3 = 2;
constexpr int TrueType = 3;
constexpr int TrueTypeCollection = 4;
constexpr int OpenType = 5;
} // namespace QVFontType

namespace QVErrorClass
{
constexpr int Defect = 0;
constexpr int MissingBitmap = 1;
constexpr int MissingPostScript = 2;
constexpr int Duplicate = 3;
// The file, its fork or its Finder info could not be read: nothing is known
// of the font, so no pass diagnoses it and nothing moves it.
constexpr int Unreadable = 4;
} // namespace QVErrorClass

namespace QVDefect
{
inline constexpr const char IncorrectFileFlags[] = "Incorrect File Flags";
inline constexpr const char CouldntActivateFont[] = "Couldn't Activate Font";
inline constexpr const char FileLockedOrInUse[] = "File Locked or in Use";
inline constexpr const char FileResourceError[] = "File Resource Error (%@)";
inline constexpr const char FileContainsNoData[] = "File Contains No Data (empty)";
inline constexpr const char NoFontData[] = "No Font Data (file is empty)";
inline constexpr const char FileHasInvalidResources[] = "File Has Invalid Resources";
inline constexpr const char CouldntOpenResource[] = "Couldn't Open Resource";
inline constexpr const char MissingCriticalResource[] = "Missing Critical Resource";
inline constexpr const char BadFontEntriesCount[] = "Bad Font Entries Count";
inline constexpr const char MissingCriticalFontData[] = "Missing Critical Font Data";
inline constexpr const char DefectiveTableData[] = "Defective Table data (%@)";
inline constexpr const char MultipleMasterNameError[] = "Multiple Master Font name error";
inline constexpr const char OutOfMemory[] = "Out of Memory";
inline constexpr const char FileIsMissingCriticalData[] = "File is Missing Critical Data";
inline constexpr const char BadTableData[] = "Bad Table Data";
inline constexpr const char MissingPostScriptName[] = "Missing PostScript Name";
inline constexpr const char BadFileName[] = "Bad File Name";
inline constexpr const char FileError[] = "File Error (%@)";
inline constexpr const char CouldntFindBitmapFont[] = "Couldn't Find Bitmap Font";
inline constexpr const char CouldntFindPostScriptFile[] = "Couldn't Find PostScript File";
inline constexpr const char DuplicateFont[] = "Duplicate Font";
inline constexpr const char FoundDuplicateFonts[] = "Found Duplicate Fonts";
inline constexpr const char FileUnreadable[] = "File Unreadable (%@)";
// PC Type 1 fonts: an outline file and its metrics files.
inline constexpr const char MissingFontHeader[] = "Missing Font Header";
inline constexpr const char BadEncryptedSection[] = "Bad Encrypted Section";
inline constexpr const char CouldntFindMetricsFile[] = "Couldn't Find Metrics File";
inline constexpr const char CouldntFindOutlineFile[] = "Couldn't Find Outline File";
// Found by the deep check.
inline constexpr const char TableChecksumMismatch[] = "Table Checksum Mismatch (%@)";
inline constexpr const char DamagedTableData[] = "Damaged Table Data (%@)";
inline constexpr const char MissingRequiredTable[] = "Missing Required Table (%@)";
inline constexpr const char GlyphCannotBeLoaded[] = "Glyph Cannot Be Loaded (%@)";
inline constexpr const char FontCannotBeLoaded[] = "Font Cannot Be Loaded (%@)";

// Fills the one "%@" of a message such as "File Error (%@)".
inline QString withDetail(const char *message, const QString &detail)
{
    QString text = QString::fromUtf8(message);
    text.replace(QLatin1String("%@"), detail);
    return text;
}
} // namespace QVDefect

// The string-table key of a font type's display name; empty for an unknown code.
QString getFontTypeNameKey(int fontType);
// The display name of a font type, looked up through the string table; empty for
// an unknown code.
QString getFontTypeName(int fontType);
