// Builds and stores reports of many problem rows and prints the time taken and
// the process's peak memory, to show that filling the template stays fast and
// that memory grows with the report's text only. Runs in a temporary home.
#include "engine/QVFontConstants.h"
#include "reports/QVReportManager.h"
#include "store/QVReportStore.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTextStream>
#include <sys/resource.h>

namespace
{

long peakRssKiB()
{
    struct rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

// count problem fonts spread over the four diagnosis kinds, with duplicates.
QVReportInput makeInput(int count)
{
    QVReportInput input;
    input.totalFonts = quint32(count * 3);
    input.scanType = QStringLiteral("Manual Scan");
    input.scanFolders = { QStringLiteral("/srv/Fonts/") };
    for (int i = 0; i < count; ++i) {
        auto file
            = std::make_shared<QVFontFile>(QStringLiteral("/srv/Fonts/Family %1/Font %1 & Co.otf").arg(i));
        auto status = std::make_shared<QVStatus>();
        status->fontURL = file->URL;
        status->fontName = QStringLiteral("Font <%1>").arg(i);
        status->fontStyle = QStringLiteral("Regular");
        status->fontType = QVFontType::OpenType;
        status->PSname = QStringLiteral("Font%1-Regular").arg(i);
        const int kind = i % 4;
        status->setFontError(kind);
        status->setFontErrorInfo(kind == 0 ? QString::fromLatin1(QVDefect::BadTableData)
                : kind == 1                ? QString::fromLatin1(QVDefect::CouldntFindBitmapFont)
                : kind == 2                ? QString::fromLatin1(QVDefect::CouldntFindPostScriptFile)
                                           : QString::fromLatin1(QVDefect::FoundDuplicateFonts));
        status->movedToQuarantine = i % 3 == 0;
        file->fontStatusArray.append(status);
        input.fontFileItems.append(file);
        auto entry = std::make_shared<QVProblemFont>();
        entry->fontFile = file;
        entry->fontStatus = status;
        entry->diagnosisType = kind;
        if (kind == 3) {
            auto twin = std::make_shared<QVStatus>(*status);
            twin->fontURL = QStringLiteral("/srv/Old/Font %1.otf").arg(i);
            entry->duplicatesArray.append({ std::make_shared<QVFontFile>(twin->fontURL), twin });
        }
        input.problemFontsArray.append(entry);
    }
    return input;
}

} // namespace

int main(int argc, char **argv)
{
    QTemporaryDir home;
    qputenv("HOME", home.path().toUtf8());
    qputenv("XDG_DATA_HOME", (home.path() + QStringLiteral("/data")).toUtf8());
    qputenv("XDG_CONFIG_HOME", (home.path() + QStringLiteral("/config")).toUtf8());
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);

    QVReportStore store;
    for (int rows : { 2000, 20000 }) {
        const long before = peakRssKiB();
        QVReportManager manager;
        manager.setFileMgr(&store);
        manager.setReportInput(makeInput(rows));
        const long inputBuilt = peakRssKiB();

        QElapsedTimer timer;
        timer.start();
        const QVReportData data = manager.createReportDataDictionary(QDateTime::currentDateTime());
        const qint64 dictionaryMs = timer.restart();
        const QString html = manager.fillTemplate(data);
        const qint64 fillMs = timer.restart();
        const long filled = peakRssKiB();
        const QVariantMap record = manager.writeReport(QDateTime::currentDateTime());
        const qint64 writeMs = timer.elapsed();

        out << rows << " problem fonts -> " << data.diagnosisArray.size() << " rows\n"
            << "  data dictionary  " << dictionaryMs << " ms\n"
            << "  template filled  " << fillMs << " ms, " << html.toUtf8().size() / 1024 << " KiB of HTML\n"
            << "  whole report     " << writeMs << " ms (dictionary, filling, storing)\n"
            << "  peak RSS         " << before / 1024 << " MiB before, " << inputBuilt / 1024
            << " MiB with the input, " << filled / 1024 << " MiB after filling\n"
            << "  stored at        " << record.value(QStringLiteral("filePath")).toString() << "\n";
        out.flush();
    }
    return 0;
}
