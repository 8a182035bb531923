#pragma once
// Marks a string literal as a language key that is looked up later, the way
// QT_TRANSLATE_NOOP marks texts for extraction: the language-file tests collect the
// literal arguments of every llt_key and Text call in the sources and check that each key
// has a text.

namespace veldan {

constexpr const char* llt_key(const char* key) { return key; }

}  // namespace veldan
