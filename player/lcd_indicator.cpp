#include "player/lcd_indicator.h"

namespace quill {

namespace {

constexpr int kTextMargin = 3;

}  // namespace

TLCDIndicator::TLCDIndicator(const QString& name, const QString& text, TLit lit, QWidget* parent)
    : QLabel(text, parent), fLit(lit) {
    setObjectName(name);
    setAlignment(Qt::AlignCenter);
    setAutoFillBackground(true);
    setMargin(kTextMargin);
    SetLit(lit);
}

void TLCDIndicator::SetLit(TLit lit) {
    fLit = lit;
    QPalette colours = palette();
    colours.setColor(QPalette::WindowText, kTextColor);
    colours.setColor(QPalette::Window, Background(lit));
    setPalette(colours);
    DescribeState();
}

void TLCDIndicator::SetStateTexts(const QString& unlit, const QString& halfLit,
                                  const QString& lit) {
    fStateTexts = {unlit, halfLit, lit};
    DescribeState();
}

void TLCDIndicator::DescribeState() {
    const QString& text = fStateTexts[size_t(fLit)];
    if (accessibleDescription() != text) setAccessibleDescription(text);
}

QColor TLCDIndicator::Background(TLit lit) {
    switch (lit) {
        case TLit::kLit:
            return kLitBackground;
        case TLit::kHalfLit:
            return kHalfLitBackground;
        case TLit::kUnlit:
            return kUnlitBackground;
    }
    return kUnlitBackground;
}

}  // namespace quill
