// Examines one font file at a time and leaves one status record per font in
// it, with every defect found. Defects are never failures: nothing here
// throws, and an unreadable file is still represented by a status.
#pragma once

#include "engine/QVFontExaminer.h"
#include "engine/QVResourceHandle.h"
#include "engine/QVStatus.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QHash>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>
#include <memory>
#include <optional>

class QFile;
class QIODevice;
class QVMemoryHandler;
class QVResouceFork;
class QVSettings;

class QVFontDiagnose final : public QVFontExaminer
{
public:
    QVFontDiagnose();
    ~QVFontDiagnose() override;
    QVFontDiagnose(const QVFontDiagnose &) = delete;
    QVFontDiagnose &operator=(const QVFontDiagnose &) = delete;

    // QVFontExaminer
    void initialize() override;
    void setDoActivation(bool activation) override { doActivation = activation; }
    void setDoLogging(bool logging) override { m_doLoggingSetting = logging; }
    void examineFont(const QString &path) override;
    QList<QVStatusPtr> fontStatusArray() const override { return m_fontStatusArray; }
    void finalize() override;
    bool hasResourceFork(const QString &path) override;
    QString quotedTypeCode(const QString &path) override;

    // Non-zero when the last examined file had a defect.
    qint32 examineResult() const { return m_result; }

    void saveCurrentStatus();
    QVStatusPtr getLastStatus() const;
    void logStatus(const QVStatus &status) const;

    // SFNT files and collections.
    qint32 examineOTF(const QString &path);
    qint32 examineTTC(const QString &path);
    // 1 when the table named by tag looks damaged, else 0.
    int checkOTFtable(QIODevice *file, const char tag[4]);
    int examineCMAP(QIODevice *file, const QByteArray &tableData);
    int examineHHEA(QIODevice *file, const QByteArray &tableData);
    int examineHMTX(QIODevice *file, const QByteArray &tableData);
    int examineMAXP(QIODevice *file, const QByteArray &tableData);

    // Suitcases.
    qint32 examineSuitcase(const QString &path);
    // Empty when the family's tables are sound, else the damaged part.
    QString checkFONDtables(const QVResourceHandle &fond, const QString &fontName);
    // True when the strike is damaged.
    bool checkNFNTtables(const QVResourceHandle &strike);
    bool checkExtraResources(const QString &path);
    int examineSFNT(const QVResourceHandle &sfnt);
    int qvlib_checkTTtableSum(const QVResourceHandle &sfnt, const char tag[4]);
    static QString styleName(int styleBits);

    // PostScript outline files.
    qint32 examinePSfont(const QString &path);
    QString getType1PSname(const QString &path);
    QString getType1PSversion(const QString &path);
    QString getType1FoundrytName(const QString &path);

    // PC Type 1 files: an outline (.pfb, .pfa, .t1) and a metrics file
    // (.afm, .pfm), one status each.
    qint32 examinePCType1(const QString &path);
    qint32 examineType1Metrics(const QString &path);

    // File-level checks.
    bool validateFinderFlags(const QString &path);
    bool checkFontDoesActivate(const QString &path);
    qint32 getFileVersion(const QString &path);
    bool inFontsFolder(const QString &path);
    static QString getVersionFromString(const QString &string);

    // PostScript names.
    static QString get533postScriptName(const QString &postScriptName);
    static bool isMultipleMaster(const QString &fileName);
    static bool hasMultipleMasterNameError(const QString &name);
    QString getType3PSname(const QString &path);

    // Foundry names.
    void loadFoundryNames();
    QString matchFoundryName(const QString &text) const;
    QString findSFNTFoundryName(const QVResourceHandle &sfnt);

    // The value after "/FontName" (or another key) in PostScript text, searched
    // from its third byte; empty when none. *found tells an empty value from
    // no match at all.
    static QByteArray findPostScriptValue(const QByteArray &text, const char *key, bool *found = nullptr);
    // Drops the zero bytes of a naming-table string (UTF-16 names below 256
    // become single bytes), at most 255 of them.
    QByteArray singleByteName(const QByteArray &raw) const;

    QVStatusPtr currentStatus;
    QList<QVStatusPtr> statusArray;
    QStringList foundryArray;

    bool doFinderFlags = true;
    bool doDiagnoseMM = false;
    bool doDiagnoseType1 = true;
    bool doDiagnoseType3 = true;
    bool doEmptySuitcase = true;
    bool doIgnoreStandardFonts = true;
    bool doTables = true;
    bool doActivation = true;
    bool doLogging = false;
    bool isInitialized = false;

    QVSettings *settings() const { return m_settings.get(); }
    QVResouceFork *qvResFork() const { return m_resFork.get(); }
    QVMemoryHandler *memoryHandler() const { return m_memoryHandler.get(); }

private:
    struct SFNTNames {
        QByteArray family, fullName, version, postScriptName;
        QString foundry = QStringLiteral("Generic");
    };
    struct SFNTFile;
    // The naming table's offset in a face's directory (offset table and
    // entries, as far as the file holds them): 0 when there is none, nothing
    // when the directory is cut short.
    static std::optional<quint32> namingTableOffset(QByteArrayView directory);
    // Reads the naming table at `table`. False on a short read, with the names
    // read before it kept. With firstWins, the first full name and PostScript
    // name found are kept (collection members).
    bool readNamingTable(SFNTFile &file, qint64 table, bool firstWins, SFNTNames &names);
    // The font file open for reading: through the scan's snapshot when there
    // is one, else opened into `file`. Null with *error set when it cannot be.
    static QIODevice *openFontFile(
        const QString &path, QFile &file, std::unique_ptr<QIODevice> &held, int *error);
    // One status for a file the user may not read: part is the file or the
    // companion that refused, error its errno.
    void saveUnreadableFile(const QString &path, const QString &part, int error);
    void saveUnreadableSFNT(const QString &path, int fontType, qint32 version, const QString &message);
    void saveSFNTStatus(
        const QString &path, int fontType, qint32 version, const SFNTNames &names, bool damaged);
    void markStatusesOfLastFile(const QString &message, bool nameFromFile);
    // The HFS type the examination is chosen by; a .dfont without one is a
    // data-fork suitcase.
    QByteArray hfsTypeCode(const QString &path);
    void saveWholeSuitcase(
        const QString &path, qint32 version, const QString &message, const QString &style, qint32 fontID);
    QByteArray postScriptValueInPOST(const QString &path, const char *key);
    // The whole file for a PC Type 1 examination; false with the status saved
    // when it cannot be read or is larger than any font program.
    bool readType1File(const QString &path, qint32 version, QByteArray &bytes);

    std::unique_ptr<QVSettings> m_settings;
    std::unique_ptr<QVResouceFork> m_resFork;
    std::shared_ptr<QVMemoryHandler> m_memoryHandler;
    // The SFNT file being examined and its directory, shared with its table
    // probes so that the directory is read once.
    QIODevice *m_sfntFile = nullptr;
    // Read once, not for every file: the settings file is read anew each time.
    bool m_doLoggingSetting = false;
    SFNTFile *m_sfnt = nullptr;
    QByteArray m_sfntDirectory;
    // foundryArray in lower case, made again whenever the list changes.
    mutable QStringList m_foundriesLowerSource;
    mutable QStringList m_foundriesLower;
    // Foundries by their first two characters, so that a name is looked at
    // once rather than once per foundry.
    mutable QHash<quint32, QList<qsizetype>> m_foundriesByStart;
    // Name texts already met, shared by the statuses that repeat them; the
    // set stops growing at a size no real collection reaches.
    QSet<QString> m_sharedTexts;
    static constexpr qsizetype kMaxSharedTexts = 1 << 16;
    QList<QVStatusPtr> m_fontStatusArray;
    qint32 m_result = 0;
};
