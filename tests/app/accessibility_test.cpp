// What a screen reader and a keyboard user meet: the main window, the preferences and the
// channel panel walked through their accessibility interfaces, and the player driven with
// keys alone. A picture of the keyboard focus lands in renders/ of the build folder.

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QAbstractItemView>
#include <QAbstractSlider>
#include <QAbstractSpinBox>
#include <QAccessible>
#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QRadioButton>
#include <QTest>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "app/dialogs/pref_win.h"
#include "app/quill_win.h"
#include "app/settings/exit_state.h"
#include "engine/output_chain.h"
#include "player/channel_panel.h"
#include "player/compact_slider.h"
#include "player/control_bar.h"
#include "player/lcd_indicator.h"
#include "player/pref.h"
#include "player/quill_view.h"
#include "playlist/orvick_view.h"
#include "tests/player/language_fixture.h"
#include "tests/support/render_check.h"
#include "tests/support/scoped_env.h"
#include "tests/support/smf_builder.h"
#include "tests/support/temp_dir.h"
#include "tests/support/widget_app.h"
#include "veldan/widgets/tool_button.h"

namespace fs = std::filesystem;
using quill::TControlBar;

namespace {

std::string describe(const QWidget* widget) {
    return std::string(widget->metaObject()->className()) + " \"" +
           widget->objectName().toStdString() + "\"";
}

// The role a widget of a known kind must report; nullopt where any specific role will do.
std::optional<QAccessible::Role> expected_role(QWidget* widget) {
    // A two-state button is a check box to a screen reader, as Qt's own checkable buttons.
    if (auto* tool = dynamic_cast<veldan::TToolButton*>(widget)) {
        if (tool->IsRadioMode()) return QAccessible::RadioButton;
        if (tool->Behavior() == veldan::TToolButton::kToggleButton) return QAccessible::CheckBox;
        return QAccessible::Button;
    }
    if (qobject_cast<QAbstractSlider*>(widget)) return QAccessible::Slider;
    if (qobject_cast<QRadioButton*>(widget)) return QAccessible::RadioButton;
    if (auto* button = qobject_cast<QAbstractButton*>(widget)) {
        return button->isCheckable() ? QAccessible::CheckBox : QAccessible::Button;
    }
    if (qobject_cast<QComboBox*>(widget)) return QAccessible::ComboBox;
    if (qobject_cast<QLineEdit*>(widget)) return QAccessible::EditableText;
    if (qobject_cast<QAbstractSpinBox*>(widget)) return QAccessible::SpinBox;
    return std::nullopt;
}

bool is_checkable(QWidget* widget, bool* checked) {
    if (auto* tool = dynamic_cast<veldan::TToolButton*>(widget)) {
        *checked = tool->Value() != 0;
        return tool->Behavior() == veldan::TToolButton::kToggleButton;
    }
    if (auto* button = qobject_cast<QAbstractButton*>(widget)) {
        *checked = button->isChecked();
        return button->isCheckable();
    }
    return false;
}

// Every fault of a widget that takes the keyboard focus, as a screen reader would meet it.
void check_focusable(QWidget* widget, QAccessibleInterface* iface,
                     std::vector<std::string>* faults) {
    const std::string who = describe(widget);
    const QString name = iface->text(QAccessible::Name).trimmed();
    if (name.isEmpty()) faults->push_back(who + ": no accessible name");
    const QAccessible::Role role = iface->role();
    if (role == QAccessible::NoRole || role == QAccessible::Client || role == QAccessible::Pane ||
        role == QAccessible::Grouping) {
        faults->push_back(who + ": a generic role, " + std::to_string(int(role)));
    }
    if (const auto expected = expected_role(widget); expected && role != *expected) {
        faults->push_back(who + ": role " + std::to_string(int(role)) + " instead of " +
                          std::to_string(int(*expected)));
    }
    bool checked = false;
    if (is_checkable(widget, &checked)) {
        const QAccessible::State state = iface->state();
        if (!state.checkable) faults->push_back(who + ": its on/off state is not exposed");
        if (bool(state.checked) != checked) faults->push_back(who + ": wrong checked state");
    }
    if (auto* slider = qobject_cast<QAbstractSlider*>(widget)) {
        QAccessibleValueInterface* value = iface->valueInterface();
        if (!value) {
            faults->push_back(who + ": no value");
        } else if (value->currentValue().toInt() != slider->value() ||
                   value->minimumValue().toInt() != slider->minimum() ||
                   value->maximumValue().toInt() != slider->maximum()) {
            faults->push_back(who + ": value or range differ from the slider's");
        }
    }
}

void walk(QAccessibleInterface* iface, std::set<QAccessible::Id>* seen,
          std::set<QObject*>* reached) {
    if (!iface || !iface->isValid()) return;
    if (!seen->insert(QAccessible::uniqueId(iface)).second) return;
    if (QObject* object = iface->object()) reached->insert(object);
    // The rows of item views are theirs to describe; their cells are not widgets.
    if (qobject_cast<QAbstractItemView*>(iface->object())) return;
    for (int i = 0; i < iface->childCount(); ++i) walk(iface->child(i), seen, reached);
}

// Walks root's accessibility tree and checks every visible, enabled widget under it that
// takes the focus: it must be in the tree, named, and in a role that says what it is.
std::string accessibility_faults(QWidget& root) {
    std::set<QAccessible::Id> seen;
    std::set<QObject*> reached;
    walk(QAccessible::queryAccessibleInterface(&root), &seen, &reached);
    std::vector<std::string> faults;
    int checkedWidgets = 0;
    for (QWidget* widget : root.findChildren<QWidget*>()) {
        if (!widget->isVisible() || !widget->isEnabled()) continue;
        if (!(widget->focusPolicy() & Qt::TabFocus)) continue;
        // A part standing in for its owner (a spin box's text field): the owner is checked.
        if (widget->focusProxy()) continue;
        ++checkedWidgets;
        QAccessibleInterface* iface = QAccessible::queryAccessibleInterface(widget);
        if (!iface) {
            faults.push_back(describe(widget) + ": no accessibility interface");
            continue;
        }
        if (!reached.count(widget)) {
            faults.push_back(describe(widget) + ": not reached from the window's tree");
        }
        check_focusable(widget, iface, &faults);
    }
    if (checkedWidgets == 0) faults.push_back("no focusable widget at all");
    std::ostringstream text;
    for (const std::string& fault : faults) text << fault << "\n";
    return text.str();
}

std::vector<uint8_t> long_song(const std::string& title) {
    TSmfBuilder smf(1, 480);
    TTrackBuilder& track = smf.AddTrack().Name(0, title);
    for (int beat = 0; beat < 240; ++beat) track.NoteOn(0, 0, 60, 90).NoteOff(480, 0, 60);
    return smf.Bytes();
}

class Accessibility : public TWidgetTest {
  protected:
    Accessibility() {
        fLoaders = fTemp.Path() / "Loader";
        fs::create_directories(fLoaders);
    }

    // The window keeps a reference to its texts: a temporary would dangle.
    std::unique_ptr<TQuillWin> MakeWin(veldan::TLLT&& texts, int songs) = delete;
    std::unique_ptr<TQuillWin> MakeWin(const veldan::TLLT& texts, int songs) {
        auto win = std::make_unique<TQuillWin>(texts, fPrefs, fExitState, nullptr, fLoaders);
        for (int i = 0; i < songs; ++i) {
            const std::string name = "song" + std::to_string(i) + ".mid";
            win->View()->OrvickView()->AddListFolderFileToTopLevel(
                fTemp.Write(name, long_song("Song " + std::to_string(i))));
        }
        win->resize(640, 420);
        win->show();
        QApplication::setActiveWindow(win.get());
        EXPECT_TRUE(QTest::qWaitForWindowActive(win.get()));
        return win;
    }

    TTempDir fTemp;
    TTempDir fConfig;
    TScopedEnv fConfigHome{"XDG_CONFIG_HOME", fConfig.Path().c_str()};
    TPref fPrefs;
    TExitState fExitState;
    fs::path fLoaders;
};

class AccessibilityIn : public Accessibility, public ::testing::WithParamInterface<const char*> {};

TEST_P(AccessibilityIn, EveryFocusableControlOfTheMainWindowIsNamedAndInItsRole) {
    const veldan::TLLT texts = file_language(GetParam());
    auto win = MakeWin(texts, 2);
    EXPECT_EQ(accessibility_faults(*win), "");
}

TEST_P(AccessibilityIn, TheChannelPanelNamesEveryButtonByPortAndChannel) {
    const veldan::TLLT texts = file_language(GetParam());
    auto win = MakeWin(texts, 1);
    win->View()->ShowChannels(true);
    ASSERT_TRUE(process_until([&] { return win->View()->ChannelPanel()->isVisible(); }));
    EXPECT_EQ(accessibility_faults(*win->View()->ChannelPanel()), "");
    std::set<QString> names;
    int buttons = 0;
    for (QAbstractButton* button : win->View()->ChannelPanel()->findChildren<QAbstractButton*>()) {
        ++buttons;
        names.insert(QAccessible::queryAccessibleInterface(button)->text(QAccessible::Name));
    }
    EXPECT_EQ(buttons, 2 * 2 * quill::TChannelPanel::kChannels);
    EXPECT_EQ(int(names.size()), buttons) << "two buttons share a name";

    // The meters read as bars whose value is the notes sounding.
    QWidget* meter = win->View()->ChannelPanel()->findChild<QWidget*>("MeterB16");
    ASSERT_NE(meter, nullptr);
    QAccessibleInterface* iface = QAccessible::queryAccessibleInterface(meter);
    EXPECT_EQ(iface->role(), QAccessible::ProgressBar);
    EXPECT_FALSE(iface->text(QAccessible::Name).isEmpty());
    ASSERT_NE(iface->valueInterface(), nullptr);
    EXPECT_EQ(iface->valueInterface()->currentValue().toInt(),
              win->View()->ChannelPanel()->MeterLevel(1, 15));
}

TEST_P(AccessibilityIn, EveryFocusableControlOfThePreferencesIsNamedAndInItsRole) {
    veldan::TLLT texts = file_language(GetParam());
    TTempDir languages;
    fs::copy_file(language_file("English.llt"), languages.Path() / "English.llt");
    TPrefWin win(texts, fPrefs, TLanguageFolders{languages.Path()});
    win.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&win));
    EXPECT_EQ(accessibility_faults(win), "");
}

INSTANTIATE_TEST_SUITE_P(Languages, AccessibilityIn,
                         ::testing::Values("English.llt", "Japanese.llt"));

TEST_F(Accessibility, SlidersTellTheirValueInTheirUnitAndTakeAValueFromAScreenReader) {
    const veldan::TLLT texts = builtin_language();
    auto win = MakeWin(texts, 1);
    auto* volume = win->findChild<quill::TCompactSlider*>("SliderVolume");
    auto* key = win->findChild<quill::TCompactSlider*>("SliderKey");
    ASSERT_TRUE(volume && key);
    QAccessibleInterface* volumeIface = QAccessible::queryAccessibleInterface(volume);
    EXPECT_EQ(volumeIface->text(QAccessible::Name), "Volume");
    EXPECT_EQ(volumeIface->text(QAccessible::Value), "100%");
    win->View()->ControlBar()->SetSliderValue(TControlBar::kKey, 3);
    EXPECT_EQ(QAccessible::queryAccessibleInterface(key)->text(QAccessible::Value), "+3");

    // A value set through the interface acts as the user's own move.
    volumeIface->valueInterface()->setCurrentValue(150);
    ASSERT_TRUE(
        process_until([&] { return win->View()->Controller().Chain().Filter(0).Volume() == 150; }));
    EXPECT_EQ(volume->value(), 150);
}

TEST_F(Accessibility, IndicatorsSayWhatTheyShowAndWhetherTheyAreLit) {
    const veldan::TLLT texts = builtin_language();
    auto win = MakeWin(texts, 1);
    auto* portA = win->findChild<quill::TLCDIndicator*>("StrViewPortA");
    auto* gs = win->findChild<quill::TLCDIndicator*>("StrViewSysGS");
    ASSERT_TRUE(portA && gs);
    QAccessibleInterface* port = QAccessible::queryAccessibleInterface(portA);
    EXPECT_EQ(port->text(QAccessible::Name), "MIDI OUT port A");
    win->View()->ControlBar()->SetPortLit(0, false);
    EXPECT_EQ(port->text(QAccessible::Description), "not connected");
    win->View()->ControlBar()->SetPortLit(0, true);
    EXPECT_EQ(port->text(QAccessible::Description), "connected");
    win->View()->ControlBar()->SetResetLit(2, quill::TLCDIndicator::TLit::kHalfLit);
    QAccessibleInterface* reset = QAccessible::queryAccessibleInterface(gs);
    EXPECT_EQ(reset->text(QAccessible::Name), "GS reset");
    EXPECT_EQ(reset->text(QAccessible::Description), "being sent");
}

TEST_F(Accessibility, TheTitleDisplayReadsTheSongTitle) {
    const veldan::TLLT texts = builtin_language();
    auto win = MakeWin(texts, 1);
    win->View()->ControlBar()->SetTitle("Gymnopédie No. 1");
    QWidget* title = win->findChild<QWidget*>("StrViewTitle");
    ASSERT_NE(title, nullptr);
    QAccessibleInterface* iface = QAccessible::queryAccessibleInterface(title);
    EXPECT_EQ(iface->role(), QAccessible::StaticText);
    EXPECT_TRUE(iface->text(QAccessible::Name).contains("Gymnopédie No. 1"));
}

TEST_F(Accessibility, ToolButtonsOfferTheirActionToAScreenReader) {
    const veldan::TLLT texts = builtin_language();
    auto win = MakeWin(texts, 1);
    auto* list = win->findChild<veldan::TToolButton*>("ButtonList");
    ASSERT_NE(list, nullptr);
    QAccessibleInterface* iface = QAccessible::queryAccessibleInterface(list);
    ASSERT_NE(iface->actionInterface(), nullptr);
    ASSERT_TRUE(iface->state().checked);
    iface->actionInterface()->doAction(QAccessibleActionInterface::toggleAction());
    ASSERT_TRUE(process_until([&] { return !win->View()->ControlBar()->IsListShown(); }));
    EXPECT_FALSE(iface->state().checked);
}

TEST_F(Accessibility, TheListHasTheKeysAtStartAndTabWalksTheControlBarInReadingOrder) {
    const veldan::TLLT texts = builtin_language();
    auto win = MakeWin(texts, 1);
    ASSERT_TRUE(process_until([&] { return win->View()->OrvickView()->hasFocus(); }));
    std::vector<std::string> order;
    for (int i = 0; i < 40; ++i) {
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QWidget* focus = QApplication::focusWidget();
        ASSERT_NE(focus, nullptr);
        if (focus == win->View()->OrvickView()) break;
        order.push_back(focus->objectName().toStdString());
    }
    const std::vector<std::string> bar = {
        "ButtonPlay", "ButtonPause",  "ButtonStop", "ButtonPrev",  "ButtonNext",
        "ButtonList", "SliderVolume", "SliderKey",  "SliderTempo", "SliderPos"};
    std::vector<std::string> barStops;
    for (const std::string& name : order)
        if (std::find(bar.begin(), bar.end(), name) != bar.end()) barStops.push_back(name);
    EXPECT_EQ(barStops, bar);
}

// Moves the focus with Tab (or Shift+Tab) until the named widget has it.
bool tab_to(const char* name, bool backwards = false) {
    for (int i = 0; i < 40; ++i) {
        QWidget* focus = QApplication::focusWidget();
        if (focus && focus->objectName() == name) return true;
        QTest::keyClick(focus, backwards ? Qt::Key_Backtab : Qt::Key_Tab,
                        backwards ? Qt::ShiftModifier : Qt::NoModifier);
    }
    return false;
}

TEST_F(Accessibility, TheKeyboardAloneDrivesTheTransportAndTheSliders) {
    const veldan::TLLT texts = builtin_language();
    auto win = MakeWin(texts, 3);
    quill::TQuillView* view = win->View();
    view->OrvickView()->setFocus();
    ASSERT_TRUE(process_until([&] { return view->OrvickView()->hasFocus(); }));

    ASSERT_TRUE(tab_to("ButtonPlay"));
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
    ASSERT_TRUE(process_until([&] { return view->Controller().State() == quill::kStatePlaying; }));
    EXPECT_TRUE(
        QAccessible::queryAccessibleInterface(QApplication::focusWidget())->state().checked);

    // The focus shows on the button, for a person to look at.
    save_render(*view->ControlBar(), "control_bar_keyboard_focus", QUILL_RENDER_DIR);

    ASSERT_TRUE(tab_to("ButtonPause"));
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
    ASSERT_TRUE(process_until([&] { return view->Controller().State() == quill::kStatePaused; }));

    ASSERT_TRUE(tab_to("ButtonPlay", true));
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);
    ASSERT_TRUE(process_until([&] { return view->Controller().State() == quill::kStatePlaying; }));

    ASSERT_TRUE(tab_to("ButtonNext"));
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Enter);
    ASSERT_TRUE(process_until([&] { return view->Controller().CurSongIdx() == 1; }));
    ASSERT_TRUE(tab_to("ButtonPrev", true));
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
    ASSERT_TRUE(process_until([&] { return view->Controller().CurSongIdx() == 0; }));

    ASSERT_TRUE(tab_to("SliderVolume"));
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Right);
    ASSERT_TRUE(
        process_until([&] { return view->Controller().Chain().Filter(0).Volume() == 101; }));
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_PageUp);
    ASSERT_TRUE(
        process_until([&] { return view->Controller().Chain().Filter(0).Volume() == 111; }));

    ASSERT_TRUE(tab_to("SliderKey"));
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Left);
    ASSERT_TRUE(process_until([&] { return view->Controller().Chain().Filter(0).Key() == -1; }));

    ASSERT_TRUE(tab_to("SliderTempo"));
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_PageDown);
    ASSERT_TRUE(process_until([&] { return view->Controller().Producer().TempoRate() == 90; }));

    ASSERT_TRUE(tab_to("ButtonStop", true));
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
    ASSERT_TRUE(process_until([&] { return view->Controller().State() == quill::kStateStopped; }));
}

}  // namespace
