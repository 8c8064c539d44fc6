#include "cli/QVRsrcCommand.h"

#include "engine/QVResouceFork.h"
#include "platform/QVFileSystem.h"
#include "platform/QVForkStorage.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <mutex>

namespace
{

QJsonValue fourCC(const QByteArray &info, int at)
{
    const QByteArray code = info.mid(at, 4);
    if (code == QByteArray(4, '\0'))
        return QJsonValue::Null;
    return QVResouceFork::fromMacRoman(code);
}

// One JSON value in compact form.
QString jsonValue(const QJsonValue &value)
{
    const QByteArray array = QJsonDocument(QJsonArray { value }).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(array.mid(1, array.size() - 2));
}

// An object with its keys in the given order (QJsonDocument sorts them).
QString orderedObject(const QJsonObject &object, const QStringList &order)
{
    QStringList parts;
    for (const QString &key : order) {
        if (object.contains(key))
            parts.append(jsonValue(key) + QLatin1Char(':') + jsonValue(object.value(key)));
    }
    return QLatin1Char('{') + parts.join(QLatin1Char(',')) + QLatin1Char('}');
}

// The listing with its keys in reading order: fork, storage, Finder info, resources.
QString orderedJson(const QJsonObject &result)
{
    QStringList resources;
    for (const QJsonValue &resource : result.value(QStringLiteral("resources")).toArray())
        resources.append(orderedObject(resource.toObject(),
            { QStringLiteral("type"), QStringLiteral("id"), QStringLiteral("name"), QStringLiteral("size"),
                QStringLiteral("error") }));
    const QString finder = orderedObject(result.value(QStringLiteral("finderInfo")).toObject(),
        { QStringLiteral("type"), QStringLiteral("creator"), QStringLiteral("flags"),
            QStringLiteral("storage") });
    return QStringLiteral("{\"hasResourceFork\":%1,\"storage\":%2,\"finderInfo\":%3,\"resources\":[%4]}")
        .arg(jsonValue(result.value(QStringLiteral("hasResourceFork"))),
            jsonValue(result.value(QStringLiteral("storage"))), finder, resources.join(QLatin1Char(',')));
}

} // namespace

QJsonObject QVRsrcCommand::describe(const QString &path, QString *error)
{
    std::lock_guard guard(QVResouceFork::lock());
    if (!QVFileSystem::exists(path) || QVFileSystem::isDirectory(path)) {
        *error = QVResouceFork::errorMessageForCode(QVResourceError::FileNotFound);
        return {};
    }
    QVResouceFork fork;
    QJsonObject result;

    QByteArray finder;
    QVForkStorage::Place finderPlace = QVForkStorage::Place::None;
    if (const qint16 code = QVForkStorage::readFinderInfo(path, &finder, &finderPlace); code != 0) {
        *error = QVResouceFork::errorMessageForCode(code);
        return {};
    }
    QJsonObject finderInfo;
    finderInfo.insert(QStringLiteral("type"), fourCC(finder, 0));
    finderInfo.insert(QStringLiteral("creator"), fourCC(finder, 4));
    finderInfo.insert(QStringLiteral("flags"), int(fork.finderInfoFlags(path)));
    finderInfo.insert(QStringLiteral("storage"), QVForkStorage::placeName(finderPlace));

    const qint16 saved = fork.getCurrentResource();
    const qint16 refNum = fork.openResourceFile(QVPermission::Read, path);
    const qint16 openError = fork.resourceError();
    QJsonArray resources;
    QString storage = QStringLiteral("none");
    if (refNum >= 1) {
        storage = QVForkStorage::placeName(QVForkStorage::resourceForkPlace(path));
        QVResourceManager::useResFile(refNum);
        const int typeCount = QVResourceManager::count1Types();
        for (int t = 1; t <= typeCount; ++t) {
            const quint32 type = QVResourceManager::get1IndType(t);
            const int count = fork.countResourceTypes(refNum, type);
            for (int i = 1; i <= count; ++i) {
                QJsonObject entry;
                entry.insert(QStringLiteral("type"), qvFourCCString(type));
                const QVResourceHandle h = fork.getIndexResource(refNum, type, i);
                if (!h) {
                    entry.insert(
                        QStringLiteral("error"), QVResouceFork::errorMessageForCode(fork.resourceError()));
                    resources.append(entry);
                    continue;
                }
                entry.insert(QStringLiteral("id"), int(h->id));
                entry.insert(QStringLiteral("name"),
                    h->hasName ? QJsonValue(QVResouceFork::fromMacRoman(h->name))
                               : QJsonValue(QJsonValue::Null));
                entry.insert(QStringLiteral("size"), qint64(h->data.size()));
                resources.append(entry);
                fork.releaseResource(h);
            }
            QVResourceManager::useResFile(refNum);
        }
        fork.closeResourceFile(refNum);
        fork.useResourceFile(saved);
    } else if (openError != QVResourceError::ResFileNotFound) {
        *error = QVResouceFork::errorMessageForCode(openError);
        return {};
    }
    result.insert(QStringLiteral("hasResourceFork"), refNum >= 1);
    result.insert(QStringLiteral("storage"), storage);
    result.insert(QStringLiteral("finderInfo"), finderInfo);
    result.insert(QStringLiteral("resources"), resources);
    return result;
}

int QVRsrcCommand::run(const QStringList &arguments)
{
    QStringList files = arguments;
    const bool json = files.removeAll(QStringLiteral("--json")) > 0;
    if (files.size() != 1 || files.first().startsWith(QLatin1String("--"))) {
        err() << "usage: quorvel-cli rsrc [--json] FILE\n";
        err().flush();
        return UsageError;
    }
    const QString path = files.first();
    QString error;
    const QJsonObject result = describe(path, &error);
    if (!error.isEmpty()) {
        err() << "quorvel-cli rsrc: " << path << ": " << error << '\n';
        err().flush();
        return UsageError;
    }
    if (json) {
        out() << orderedJson(result) << '\n';
        out().flush();
        return Success;
    }
    const QJsonObject finder = result.value(QStringLiteral("finderInfo")).toObject();
    auto code = [](const QJsonValue &v) { return v.isNull() ? QStringLiteral("(none)") : v.toString(); };
    out() << "file:           " << path << '\n'
          << "resource fork:  " << (result.value(QStringLiteral("hasResourceFork")).toBool() ? "yes" : "no")
          << " (" << result.value(QStringLiteral("storage")).toString() << ")\n"
          << "finder info:    " << finder.value(QStringLiteral("storage")).toString() << '\n'
          << "type:           " << code(finder.value(QStringLiteral("type"))) << '\n'
          << "creator:        " << code(finder.value(QStringLiteral("creator"))) << '\n'
          << "flags:          0x"
          << QString::number(finder.value(QStringLiteral("flags")).toInt(), 16).rightJustified(4, u'0')
          << '\n';
    const QJsonArray resources = result.value(QStringLiteral("resources")).toArray();
    out() << "resources:      " << resources.size() << '\n';
    for (const QJsonValue &value : resources) {
        const QJsonObject r = value.toObject();
        out() << "  " << r.value(QStringLiteral("type")).toString() << ' ';
        if (r.contains(QStringLiteral("error"))) {
            out() << "(" << r.value(QStringLiteral("error")).toString() << ")\n";
            continue;
        }
        out() << QString::number(r.value(QStringLiteral("id")).toInt()).rightJustified(6) << ' '
              << QString::number(qint64(r.value(QStringLiteral("size")).toDouble())).rightJustified(9) << ' '
              << (r.value(QStringLiteral("name")).isNull() ? QString()
                                                           : r.value(QStringLiteral("name")).toString())
              << '\n';
    }
    out().flush();
    return Success;
}

QVCliHelp::Command QVRsrcCommand::help() const
{
    return { {}, {}, { QStringLiteral("rsrc [--json] FILE") },
        QStringLiteral("Says where a file's resource fork and Finder info live (extended attributes, an "
                       "AppleDouble ._FILE beside it, netatalk's .AppleDouble folder, or the data fork of a "
                       ".dfont), its type, creator and Finder flags, and lists every resource of the fork."),
        { { QStringLiteral("--json"), QStringLiteral("Write the listing as JSON.") } },
        { QStringLiteral("rsrc \"/srv/fonts/Times/Times\"") } };
}
