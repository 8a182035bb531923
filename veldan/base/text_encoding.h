#pragma once
// Reading text of unknown encoding: playlists, lyrics and paths written on Windows come in
// UTF-8, Shift-JIS (code page 932) or Latin-1, with nothing in the file saying which.

#include <string>

namespace veldan {

bool is_valid_utf8(const std::string& text);
std::string latin1_to_utf8(const std::string& latin1);

// What to do with a byte that is not Shift-JIS.
enum class TBadSjisByte {
    kFail,        // the whole conversion fails
    kSubstitute,  // the byte becomes the substitute character 0x1A and conversion goes on
};
// Shift-JIS as Windows writes it (code page 932) to UTF-8. False when a byte does not
// convert under kFail, or when the system has no such conversion.
bool sjis_to_utf8(const std::string& sjis, std::string* utf8,
                  TBadSjisByte bad = TBadSjisByte::kFail);

enum class TTextEncoding { kUtf8, kShiftJis, kLatin1 };
// UTF-8 when the text is valid UTF-8; else Shift-JIS when it converts cleanly without
// half-width katakana (the range where Latin-1 keeps its accented capitals); else Latin-1,
// which always converts.
TTextEncoding detect_encoding(const std::string& text);
// The text in UTF-8, read in the encoding detect_encoding finds.
std::string to_utf8(const std::string& text);

}  // namespace veldan
