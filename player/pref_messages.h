#pragma once
// The preferences were confirmed: the preferences window tells the application, which passes
// the message on to the main window and the main view; the player reads the preferences
// again and shows the text in kStatBarStringField in its status bar.

#include <cstdint>

namespace quill {

constexpr uint32_t kMsgPrefChanged = 'sssr';
constexpr char kStatBarStringField[] = "StatBarString";

}  // namespace quill
