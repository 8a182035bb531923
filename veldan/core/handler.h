#pragma once
// Posting messages between objects on Qt's event loop, and the next-message chain.
//
// A message travels as a TMessageEvent posted with QCoreApplication::postEvent: safe from
// any thread, queued, delivered in order on the receiver's thread. A receiver is any
// QObject whose event() hands TMessageEvents to MessageReceived; TMessageHandler<Base>
// does that for a QObject or any widget class, and THandler is the plain QObject one.

#include <QEvent>
#include <QObject>

#include "veldan/core/message.h"

namespace veldan {

// The request to quit the application, whoever asks: the menu, a signal, the desktop session.
// A dialog that must be answered first carries it on as its next message.
constexpr uint32_t kMsgQuitRequested = '_QRQ';

class TMessageEvent : public QEvent {
  public:
    explicit TMessageEvent(const TMessage& message) : QEvent(EventType()), fMessage(message) {}

    // Registered with Qt once, on first use.
    static QEvent::Type EventType();

    TMessage* Message() { return &fMessage; }

  private:
    TMessage fMessage;
};

template <class QtBase>
class TMessageHandler : public QtBase {
  public:
    using QtBase::QtBase;

    // Messages nobody claims end here.
    virtual void MessageReceived(TMessage* message) { (void)message; }

  protected:
    bool event(QEvent* event) override {
        if (event->type() != TMessageEvent::EventType()) return QtBase::event(event);
        MessageReceived(static_cast<TMessageEvent*>(event)->Message());
        return true;
    }
};

using THandler = TMessageHandler<QObject>;

// Queues a copy of message for target; false for a null target.
bool post_message(QObject* target, const TMessage& message);

// The next message: an action that a dialog or request carries along and sends on once
// it has been answered, so that the interrupted action continues.
inline constexpr char kNextMsgField[] = "_NxMsg";
inline constexpr char kNextMsgTargetField[] = "_NxMsgTgt";

// Adds next and its target to msg; the target is held as a guarded pointer.
bool add_next_msg(TMessage* msg, const TMessage& next, QObject* target);
// Copies both next-message fields when from has both, replacing those of to.
bool copy_next_msg(TMessage* to, const TMessage& from);
// Posts the next message to its target when msg has both fields and the target still
// exists; false otherwise, and nothing is sent.
bool invoke_next_msg(const TMessage* msg);

}  // namespace veldan
