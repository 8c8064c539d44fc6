// Standard output or error for the command line's text streams. Paths hold
// the bytes of names that are not UTF-8 as private-use characters; on the way
// out they become the characters a person can read.
#pragma once

#include <QIODevice>
#include <cstdio>

class QVCliOutputDevice : public QIODevice
{
public:
    explicit QVCliOutputDevice(FILE *stream);

protected:
    qint64 readData(char *, qint64) override { return -1; }
    qint64 writeData(const char *data, qint64 length) override;

private:
    FILE *m_stream;
    // The start of a character cut off at the end of the last write.
    QByteArray m_pending;
};
