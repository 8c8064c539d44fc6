#include "QVDiagnoseFixtures.h"

#include "engine/QVResouceFork.h"
#include "engine/QVResourceManager.h"
#include "platform/QVForkStorage.h"
#include "support/QVTestHome.h"

#include <QFile>
#include <QProcess>
#include <mutex>

namespace QVDiagnoseFixtures
{

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size();
}

bool runTool(const QString &program, const QStringList &arguments, QString *log)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    const bool finished = process.waitForFinished(120000);
    if (log)
        *log = QString::fromLocal8Bit(process.readAll());
    return finished && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

static quint16 be16(const QByteArray &b, qsizetype at)
{
    return quint16((quint8(b[at]) << 8) | quint8(b[at + 1]));
}

bool setTableChecksum(QByteArray &font, const char tag[4], quint32 checksum)
{
    const int count = be16(font, 4);
    for (int i = 0; i < count; ++i) {
        const qsizetype entry = 12 + 16 * i;
        if (font.mid(entry, 4) == QByteArray(tag, 4)) {
            for (int k = 0; k < 4; ++k)
                font[entry + 4 + k] = char((checksum >> (24 - 8 * k)) & 0xFF);
            return true;
        }
    }
    return false;
}

bool setFinderInfo(const QString &path, const char type[5], quint16 finderFlags)
{
    QByteArray info(32, '\0');
    info.replace(0, 4, QByteArray(type, 4));
    info[8] = char(finderFlags >> 8);
    info[9] = char(finderFlags & 0xFF);
    return QVForkStorage::writeFinderInfo(path, info) == 0;
}

bool installForkFile(const QString &path, const QByteArray &fork, const char type[5], quint16 finderFlags)
{
    if (!writeFile(path, QByteArray()))
        return false;
    if (QVForkStorage::writeResourceFork(path, fork, QVForkStorage::Place::AppleDouble) != 0)
        return false;
    return setFinderInfo(path, type, finderFlags);
}

QByteArray ufondSuitcaseFork()
{
    return readFile(testDataPath(QStringLiteral("fonts/DejaVuSans-suitcase.rsrc")));
}

bool editResource(const QString &path, const char type[5], qint16 id, bool (*edit)(QByteArray &bytes))
{
    const std::lock_guard<std::recursive_mutex> guard(QVResourceManager::lock());
    const qint16 ref = QVResourceManager::openResFile(path, QVPermission::ReadWrite);
    if (ref < 1)
        return false;
    const quint32 code = (quint32(quint8(type[0])) << 24) | (quint32(quint8(type[1])) << 16)
        | (quint32(quint8(type[2])) << 8) | quint32(quint8(type[3]));
    const QVResourceHandle handle = QVResourceManager::get1Resource(code, id);
    bool ok = handle != nullptr;
    if (ok) {
        if (edit(handle->data)) {
            ok = QVResourceManager::changedResource(handle) == 0
                && QVResourceManager::writeResource(handle) == 0;
        } else {
            ok = QVResourceManager::removeResource(handle) == 0;
        }
    }
    QVResourceManager::closeResFile(ref);
    return ok;
}

Examination examine(QVFontDiagnose &examiner, const QString &path, bool activation)
{
    examiner.initialize();
    examiner.setDoActivation(activation);
    examiner.examineFont(path);
    Examination examination { examiner.examineResult(), examiner.fontStatusArray() };
    examiner.finalize();
    return examination;
}

} // namespace QVDiagnoseFixtures
