#pragma once
// The language codes that travel between the application and its preferences and about
// windows only; kMsgLanguageChanged, which every module's windows take, is in
// playlist/app_messages.h.

#include <cstdint>

namespace quill {

// Read the language file named in the preferences again (the application answers with
// kMsgLanguageChanged).
constexpr uint32_t kMsgReloadLanguage = 'plnc';
// Something in the language folder changed: the lists of language files are built again.
constexpr uint32_t kMsgLanguageFolderChanged = 'nlnc';
// A language file was dropped on the preferences window; carries the ref "refs". The
// application copies it into the language folder, makes it the language and passes the
// message back to the window.
constexpr uint32_t kMsgLanguageFileDropped = 'lnfd';

}  // namespace quill
