#include "veldan/core/handler.h"

#include <QCoreApplication>

namespace veldan {

QEvent::Type TMessageEvent::EventType() {
    static const QEvent::Type type = QEvent::Type(QEvent::registerEventType());
    return type;
}

bool post_message(QObject* target, const TMessage& message) {
    if (!target) return false;
    QCoreApplication::postEvent(target, new TMessageEvent(message));
    return true;
}

bool add_next_msg(TMessage* msg, const TMessage& next, QObject* target) {
    return msg->AddMessage(kNextMsgField, next) && msg->AddPointer(kNextMsgTargetField, target);
}

bool copy_next_msg(TMessage* to, const TMessage& from) {
    TMessage next;
    void* target = nullptr;
    if (!from.FindMessage(kNextMsgField, &next) ||
        !from.FindPointer(kNextMsgTargetField, &target)) {
        return false;
    }
    to->RemoveName(kNextMsgField);
    to->RemoveName(kNextMsgTargetField);
    // add_next_msg stored a QObject: guard the copy as well.
    return to->AddMessage(kNextMsgField, next) &&
           to->AddPointer(kNextMsgTargetField, static_cast<QObject*>(target));
}

bool invoke_next_msg(const TMessage* msg) {
    TMessage next;
    void* target = nullptr;
    if (!msg || !msg->FindMessage(kNextMsgField, &next) ||
        !msg->FindPointer(kNextMsgTargetField, &target) || !target) {
        return false;
    }
    return post_message(static_cast<QObject*>(target), next);
}

}  // namespace veldan
