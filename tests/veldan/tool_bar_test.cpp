#include "veldan/widgets/tool_bar.h"

#include <gtest/gtest.h>

#include <QPixmap>
#include <QTest>
#include <memory>

#include "tests/support/message_recorder.h"
#include "tests/support/widget_app.h"
#include "veldan/widgets/tool_button.h"
#include "veldan/widgets/tool_tip.h"

using veldan::TMessage;
using veldan::TToolBar;
using veldan::TToolButton;

namespace {

constexpr uint32_t kMsgTestA = 'tsta';

QIcon square_icon(int side) {
    QPixmap pixmap(side, side);
    pixmap.fill(Qt::darkBlue);
    return QIcon(pixmap);
}

TToolButton* make_button(const char* name, uint32_t behavior, int side = 16,
                         uint32_t code = kMsgTestA) {
    return new TToolButton(name, square_icon(side), QIcon(), std::make_unique<TMessage>(code),
                           behavior);
}

class ToolBar : public TWidgetTest {
  protected:
    // Three toggles, a separator, two toggles; the first group in radio mode.
    void MakeTwoGroups() {
        for (const char* name : {"A", "B", "C"}) {
            bar.AddItem(make_button(name, TToolButton::kToggleButton));
        }
        bar.AddSeparatorItem();
        for (const char* name : {"D", "E"}) {
            bar.AddItem(make_button(name, TToolButton::kToggleButton));
        }
        Item("A")->SetRadioMode(true);
        bar.SetTargetForItems(&recorder);
        bar.show();
    }
    TToolButton* Item(const char* name) { return bar.FindItem(name); }
    void Click(TToolButton* button) { QTest::mouseClick(button, Qt::LeftButton); }

    TToolBar bar{"TestBar"};
    TMessageRecorder recorder;
};

TEST_F(ToolBar, EmptyBarPrefersWidthOfThree) {
    int width = 0;
    int height = 0;
    bar.GetPreferredSize(&width, &height);
    EXPECT_EQ(width, 3);
    EXPECT_EQ(height, 6);
    EXPECT_EQ(bar.objectName(), "TestBar");
}

TEST_F(ToolBar, ButtonIsItsBitmapPlusSixEachWay) {
    TToolButton* button = make_button("A", TToolButton::kPushButton, 20);
    bar.AddItem(button);
    EXPECT_EQ(button->size(), QSize(26, 26));
    EXPECT_EQ(button->objectName(), "A");
}

TEST_F(ToolBar, ButtonsSitThreePixelsInAndOnePixelApart) {
    bar.AddItem(make_button("A", TToolButton::kPushButton));
    bar.AddItem(make_button("B", TToolButton::kPushButton, 24));
    EXPECT_EQ(Item("A")->pos(), QPoint(3, 3));
    EXPECT_EQ(Item("B")->pos(), QPoint(3 + 22 + 1, 3));
    int width = 0;
    int height = 0;
    bar.GetPreferredSize(&width, &height);
    EXPECT_EQ(width, 26 + 30 + 3);
    EXPECT_EQ(height, 30 + 6);
    EXPECT_EQ(bar.size(), QSize(width, height));
}

TEST_F(ToolBar, InsertingMovesTheButtonsAfterIt) {
    bar.AddItem(make_button("A", TToolButton::kPushButton));
    bar.AddItem(make_button("C", TToolButton::kPushButton));
    EXPECT_TRUE(bar.AddItem(make_button("B", TToolButton::kPushButton), 1));
    EXPECT_EQ(bar.IndexOf(Item("B")), 1);
    EXPECT_EQ(bar.ItemAt(2), Item("C"));
    EXPECT_EQ(Item("B")->pos(), QPoint(26, 3));
    EXPECT_EQ(Item("C")->pos(), QPoint(49, 3));
}

TEST_F(ToolBar, IndexOutsideZeroToCountIsRefused) {
    bar.AddItem(make_button("A", TToolButton::kPushButton));
    auto stray = std::unique_ptr<TToolButton>(make_button("X", TToolButton::kPushButton));
    EXPECT_FALSE(bar.AddItem(stray.get(), 2));
    EXPECT_FALSE(bar.AddItem(stray.get(), -1));
    EXPECT_EQ(bar.CountItems(), 1);
    EXPECT_EQ(stray->Bar(), nullptr);
    EXPECT_EQ(bar.ItemAt(1), nullptr);
    EXPECT_EQ(bar.FindItem("X"), nullptr);
}

TEST_F(ToolBar, SeparatorIsEightWideAndAsTallAsTheTallestButton) {
    bar.AddItem(make_button("A", TToolButton::kPushButton, 30));
    bar.AddItem(make_button("B", TToolButton::kPushButton, 16));
    bar.AddSeparatorItem();
    TToolButton* separator = bar.ItemAt(2);
    ASSERT_TRUE(separator->IsSeparator());
    EXPECT_EQ(separator->size(), QSize(8, 36));
}

TEST_F(ToolBar, RadioGroupEndsAtTheSeparator) {
    MakeTwoGroups();
    std::vector<TToolButton*> brothers;
    Item("B")->GetBrothers(&brothers);
    EXPECT_EQ(brothers, (std::vector<TToolButton*>{Item("A"), Item("C")}));
    EXPECT_TRUE(Item("C")->IsRadioMode());
    EXPECT_FALSE(Item("D")->IsRadioMode());
}

TEST_F(ToolBar, TurningOneOnTurnsItsGroupOff) {
    MakeTwoGroups();
    Item("D")->SetValue(1);
    Item("A")->SetValue(1);
    Click(Item("B"));
    EXPECT_EQ(Item("A")->Value(), 0);
    EXPECT_EQ(Item("B")->Value(), 1);
    EXPECT_EQ(Item("D")->Value(), 1) << "the other group is left alone";
    EXPECT_EQ(bar.FindPushed(0), Item("B"));
    EXPECT_EQ(bar.FindPushed(4), Item("D"));
    ASSERT_EQ(recorder.Deliver().size(), 1u);
    EXPECT_EQ(recorder.LastValue(), 1);
}

TEST_F(ToolBar, ClickingThePushedRadioButtonKeepsItPushedAndSendsNothing) {
    MakeTwoGroups();
    Click(Item("A"));
    recorder.Deliver();
    recorder.received.clear();
    Click(Item("A"));
    EXPECT_EQ(Item("A")->Value(), 1);
    EXPECT_TRUE(recorder.Deliver().empty());
}

TEST_F(ToolBar, ToggleOutsideRadioModeFlipsBothWays) {
    MakeTwoGroups();
    Click(Item("D"));
    Click(Item("D"));
    EXPECT_EQ(Item("D")->Value(), 0);
    ASSERT_EQ(recorder.Deliver().size(), 2u);
    int32_t first = -1;
    recorder.received[0].FindInt32("be:value", &first);
    EXPECT_EQ(first, 1);
    EXPECT_EQ(recorder.LastValue(), 0);
}

TEST_F(ToolBar, PushButtonPostsItsMessageAndStaysOff) {
    TToolButton* button = make_button("P", TToolButton::kPushButton, 16, 'push');
    bar.AddItem(button);
    bar.SetTargetForItems(&recorder);
    bar.show();
    Click(button);
    ASSERT_EQ(recorder.Deliver().size(), 1u);
    EXPECT_EQ(recorder.received[0].what, uint32_t('push'));
    void* source = nullptr;
    EXPECT_TRUE(recorder.received[0].FindPointer("source", &source));
    EXPECT_EQ(source, static_cast<QObject*>(button));
    EXPECT_EQ(button->Value(), 0);
}

TEST_F(ToolBar, ReleasingOutsideTheButtonIsNoClick) {
    MakeTwoGroups();
    TToolButton* button = Item("D");
    QTest::mousePress(button, Qt::LeftButton, {}, QPoint(5, 5));
    EXPECT_TRUE(button->IsPressed());
    QTest::mouseRelease(button, Qt::LeftButton, {}, QPoint(100, 5));
    EXPECT_FALSE(button->IsPressed());
    EXPECT_EQ(button->Value(), 0);
    EXPECT_TRUE(recorder.Deliver().empty());
}

TEST_F(ToolBar, PushButtonsRefuseRadioModeAndBecomingPushOffTurnsOff) {
    TToolButton* push = make_button("P", TToolButton::kPushButton);
    TToolButton* toggle = make_button("T", TToolButton::kToggleButton);
    bar.AddItem(push);
    bar.AddSeparatorItem();
    bar.AddItem(toggle);
    push->SetRadioMode(true);
    EXPECT_FALSE(push->IsRadioMode());
    toggle->SetValue(1);
    toggle->SetBehavior(TToolButton::kPushButton);
    EXPECT_EQ(toggle->Value(), 0);
}

TEST_F(ToolBar, SwitchingRadioModeOnTurnsTheValueOff) {
    TToolButton* toggle = make_button("T", TToolButton::kToggleButton);
    bar.AddItem(toggle);
    toggle->SetValue(1);
    toggle->SetRadioMode(true);
    EXPECT_EQ(toggle->Value(), 0);
}

TEST_F(ToolBar, DrawStatesFollowValueEnablingAndBar) {
    MakeTwoGroups();
    EXPECT_EQ(Item("A")->DrawState(), TToolButton::TDrawState::kNormal);
    Item("A")->SetValue(1);
    EXPECT_EQ(Item("A")->DrawState(), TToolButton::TDrawState::kPushed);
    bar.SetEnabled(false);
    EXPECT_FALSE(bar.IsEnabled());
    EXPECT_EQ(Item("A")->DrawState(), TToolButton::TDrawState::kDisabled);
    EXPECT_EQ(Item("A")->Value(), 1) << "a disabled button that is on stays on";
}

TEST_F(ToolBar, DisabledButtonTakesNoClicks) {
    MakeTwoGroups();
    bar.SetEnabled(false);
    Click(Item("D"));
    EXPECT_EQ(Item("D")->Value(), 0);
    EXPECT_TRUE(recorder.Deliver().empty());
}

TEST_F(ToolBar, HotOnlyWhileThePointerIsOverItInTheActiveWindow) {
    MakeTwoGroups();
    bar.show();
    bar.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&bar));
    QTest::mouseMove(Item("D"));
    EXPECT_TRUE(process_until([&] { return Item("D")->IsHot(); }));
    EXPECT_EQ(Item("D")->DrawState(), TToolButton::TDrawState::kHot);
    QTest::mouseMove(Item("E"));
    EXPECT_TRUE(process_until([&] { return !Item("D")->IsHot() && Item("E")->IsHot(); }));
}

TEST_F(ToolBar, FlatBarKeepsItsButtons) {
    MakeTwoGroups();
    bar.SetFlat(true);
    EXPECT_TRUE(bar.IsFlat());
    EXPECT_EQ(bar.CountItems(), 6);
    EXPECT_FALSE(bar.grab().isNull());
}

TEST_F(ToolBar, ButtonsOwnAnUnnamedToolTipOnThemselves) {
    TToolButton* button = make_button("A", TToolButton::kPushButton);
    bar.AddItem(button);
    button->SetTip("Play");
    EXPECT_EQ(button->Tip(), "Play");
    EXPECT_EQ(button->ToolTip()->Target(), button);
    EXPECT_EQ(button->ToolTip()->ToolTipWindowName(), "ATTW_");
}

}  // namespace
