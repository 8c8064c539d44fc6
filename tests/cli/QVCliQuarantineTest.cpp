// quorvel-cli quarantine, run as a separate process over a quarantine made here.
#include "platform/QVFileLock.h"
#include "platform/QVForkStorage.h"
#include "store/QVPropertyList.h"
#include "store/QVQuarantineStore.h"
#include "store/QVStoreFixtures.h"
#include "support/QVCliRunner.h"
#include "support/QVTestHome.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <gtest/gtest.h>

namespace
{

QVCliRun quarantine(
    const QVTestHome &home, const QStringList &arguments, const QByteArray &input = QByteArray())
{
    return runCli(home, QStringList { "quarantine" } + arguments, input);
}

void quarantineFiles(const QVTestHome &home, const QStringList &names)
{
    QVQuarantineStore store;
    for (const QString &name : names) {
        const QString path = home.writeFile("fonts/" + name, name.toUtf8());
        home.writeFile("fonts/._" + name, "fork of " + name.toUtf8());
        auto file = std::make_shared<QVFontFile>(path);
        auto status = std::make_shared<QVStatus>();
        status->fontURL = path;
        status->fontName = QFileInfo(name).completeBaseName();
        status->fontType = 5;
        file->fontStatusArray.append(status);
        ASSERT_TRUE(store.moveFileToQuarantine(file, status, "· Bad Table Data").isNull());
    }
    ASSERT_TRUE(store.commitQuarantine().isNull());
}

} // namespace

TEST(QuorvelCliQuarantine, ListNumbersRowsByFontName)
{
    QVTestHome home;
    EXPECT_EQ(quarantine(home, { "list" }).out, "The quarantine is empty.\n");
    quarantineFiles(home, { "Zeta.otf", "Alpha.otf" });
    const QVCliRun run = quarantine(home, { "list", "--json" });
    ASSERT_EQ(run.exitCode, 0) << qPrintable(run.err);
    const QJsonArray rows = QJsonDocument::fromJson(run.out.toUtf8()).array();
    ASSERT_EQ(rows.size(), 2);
    EXPECT_EQ(rows.at(0)["number"].toInt(), 1);
    EXPECT_EQ(rows.at(0)["fontName"].toString(), "Alpha");
    EXPECT_EQ(rows.at(1)["quarantineFileName"].toString(), "Zeta.otf");
    EXPECT_EQ(rows.at(1)["reason"].toString(), "· Bad Table Data");
    const QVCliRun text = quarantine(home, { "list" });
    EXPECT_TRUE(text.out.startsWith("   1  Alpha  (Alpha.otf)\n")) << qPrintable(text.out);
    EXPECT_EQ(quarantine(home, { "list", "extra" }).exitCode, 2);
}

TEST(QuorvelCliQuarantine, RestoreToOriginalOrChosenFolder)
{
    QVTestHome home;
    quarantineFiles(home, { "Alpha.otf", "Beta.otf", "Gamma.otf" });
    QVCliRun run = quarantine(home, { "restore", "2" });
    ASSERT_EQ(run.exitCode, 0) << qPrintable(run.err);
    EXPECT_EQ(run.out, "Restored 1 of 1 font.\n");
    EXPECT_TRUE(QFileInfo::exists(home.path() + "/fonts/Beta.otf"));
    EXPECT_TRUE(QFileInfo::exists(home.path() + "/fonts/._Beta.otf"));

    const QString elsewhere = home.path() + "/elsewhere";
    QDir().mkpath(elsewhere);
    run = quarantine(home, { "restore", "--to", elsewhere, "1", "2" });
    ASSERT_EQ(run.exitCode, 0) << qPrintable(run.err);
    EXPECT_TRUE(QFileInfo::exists(elsewhere + "/Alpha.otf"));
    EXPECT_TRUE(QFileInfo::exists(elsewhere + "/._Gamma.otf"));
    EXPECT_EQ(quarantine(home, { "list" }).out, "The quarantine is empty.\n");

    EXPECT_EQ(quarantine(home, { "restore", "1" }).exitCode, 2);
    EXPECT_EQ(quarantine(home, { "restore", "--to", home.path() + "/none", "1" }).exitCode, 2);
}

TEST(QuorvelCliQuarantine, RemoveAsksFirstUnlessTold)
{
    QVTestHome home;
    quarantineFiles(home, { "Alpha.otf", "Beta.otf" });
    const QString folder = home.dataHome() + "/Quorvel/Quarantine";
    QVCliRun run = quarantine(home, { "remove", "1" }, "n\n");
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_TRUE(run.err.contains("Nothing was removed.")) << qPrintable(run.err);
    EXPECT_TRUE(QFileInfo::exists(folder + "/Alpha.otf"));

    run = quarantine(home, { "remove", "1" }, "y\n");
    ASSERT_EQ(run.exitCode, 0) << qPrintable(run.err);
    EXPECT_FALSE(QFileInfo::exists(folder + "/Alpha.otf"));
    EXPECT_FALSE(QFileInfo::exists(folder + "/._Alpha.otf"));

    run = quarantine(home, { "remove", "--yes", "1" });
    ASSERT_EQ(run.exitCode, 0) << qPrintable(run.err);
    EXPECT_EQ(run.out, "Removed 1 of 1 font.\n");
    EXPECT_FALSE(QFileInfo::exists(folder + "/Beta.otf"));
    EXPECT_EQ(quarantine(home, { "list" }).out, "The quarantine is empty.\n");
    EXPECT_EQ(quarantine(home, { "remove", "--yes", "1" }).exitCode, 2);
}

TEST(QuorvelCliQuarantine, DiagnoseResolveReportsItsResolution)
{
    QVTestHome home;
    const QString fonts = home.path() + "/Fonts";
    QDir().mkpath(fonts);
    QFile::copy("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf", fonts + "/DejaVuSans.ttf");
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("HOME", home.path());
    env.insert("XDG_CONFIG_HOME", home.configHome());
    env.insert("XDG_DATA_HOME", home.dataHome());
    process.setProcessEnvironment(env);
    process.start(QStringLiteral(QV_CLI_PATH), { "diagnose", "--json", "--resolve", fonts });
    ASSERT_TRUE(process.waitForFinished(120000));
    const QJsonObject object = QJsonDocument::fromJson(process.readAllStandardOutput()).object();
    ASSERT_TRUE(object.contains("resolution"))
        << qPrintable(QString::fromUtf8(process.readAllStandardError()));
    const QJsonObject resolution = object["resolution"].toObject();
    // A healthy font: nothing to repair, nothing moved.
    EXPECT_EQ(resolution["repaired"].toArray().size(), 0);
    EXPECT_EQ(resolution["quarantined"].toArray().size(), 0);
    EXPECT_TRUE(QFileInfo::exists(fonts + "/DejaVuSans.ttf"));
}

TEST(QuorvelCliQuarantine, AFontOfATypedDfontGoesToTheQuarantineAndBack)
{
    QVTestHome home;
    // Two typed copies of one data-fork suitcase: the plain face of one is a duplicate.
    for (const char *folder : { "a", "b" }) {
        const QString path = home.path() + "/Fonts/" + folder + "/Panic.dfont";
        QDir().mkpath(QFileInfo(path).absolutePath());
        ASSERT_TRUE(QFile::copy("/usr/share/ruby-prawn/fonts/Panic+Sans.dfont", path));
        ASSERT_EQ(QVForkStorage::writeFinderInfo(path, QByteArray("FFILDMOV").leftJustified(32, '\0')), 0);
    }
    const QString fonts = home.path() + "/Fonts";
    const QVCliRun resolved = runCli(home, { "diagnose", "--resolve", fonts });
    EXPECT_EQ(resolved.exitCode, 1) << qPrintable(resolved.err);
    EXPECT_TRUE(resolved.out.contains("Quarantined: 1\n  Panic Sans")) << qPrintable(resolved.out);
    EXPECT_FALSE(resolved.out.contains("Errors:")) << qPrintable(resolved.out);
    const QVCliRun listed = quarantine(home, { "list" });
    EXPECT_TRUE(listed.out.startsWith("   1  Panic Sans  (Panic.dfont)\n")) << qPrintable(listed.out);
    // The suitcase kept its other three faces and comes back whole.
    EXPECT_TRUE(runCli(home, { "scan", fonts }).out.endsWith("7 fonts in 2 files, no problems found\n"));
    const QVCliRun restored = quarantine(home, { "restore", "1" });
    EXPECT_EQ(restored.exitCode, 0) << qPrintable(restored.err);
    const QVCliRun rescanned = runCli(home, { "scan", fonts });
    EXPECT_TRUE(rescanned.out.endsWith("8 fonts in 2 files, no problems found\n"))
        << qPrintable(rescanned.out);
}

TEST(QuorvelCliQuarantine, ASuitcaseSplitByAResolutionComesBackWholeInEitherOrder)
{
    for (const QStringList &order : { QStringList { "1", "2" }, QStringList { "2", "1" } }) {
        SCOPED_TRACE(order.join(' ').toStdString());
        QVTestHome home;
        const QString path = QVStoreFixtures::timesSuitcase(home.path() + "/Fonts", home.path() + "/work");
        ASSERT_FALSE(path.isEmpty());
        const QString sidecar = QVForkStorage::sidecarPath(path);
        auto state = [&](const QString &name) -> QString {
            QByteArray info;
            QVForkStorage::readFinderInfo(path, &info);
            // Every resource as it was, in whatever order the map lists them.
            QStringList resources = QVStoreFixtures::fontToolsResources(
                QVStoreFixtures::extractFork(path, home.path() + "/" + name))
                                        .split('\n');
            resources.sort();
            return resources.join('\n') + info.toHex() + " "
                + QFileInfo(path).lastModified().toString(Qt::ISODate) + " "
                + QFileInfo(sidecar).lastModified().toString(Qt::ISODate);
        };
        const QString before = state("before");
        ASSERT_TRUE(before.contains("FONT")) << qPrintable(before);

        QVCliRun run = runCli(home, { "diagnose", "--resolve", home.path() + "/Fonts" });
        ASSERT_EQ(run.exitCode, 1) << qPrintable(run.err);
        ASSERT_FALSE(QFileInfo::exists(path)) << qPrintable(run.out);
        const QJsonArray rows
            = QJsonDocument::fromJson(quarantine(home, { "list", "--json" }).out.toUtf8()).array();
        ASSERT_EQ(rows.size(), 2);

        run = quarantine(home, QStringList { "restore" } + order);
        EXPECT_EQ(run.exitCode, 0) << qPrintable(run.err);
        EXPECT_EQ(run.out, "Restored 2 of 2 fonts.\n");
        EXPECT_EQ(state("after").toStdString(), before.toStdString());
        EXPECT_EQ(quarantine(home, { "list" }).out, "The quarantine is empty.\n");
    }
}

TEST(QuorvelCliQuarantine, ResolutionsSharingADataFolderTakeTurnsAndLoseNoRecord)
{
    QVTestHome home;
    const int count = 150;
    for (const char *folder : { "A", "B" }) {
        for (int i = 0; i < count; ++i)
            home.writeFile(QStringLiteral("%1/Broken%2.otf").arg(QLatin1String(folder)).arg(i), QByteArray());
    }
    QProcess first, second;
    for (QProcess *process : { &first, &second }) {
        process->setProcessEnvironment(cliEnvironment(home));
        process->start(QStringLiteral(QV_CLI_PATH),
            { "diagnose", "--resolve", home.path() + (process == &first ? "/A" : "/B") });
    }
    for (QProcess *process : { &first, &second }) {
        ASSERT_TRUE(process->waitForFinished(120000));
        EXPECT_EQ(process->exitCode(), 1) << process->readAllStandardError().constData();
    }
    // Every file of the quarantine has its own record, and every record its file.
    const QString folder = home.dataHome() + "/Quorvel/Quarantine";
    QStringList recorded;
    for (const QVariant &record : QVPropertyList::readFile(folder + "/dataSource").toList()) {
        const QVariantMap map = record.toMap();
        EXPECT_FALSE(QFileInfo::exists(map.value("originalFilePath").toString()));
        recorded << map.value("quarantineFileName").toString();
    }
    recorded.sort();
    EXPECT_EQ(recorded.size(), 2 * count);
    EXPECT_EQ(recorded, QDir(folder).entryList({ "Broken*" }, QDir::Files, QDir::Name));
}

TEST(QuorvelCliQuarantine, ACommandWaitsForTheRunHoldingTheDataFolderAndSaysSo)
{
    QVTestHome home;
    QVFileLock other(home.dataHome() + "/Quorvel/.lock");
    QDir().mkpath(home.dataHome() + "/Quorvel");
    ASSERT_TRUE(other.lock(0));
    QProcess list;
    list.setProcessEnvironment(cliEnvironment(home));
    list.start(QStringLiteral(QV_CLI_PATH), { "quarantine", "list" });
    list.setReadChannel(QProcess::StandardError);
    ASSERT_TRUE(list.waitForReadyRead(30000));
    EXPECT_TRUE(
        list.readAllStandardError().contains(QStringLiteral("waiting for another Quorvel run (process %1)")
                                                 .arg(QCoreApplication::applicationPid())
                                                 .toUtf8()));
    EXPECT_EQ(list.state(), QProcess::Running);
    other.unlock();
    ASSERT_TRUE(list.waitForFinished(30000));
    EXPECT_EQ(list.exitCode(), 0);
    EXPECT_EQ(list.readAllStandardOutput(), "The quarantine is empty.\n");
}
