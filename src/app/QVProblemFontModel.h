// The rows of the issue resolution window: one per problem font, with its
// check box and the Font, Diagnosis and Recommendation columns, and below it
// one line per defect (and "Duplicates:") shown when the row is expanded.
// Every text is taken from the entries when they are set, so that the model
// never reads a font's records while a resolution changes them on a worker.
#pragma once

#include "engine/QVProblemFont.h"

#include <QAbstractItemModel>
#include <QStringList>

class QVProblemFontModel : public QAbstractItemModel
{
    Q_OBJECT

public:
    enum Column { FontColumn = 0, DiagnosisColumn = 1, RecommendationColumn = 2 };
    static constexpr const char *kDuplicatesLabel = "Duplicates:";

    explicit QVProblemFontModel(QObject *parent = nullptr);

    void setRows(const QList<QVProblemFontPtr> &entries, const QList<int> &checkedRows);
    QVProblemFontPtr entry(int row) const;
    int rowCountOfFonts() const { return int(m_rows.size()); }
    // The lines an expanded row shows: its defects, then "Duplicates:".
    QStringList lines(int row) const;
    bool isChecked(int row) const;
    // Sets boxes without asking anyone (the window decides which).
    void setChecked(const QList<int> &rows, bool checked);
    // While resolving, boxes cannot be changed.
    void setEditable(bool editable);
    // The outcome of a resolved row: null error when done.
    void setResult(int row, const QString &error);
    QString result(int row) const;

    // "Name", "Name (Style)" for a bitmap font, the TrueType name of a
    // suitcase member.
    static QString fontColumnText(const QVProblemFontPtr &entry);

    QModelIndex index(int row, int column, const QModelIndex &parent = QModelIndex()) const override;
    QModelIndex parent(const QModelIndex &child) const override;
    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex &index, const QVariant &value, int role = Qt::EditRole) override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

Q_SIGNALS:
    // A box was clicked (checkBoxaction): the window applies it.
    void checkBoxClicked(int row, bool checked);

private:
    struct Row {
        QVProblemFontPtr entry;
        QString font;
        QString title;
        QString action;
        QString path;
        QStringList lines;
        bool checked = true;
        bool resolved = false;
        QString error;
    };
    QList<Row> m_rows;
    bool m_editable = true;
};
