#pragma once
// The QApplication widget tests share, on the offscreen platform unless the environment
// names another; and bounded waits that keep the event loop running.

#include <gtest/gtest.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QTest>
#include <functional>

inline QApplication* widget_application() {
    static int argc = 1;
    static char name[] = "quill_widget_tests";
    static char* argv[] = {name, nullptr};
    if (auto* app = qobject_cast<QApplication*>(QCoreApplication::instance())) return app;
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    static QApplication* app = new QApplication(argc, argv);
    return app;
}

// Runs the event loop until condition holds; false when timeoutMs passed first.
inline bool process_until(const std::function<bool()>& condition, int timeoutMs = 5000) {
    QElapsedTimer clock;
    clock.start();
    while (!condition()) {
        if (clock.elapsed() >= timeoutMs) return false;
        QTest::qWait(1);
    }
    return true;
}

// Base of widget test fixtures: the application exists before any member widget.
class TWidgetTest : public ::testing::Test {
  protected:
    TWidgetTest() { widget_application(); }
};
