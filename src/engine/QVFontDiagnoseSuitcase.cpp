// Suitcases: FOND families with their NFNT/FONT strikes and sfnt outlines.
#include "engine/QVFontConstants.h"
#include "engine/QVFontDiagnose.h"
#include "engine/QVFontLayouts.h"
#include "engine/QVResouceFork.h"
#include "engine/QVResourceManager.h"
#include "engine/QVSFNTDirectory.h"
#include "platform/QVByteReader.h"

#include <QFileInfo>

using namespace QVFontLayouts;

namespace
{

constexpr quint32 kFOND = qvFourCC("FOND");
constexpr quint32 kNFNT = qvFourCC("NFNT");
constexpr quint32 kFONT = qvFourCC("FONT");
constexpr quint32 kSfnt = qvFourCC("sfnt");

QString message(const char *text)
{
    return QString::fromUtf8(text);
}

} // namespace

QString QVFontDiagnose::styleName(int styleBits)
{
    switch (styleBits) {
    case 0:
        return QStringLiteral("Plain");
    case 1:
        return QStringLiteral("Bold");
    case 2:
        return QStringLiteral("Italic");
    case 3:
        return QStringLiteral("Bold, Italic");
    case 4:
        return QStringLiteral("Underline");
    case 32:
        return QStringLiteral("Condensed");
    default:
        return QString::number(styleBits);
    }
}

void QVFontDiagnose::saveWholeSuitcase(
    const QString &path, qint32 version, const QString &text, const QString &style, qint32 fontID)
{
    QVStatus &status = *currentStatus;
    status.fontName = QFileInfo(path).fileName();
    status.fontURL = path;
    status.fontType = QVFontType::Bitmap;
    status.fontVersion = version;
    status.PSname = QStringLiteral("(unavailable)");
    status.setFontError(QVErrorClass::Defect);
    status.setFontErrorInfo(text);
    status.fontSize = 0;
    status.fontStyle = style;
    status.fontID = fontID;
    saveCurrentStatus();
}

bool QVFontDiagnose::checkExtraResources(const QString &)
{
    // Foreign resources in a suitcase do no harm to its fonts.
    return false;
}

qint32 QVFontDiagnose::examineSuitcase(const QString &path)
{
    const qint32 version = getFileVersion(path);
    const qint16 saved = m_resFork->getCurrentResource();
    const qint16 ref = m_resFork->openResourceFile(1, path);
    if (ref < 1) {
        const qint16 error = m_resFork->resourceError();
        const QString text = error == -49 || error == -54
            ? message(QVDefect::FileLockedOrInUse)
            : QVDefect::withDetail(QVDefect::FileResourceError, QVResouceFork::errorMessageForCode(error));
        saveWholeSuitcase(path, version, text, QString(""), -1);
        return 1;
    }

    qint32 result = 0;
    const int familyCount = m_resFork->countResourceTypes(ref, kFOND);
    bool walkFamilies = false;
    if (m_resFork->resourceError() != 0) {
        saveWholeSuitcase(path, version, message(QVDefect::FileContainsNoData), QString(""), -1);
        result = 1;
    } else if (familyCount < 1) {
        if (doEmptySuitcase && !inFontsFolder(path)) {
            saveWholeSuitcase(path, version, message(QVDefect::NoFontData), QString(""), -1);
            result = 1;
        }
    } else if (!inFontsFolder(path) && checkExtraResources(path)) {
        saveWholeSuitcase(path, version, message(QVDefect::FileHasInvalidResources), QString(""), -1);
        result = 1;
    } else {
        walkFamilies = true;
    }

    for (int index = 1; walkFamilies && index <= familyCount; ++index) {
        const QVResourceHandle fond = m_resFork->getIndexResource(ref, kFOND, index);
        if (!fond || m_resFork->resourceError() != 0) {
            saveWholeSuitcase(path, version, message(QVDefect::CouldntOpenResource), QString(""), -1);
            result = 1;
            continue;
        }
        if (m_resFork->getHomeResourceRefWithHandle(fond) != ref || m_resFork->resourceError() != 0) {
            saveWholeSuitcase(path, version, message(QVDefect::CouldntOpenResource), QString(""), -1);
            result = 1;
            continue;
        }
        const qint64 size = QVResourceManager::getHandleSize(fond);
        if (size < 1 || QVResourceManager::memError() != 0) {
            saveWholeSuitcase(
                path, version, message(QVDefect::MissingCriticalFontData), QStringLiteral("Plain"), 0);
            result = 1;
            m_resFork->releaseResource(fond);
            continue;
        }
        const QVariantMap info = m_resFork->getResourceInfo(fond);
        const QString familyName = info.value(QStringLiteral("name")).toString();
        const qint32 familyID = info.value(QStringLiteral("id")).toString().toInt();
        if (m_resFork->resourceError() != 0) {
            saveWholeSuitcase(path, version,
                QVDefect::withDetail(QVDefect::FileResourceError,
                    QVResouceFork::errorMessageForCode(m_resFork->resourceError())),
                QString(""), -1);
            result = 1;
            m_resFork->releaseResource(fond);
            continue;
        }

        auto saveFamily = [&](const char *text) {
            QVStatus &status = *currentStatus;
            status.fontName = familyName;
            status.fontURL = path;
            status.fontType = QVFontType::Bitmap;
            status.fontVersion = version;
            status.PSname = QStringLiteral("(unavailable)");
            status.fontStyle = QString("");
            status.fontID = familyID;
            status.setFontError(QVErrorClass::Defect);
            status.setFontErrorInfo(message(text));
            saveCurrentStatus();
            result = 1;
        };
        const auto storedCount = QVByteReader(fond->data).at(FOND::kEntryCount).i16();
        if (!storedCount) {
            saveFamily(QVDefect::FileIsMissingCriticalData);
            m_resFork->releaseResource(fond);
            continue;
        }
        const qint32 entryCount = *storedCount + 1;
        // The first entry must be there up to its resource ID.
        if (!QVByteReader(fond->data).has(FOND::kFirstEntry, FOND::kEntryID) || entryCount < 1) {
            saveFamily(QVDefect::BadFontEntriesCount);
            m_resFork->releaseResource(fond);
            continue;
        }

        for (qint32 i = 0; i < entryCount; ++i) {
            QVByteReader entry = QVByteReader(fond->data).at(FOND::entry(i));
            const auto storedSize = entry.i16();
            const auto storedStyle = entry.i16();
            const auto storedID = entry.i16();
            if (!entry.ok()) {
                saveFamily(QVDefect::FileIsMissingCriticalData);
                break;
            }
            const qint32 pointSize = *storedSize;
            const qint32 styleBits = *storedStyle;
            const qint32 resID = *storedID;
            if (resID == -1)
                continue;

            QString postScriptName = m_resFork->getBitmapPSname(fond, styleBits);
            if (isMultipleMaster(postScriptName)) {
                if (!doDiagnoseMM)
                    continue;
                const qsizetype underscore = postScriptName.indexOf(QLatin1Char('_'));
                if (underscore >= 0)
                    postScriptName.truncate(underscore);
            }

            const bool trueType = pointSize < 1;
            bool strikeDamaged = false;
            QVResourceHandle member;
            if (trueType) {
                member = m_resFork->getResourceOfID(qint16(resID), kSfnt, ref);
            } else {
                member = m_resFork->getResourceOfID(qint16(resID), kNFNT, ref);
                if (member && m_resFork->resourceError() == 0)
                    strikeDamaged = checkNFNTtables(member);
                else
                    member = m_resFork->getResourceOfID(qint16(resID), kFONT, ref);
            }
            if (m_resFork->resourceError() != 0)
                member.reset();

            const QString style = styleName(styleBits);
            QVStatus &status = *currentStatus;
            status.fontName = familyName;
            status.fontURL = path;
            status.fontType = trueType ? QVFontType::TrueType : QVFontType::Bitmap;
            status.fontVersion = version;
            status.PSname = postScriptName;
            status.PS533name = get533postScriptName(postScriptName);
            status.fontSize = pointSize;
            status.fontStyle = style;
            status.fontID = familyID;
            if (trueType && member)
                status.sfntResourceID = resID;

            if (postScriptName == QLatin1String("<none>")) {
                status.setFontError(QVErrorClass::Defect);
                status.setFontErrorInfo(message(QVDefect::MissingPostScriptName));
                result = 1;
            } else if (!member) {
                if ((entryCount == 1 && familyCount == 1) || style == QLatin1String("Plain")) {
                    status.parentIndex = qint32(statusArray.size());
                    status.setFontError(QVErrorClass::Defect);
                    status.setFontErrorInfo(message(QVDefect::MissingCriticalResource));
                    result = 1;
                } else {
                    const QVStatusPtr previous = getLastStatus();
                    status.parentIndex = previous ? previous->parentIndex : 0;
                }
            } else if (doTables) {
                const QString part = checkFONDtables(fond, familyName);
                if (!part.isEmpty() || familyID < 0) {
                    status.setFontError(QVErrorClass::Defect);
                    status.setFontErrorInfo(QVDefect::withDetail(QVDefect::DefectiveTableData, part));
                    result = 1;
                } else if (trueType) {
                    examineSFNT(member);
                    const QString fullName = m_resFork->getSNFTResourceName(member, 4);
                    status.trueTypeFontName = fullName.isEmpty() ? familyName : fullName;
                    status.fontFoundry = findSFNTFoundryName(member);
                }
            }
            saveCurrentStatus();
            if (strikeDamaged) {
                const QVStatusPtr last = getLastStatus();
                last->setFontError(QVErrorClass::Defect);
                last->setFontErrorInfo(message(QVDefect::BadTableData));
                result = 1;
            }
        }
        m_resFork->releaseResource(fond);
    }

    m_resFork->closeResourceFile(ref);
    if (saved > 0 && saved != ref)
        m_resFork->useResourceFile(saved);
    return result;
}

bool QVFontDiagnose::checkNFNTtables(const QVResourceHandle &strike)
{
    if (!strike)
        return false;
    const qint64 size = QVResourceManager::getHandleSize(strike);
    QVByteReader header(strike->data);
    if (!header.has(0, NFNT::kHeaderSize) || QVResourceManager::memError() != 0)
        return true;
    qint64 offset = *header.at(NFNT::kOffsetLow).u16();
    const qint32 high = *header.at(NFNT::kOffsetHigh).i16();
    if (high > 0)
        offset |= qint64(high) << 16;
    if (offset == 0)
        return false;
    return offset > size || offset < 9;
}

QString QVFontDiagnose::checkFONDtables(const QVResourceHandle &fond, const QString &fontName)
{
    const QString missingData = QStringLiteral("missing data");
    if (!fond)
        return message(QVDefect::BadTableData);
    const qint64 size = QVResourceManager::getHandleSize(fond);
    if (QVResourceManager::memError() != 0)
        return message(QVDefect::OutOfMemory);
    const QVByteReader family(fond->data);
    // The header is read up to the style-mapping table's offset, and the
    // 32-bit offsets are read as a handle's longs are: with four more bytes
    // after them.
    if (!family.has(0, FOND::kStyleTable + 8))
        return missingData;
    auto field16 = [&family](qint64 at) { return qint32(*family.at(at).i16()); };
    auto field32 = [&family](qint64 at) { return qint64(*family.at(at).i32()); };

    const qint32 flags = field16(FOND::kFlags);
    const qint32 firstChar = field16(FOND::kFirstChar);
    const qint32 lastChar = field16(FOND::kLastChar);
    const qint32 maxWidth = field16(FOND::kMaxWidth);

    // With a first entry begun, an empty character range needs its point size.
    if (size > FOND::kFirstEntry && firstChar >= lastChar) {
        const auto pointSize = family.at(FOND::kFirstEntry).i16();
        if (!pointSize)
            return missingData;
        if (*pointSize > 0)
            return QStringLiteral("character range");
    }

    if (flags & 1) {
        // The high half of the 32-bit field: what the families in use expect.
        const qint64 widths = field16(FOND::kWidthTable) & 0xFFFF;
        if (widths < size) {
            QVByteReader table = family.at(widths + FOND::kWidthTableCount);
            const auto storedCount = table.i16();
            if (!storedCount)
                return missingData;
            const qint32 tableCount = *storedCount == 0 ? 1 : *storedCount;
            if (tableCount < 1)
                return QStringLiteral("width table");
            const bool multipleMaster = isMultipleMaster(fontName);
            table.seek(widths + FOND::kWidthTablesStart);
            for (qint32 t = 0; t < tableCount; ++t) {
                table.skip(FOND::kWidthStyleSize);
                bool ended = false;
                for (qint32 n = 0; n < lastChar - firstChar && !ended; ++n) {
                    const auto width = table.i16();
                    if (!width)
                        return QStringLiteral("maxWidth");
                    if (*width == 0)
                        ended = true;
                    else if (*width > maxWidth && !multipleMaster)
                        return QStringLiteral("maxWidth");
                }
                if (ended)
                    break;
            }
        }
    }

    const qint64 kerning = field32(FOND::kKerningTable);
    if (kerning != 0) {
        QVByteReader table = family.at(kerning);
        if (!table.ok())
            return QStringLiteral("kern entires");
        const auto storedCount = table.at(kerning + FOND::kKerningTableCount).i16();
        if (!storedCount)
            return QStringLiteral("numEntries");
        table.seek(kerning + FOND::kKerningTablesStart);
        for (qint32 t = 0; t < *storedCount + 1; ++t) {
            table.skip(FOND::kKerningStyleSize);
            const auto pairs = table.u16();
            if (!pairs || !table.skip(FOND::kKerningPairSize * qint64(*pairs)))
                return QStringLiteral("numKernPairs");
        }
    }

    const qint64 styles = field32(FOND::kStyleTable);
    if (styles != 0) {
        if (!family.at(styles).ok())
            return QStringLiteral("style table");
        // The base PostScript name must be there and not empty.
        const auto nameLength = family.at(styles + FOND::kStyleStrings).u8();
        if (!nameLength || *nameLength == 0)
            return QStringLiteral("PostScript name");
    }

    if (field32(FOND::kWidthTable) == 0 && kerning == 0 && styles == 0) {
        const auto storedCount = family.at(FOND::kEntryCount).i16();
        if (!storedCount)
            return missingData;
        const qint32 entries = *storedCount + 1;
        if (!family.has(FOND::kFirstEntry, FOND::kEntrySize * qMax(entries, 0)))
            return message(QVDefect::BadTableData);
    }

    if (fontName.startsWith(QLatin1Char('%')) && !fontName.contains(QLatin1String("MM"))
        && fontName.size() < 4)
        return message(QVDefect::BadTableData);
    return QString();
}

int QVFontDiagnose::qvlib_checkTTtableSum(const QVResourceHandle &sfnt, const char tag[4])
{
    const bool isName = qstrncmp(tag, "name", 4) == 0;
    if (!sfnt)
        return isName ? 1 : 0;
    if (sfnt->data.size() < 5)
        return 1;
    const QVSFNTDirectory directory(sfnt->data);
    // The count is read signed: one of 0x8000 or more counts no tables.
    const qint32 tableCount = qint16(directory.tableCount().value_or(0));
    if (tableCount < 1)
        return isName ? 1 : 0;
    const qint64 found = directory.find(tag, tableCount);
    if (found < 0)
        return isName ? 1 : 0;
    // The checksum is read as a handle's long: with the offset after it.
    QVByteReader entry = directory.entry(found);
    entry.skip(SFNT::kEntryChecksum);
    const auto checksum = entry.u32();
    entry.u32();
    return entry.ok() && *checksum != 0 ? 0 : 1;
}

int QVFontDiagnose::examineSFNT(const QVResourceHandle &sfnt)
{
    if (!sfnt || sfnt->data.isEmpty())
        return 0;
    static const char *const probes[] = { "cmap", "hmtx", "hhea", "maxp", "name", "glyf", "post" };
    for (const char *tag : probes) {
        if (qvlib_checkTTtableSum(sfnt, tag) != 0)
            break;
    }
    qvlib_checkTTtableSum(sfnt, "kern");
    // An outline inside a suitcase is never reported by these probes.
    return 0;
}

QString QVFontDiagnose::findSFNTFoundryName(const QVResourceHandle &sfnt)
{
    QString foundry = matchFoundryName(m_resFork->getSNFTResourceName(sfnt, 0));
    static const int fallbacks[] = { 13, 7, 8, 10, 11, 9, 14 };
    for (int nameID : fallbacks) {
        if (!foundry.isEmpty())
            break;
        foundry = matchFoundryName(m_resFork->getSNFTResourceName(sfnt, nameID));
    }
    return foundry;
}
