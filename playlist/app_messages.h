#pragma once
// Notifications the application passes to windows and views of every module, and the
// drive-letter window's answer to it. Each code has this one name wherever it is sent or
// taken, so a sender and its receivers cannot drift apart.

#include <cstdint>

namespace quill {

// The language texts were reloaded: relabel everything shown.
constexpr uint32_t kMsgLanguageChanged = '_lgc';
// Something in the loader folder changed: the playlist loaders are to be looked up again.
constexpr uint32_t kMsgLoaderFolderChanged = 'nloc';
// The drive-letter settings window saved a new table: the application reloads it.
constexpr uint32_t kMsgDrvCvtChanged = '_dcc';

}  // namespace quill
