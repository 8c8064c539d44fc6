// The report viewer's tests run on a display (xvfb-run) with Qt WebEngine,
// which wants its scheme and shared contexts before the application exists.
#include "app/QVReportSchemeHandler.h"

#include <QApplication>
#include <gtest/gtest.h>

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QTWEBENGINE_CHROMIUM_FLAGS"))
        qputenv("QTWEBENGINE_CHROMIUM_FLAGS", "--no-sandbox --disable-gpu");
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QVReportSchemeHandler::registerScheme();
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
