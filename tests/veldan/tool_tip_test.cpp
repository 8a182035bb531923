#include "veldan/widgets/tool_tip.h"

#include <gtest/gtest.h>

#include <QCursor>
#include <QElapsedTimer>
#include <QEnterEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <memory>

#include "tests/support/widget_app.h"

using veldan::TToolTip;

namespace {

constexpr int64_t kShortDelayUs = 40000;
constexpr int64_t kShortShowUs = 150000;

// A window with two targets, each with a short-timed tool tip.
class ToolTip : public TWidgetTest {
  protected:
    void SetUp() override {
        auto* layout = new QHBoxLayout(&window);
        for (int i = 0; i < 2; ++i) {
            targets[i] = new QLabel(QString("Target %1").arg(i), &window);
            layout->addWidget(targets[i]);
            tips[i] = std::make_unique<TToolTip>(QString("Tip%1").arg(i));
            ASSERT_EQ(tips[i]->SetTarget(targets[i]), 0);
            tips[i]->SetTip("Tip text " + std::to_string(i));
            tips[i]->SetDelayTime(kShortDelayUs);
            tips[i]->SetShowTime(kShortShowUs);
        }
        window.show();
        window.activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    }

    void Enter(int i) {
        QEnterEvent event(QPointF(2, 2), targets[i]->mapToGlobal(QPointF(2, 2)),
                          targets[i]->mapToGlobal(QPointF(2, 2)));
        QCoreApplication::sendEvent(targets[i], &event);
    }
    void Leave(int i) {
        QEvent event(QEvent::Leave);
        QCoreApplication::sendEvent(targets[i], &event);
    }
    bool Showing(int i) { return tips[i]->Window() != nullptr; }

    QWidget window;
    QLabel* targets[2] = {};
    std::unique_ptr<TToolTip> tips[2];
};

TEST(ToolTipTimes, DefaultsAreOneSecondDelayAndFiveSecondsShow) {
    widget_application();
    TToolTip tip;
    EXPECT_EQ(tip.DelayTime(), 1000000);
    EXPECT_EQ(tip.ShowTime(), 5000000);
    EXPECT_EQ(tip.Tip(), "");
}

TEST(ToolTipTimes, NegativeTimesAreRefusedAndTheOldKept) {
    widget_application();
    TToolTip tip;
    EXPECT_EQ(tip.SetDelayTime(200), 0);
    EXPECT_EQ(tip.SetDelayTime(-1), -1);
    EXPECT_EQ(tip.DelayTime(), 200);
    EXPECT_EQ(tip.SetShowTime(0), 0);
    EXPECT_EQ(tip.SetShowTime(-5), -1);
    EXPECT_EQ(tip.ShowTime(), 0);
}

TEST(ToolTipNames, WindowNameIsPrefixAndToolTipName) {
    widget_application();
    EXPECT_EQ(TToolTip("Volume").ToolTipWindowName(), "ATTW_Volume");
    EXPECT_EQ(TToolTip().ToolTipWindowName(), "ATTW_");
    EXPECT_EQ(TToolTip().SetTarget(nullptr), -1);
}

TEST_F(ToolTip, RestingOnTheTargetOpensTheTipAfterTheDelayBelowLeftOfThePointer) {
    QElapsedTimer clock;
    clock.start();
    Enter(0);
    ASSERT_TRUE(process_until([&] { return tips[0]->IsWaiting(); }));
    EXPECT_FALSE(Showing(0));
    ASSERT_TRUE(process_until([&] { return Showing(0); }));
    EXPECT_GE(clock.elapsed(), kShortDelayUs / 1000);
    EXPECT_FALSE(tips[0]->IsWaiting());

    veldan::TToolTipWin* win = tips[0]->Window();
    EXPECT_EQ(win->windowTitle(), "ATTW_Tip0");
    EXPECT_EQ(win->objectName(), "ATTW_Tip0");
    auto* view = win->findChild<QLabel*>(veldan::TToolTipWin::kTipViewName);
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(view->text(), " Tip text 0 ");
    EXPECT_EQ(view->palette().color(QPalette::Window), QColor(255, 255, 225));
    EXPECT_EQ(win->size(), view->size());
    EXPECT_EQ(win->pos(), QCursor::pos() + QPoint(-16, 16));
}

TEST_F(ToolTip, TheTipClosesItselfAfterTheShowTime) {
    Enter(0);
    ASSERT_TRUE(process_until([&] { return Showing(0); }));
    QElapsedTimer clock;
    clock.start();
    ASSERT_TRUE(process_until([&] { return !Showing(0); }));
    EXPECT_GE(clock.elapsed(), kShortShowUs / 1000 - 20);
}

TEST_F(ToolTip, AnEmptyTipNeverOpensAWindow) {
    tips[0]->SetTip("");
    Enter(0);
    ASSERT_TRUE(process_until([&] { return tips[0]->IsWaiting(); }));
    ASSERT_TRUE(process_until([&] { return !tips[0]->IsWaiting(); }));
    QTest::qWait(20);
    EXPECT_FALSE(Showing(0));
}

TEST_F(ToolTip, LeavingBeforeTheDelayOpensNothing) {
    Enter(0);
    ASSERT_TRUE(process_until([&] { return tips[0]->IsWaiting(); }));
    Leave(0);
    ASSERT_TRUE(process_until([&] { return !tips[0]->IsWaiting(); }));
    QTest::qWait(int(kShortDelayUs / 1000) * 2);
    EXPECT_FALSE(Showing(0));
}

TEST_F(ToolTip, MovingOntoTheNextTargetClosesTheFirstTipAndStartsTheNextDelay) {
    Enter(0);
    ASSERT_TRUE(process_until([&] { return Showing(0); }));
    Leave(0);
    Enter(1);
    EXPECT_TRUE(process_until([&] { return !Showing(0); }));
    ASSERT_TRUE(process_until([&] { return Showing(1); }));
    EXPECT_FALSE(Showing(0));
    EXPECT_EQ(tips[1]->Window()->windowTitle(), "ATTW_Tip1");
}

TEST_F(ToolTip, HideClosesTheOpenTip) {
    Enter(0);
    ASSERT_TRUE(process_until([&] { return Showing(0); }));
    tips[0]->Hide();
    EXPECT_TRUE(process_until([&] { return !Showing(0); }));
}

TEST_F(ToolTip, NoTipWhileTheTargetsWindowIsInactive) {
    QWidget other;
    other.show();
    other.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&other));
    ASSERT_FALSE(targets[0]->isActiveWindow());
    Enter(0);
    ASSERT_TRUE(process_until([&] { return tips[0]->IsWaiting(); }));
    ASSERT_TRUE(process_until([&] { return !tips[0]->IsWaiting(); }));
    QTest::qWait(20);
    EXPECT_FALSE(Showing(0));
}

TEST_F(ToolTip, ANewTargetIsWatchedAndTheOldOneNoLonger) {
    ASSERT_EQ(tips[0]->SetTarget(targets[1]), 0);
    EXPECT_EQ(tips[0]->Target(), targets[1]);
    Enter(0);
    QTest::qWait(5);
    EXPECT_FALSE(tips[0]->IsWaiting());
    Enter(1);
    EXPECT_TRUE(process_until([&] { return tips[0]->IsWaiting(); }));
}

}  // namespace
