#include "player/control_bar.h"

#include <QHBoxLayout>
#include <QIcon>
#include <QVBoxLayout>
#include <algorithm>
#include <vector>

#include "player/readout.h"
#include "player/resources.h"
#include "veldan/core/llt.h"
#include "veldan/widgets/lang_key.h"
#include "veldan/widgets/tool_bar.h"
#include "veldan/widgets/tool_button.h"

namespace quill {

namespace {

using veldan::llt_key;
using TLit = TLCDIndicator::TLit;

struct TTransportItem {
    const char* name;
    const char* image;
    uint32_t code;
    const char* tipKey;
    bool radio;  // play, pause and stop show the player's state as one radio group
};

constexpr TTransportItem kTransport[] = {
    {"ButtonPlay", ":/bitmaps/play.png", kMsgPlay, llt_key("ToolTip_Play"), true},
    {"ButtonPause", ":/bitmaps/pause.png", kMsgPause, llt_key("ToolTip_Pause"), true},
    {"ButtonStop", ":/bitmaps/stop.png", kMsgStop, llt_key("ToolTip_Stop"), true},
    {"ButtonPrev", ":/bitmaps/prev.png", kMsgPrev, llt_key("ToolTip_Prev"), false},
    {"ButtonNext", ":/bitmaps/next.png", kMsgNext, llt_key("ToolTip_Next"), false},
};
constexpr int kRadioCount = 3;
constexpr char kListButton[] = "ButtonList";
constexpr const char* kListTipKey = llt_key("ToolTip_List");

struct TSliderItem {
    const char* name;
    const char* readoutName;
    const char* prefixKey;
    const char* nameKey;  // what a screen reader calls the slider
    uint32_t message;
    uint32_t modification;
    int32_t min;
    int32_t max;
    int32_t initial;
    bool hasDefault;  // a right click restores the initial value
    TReadoutKind kind;
    int stretch;
    int minWidth;  // so that the thumb keeps room to travel in a narrow window
    int pageStep;  // Page Up and Page Down; the key moves by octaves
};

constexpr TSliderItem kSliderItems[TControlBar::kSliderCount] = {
    {"SliderVolume", "StrViewVolume", llt_key("ReadOut_Volume"), llt_key("Access_Volume"),
     kMsgVolumeChanged, kMsgVolumeChanged, 0, 200, 100, true, TReadoutKind::kPercent, 2, 60, 10},
    {"SliderKey", "StrViewKey", llt_key("ReadOut_Key"), llt_key("Access_Key"), kMsgKeyChanged,
     kMsgKeyChanging, -12, 12, 0, true, TReadoutKind::kSigned, 1, 48, 12},
    {"SliderTempo", "StrViewTempo", llt_key("ReadOut_Tempo"), llt_key("Access_Tempo"),
     kMsgTempoChanged, kMsgTempoChanging, 30, 300, 100, true, TReadoutKind::kPercent, 2, 60, 10},
    {"SliderPos", "StrViewPos", llt_key("ReadOut_Pos"), llt_key("Access_Pos"), kMsgPosChanged,
     kMsgPosChanging, 0, 100, 0, false, TReadoutKind::kPercent, 3, 80, 10},
};

struct TIndicatorItem {
    const char* name;
    const char* text;
};

constexpr TIndicatorItem kPortItems[] = {{"StrViewPortA", "A"}, {"StrViewPortB", "B"}};
constexpr TIndicatorItem kResetItems[] = {
    {"StrViewSysGM", "GM"}, {"StrViewSysGS", "GS"}, {"StrViewSys88", "88"}, {"StrViewSysXG", "XG"}};

constexpr const char* kTitleKey = llt_key("Access_Title");
constexpr const char* kPortNameKey = llt_key("Access_Port");
constexpr const char* kResetNameKey = llt_key("Access_Reset");
// Indicator states as a screen reader says them: unlit, half lit, lit.
constexpr const char* kPortStateKeys[] = {llt_key("Access_Port_Off"), llt_key("Access_Port_Off"),
                                          llt_key("Access_Port_On")};
constexpr const char* kResetStateKeys[] = {
    llt_key("Access_Reset_Off"), llt_key("Access_Reset_Sending"), llt_key("Access_Reset_On")};

constexpr int kReadoutPadding = 6;
constexpr int kGroupSpacing = 8;
constexpr int kIndicatorSpacing = 2;
constexpr int kTitleTimeGap = 8;

QHBoxLayout* row_layout(QWidget* owner, int spacing) {
    auto* layout = new QHBoxLayout(owner);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(spacing);
    return layout;
}

}  // namespace

TControlBar::TControlBar(const veldan::TLLT& texts, QWidget* parent) : QWidget(parent) {
    init_resources();
    setObjectName("ControlBar");

    auto* top = new QWidget(this);
    QHBoxLayout* topRow = row_layout(top, kGroupSpacing);
    topRow->addWidget(MakeTransport());
    topRow->addWidget(MakeTitleDisplay(), 1);
    topRow->addWidget(MakeIndicators());
    topRow->addWidget(MakeListButton());

    fStatusBar = new QLabel(this);
    fStatusBar->setObjectName("StatBar");
    fStatusBar->setFrameStyle(QFrame::Panel | QFrame::Sunken);
    fStatusBar->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);

    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(4, 4, 4, 4);
    column->setSpacing(4);
    column->addWidget(top);
    column->addWidget(MakeSliders());
    column->addWidget(fStatusBar);

    ChainFocus();
    ApplyLanguage(texts);
}

// The title and the time side by side on one black strip: the time keeps its room at
// the right, and a long title is cut before it, never under it.
QWidget* TControlBar::MakeTitleDisplay() {
    auto* display = new QWidget;
    // The gap between a cut title and the time is part of the same strip.
    display->setAutoFillBackground(true);
    QPalette strip = display->palette();
    strip.setColor(QPalette::Window, TLCDIndicator::Background(TLit::kLit));
    display->setPalette(strip);
    QHBoxLayout* row = row_layout(display, kTitleTimeGap);
    fTitle = new TLCDIndicator("StrViewTitle", QString(), TLit::kLit, display);
    fTitle->setAlignment(Qt::AlignVCenter | Qt::AlignLeft);
    // A long title must not widen the window; it is cut at the right.
    fTitle->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    row->addWidget(fTitle, 1);
    fTime = new TLCDIndicator("StrViewTime", QString(), TLit::kLit, display);
    fTime->setAlignment(Qt::AlignVCenter | Qt::AlignRight);
    fTime->setSizePolicy(QSizePolicy::Minimum, QSizePolicy::Preferred);
    row->addWidget(fTime);
    return display;
}

// Tab runs in reading order: the transport, the list button, then the sliders.
void TControlBar::ChainFocus() {
    std::vector<QWidget*> stops;
    for (int i = 0; i < fTransport->CountItems(); ++i) {
        if (!fTransport->ItemAt(i)->IsSeparator()) stops.push_back(fTransport->ItemAt(i));
    }
    stops.push_back(fListBar->FindItem(kListButton));
    for (TCompactSlider* slider : fSliders) stops.push_back(slider);
    for (size_t i = 1; i < stops.size(); ++i) QWidget::setTabOrder(stops[i - 1], stops[i]);
}

QWidget* TControlBar::MakeTransport() {
    fTransport = new veldan::TToolBar("ToolBarTransport");
    for (int i = 0; i < int(std::size(kTransport)); ++i) {
        const TTransportItem& item = kTransport[i];
        if (i == kRadioCount) fTransport->AddSeparatorItem();
        const uint32_t behavior =
            item.radio ? veldan::TToolButton::kToggleButton : veldan::TToolButton::kPushButton;
        fTransport->AddItem(new veldan::TToolButton(item.name, QIcon(item.image), QIcon(),
                                                    std::make_unique<veldan::TMessage>(item.code),
                                                    behavior));
    }
    fTransport->ItemAt(0)->SetRadioMode(true);
    SetPlayState(kStateStopped);
    return fTransport;
}

QWidget* TControlBar::MakeListButton() {
    fListBar = new veldan::TToolBar("ToolBarList");
    auto* button = new veldan::TToolButton(kListButton, QIcon(":/bitmaps/list.png"), QIcon(),
                                           std::make_unique<veldan::TMessage>(kMsgListToggled),
                                           veldan::TToolButton::kToggleButton);
    fListBar->AddItem(button);
    button->SetValue(1);
    return fListBar;
}

bool TControlBar::IsListShown() const { return fListBar->FindItem(kListButton)->Value() != 0; }

void TControlBar::SetListShown(bool shown) {
    fListBar->FindItem(kListButton)->SetValue(shown ? 1 : 0);
}

QWidget* TControlBar::MakeIndicators() {
    auto* box = new QWidget;
    QHBoxLayout* row = row_layout(box, kGroupSpacing);

    auto* ports = new QWidget(box);
    ports->setObjectName("StrViewPort");
    QHBoxLayout* portRow = row_layout(ports, kIndicatorSpacing);
    for (size_t i = 0; i < fPorts.size(); ++i) {
        fPorts[i] = new TLCDIndicator(kPortItems[i].name, kPortItems[i].text, TLit::kUnlit, ports);
        portRow->addWidget(fPorts[i]);
    }
    row->addWidget(ports);

    auto* resets = new QWidget(box);
    QHBoxLayout* resetRow = row_layout(resets, kIndicatorSpacing);
    for (size_t i = 0; i < fResets.size(); ++i) {
        fResets[i] =
            new TLCDIndicator(kResetItems[i].name, kResetItems[i].text, TLit::kUnlit, resets);
        resetRow->addWidget(fResets[i]);
    }
    row->addWidget(resets);
    return box;
}

QWidget* TControlBar::MakeSliders() {
    auto* box = new QWidget(this);
    QHBoxLayout* row = row_layout(box, 4);
    for (int i = 0; i < kSliderCount; ++i) {
        const TSliderItem& item = kSliderItems[i];
        if (i > 0) row->addSpacing(kGroupSpacing);
        fReadouts[size_t(i)] = new QLabel(box);
        fReadouts[size_t(i)]->setObjectName(item.readoutName);
        fReadouts[size_t(i)]->setAlignment(Qt::AlignVCenter | Qt::AlignRight);
        row->addWidget(fReadouts[size_t(i)]);

        auto* slider = new TCompactSlider(
            item.name, std::make_unique<veldan::TMessage>(item.message), item.min, item.max, box);
        slider->SetModificationMessage(std::make_unique<veldan::TMessage>(item.modification));
        slider->setValue(item.initial);
        slider->setMinimumWidth(item.minWidth);
        slider->setPageStep(item.pageStep);
        slider->SetValueTextFn([kind = item.kind](int32_t value) {
            return QString::fromStdString(readout_text("", value, kind));
        });
        if (item.hasDefault) slider->SetDefaultValue(item.initial);
        connect(slider, &QSlider::valueChanged, this, [this, i] { UpdateReadout(i); });
        fSliders[size_t(i)] = slider;
        row->addWidget(slider, item.stretch);
    }
    return box;
}

void TControlBar::SetTarget(QObject* target) {
    fTransport->SetTargetForItems(target);
    fListBar->SetTargetForItems(target);
    for (TCompactSlider* slider : fSliders) slider->SetTarget(target);
}

void TControlBar::ApplyLanguage(const veldan::TLLT& texts) {
    for (int i = 0; i < int(std::size(kTransport)); ++i) {
        fTransport->FindItem(kTransport[i].name)->SetTip(texts.Text(kTransport[i].tipKey));
    }
    fListBar->FindItem(kListButton)->SetTip(texts.Text(kListTipKey));
    for (int i = 0; i < kSliderCount; ++i) {
        fSliders[size_t(i)]->setAccessibleName(
            QString::fromStdString(texts.Text(kSliderItems[i].nameKey)));
        fPrefixes[size_t(i)] = texts.Text(kSliderItems[i].prefixKey);
        FitReadout(i);
        UpdateReadout(i);
    }
    LabelIndicators(texts);
}

// The title display reads as the song's title; its description says what it is.
void TControlBar::LabelIndicators(const veldan::TLLT& texts) {
    const auto text = [&texts](const char* key) { return QString::fromStdString(texts.Text(key)); };
    fTitle->setAccessibleDescription(text(kTitleKey));
    for (size_t i = 0; i < fPorts.size(); ++i) {
        fPorts[i]->setAccessibleName(text(kPortNameKey).replace("%s", kPortItems[i].text));
        fPorts[i]->SetStateTexts(text(kPortStateKeys[0]), text(kPortStateKeys[1]),
                                 text(kPortStateKeys[2]));
    }
    for (size_t i = 0; i < fResets.size(); ++i) {
        fResets[i]->setAccessibleName(text(kResetNameKey).replace("%s", kResetItems[i].text));
        fResets[i]->SetStateTexts(text(kResetStateKeys[0]), text(kResetStateKeys[1]),
                                  text(kResetStateKeys[2]));
    }
}

// Wide enough for the read-out of either end of the range, so that no value is cut and
// the sliders do not move while one is dragged.
void TControlBar::FitReadout(int slider) {
    const TSliderItem& item = kSliderItems[slider];
    const QFontMetrics metrics = fReadouts[size_t(slider)]->fontMetrics();
    int width = 0;
    for (int32_t value : {item.min, item.max}) {
        const std::string text = readout_text(fPrefixes[size_t(slider)], value, item.kind);
        width = std::max(width, metrics.horizontalAdvance(QString::fromStdString(text)));
    }
    fReadouts[size_t(slider)]->setMinimumWidth(width + kReadoutPadding);
}

void TControlBar::UpdateReadout(int slider) {
    const TSliderItem& item = kSliderItems[slider];
    const QString text = QString::fromStdString(readout_text(
        fPrefixes[size_t(slider)], fSliders[size_t(slider)]->sliderPosition(), item.kind));
    // Rebuilt only when it changes: the position is refreshed often while a song plays.
    if (fReadouts[size_t(slider)]->text() != text) fReadouts[size_t(slider)]->setText(text);
}

void TControlBar::SetPlayState(TMarnelState state) {
    const int radio = state == kStateStopped ? 2 : state == kStatePaused ? 1 : 0;
    fTransport->ItemAt(radio)->SetValue(1);
}

void TControlBar::SetSliderValue(TSlider slider, int32_t value) {
    fSliders[size_t(slider)]->setValue(value);
    UpdateReadout(slider);
}

int32_t TControlBar::SliderValue(TSlider slider) const { return fSliders[size_t(slider)]->value(); }

int32_t TControlBar::SliderMinimum(TSlider slider) const {
    return fSliders[size_t(slider)]->minimum();
}

int32_t TControlBar::SliderMaximum(TSlider slider) const {
    return fSliders[size_t(slider)]->maximum();
}

bool TControlBar::IsSliderDragged(TSlider slider) const {
    return fSliders[size_t(slider)]->isSliderDown();
}

void TControlBar::SetTitle(const std::string& title) {
    fTitle->setText(QString::fromStdString(title));
    fTitle->repaint();
}

void TControlBar::SetTime(int64_t elapsedUs, int64_t totalUs) {
    const QString text = QString::fromStdString(elapsed_total_text(elapsedUs, totalUs));
    if (text != fTime->text()) fTime->setText(text);
}

void TControlBar::SetStatusText(const std::string& text) {
    fStatusBar->setText(QString::fromStdString(" " + text));
}

void TControlBar::SetPortLit(int port, bool lit) {
    if (port < 0 || port >= int(fPorts.size())) return;
    fPorts[size_t(port)]->SetLit(lit ? TLit::kLit : TLit::kUnlit);
}

void TControlBar::SetResetLit(int32_t resetBit, TLCDIndicator::TLit lit) {
    const auto* it = std::find(std::begin(kResetBits), std::end(kResetBits), resetBit);
    if (it == std::end(kResetBits)) return;
    fResets[size_t(it - std::begin(kResetBits))]->SetLit(lit);
}

void TControlBar::TurnOffAllSysReset() {
    for (TLCDIndicator* indicator : fResets) indicator->SetLit(TLit::kUnlit);
}

}  // namespace quill
