#include "veldan/base/ini_file.h"

#include <algorithm>
#include <charconv>
#include <initializer_list>
#include <type_traits>

#include "veldan/base/strings.h"

namespace veldan {

namespace {

constexpr size_t kReadChunk = 64 * 1024;

std::string_view view(const char* text) { return text ? std::string_view(text) : ""; }

// Walks loaded bytes line by line as the stream line reader does: at most maxBytes bytes
// per line, LF or CRLF ends a line, and the text stops at a NUL as a C string would.
class TLineCursor {
  public:
    TLineCursor(const std::vector<uint8_t>& bytes, size_t maxBytes)
        : fText(reinterpret_cast<const char*>(bytes.data()), bytes.size()), fMaxBytes(maxBytes) {}

    bool Next(std::string_view* line) {
        if (fPosition >= fText.size() || fMaxBytes == 0) return false;
        std::string_view chunk = fText.substr(fPosition, fMaxBytes);
        size_t lineFeed = chunk.find('\n');
        if (lineFeed != std::string_view::npos) {
            chunk = chunk.substr(0, lineFeed + 1);
            fPosition += chunk.size();
            chunk.remove_suffix(1);
            if (!chunk.empty() && chunk.back() == '\r') chunk.remove_suffix(1);
        } else {
            fPosition += chunk.size();
        }
        *line = chunk.substr(0, chunk.find('\0'));
        return true;
    }

  private:
    std::string_view fText;
    size_t fMaxBytes;
    size_t fPosition = 0;
};

// Number parsing as stream extraction reads it: leading white space and a "+" allowed,
// text after the number ignored. The cursor moves past what was read.
template <class T>
bool parse_number(std::string_view* text, T* out) {
    size_t begin = 0;
    while (begin < text->size() && is_space((*text)[begin])) ++begin;
    bool plus = begin < text->size() && (*text)[begin] == '+';
    if (plus) ++begin;
    const char* first = text->data() + begin;
    const char* last = text->data() + text->size();
    if (plus && first < last && *first == '-') return false;
    T value{};
    std::from_chars_result result;
    if constexpr (std::is_floating_point_v<T>) {
        result = std::from_chars(first, last, value, std::chars_format::general);
    } else {
        result = std::from_chars(first, last, value);
    }
    if (result.ec != std::errc()) return false;
    *out = value;
    text->remove_prefix(size_t(result.ptr - text->data()));
    return true;
}

template <class T>
bool parse_whole(std::string_view text, T* out) {
    return parse_number(&text, out);
}

template <class T>
std::string format_number(T value) {
    char buffer[64];
    std::to_chars_result result;
    if constexpr (std::is_floating_point_v<T>) {
        result =
            std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::general, 6);
    } else {
        result = std::to_chars(buffer, buffer + sizeof buffer, value);
    }
    return std::string(buffer, result.ptr);
}

}  // namespace

TIniFilePair* TIniFileSection::FindPair(std::string_view key) {
    auto found = std::find_if(fPairs.begin(), fPairs.end(), [key](const TIniFilePair& pair) {
        return equals_ignoring_case(pair.Key(), key);
    });
    return found == fPairs.end() ? nullptr : &*found;
}

TIniFilePair* TIniFileSection::CreatePair(std::string_view key, std::string_view value) {
    return &fPairs.emplace_back(key, value);
}

bool TIniFileSection::DeletePair(std::string_view key) {
    TIniFilePair* pair = FindPair(key);
    if (!pair) return false;
    fPairs.erase(fPairs.begin() + (pair - fPairs.data()));
    return true;
}

void TIniFileSection::EnumKeys(std::vector<std::string>* out) const {
    for (const TIniFilePair& pair : fPairs) out->push_back(pair.Key());
}

void TIniFileSection::AddComment(std::string_view text) {
    fComments += text;
    fComments += '\n';
}

bool TIniFileSection::ReadComment(std::string* out) {
    if (fCommentPosition >= fComments.size()) return false;
    size_t end = fComments.find('\n', fCommentPosition);
    if (end == std::string::npos) end = fComments.size();
    out->assign(fComments, fCommentPosition, end - fCommentPosition);
    fCommentPosition = end + 1;
    return true;
}

TIniFile::TIniFile(int maxLen) { Init(maxLen); }

TIniFile::TIniFile(TPositionIO* io, int maxLen) { SetTo(io, maxLen); }

TIniFile::TIniFile(const std::filesystem::path& path, uint32_t openMode, int maxLen) {
    SetTo(path, openMode, maxLen);
}

TIniFile::TIniFile(const std::filesystem::path& dir, const char* name, uint32_t openMode,
                   int maxLen) {
    SetTo(dir, name, openMode, maxLen);
}

TIniFile::~TIniFile() { Flush(false); }

int TIniFile::SetTo(TPositionIO* io, int maxLen) {
    Unset();
    fStream = io;
    Init(maxLen);
    return 0;
}

int TIniFile::SetTo(const std::filesystem::path& path, uint32_t openMode, int maxLen) {
    Unset();
    int status = fFile.SetTo(path.c_str(), openMode);
    fStream = &fFile;
    Init(maxLen);
    return status;
}

int TIniFile::SetTo(const std::filesystem::path& dir, const char* name, uint32_t openMode,
                    int maxLen) {
    return SetTo(dir / view(name), openMode, maxLen);
}

void TIniFile::Init(int maxLen) {
    fDirty = false;
    fMaxLen = std::max(maxLen, 0);
    Load();
    fCurrent = fSections.empty() ? nullptr : fSections.front().get();
}

void TIniFile::Unset() {
    Flush(false);
    fSections.clear();
    fCurrent = nullptr;
    fFile.Unset();
    fStream = nullptr;
}

void TIniFile::Load() {
    if (!fStream || fStream->IsDirectory()) return;
    TIniFileSection* filling = CreateSection(kGlobalSectionName, -1);
    std::vector<uint8_t> bytes;
    if (!ReadStream(&bytes)) return;
    TLineCursor cursor(bytes, size_t(fMaxLen));
    std::string_view line;
    while (cursor.Next(&line)) ParseLine(line, &filling);
}

bool TIniFile::ReadStream(std::vector<uint8_t>* bytes) const {
    if (fStream->Seek(0) != 0) return false;
    for (;;) {
        size_t used = bytes->size();
        if (used > kMaxStreamBytes) return false;
        bytes->resize(used + kReadChunk);
        ssize_t got = fStream->Read(bytes->data() + used, kReadChunk);
        bytes->resize(used + size_t(std::max<ssize_t>(got, 0)));
        if (got <= 0) return got == 0;
    }
}

void TIniFile::ParseLine(std::string_view line, TIniFileSection** filling) {
    // Trimming the whole line first is the same as trimming each part: every part that
    // counts is trimmed at both ends anyway.
    line = trimmed(line);
    if (line.empty()) return;
    if (line.front() == ';') {
        (*filling)->AddComment(trimmed(line.substr(1)));
    } else if (line.front() == '[') {
        size_t close = line.find(']');
        std::string_view name =
            close == std::string_view::npos ? "" : trimmed(line.substr(1, close - 1));
        *filling = CreateSection(std::string(name).c_str(), -1);
    } else {
        size_t equals = line.find('=');
        if (equals == std::string_view::npos) {
            (*filling)->CreatePair("", line);
        } else {
            (*filling)->CreatePair(trimmed(line.substr(0, equals)),
                                   trimmed(line.substr(equals + 1)));
        }
    }
}

bool TIniFile::ChangeSection(const char* name) {
    TIniFileSection* section = FindSection(name);
    fCurrent = section ? section : CreateSection(name, -1);
    return true;
}

TIniFileSection* TIniFile::CreateSection(const char* name, int index) {
    auto section = std::make_unique<TIniFileSection>(view(name));
    TIniFileSection* created = section.get();
    bool append = index < 0 || size_t(index) >= fSections.size();
    fSections.insert(append ? fSections.end() : fSections.begin() + index, std::move(section));
    return created;
}

TIniFileSection* TIniFile::FindSection(const char* name) const {
    for (const auto& section : fSections) {
        if (equals_ignoring_case(section->Name(), view(name))) return section.get();
    }
    return nullptr;
}

TIniFileSection* TIniFile::SectionAt(int index) const {
    if (index < 0 || index >= CountSections()) return nullptr;
    return fSections[size_t(index)].get();
}

bool TIniFile::SectionExists(const char* name) const { return FindSection(name) != nullptr; }

bool TIniFile::DeleteSection(const char* name) {
    TIniFileSection* section = FindSection(name);
    if (!section) return false;
    auto position = std::find_if(fSections.begin(), fSections.end(),
                                 [section](const auto& held) { return held.get() == section; });
    std::unique_ptr<TIniFileSection> removed = std::move(*position);
    fSections.erase(position);
    if (view(name) == kGlobalSectionName) CreateSection(kGlobalSectionName, 0);
    if (fCurrent == section || (fCurrent && fCurrent->Name() == view(name))) {
        fCurrent = fSections.empty() ? nullptr : fSections.front().get();
    }
    fDirty = true;
    return true;
}

void TIniFile::EnumSections(std::vector<std::string>* out) const {
    for (const auto& section : fSections) out->push_back(section->Name());
}

const TIniFilePair* TIniFile::FindCurrentPair(const char* key) const {
    return fCurrent ? fCurrent->FindPair(view(key)) : nullptr;
}

bool TIniFile::KeyExists(const char* key) const { return FindCurrentPair(key) != nullptr; }

void TIniFile::EnumKeys(std::vector<std::string>* out) const {
    if (fCurrent) fCurrent->EnumKeys(out);
}

bool TIniFile::ReadValue(const char* key, std::string* out) const {
    const TIniFilePair* pair = FindCurrentPair(key);
    if (pair) *out = pair->Value();
    return pair != nullptr;
}

bool TIniFile::ReadValue(const char* key, bool* out) const {
    const TIniFilePair* pair = FindCurrentPair(key);
    if (!pair) return false;
    int32_t number;
    if (parse_whole(pair->Value(), &number)) *out = number != 0;
    return true;
}

bool TIniFile::ReadValue(const char* key, int32_t* out) const {
    const TIniFilePair* pair = FindCurrentPair(key);
    if (pair) parse_whole(pair->Value(), out);
    return pair != nullptr;
}

bool TIniFile::ReadValue(const char* key, int64_t* out) const {
    const TIniFilePair* pair = FindCurrentPair(key);
    if (pair) parse_whole(pair->Value(), out);
    return pair != nullptr;
}

bool TIniFile::ReadValue(const char* key, float* out) const {
    const TIniFilePair* pair = FindCurrentPair(key);
    if (pair) parse_whole(pair->Value(), out);
    return pair != nullptr;
}

bool TIniFile::ReadValue(const char* key, rgb_color* out) const {
    const TIniFilePair* pair = FindCurrentPair(key);
    if (!pair) return false;
    std::string_view text = pair->Value();
    int32_t channels[4];
    for (int32_t& channel : channels) {
        if (!parse_number(&text, &channel)) return true;
    }
    *out = rgb_color{uint8_t(channels[0] & 0xFF), uint8_t(channels[1] & 0xFF),
                     uint8_t(channels[2] & 0xFF), uint8_t(channels[3] & 0xFF)};
    return true;
}

bool TIniFile::StoreValue(const char* key, std::string_view text) {
    if (!fCurrent) return false;
    TIniFilePair* pair = fCurrent->FindPair(view(key));
    if (!pair) pair = fCurrent->CreatePair(view(key), "");
    pair->SetValue(text);
    fDirty = true;
    return true;
}

bool TIniFile::WriteValue(const char* key, const char* value) {
    return StoreValue(key, view(value));
}

bool TIniFile::WriteValue(const char* key, bool value) {
    return StoreValue(key, value ? "1" : "0");
}

bool TIniFile::WriteValue(const char* key, int32_t value) {
    return StoreValue(key, format_number(value));
}

bool TIniFile::WriteValue(const char* key, int64_t value) {
    return StoreValue(key, format_number(value));
}

bool TIniFile::WriteValue(const char* key, float value) {
    return StoreValue(key, format_number(value));
}

bool TIniFile::WriteValue(const char* key, rgb_color value) {
    std::string text;
    for (uint8_t channel : {value.red, value.green, value.blue, value.alpha}) {
        if (!text.empty()) text += ' ';
        text += format_number(int32_t(channel));
    }
    return StoreValue(key, text);
}

bool TIniFile::DeleteKey(const char* key) {
    if (!fCurrent || !fCurrent->DeletePair(view(key))) return false;
    fDirty = true;
    return true;
}

bool TIniFile::WriteComment(const char* text) {
    if (!fCurrent) return false;
    fCurrent->AddComment(view(text));
    fDirty = true;
    return true;
}

bool TIniFile::ReadComment(std::string* out) { return fCurrent && fCurrent->ReadComment(out); }

std::string TIniFile::Text() {
    std::string text;
    std::string comment;
    for (const auto& section : fSections) {
        if (section->Name() != kGlobalSectionName) text += "[ " + section->Name() + " ]\n";
        // Kept: writing reads the comments through, so ReadComment finds none left after.
        section->RewindComments();
        while (section->ReadComment(&comment)) text += "; " + comment + "\n";
        for (const TIniFilePair& pair : section->Pairs()) {
            text += pair.Key() + " = " + pair.Value() + "\n";
        }
        text += "\n";
    }
    return text;
}

bool TIniFile::Flush(bool force) {
    if (!fStream || (!fDirty && !force)) return false;
    std::string text = Text();
    fStream->Seek(0);
    fStream->Write(text.data(), text.size());
    fDirty = false;
    return true;
}

}  // namespace veldan
