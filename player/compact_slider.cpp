#include "player/compact_slider.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QMouseEvent>
#include <QPainter>
#include <QStyleOptionSlider>

#include "veldan/core/handler.h"

namespace quill {

namespace {

class TCompactSliderAccessible : public QAccessibleWidget, public QAccessibleValueInterface {
  public:
    explicit TCompactSliderAccessible(TCompactSlider* slider)
        : QAccessibleWidget(slider, QAccessible::Slider) {}

    void* interface_cast(QAccessible::InterfaceType type) override {
        if (type == QAccessible::ValueInterface) {
            return static_cast<QAccessibleValueInterface*>(this);
        }
        return QAccessibleWidget::interface_cast(type);
    }

    QString text(QAccessible::Text kind) const override {
        if (kind == QAccessible::Value) return Slider()->ValueText();
        return QAccessibleWidget::text(kind);
    }

    QVariant currentValue() const override { return Slider()->value(); }
    void setCurrentValue(const QVariant& value) override {
        Slider()->SetValueByUser(value.toInt());
    }
    QVariant maximumValue() const override { return Slider()->maximum(); }
    QVariant minimumValue() const override { return Slider()->minimum(); }
    QVariant minimumStepSize() const override { return Slider()->singleStep(); }

  private:
    TCompactSlider* Slider() const { return static_cast<TCompactSlider*>(widget()); }
};

QAccessibleInterface* compact_slider_accessible(const QString&, QObject* object) {
    if (auto* slider = dynamic_cast<TCompactSlider*>(object)) {
        return new TCompactSliderAccessible(slider);
    }
    return nullptr;
}

// Qt's own slider interface would read the bare number and set values that post nothing.
void install_accessible_factory() {
    static const bool installed = [] {
        QAccessible::installFactory(compact_slider_accessible);
        return true;
    }();
    (void)installed;
}

}  // namespace

TCompactSlider::TCompactSlider(const QString& name, std::unique_ptr<veldan::TMessage> message,
                               int32_t minValue, int32_t maxValue, QWidget* parent)
    : QSlider(Qt::Horizontal, parent), fMessage(std::move(message)) {
    install_accessible_factory();
    setObjectName(name);
    setRange(minValue, maxValue);
    setFocusPolicy(Qt::StrongFocus);
    connect(this, &QSlider::sliderMoved, this,
            [this](int position) { Invoke(fModificationMessage.get(), position); });
    connect(this, &QSlider::sliderReleased, this, [this] { Invoke(fMessage.get(), value()); });
    connect(this, &QSlider::actionTriggered, this, &TCompactSlider::UserActed);
}

void TCompactSlider::SetModificationMessage(std::unique_ptr<veldan::TMessage> message) {
    fModificationMessage = std::move(message);
}

void TCompactSlider::SetDefaultValue(int32_t value) {
    fDefault = value;
    fHasDefault = true;
}

void TCompactSlider::MouseDownRight() {
    if (!fHasDefault) return;
    setValue(fDefault);
    Invoke(fMessage.get(), value());
}

void TCompactSlider::SetValueByUser(int32_t value) {
    setValue(value);
    Invoke(fMessage.get(), this->value());
}

QString TCompactSlider::ValueText() const {
    return fValueText ? fValueText(value()) : QString::number(value());
}

// Keys, the wheel and clicks beside the thumb move it at once; the new position is known
// here, before the value follows. A drag reports through sliderMoved instead.
void TCompactSlider::UserActed(int action) {
    if (action == SliderNoAction || (action == SliderMove && isSliderDown())) return;
    if (sliderPosition() != value()) Invoke(fMessage.get(), sliderPosition());
}

void TCompactSlider::Invoke(const veldan::TMessage* message, int32_t value) {
    if (!message) return;
    veldan::TMessage copy(*message);
    copy.AddInt32("be:value", value);
    copy.AddPointer("source", static_cast<QObject*>(this));
    veldan::post_message(fTarget, copy);
}

QRect TCompactSlider::BarFrame() const {
    QStyleOptionSlider option;
    initStyleOption(&option);
    const QRect groove =
        style()->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderGroove, this);
    return QRect(groove.left(), (height() - kBarHeight) / 2, groove.width(), kBarHeight);
}

QRect TCompactSlider::ThumbFrame() const {
    QStyleOptionSlider option;
    initStyleOption(&option);
    return style()->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderHandle, this);
}

void TCompactSlider::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    QRect bar = BarFrame();
    for (const QColor& colour : kBarColors) {
        painter.fillRect(bar, colour);
        bar.adjust(1, 1, -1, -1);
    }
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    QRectF thumb = QRectF(ThumbFrame()).adjusted(0.5, 0.5, -0.5, -0.5);
    for (const QColor& colour : {kThumbOuter, kThumbMiddle, kThumbTop}) {
        painter.setBrush(colour);
        painter.drawRoundedRect(thumb, kThumbRadius, kThumbRadius);
        thumb.adjust(1, 1, -1, -1);
    }
    if (hasFocus()) {
        painter.setBrush(Qt::NoBrush);
        painter.setPen(QPen(palette().color(QPalette::Highlight), 1, Qt::DotLine));
        painter.drawRect(rect().adjusted(0, 0, -1, -1));
    }
}

void TCompactSlider::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::RightButton) {
        MouseDownRight();
        event->accept();
        return;
    }
    QSlider::mousePressEvent(event);
}

}  // namespace quill
