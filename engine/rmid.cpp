#include "engine/rmid.h"

#include <cstddef>
#include <cstring>

namespace {

constexpr size_t kHeaderBytes = 12;  // "RIFF", the size, the form type
constexpr size_t kChunkHeaderBytes = 8;

uint32_t get_uint32_le(const uint8_t* p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

bool has_tag(const uint8_t* p, const char* tag) { return std::memcmp(p, tag, 4) == 0; }

}  // namespace

int32_t unwrap_rmid(std::vector<uint8_t>* file, std::string* error) {
    const std::vector<uint8_t>& bytes = *file;
    if (bytes.size() < 4 || !has_tag(bytes.data(), "RIFF")) return 0;
    if (bytes.size() < kHeaderBytes) {
        *error = "damaged RMID file: the RIFF header is cut short";
        return -1;
    }
    if (!has_tag(bytes.data() + 8, "RMID")) {
        *error = "not a MIDI file (a RIFF \"" + std::string(bytes.begin() + 8, bytes.begin() + 12) +
                 "\" file)";
        return -1;
    }
    // The RIFF size is often wrong in files found in the wild; the chunks themselves and
    // the file's real length decide.
    size_t offset = kHeaderBytes;
    while (bytes.size() - offset >= kChunkHeaderBytes) {
        const uint32_t length = get_uint32_le(bytes.data() + offset + 4);
        const size_t body = offset + kChunkHeaderBytes;
        if (length > bytes.size() - body) {
            *error = "damaged RMID file: a chunk runs past the end of the file";
            return -1;
        }
        if (has_tag(bytes.data() + offset, "data")) {
            file->erase(file->begin() + std::ptrdiff_t(body + length), file->end());
            file->erase(file->begin(), file->begin() + std::ptrdiff_t(body));
            return 0;
        }
        // Chunks start on even offsets.
        offset = body + length + (length & 1);
        if (offset > bytes.size()) break;
    }
    *error = "damaged RMID file: it holds no \"data\" chunk";
    return -1;
}
