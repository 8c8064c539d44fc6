// A diagnosis condensed for its report: plain values and ready-made HTML cell
// fragments, in section order. Everything taken from a font or a path is
// already escaped.
#pragma once

#include <QDateTime>
#include <QList>
#include <QString>

struct QVReportRow
{
    // Only on the first row of a section: the section's heading.
    QString qv_diagnosis_header;
    QString qv_diagnosis_fontName;
    QString qv_diagnosis_location;
    QString qv_diagnosis_condition;
    QString qv_diagnosis_action;
};

struct QVReportData
{
    QString qv_report_title;
    QDateTime qv_date;
    qint64 qv_total_examined = 0;
    qint64 qv_total_quarantined = 0;
    qint64 qv_total_problems = 0;
    qint64 qv_total_healthy = 0;
    // Empty when no row needs the footnote.
    QString qv_diagnosis_info_footer;
    // The scan's type, folders and per-pass counts, as an HTML fragment.
    QString qv_scan_summary;
    QList<QVReportRow> diagnosisArray;
};
