#pragma once
// TCompactSlider: a horizontal slider with a thin bar and a block thumb, and no text of
// its own (the read-outs beside it do that job). While the user drags it posts its
// modification message, when released (or moved by keys or clicks) its message; both
// carry int32 "be:value". A right click sets the default value, when one is set, and
// posts the message, as if the user had dragged there. Values set from code post nothing.
//
// Keys: the arrows move one step, Page Up and Page Down a page step, Home and End to the
// ends. Screen readers see a slider with its range, its value in the read-out's unit and
// the accessible name its owner gives; a value they set counts as the user's own move.

#include <QColor>
#include <QPointer>
#include <QSlider>
#include <array>
#include <cstdint>
#include <functional>
#include <memory>

#include "veldan/core/message.h"

namespace quill {

class TCompactSlider : public QSlider {
  public:
    // Seven rows, so that the four nested rectangles leave one row of the innermost colour.
    static constexpr int kBarHeight = 7;
    static constexpr int kThumbRadius = 2;
    // The bar's four nested rectangles, from the outside in, each inset by 1 pixel.
    static inline const std::array<QColor, 4> kBarColors = {
        QColor(180, 230, 0), QColor(210, 255, 0), QColor(255, 255, 120), QColor(255, 255, 204)};
    static inline const QColor kThumbOuter{80, 80, 80};
    static inline const QColor kThumbMiddle{155, 155, 155};
    static inline const QColor kThumbTop{216, 216, 216};

    TCompactSlider(const QString& name, std::unique_ptr<veldan::TMessage> message, int32_t minValue,
                   int32_t maxValue, QWidget* parent = nullptr);

    void SetModificationMessage(std::unique_ptr<veldan::TMessage> message);
    void SetTarget(QObject* target) { fTarget = target; }
    QObject* Target() const { return fTarget; }

    void SetDefaultValue(int32_t value);
    bool HasDefault() const { return fHasDefault; }
    int32_t DefaultValue() const { return fDefault; }

    // With a default set: take it and post the message.
    void MouseDownRight();
    // Takes value (kept in range) and posts the message, as a move by the user does.
    void SetValueByUser(int32_t value);

    // The value as a screen reader says it ("100%", "+3"); the bare number without one.
    using TValueTextFn = std::function<QString(int32_t value)>;
    void SetValueTextFn(TValueTextFn fn) { fValueText = std::move(fn); }
    QString ValueText() const;
    // The groove narrowed to a band kBarHeight rows high, centred in the bounds.
    QRect BarFrame() const;
    QRect ThumbFrame() const;

  protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;

  private:
    void Invoke(const veldan::TMessage* message, int32_t value);
    void UserActed(int action);

    std::unique_ptr<veldan::TMessage> fMessage;
    std::unique_ptr<veldan::TMessage> fModificationMessage;
    QPointer<QObject> fTarget;
    TValueTextFn fValueText;
    int32_t fDefault = 0;
    bool fHasDefault = false;
};

}  // namespace quill
