#include "playlist/drvcvt.h"

#include <cstdio>

#include "veldan/base/strings.h"
#include "veldan/base/text_encoding.h"
#include "veldan/core/entry.h"

namespace {

// The index of a drive letter, or -1; the 0x20 bit folds lower case to upper.
int letter_index(char letter) {
    const char upper = char(letter & ~0x20);
    return upper >= 'A' && upper <= 'Z' ? upper - 'A' : -1;
}

bool is_sjis_lead(uint8_t byte) {
    return (byte >= 0x81 && byte <= 0x9F) || (byte >= 0xE0 && byte <= 0xFC);
}

// Backslashes become slashes. In Shift-JIS text a 0x5C after a lead byte belongs to its
// character (ソ is 0x83 0x5C), so only a backslash that stands alone is a separator.
void replace_separators(std::string* path, bool sjis) {
    for (size_t i = 0; i < path->size(); i++) {
        const uint8_t byte = uint8_t((*path)[i]);
        if (sjis && is_sjis_lead(byte)) {
            i++;
        } else if (byte == '\\') {
            (*path)[i] = '/';
        }
    }
}

bool settings_file(std::filesystem::path* file) {
    return veldan::get_entry(TDrvCvt::kFileName, file, veldan::BD_SETTINGS, TDrvCvt::kSubFolder);
}

}  // namespace

TDrvCvt::TDrvCvt() {
    SetBeDL('A', "/no name");
    SetBeDL('C', "/windows");
    Load();
}

bool TDrvCvt::Load() {
    std::filesystem::path file;
    return settings_file(&file) && TArchivable::Load(file);
}

bool TDrvCvt::Save() const {
    std::filesystem::path file;
    if (!settings_file(&file)) return false;
    std::string error;
    if (TArchivable::Save(file, &error)) return true;
    std::fprintf(stderr, "quillmidi: %s\n", error.c_str());
    return false;
}

void TDrvCvt::SetBeDL(char letter, const std::string& path) {
    const int index = letter_index(letter);
    if (index >= 0) fPaths[size_t(index)] = path;
}

bool TDrvCvt::GetBeDL(char letter, std::string* path) const {
    const int index = letter_index(letter);
    if (index < 0 || fPaths[size_t(index)].empty()) return false;
    *path = fPaths[size_t(index)];
    return true;
}

bool TDrvCvt::CvtPathWinToBe(const char* winPath, std::string* out, const char* basePath) const {
    if (!winPath || !winPath[0]) return false;
    std::string result;
    if (winPath[1] == ':') {
        if (!GetBeDL(winPath[0], &result)) return false;
        result += winPath + 2;
    } else if (winPath[0] == '\\') {
        if (!basePath || !basePath[0]) return false;
        const std::string base(basePath);
        // The volume the playlist lies on: the base path up to its second "/".
        result = base.substr(0, base.find('/', 1)) + winPath;
    } else {
        return false;
    }
    const bool sjis = veldan::detect_charset(result.c_str()) == veldan::kSJISConversion;
    replace_separators(&result, sjis);
    // kept: lines of files written on Windows end in a carriage return.
    if (!result.empty() && result.back() == '\r') result.pop_back();
    if (!sjis || !veldan::sjis_to_utf8(result, out, veldan::TBadSjisByte::kSubstitute))
        *out = result;
    return true;
}

bool TDrvCvt::Archive(veldan::TMessage* into) const {
    for (size_t i = 0; i < fPaths.size(); i++) {
        if (!into->AddString(std::string(1, char('A' + i)), fPaths[i])) return false;
    }
    return true;
}

bool TDrvCvt::Unarchive(const veldan::TMessage& from) {
    for (size_t i = 0; i < fPaths.size(); i++) {
        fPaths[i].clear();
        from.FindString(std::string(1, char('A' + i)), &fPaths[i]);
    }
    return true;
}

std::filesystem::path resolve_list_entry(const std::string& line,
                                         const std::filesystem::path& container,
                                         const TDrvCvt& driveLetters) {
    std::string path = line;
    if (!line.empty() && line[0] == '/') {
        std::string utf8;
        if (veldan::detect_charset(line.c_str()) == veldan::kSJISConversion &&
            veldan::sjis_to_utf8(line, &utf8, veldan::TBadSjisByte::kSubstitute)) {
            path = utf8;
        }
    } else {
        // Written on Windows; an unconvertible line stays relative and is reported missing.
        driveLetters.CvtPathWinToBe(line.c_str(), &path, container.c_str());
    }
    return std::filesystem::path(path);
}
