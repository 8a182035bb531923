#pragma once
// The program's compiled-in resources: the transport bitmaps and the built-in language,
// a copy of English.llt under the resource id 3000.

namespace quill {

inline constexpr char kBuiltinLanguagePath[] = ":/CSTR/3000";

// Registers the resources; a static library's resources are otherwise left out by the
// linker. Safe to call more than once.
void init_resources();

}  // namespace quill
