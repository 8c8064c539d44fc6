#include "diagnosis/QVType1Duplicates.h"

#include "diagnosis/QVType1Counterparts.h"
#include "engine/QVFontConstants.h"

#include <QHash>
#include <QPair>

QList<QList<QVFontRef>> QVType1Duplicates::groups(const QList<QVFontFilePtr> &fontFiles)
{
    struct Group {
        QList<QVFontRef> members;
        bool mac = false;
        bool pc = false;
    };
    QHash<QPair<QString, QString>, qsizetype> byName;
    QList<Group> found;
    for (const QVFontFilePtr &file : fontFiles) {
        if (file->fileMovedToQuarantine || QVType1Counterparts::isPCMetrics(*file))
            continue;
        const bool pc = QVType1Counterparts::isPCOutline(*file);
        if (!pc && file->macTypeCode != QLatin1String("LWFN"))
            continue;
        for (const QVStatusPtr &status : std::as_const(file->fontStatusArray)) {
            if (status->fontType != QVFontType::PostScriptType1 || status->isUnreadable()
                || status->movedToQuarantine || status->PSname == QLatin1String("<none>")
                || status->PSname.isEmpty())
                continue;
            const QPair<QString, QString> key { status->PSname, status->PSversion };
            auto at = byName.constFind(key);
            if (at == byName.cend()) {
                at = byName.insert(key, found.size());
                found.append(Group());
            }
            Group &group = found[*at];
            group.members.append(QVFontRef { file, status });
            (pc ? group.pc : group.mac) = true;
        }
    }
    QList<QList<QVFontRef>> groups;
    for (const Group &group : std::as_const(found)) {
        if (group.mac && group.pc)
            groups.append(group.members);
    }
    return groups;
}
