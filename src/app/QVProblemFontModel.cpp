#include "QVProblemFontModel.h"

#include "diagnosis/QVDiagnosisResolution.h"

#include <QSize>

namespace
{

// Top-level rows have id 0; a line below row R has id R + 1.
constexpr quintptr kTop = 0;
constexpr int kRowHeight = 26;

} // namespace

QVProblemFontModel::QVProblemFontModel(QObject *parent)
    : QAbstractItemModel(parent)
{
}

QString QVProblemFontModel::fontColumnText(const QVProblemFontPtr &entry)
{
    const QVStatusPtr &status = entry->fontStatus;
    if (status->fontSize > 0 && status->fontStyle != QLatin1String("Plain") && !status->fontStyle.isEmpty())
        return QStringLiteral("%1 (%2)").arg(status->fontName, status->fontStyle);
    if (status->fontSize <= 0 && status->fontType == 3 && entry->fontFile->fontFileType == 0
        && !status->trueTypeFontName.isEmpty())
        return status->trueTypeFontName;
    return status->fontName;
}

void QVProblemFontModel::setRows(const QList<QVProblemFontPtr> &entries, const QList<int> &checkedRows)
{
    beginResetModel();
    m_rows.clear();
    m_rows.reserve(entries.size());
    for (const QVProblemFontPtr &entry : entries) {
        Row row;
        row.entry = entry;
        row.font = fontColumnText(entry);
        row.title = QVDiagnosisResolution::rowTitle(entry);
        row.action = QVDiagnosisResolution::getActionTitleForErrors(entry->fontStatus);
        row.path = entry->fontStatus->fontURL;
        row.lines = entry->fontStatus->fontErrorsInfo;
        if (entry->diagnosisType == 3 && !entry->duplicatesArray.isEmpty())
            row.lines << QString::fromLatin1(kDuplicatesLabel);
        row.checked = false;
        m_rows.append(row);
    }
    for (const int row : checkedRows) {
        if (row >= 0 && row < m_rows.size())
            m_rows[row].checked = true;
    }
    endResetModel();
}

QVProblemFontPtr QVProblemFontModel::entry(int row) const
{
    return row >= 0 && row < m_rows.size() ? m_rows.at(row).entry : nullptr;
}

QStringList QVProblemFontModel::lines(int row) const
{
    return row >= 0 && row < m_rows.size() ? m_rows.at(row).lines : QStringList();
}

bool QVProblemFontModel::isChecked(int row) const
{
    return row >= 0 && row < m_rows.size() && m_rows.at(row).checked;
}

void QVProblemFontModel::setChecked(const QList<int> &rows, bool checked)
{
    for (const int row : rows) {
        if (row < 0 || row >= m_rows.size() || m_rows.at(row).checked == checked)
            continue;
        m_rows[row].checked = checked;
        Q_EMIT dataChanged(index(row, FontColumn), index(row, FontColumn), { Qt::CheckStateRole });
    }
}

void QVProblemFontModel::setEditable(bool editable)
{
    if (m_editable == editable)
        return;
    m_editable = editable;
    if (!m_rows.isEmpty())
        Q_EMIT dataChanged(index(0, FontColumn), index(int(m_rows.size()) - 1, FontColumn));
}

void QVProblemFontModel::setResult(int row, const QString &error)
{
    if (row < 0 || row >= m_rows.size())
        return;
    m_rows[row].resolved = true;
    m_rows[row].error = error;
    Q_EMIT dataChanged(index(row, FontColumn), index(row, RecommendationColumn));
}

QString QVProblemFontModel::result(int row) const
{
    if (row < 0 || row >= m_rows.size() || !m_rows.at(row).resolved)
        return QString();
    const Row &r = m_rows.at(row);
    return r.error.isNull() ? r.action + QStringLiteral(" ✓") : r.action + QStringLiteral(" failed");
}

QModelIndex QVProblemFontModel::index(int row, int column, const QModelIndex &parent) const
{
    if (column < 0 || column > RecommendationColumn || row < 0)
        return QModelIndex();
    if (!parent.isValid())
        return row < m_rows.size() ? createIndex(row, column, kTop) : QModelIndex();
    if (parent.internalId() != kTop || row >= lines(parent.row()).size())
        return QModelIndex();
    return createIndex(row, column, quintptr(parent.row()) + 1);
}

QModelIndex QVProblemFontModel::parent(const QModelIndex &child) const
{
    if (!child.isValid() || child.internalId() == kTop)
        return QModelIndex();
    return createIndex(int(child.internalId() - 1), FontColumn, kTop);
}

int QVProblemFontModel::rowCount(const QModelIndex &parent) const
{
    if (!parent.isValid())
        return int(m_rows.size());
    if (parent.internalId() != kTop || parent.column() != FontColumn)
        return 0;
    return int(lines(parent.row()).size());
}

int QVProblemFontModel::columnCount(const QModelIndex &) const
{
    return RecommendationColumn + 1;
}

QVariant QVProblemFontModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid())
        return QVariant();
    if (role == Qt::SizeHintRole)
        return QSize(-1, kRowHeight);
    if (index.internalId() != kTop) {
        // A defect line: its name (the line's widget draws it).
        if ((role == Qt::AccessibleTextRole || role == Qt::UserRole) && index.column() == FontColumn)
            return lines(int(index.internalId() - 1)).value(index.row());
        return QVariant();
    }
    const Row &row = m_rows.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
        if (index.column() == FontColumn)
            return row.font;
        if (index.column() == DiagnosisColumn)
            return row.title;
        return row.resolved ? result(index.row()) : row.action;
    case Qt::CheckStateRole:
        return index.column() == FontColumn ? QVariant(row.checked ? Qt::Checked : Qt::Unchecked)
                                            : QVariant();
    case Qt::ToolTipRole:
        if (index.column() == RecommendationColumn && row.resolved && !row.error.isNull())
            return row.error;
        return index.column() == FontColumn ? QVariant(row.path) : QVariant();
    case Qt::AccessibleTextRole:
        if (index.column() == FontColumn)
            return QStringLiteral("%1, %2, %3, %4")
                .arg(row.font, row.title, row.resolved ? result(index.row()) : row.action,
                    row.checked ? QStringLiteral("checked") : QStringLiteral("not checked"));
        return data(index, Qt::DisplayRole);
    default:
        return QVariant();
    }
}

bool QVProblemFontModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    if (!index.isValid() || index.internalId() != kTop || index.column() != FontColumn
        || role != Qt::CheckStateRole || !m_editable)
        return false;
    Q_EMIT checkBoxClicked(index.row(), value.toInt() == Qt::Checked);
    return true;
}

Qt::ItemFlags QVProblemFontModel::flags(const QModelIndex &index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    if (index.internalId() != kTop)
        return Qt::ItemIsEnabled;
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    if (index.column() == FontColumn && m_editable)
        flags |= Qt::ItemIsUserCheckable;
    return flags;
}

QVariant QVProblemFontModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QVariant();
    switch (section) {
    case FontColumn:
        return QStringLiteral("Font");
    case DiagnosisColumn:
        return QStringLiteral("Diagnosis");
    case RecommendationColumn:
        return QStringLiteral("Recommendation");
    default:
        return QVariant();
    }
}
