#pragma once

#include "support/TestEnv.h"
#include "ui/WidgetDialogs.h"

#include <QApplication>
#include <QTest>

// Every test runs in a home of its own: settings, simulator state and login
// profile live in a temporary folder that disappears with the test.
#define TAPEDESK_TEST_MAIN(TestClass)                                                                        \
    TAPEDESK_TEST_MAIN_WITH(TestClass, QApplication,                                                         \
                            tapedesk::setDialogProvider(std::make_unique<tapedesk::WidgetDialogs>()))
