// The list of font files of the current scan. Each file is examined as it is
// added, and every font in it gets a running index across the whole scan.
#pragma once

#include "engine/QVFontFile.h"

#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>
#include <functional>
#include <memory>

class QVFontExaminer;
class QVSettings;

class QVFontDataManager
{
public:
    // With no examiner given, the real font examiner is used.
    explicit QVFontDataManager(std::unique_ptr<QVFontExaminer> examiner = nullptr);
    ~QVFontDataManager();

    QVFontFilePtr addFontFileItem(const QString &path);
    QList<QVStatusPtr> getFontsInFontFile(const QVFontFilePtr &fontFile);
    void removeFontFileItem(const QVFontFilePtr &fontFile);
    void removeAllFontFileItems();
    // Takes file records restored from the scan cache. totalFonts becomes the
    // number of files: the restored records carry no statuses yet.
    void setAllFontItems(const QList<QVFontFilePtr> &items);

    // Files whose fonts could not be read (they hold one unreadable status
    // each) and then the folders a scan could not enter, in the order met.
    QStringList unreadablePaths() const;
    // The folders that may hold fonts nobody could see: those of unreadable
    // files, unreadable folders, and the folder whose netatalk metadata folder
    // cannot be read. A font there may have a counterpart that is not listed.
    QSet<QString> foldersHidingFonts() const;

    QList<QVFontFilePtr> fontFileItems;
    // Told of each file as it is added, on the thread that adds it (a scan's
    // worker), in the order of the walk.
    std::function<void(const QVFontFilePtr &)> fontFileAdded;
    QStringList unreadableFolders;
    quint32 totalFonts = 0;
    bool foundProblemFonts = false;

    QVSettings *settings() const { return m_settings.get(); }
    QVFontExaminer *examiner() const { return m_examiner.get(); }

private:
    std::unique_ptr<QVSettings> m_settings;
    std::unique_ptr<QVFontExaminer> m_examiner;
    qint32 m_fontIndex = -1;
    bool m_checkFontActivation = false;
    void readSettings();
};
