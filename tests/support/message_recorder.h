#pragma once
// A message target for widget tests: it keeps every message posted to it.

#include <QCoreApplication>
#include <cstdint>
#include <vector>

#include "veldan/core/handler.h"

class TMessageRecorder : public veldan::THandler {
  public:
    std::vector<veldan::TMessage> received;

    void MessageReceived(veldan::TMessage* message) override { received.push_back(*message); }

    // Delivers what is queued and returns the messages received so far.
    const std::vector<veldan::TMessage>& Deliver() {
        QCoreApplication::sendPostedEvents();
        return received;
    }
    // "be:value" of the last message, or fallback when there is none.
    int32_t LastValue(int32_t fallback = -9999) const {
        int32_t value = fallback;
        if (!received.empty()) received.back().FindInt32("be:value", &value);
        return value;
    }
};
