#pragma once
// TToolButton: one bitmap button of a TToolBar, a push button or a two-state toggle.
// Toggle buttons in radio mode form groups bounded by separators (TSeparatorButton):
// turning one on turns its brothers off, and clicking the one that is on keeps it on.
// A click posts a copy of the button's message to its target, with int32 "be:value"
// (the value after the click) and the pointer "source".
//
// Drawing states: disabled (the button or its bar), normal, hot (pointer over it in the
// active window) and pushed (on, or pressed while hot). Pushed wins over hot; a disabled
// button that is on draws disabled and on.
//
// The keyboard reaches a button by Tab (a click does not take the focus from where the
// user works); Space, Return and Enter click it. Screen readers see a push button, a
// check box (toggle) or a radio button (radio mode) named by its tip unless an accessible
// name is set, with its on state and its press or toggle action.

#include <QIcon>
#include <QPointer>
#include <QWidget>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "veldan/core/message.h"

namespace veldan {

class TToolBar;
class TToolTip;

class TToolButton : public QWidget {
  public:
    enum TBehavior : uint32_t {
        kPushButton = 0,
        kToggleButton = 1,
    };
    enum TImageSlot : int32_t {
        kNormalImage = 0,
        kSecondImage = 1,  // shown while a toggle button is on, when set
    };
    enum class TDrawState {
        kDisabled,
        kNormal,
        kHot,
        kPushed,
    };

    // The button is sized from the normal image (its smallest size plus 6 each way); with
    // no normal image it keeps the size it has. message may be null: a click then posts
    // nothing.
    TToolButton(const QString& name, const QIcon& normal, const QIcon& second,
                std::unique_ptr<TMessage> message, uint32_t behavior, QWidget* parent = nullptr);
    ~TToolButton() override;

    void SetBehavior(uint32_t behavior);
    uint32_t Behavior() const { return fBehavior; }
    // Ignored when unchanged, and when switching on for a push button. Switching on turns
    // the value off; every brother follows.
    void SetRadioMode(bool radio);
    bool IsRadioMode() const { return fRadio; }
    void SetValue(int32_t value);
    int32_t Value() const { return fValue ? 1 : 0; }

    void SetImage(int32_t which, const QIcon& image);
    void ClearImages();

    void SetTip(const std::string& tip);
    const std::string& Tip() const;
    TToolTip* ToolTip() const { return fToolTip.get(); }

    void SetTarget(QObject* target) { fTarget = target; }
    QObject* Target() const { return fTarget; }
    const TMessage* Message() const { return fMessage.get(); }

    // The buttons of this one's radio group, without itself: its neighbours in the bar up
    // to the nearest separator on each side.
    void GetBrothers(std::vector<TToolButton*>* brothers) const;
    TToolBar* Bar() const { return fBar; }
    virtual bool IsSeparator() const { return false; }

    bool IsPressed() const { return fPressed; }
    bool IsHot() const { return fHot; }
    TDrawState DrawState() const;

    QSize sizeHint() const override { return size(); }

  protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;
    void enterEvent(QEnterEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void changeEvent(QEvent* event) override;

  private:
    friend class TToolBar;
    friend class TToolButtonAccessible;
    void SetBar(TToolBar* bar) { fBar = bar; }
    void AdjustSize();
    void SetHot(bool hot);
    void Clicked();
    void Invoke();
    QPixmap CurrentPixmap() const;

    uint32_t fBehavior;
    bool fRadio = false;
    bool fValue = false;
    bool fPressed = false;
    bool fHot = false;
    QIcon fImages[2];
    std::unique_ptr<TMessage> fMessage;
    QPointer<QObject> fTarget;
    TToolBar* fBar = nullptr;
    std::unique_ptr<TToolTip> fToolTip;
};

// A thin gap between buttons that also ends a radio group. It takes no clicks.
class TSeparatorButton : public TToolButton {
  public:
    static constexpr int kWidth = 8;

    TSeparatorButton(int height, QWidget* parent = nullptr);
    bool IsSeparator() const override { return true; }

  protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
};

}  // namespace veldan
