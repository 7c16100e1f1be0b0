#pragma once

#include "support/TestEnv.h"
#include "ui/WidgetDialogs.h"

#include <QApplication>
#include <QTest>

// Every test runs in a home of its own: settings, simulator state and login
// profile live in a temporary folder that disappears with the test.
#define TAPEDESK_TEST_MAIN(TestClass)                                                                        \
    int main(int argc, char **argv)                                                                          \
    {                                                                                                        \
        tapedesk::test::TestHome home;                                                                       \
        QApplication app(argc, argv);                                                                        \
        tapedesk::test::configureApplication(app);                                                           \
        tapedesk::setDialogProvider(std::make_unique<tapedesk::WidgetDialogs>());                            \
        TestClass tc;                                                                                        \
        QTEST_SET_MAIN_SOURCE_PATH                                                                           \
        return QTest::qExec(&tc, argc, argv);                                                                \
    }
