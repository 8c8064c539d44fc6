// Connects a helper channel's signals to a test's recorder: whichever of
// gotCommand, gotResponse and gotTimeout it has.
#pragma once

#include "settings/QVHelperCommunications.h"

namespace qvtest
{

template <typename Recorder> void listen(QVHelperCommunications &channel, Recorder &recorder)
{
    Recorder *r = &recorder;
    if constexpr (requires { r->gotCommand(QString(), QString(), QVariantMap()); })
        QObject::connect(&channel, &QVHelperCommunications::commandReceived,
            [r](const QString &c, const QString &s, const QVariantMap &o) { r->gotCommand(c, s, o); });
    if constexpr (requires { r->gotResponse(QString(), QString(), QVariantMap()); })
        QObject::connect(&channel, &QVHelperCommunications::responseReceived,
            [r](const QString &c, const QString &s, const QVariantMap &o) { r->gotResponse(c, s, o); });
    if constexpr (requires { r->gotTimeout(QString()); })
        QObject::connect(
            &channel, &QVHelperCommunications::commandTimedOut, [r](const QString &c) { r->gotTimeout(c); });
}

} // namespace qvtest
