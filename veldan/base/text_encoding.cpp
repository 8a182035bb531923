#include "veldan/base/text_encoding.h"

#include <iconv.h>

#include <cerrno>
#include <cstdint>

namespace veldan {

namespace {

constexpr char kSubstitute = 0x1A;

bool is_continuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

bool has_half_width_katakana(const std::string& utf8) {
    // U+FF61..U+FF9F: EF BD A1..BF and EF BE 80..9F.
    for (size_t i = 0; i + 2 < utf8.size(); i++) {
        const auto lead = static_cast<unsigned char>(utf8[i]);
        const auto second = static_cast<unsigned char>(utf8[i + 1]);
        const auto third = static_cast<unsigned char>(utf8[i + 2]);
        if (lead == 0xEF &&
            ((second == 0xBD && third >= 0xA1) || (second == 0xBE && third <= 0x9F)))
            return true;
    }
    return false;
}

iconv_t open_sjis_decoder() {
    // CP932 first: plain SHIFT_JIS turns 0x7E into an overline, which breaks "~" in paths.
    iconv_t converter = iconv_open("UTF-8", "CP932");
    if (converter == iconv_t(-1)) converter = iconv_open("UTF-8", "SHIFT_JIS");
    return converter;
}

}  // namespace

bool is_valid_utf8(const std::string& text) {
    size_t i = 0;
    while (i < text.size()) {
        const auto byte = static_cast<unsigned char>(text[i]);
        size_t length = 1;
        uint32_t code = byte;
        if (byte >= 0xF0 && byte <= 0xF4) {
            length = 4;
            code = byte & 0x07;
        } else if (byte >= 0xE0) {
            length = byte <= 0xEF ? 3 : 0;
            code = byte & 0x0F;
        } else if (byte >= 0xC2) {
            length = 2;
            code = byte & 0x1F;
        } else if (byte >= 0x80) {
            length = 0;
        }
        if (length == 0 || i + length > text.size()) return false;
        for (size_t k = 1; k < length; k++) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if (!is_continuation(next)) return false;
            code = (code << 6) | (next & 0x3F);
        }
        // Overlong forms, surrogates and values past U+10FFFF.
        if ((length == 3 && code < 0x800) || (length == 4 && (code < 0x10000 || code > 0x10FFFF)) ||
            (code >= 0xD800 && code <= 0xDFFF))
            return false;
        i += length;
    }
    return true;
}

std::string latin1_to_utf8(const std::string& latin1) {
    std::string utf8;
    utf8.reserve(latin1.size() * 2);
    for (char c : latin1) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80) {
            utf8 += c;
        } else {
            utf8 += char(0xC0 | (byte >> 6));
            utf8 += char(0x80 | (byte & 0x3F));
        }
    }
    return utf8;
}

bool sjis_to_utf8(const std::string& sjis, std::string* utf8, TBadSjisByte bad) {
    iconv_t converter = open_sjis_decoder();
    if (converter == iconv_t(-1)) return false;
    // One input byte gives at most three UTF-8 bytes (half-width katakana).
    std::string out(sjis.size() * 3, '\0');
    char* in = const_cast<char*>(sjis.data());
    size_t inLeft = sjis.size();
    char* next = out.data();
    size_t outLeft = out.size();
    bool converted = true;
    while (inLeft > 0) {
        if (iconv(converter, &in, &inLeft, &next, &outLeft) != size_t(-1)) break;
        if (bad == TBadSjisByte::kFail || (errno != EILSEQ && errno != EINVAL) || outLeft == 0) {
            converted = false;
            break;
        }
        *next++ = kSubstitute;
        outLeft--;
        in++;
        inLeft--;
    }
    iconv_close(converter);
    if (!converted) return false;
    out.resize(out.size() - outLeft);
    *utf8 = std::move(out);
    return true;
}

namespace {

std::string decode(const std::string& text, TTextEncoding* found) {
    *found = TTextEncoding::kUtf8;
    if (is_valid_utf8(text)) return text;
    std::string utf8;
    *found = TTextEncoding::kShiftJis;
    if (sjis_to_utf8(text, &utf8) && !has_half_width_katakana(utf8)) return utf8;
    *found = TTextEncoding::kLatin1;
    return latin1_to_utf8(text);
}

}  // namespace

TTextEncoding detect_encoding(const std::string& text) {
    TTextEncoding found;
    decode(text, &found);
    return found;
}

std::string to_utf8(const std::string& text) {
    TTextEncoding found;
    return decode(text, &found);
}

}  // namespace veldan
