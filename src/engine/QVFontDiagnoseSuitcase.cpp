// Suitcases: FOND families with their NFNT/FONT strikes and sfnt outlines.
#include "engine/QVFontConstants.h"
#include "engine/QVFontDiagnose.h"
#include "engine/QVMemoryHandler.h"
#include "engine/QVResouceFork.h"
#include "engine/QVResourceManager.h"

#include <QFileInfo>

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
    QVMemoryHandler &memory = *m_memoryHandler;
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
        if (size <= 53) {
            saveFamily(QVDefect::FileIsMissingCriticalData);
            m_resFork->releaseResource(fond);
            continue;
        }
        const qint32 entryCount = memory.Handle_ReadShort(fond, 52) + 1;
        if (size < 58 || entryCount < 1) {
            saveFamily(QVDefect::BadFontEntriesCount);
            m_resFork->releaseResource(fond);
            continue;
        }

        for (qint32 i = 0; i < entryCount; ++i) {
            if (size < 6 * qint64(i) + 60) {
                saveFamily(QVDefect::FileIsMissingCriticalData);
                break;
            }
            const qint32 pointSize = memory.Handle_ReadShort(fond, 54 + 6 * qint64(i));
            const qint32 styleBits = memory.Handle_ReadShort(fond, 56 + 6 * qint64(i));
            const qint32 resID = memory.Handle_ReadShort(fond, 58 + 6 * qint64(i));
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
    if (size < 26 || QVResourceManager::memError() != 0)
        return true;
    qint64 offset = m_memoryHandler->Handle_ReadShort(strike, 16) & 0xFFFF;
    const qint32 high = m_memoryHandler->Handle_ReadShort(strike, 10);
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
    QVMemoryHandler &memory = *m_memoryHandler;
    const qint64 size = QVResourceManager::getHandleSize(fond);
    if (QVResourceManager::memError() != 0)
        return message(QVDefect::OutOfMemory);
    // Each header field read below needs the bytes up to byte 32.
    if (size < 32)
        return missingData;

    const qint32 flags = memory.Handle_ReadShort(fond, 0);
    const qint32 firstChar = memory.Handle_ReadShort(fond, 4);
    const qint32 lastChar = memory.Handle_ReadShort(fond, 6);
    const qint32 maxWidth = memory.Handle_ReadShort(fond, 14);

    if (size >= 55 && firstChar >= lastChar) {
        if (size < 56)
            return missingData;
        if (memory.Handle_ReadShort(fond, 54) > 0)
            return QStringLiteral("character range");
    }

    if (flags & 1) {
        // The high half of the 32-bit field: what the families in use expect.
        const qint64 widths = memory.Handle_ReadShort(fond, 16) & 0xFFFF;
        if (widths < size) {
            if (size - widths < 2)
                return missingData;
            qint32 tableCount = memory.Handle_ReadShort(fond, widths);
            if (tableCount == 0)
                tableCount = 1;
            if (tableCount < 1)
                return QStringLiteral("width table");
            const bool multipleMaster = isMultipleMaster(fontName);
            qint64 at = widths + 2;
            for (qint32 t = 0; t < tableCount; ++t) {
                at += 2; // style word
                bool ended = false;
                for (qint32 n = 0; n < lastChar - firstChar && !ended; ++n) {
                    if (at + 2 > size)
                        return QStringLiteral("maxWidth");
                    const qint32 width = memory.Handle_ReadShort(fond, at);
                    if (width == 0)
                        ended = true;
                    else if (width > maxWidth && !multipleMaster)
                        return QStringLiteral("maxWidth");
                    at += 2;
                }
                if (ended)
                    break;
            }
        }
    }

    const qint64 kerning = memory.Handle_ReadLong(fond, 20);
    if (kerning != 0) {
        if (kerning < 0 || kerning > size)
            return QStringLiteral("kern entires");
        if (kerning + 2 > size)
            return QStringLiteral("numEntries");
        const qint32 tables = memory.Handle_ReadShort(fond, kerning) + 1;
        qint64 at = kerning + 2;
        for (qint32 t = 0; t < tables; ++t) {
            if (at + 4 > size)
                return QStringLiteral("numKernPairs");
            const qint32 pairs = memory.Handle_ReadShort(fond, at + 2) & 0xFFFF;
            at += 4 + 4 * qint64(pairs);
            if (at > size)
                return QStringLiteral("numKernPairs");
        }
    }

    const qint64 styles = memory.Handle_ReadLong(fond, 24);
    if (styles != 0) {
        if (styles < 0 || styles > size)
            return QStringLiteral("style table");
        if (styles + 60 >= size || memory.Handle_ReadChar(fond, styles + 60) == 0)
            return QStringLiteral("PostScript name");
    }

    if (memory.Handle_ReadLong(fond, 16) == 0 && kerning == 0 && styles == 0) {
        if (size < 54)
            return missingData;
        const qint32 entries = memory.Handle_ReadShort(fond, 52) + 1;
        if (size < 6 * qint64(entries) + 54)
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
    const QByteArray &data = sfnt->data;
    if (data.size() < 5)
        return 1;
    const qint32 tableCount = m_memoryHandler->Handle_ReadShort(sfnt, 4);
    if (tableCount < 1)
        return isName ? 1 : 0;
    qint64 entry = 12;
    for (qint32 n = 0; n < tableCount; ++n) {
        if (entry + 4 > data.size())
            break; // counted without advancing: nothing further lies inside
        if (qstrncmp(data.constData() + entry, tag, 4) == 0)
            return m_memoryHandler->Handle_ReadLong(sfnt, entry + 4) == 0 ? 1 : 0;
        entry += 16;
    }
    return isName ? 1 : 0;
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
