#pragma once
// String and path utilities: cutting lines, file names and paths, and sniffing the
// encoding and line ends of text files.
//
// The C-string functions count positions from 1, in the manner of BASIC string
// functions, and their destination may be the source itself; the destination must have
// room for the result and its terminator. White space is the C locale's isspace set
// (blank, tab, line feed, vertical tab, form feed, carriage return), whatever locale the
// process runs in. Lengths and positions are int: texts are assumed shorter than INT_MAX.

#include <string>
#include <string_view>

namespace veldan {

// True for the bytes of the C locale's isspace set.
bool is_space(char c);
// The view without leading and trailing white space.
std::string_view trimmed(std::string_view text);
// ASCII letters made capitals, every other byte kept, whatever the locale.
std::string upper_ascii(std::string_view text);
// Equal once ASCII letters are made capitals.
bool equals_ignoring_case(std::string_view a, std::string_view b);

// src without leading white space; returns the new length.
int trimleft(char* dst, const char* src);
// src without trailing white space; returns the new length.
int trimright(char* dst, const char* src);
// src without white space at either end; returns the new length.
int trim(char* dst, const char* src);
// The len characters of src from position start. A len of 0, or one that runs past the
// end, takes the rest; a negative len, or a start past the end, gives "". A start below 1
// counts as 1. Returns the number of characters copied.
int mid(char* dst, const char* src, int start, int len);
// The position of the first sub in s at or after position start; 0 when there is none.
// A start below 1 counts as 1. An empty sub is found at start when start is within s or
// just after its end.
int instr(const char* s, const char* sub, int start);
// src with its first from at or after position start replaced by to. Returns the length
// of from; 0 (and dst untouched) when from does not occur there or is empty. to must not
// overlap dst.
int repstr(char* dst, const char* src, const char* from, const char* to, int start);
// src with everything after its last "." replaced by ext, or with "." and ext appended
// when it has no "."; returns dst. ext must not overlap dst.
// Kept: the last "." is looked for in the whole text, so for "dir.d/file" the cut falls
// inside the folder name. The string form below looks at the file name only.
char* reext(const char* src, const char* ext, char* dst);

// path with "." and ext appended when its file name (after the last "/") has no ".";
// otherwise path as it is, whatever extension it has.
std::string add_ext(const std::string& path, const std::string& ext);
// path with the extension of its file name replaced by ext (the "." kept), or "." and
// ext appended when the file name has none.
std::string reext(const std::string& path, const std::string& ext);
// The text after the last "/", or the whole path when it has none.
std::string extract_file_name(const std::string& path);
// The file name up to (not including) its last "."; the whole file name when it has no
// ".". A hidden file such as ".profile" gives "".
std::string extract_file_body(const std::string& path);
// The text up to and including the last "/"; "" when there is none.
std::string extract_file_path(const std::string& path);

// Line-end styles, as detect_cr_type returns them.
enum TCrType : int {
    kCrTypeLF = 0,
    kCrTypeCRLF = 1,
    kCrTypeCR = 2,
};
// Counts line feeds and carriage returns: as many of each (and some) is CRLF, more
// carriage returns is CR, anything else (no line ends at all included) is LF.
TCrType detect_cr_type(const char* text);

// Text conversions, as detect_charset returns them.
enum TCharsetConversion : int {
    kUnicodeConversion = 0,  // UTF-8: nothing to convert
    kSJISConversion = 1,
    kJISConversion = 2,
};
// JIS when the text holds an escape byte (0x1B); otherwise Shift-JIS when it holds a byte
// sequence that is not well-formed UTF-8; otherwise UTF-8.
TCharsetConversion detect_charset(const char* text);

// True for a byte that starts a UTF-8 character: below 0x80, or with both top bits set.
bool is_char_begin_byte(char c);

// Copies the file src to dst, replacing dst whole or not at all (copy_file_atomically);
// when dst is an existing folder the copy goes into it under src's file name. Returns false
// when the copy fails, dst then as it was.
// Done with std::filesystem rather than by running cp through a shell, so that no file
// name is ever read as shell syntax (quotes, "$", back quotes in a name).
bool copy_file(const char* src, const char* dst);

}  // namespace veldan
