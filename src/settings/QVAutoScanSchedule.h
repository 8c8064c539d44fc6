// When the next auto-scan falls due: the last auto-scan plus one day, week or
// month by the local calendar, so a daily scan keeps its hour across a change
// to or from summer time and a month from January 31 ends on the last day of
// February.
#pragma once

#include <QDateTime>
#include <QString>

class QVAutoScanSchedule
{
public:
    // "kDaily", "kWeekly", "kMonthly"; anything else is "kNever".
    static bool isScheduled(const QString &frequency);

    // Invalid for "kNever" and for no last date. A last date later than now
    // (the clock was set back since) counts from now, so a clock that was
    // once wrong cannot put the next scan off for years.
    static QDateTime nextScanDate(const QDateTime &last, const QString &frequency, const QDateTime &now);

    // Never due without a last date: the count starts somewhere first (a
    // fresh account does not scan every font folder the moment it logs in).
    static bool isDue(const QDateTime &last, const QString &frequency, const QDateTime &now);
};
