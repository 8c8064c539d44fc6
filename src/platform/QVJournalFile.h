// An append-only file of one-line entries, each on the disk before append()
// returns (written and fdatasync'd), so that a step taken after it can rely on
// it being recorded whatever happens next. A line cut short by a crash or a
// full disk is never taken for an entry: a failed append is cut off again, and
// reading returns complete lines only.
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

class QVJournalFile
{
public:
    explicit QVJournalFile(const QString &path);
    ~QVJournalFile();
    QVJournalFile(const QVJournalFile &) = delete;
    QVJournalFile &operator=(const QVJournalFile &) = delete;

    // Appends the line (a newline is added; the line must hold none). 0 or errno.
    int append(const QByteArray &line);
    // Appends the lines with one write and one sync: all of them or none.
    int append(const QList<QByteArray> &lines);
    // Deletes the file. 0 or errno (an absent file is no error).
    int remove();
    bool exists() const;

    // The complete lines of a journal file, oldest first; empty when there is
    // none. *error gets errno when it exists but cannot be read.
    static QList<QByteArray> readLines(const QString &path, int *error = nullptr);

private:
    void close();

    QString m_path;
    int m_fd = -1;
    qint64 m_size = 0;
    bool m_needsNewline = false;
};
