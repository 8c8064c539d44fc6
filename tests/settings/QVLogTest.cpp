#include "settings/QVLog.h"

#include "settings/QVSettings.h"
#include "support/QVTestHome.h"

#include <QFile>
#include <gtest/gtest.h>

TEST(QVLog, WritesToTheDataFolderOnlyWhenLoggingIsOn)
{
    QVTestHome home;
    QVSettings settings;
    settings.setDoLogging(false);
    QVLog::configure();
    qCInfo(lcStore) << "not written";
    EXPECT_FALSE(QFile::exists(QVLog::logFilePath()));

    settings.setDoLogging(true);
    QVLog::configure();
    EXPECT_TRUE(QVLog::isEnabled());
    qCInfo(lcStore, "Error: moveFileToQuarantine %s", "/fonts/A.otf");
    QFile log(QVLog::logFilePath());
    ASSERT_TRUE(log.open(QIODevice::ReadOnly));
    const QByteArray text = log.readAll();
    EXPECT_TRUE(text.contains("quorvel.store: Error: moveFileToQuarantine /fonts/A.otf"));
    EXPECT_FALSE(text.contains("not written"));
    EXPECT_TRUE(log.fileName().startsWith(home.dataHome() + QStringLiteral("/Quorvel/")));

    QVLog::setEnabled(false);
}
