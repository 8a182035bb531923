#pragma once
// Tool tips. A TToolTip watches one target widget through its spy, an event filter on
// that widget. When the pointer rests on the target for the delay time a TToolTipWin
// opens 16 pixels left of and below the pointer and closes by itself after the show time;
// leaving the target or clicking closes it at once.
//
// States: idle, waiting (delay runner pending), showing (tip window open). The spy, the
// runner and the tool tip talk by posted messages, so everything happens on the GUI
// thread in order.

#include <QObject>
#include <QPointer>
#include <QString>
#include <QWidget>
#include <cstdint>
#include <memory>
#include <string>

#include "veldan/core/handler.h"

class QTimer;

namespace veldan {

class TToolTipWin;

// Tells the tool tip when the pointer enters and leaves the watched widget.
class TTTSpy : public QObject {
  public:
    explicit TTTSpy(QObject* toolTip) : fToolTip(toolTip) {}

    void SetWatched(QWidget* view);

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    bool fInside = false;
    QPointer<QWidget> fWatched;
    QObject* fToolTip;
};

class TToolTip : public THandler {
  public:
    static constexpr uint32_t kMsgPointerEntered = 'Pmen';
    static constexpr uint32_t kMsgPointerExited = 'Pmex';
    static constexpr uint32_t kMsgOpenTip = 'Potr';
    static constexpr int64_t kDefaultDelayUs = 1000000;
    static constexpr int64_t kDefaultShowUs = 5000000;
    static constexpr int kTipOffset = 16;
    static constexpr const char* kWindowNamePrefix = "ATTW_";

    explicit TToolTip(const QString& name = QString());
    ~TToolTip() override;

    // -1 for no widget; otherwise the spy leaves the previous target and watches this one.
    int SetTarget(QWidget* view);
    QWidget* Target() const { return fTarget; }

    void SetTip(const std::string& tip) { fTip = tip; }
    const std::string& Tip() const { return fTip; }

    // A negative time is refused with -1 and the old one kept; 0 otherwise.
    int SetDelayTime(int64_t us);
    int SetShowTime(int64_t us);
    int64_t DelayTime() const { return fDelayUs; }
    int64_t ShowTime() const { return fShowUs; }

    // Closes the tip window if one is open.
    void Hide();
    // "ATTW_" followed by the tool tip's name; tip windows carry it as title and name.
    QString ToolTipWindowName() const;

    bool IsWaiting() const { return fDelayRunner != nullptr; }
    TToolTipWin* Window() const { return fWindow; }

    void MessageReceived(TMessage* message) override;

  private:
    void PointerEntered();
    void PointerExited();
    void OpenTipRqtd();
    void DeleteRunner();

    int64_t fDelayUs = kDefaultDelayUs;
    int64_t fShowUs = kDefaultShowUs;
    std::string fTip;
    QTimer* fDelayRunner = nullptr;
    QPointer<QWidget> fTarget;
    QPointer<TToolTipWin> fWindow;
    std::unique_ptr<TTTSpy> fSpy;
};

// A small bordered window showing the tip on pale yellow; it never takes the focus and
// deletes itself when closed, which happens by itself after the show time.
class TToolTipWin : public QWidget {
  public:
    static constexpr const char* kTipViewName = "TipView";

    TToolTipWin(const QPoint& topLeft, const QString& name, const std::string& tip, int64_t showUs);
};

}  // namespace veldan
