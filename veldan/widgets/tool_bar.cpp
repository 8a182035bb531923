#include "veldan/widgets/tool_bar.h"

#include <QPainter>
#include <algorithm>

#include "veldan/widgets/tool_button.h"

namespace veldan {

TToolBar::TToolBar(const QString& name, QWidget* parent) : QWidget(parent) {
    setObjectName(name);
    setAutoFillBackground(true);
    setBackgroundRole(QPalette::Window);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

void TToolBar::AddItem(TToolButton* button) { AddItem(button, CountItems()); }

bool TToolBar::AddItem(TToolButton* button, int index) {
    if (!button || index < 0 || index > CountItems()) return false;
    fTallest = std::max(fTallest, button->height());
    fButtons.insert(fButtons.begin() + index, button);
    button->setParent(this);
    button->SetBar(this);
    button->show();
    LayOutFrom(index);
    return true;
}

void TToolBar::AddSeparatorItem() { AddItem(new TSeparatorButton(fTallest)); }

void TToolBar::LayOutFrom(int index) {
    for (int i = index; i < CountItems(); ++i) {
        const int x = i == 0 ? kMargin : fButtons[size_t(i) - 1]->geometry().right() + 1 + kSpacing;
        fButtons[size_t(i)]->move(x, kMargin);
    }
    resize(sizeHint());
    updateGeometry();
}

TToolButton* TToolBar::ItemAt(int index) const {
    if (index < 0 || index >= CountItems()) return nullptr;
    return fButtons[size_t(index)];
}

int TToolBar::IndexOf(const TToolButton* button) const {
    const auto it = std::find(fButtons.begin(), fButtons.end(), button);
    return it == fButtons.end() ? -1 : int(it - fButtons.begin());
}

TToolButton* TToolBar::FindItem(const QString& name) const {
    const auto it = std::find_if(fButtons.begin(), fButtons.end(),
                                 [&name](const TToolButton* b) { return b->objectName() == name; });
    return it == fButtons.end() ? nullptr : *it;
}

TToolButton* TToolBar::FindPushed(int index) const {
    TToolButton* button = ItemAt(index);
    if (!button) return nullptr;
    if (button->Value()) return button;
    std::vector<TToolButton*> brothers;
    button->GetBrothers(&brothers);
    const auto it = std::find_if(brothers.begin(), brothers.end(),
                                 [](const TToolButton* b) { return b->Value() != 0; });
    return it == brothers.end() ? nullptr : *it;
}

void TToolBar::SetTargetForItems(QObject* target) {
    for (TToolButton* button : fButtons) button->SetTarget(target);
}

void TToolBar::SetFlat(bool flat) {
    fFlat = flat;
    for (TToolButton* button : fButtons) button->update();
}

void TToolBar::GetPreferredSize(int* width, int* height) const {
    *width = fButtons.empty() ? kMargin : fButtons.back()->geometry().right() + 1 + kMargin;
    *height = fTallest + 2 * kMargin;
}

QSize TToolBar::sizeHint() const {
    int width = 0;
    int height = 0;
    GetPreferredSize(&width, &height);
    return QSize(width, height);
}

void TToolBar::paintEvent(QPaintEvent*) {
    if (fFlat) return;
    QPainter painter(this);
    const QRect r = rect().adjusted(0, 0, -1, -1);
    painter.setPen(palette().color(QPalette::Light));
    painter.drawLine(r.topLeft(), r.topRight());
    painter.setPen(palette().color(QPalette::Mid));
    painter.drawLine(r.bottomLeft(), r.bottomRight());
}

}  // namespace veldan
