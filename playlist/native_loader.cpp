#include "playlist/native_loader.h"

#include "veldan/base/atomic_file.h"
#include "veldan/base/vel_file.h"

std::vector<std::string> split_lines(const std::string& text) {
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        const size_t next = end == std::string::npos ? text.size() : end + 1;
        if (end == std::string::npos) end = text.size();
        size_t length = end - start;
        if (length > 0 && text[end - 1] == '\r') length--;
        lines.push_back(text.substr(start, length));
        start = next;
    }
    return lines;
}

bool read_small_file(const std::string& path, size_t maxBytes, std::string* text) {
    veldan::TFile file(path.c_str(), veldan::kReadOnly);
    if (file.InitCheck() != 0 || file.IsDirectory()) return false;
    const off_t size = file.Size();
    if (size < 0 || size_t(size) > maxBytes) return false;
    text->assign(size_t(size), '\0');
    size_t done = 0;
    while (done < text->size()) {
        const ssize_t got = file.Read(text->data() + done, text->size() - done);
        if (got <= 0) return false;
        done += size_t(got);
    }
    return true;
}

bool TCLNative100::IsLoadable(const std::string& path, TSupportFmt* kind) const noexcept {
    *kind = kFmtNativeList;
    veldan::TVELFile file(path.c_str(), veldan::kReadOnly);
    if (file.InitCheck() != 0 || file.IsDirectory()) return false;
    char line[kMaxLineBytes];
    file.ReadLine(line, sizeof line);
    return std::string(line) == kHeaderLine;
}

int32_t TCLNative100::Load(const std::string& path,
                           std::vector<TContainerEntry>* entries) noexcept {
    std::string text;
    if (!read_small_file(path, kMaxFileBytes, &text)) return -1;
    std::vector<std::string> lines = split_lines(text);
    // The first line is the header, whatever it says: IsLoadable has looked at it.
    for (size_t i = 1; i < lines.size(); i++) {
        if (lines[i].size() <= kMaxLineBytes) entries->push_back({std::move(lines[i]), false});
    }
    return 0;
}

std::string TCLNative100::Name() const noexcept { return "Container Loader Native 100"; }

std::string TCLNative100::Version() const noexcept { return "Ver 1.10"; }

std::string TCLNative100::Copyright() const noexcept {
    return "Copyright (C) the Quill MIDI developers";
}

std::string TCLNative100::Description() const noexcept {
    return "Tells MIDI files in the Quill MIDI native playlist format #100.";
}

bool write_native_list(const std::filesystem::path& target, const std::vector<std::string>& paths,
                       std::string* error) {
    std::string text = std::string(TCLNative100::kHeaderLine) + "\n";
    for (const std::string& path : paths) text += path + "\n";
    veldan::TAtomicFile file(target);
    file.Write(text);
    // Where the file system keeps extended attributes, desktops read the type from here.
    file.SetAttribute("user.mime_type", TCLNative100::kMimeType);
    if (file.Commit() == 0) return true;
    if (error) *error = file.ErrorText();
    return false;
}
