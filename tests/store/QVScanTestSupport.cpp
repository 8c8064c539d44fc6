#include "QVScanTestSupport.h"

#include "settings/QVNotificationCenter.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <QtEndian>
#include <sys/xattr.h>

bool QVRecordingExaminer::Shared::waitUntilHolding(int timeoutMs)
{
    QMutexLocker locker(&mutex);
    QDeadlineTimer deadline(timeoutMs);
    while (!holding) {
        if (!changed.wait(&mutex, deadline))
            return holding;
    }
    return true;
}

void QVRecordingExaminer::Shared::release()
{
    QMutexLocker locker(&mutex);
    released = true;
    changed.wakeAll();
}

void QVRecordingExaminer::examineFont(const QString &path)
{
    {
        QMutexLocker locker(&m_shared->mutex);
        m_shared->examined.append(path);
        if (!m_shared->holdAt.isEmpty() && path.endsWith(m_shared->holdAt)) {
            m_shared->holding = true;
            m_shared->changed.wakeAll();
            while (!m_shared->released)
                m_shared->changed.wait(&m_shared->mutex);
        }
    }
    auto status = std::make_shared<QVStatus>();
    status->fontURL = path;
    status->fontName = QFileInfo(path).fileName();
    m_statuses.append(status);
}

QVScanNotifications::QVScanNotifications()
{
    m_connection = QObject::connect(QVNotificationCenter::defaultCenter(),
        &QVNotificationCenter::kScanFolderComplete, [this](const QVariantMap &userInfo) {
            statuses.append(userInfo.value(QStringLiteral("status")).toString());
        });
}

QVScanNotifications::~QVScanNotifications()
{
    QObject::disconnect(m_connection);
}

bool waitFor(const std::function<bool()> &condition, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::msleep(2);
    }
    return true;
}

void spinEventLoop(int milliseconds)
{
    QDeadlineTimer deadline(milliseconds);
    while (!deadline.hasExpired()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::msleep(2);
    }
}

QString dejaVuSans()
{
    return QStringLiteral("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf");
}

QString type1Font()
{
    return QStringLiteral("/usr/share/fonts/X11/Type1/C059-Italic.pfb");
}

QString copyRealFont(const QString &source, const QString &destination)
{
    QDir().mkpath(QFileInfo(destination).absolutePath());
    QFile::copy(source, destination);
    return destination;
}

bool setFinderInfo(const QString &path, const QByteArray &type, const QByteArray &creator, quint16 flags)
{
    QByteArray info(32, '\0');
    info.replace(0, 4, type.left(4));
    info.replace(4, 4, creator.left(4));
    qToBigEndian(flags, info.data() + 8);
    const QByteArray name = QFile::encodeName(path);
    return setxattr(name.constData(), "user.com.apple.FinderInfo", info.constData(), size_t(info.size()), 0)
        == 0;
}

QString makeSuitcase(const QString &path, QString *error)
{
    QTemporaryDir work;
    auto run = [&](const QString &program, const QStringList &arguments) {
        QProcess process;
        process.setWorkingDirectory(work.path());
        process.start(program, arguments);
        process.waitForFinished(60000);
        return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    };
    // otf2bdf's exit status is not a success flag (it reports 8 for a good
    // font), so its output file is what counts.
    run(QStringLiteral("otf2bdf"),
        { QStringLiteral("-p"), QStringLiteral("12"), dejaVuSans(), QStringLiteral("-o"),
            QStringLiteral("DejaVuSans-12.bdf") });
    if (QFileInfo(work.path() + QStringLiteral("/DejaVuSans-12.bdf")).size() == 0
        || run(QStringLiteral("ufond"), { QStringLiteral("-macbin"), QStringLiteral("DejaVuSans-12.bdf") })
            != 0) {
        *error = QStringLiteral("otf2bdf or ufond failed");
        return QString();
    }
    const QStringList made = QDir(work.path()).entryList({ QStringLiteral("*.bin") }, QDir::Files);
    if (made.isEmpty()) {
        *error = QStringLiteral("ufond wrote no MacBinary file");
        return QString();
    }
    QFile binary(work.path() + QLatin1Char('/') + made.first());
    if (!binary.open(QIODevice::ReadOnly)) {
        *error = binary.errorString();
        return QString();
    }
    const QByteArray macBinary = binary.readAll();
    if (macBinary.size() < 128) {
        *error = QStringLiteral("short MacBinary file");
        return QString();
    }
    // MacBinary header: type at 65, creator at 69, fork lengths at 83 and 87;
    // the forks follow in 128-byte blocks.
    const auto *header = reinterpret_cast<const uchar *>(macBinary.constData());
    const quint32 dataLength = qFromBigEndian<quint32>(header + 83);
    const quint32 forkLength = qFromBigEndian<quint32>(header + 87);
    const qint64 forkStart = 128 + (qint64(dataLength) + 127) / 128 * 128;
    if (forkStart + forkLength > macBinary.size()) {
        *error = QStringLiteral("MacBinary forks run past the end");
        return QString();
    }
    const QByteArray type = macBinary.mid(65, 4);
    const QByteArray creator = macBinary.mid(69, 4);
    const QByteArray fork = macBinary.mid(forkStart, forkLength);

    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile suitcase(path);
    if (!suitcase.open(QIODevice::WriteOnly)) {
        *error = suitcase.errorString();
        return QString();
    }
    suitcase.close();
    // The fork is too large for an extended attribute on ext4, so it goes
    // where macOS puts it on such volumes: an AppleDouble sidecar, entry 9
    // the Finder info and entry 2 the fork.
    QByteArray finderInfo(32, '\0');
    finderInfo.replace(0, 4, type);
    finderInfo.replace(4, 4, creator);
    QByteArray sidecar(26 + 2 * 12, '\0');
    auto *bytes = reinterpret_cast<uchar *>(sidecar.data());
    qToBigEndian<quint32>(0x00051607, bytes);
    qToBigEndian<quint32>(0x00020000, bytes + 4);
    qToBigEndian<quint16>(2, bytes + 24);
    const quint32 infoOffset = quint32(sidecar.size());
    const quint32 forkOffset = infoOffset + 32;
    qToBigEndian<quint32>(9, bytes + 26);
    qToBigEndian<quint32>(infoOffset, bytes + 30);
    qToBigEndian<quint32>(32, bytes + 34);
    qToBigEndian<quint32>(2, bytes + 38);
    qToBigEndian<quint32>(forkOffset, bytes + 42);
    qToBigEndian<quint32>(forkLength, bytes + 46);
    sidecar += finderInfo + fork;
    QFile sidecarFile(QFileInfo(path).absolutePath() + QStringLiteral("/._") + QFileInfo(path).fileName());
    if (!sidecarFile.open(QIODevice::WriteOnly) || sidecarFile.write(sidecar) != sidecar.size()) {
        *error = sidecarFile.errorString();
        return QString();
    }
    if (type != "FFIL") {
        *error = QStringLiteral("ufond wrote type ") + QString::fromLatin1(type);
        return QString();
    }
    return path;
}
