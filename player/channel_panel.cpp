#include "player/channel_panel.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QGridLayout>
#include <QLabel>
#include <QPainter>
#include <QTimerEvent>
#include <QToolButton>
#include <algorithm>

#include "engine/note_on_manager.h"
#include "player/lcd_indicator.h"
#include "veldan/core/llt.h"
#include "veldan/widgets/lang_key.h"

namespace quill {

namespace {

using veldan::llt_key;

constexpr const char* kPortNames[] = {"A", "B"};
// A meter is full at this many notes; more sound no louder to the eye.
constexpr int32_t kFullScaleNotes = 6;

}  // namespace

// A bar of sounding notes that falls one step a refresh, so short notes still show.
class TChannelMeter : public QWidget {
  public:
    explicit TChannelMeter(QWidget* parent) : QWidget(parent) { setFixedSize(10, 26); }

    void Feed(int32_t notes) {
        const int32_t shown = std::max(notes, fLevel - 1);
        if (shown == fLevel) return;
        fLevel = shown;
        update();
    }
    int32_t Level() const { return fLevel; }

  protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.fillRect(rect(), TLCDIndicator::kLitBackground);
        const int height =
            (this->height() - 2) * std::min(fLevel, kFullScaleNotes) / kFullScaleNotes;
        painter.fillRect(QRect(1, this->height() - 1 - height, width() - 2, height),
                         TLCDIndicator::kTextColor);
    }

  private:
    int32_t fLevel = 0;
};

namespace {

// A meter reads as a progress bar (Qt 6.4 has no level bar) whose value is the notes
// sounding. It sends no change events: at the display rate they would drown everything
// else a screen reader says.
class TChannelMeterAccessible : public QAccessibleWidget, public QAccessibleValueInterface {
  public:
    explicit TChannelMeterAccessible(TChannelMeter* meter)
        : QAccessibleWidget(meter, QAccessible::ProgressBar) {}

    void* interface_cast(QAccessible::InterfaceType type) override {
        if (type == QAccessible::ValueInterface) {
            return static_cast<QAccessibleValueInterface*>(this);
        }
        return QAccessibleWidget::interface_cast(type);
    }
    QString text(QAccessible::Text kind) const override {
        if (kind == QAccessible::Value) return QString::number(Meter()->Level());
        return QAccessibleWidget::text(kind);
    }
    QVariant currentValue() const override { return Meter()->Level(); }
    void setCurrentValue(const QVariant&) override {}
    QVariant maximumValue() const override { return kFullScaleNotes; }
    QVariant minimumValue() const override { return 0; }
    QVariant minimumStepSize() const override { return 1; }

  private:
    TChannelMeter* Meter() const { return static_cast<TChannelMeter*>(widget()); }
};

QAccessibleInterface* channel_meter_accessible(const QString&, QObject* object) {
    if (auto* meter = dynamic_cast<TChannelMeter*>(object)) {
        return new TChannelMeterAccessible(meter);
    }
    return nullptr;
}

}  // namespace

TChannelPanel::TChannelPanel(const veldan::TLLT& texts, TOutputChain& chain, QWidget* parent)
    : QWidget(parent), fChain(chain) {
    static const bool accessible = [] {
        QAccessible::installFactory(channel_meter_accessible);
        return true;
    }();
    (void)accessible;
    setObjectName("ChannelPanel");
    auto* grid = new QGridLayout(this);
    grid->setContentsMargins(4, 2, 4, 2);
    grid->setHorizontalSpacing(2);
    grid->setVerticalSpacing(1);
    for (int channel = 0; channel < kChannels; ++channel) {
        auto* number = new QLabel(QString::number(channel + 1), this);
        number->setAlignment(Qt::AlignCenter);
        grid->addWidget(number, 0, 1 + channel * 2, 1, 2);
    }
    for (int port = 0; port < TOutputChain::kPorts; ++port) {
        const int row = 1 + port * 2;
        grid->addWidget(new QLabel(kPortNames[port], this), row, 0, 2, 1);
        for (int channel = 0; channel < kChannels; ++channel) {
            TStrip& strip = fStrips[size_t(port)][size_t(channel)];
            const QString suffix = QString("%1%2").arg(kPortNames[port]).arg(channel + 1);
            strip.meter = new TChannelMeter(this);
            strip.meter->setObjectName("Meter" + suffix);
            strip.mute = MakeToggle("Mute" + suffix, port);
            strip.solo = MakeToggle("Solo" + suffix, port);
            const int column = 1 + channel * 2;
            grid->addWidget(strip.meter, row, column, 2, 1, Qt::AlignCenter);
            grid->addWidget(strip.mute, row, column + 1);
            grid->addWidget(strip.solo, row + 1, column + 1);
        }
    }
    grid->setColumnStretch(1 + kChannels * 2, 1);
    ApplyLanguage(texts);
}

QToolButton* TChannelPanel::MakeToggle(const QString& name, int port) {
    auto* button = new QToolButton(this);
    button->setObjectName(name);
    button->setCheckable(true);
    button->setAutoRaise(true);
    // Thirty-two strips side by side: the buttons hold their letter and no more.
    button->setStyleSheet("QToolButton { padding: 0px; }");
    button->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    connect(button, &QToolButton::toggled, this, [this, port] { Apply(port); });
    return button;
}

void TChannelPanel::ApplyLanguage(const veldan::TLLT& texts) {
    const QString mute = QString::fromUtf8(texts.Text(llt_key("Button_Mute_Short")));
    const QString solo = QString::fromUtf8(texts.Text(llt_key("Button_Solo_Short")));
    const QString muteTip = QString::fromUtf8(texts.Text(llt_key("ToolTip_Mute")));
    const QString soloTip = QString::fromUtf8(texts.Text(llt_key("ToolTip_Solo")));
    // A letter is no name to a screen reader: every button says its port and channel.
    const QString muteName = QString::fromUtf8(texts.Text(llt_key("Access_Mute")));
    const QString soloName = QString::fromUtf8(texts.Text(llt_key("Access_Solo")));
    const QString meterName = QString::fromUtf8(texts.Text(llt_key("Access_Meter")));
    for (int port = 0; port < TOutputChain::kPorts; ++port)
        for (int channel = 0; channel < kChannels; ++channel) {
            TStrip& strip = fStrips[size_t(port)][size_t(channel)];
            const auto name = [&](QString text) {
                return text.replace("%p", kPortNames[port])
                    .replace("%c", QString::number(channel + 1));
            };
            strip.mute->setText(mute);
            strip.mute->setToolTip(muteTip);
            strip.mute->setAccessibleName(name(muteName));
            strip.solo->setText(solo);
            strip.solo->setToolTip(soloTip);
            strip.solo->setAccessibleName(name(soloName));
            strip.meter->setAccessibleName(name(meterName));
        }
}

uint16_t TChannelPanel::Mask(int port, QToolButton* TStrip::*button) const {
    uint16_t mask = 0;
    for (int channel = 0; channel < kChannels; ++channel)
        if ((fStrips[size_t(port)][size_t(channel)].*button)->isChecked())
            mask |= uint16_t(1u << channel);
    return mask;
}

uint16_t TChannelPanel::Muted(int port) const { return Mask(port, &TStrip::mute); }

uint16_t TChannelPanel::Soloed(int port) const { return Mask(port, &TStrip::solo); }

uint16_t TChannelPanel::SilencedChannels(uint16_t muted, uint16_t soloed) {
    return soloed ? uint16_t(~soloed) : muted;
}

void TChannelPanel::Apply(int port) {
    fChain.SetMutedChannels(port, SilencedChannels(Muted(port), Soloed(port)));
}

int32_t TChannelPanel::MeterLevel(int port, int channel) const {
    return fStrips[size_t(port)][size_t(channel)].meter->Level();
}

void TChannelPanel::RefreshMeters() {
    for (int port = 0; port < TOutputChain::kPorts; ++port)
        for (int channel = 0; channel < kChannels; ++channel)
            fStrips[size_t(port)][size_t(channel)].meter->Feed(
                fChain.NoteOnManager(port).SoundingCount(uint8_t(channel)));
}

void TChannelPanel::showEvent(QShowEvent* event) {
    if (!fTimer) fTimer = startTimer(kRefreshMs);
    QWidget::showEvent(event);
}

void TChannelPanel::timerEvent(QTimerEvent*) { RefreshMeters(); }

void TChannelPanel::hideEvent(QHideEvent* event) {
    if (fTimer) killTimer(fTimer);
    fTimer = 0;
    QWidget::hideEvent(event);
}

}  // namespace quill
