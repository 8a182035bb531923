#pragma once
// How code below the widgets asks for a one-button alert without knowing any window: the
// owner hands it a function, and the widgets library's alert is one such function. With
// none set, nothing is shown.

#include <functional>

namespace veldan {

enum class TAlertType {
    kInfo,
    kIdea,
    kWarning,
    kStop,
};

using TShowMsgFn =
    std::function<void(const char* title, const char* text, const char* button, TAlertType)>;

}  // namespace veldan
