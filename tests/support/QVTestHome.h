// A throw-away home for one test: HOME and the XDG folders point into a temporary directory, so settings,
// the data folder, caches and fonts never touch the real ones.
#pragma once

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

class QVTestHome
{
public:
    QVTestHome();
    ~QVTestHome();
    QVTestHome(const QVTestHome &) = delete;
    QVTestHome &operator=(const QVTestHome &) = delete;

    QString path() const { return m_dir.path(); }
    QString configHome() const { return m_dir.path() + QStringLiteral("/.config"); }
    QString dataHome() const { return m_dir.path() + QStringLiteral("/.local/share"); }

    // Writes a file (creating its folders) and returns its absolute path.
    QString writeFile(const QString &relativePath, const QByteArray &contents) const;

private:
    QTemporaryDir m_dir;
    QByteArray m_saved[4];
};

// Absolute path of a committed fixture under tests/data.
QString testDataPath(const QString &relativePath);
