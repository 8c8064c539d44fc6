// The deep check of SFNT files, one thread, on the files named on standard
// input (one path a line): one line per file, "FINDINGS<TAB>PATH<TAB>MESSAGES"
// (FINDINGS 0 for a sound font), then the fonts and seconds taken on standard
// error. Used by deepcheck-vs-sanitizer.sh; figures, not a test.
#include "engine/QVDeepCheck.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTextStream>
#include <cstdio>

int main()
{
    QTextStream in(stdin);
    QTextStream out(stdout);
    QElapsedTimer timer;
    qint64 nanoseconds = 0;
    int fonts = 0;
    while (!in.atEnd()) {
        const QString path = in.readLine();
        if (path.isEmpty())
            continue;
        timer.start();
        QFile file(path);
        QStringList findings;
        if (file.open(QIODevice::ReadOnly)) {
            const QByteArray bytes = file.readAll();
            for (const QStringList &face : QVDeepCheck::checkFont(bytes))
                findings += face;
        }
        nanoseconds += timer.nsecsElapsed();
        ++fonts;
        out << findings.size() << '\t' << path << '\t' << findings.join(QStringLiteral("; ")) << '\n';
    }
    out.flush();
    std::fprintf(stderr, "%d fonts in %.3f s\n", fonts, double(nanoseconds) / 1e9);
    return 0;
}
