#include "settings/QVAutoScanSchedule.h"

bool QVAutoScanSchedule::isScheduled(const QString &frequency)
{
    return frequency == QLatin1String("kDaily") || frequency == QLatin1String("kWeekly")
        || frequency == QLatin1String("kMonthly");
}

QDateTime QVAutoScanSchedule::nextScanDate(
    const QDateTime &last, const QString &frequency, const QDateTime &now)
{
    if (!last.isValid() || !isScheduled(frequency))
        return QDateTime();
    const QDateTime from = (now.isValid() && last > now ? now : last).toLocalTime();
    if (frequency == QLatin1String("kDaily"))
        return from.addDays(1);
    if (frequency == QLatin1String("kWeekly"))
        return from.addDays(7);
    return from.addMonths(1);
}

bool QVAutoScanSchedule::isDue(const QDateTime &last, const QString &frequency, const QDateTime &now)
{
    const QDateTime next = nextScanDate(last, frequency, now);
    return next.isValid() && next <= now;
}
