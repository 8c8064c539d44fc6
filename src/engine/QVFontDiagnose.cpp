#include "engine/QVFontDiagnose.h"

#include "engine/QVFontConstants.h"
#include "engine/QVFontLayouts.h"
#include "engine/QVMemoryHandler.h"
#include "engine/QVResouceFork.h"
#include "engine/QVSFNTDirectory.h"
#include "engine/QVType1Files.h"
#include "platform/QVByteReader.h"
#include "platform/QVFileAccess.h"
#include "platform/QVFileSnapshot.h"
#include "platform/QVFileSystem.h"
#include "platform/QVFontActivation.h"
#include "platform/QVForkStorage.h"
#include "settings/QVLog.h"
#include "settings/QVSettings.h"

#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStandardPaths>
#include <QStringDecoder>
#include <cstring>

using namespace QVFontLayouts;

namespace
{

constexpr int kMaxNameBytes = 255;

QString fileNameOf(const QString &path)
{
    return QFileInfo(path).fileName();
}

// Names become strings as UTF-8, else as ASCII, else the fallback. Bytes that
// are not valid UTF-8 cannot be pure ASCII either, so one test covers both.
QString nameString(const QByteArray &bytes, const QString &fallback)
{
    QStringDecoder decoder(QStringDecoder::Utf8);
    const QString text = decoder(bytes);
    return decoder.hasError() ? fallback : text;
}

} // namespace

QVFontDiagnose::QVFontDiagnose()
    : currentStatus(std::make_shared<QVStatus>())
    , m_settings(std::make_unique<QVSettings>())
    , m_resFork(std::make_unique<QVResouceFork>())
    , m_memoryHandler(m_resFork->memoryHandler)
    , m_doLoggingSetting(m_settings->doLogging())
{
    loadFoundryNames();
}

QVFontDiagnose::~QVFontDiagnose() = default;

void QVFontDiagnose::initialize()
{
    statusArray.clear();
    currentStatus = std::make_shared<QVStatus>();
    doFinderFlags = true;
    doDiagnoseMM = false;
    doDiagnoseType1 = true;
    doDiagnoseType3 = true;
    doEmptySuitcase = true;
    doIgnoreStandardFonts = true;
    doTables = true;
    doActivation = true;
    doLogging = m_doLoggingSetting;
    isInitialized = true;
}

void QVFontDiagnose::finalize()
{
    statusArray.clear();
    m_fontStatusArray.clear();
    currentStatus.reset();
    isInitialized = false;
}

void QVFontDiagnose::saveCurrentStatus()
{
    if (!currentStatus)
        currentStatus = std::make_shared<QVStatus>();
    // Collections repeat the same names many times over (copies, members of
    // one family): each text is kept once and shared.
    QVStatus &status = *currentStatus;
    for (QString *text : { &status.fontName, &status.familyName, &status.PSname, &status.PS533name,
             &status.fontStyle, &status.fontFoundry, &status.trueTypeFontName }) {
        if (text->isEmpty())
            continue;
        if (const auto known = m_sharedTexts.constFind(*text); known != m_sharedTexts.cend())
            *text = *known;
        else if (m_sharedTexts.size() < kMaxSharedTexts)
            m_sharedTexts.insert(*text);
    }
    statusArray.append(currentStatus);
    logStatus(*currentStatus);
    currentStatus = std::make_shared<QVStatus>();
}

QVStatusPtr QVFontDiagnose::getLastStatus() const
{
    return statusArray.isEmpty() ? QVStatusPtr() : statusArray.last();
}

void QVFontDiagnose::logStatus(const QVStatus &status) const
{
    if (!doLogging || !status.hasErrors())
        return;
    QStringList classes;
    for (int code : status.fontErrors)
        classes.append(QString::number(code));
    qCInfo(lcEngine).noquote() << " ";
    qCInfo(lcEngine).noquote() << QStringLiteral("fontURL = %1").arg(status.fontURL);
    qCInfo(lcEngine).noquote() << QStringLiteral("fontName = %1").arg(status.fontName);
    if (!status.familyName.isEmpty())
        qCInfo(lcEngine).noquote() << QStringLiteral("familyName = %1").arg(status.familyName);
    qCInfo(lcEngine).noquote() << QStringLiteral("fontVersion = %1").arg(status.fontVersion);
    qCInfo(lcEngine).noquote() << QStringLiteral("PSname = %1").arg(status.PSname);
    qCInfo(lcEngine).noquote() << QStringLiteral("fontType = %1").arg(status.fontType);
    qCInfo(lcEngine).noquote() << QStringLiteral("fontStyle = %1").arg(status.fontStyle);
    qCInfo(lcEngine).noquote() << QStringLiteral("fontSize = %1").arg(status.fontSize);
    qCInfo(lcEngine).noquote() << QStringLiteral("fontID = %1").arg(status.fontID);
    qCInfo(lcEngine).noquote() << QStringLiteral("parentIndex = %1").arg(status.parentIndex);
    qCInfo(lcEngine).noquote() << QStringLiteral("Errors: (%1)").arg(classes.join(QStringLiteral(", ")));
    qCInfo(lcEngine).noquote()
        << QStringLiteral("Errors Info: (%1)").arg(status.fontErrorsInfo.join(QStringLiteral(", ")));
}

// ---------------------------------------------------------------------------
// Choice of examination

bool QVFontDiagnose::hasResourceFork(const QString &path)
{
    const std::lock_guard<std::recursive_mutex> guard(QVResouceFork::lock());
    return m_resFork->hasResourceFork(path);
}

QString QVFontDiagnose::quotedTypeCode(const QString &path)
{
    QByteArray info;
    if (QVForkStorage::readFinderInfo(path, &info) != 0 || info.size() < 4)
        return QString("");
    const QByteArray type = info.left(4);
    if (type == QByteArray(4, '\0'))
        return QString("");
    return QLatin1Char('\'') + QString::fromLatin1(type) + QLatin1Char('\'');
}

QByteArray QVFontDiagnose::hfsTypeCode(const QString &path)
{
    const QString quoted = quotedTypeCode(path);
    if (quoted.size() >= 5)
        return quoted.mid(1, 4).toLatin1();
    if (QFileInfo(path).suffix().toLower() == QLatin1String("dfont"))
        return QByteArrayLiteral("FFIL");
    return QByteArray();
}

void QVFontDiagnose::examineFont(const QString &path)
{
    // The resource layer has one current file per process.
    const std::lock_guard<std::recursive_mutex> guard(QVResouceFork::lock());
    statusArray.clear();
    m_result = 0;
    if (!currentStatus)
        currentStatus = std::make_shared<QVStatus>();

    // A file whose data, fork or Finder info the user may not read is neither
    // sound nor damaged: any finding would be a guess.
    int accessError = 0;
    if (const QString part = QVFileAccess::unreadablePart(path, &accessError); !part.isEmpty()) {
        saveUnreadableFile(path, part, accessError);
        m_result = 1;
        m_fontStatusArray = statusArray;
        return;
    }

    const QByteArray type = hfsTypeCode(path);
    const QString extension = QFileInfo(path).suffix().toLower();
    const bool suitcaseType = type == "FFIL" || type == "ffil" || type == "tfil";

    enum class Kind { None, SFNT, Suitcase, PostScript, Type1Outline, Type1Metrics } kind = Kind::None;
    // Only a "ttf" file of a suitcase type needs to know about its fork; the
    // look-up is left out for every other file.
    if (extension == QLatin1String("ttf"))
        kind = suitcaseType && hasResourceFork(path) ? Kind::Suitcase : Kind::SFNT;
    else if (extension == QLatin1String("otf") || extension == QLatin1String("ttc"))
        kind = Kind::SFNT;
    else if (suitcaseType)
        kind = Kind::Suitcase;
    else if (type == "LWFN")
        kind = Kind::PostScript;
    else if (type == "sfnt")
        kind = Kind::SFNT;
    else if (QVType1Files::isOutline(path))
        kind = Kind::Type1Outline;
    else if (QVType1Files::isMetrics(path))
        kind = Kind::Type1Metrics;

    qint32 result = 0;
    switch (kind) {
    case Kind::None:
        break;
    case Kind::SFNT:
        result = extension == QLatin1String("ttc") ? examineTTC(path) : examineOTF(path);
        break;
    case Kind::Suitcase:
        result = examineSuitcase(path);
        if (doFinderFlags && validateFinderFlags(path)) {
            markStatusesOfLastFile(QString::fromUtf8(QVDefect::IncorrectFileFlags), false);
            result = 1;
        }
        break;
    case Kind::PostScript:
        result = examinePSfont(path);
        break;
    case Kind::Type1Outline:
        result = examinePCType1(path);
        break;
    case Kind::Type1Metrics:
        result = examineType1Metrics(path);
        break;
    }

    // A file that already has a defect is not activated, and neither is an
    // outline file: it needs its bitmap companion to activate. A metrics file
    // is no font on its own.
    if (kind != Kind::None && kind != Kind::Type1Metrics && doActivation && type != "LWFN" && result == 0
        && !statusArray.isEmpty() && !checkFontDoesActivate(path)) {
        markStatusesOfLastFile(QString::fromUtf8(QVDefect::CouldntActivateFont), true);
        result = 1;
    }

    m_result = result;
    m_fontStatusArray = statusArray;
}

void QVFontDiagnose::markStatusesOfLastFile(const QString &message, bool nameFromFile)
{
    const QVStatusPtr last = getLastStatus();
    if (!last)
        return;
    const QString url = last->fontURL;
    for (const QVStatusPtr &status : std::as_const(statusArray)) {
        if (status->fontURL != url)
            continue;
        if (nameFromFile && status->fontName.isEmpty())
            status->fontName = fileNameOf(url);
        status->setFontError(QVErrorClass::Defect);
        status->setFontErrorInfo(message);
    }
}

void QVFontDiagnose::saveUnreadableFile(const QString &path, const QString &part, int error)
{
    const QString extension = QFileInfo(path).suffix().toLower();
    QVStatus &status = *currentStatus;
    status.fontName = fileNameOf(path);
    status.fontURL = path;
    status.fontType = extension == QLatin1String("otf") ? QVFontType::OpenType
        : extension == QLatin1String("ttf") || extension == QLatin1String("ttc")
            || extension == QLatin1String("dfont")
        ? QVFontType::TrueType
        : QVFontType::Bitmap;
    status.PSname = QStringLiteral("<none>");
    status.fontStyle = QString("");
    QString detail = QString::fromLocal8Bit(std::strerror(error));
    if (part != path)
        detail = QDir(QFileInfo(path).absolutePath()).relativeFilePath(part) + QStringLiteral(": ") + detail;
    status.setFontError(QVErrorClass::Unreadable);
    status.setFontErrorInfo(QVDefect::withDetail(QVDefect::FileUnreadable, detail));
    saveCurrentStatus();
}

// ---------------------------------------------------------------------------
// SFNT files

void QVFontDiagnose::saveUnreadableSFNT(
    const QString &path, int fontType, qint32 version, const QString &message)
{
    QVStatus &status = *currentStatus;
    status.fontName = fileNameOf(path);
    status.familyName = fileNameOf(path);
    status.fontURL = path;
    status.fontType = fontType;
    status.fontVersion = version;
    status.PSname = QStringLiteral("<none>");
    status.fontSize = 0;
    status.fontStyle = QStringLiteral("Plain");
    status.fontID = 0;
    status.setFontError(QVErrorClass::Defect);
    status.setFontErrorInfo(message);
    saveCurrentStatus();
}

void QVFontDiagnose::saveSFNTStatus(
    const QString &path, int fontType, qint32 version, const SFNTNames &names, bool damaged)
{
    const QString fileName = fileNameOf(path);
    QVStatus &status = *currentStatus;
    status.fontName = names.fullName.isEmpty() ? fileName : nameString(names.fullName, fileName);
    status.fontURL = path;
    status.fontType = fontType;
    status.fontVersion = version;
    status.PSname = names.postScriptName.isEmpty()
        ? fileName
        : nameString(names.postScriptName, QStringLiteral("<none>"));
    status.PS533name = get533postScriptName(status.PSname);
    if (!names.family.isEmpty())
        status.familyName = nameString(names.family, QString());
    status.fontFoundry = names.foundry;
    status.fontSize = 0;
    status.fontStyle = QStringLiteral("Plain");
    status.fontID = 0;
    if (damaged) {
        status.setFontError(QVErrorClass::Defect);
        status.setFontErrorInfo(QString::fromUtf8(QVDefect::BadTableData));
    }
    saveCurrentStatus();
}

// The file an SFNT examination reads: its size taken once, its bytes read in
// aligned blocks of 64 KB, the last of which is kept. A face's directory, its
// naming table and the members of a collection mostly lie in one block, so
// they cost one read of the file however often they are looked at.
struct QVFontDiagnose::SFNTFile {
    explicit SFNTFile(QIODevice &file)
        : device(file)
        , size(file.size())
    {
    }

    // The bytes of [pos, pos + length) that the file holds: fewer at its
    // end, none past it. Valid until the next read.
    QByteArrayView read(qint64 pos, qint64 length)
    {
        if (pos < 0 || length <= 0 || pos >= size)
            return {};
        const qint64 wanted = qMin(length, size - pos);
        if (blockStart < 0 || pos < blockStart || pos + wanted > blockStart + block.size()) {
            blockStart = pos & ~(kBlockSize - 1);
            const qint64 end = qMin(size, qMax(blockStart + kBlockSize, pos + wanted));
            block = device.seek(blockStart) ? device.read(end - blockStart) : QByteArray();
        }
        const qint64 at = pos - blockStart;
        const qint64 held = qBound(qint64(0), qint64(block.size()) - at, wanted);
        return held > 0 ? QByteArrayView(block).sliced(at, held) : QByteArrayView();
    }

    // The offset table and table directory of the face at `face`, as far as
    // the file holds them. Valid until the next read.
    QByteArrayView directory(qint64 face)
    {
        const auto count = QVSFNTDirectory(read(face, SFNT::kOffsetTableSize)).tableCount();
        return read(face, count ? QVSFNTDirectory::size(*count) : SFNT::kOffsetTableSize);
    }

    static constexpr qint64 kBlockSize = 64 * 1024;
    QIODevice &device;
    const qint64 size;
    qint64 blockStart = -1;
    QByteArray block;
};

std::optional<quint32> QVFontDiagnose::namingTableOffset(QByteArrayView directoryBytes)
{
    const QVSFNTDirectory directory(directoryBytes);
    const auto tableCount = directory.tableCount();
    // A directory that runs past the end of the file is damaged whatever it
    // holds: no need to walk up to the end to find that out.
    if (!tableCount || directory.entriesHolding(4) < *tableCount)
        return std::nullopt;
    // A later entry of the tag replaces an earlier one.
    const qint64 found = directory.findLast("name", *tableCount);
    if (found < 0)
        return 0;
    QVByteReader entry = directory.entry(found);
    entry.skip(SFNT::kEntryOffset);
    const auto offset = entry.u32();
    entry.u32(); // the length, which must be there too
    return entry.ok() ? offset : std::nullopt;
}

bool QVFontDiagnose::readNamingTable(SFNTFile &file, qint64 table, bool firstWins, SFNTNames &names)
{
    QVByteReader header = QVByteReader(file.read(table, Name::kHeaderSize)).at(Name::kRecordCount);
    const auto recordCount = header.u16();
    const auto storage = header.u16();
    if (!header.ok())
        return false;
    // The records are read whole (kept apart from the file's block, which the
    // strings may replace), then walked in order.
    const QByteArray records
        = file.read(table + Name::kHeaderSize, Name::kRecordSize * qint64(*recordCount)).toByteArray();
    QVByteReader record(records);
    bool haveFullName = false, havePostScriptName = false;
    for (quint32 r = 0; r < *recordCount; ++r) {
        record.skip(Name::kRecordNameID);
        const auto nameID = record.u16();
        const auto length = record.u16();
        const auto stringOffset = record.u16();
        if (!record.ok())
            return false;
        if (*nameID > 13)
            continue;
        // Reading nothing is never short, wherever it points.
        const int wanted = qMin(int(*length), kMaxNameBytes);
        QByteArray raw;
        if (wanted > 0) {
            raw = file.read(table + *storage + *stringOffset, wanted).toByteArray();
            if (raw.size() != wanted)
                return false;
        }
        const QByteArray text = singleByteName(raw);
        switch (*nameID) {
        case 0:
        case 7:
        case 8:
        case 9:
        case 13:
            if (names.foundry == QLatin1String("Generic"))
                names.foundry = matchFoundryName(QString::fromLatin1(text));
            break;
        case 1:
            names.family = text;
            break;
        case 4:
            if (!firstWins || !haveFullName)
                names.fullName = text;
            haveFullName = true;
            break;
        case 5:
            names.version = text;
            break;
        case 6:
            if (!firstWins || !havePostScriptName)
                names.postScriptName = text;
            havePostScriptName = true;
            break;
        default:
            break;
        }
    }
    return true;
}

QIODevice *QVFontDiagnose::openFontFile(
    const QString &path, QFile &file, std::unique_ptr<QIODevice> &held, int *error)
{
    if (const QVFileSnapshot *snapshot = QVFileSnapshot::of(path)) {
        held = snapshot->open();
        *error = held ? 0 : snapshot->openError();
        return held.get();
    }
    if (!QVFileSystem::openForReading(file, path, QIODevice::Unbuffered, error))
        return nullptr;
    return &file;
}

qint32 QVFontDiagnose::examineOTF(const QString &path)
{
    const qint32 version = getFileVersion(path);
    const bool otfExtension = QFileInfo(path).suffix().toLower() == QLatin1String("otf");
    const int fallbackType = otfExtension ? QVFontType::OpenType : QVFontType::TrueType;

    QFile opened;
    std::unique_ptr<QIODevice> held;
    int openError = 0;
    QIODevice *device = openFontFile(path, opened, held, &openError);
    if (!device) {
        saveUnreadableSFNT(path, fallbackType, version,
            QVDefect::withDetail(QVDefect::FileError, QString::fromLocal8Bit(std::strerror(openError))));
        return qint32(QFileDevice::OpenError);
    }
    QIODevice &file = *device;
    if (file.size() == 0) {
        saveUnreadableSFNT(path, fallbackType, version, QString::fromUtf8(QVDefect::BadTableData));
        return 1;
    }

    // The directory is read once and kept for the table probes below.
    SFNTFile sfnt(file);
    m_sfntFile = &file;
    m_sfnt = &sfnt;
    m_sfntDirectory = sfnt.directory(0).toByteArray();
    const auto tag = QVByteReader(m_sfntDirectory).bytes(4);
    const bool isOTTO = tag && *tag == QByteArrayView("OTTO");
    bool damaged = !tag;

    const auto tableCount = QVSFNTDirectory(m_sfntDirectory).tableCount();
    if (!tableCount || *tableCount < 1)
        damaged = true;

    SFNTNames names;
    if (!damaged) {
        const auto nameOffset = namingTableOffset(m_sfntDirectory);
        if (!nameOffset || (*nameOffset != 0 && !readNamingTable(sfnt, *nameOffset, false, names)))
            damaged = true;
    }

    if (!damaged) {
        // Only the kern probe decides; the others are run for what they read.
        static const char *const probes[] = { "cmap", "hmtx", "hhea", "maxp", "name" };
        for (const char *probe : probes) {
            if (checkOTFtable(&file, probe) != 0)
                break;
        }
        damaged = checkOTFtable(&file, "kern") != 0;
    }
    m_sfnt = nullptr;
    m_sfntFile = nullptr;
    m_sfntDirectory.clear();
    file.close();

    saveSFNTStatus(path, isOTTO ? QVFontType::OpenType : QVFontType::TrueType, version, names, damaged);
    return damaged ? 1 : 0;
}

qint32 QVFontDiagnose::examineTTC(const QString &path)
{
    const qint32 version = getFileVersion(path);
    const bool otfExtension = QFileInfo(path).suffix().toLower() == QLatin1String("otf");

    QFile opened;
    std::unique_ptr<QIODevice> held;
    int openError = 0;
    QIODevice *device = openFontFile(path, opened, held, &openError);
    if (!device) {
        saveUnreadableSFNT(path, otfExtension ? QVFontType::OpenType : QVFontType::TrueType, version,
            QVDefect::withDetail(QVDefect::FileError, QString::fromLocal8Bit(std::strerror(openError))));
        return qint32(QFileDevice::OpenError);
    }
    QIODevice &file = *device;

    SFNTFile sfnt(file);
    const QString badTable = QString::fromUtf8(QVDefect::BadTableData);
    QVByteReader header(sfnt.read(0, TTC::kFirstOffset));
    const auto tag = header.bytes(4);
    if (!tag || *tag != QByteArrayView("ttcf")) {
        saveUnreadableSFNT(path, QVFontType::TrueType, version, badTable);
        return 1;
    }
    header.seek(TTC::kMajorVersion);
    header.u16();
    header.u16();
    const auto memberCount = header.u32();
    if (!header.ok() || *memberCount == 0 || *memberCount > 999) {
        saveUnreadableSFNT(path, QVFontType::TrueType, version, badTable);
        return 1;
    }

    QList<qint64> offsets;
    offsets.reserve(qsizetype(*memberCount));
    QVByteReader offsetList(sfnt.read(TTC::kFirstOffset, TTC::kOffsetSize * qint64(*memberCount)));
    for (quint32 i = 0; i < *memberCount; ++i) {
        const auto offset = offsetList.u32();
        offsets.append(offset ? qint64(*offset) : -1);
    }

    // A member listed again at the same offset is the same face, and members
    // sharing a naming table have the same names: each is read once.
    struct Member {
        SFNTNames names;
        bool damaged = false;
        int fontType = QVFontType::TrueType;
    };
    struct NamingTable {
        SFNTNames names;
        bool sound = false;
    };
    QHash<qint64, Member> read;
    QHash<quint32, NamingTable> namingTables;
    qint32 result = 0;
    for (const qint64 offset : std::as_const(offsets)) {
        auto known = read.constFind(offset);
        if (known == read.cend()) {
            Member member;
            member.damaged = offset < 0;
            if (!member.damaged) {
                const QByteArrayView directory = sfnt.directory(offset);
                const auto memberTag = QVByteReader(directory).bytes(4);
                if (memberTag && *memberTag == QByteArrayView("OTTO"))
                    member.fontType = QVFontType::OpenType;
                const auto nameOffset = memberTag ? namingTableOffset(directory) : std::nullopt;
                member.damaged = !nameOffset;
                if (nameOffset && *nameOffset != 0) {
                    auto table = namingTables.constFind(*nameOffset);
                    if (table == namingTables.cend()) {
                        NamingTable names;
                        names.sound = readNamingTable(sfnt, *nameOffset, true, names.names);
                        table = namingTables.insert(*nameOffset, names);
                    }
                    member.names = table->names;
                    member.damaged = !table->sound;
                }
            }
            known = read.insert(offset, member);
        }
        const bool damaged = known->damaged;
        saveSFNTStatus(path, known->fontType, version, known->names, damaged);
        if (damaged)
            result = 1;
    }
    return result;
}

int QVFontDiagnose::checkOTFtable(QIODevice *file, const char tag[4])
{
    if (!file)
        return 1;
    // The file under examination has its directory read already.
    std::optional<SFNTFile> own;
    QByteArray ownDirectory;
    if (file != m_sfntFile || !m_sfnt) {
        own.emplace(*file);
        ownDirectory = own->directory(0).toByteArray();
    }
    SFNTFile &sfnt = own ? *own : *m_sfnt;
    const QVSFNTDirectory directory(own ? ownDirectory : m_sfntDirectory);
    const auto tableCount = directory.tableCount();
    if (!tableCount || *tableCount == 0)
        return 0;

    // The walk takes the first entry, then each further one that holds more
    // than its tag, checksum and offset; a first tag cut short is a defect.
    const qint64 walked = qMin<qint64>(*tableCount, qMax<qint64>(1, directory.entriesHolding(13)));
    const qint64 found = directory.find(tag, walked);
    if (found < 0)
        return directory.entriesHolding(4) < 1 ? 1 : 0;
    QVByteReader entry = directory.entry(found);
    entry.skip(SFNT::kEntryChecksum);
    const auto checksum = entry.u32();
    const auto offset = entry.u32();
    const auto length = entry.u32();
    if (!entry.ok() || *checksum == 0)
        return 1;
    if (qint64(*offset) >= sfnt.size)
        return 0;

    // The examinations look at the table headers only, so only those bytes
    // are read (never more than the file holds).
    constexpr quint32 kHeaderBytes = 64;
    QByteArray data;
    const bool examined = qstrncmp(tag, "cmap", 4) == 0 || qstrncmp(tag, "hhea", 4) == 0
        || qstrncmp(tag, "hmtx", 4) == 0 || qstrncmp(tag, "maxp", 4) == 0;
    if (examined)
        data = sfnt.read(*offset, qMin(*length, kHeaderBytes)).toByteArray();
    if (qstrncmp(tag, "cmap", 4) == 0)
        return examineCMAP(file, data);
    if (qstrncmp(tag, "hhea", 4) == 0)
        return examineHHEA(file, data);
    if (qstrncmp(tag, "hmtx", 4) == 0)
        return examineHMTX(file, data);
    if (qstrncmp(tag, "maxp", 4) == 0)
        return examineMAXP(file, data);
    return 0;
}

int QVFontDiagnose::examineCMAP(QIODevice *, const QByteArray &tableData)
{
    if (tableData.size() < 4)
        return 1;
    // An odd encoding ID or a subtable offset beyond the table is tolerated:
    // many working fonts carry both.
    QVByteReader header = QVByteReader(tableData).at(6);
    const auto encodingID = header.u16();
    header.skip(2);
    const auto subtableOffset = header.u16();
    if (header.ok() && (*encodingID >= 256 || *subtableOffset > tableData.size()))
        return 0;
    return 0;
}

int QVFontDiagnose::examineHHEA(QIODevice *, const QByteArray &)
{
    return 0;
}

int QVFontDiagnose::examineHMTX(QIODevice *, const QByteArray &)
{
    return 0;
}

int QVFontDiagnose::examineMAXP(QIODevice *, const QByteArray &)
{
    return 0;
}

// ---------------------------------------------------------------------------
// File-level checks

bool QVFontDiagnose::checkFontDoesActivate(const QString &path)
{
    // A font lying directly in one of the font folders is active already and
    // is never registered again. One in a subfolder is tested like any other:
    // if the font manager lists it, that answers without a registration.
    const QFileInfo info(path);
    const QString absolute = info.absoluteFilePath();
    const QString folder = info.absolutePath() + QLatin1Char('/');
    for (const QString &fontFolder : QVSettings::getSystemFontFolderPaths()) {
        const QString withSlash
            = fontFolder.endsWith(QLatin1Char('/')) ? fontFolder : fontFolder + QLatin1Char('/');
        if (folder == withSlash)
            return true;
    }
    if (QVFontActivation::isRegistered(absolute))
        return true;
    if (!QVFontActivation::isSupported(absolute))
        return false;
    const bool registered = QVFontActivation::registerForProcess(absolute);
    // Whatever the answer, nothing stays registered.
    QVFontActivation::unregisterProcessFonts();
    return registered;
}

qint32 QVFontDiagnose::getFileVersion(const QString &path)
{
    const QDateTime created = QVResouceFork::creationDate(path);
    if (!created.isValid())
        return 0;
    return qint32(created.secsTo(QDateTime::currentDateTimeUtc()) / 86400);
}

bool QVFontDiagnose::validateFinderFlags(const QString &path)
{
    constexpr quint16 kHasBundle = 0x2000;
    constexpr quint16 kInvisible = 0x4000;
    const quint16 flags = m_resFork->finderInfoFlags(path);
    const bool hidden = fileNameOf(path).startsWith(QLatin1Char('.')) || (flags & kInvisible) != 0;
    if (hidden)
        return true;
    const qint16 saved = m_resFork->getCurrentResource();
    const qint16 ref = m_resFork->openResourceFile(1, path);
    if (ref < 1)
        return false;
    const bool hasBundle = m_resFork->countResourceTypes(ref, qvFourCC("BNDL")) > 0;
    m_resFork->closeResourceFile(ref);
    if (saved > 0 && saved != ref)
        m_resFork->useResourceFile(saved);
    return hasBundle != ((flags & kHasBundle) != 0);
}

bool QVFontDiagnose::inFontsFolder(const QString &path)
{
    // The answer is false unless there is exactly one data folder, and even
    // then the relative paths listed never equal a full path. Kept as it is:
    // an empty suitcase is therefore always reported.
    const QStringList libraries = QStandardPaths::standardLocations(QStandardPaths::GenericDataLocation);
    if (libraries.size() != 1)
        return false;
    const QDir fonts(libraries.first() + QStringLiteral("/fonts"));
    if (!fonts.exists())
        return false;
    QDirIterator it(
        fonts.path(), QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        if (fonts.relativeFilePath(it.next()) == path)
            return true;
    }
    return false;
}

QString QVFontDiagnose::getVersionFromString(const QString &string)
{
    QString result = string;
    result.remove(QLatin1Char('.'));
    result.remove(QLatin1Char(' '));
    return result;
}

// ---------------------------------------------------------------------------
// PostScript names

QString QVFontDiagnose::get533postScriptName(const QString &postScriptName)
{
    QString name = postScriptName;
    // The prefix is compared on three characters against four, so it never
    // matches and no prefix is removed. Users' files were named this way.
    if (name.size() >= 3 && name.left(3) == QLatin1String("ITC-"))
        name = name.mid(4);
    name.remove(QLatin1Char('_'));
    name.remove(QLatin1Char('-'));

    QString result;
    int word = -1;
    int kept = 0;
    for (qsizetype i = 0; i < name.size(); ++i) {
        const QChar c = name.at(i);
        if (i == 0 || (c >= QLatin1Char('A') && c <= QLatin1Char('Z'))) {
            ++word;
            kept = 0;
        }
        if (kept < (word == 0 ? 5 : 3)) {
            result.append(c);
            ++kept;
        }
    }
    return result.isEmpty() ? name : result;
}

bool QVFontDiagnose::isMultipleMaster(const QString &fileName)
{
    return fileName.contains(QLatin1String("MM"));
}

bool QVFontDiagnose::hasMultipleMasterNameError(const QString &)
{
    return false;
}

QByteArray QVFontDiagnose::singleByteName(const QByteArray &raw) const
{
    unsigned char single[kMaxNameBytes + 1];
    const auto length = qint32(qMin<qsizetype>(raw.size(), kMaxNameBytes));
    m_memoryHandler->doubleToSingleConversion(reinterpret_cast<const unsigned char *>(raw.constData()),
        length, single, qint32(sizeof single), length);
    return QByteArray(reinterpret_cast<const char *>(single));
}

QByteArray QVFontDiagnose::findPostScriptValue(const QByteArray &text, const char *key, bool *found)
{
    if (found)
        *found = false;
    // Patterns in this order, each with the character that ends its value.
    const QByteArray k(key);
    const struct {
        QByteArray pattern;
        char end;
    } patterns[] = { { k + " /", ' ' }, { k + "(", ')' }, { k + " (", ')' }, { k + "/", ' ' } };
    for (const auto &p : patterns) {
        const qsizetype at = text.indexOf(p.pattern, 2);
        if (at < 0)
            continue;
        if (found)
            *found = true;
        const qsizetype start = at + p.pattern.size();
        qsizetype end = text.indexOf(p.end, start);
        if (end < 0)
            end = text.size();
        return text.mid(start, qMin<qsizetype>(end - start, kMaxNameBytes));
    }
    return QByteArray();
}

QString QVFontDiagnose::getType3PSname(const QString &path)
{
    // A Type 3 program is text of some kilobytes; a file far larger than any
    // font program is not read into memory.
    constexpr qint64 kMaxProgramSize = 64 * 1024 * 1024;
    QFile file;
    if (!QVFileSystem::openForReading(file, path) || file.size() > kMaxProgramSize)
        return QString();
    return QString::fromUtf8(findPostScriptValue(file.readAll(), "/FontName"));
}

// ---------------------------------------------------------------------------
// Foundry names

void QVFontDiagnose::loadFoundryNames()
{
    foundryArray.clear();
    QFile file(QStringLiteral(":/quorvel/foundries.json"));
    if (!file.open(QIODevice::ReadOnly))
        return;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll());
    for (const QJsonValue &value : document.object().value(QStringLiteral("foundries")).toArray()) {
        if (value.isString())
            foundryArray.append(value.toString());
    }
}

QString QVFontDiagnose::matchFoundryName(const QString &text) const
{
    // No foundry name is found in nothing (and names are often empty).
    if (text.isEmpty())
        return QStringLiteral("Generic");
    const auto startOf
        = [](QChar first, QChar second) { return (quint32(first.unicode()) << 16) | second.unicode(); };
    if (m_foundriesLowerSource != foundryArray || m_foundriesLower.size() != foundryArray.size()) {
        m_foundriesLowerSource = foundryArray;
        m_foundriesLower.clear();
        m_foundriesByStart.clear();
        for (const QString &foundry : foundryArray)
            m_foundriesLower.append(foundry.toLower());
        for (qsizetype i = 0; i < m_foundriesLower.size(); ++i) {
            if (m_foundriesLower.at(i).size() >= 2)
                m_foundriesByStart[startOf(m_foundriesLower.at(i).at(0), m_foundriesLower.at(i).at(1))]
                    .append(i);
        }
    }
    // The first foundry of the list that the text contains wins.
    const QString lower = text.toLower();
    qsizetype best = m_foundriesLower.size();
    for (qsizetype i = 0; i < m_foundriesLower.size(); ++i) {
        if (m_foundriesLower.at(i).size() == 1 && lower.contains(m_foundriesLower.at(i))) {
            best = i;
            break;
        }
    }
    for (qsizetype at = 0; at + 1 < lower.size(); ++at) {
        const auto bucket = m_foundriesByStart.constFind(startOf(lower.at(at), lower.at(at + 1)));
        if (bucket == m_foundriesByStart.cend())
            continue;
        for (const qsizetype i : *bucket) {
            if (i < best && QStringView(lower).sliced(at).startsWith(m_foundriesLower.at(i)))
                best = i;
        }
    }
    return best < m_foundriesLower.size() ? foundryArray.at(best) : QStringLiteral("Generic");
}
