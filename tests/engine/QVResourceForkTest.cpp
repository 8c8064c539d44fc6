// QVResouceFork and the resource layer against real forks made by other
// tools (t1mac, ufond, the shipped .dfont), read back by fontTools' macRes and
// fondu's showfond.
#include "engine/QVResouceFork.h"
#include "engine/QVResourceFile.h"
#include "engine/QVResourceTestTools.h"
#include "platform/QVAppleDouble.h"
#include "platform/QVExtendedAttributes.h"
#include "platform/QVForkStorage.h"
#include "support/QVTestHome.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <unistd.h>

using namespace QVResourceTestTools;

namespace
{

// Our listing of an open file in macRes's form.
QStringList listing(QVResouceFork &fork, qint16 refNum)
{
    QStringList lines;
    const qint16 saved = fork.getCurrentResource();
    fork.useResourceFile(refNum);
    const int typeCount = QVResourceManager::count1Types();
    for (int t = 1; t <= typeCount; ++t) {
        fork.useResourceFile(refNum);
        const quint32 type = QVResourceManager::get1IndType(t);
        for (const QVResourceHandle &h : fork.getResourcesOfType(type, refNum)) {
            const QVariantMap info = fork.getResourceInfo(h);
            lines.append(QStringLiteral("%1 %2 %3 %4 %5")
                             .arg(qvFourCCString(type))
                             .arg(info.value("id").toString())
                             .arg(h->hasName ? info.value("name").toString() : QStringLiteral("null"))
                             .arg(h->data.size())
                             .arg(QString::fromLatin1(
                                 QCryptographicHash::hash(h->data, QCryptographicHash::Sha1).toHex())));
        }
    }
    fork.useResourceFile(saved);
    lines.sort();
    return lines;
}

QStringList showfondLines(const QString &rawFork)
{
    const ToolResult result = runTool(QStringLiteral("showfond"), { rawFork });
    QStringList lines = QString::fromLatin1(result.out).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    lines.sort();
    return lines;
}

class QVResourceForkTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        for (const char *tool : { "t1mac", "ufond", "otf2bdf", "showfond" })
            ASSERT_TRUE(toolExists(QString::fromLatin1(tool))) << tool << " is needed for these tests";
    }
    void TearDown() override { QVResourceManager::closeAll(); }

    QString path(const QString &name) const { return dir.path() + QLatin1Char('/') + name; }

    // A data file whose fork (from a raw fork file) lives in the given place.
    QString install(const QString &rawFork, const QString &name, QVForkStorage::Place place)
    {
        const QString file = path(name);
        EXPECT_TRUE(writeBytes(file, "data fork"));
        QVForkStorage::Place written = QVForkStorage::Place::None;
        EXPECT_EQ(QVForkStorage::writeResourceFork(file, readBytes(rawFork), place, &written), 0);
        return file;
    }

    QVTestHome home;
    QTemporaryDir dir { QStringLiteral("/tmp/qv-rsrc-XXXXXX") };
    QVResouceFork fork;
};

} // namespace

TEST_F(QVResourceForkTest, LwfnFromT1macReadsLikeMacRes)
{
    const QString lwfn = makeLwfn(dir.path(), QStringLiteral("C059Ita"));
    ASSERT_FALSE(lwfn.isEmpty());
    // The fork inside t1mac's AppleDouble is byte for byte its raw output.
    const QString raw = path(QStringLiteral("C059Ita.rsrc"));
    ASSERT_EQ(
        runTool(QStringLiteral("t1mac"),
            { QStringLiteral("--raw"), QStringLiteral("/usr/share/fonts/X11/Type1/C059-Italic.pfb"), raw })
            .exitCode,
        0);
    QByteArray bytes;
    QVForkStorage::Place place;
    ASSERT_EQ(QVForkStorage::readResourceFork(lwfn, &bytes, &place), 0);
    EXPECT_EQ(place, QVForkStorage::Place::AppleDouble);
    EXPECT_EQ(bytes, readBytes(raw));

    EXPECT_TRUE(fork.hasResourceFork(lwfn));
    const qint16 ref = fork.openResourceFile(QVPermission::Read, lwfn);
    ASSERT_GE(ref, 1);
    QString error;
    const QStringList expected = macResListing(raw, &error);
    ASSERT_FALSE(expected.isEmpty()) << qPrintable(error);
    EXPECT_EQ(listing(fork, ref), expected);
    EXPECT_EQ(
        fork.countResourceTypes(ref, qvFourCC("POST")), expected.filter(QRegularExpression("^POST ")).size());
    // The first POST resource is the comment block (type 2 segment follows later).
    const QVResourceHandle first = fork.getResourceOfID(501, qvFourCC("POST"), ref);
    ASSERT_TRUE(first);
    EXPECT_EQ(fork.getHomeResourceRefWithHandle(first), ref);
    EXPECT_EQ(fork.getResourceInfo(first).value("name").toString(), QStringLiteral("<none>"));
    EXPECT_EQ(fork.finderInfoFlags(lwfn), 0x2100);
    fork.closeResourceFile(ref);
    EXPECT_EQ(fork.getHomeResourceRefWithHandle(first), -1);
}

TEST_F(QVResourceForkTest, UfondSuitcaseReadsLikeMacResInEveryPlace)
{
    const QString raw = makeSuitcaseFork(dir.path());
    ASSERT_FALSE(raw.isEmpty());
    const QStringList expected = macResListing(raw);
    ASSERT_EQ(expected.size(), 3); // one FOND, two NFNT
    QList<QVForkStorage::Place> places
        = { QVForkStorage::Place::AppleDouble, QVForkStorage::Place::NetatalkFolder };
    const bool xattrs = QVExtendedAttributes::supported(dir.path());
    if (xattrs)
        places.append(QVForkStorage::Place::ExtendedAttribute);
    int n = 0;
    for (QVForkStorage::Place place : places) {
        const QString file = install(raw, QStringLiteral("suitcase%1").arg(n++), place);
        SCOPED_TRACE(qPrintable(QVForkStorage::placeName(place)));
        // ext4 attributes hold about 4 KB: a bigger fork went to the sidecar.
        const QVForkStorage::Place actual = QVForkStorage::resourceForkPlace(file);
        if (place == QVForkStorage::Place::ExtendedAttribute && readBytes(raw).size() > 3500)
            EXPECT_TRUE(actual == place || actual == QVForkStorage::Place::AppleDouble);
        else
            EXPECT_EQ(actual, place);
        const qint16 ref = fork.openResourceFile(QVPermission::Read, file);
        ASSERT_GE(ref, 1) << fork.resourceError();
        EXPECT_EQ(listing(fork, ref), expected);
        fork.closeResourceFile(ref);
    }
    // The raw fork file itself, read as a data-fork resource file.
    const qint16 ref = fork.openDataForkAtResourceFile(nullptr, raw);
    ASSERT_GE(ref, 1);
    EXPECT_EQ(listing(fork, ref), expected);
    fork.closeResourceFile(ref);
    if (!xattrs)
        GTEST_SKIP() << "/tmp keeps no user extended attributes; the attribute place was not tried";
}

TEST_F(QVResourceForkTest, RealDfontReadsLikeMacResAndIsReadOnly)
{
    const QString dfont = dfontPath();
    if (dfont.isEmpty())
        GTEST_SKIP() << "no .dfont installed (ruby-prawn ships one)";
    const QStringList expected = macResListing(dfont);
    ASSERT_FALSE(expected.isEmpty());
    EXPECT_TRUE(fork.hasResourceFork(dfont));
    const qint16 ref = fork.openResourceFile(QVPermission::Read, dfont);
    ASSERT_GE(ref, 1);
    EXPECT_EQ(listing(fork, ref), expected);

    // getBitmapPSname follows the FOND's style table to the names that the
    // sfnt resources carry (the file's maker named them by PostScript name).
    const QVResourceHandle fond = fork.getIndexResource(ref, qvFourCC("FOND"), 1);
    ASSERT_TRUE(fond);
    QVMemoryHandler &mem = *fork.memoryHandler;
    const int entries = mem.Handle_ReadShort(fond, 52) + 1;
    ASSERT_EQ(entries, 4);
    for (int i = 0; i < entries; ++i) {
        const int style = mem.Handle_ReadShort(fond, 56 + 6 * i);
        const qint16 id = qint16(mem.Handle_ReadShort(fond, 58 + 6 * i));
        const QVResourceHandle sfnt = fork.getResourceOfID(id, qvFourCC("sfnt"), ref);
        ASSERT_TRUE(sfnt);
        EXPECT_EQ(fork.getBitmapPSname(fond, style), fork.getResourceInfo(sfnt).value("name").toString());
        // The naming table's PostScript name says the same.
        EXPECT_EQ(fork.getSNFTResourceName(sfnt, 6), fork.getResourceInfo(sfnt).value("name").toString());
    }
    // The full name agrees with fontTools' Mac-platform record.
    const QVResourceHandle plain = fork.getIndexResource(ref, qvFourCC("sfnt"), 1);
    const ToolResult fullName = runTool(python(),
        { QStringLiteral("-c"),
            QStringLiteral("import sys\nfrom fontTools.ttLib import TTFont\n"
                           "f=TTFont(sys.argv[1], res_name_or_index=sys.argv[2])\n"
                           "print(f['name'].getName(4,1,0,0).toUnicode())"),
            dfont, fork.getResourceInfo(plain).value("name").toString() });
    ASSERT_EQ(fullName.exitCode, 0) << fullName.err.constData();
    EXPECT_EQ(fork.getSNFTResourceName(plain, 4), QString::fromUtf8(fullName.out).trimmed());
    EXPECT_EQ(fork.getSNFTResourceName(plain, 999), QString());
    fork.closeResourceFile(ref);

    // Opened as a data fork the file is only read.
    const qint16 dataRef = fork.openDataForkAtResourceFile(nullptr, dfont);
    ASSERT_GE(dataRef, 1);
    EXPECT_FALSE(QVResourceManager::isWritable(dataRef));
    fork.closeResourceFile(dataRef);

    // Opened as a resource file, a copy takes changes: rewritten whole, with
    // its rights and attributes, and read back by macRes.
    const QString copy = path(QStringLiteral("Copy.dfont"));
    ASSERT_TRUE(QFile::copy(dfont, copy));
    ASSERT_TRUE(QFile::setPermissions(
        copy, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadOther));
    const QFileDevice::Permissions rights = QFileInfo(copy).permissions();
    const bool xattrs = QVExtendedAttributes::set(copy, "user.quorvel.test", "kept") == 0;
    const qint16 writeRef = fork.openResourceFile(QVPermission::ReadWrite, copy);
    ASSERT_GE(writeRef, 1);
    ASSERT_EQ(fork.removeResource(fork.getResourceOfID(128, qvFourCC("FOND"), writeRef)), 0);
    fork.closeResourceFile(writeRef);
    EXPECT_EQ(fork.resourceError(), 0);
    QStringList remaining = expected;
    remaining.removeIf([](const QString &line) { return line.startsWith(QLatin1String("FOND 128 ")); });
    ASSERT_EQ(remaining.size(), expected.size() - 1);
    EXPECT_EQ(macResListing(copy), remaining);
    EXPECT_EQ(QFileInfo(copy).permissions(), rights);
    if (xattrs) {
        EXPECT_EQ(QVExtendedAttributes::get(copy, "user.quorvel.test").value_or(QByteArray()), "kept");
    }
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Hidden | QDir::Files).filter(QStringLiteral("quorvel")),
        QStringList());
}

TEST_F(QVResourceForkTest, NewSuitcaseWithAddedAndRemovedResourcesReadsBackInOtherTools)
{
    const QString raw = makeSuitcaseFork(dir.path());
    ASSERT_FALSE(raw.isEmpty());
    const QString source = install(raw, QStringLiteral("Source"), QVForkStorage::Place::AppleDouble);
    const QString target = path(QStringLiteral("DejaVu Sans"));

    ASSERT_EQ(fork.createNewResourceFileAtPath(target, qvFourCC("DMOV"), qvFourCC("FFIL")), 0);
    QByteArray info;
    ASSERT_EQ(QVForkStorage::readFinderInfo(target, &info), 0);
    EXPECT_EQ(info.left(8), QByteArray("FFILDMOV"));
    // A new suitcase has an empty map stored with type count 0xFFFF.
    QByteArray empty;
    QVForkStorage::Place place;
    ASSERT_EQ(QVForkStorage::readResourceFork(target, &empty, &place), 0);
    EXPECT_EQ(place, QVForkStorage::Place::AppleDouble);
    EXPECT_EQ(empty, QVResourceFile::emptyFork());
    const qint64 mapOffset
        = QByteArray::fromRawData(empty.constData() + 4, 4).toHex().toLongLong(nullptr, 16);
    EXPECT_EQ(empty.mid(mapOffset + 28, 2), QByteArray::fromHex("ffff"));
    EXPECT_TRUE(fork.hasResourceFork(target));

    const qint16 src = fork.openResourceFile(QVPermission::Read, source);
    ASSERT_GE(src, 1);
    const qint16 dst = fork.openResourceFile(QVPermission::ReadWrite, target);
    ASSERT_GE(dst, 1);
    for (quint32 type : { qvFourCC("FOND"), qvFourCC("NFNT") }) {
        for (const QVResourceHandle &h : fork.getResourcesOfType(type, src)) {
            const QVariantMap srcInfo = fork.getResourceInfo(h);
            fork.useResourceFile(dst);
            EXPECT_EQ(
                fork.addResource(h, type, h->id, h->hasName ? srcInfo.value("name").toString() : QString()),
                0);
            EXPECT_EQ(fork.getHomeResourceRefWithHandle(h), dst);
        }
    }
    fork.closeResourceFile(dst);
    EXPECT_EQ(fork.resourceError(), 0);
    fork.closeResourceFile(src);

    // The source suitcase is untouched; the new one holds the same resources.
    EXPECT_EQ(readBytes(QVForkStorage::sidecarPath(source)).size() > 0, true);
    QByteArray sourceFork;
    ASSERT_EQ(QVForkStorage::readResourceFork(source, &sourceFork, &place), 0);
    EXPECT_EQ(sourceFork, readBytes(raw));
    QByteArray written;
    ASSERT_EQ(QVForkStorage::readResourceFork(target, &written, &place), 0);
    const QString writtenRaw = path(QStringLiteral("written.rsrc"));
    ASSERT_TRUE(writeBytes(writtenRaw, written));
    // ufond gave the strikes no names, and an empty name adds none.
    EXPECT_EQ(macResListing(writtenRaw), macResListing(raw));
    EXPECT_EQ(showfondLines(writtenRaw), showfondLines(raw));

    // Remove one strike and add a renamed copy of the FOND under a new ID.
    const qint16 again = fork.openResourceFile(QVPermission::ReadWrite, target);
    ASSERT_GE(again, 1);
    const QVResourceHandle strike = fork.getIndexResource(again, qvFourCC("NFNT"), 1);
    ASSERT_TRUE(strike);
    const qint16 removedId = strike->id;
    EXPECT_EQ(QVResourceManager::removeResource(strike), 0);
    const QVResourceHandle fond = fork.getIndexResource(again, qvFourCC("FOND"), 1);
    QVResourceHandle copy = newHandleFromBytes(fond->data);
    fork.useResourceFile(again);
    EXPECT_EQ(fork.addResource(copy, qvFourCC("FOND"), 300, QStringLiteral("Déjà Copy")), 0);
    fork.closeResourceFile(again);
    ASSERT_EQ(QVForkStorage::readResourceFork(target, &written, &place), 0);
    ASSERT_TRUE(writeBytes(writtenRaw, written));
    const QStringList after = macResListing(writtenRaw);
    ASSERT_EQ(after.size(), 3);
    EXPECT_FALSE(after.join('\n').contains(QStringLiteral("NFNT %1 ").arg(removedId)));
    EXPECT_TRUE(after.join('\n').contains(QStringLiteral("FOND 300 Déjà Copy ")));

    // The new suitcase takes over the source's creation date.
    const QDateTime old(QDate(1994, 3, 14), QTime(15, 9, 26), Qt::UTC);
    ASSERT_EQ(QVResouceFork::setCreationDate(source, old), 0);
    ASSERT_EQ(QVResouceFork::setCreationDate(target, QVResouceFork::creationDate(source)), 0);
    EXPECT_EQ(QVResouceFork::creationDate(target), old);
    const qint16 check = fork.openResourceFile(QVPermission::Read, target);
    EXPECT_EQ(fork.countResourceTypes(check, qvFourCC("FOND")), 2);
    fork.closeResourceFile(check);
}

TEST_F(QVResourceForkTest, ForksWeWriteOpenInFreeType)
{
    if (!toolExists(QStringLiteral("fc-scan")))
        GTEST_SKIP() << "fc-scan (fontconfig over FreeType) is needed";
    // Copies every resource of one file into a new one of the given kind.
    auto copyAll = [this](const QString &from, const QString &to, quint32 creator, quint32 type) {
        ASSERT_EQ(fork.createNewResourceFileAtPath(to, creator, type), 0);
        const qint16 src = fork.openResourceFile(QVPermission::Read, from);
        ASSERT_GE(src, 1);
        const qint16 dst = fork.openResourceFile(QVPermission::ReadWrite, to);
        ASSERT_GE(dst, 1);
        fork.useResourceFile(src);
        const int typeCount = QVResourceManager::count1Types();
        for (int t = 1; t <= typeCount; ++t) {
            fork.useResourceFile(src);
            const quint32 resType = QVResourceManager::get1IndType(t);
            for (const QVResourceHandle &h : fork.getResourcesOfType(resType, src)) {
                const QString name = fork.getResourceInfo(h).value("name").toString();
                fork.useResourceFile(dst);
                ASSERT_EQ(
                    fork.addResource(h, resType, h->id, name == QLatin1String("<none>") ? QString() : name),
                    0);
            }
        }
        fork.closeResourceFile(dst);
        ASSERT_EQ(fork.resourceError(), 0);
        fork.closeResourceFile(src);
    };
    auto scan = [](const QString &file) {
        const ToolResult result = runTool(QStringLiteral("fc-scan"),
            { QStringLiteral("--format"), QStringLiteral("%{family} %{style} %{fontformat}\\n"), file });
        QStringList faces = QString::fromUtf8(result.out).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        faces.sort();
        return faces;
    };

    const QString lwfn = makeLwfn(dir.path(), QStringLiteral("C059Ita"));
    ASSERT_FALSE(lwfn.isEmpty());
    const QString lwfnCopy = path(QStringLiteral("C059Copy"));
    copyAll(lwfn, lwfnCopy, qvFourCC("T1UT"), qvFourCC("LWFN"));
    EXPECT_EQ(scan(lwfnCopy), QStringList { QStringLiteral("C059 Italic Type 1") });

    const QString dfont = dfontPath();
    if (dfont.isEmpty())
        GTEST_SKIP() << "no .dfont installed";
    const QString suitcase = path(QStringLiteral("Panic Suitcase"));
    copyAll(dfont, suitcase, qvFourCC("DMOV"), qvFourCC("FFIL"));
    const QStringList faces = scan(suitcase);
    EXPECT_EQ(faces.size(), 4);
    EXPECT_EQ(faces, scan(dfont));
}

TEST_F(QVResourceForkTest, LookupsSearchOnlyTheGivenFileAndRestoreTheCurrentOne)
{
    const QString raw = makeSuitcaseFork(dir.path());
    ASSERT_FALSE(raw.isEmpty());
    const QString a = install(raw, QStringLiteral("A"), QVForkStorage::Place::AppleDouble);
    const QString b = path(QStringLiteral("B"));
    ASSERT_EQ(fork.createNewResourceFileAtPath(b, qvFourCC("DMOV"), qvFourCC("FFIL")), 0);
    const qint16 refA = fork.openResourceFile(QVPermission::Read, a);
    const qint16 refB = fork.openResourceFile(QVPermission::Read, b);
    ASSERT_GE(refA, 1);
    ASSERT_GE(refB, 1);
    EXPECT_NE(refA, refB);
    EXPECT_EQ(fork.getCurrentResource(), refB);

    EXPECT_TRUE(fork.getIndexResource(refA, qvFourCC("FOND"), 1));
    EXPECT_EQ(fork.getCurrentResource(), refB);
    EXPECT_FALSE(fork.getIndexResource(refB, qvFourCC("FOND"), 1));
    EXPECT_EQ(fork.countResourceTypes(refA, qvFourCC("NFNT")), 2);
    EXPECT_EQ(fork.countResourceTypes(refB, qvFourCC("NFNT")), 0);
    EXPECT_EQ(fork.getResourcesOfType(qvFourCC("NFNT"), refA).size(), 2);
    EXPECT_TRUE(fork.getResourcesOfType(qvFourCC("NFNT"), 12345).isEmpty());
    EXPECT_FALSE(fork.getIndexResource(refA, qvFourCC("NFNT"), 3));
    EXPECT_FALSE(fork.getIndexResource(refA, qvFourCC("NFNT"), 0));
    EXPECT_EQ(fork.getCurrentResource(), refB);
    // The same resource loaded twice is the same handle.
    EXPECT_EQ(
        fork.getIndexResource(refA, qvFourCC("FOND"), 1), fork.getIndexResource(refA, qvFourCC("FOND"), 1));
    const QVResourceHandle named
        = fork.getNamedResource(QStringLiteral("DejaVu Sans"), qvFourCC("FOND"), refA);
    ASSERT_TRUE(named);
    EXPECT_EQ(fork.getResourceInfo(named).value("type").toUInt(), qvFourCC("FOND"));

    // Closing the current file makes the one opened before it current.
    fork.closeResourceFile(refB);
    EXPECT_EQ(fork.getCurrentResource(), refA);
    // A second open of the same fork answers the same number.
    EXPECT_EQ(fork.openResourceFile(QVPermission::Read, a), refA);
    // hasResourceFork probes without closing a fork that is in use.
    EXPECT_TRUE(fork.hasResourceFork(a));
    EXPECT_TRUE(QVResourceManager::openFiles().contains(refA));
    fork.closeResourceFile(refA);
    EXPECT_EQ(fork.getCurrentResource(), 0);
}

TEST_F(QVResourceForkTest, OpenErrorsAreTheMacCodes)
{
    EXPECT_EQ(fork.openResourceFile(QVPermission::Read, path(QStringLiteral("missing"))), -1);
    EXPECT_EQ(fork.resourceError(), QVResourceError::FileNotFound);
    EXPECT_EQ(fork.openResourceFile(QVPermission::ReadWrite, path(QStringLiteral("missing"))), -1);
    EXPECT_EQ(fork.resourceError(), QVResourceError::FileNotFound);

    const QString plain = path(QStringLiteral("plain.ttf"));
    ASSERT_TRUE(writeBytes(plain, "not a fork"));
    EXPECT_FALSE(fork.hasResourceFork(plain));
    EXPECT_EQ(fork.openResourceFile(QVPermission::Read, plain), -1);
    EXPECT_EQ(fork.resourceError(), QVResourceError::ResFileNotFound);
    EXPECT_FALSE(QFile::exists(QVForkStorage::sidecarPath(plain))); // reading creates nothing

    // A damaged fork is reported, and opening it for writing never replaces it.
    const QString damaged = path(QStringLiteral("damaged"));
    ASSERT_TRUE(writeBytes(damaged, {}));
    QVAppleDouble sidecar;
    sidecar.entries.append({ QVAppleDouble::ResourceFork, QByteArray(300, '\x7f'), 0 });
    ASSERT_TRUE(writeBytes(QVForkStorage::sidecarPath(damaged), sidecar.serialize()));
    const QByteArray before = readBytes(QVForkStorage::sidecarPath(damaged));
    EXPECT_FALSE(fork.hasResourceFork(damaged));
    EXPECT_EQ(fork.openResourceFile(QVPermission::Read, damaged), -1);
    EXPECT_EQ(fork.resourceError(), QVResourceError::MapRead);
    EXPECT_EQ(fork.openResourceFile(QVPermission::ReadWrite, damaged), -1);
    EXPECT_EQ(fork.resourceError(), QVResourceError::MapRead);
    // Creating finds the fork there (-48 counts as success) and opening it fails.
    EXPECT_EQ(fork.createNewResourceFileAtPath(damaged, 0, 0), QVResourceError::MapRead);
    EXPECT_EQ(readBytes(QVForkStorage::sidecarPath(damaged)), before);

    // A name of 1025 characters is refused before anything is tried.
    EXPECT_EQ(fork.openResourceFile(QVPermission::ReadWrite, path(QString(1025, QLatin1Char('n')))), 0);
}

TEST_F(QVResourceForkTest, UnreadableOrUnwritableFilesArePermissionErrors)
{
    if (::geteuid() == 0) {
        // Root is refused nothing: run this very test again as nobody.
        if (!toolExists(QStringLiteral("setpriv")))
            GTEST_SKIP() << "running as root without setpriv: permissions cannot be tested";
        const ToolResult child = runTool(QStringLiteral("setpriv"),
            { QStringLiteral("--reuid=65534"), QStringLiteral("--regid=65534"),
                QStringLiteral("--clear-groups"), QStringLiteral("--"),
                QCoreApplication::applicationFilePath(),
                QStringLiteral(
                    "--gtest_filter=QVResourceForkTest.UnreadableOrUnwritableFilesArePermissionErrors") });
        EXPECT_EQ(child.exitCode, 0) << child.out.constData() << child.err.constData();
        EXPECT_TRUE(child.out.contains("[  PASSED  ] 1 test.")) << child.out.constData();
        EXPECT_FALSE(child.out.contains("SKIPPED")) << child.out.constData();
        return;
    }
    const QString locked = path(QStringLiteral("locked"));
    ASSERT_TRUE(writeBytes(locked, {}));
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
    QFile::setPermissions(QVForkStorage::sidecarPath(locked), QFileDevice::WriteOwner);
    EXPECT_EQ(fork.openResourceFile(QVPermission::Read, locked), -1);
    EXPECT_EQ(fork.resourceError(), QVResourceError::Permission);
    EXPECT_EQ(fork.finderInfoFlags(locked), 0);
    QFile::setPermissions(
        QVForkStorage::sidecarPath(locked), QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    EXPECT_GE(fork.openResourceFile(QVPermission::Read, locked), 1);
}

TEST_F(QVResourceForkTest, WriteCreatesTheForkOfAFileWithoutOne)
{
    const QString file = path(QStringLiteral("bare"));
    ASSERT_TRUE(writeBytes(file, "bytes"));
    const qint16 ref = fork.openResourceFile(QVPermission::ReadWrite, file);
    ASSERT_GE(ref, 1);
    EXPECT_EQ(fork.resourceError(), 0);
    EXPECT_EQ(QVForkStorage::resourceForkPlace(file), QVForkStorage::Place::AppleDouble);
    EXPECT_EQ(readBytes(file), QByteArray("bytes"));
    QVResourceHandle h = newHandleFromBytes("hello");
    EXPECT_EQ(fork.addResource(h, qvFourCC("TEXT"), 128, QStringLiteral("漢")), -1);
    EXPECT_EQ(fork.addResource(h, qvFourCC("TEXT"), 128, QStringLiteral("greeting")), 0);
    // A handle that belongs to a file cannot be added twice without detaching.
    EXPECT_EQ(QVResourceManager::addResource(h, qvFourCC("TEXT"), 129, "x"), QVResourceError::AddResFailed);
    fork.closeResourceFile(ref);
    const qint16 again = fork.openResourceFile(QVPermission::Read, file);
    const QVResourceHandle back = fork.getResourceOfID(128, qvFourCC("TEXT"), again);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->data, QByteArray("hello"));
    EXPECT_EQ(fork.getResourceInfo(back).value("name").toString(), QStringLiteral("greeting"));
    // Read-only files refuse changes.
    EXPECT_EQ(QVResourceManager::removeResource(back), QVResourceError::RmvResFailed);
    EXPECT_EQ(QVResourceManager::changedResource(back), QVResourceError::WritePermissionErr);
    fork.closeResourceFile(again);
}

TEST_F(QVResourceForkTest, ChangedHandlesAreWrittenOnClose)
{
    const QString file = path(QStringLiteral("grow"));
    ASSERT_EQ(fork.createNewResourceFileAtPath(file, qvFourCC("DMOV"), qvFourCC("FFIL")), 0);
    qint16 ref = fork.openResourceFile(QVPermission::ReadWrite, file);
    ASSERT_EQ(
        fork.addResource(newHandleFromBytes(QByteArray(60, 'a')), qvFourCC("FOND"), 1, QStringLiteral("F")),
        0);
    fork.closeResourceFile(ref);

    ref = fork.openResourceFile(QVPermission::ReadWrite, file);
    QVResourceHandle h = fork.getResourceOfID(1, qvFourCC("FOND"), ref);
    ASSERT_TRUE(h);
    ASSERT_TRUE(QVResourceManager::setHandleSize(h, 66));
    fork.memoryHandler->Handle_WriteShort(h, 64, 0x1234);
    EXPECT_EQ(QVResourceManager::changedResource(h), 0);
    // A changed resource is not let go unwritten.
    fork.releaseResource(h);
    EXPECT_EQ(fork.resourceError(), QVResourceError::ResAttrErr);
    fork.closeResourceFile(ref);

    ref = fork.openResourceFile(QVPermission::Read, file);
    h = fork.getResourceOfID(1, qvFourCC("FOND"), ref);
    ASSERT_TRUE(h);
    EXPECT_EQ(h->data.size(), 66);
    EXPECT_EQ(fork.memoryHandler->Handle_ReadUnsignedShort(h, 64), 0x1234);
    EXPECT_FALSE(QVResourceManager::setHandleSize(h, -1));
    EXPECT_NE(QVResourceManager::memError(), 0);
    fork.closeResourceFile(ref);
}

TEST_F(QVResourceForkTest, ForkOpenForWritingIsLockedAcrossProcesses)
{
    if (!toolExists(QStringLiteral("flock")))
        GTEST_SKIP() << "flock(1) is needed to hold a lock from another process";
    const QString file = path(QStringLiteral("shared"));
    ASSERT_EQ(fork.createNewResourceFileAtPath(file, qvFourCC("DMOV"), qvFourCC("FFIL")), 0);

    // We hold it for writing: another process cannot take it.
    const qint16 ref = fork.openResourceFile(QVPermission::ReadWrite, file);
    ASSERT_GE(ref, 1);
    EXPECT_EQ(runTool(QStringLiteral("flock"),
                  { QStringLiteral("-n"), QStringLiteral("-s"), file, QStringLiteral("true") })
                  .exitCode,
        1);
    fork.closeResourceFile(ref);
    EXPECT_EQ(runTool(QStringLiteral("flock"),
                  { QStringLiteral("-n"), QStringLiteral("-s"), file, QStringLiteral("true") })
                  .exitCode,
        0);

    // Another process holds it for writing: we get -49, read-only or not.
    QProcess holder;
    holder.start(python(),
        { QStringLiteral("-c"),
            QStringLiteral("import fcntl, sys, time\nf = open(sys.argv[1])\n"
                           "fcntl.flock(f, fcntl.LOCK_EX)\nprint('held', flush=True)\ntime.sleep(30)"),
            file });
    ASSERT_TRUE(holder.waitForReadyRead(10000));
    EXPECT_EQ(fork.openResourceFile(QVPermission::Read, file), -1);
    EXPECT_EQ(fork.resourceError(), QVResourceError::OpenForWriting);
    EXPECT_EQ(fork.openResourceFile(QVPermission::ReadWrite, file), -1);
    EXPECT_EQ(fork.resourceError(), QVResourceError::OpenForWriting);
    EXPECT_FALSE(fork.hasResourceFork(file));
    holder.kill();
    holder.waitForFinished();
    EXPECT_TRUE(fork.hasResourceFork(file));
}

TEST_F(QVResourceForkTest, NamingTableWithOnlyUnicodeRecordsGivesNothing)
{
    const QString ttf = path(QStringLiteral("unicode-only.ttf"));
    const ToolResult made = runTool(python(),
        { QStringLiteral("-c"),
            QStringLiteral("import sys\nfrom fontTools.ttLib import TTFont\n"
                           "f=TTFont('/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf')\n"
                           "f['name'].names=[n for n in f['name'].names if n.platformID==3]\n"
                           "f.save(sys.argv[1])"),
            ttf });
    ASSERT_EQ(made.exitCode, 0) << made.err.constData();
    const QVResourceHandle sfnt = newHandleFromBytes(readBytes(ttf));
    EXPECT_EQ(fork.getSNFTResourceName(sfnt, 4), QString());
    EXPECT_EQ(fork.getSNFTResourceName(sfnt, 6), QString());
    // The original file has Mac records and answers.
    const QVResourceHandle original
        = newHandleFromBytes(readBytes(QStringLiteral("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf")));
    EXPECT_EQ(fork.getSNFTResourceName(original, 4), QStringLiteral("DejaVu Sans"));
    EXPECT_EQ(fork.getSNFTResourceName(newHandleFromBytes("\0\1\0\0"), 4), QString());
    EXPECT_EQ(fork.getSNFTResourceName(nullptr, 4), QString());
}

TEST(QVResouceForkStyleNames, BitmapPostScriptNamesFromTheStyleTable)
{
    QVTestHome home;
    QVResouceFork fork;
    // A FOND with its style-mapping table at S = 60.
    const int s = 60;
    QByteArray fond(s + 60, '\0');
    auto put32 = [&fond](int at, quint32 v) {
        for (int i = 0; i < 4; ++i)
            fond[at + i] = char(v >> (24 - 8 * i));
    };
    put32(24, s);
    fond[s + 10 + 0] = 1; // plain: base name
    fond[s + 10 + 1] = 2; // bold: string 2 -> suffix 4
    fond[s + 10 + 2] = 3; // italic: string 3 -> suffixes 5, 4
    fond[s + 10 + 3] = 9; // beyond the count: base name
    fond[s + 10 + 4] = 0;
    const QList<QByteArray> strings
        = { "Times", QByteArray("\x04", 1), QByteArray("\x05\x04", 2), "-Bold", "-Italic" };
    fond[s + 58] = 0;
    fond[s + 59] = char(strings.size());
    fond.truncate(s + 60);
    for (const QByteArray &str : strings)
        fond.append(char(str.size())).append(str);
    const QVResourceHandle h = newHandleFromBytes(fond);
    EXPECT_EQ(fork.getBitmapPSname(h, 0), QStringLiteral("Times"));
    EXPECT_EQ(fork.getBitmapPSname(h, 1), QStringLiteral("Times-Bold"));
    EXPECT_EQ(fork.getBitmapPSname(h, 2), QStringLiteral("Times-Italic-Bold"));
    EXPECT_EQ(fork.getBitmapPSname(h, 3), QStringLiteral("Times"));
    EXPECT_EQ(fork.getBitmapPSname(h, 4), QStringLiteral("Times"));

    unsigned char out[256];
    EXPECT_EQ(fork.NthStyleName(h, 4, s + 60, out), 0);
    EXPECT_EQ(QByteArray(reinterpret_cast<char *>(out + 1), out[0]), QByteArray("-Bold"));
    EXPECT_EQ(fork.NthStyleName(h, 7, s + 60, out), 1);

    // A signed length byte of 0x80 or more steps backwards (kept on purpose).
    QByteArray back = fond;
    back[s + 60 + 6] = char(0xF0); // second string's length byte: -16
    const QVResourceHandle hb = newHandleFromBytes(back);
    EXPECT_EQ(fork.NthStyleName(hb, 3, s + 60, out), 0);
    EXPECT_EQ(fork.NthStyleName(hb, 40, s + 60, out), 1);

    // An empty base name, or a table beyond the data, is "<none>".
    QByteArray noBase = fond;
    noBase[s + 60] = 0;
    EXPECT_EQ(fork.getBitmapPSname(newHandleFromBytes(noBase), 0), QStringLiteral("<none>"));
    QByteArray farTable = fond;
    farTable[25] = char(0x7F);
    EXPECT_EQ(fork.getBitmapPSname(newHandleFromBytes(farTable), 0), QStringLiteral("<none>"));
    EXPECT_EQ(fork.getBitmapPSname(newHandleFromBytes(QByteArray(20, '\0')), 0), QStringLiteral("<none>"));
    // A suffix index that points beyond the data fails the whole name.
    QByteArray badSuffix = fond;
    badSuffix[s + 60 + 6 + 1] = char(200);
    EXPECT_EQ(fork.getBitmapPSname(newHandleFromBytes(badSuffix), 1), QStringLiteral("<none>"));
}
