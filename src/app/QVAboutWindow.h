// The About window: the program's icon, name and version, its licence, and
// the libraries it runs with, each with the version actually loaded.
#pragma once

#include <QDialog>

class QLabel;

class QVAboutWindow : public QDialog
{
    Q_OBJECT

public:
    explicit QVAboutWindow(QWidget *parent = nullptr);

    // "Qt 6.4.2", "FreeType 2.12.1", ...: one entry a library.
    static QStringList libraries();
    QLabel *versionLabel() const { return m_version; }
    QLabel *detailsLabel() const { return m_details; }

private:
    QLabel *m_version;
    QLabel *m_details;
};
