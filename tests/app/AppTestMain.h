// The entry point of a GUI test program: the sandboxed home, the offscreen
// platform, one QApplication, then Qt Test's own run of the test object.
#pragma once

#include "TestSupport.h"
#include "TLLog.h"

#include <QApplication>
#include <QtTest>

#include <filesystem>

#define CORVALE_QTEST_MAIN(TestObject)                                   \
    int main(int argc, char **argv)                                      \
    {                                                                    \
        const auto sandbox = test::sandboxRoot();                        \
        TLLog::sharedController().setNoPrinting(true);                   \
        qputenv("QT_QPA_PLATFORM", "offscreen");                         \
        int result = 0;                                                  \
        {                                                                \
            QApplication application(argc, argv);                        \
            TestObject testObject;                                       \
            result = QTest::qExec(&testObject, argc, argv);              \
        }                                                                \
        std::error_code ignored;                                         \
        std::filesystem::remove_all(sandbox, ignored);                   \
        return result;                                                   \
    }
