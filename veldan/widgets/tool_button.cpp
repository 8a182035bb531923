#include "veldan/widgets/tool_button.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <algorithm>

#include "veldan/core/handler.h"
#include "veldan/widgets/tool_bar.h"
#include "veldan/widgets/tool_tip.h"

namespace veldan {

namespace {

constexpr int kImageMargin = 6;
const QColor kPushedBackground(192, 192, 192);
const QColor kHotBackground(240, 240, 240);

QSize smallest_size(const QIcon& icon) {
    const QList<QSize> sizes = icon.availableSizes();
    if (sizes.isEmpty()) return QSize();
    return *std::min_element(sizes.begin(), sizes.end(), [](const QSize& a, const QSize& b) {
        return a.width() * a.height() < b.width() * b.height();
    });
}

// Light on the top and left edges, dark on the others; swapped for a sunken look.
void draw_bevel(QPainter* painter, const QRect& r, const QPalette& palette, bool sunken) {
    const QColor topLeft = sunken ? palette.color(QPalette::Dark) : palette.color(QPalette::Light);
    const QColor bottomRight =
        sunken ? palette.color(QPalette::Light) : palette.color(QPalette::Dark);
    painter->setPen(topLeft);
    painter->drawLine(r.topLeft(), r.topRight());
    painter->drawLine(r.topLeft(), r.bottomLeft());
    painter->setPen(bottomRight);
    painter->drawLine(r.bottomLeft(), r.bottomRight());
    painter->drawLine(r.topRight(), r.bottomRight());
}

}  // namespace

class TToolButtonAccessible : public QAccessibleWidget {
  public:
    explicit TToolButtonAccessible(TToolButton* button)
        : QAccessibleWidget(button, QAccessible::Button) {}

    QAccessible::Role role() const override {
        if (Button()->IsSeparator()) return QAccessible::Separator;
        if (Button()->fRadio) return QAccessible::RadioButton;
        if (Button()->fBehavior == TToolButton::kToggleButton) return QAccessible::CheckBox;
        return QAccessible::Button;
    }

    QString text(QAccessible::Text kind) const override {
        if (kind == QAccessible::Name && widget()->accessibleName().isEmpty()) {
            return QString::fromStdString(Button()->Tip());
        }
        return QAccessibleWidget::text(kind);
    }

    QAccessible::State state() const override {
        QAccessible::State state = QAccessibleWidget::state();
        if (Button()->fBehavior == TToolButton::kToggleButton) {
            state.checkable = true;
            state.checked = Button()->fValue;
        }
        state.pressed = Button()->fPressed;
        return state;
    }

    QStringList actionNames() const override {
        if (Button()->IsSeparator() || !widget()->isEnabled()) return {};
        return {Button()->fBehavior == TToolButton::kToggleButton ? toggleAction() : pressAction()};
    }

    void doAction(const QString& action) override {
        if (actionNames().contains(action)) Button()->Clicked();
    }

  private:
    TToolButton* Button() const { return static_cast<TToolButton*>(widget()); }
};

namespace {

QAccessibleInterface* tool_button_accessible(const QString&, QObject* object) {
    if (auto* button = dynamic_cast<TToolButton*>(object)) {
        return new TToolButtonAccessible(button);
    }
    return nullptr;
}

// Tool buttons are plain widgets to Qt, which would describe them as an unnamed pane.
void install_accessible_factory() {
    static const bool installed = [] {
        QAccessible::installFactory(tool_button_accessible);
        return true;
    }();
    (void)installed;
}

void notify_checked(QWidget* button) {
    QAccessible::State changed;
    changed.checked = true;
    QAccessibleStateChangeEvent event(button, changed);
    QAccessible::updateAccessibility(&event);
}

}  // namespace

TToolButton::TToolButton(const QString& name, const QIcon& normal, const QIcon& second,
                         std::unique_ptr<TMessage> message, uint32_t behavior, QWidget* parent)
    : QWidget(parent),
      fBehavior(behavior),
      fImages{normal, second},
      fMessage(std::move(message)),
      fToolTip(std::make_unique<TToolTip>()) {
    install_accessible_factory();
    setObjectName(name);
    setFocusPolicy(Qt::TabFocus);
    AdjustSize();
    fToolTip->SetTarget(this);
}

TToolButton::~TToolButton() = default;

void TToolButton::AdjustSize() {
    const QSize image = smallest_size(fImages[kNormalImage]);
    if (image.isValid()) setFixedSize(image + QSize(kImageMargin, kImageMargin));
}

void TToolButton::SetBehavior(uint32_t behavior) {
    fBehavior = behavior;
    if (fBehavior == kPushButton) SetValue(0);
}

void TToolButton::SetRadioMode(bool radio) {
    if (radio == fRadio || (radio && fBehavior == kPushButton)) return;
    fRadio = radio;
    if (fRadio) SetValue(0);
    std::vector<TToolButton*> brothers;
    GetBrothers(&brothers);
    for (TToolButton* brother : brothers) brother->SetRadioMode(radio);
}

void TToolButton::SetValue(int32_t value) {
    const bool on = value != 0;
    if (on == fValue) return;
    fValue = on;
    if (fValue && fRadio) {
        std::vector<TToolButton*> brothers;
        GetBrothers(&brothers);
        for (TToolButton* brother : brothers) brother->SetValue(0);
    }
    if (fBehavior == kToggleButton) notify_checked(this);
    update();
}

void TToolButton::SetImage(int32_t which, const QIcon& image) {
    if (which != kNormalImage && which != kSecondImage) return;
    fImages[which] = image;
    if (which == kNormalImage) AdjustSize();
    update();
}

void TToolButton::ClearImages() {
    fImages[kNormalImage] = QIcon();
    fImages[kSecondImage] = QIcon();
    update();
}

void TToolButton::SetTip(const std::string& tip) {
    fToolTip->SetTip(tip);
    if (accessibleName().isEmpty()) {
        QAccessibleEvent event(this, QAccessible::NameChanged);
        QAccessible::updateAccessibility(&event);
    }
}

const std::string& TToolButton::Tip() const { return fToolTip->Tip(); }

void TToolButton::GetBrothers(std::vector<TToolButton*>* brothers) const {
    brothers->clear();
    if (!fBar) return;
    const int self = fBar->IndexOf(this);
    if (self < 0) return;
    for (int i = self - 1; i >= 0 && !fBar->ItemAt(i)->IsSeparator(); --i) {
        brothers->push_back(fBar->ItemAt(i));
    }
    for (int i = self + 1; i < fBar->CountItems() && !fBar->ItemAt(i)->IsSeparator(); ++i) {
        brothers->push_back(fBar->ItemAt(i));
    }
}

TToolButton::TDrawState TToolButton::DrawState() const {
    if (!isEnabled()) return TDrawState::kDisabled;
    if (fValue || (fPressed && fHot)) return TDrawState::kPushed;
    if (fHot) return TDrawState::kHot;
    return TDrawState::kNormal;
}

QPixmap TToolButton::CurrentPixmap() const {
    const QIcon& image =
        fValue && !fImages[kSecondImage].isNull() ? fImages[kSecondImage] : fImages[kNormalImage];
    if (image.isNull()) return QPixmap();
    const QIcon::Mode mode = isEnabled() ? QIcon::Normal : QIcon::Disabled;
    return image.pixmap(size() - QSize(kImageMargin, kImageMargin), devicePixelRatioF(), mode);
}

void TToolButton::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    const TDrawState state = DrawState();
    const bool on = state == TDrawState::kPushed || (state == TDrawState::kDisabled && fValue);
    const QRect frame = rect().adjusted(0, 0, -1, -1);
    if (on) {
        painter.fillRect(rect(), kPushedBackground);
    } else if (state == TDrawState::kHot) {
        painter.fillRect(rect(), kHotBackground);
    }
    if (on) {
        draw_bevel(&painter, frame, palette(), true);
    } else if (state == TDrawState::kHot || !(fBar && fBar->IsFlat())) {
        draw_bevel(&painter, frame, palette(), false);
    }
    // Pushed images sit one pixel lower right, as if pressed into the bar.
    const int offset = kImageMargin / 2 + (on ? 1 : 0);
    painter.drawPixmap(offset, offset, CurrentPixmap());
    if (hasFocus()) {
        painter.setPen(QPen(palette().color(QPalette::Highlight), 1, Qt::DotLine));
        painter.drawRect(frame.adjusted(1, 1, -1, -1));
    }
}

void TToolButton::keyPressEvent(QKeyEvent* event) {
    switch (event->key()) {
        case Qt::Key_Space:
        case Qt::Key_Return:
        case Qt::Key_Enter:
            // A held key would otherwise toggle a button on and off at the repeat rate.
            if (!event->isAutoRepeat() && isEnabled()) Clicked();
            update();
            event->accept();
            return;
        default:
            QWidget::keyPressEvent(event);
    }
}

void TToolButton::focusInEvent(QFocusEvent* event) {
    update();
    QWidget::focusInEvent(event);
}

void TToolButton::focusOutEvent(QFocusEvent* event) {
    update();
    QWidget::focusOutEvent(event);
}

void TToolButton::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton || !isVisible()) return QWidget::mousePressEvent(event);
    fPressed = true;
    update();
}

void TToolButton::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton || !isVisible()) {
        return QWidget::mouseReleaseEvent(event);
    }
    if (!fPressed) return;
    fPressed = false;
    if (rect().contains(event->position().toPoint())) {
        Clicked();
    }
    update();
}

void TToolButton::Clicked() {
    if (fBehavior == kToggleButton) {
        if (fRadio && fValue) return;
        fToolTip->Hide();
        SetValue(fValue ? 0 : 1);
    } else {
        fToolTip->Hide();
    }
    Invoke();
}

void TToolButton::Invoke() {
    if (!fMessage) return;
    TMessage message(*fMessage);
    message.AddInt32("be:value", Value());
    message.AddPointer("source", static_cast<QObject*>(this));
    post_message(fTarget, message);
}

void TToolButton::SetHot(bool hot) {
    if (hot == fHot) return;
    fHot = hot;
    update();
}

void TToolButton::enterEvent(QEnterEvent* event) {
    SetHot(isActiveWindow());
    QWidget::enterEvent(event);
}

void TToolButton::leaveEvent(QEvent* event) {
    SetHot(false);
    QWidget::leaveEvent(event);
}

void TToolButton::changeEvent(QEvent* event) {
    if (event->type() == QEvent::ActivationChange) SetHot(isActiveWindow() && underMouse());
    QWidget::changeEvent(event);
}

TSeparatorButton::TSeparatorButton(int height, QWidget* parent)
    : TToolButton(QString(), QIcon(), QIcon(), nullptr, kPushButton, parent) {
    setFocusPolicy(Qt::NoFocus);
    setFixedSize(kWidth, height);
}

void TSeparatorButton::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    const int x = width() / 2 - 1;
    painter.setPen(palette().color(QPalette::Dark));
    painter.drawLine(x, 2, x, height() - 3);
    painter.setPen(palette().color(QPalette::Light));
    painter.drawLine(x + 1, 2, x + 1, height() - 3);
}

void TSeparatorButton::mousePressEvent(QMouseEvent* event) { event->ignore(); }

void TSeparatorButton::mouseReleaseEvent(QMouseEvent* event) { event->ignore(); }

}  // namespace veldan
