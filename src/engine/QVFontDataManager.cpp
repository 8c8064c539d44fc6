#include "engine/QVFontDataManager.h"

#include "engine/QVFontExaminer.h"
#include "engine/QVFontExaminerFactory.h"
#include "settings/QVSettings.h"

#include <QFileInfo>

QVFontDataManager::QVFontDataManager(std::unique_ptr<QVFontExaminer> examiner)
    : m_settings(std::make_unique<QVSettings>())
    , m_examiner(examiner ? std::move(examiner) : createDefaultFontExaminer())
{
    readSettings();
}

void QVFontDataManager::readSettings()
{
    m_checkFontActivation = m_settings->checkFontActivation();
    m_examiner->setDoLogging(m_settings->doLogging());
}

QVFontDataManager::~QVFontDataManager() = default;

QVFontFilePtr QVFontDataManager::addFontFileItem(const QString &path)
{
    auto fontFile = std::make_shared<QVFontFile>(path);
    fontFile->fontFileType = m_examiner->hasResourceFork(path) ? 0 : 1;
    const QString quoted = m_examiner->quotedTypeCode(path);
    fontFile->macTypeCode = quoted.size() >= 5 ? quoted.mid(1, 4) : QString("");
    fontFile->fontStatusArray = getFontsInFontFile(fontFile);
    fontFileItems.append(fontFile);
    if (fontFileAdded)
        fontFileAdded(fontFile);
    return fontFile;
}

QList<QVStatusPtr> QVFontDataManager::getFontsInFontFile(const QVFontFilePtr &fontFile)
{
    m_examiner->initialize();
    m_examiner->setDoActivation(m_checkFontActivation);
    m_examiner->examineFont(fontFile->URL);
    const QList<QVStatusPtr> statuses = m_examiner->fontStatusArray();
    totalFonts += quint32(statuses.size());
    for (const QVStatusPtr &status : statuses) {
        status->index = ++m_fontIndex;
        if (!status->fontErrors.isEmpty())
            foundProblemFonts = true;
    }
    m_examiner->finalize();
    return statuses;
}

void QVFontDataManager::removeFontFileItem(const QVFontFilePtr &fontFile)
{
    if (!fontFile)
        return;
    totalFonts -= quint32(fontFile->fontStatusArray.size());
    fontFileItems.removeAll(fontFile);
}

void QVFontDataManager::removeAllFontFileItems()
{
    fontFileItems.clear();
    unreadableFolders.clear();
    totalFonts = 0;
    foundProblemFonts = false;
    m_fontIndex = -1;
    // A scan uses the settings as they are when it starts.
    readSettings();
}

void QVFontDataManager::setAllFontItems(const QList<QVFontFilePtr> &items)
{
    removeAllFontFileItems();
    fontFileItems = items;
    totalFonts = quint32(items.size());
}

QStringList QVFontDataManager::unreadablePaths() const
{
    QStringList paths;
    for (const QVFontFilePtr &file : fontFileItems) {
        for (const QVStatusPtr &status : std::as_const(file->fontStatusArray)) {
            if (status->isUnreadable()) {
                paths.append(file->URL);
                break;
            }
        }
    }
    return paths + unreadableFolders;
}

QSet<QString> QVFontDataManager::foldersHidingFonts() const
{
    QSet<QString> folders;
    for (const QString &folder : unreadableFolders) {
        folders.insert(folder);
        if (QFileInfo(folder).fileName() == QLatin1String(".AppleDouble"))
            folders.insert(QFileInfo(folder).path());
    }
    for (const QString &path : unreadablePaths()) {
        if (!unreadableFolders.contains(path))
            folders.insert(QFileInfo(path).path());
    }
    return folders;
}
