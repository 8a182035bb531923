#include "veldan/widgets/tool_tip.h"

#include <QCursor>
#include <QEvent>
#include <QLabel>
#include <QTimer>
#include <QVBoxLayout>

namespace veldan {

namespace {

const QColor kTipBackground(255, 255, 225);

// Qt timers count milliseconds; round up so that a short delay never becomes none.
int to_ms(int64_t us) { return int((us + 999) / 1000); }

}  // namespace

void TTTSpy::SetWatched(QWidget* view) {
    if (fWatched) fWatched->removeEventFilter(this);
    fWatched = view;
    fInside = false;
    if (fWatched) fWatched->installEventFilter(this);
}

bool TTTSpy::eventFilter(QObject* watched, QEvent* event) {
    if (watched != fWatched) return false;
    if (event->type() == QEvent::Enter && !fInside) {
        fInside = true;
        post_message(fToolTip, TMessage(TToolTip::kMsgPointerEntered));
    } else if (event->type() == QEvent::Leave && fInside) {
        fInside = false;
        post_message(fToolTip, TMessage(TToolTip::kMsgPointerExited));
    }
    return false;
}

TToolTip::TToolTip(const QString& name) : fSpy(std::make_unique<TTTSpy>(this)) {
    setObjectName(name);
}

TToolTip::~TToolTip() {
    Hide();
    fSpy->SetWatched(nullptr);
}

int TToolTip::SetTarget(QWidget* view) {
    if (!view) return -1;
    fTarget = view;
    fSpy->SetWatched(view);
    return 0;
}

int TToolTip::SetDelayTime(int64_t us) {
    if (us < 0) return -1;
    fDelayUs = us;
    return 0;
}

int TToolTip::SetShowTime(int64_t us) {
    if (us < 0) return -1;
    fShowUs = us;
    return 0;
}

void TToolTip::Hide() {
    if (fWindow) fWindow->close();
}

QString TToolTip::ToolTipWindowName() const { return kWindowNamePrefix + objectName(); }

void TToolTip::MessageReceived(TMessage* message) {
    switch (message->what) {
        case kMsgPointerEntered:
            PointerEntered();
            break;
        case kMsgPointerExited:
            PointerExited();
            break;
        case kMsgOpenTip:
            OpenTipRqtd();
            break;
        default:
            THandler::MessageReceived(message);
    }
}

void TToolTip::PointerEntered() {
    if (fDelayRunner) return;
    fDelayRunner = new QTimer(this);
    fDelayRunner->setSingleShot(true);
    // A coarse timer may fire 5 % early; the tip waits at least its delay.
    fDelayRunner->setTimerType(Qt::PreciseTimer);
    connect(fDelayRunner, &QTimer::timeout, this,
            [this] { post_message(this, TMessage(kMsgOpenTip)); });
    fDelayRunner->start(to_ms(fDelayUs));
}

void TToolTip::PointerExited() {
    DeleteRunner();
    Hide();
}

void TToolTip::DeleteRunner() {
    delete fDelayRunner;
    fDelayRunner = nullptr;
}

void TToolTip::OpenTipRqtd() {
    DeleteRunner();
    if (fWindow || fTip.empty() || !fTarget || !fTarget->isActiveWindow()) return;
    const QPoint where = QCursor::pos() + QPoint(-kTipOffset, kTipOffset);
    fWindow = new TToolTipWin(where, ToolTipWindowName(), fTip, fShowUs);
    fWindow->show();
}

TToolTipWin::TToolTipWin(const QPoint& topLeft, const QString& name, const std::string& tip,
                         int64_t showUs)
    : QWidget(nullptr, Qt::ToolTip | Qt::FramelessWindowHint | Qt::WindowDoesNotAcceptFocus) {
    setObjectName(name);
    setWindowTitle(name);
    setAttribute(Qt::WA_DeleteOnClose);
    setAttribute(Qt::WA_ShowWithoutActivating);

    auto* view = new QLabel(QString::fromStdString(" " + tip + " "), this);
    view->setObjectName(kTipViewName);
    view->setFrameShape(QFrame::Box);
    view->setAutoFillBackground(true);
    QPalette colours = view->palette();
    colours.setColor(QPalette::Window, kTipBackground);
    colours.setColor(QPalette::WindowText, Qt::black);
    view->setPalette(colours);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(view);
    adjustSize();
    move(topLeft);

    QTimer::singleShot(to_ms(showUs), this, &QWidget::close);
}

}  // namespace veldan
