// A source folder of real fonts, scanned and examined as a scan would, and a
// library folder to organize them into.
#pragma once

#include "diagnosis/QVDiagnosisFixtures.h"
#include "engine/QVResourceManager.h"
#include "organizer/QVFontOrganizer.h"
#include "settings/QVSettings.h"
#include "store/QVFileManager.h"
#include "store/QVQuarantineStore.h"
#include "store/QVSuitcaseSurgery.h"
#include "support/QVTestHome.h"

#include <QDir>
#include <QDirIterator>
#include <QMap>
#include <memory>

namespace qvorg
{

using namespace QVFixtures;
inline const QString kNimbusRegular
    = QStringLiteral("/usr/share/fonts/opentype/urw-base35/NimbusSans-Regular.otf");

class OrganizerTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        source = home.path() + QStringLiteral("/source");
        library = home.path() + QStringLiteral("/Library Fonts");
        work = home.path() + QStringLiteral("/work");
        QDir().mkpath(source);
        QDir().mkpath(library);
        settings.setCopyFontFiles(true);
        setLevels(false, false, false);
        setNaming(false, true);
    }
    void TearDown() override { QVResourceManager::closeAll(); }

    void setLevels(bool foundry, bool letter, bool family)
    {
        settings.setCreateFoundryFolders(foundry);
        settings.setCreateAlphabetFolders(letter);
        settings.setCreateFamilyFolders(family);
    }
    void setNaming(bool postScript, bool family)
    {
        settings.setUsePostscriptNameForFonts(postScript);
        settings.setUseFamilyNameForFonts(family);
    }

    // Examines every font file below the source, in the order a scan meets them.
    void scan()
    {
        organizer.reset();
        surgery.reset();
        store.reset();
        dataMgr = std::make_unique<QVFontDataManager>();
        QVFileManager files(dataMgr.get());
        for (const QString &path : filesBelow(source)) {
            if (files.isFontFile(source + QLatin1Char('/') + path))
                dataMgr->addFontFileItem(source + QLatin1Char('/') + path);
        }
        store = std::make_unique<QVQuarantineStore>(dataMgr.get());
        surgery = std::make_unique<QVSuitcaseSurgery>(store.get());
        organizer = std::make_unique<QVFontOrganizer>(dataMgr.get(), surgery.get(), &settings);
        organizer->setLibraryURL(library);
    }
    // The walk, on this thread.
    void organize()
    {
        scan();
        organizer->createLibrary();
    }

    QVFontFilePtr fileOf(const QString &fileName) const
    {
        for (const QVFontFilePtr &file : std::as_const(dataMgr->fontFileItems)) {
            if (QFileInfo(file->URL).fileName() == fileName)
                return file;
        }
        return nullptr;
    }
    // The file's first font, or its font of that size.
    QVStatusPtr statusOf(const QString &fileName, int fontSize = -1) const
    {
        const QVFontFilePtr file = fileOf(fileName);
        for (const QVStatusPtr &status : file ? file->fontStatusArray : QList<QVStatusPtr>()) {
            if (fontSize < 0 || status->fontSize == fontSize)
                return status;
        }
        return nullptr;
    }

    // Files below a folder (sidecars left out), as paths relative to it.
    static QStringList filesBelow(const QString &folder)
    {
        QStringList files;
        QDirIterator it(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString path = it.next();
            if (!QVForkStorage::isMetadataStore(path))
                files << QDir(folder).relativeFilePath(path);
        }
        files.sort();
        return files;
    }
    // Data, fork and Finder info hashes of every file below a folder, by name.
    static QMap<QString, QString> hashesBelow(const QString &folder)
    {
        QMap<QString, QString> hashes;
        for (const QString &file : filesBelow(folder))
            hashes.insert(file, QVFixtures::forkHashes(folder + QLatin1Char('/') + file));
        return hashes;
    }

    // Strikes made by otf2bdf and ufond in a suitcase (fork in a sidecar).
    QString makeSuitcase(const QString &path, const QList<QVFixtures::Strike> &strikes,
        const QByteArray &postScriptName = QByteArray())
    {
        QByteArray fork
            = QVFixtures::ufondFork(work + QLatin1Char('/') + QFileInfo(path).fileName(), strikes);
        EXPECT_FALSE(fork.isEmpty()) << "ufond made nothing for " << qPrintable(path);
        if (!postScriptName.isEmpty())
            fork = QVFixtures::withPostScriptName(fork, postScriptName);
        EXPECT_TRUE(QVFixtures::makeSuitcase(path, fork));
        return path;
    }
    // Panic Sans as a suitcase with its fork in an AppleDouble sidecar.
    static QString makePanicSuitcase(const QString &path)
    {
        EXPECT_TRUE(QVFixtures::makeSuitcase(path, QVFixtures::readFile(kPanicSansDfont)));
        return path;
    }

    QVTestHome home;
    QVSettings settings;
    QString source, library, work;
    std::unique_ptr<QVFontDataManager> dataMgr;
    std::unique_ptr<QVQuarantineStore> store;
    std::unique_ptr<QVSuitcaseSurgery> surgery;
    std::unique_ptr<QVFontOrganizer> organizer;
};

} // namespace qvorg
