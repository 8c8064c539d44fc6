// The access and modification times of a file and of the companion files that
// hold its fork and Finder info (sidecar, netatalk file), to be given back
// after an edit, or given to a copy: rewriting a suitcase's fork to take a
// font out or put it back does not make its fonts newer.
#pragma once

#include <QString>

class QVFileTimes
{
public:
    // The times as they are now; invalid when the file cannot be read.
    static QVFileTimes read(const QString &path);
    bool isValid() const { return m_valid; }
    // Sets them on the file and its companions (a companion that had no times
    // of its own takes the file's). 0 or errno.
    int apply(const QString &path) const;

private:
    struct Times {
        bool known = false;
        qint64 accessed[2] = { 0, 0 }; // seconds, nanoseconds
        qint64 modified[2] = { 0, 0 };
    };
    static Times of(const QString &path);
    static int set(const QString &path, const Times &times);

    bool m_valid = false;
    Times m_file;
    Times m_sidecar;
    Times m_netatalk;
};
