#include "cli/QVRecordCsv.h"

#include "engine/QVFontDataManager.h"

QStringList QVRecordCsv::columns()
{
    return { QStringLiteral("URL"), QStringLiteral("fontFileType"), QStringLiteral("macTypeCode"),
        QStringLiteral("index"), QStringLiteral("fontType"), QStringLiteral("fontName"),
        QStringLiteral("familyName"), QStringLiteral("fontStyle"), QStringLiteral("fontSize"),
        QStringLiteral("fontVersion"), QStringLiteral("PSname"), QStringLiteral("fontFoundry"),
        QStringLiteral("fontErrorsInfo") };
}

QString QVRecordCsv::field(const QString &text)
{
    if (!text.contains(QLatin1Char(',')) && !text.contains(QLatin1Char('"'))
        && !text.contains(QLatin1Char('\n')) && !text.contains(QLatin1Char('\r')))
        return text;
    return QLatin1Char('"') + QString(text).replace(QLatin1Char('"'), QStringLiteral("\"\""))
        + QLatin1Char('"');
}

QString QVRecordCsv::write(const QVFontDataManager &dataMgr, const QStringList &extraColumns,
    const QHash<const QVStatus *, QStringList> &extra)
{
    auto line = [](const QStringList &cells) -> QString {
        QStringList fields;
        for (const QString &cell : cells)
            fields << field(cell);
        return fields.join(QLatin1Char(',')) + QStringLiteral("\r\n");
    };
    QString text = line(columns() + extraColumns);
    for (const QVFontFilePtr &file : dataMgr.fontFileItems) {
        for (const QVStatusPtr &status : std::as_const(file->fontStatusArray)) {
            QStringList cells { file->URL, QString::number(file->fontFileType), file->macTypeCode,
                QString::number(status->index), QString::number(status->fontType), status->fontName,
                status->familyName, status->fontStyle, QString::number(status->fontSize),
                QString::number(status->fontVersion), status->PSname, status->fontFoundry,
                status->fontErrorsInfo.join(QStringLiteral("; ")) };
            QStringList more = extra.value(status.get());
            while (more.size() < extraColumns.size())
                more << QString();
            text += line(cells + more.mid(0, extraColumns.size()));
        }
    }
    return text;
}
