// The resource layer against real forks made by other tools (t1mac, ufond,
// ruby-prawn's .dfont), what it writes read back by fontTools, showfond and
// FreeType, and the fork format's bounds against damage.
#include "engine/QVMemoryHandler.h"
#include "engine/QVResouceFork.h"
#include "engine/QVResourceFile.h"
#include "engine/QVResourceManager.h"
#include "platform/QVAppleDouble.h"
#include "platform/QVExtendedAttributes.h"
#include "support/QVFixtures.h"
#include "support/QVTestHome.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDataStream>
#include <QProcess>
#include <QRegularExpression>
#include <QtConcurrent>
#include <cstring>
#include <gtest/gtest.h>
#include <unistd.h>

using namespace QVFixtures;

namespace
{

const quint32 kFOND = qvFourCC("FOND"), kNFNT = qvFourCC("NFNT"), kSfnt = qvFourCC("sfnt");

QVResourceFile::Entry entry(
    quint32 type, qint16 id, const QByteArray &data, const QByteArray &name = {}, quint8 attributes = 0)
{
    QVResourceFile::Entry e;
    e.type = type;
    e.id = id;
    e.data = data;
    e.name = name;
    e.hasName = !name.isEmpty();
    e.attributes = attributes;
    return e;
}

QByteArray serialized(const QList<QVResourceFile::Entry> &entries)
{
    QVResourceFile file;
    file.entries = entries;
    qint16 error = 0;
    const QByteArray bytes = file.serialize(&error);
    EXPECT_EQ(error, 0);
    return bytes;
}

quint32 u32(const QByteArray &b, qsizetype at)
{
    return quint32(quint8(b[at])) << 24 | quint32(quint8(b[at + 1])) << 16 | quint32(quint8(b[at + 2])) << 8
        | quint8(b[at + 3]);
}

class QVResourceForkTest : public ::testing::Test
{
protected:
    void TearDown() override { QVResourceManager::closeAll(); }

    QString path(const QString &name) const { return home.path() + QLatin1Char('/') + name; }
    // The committed ufond suitcase as a bare fork file.
    QString ufondRaw()
    {
        const QString raw = path(QStringLiteral("ufond.rsrc"));
        EXPECT_TRUE(writeFile(raw, readFile(testDataPath(QStringLiteral("fonts/DejaVuSans-suitcase.rsrc")))));
        return raw;
    }
    // A data file whose fork (from a bare fork file) lives in the given place.
    QString install(const QString &raw, const QString &name, QVForkStorage::Place place)
    {
        const QString file = path(name);
        EXPECT_TRUE(writeFile(file, "data fork"));
        EXPECT_EQ(QVForkStorage::writeResourceFork(file, readFile(raw), place), 0);
        return file;
    }
    // Our reading of an open file in fontTools' form.
    QStringList listing(qint16 refNum)
    {
        QStringList lines;
        fork.useResourceFile(refNum);
        const int typeCount = QVResourceManager::count1Types();
        for (int t = 1; t <= typeCount; ++t) {
            fork.useResourceFile(refNum);
            const quint32 type = QVResourceManager::get1IndType(t);
            for (const QVResourceHandle &h : fork.getResourcesOfType(type, refNum))
                lines << QStringLiteral("%1 %2 %3 %4 %5 %6")
                             .arg(qvFourCCString(type))
                             .arg(h->id)
                             .arg(h->data.size())
                             .arg(int(h->attributes))
                             .arg(QString::fromLatin1(
                                      QCryptographicHash::hash(h->data, QCryptographicHash::Sha1).toHex()),
                                 h->hasName ? QVResouceFork::fromMacRoman(h->name) : QStringLiteral("null"));
        }
        lines.sort();
        return lines;
    }
    QStringList listing(const QString &file)
    {
        const qint16 ref = fork.openResourceFile(QVPermission::Read, file);
        EXPECT_GE(ref, 1) << fork.resourceError();
        const QStringList lines = ref < 1 ? QStringList() : listing(ref);
        fork.closeResourceFile(ref);
        return lines;
    }
    // Copies every resource of one file into a new one of the given kind.
    void copyAll(const QString &from, const QString &to, quint32 creator, quint32 type)
    {
        ASSERT_EQ(fork.createNewResourceFileAtPath(to, creator, type), 0);
        const qint16 src = fork.openResourceFile(QVPermission::Read, from);
        const qint16 dst = fork.openResourceFile(QVPermission::ReadWrite, to);
        ASSERT_GE(src, 1);
        ASSERT_GE(dst, 1);
        fork.useResourceFile(src);
        const int typeCount = QVResourceManager::count1Types();
        for (int t = 1; t <= typeCount; ++t) {
            fork.useResourceFile(src);
            const quint32 resType = QVResourceManager::get1IndType(t);
            for (const QVResourceHandle &h : fork.getResourcesOfType(resType, src)) {
                fork.useResourceFile(dst);
                EXPECT_EQ(fork.addResource(h, resType, h->id,
                              h->hasName ? QVResouceFork::fromMacRoman(h->name) : QString()),
                    0);
                EXPECT_EQ(fork.getHomeResourceRefWithHandle(h), dst);
            }
        }
        fork.closeResourceFile(dst);
        EXPECT_EQ(fork.resourceError(), 0);
        fork.closeResourceFile(src);
    }

    QVTestHome home;
    QVResouceFork fork;
};

} // namespace

TEST_F(QVResourceForkTest, LwfnFromT1macReadsLikeFontTools)
{
    const QString lwfn = makeLwfn(home.path(), QStringLiteral("C059Ita"));
    ASSERT_FALSE(lwfn.isEmpty());
    // The fork inside t1mac's AppleDouble is byte for byte its raw output.
    const QString raw = path(QStringLiteral("C059Ita.rsrc"));
    ASSERT_EQ(runTool(QStringLiteral("t1mac"), { QStringLiteral("--raw"), kC059ItalicPfb, raw }).exitCode, 0);
    QByteArray bytes;
    QVForkStorage::Place place;
    ASSERT_EQ(QVForkStorage::readResourceFork(lwfn, &bytes, &place), 0);
    EXPECT_EQ(place, QVForkStorage::Place::AppleDouble);
    EXPECT_EQ(bytes, readFile(raw));
    EXPECT_TRUE(fork.hasResourceFork(lwfn));
    QString error;
    const QStringList expected = fontToolsResources(raw, &error);
    ASSERT_FALSE(expected.isEmpty()) << qPrintable(error);
    const qint16 ref = fork.openResourceFile(QVPermission::Read, lwfn);
    ASSERT_GE(ref, 1);
    EXPECT_EQ(listing(ref), expected);
    EXPECT_EQ(
        fork.countResourceTypes(ref, qvFourCC("POST")), expected.filter(QRegularExpression("^POST ")).size());
    const QVResourceHandle first = fork.getResourceOfID(501, qvFourCC("POST"), ref);
    ASSERT_TRUE(first);
    EXPECT_EQ(fork.getHomeResourceRefWithHandle(first), ref);
    EXPECT_EQ(fork.getResourceInfo(first).value("name").toString(), QStringLiteral("<none>"));
    EXPECT_EQ(fork.finderInfoFlags(lwfn), 0x2100);
    fork.closeResourceFile(ref);
    EXPECT_EQ(fork.getHomeResourceRefWithHandle(first), -1);
}

TEST_F(QVResourceForkTest, UfondSuitcaseReadsLikeFontToolsInEveryPlace)
{
    const QString raw = ufondRaw();
    const QStringList expected = fontToolsResources(raw);
    ASSERT_EQ(expected.size(), 4); // one FOND, three NFNT
    QList<QVForkStorage::Place> places
        = { QVForkStorage::Place::AppleDouble, QVForkStorage::Place::NetatalkFolder };
    if (QVExtendedAttributes::supported(home.path()))
        places << QVForkStorage::Place::ExtendedAttribute;
    for (QVForkStorage::Place place : places) {
        SCOPED_TRACE(qPrintable(QVForkStorage::placeName(place)));
        const QString file = install(raw, QVForkStorage::placeName(place), place);
        // ext4 attributes hold about 4 KB: this fork goes to the sidecar instead.
        const QVForkStorage::Place actual = QVForkStorage::resourceForkPlace(file);
        EXPECT_EQ(actual,
            place == QVForkStorage::Place::ExtendedAttribute && actual == QVForkStorage::Place::AppleDouble
                ? actual
                : place);
        EXPECT_EQ(listing(file), expected);
    }
    // The fork file itself, read as a data-fork resource file, read only.
    const qint16 ref = fork.openDataForkAtResourceFile(nullptr, raw);
    ASSERT_GE(ref, 1);
    EXPECT_EQ(listing(ref), expected);
    EXPECT_FALSE(QVResourceManager::isWritable(ref));
    fork.closeResourceFile(ref);
}

TEST_F(QVResourceForkTest, RealDfontReadsLikeFontToolsAndACopyTakesChanges)
{
    const QStringList expected = fontToolsResources(kPanicSansDfont);
    ASSERT_FALSE(expected.isEmpty());
    EXPECT_TRUE(fork.hasResourceFork(kPanicSansDfont));
    const qint16 ref = fork.openResourceFile(QVPermission::Read, kPanicSansDfont);
    ASSERT_GE(ref, 1);
    EXPECT_EQ(listing(ref), expected);
    // The FOND's style table leads to the PostScript names the sfnt resources
    // are named by, and their naming tables say the same.
    const QVResourceHandle fond = fork.getIndexResource(ref, kFOND, 1);
    ASSERT_TRUE(fond);
    QVMemoryHandler &mem = *fork.memoryHandler;
    ASSERT_EQ(mem.Handle_ReadShort(fond, 52) + 1, 4);
    for (int i = 0; i < 4; ++i) {
        const QVResourceHandle sfnt
            = fork.getResourceOfID(qint16(mem.Handle_ReadShort(fond, 58 + 6 * i)), kSfnt, ref);
        ASSERT_TRUE(sfnt);
        const QString name = fork.getResourceInfo(sfnt).value("name").toString();
        EXPECT_EQ(fork.getBitmapPSname(fond, mem.Handle_ReadShort(fond, 56 + 6 * i)), name);
        EXPECT_EQ(fork.getSNFTResourceName(sfnt, 6), name);
    }
    // The full name agrees with fontTools' Mac-platform record.
    const QVResourceHandle plain = fork.getIndexResource(ref, kSfnt, 1);
    int status = 0;
    const QString fullName = python(QStringLiteral("import sys\nfrom fontTools.ttLib import TTFont\n"
                                                   "f=TTFont(sys.argv[1], res_name_or_index=sys.argv[2])\n"
                                                   "print(f['name'].getName(4,1,0,0).toUnicode())"),
        { kPanicSansDfont, fork.getResourceInfo(plain).value("name").toString() }, &status);
    ASSERT_EQ(status, 0) << qPrintable(fullName);
    EXPECT_EQ(fork.getSNFTResourceName(plain, 4), fullName.trimmed());
    EXPECT_EQ(fork.getSNFTResourceName(plain, 999), QString());
    fork.closeResourceFile(ref);

    // A copy opened as a resource file is rewritten whole, keeping its rights
    // and attributes, and fontTools reads the change.
    const QString copy = copyFont(kPanicSansDfont, home.path(), QStringLiteral("Copy.dfont"));
    ASSERT_TRUE(QFile::setPermissions(
        copy, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadOther));
    const QFileDevice::Permissions rights = QFileInfo(copy).permissions();
    const bool xattrs = QVExtendedAttributes::set(copy, "user.quorvel.test", "kept") == 0;
    const qint16 writeRef = fork.openResourceFile(QVPermission::ReadWrite, copy);
    ASSERT_GE(writeRef, 1);
    ASSERT_EQ(fork.removeResource(fork.getResourceOfID(128, kFOND, writeRef)), 0);
    fork.closeResourceFile(writeRef);
    EXPECT_EQ(fork.resourceError(), 0);
    QStringList remaining = expected;
    remaining.removeIf([](const QString &line) { return line.startsWith(QLatin1String("FOND 128 ")); });
    ASSERT_EQ(remaining.size(), expected.size() - 1);
    EXPECT_EQ(fontToolsResources(copy), remaining);
    EXPECT_EQ(QFileInfo(copy).permissions(), rights);
    if (xattrs) {
        EXPECT_EQ(QVExtendedAttributes::get(copy, "user.quorvel.test").value_or(QByteArray()), "kept");
    }
    EXPECT_TRUE(
        QDir(home.path()).entryList(QDir::Hidden | QDir::Files).filter(QStringLiteral("quorvel")).isEmpty());
}

TEST_F(QVResourceForkTest, ANewSuitcaseWeFillReadsBackInFontToolsShowfondAndFreeType)
{
    const QString raw = ufondRaw();
    const QString source = install(raw, QStringLiteral("Source"), QVForkStorage::Place::AppleDouble);
    const QString target = path(QStringLiteral("DejaVu Sans"));
    ASSERT_EQ(fork.createNewResourceFileAtPath(target, qvFourCC("DMOV"), qvFourCC("FFIL")), 0);
    QByteArray info, empty;
    QVForkStorage::Place place;
    ASSERT_EQ(QVForkStorage::readFinderInfo(target, &info), 0);
    EXPECT_EQ(info.left(8), QByteArray("FFILDMOV"));
    // A new suitcase has an empty map, whose type count is stored as 0xFFFF.
    ASSERT_EQ(QVForkStorage::readResourceFork(target, &empty, &place), 0);
    EXPECT_EQ(empty, QVResourceFile::emptyFork());
    EXPECT_EQ(empty.mid(u32(empty, 4) + 28, 2), QByteArray::fromHex("ffff"));
    qint16 error = 0;
    const auto parsed = QVResourceFile::parse(empty, &error);
    EXPECT_TRUE(parsed && parsed->entries.isEmpty());
    EXPECT_TRUE(fork.hasResourceFork(target));

    copyAll(source, target, qvFourCC("DMOV"), qvFourCC("FFIL"));
    EXPECT_EQ(readFile(extractFork(source, path("out"))), readFile(raw));
    const QString written = extractFork(target, path("out"));
    EXPECT_EQ(fontToolsResources(written), fontToolsResources(raw));
    auto shown = [](const QString &bare) {
        int status = -1;
        QStringList lines = showfond(bare, &status).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        EXPECT_EQ(status, 0);
        lines.sort();
        return lines;
    };
    EXPECT_EQ(shown(written), shown(raw));

    // One strike out, a renamed copy of the FOND in under a new ID.
    const qint16 again = fork.openResourceFile(QVPermission::ReadWrite, target);
    ASSERT_GE(again, 1);
    const QVResourceHandle strike = fork.getIndexResource(again, kNFNT, 1);
    ASSERT_TRUE(strike);
    const qint16 removedId = strike->id;
    EXPECT_EQ(QVResourceManager::removeResource(strike), 0);
    const QVResourceHandle family = fork.getIndexResource(again, kFOND, 1);
    ASSERT_TRUE(family);
    fork.useResourceFile(again);
    EXPECT_EQ(fork.addResource(newHandleFromBytes(family->data), kFOND, 300, QStringLiteral("Déjà Copy")), 0);
    fork.closeResourceFile(again);
    const QString after = fontToolsResources(extractFork(target, path("out"))).join('\n');
    EXPECT_EQ(after.count('\n'), 3);
    EXPECT_FALSE(after.contains(QStringLiteral("NFNT %1 ").arg(removedId)));
    EXPECT_TRUE(
        after.contains(QRegularExpression("^FOND 300 .* Déjà Copy$", QRegularExpression::MultilineOption)));
    // The new suitcase takes over the source's creation date.
    const QDateTime old(QDate(1994, 3, 14), QTime(15, 9, 26), Qt::UTC);
    ASSERT_EQ(QVResouceFork::setCreationDate(source, old), 0);
    ASSERT_EQ(QVResouceFork::setCreationDate(target, QVResouceFork::creationDate(source)), 0);
    EXPECT_EQ(QVResouceFork::creationDate(target), old);

    // FreeType opens the outline file and the suitcase we wrote.
    auto faces = [](const QString &file) {
        QStringList list = QString::fromUtf8(
            runTool(QStringLiteral("fc-scan"),
                { QStringLiteral("--format"), QStringLiteral("%{family} %{style} %{fontformat}\\n"), file })
                .out)
                               .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        list.sort();
        return list;
    };
    const QString lwfnCopy = path(QStringLiteral("C059Copy"));
    copyAll(makeLwfn(home.path(), QStringLiteral("C059Ita")), lwfnCopy, qvFourCC("T1UT"), qvFourCC("LWFN"));
    EXPECT_EQ(faces(lwfnCopy), QStringList { QStringLiteral("C059 Italic Type 1") });
    const QString panic = path(QStringLiteral("Panic Suitcase"));
    copyAll(kPanicSansDfont, panic, qvFourCC("DMOV"), qvFourCC("FFIL"));
    EXPECT_EQ(faces(panic).size(), 4);
    EXPECT_EQ(faces(panic), faces(kPanicSansDfont));
}

TEST_F(QVResourceForkTest, MissingPlainAndDamagedForksAreErrorsAndNeverReplaced)
{
    for (quint8 permission : { QVPermission::Read, QVPermission::ReadWrite }) {
        EXPECT_EQ(fork.openResourceFile(permission, path(QStringLiteral("missing"))), -1);
        EXPECT_EQ(fork.resourceError(), QVResourceError::FileNotFound);
    }
    const QString plain = home.writeFile(QStringLiteral("plain.ttf"), "not a fork");
    EXPECT_FALSE(fork.hasResourceFork(plain));
    EXPECT_EQ(fork.openResourceFile(QVPermission::Read, plain), -1);
    EXPECT_EQ(fork.resourceError(), QVResourceError::ResFileNotFound);
    EXPECT_FALSE(QFile::exists(QVForkStorage::sidecarPath(plain))); // reading creates nothing

    const QString damaged = home.writeFile(QStringLiteral("damaged"), {});
    QVAppleDouble sidecar;
    sidecar.entries.append({ QVAppleDouble::ResourceFork, QByteArray(300, '\x7f'), 0 });
    ASSERT_TRUE(writeFile(QVForkStorage::sidecarPath(damaged), sidecar.serialize()));
    const QByteArray before = readFile(QVForkStorage::sidecarPath(damaged));
    EXPECT_FALSE(fork.hasResourceFork(damaged));
    for (quint8 permission : { QVPermission::Read, QVPermission::ReadWrite }) {
        EXPECT_EQ(fork.openResourceFile(permission, damaged), -1);
        EXPECT_EQ(fork.resourceError(), QVResourceError::MapRead);
    }
    EXPECT_EQ(fork.createNewResourceFileAtPath(damaged, 0, 0), QVResourceError::MapRead);
    EXPECT_EQ(readFile(QVForkStorage::sidecarPath(damaged)), before);
    // A name of 1025 characters is refused before anything is tried.
    EXPECT_EQ(fork.openResourceFile(QVPermission::ReadWrite, path(QString(1025, QLatin1Char('n')))), 0);
}

TEST_F(QVResourceForkTest, UnreadableOrUnwritableFilesArePermissionErrors)
{
    if (::geteuid() == 0) {
        // Root is refused nothing: this very test runs again as nobody.
        const ToolRun child = runTool(QStringLiteral("setpriv"),
            { "--reuid=65534", "--regid=65534", "--clear-groups", "--",
                QCoreApplication::applicationFilePath(),
                "--gtest_filter=QVResourceForkTest.UnreadableOrUnwritableFilesArePermissionErrors" });
        EXPECT_EQ(child.exitCode, 0) << child.out.constData() << child.err.constData();
        EXPECT_TRUE(child.out.contains("[  PASSED  ] 1 test.")) << child.out.constData();
        EXPECT_FALSE(child.out.contains("SKIPPED")) << child.out.constData();
        return;
    }
    const QString locked = home.writeFile(QStringLiteral("locked"), {});
    const QString sidecar = QVForkStorage::sidecarPath(locked);
    ASSERT_EQ(fork.createNewResourceFileAtPath(locked, 0, 0), 0);
    QFile::setPermissions(locked, QFileDevice::ReadOwner);
    EXPECT_EQ(fork.openResourceFile(QVPermission::ReadWrite, locked), -1);
    EXPECT_EQ(fork.resourceError(), QVResourceError::Permission);
    QFile::setPermissions(locked, QFileDevice::WriteOwner);
    EXPECT_EQ(fork.openResourceFile(QVPermission::Read, locked), -1);
    EXPECT_EQ(fork.resourceError(), QVResourceError::Permission);
    EXPECT_FALSE(fork.hasResourceFork(locked));
    // A readable file whose sidecar cannot be read has a fork we may not see.
    QFile::setPermissions(locked, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    QFile::setPermissions(sidecar, QFileDevice::WriteOwner);
    EXPECT_EQ(fork.openResourceFile(QVPermission::Read, locked), -1);
    EXPECT_EQ(fork.resourceError(), QVResourceError::Permission);
    EXPECT_EQ(fork.finderInfoFlags(locked), 0);
    QFile::setPermissions(sidecar, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    EXPECT_GE(fork.openResourceFile(QVPermission::Read, locked), 1);
}

TEST_F(QVResourceForkTest, WritingCreatesAForkAndChangedHandlesAreWrittenOnClose)
{
    const QString file = home.writeFile(QStringLiteral("bare"), "bytes");
    qint16 ref = fork.openResourceFile(QVPermission::ReadWrite, file);
    ASSERT_GE(ref, 1);
    EXPECT_EQ(QVForkStorage::resourceForkPlace(file), QVForkStorage::Place::AppleDouble);
    EXPECT_EQ(readFile(file), QByteArray("bytes"));
    QVResourceHandle h = newHandleFromBytes(QByteArray(60, 'a'));
    EXPECT_EQ(fork.addResource(h, kFOND, 1, QStringLiteral("漢")), -1); // no Mac Roman form
    EXPECT_EQ(fork.addResource(h, kFOND, 1, QStringLiteral("F")), 0);
    // A handle that belongs to a file cannot be added twice without detaching.
    EXPECT_EQ(QVResourceManager::addResource(h, kFOND, 2, "x"), QVResourceError::AddResFailed);
    fork.closeResourceFile(ref);

    ref = fork.openResourceFile(QVPermission::ReadWrite, file);
    h = fork.getResourceOfID(1, kFOND, ref);
    ASSERT_TRUE(h);
    ASSERT_TRUE(QVResourceManager::setHandleSize(h, 66));
    fork.memoryHandler->Handle_WriteShort(h, 64, 0x1234);
    EXPECT_EQ(QVResourceManager::changedResource(h), 0);
    fork.releaseResource(h); // a changed resource is not let go unwritten
    EXPECT_EQ(fork.resourceError(), QVResourceError::ResAttrErr);
    fork.closeResourceFile(ref);

    ref = fork.openResourceFile(QVPermission::Read, file);
    h = fork.getResourceOfID(1, kFOND, ref);
    ASSERT_TRUE(h);
    EXPECT_EQ(h->data.size(), 66);
    EXPECT_EQ(fork.memoryHandler->Handle_ReadUnsignedShort(h, 64), 0x1234);
    EXPECT_EQ(fork.getResourceInfo(h).value("name").toString(), QStringLiteral("F"));
    // Read-only files refuse changes; a size below zero is refused.
    EXPECT_EQ(QVResourceManager::removeResource(h), QVResourceError::RmvResFailed);
    EXPECT_EQ(QVResourceManager::changedResource(h), QVResourceError::WritePermissionErr);
    EXPECT_FALSE(QVResourceManager::setHandleSize(h, -1));
    EXPECT_NE(QVResourceManager::memError(), 0);
}

TEST_F(QVResourceForkTest, AForkOpenForWritingIsLockedAcrossProcesses)
{
    const QString file = path(QStringLiteral("shared"));
    ASSERT_EQ(fork.createNewResourceFileAtPath(file, qvFourCC("DMOV"), qvFourCC("FFIL")), 0);
    auto sharedLockFree = [&] { return runTool("flock", { "-n", "-s", file, "true" }).exitCode == 0; };
    const qint16 ref = fork.openResourceFile(QVPermission::ReadWrite, file);
    ASSERT_GE(ref, 1);
    EXPECT_FALSE(sharedLockFree());
    fork.closeResourceFile(ref);
    EXPECT_TRUE(sharedLockFree());
    // Another process holds it for writing: -49, read-only or not.
    QProcess holder;
    holder.start(QStringLiteral("/usr/bin/python3"),
        { "-c",
            "import fcntl, sys, time\nf = open(sys.argv[1])\nfcntl.flock(f, fcntl.LOCK_EX)\nprint('held', "
            "flush=True)\ntime.sleep(30)",
            file });
    ASSERT_TRUE(holder.waitForReadyRead(10000));
    for (quint8 permission : { QVPermission::Read, QVPermission::ReadWrite }) {
        EXPECT_EQ(fork.openResourceFile(permission, file), -1);
        EXPECT_EQ(fork.resourceError(), QVResourceError::OpenForWriting);
    }
    EXPECT_FALSE(fork.hasResourceFork(file));
    holder.kill();
    holder.waitForFinished();
    EXPECT_TRUE(fork.hasResourceFork(file));
}

TEST_F(QVResourceForkTest, NamesFromNamingTablesAndStyleTables)
{
    // fontTools keeps only the Unicode records: no single-byte name to read.
    const QString ttf = path(QStringLiteral("unicode-only.ttf"));
    int status = 0;
    const QString log
        = python(QStringLiteral("import sys\nfrom fontTools.ttLib import TTFont\nf=TTFont(sys.argv[1])\n"
                                "f['name'].names=[n for n in f['name'].names if n.platformID==3]\n"
                                "f.save(sys.argv[2])"),
            { kDejaVuSans, ttf }, &status);
    ASSERT_EQ(status, 0) << qPrintable(log);
    EXPECT_EQ(fork.getSNFTResourceName(newHandleFromBytes(readFile(ttf)), 4), QString());
    EXPECT_EQ(fork.getSNFTResourceName(newHandleFromBytes(readFile(kDejaVuSans)), 4),
        QStringLiteral("DejaVu Sans"));
    EXPECT_EQ(fork.getSNFTResourceName(newHandleFromBytes("\0\1\0\0"), 4), QString());
    EXPECT_EQ(fork.getSNFTResourceName(nullptr, 4), QString());

    // A FOND whose style table (at 60) names plain by the base name, bold by
    // suffix 4 and italic by suffixes 5 and 4; an index beyond the list is the base.
    QByteArray fond(120, '\0');
    fond[27] = 60;
    fond[70] = 1, fond[71] = 2, fond[72] = 3, fond[73] = 9;
    fond[119] = 5;
    for (const QByteArray &s : { QByteArray("Times"), QByteArray("\x04"), QByteArray("\x05\x04"),
             QByteArray("-Bold"), QByteArray("-Italic") })
        fond += char(s.size()) + s;
    EXPECT_EQ(fork.getBitmapPSname(newHandleFromBytes(fond), 0), QStringLiteral("Times"));
    EXPECT_EQ(fork.getBitmapPSname(newHandleFromBytes(fond), 1), QStringLiteral("Times-Bold"));
    EXPECT_EQ(fork.getBitmapPSname(newHandleFromBytes(fond), 2), QStringLiteral("Times-Italic-Bold"));
    EXPECT_EQ(fork.getBitmapPSname(newHandleFromBytes(fond), 3), QStringLiteral("Times"));
    // No base name, a table beyond the data, a suffix beyond the list: "<none>".
    QByteArray noBase = fond, farTable = fond, badSuffix = fond;
    noBase[120] = 0;
    farTable[25] = char(0x7F);
    badSuffix[127] = char(200);
    for (const QByteArray &bad : { noBase, farTable, QByteArray(20, '\0') })
        EXPECT_EQ(fork.getBitmapPSname(newHandleFromBytes(bad), 0), QStringLiteral("<none>"));
    EXPECT_EQ(fork.getBitmapPSname(newHandleFromBytes(badSuffix), 1), QStringLiteral("<none>"));
}

TEST(QVResourceFile, WriterKeepsOrderNamesAttributesAndDuplicatesAsFontToolsReads)
{
    QVTestHome home;
    QVResourceFile file;
    file.entries = { entry(kFOND, 128, "family", "Times", 0x20), entry(kNFNT, 1, "strike-a"),
        entry(kFOND, 129, "other", QByteArray("Caf\x8e", 4)), entry(kNFNT, 1, "duplicate id") };
    file.mapAttributes = QVResourceFile::kMapReadOnly;
    qint16 error = 0;
    const QByteArray bytes = file.serialize(&error);
    const auto back = QVResourceFile::parse(bytes, &error);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->types(), (QList<quint32> { kFOND, kNFNT }));
    EXPECT_EQ(back->mapAttributes, QVResourceFile::kMapReadOnly);
    const auto &times = back->entries.at(back->find(kFOND, 128));
    EXPECT_EQ(times.name, "Times");
    EXPECT_EQ(times.data, "family");
    EXPECT_EQ(times.attributes, 0x20);
    // The first of two equal IDs is found; both are kept.
    EXPECT_EQ(back->entries.at(back->find(kNFNT, 1)).data, QByteArray("strike-a"));
    EXPECT_EQ(back->entries.at(back->indexOf(kNFNT, 2)).data, QByteArray("duplicate id"));
    EXPECT_EQ(back->findNamed(kFOND, QByteArray("caf\x8e", 4)), back->find(kFOND, 129));
    const QString raw = home.path() + QStringLiteral("/f.rsrc");
    ASSERT_TRUE(writeFile(raw, bytes));
    const QStringList listing = fontToolsResources(raw);
    ASSERT_EQ(listing.size(), 4);
    EXPECT_TRUE(listing.at(0).startsWith("FOND 128 6 32 ") && listing.at(0).endsWith(" Times"))
        << qPrintable(listing.at(0));
    EXPECT_TRUE(listing.at(1).endsWith(QStringLiteral(" Café"))) << qPrintable(listing.at(1));
    // Mac Roman round-trips every byte.
    for (int b = 0; b < 256; ++b) {
        QByteArray out;
        ASSERT_TRUE(QVResouceFork::toMacRoman(QVResouceFork::fromMacRoman(QByteArray(1, char(b))), &out))
            << b;
        EXPECT_EQ(quint8(out.at(0)), b);
    }
}

TEST(QVResourceFile, DamagedMapsAreRefusedAndBadDataIsMarked)
{
    const QByteArray good
        = serialized({ entry(kSfnt, 1, QByteArray(100, 's'), "A"), entry(kSfnt, 2, QByteArray(50, 't')) });
    const qsizetype map = u32(good, 4);
    qint16 error = 0;
    QByteArray typeCount = good, refCount = good, nameOffset = good;
    typeCount[map + 28] = char(0x40); // thousands of types
    refCount[map + 30 + 4] = char(0x7F);
    nameOffset[map + 28 + 2 + 8 + 2] = char(0x70);
    for (const QByteArray &bad :
        { good.left(15), good.left(good.size() - 1), typeCount, refCount, nameOffset }) {
        EXPECT_FALSE(QVResourceFile::parse(bad, &error));
        EXPECT_EQ(error, QVResourceError::MapRead);
    }
    // A reference whose data lies outside the data area parses, but cannot load.
    QByteArray dataOffset = good, dataLength = good;
    dataOffset[map + 28 + 2 + 8 + 5] = char(0x7F);
    const auto parsed = QVResourceFile::parse(dataOffset, &error);
    ASSERT_TRUE(parsed);
    EXPECT_FALSE(parsed->entries.at(0).dataValid);
    EXPECT_TRUE(parsed->entries.at(1).dataValid);
    dataLength[256] = char(0x7F); // first resource's length word
    EXPECT_FALSE(QVResourceFile::parse(dataLength, &error)->entries.at(0).dataValid);

    // References into one another's data: those at one place share its bytes,
    // one inside another's data is unreadable; a small fork never becomes
    // many copies of itself in memory.
    QList<QVResourceFile::Entry> many
        = { entry(qvFourCC("TEST"), 0, QByteArray::fromHex("00000300") + QByteArray(996, 'a')) };
    for (int i = 1; i <= 100; ++i)
        many << entry(qvFourCC("TEST"), qint16(i), "b");
    QByteArray bomb = serialized(many);
    const qsizetype refs = u32(bomb, 4) + 28 + 2 + 8;
    for (int i = 1; i <= 100; ++i)
        bomb.replace(refs + 12 * i + 5, 3, QByteArray::fromHex(i % 2 ? "000000" : "000004"));
    const auto shared = QVResourceFile::parse(bomb, &error);
    ASSERT_TRUE(shared);
    for (int i = 1; i <= 100; ++i) {
        EXPECT_EQ(shared->entries.at(i).dataValid, i % 2 == 1) << i;
        EXPECT_EQ(shared->entries.at(i).data.isSharedWith(shared->entries.at(0).data), i % 2 == 1) << i;
    }
    // Types sharing one reference list would make a 40 KB map name four
    // million resources: more references than the map can hold is damage.
    constexpr int kTypes = 2000, kRefs = 2000;
    QByteArray types, refList, shareMap(22, '\0');
    QDataStream typeOut(&types, QIODevice::WriteOnly), refOut(&refList, QIODevice::WriteOnly);
    typeOut << quint16(kTypes - 1);
    for (int t = 0; t < kTypes; ++t)
        typeOut << quint32(t) << quint16(kRefs - 1) << quint16(2 + 8 * kTypes);
    for (int r = 0; r < kRefs; ++r)
        refOut << qint16(r) << quint16(0xFFFF) << quint32(0) << quint32(0);
    QDataStream mapOut(&shareMap, QIODevice::Append);
    mapOut << quint16(0) << quint16(28) << quint16(28 + types.size() + refList.size());
    shareMap += types + refList;
    QByteArray shareFork;
    QDataStream forkOut(&shareFork, QIODevice::WriteOnly);
    forkOut << quint32(16) << quint32(20) << quint32(4) << quint32(shareMap.size()) << quint32(0);
    EXPECT_FALSE(QVResourceFile::parse(shareFork + shareMap, &error));
    EXPECT_EQ(error, QVResourceError::MapRead);

    // The 24-bit data offsets reach 16 MB: a resource starting beyond cannot be written.
    QVResourceFile huge;
    huge.entries
        = { entry(kSfnt, 1, QByteArray(QVResourceFile::kMaxDataArea, 'x')), entry(kSfnt, 2, "tail") };
    EXPECT_TRUE(huge.serialize(&error).isEmpty());
    EXPECT_EQ(error, QVResourceError::WritingPastEnd);
}

TEST(QVResourceFile, BadResourcesFailToLoadWithoutClosingTheFork)
{
    QVTestHome home;
    QByteArray bytes = serialized(
        { entry(kSfnt, 1, "compressed", {}, 0x01), entry(kSfnt, 2, "plain"), entry(kSfnt, 3, "moved") });
    bytes[u32(bytes, 4) + 30 + 8 + 24 + 5] = char(0x7F); // third reference's data offset
    const QString path = home.path() + QStringLiteral("/odd.dfont");
    ASSERT_TRUE(writeFile(path, bytes));
    QVResouceFork fork;
    const qint16 ref = fork.openResourceFile(QVPermission::Read, path);
    ASSERT_GE(ref, 1);
    EXPECT_FALSE(fork.getResourceOfID(1, kSfnt, ref));
    EXPECT_EQ(fork.resourceError(), -186);
    EXPECT_TRUE(fork.getResourceOfID(2, kSfnt, ref));
    EXPECT_FALSE(fork.getResourceOfID(3, kSfnt, ref));
    EXPECT_EQ(fork.resourceError(), QVResourceError::Eof);
    EXPECT_FALSE(fork.getResourceOfID(4, kSfnt, ref));
    EXPECT_EQ(fork.resourceError(), QVResourceError::ResNotFound);
    EXPECT_EQ(fork.getResourcesOfType(kSfnt, ref).size(), 1); // what cannot load is skipped
    fork.closeResourceFile(ref);
}

TEST(QVResourceFile, TheLayerIsSafeFromSeveralThreads)
{
    QVTestHome home;
    QStringList files;
    for (int i = 0; i < 4; ++i) {
        QList<QVResourceFile::Entry> entries;
        for (int r = 0; r < 20; ++r)
            entries << entry(qvFourCC("POST"), qint16(501 + r), QByteArray(100 + r, char('A' + i)));
        files << home.writeFile(QStringLiteral("f%1").arg(i), {});
        ASSERT_EQ(QVForkStorage::writeResourceFork(
                      files.last(), serialized(entries), QVForkStorage::Place::AppleDouble),
            0);
    }
    // Each worker holds the lock across its whole examination, as the examiner does.
    const QList<int> sums = QtConcurrent::blockingMapped(files, [](const QString &path) {
        int total = 0;
        for (int round = 0; round < 25; ++round) {
            std::lock_guard guard(QVResouceFork::lock());
            QVResouceFork fork;
            const qint16 ref = fork.openResourceFile(QVPermission::Read, path);
            if (ref < 1)
                return -1;
            for (const QVResourceHandle &h : fork.getResourcesOfType(qvFourCC("POST"), ref))
                total += int(h->data.size()) + fork.memoryHandler->Handle_ReadPString(h, 0)[0];
            fork.closeResourceFile(ref);
        }
        return total;
    });
    // 25 rounds of 20 resources of 100..119 bytes whose first byte is 'A' + i.
    for (int i = 0; i < sums.size(); ++i)
        EXPECT_EQ(sums.at(i), 25 * (2190 + 20 * (65 + i))) << i;
    EXPECT_TRUE(QVResourceManager::openFiles().isEmpty());
}

TEST(QVMemoryHandler, ReadsAndWritesStayInsideTheData)
{
    QVMemoryHandler mem;
    const QByteArray bytes = QByteArray::fromHex("036162630978797affff");
    const QVResourceHandle h = newHandleFromBytes(bytes);
    EXPECT_EQ(mem.Handle_ReadShort(h, 8), -1);
    for (qint64 at : { -4, -1, 9, 10, 1000000 })
        EXPECT_EQ(mem.Handle_ReadShort(h, at), 0) << at;
    EXPECT_EQ(mem.Handle_ReadChar(h, 9), -1);
    EXPECT_EQ(mem.Handle_ReadChar(h, 10), 0);
    EXPECT_EQ(mem.Handle_ReadChar(h, -1), 0);
    EXPECT_EQ(mem.Handle_ReadLong(h, -2), 0);
    EXPECT_EQ(QByteArray(reinterpret_cast<const char *>(mem.Handle_ReadPString(h, 0).data()), 4),
        "\x03"
        "abc");
    EXPECT_EQ(mem.Handle_ReadPString(h, 4)[0], 0); // nine bytes from offset 4 run past the end
    EXPECT_EQ(QByteArray(reinterpret_cast<const char *>(mem.Handle_ReadString(h, 0, 1000).data()), 11),
        bytes + '\0');
    const auto full
        = mem.Handle_ReadString(newHandleFromBytes(QByteArray(4000, 'A').prepend(char(1))), 0, 5000);
    EXPECT_EQ(full[1022], 'A');
    EXPECT_EQ(full[1023], 0);
    mem.Handle_WriteShort(h, 9, 0x1234);
    mem.Handle_WriteLong(h, -4, 1);
    mem.Handle_WriteShort(nullptr, 0, 1);
    EXPECT_EQ(h->data, bytes);
    unsigned char dest[8];
    std::memset(dest, 'x', sizeof dest);
    const unsigned char wide[] = { 0, 'A', 0, 'b', 0, 'C' };
    mem.doubleToSingleConversion(wide, 6, dest, 3, 6);
    EXPECT_EQ(dest[0], 'A');
    EXPECT_EQ(dest[1], 0);
    EXPECT_EQ(dest[3], 'x');
}
