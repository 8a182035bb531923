#include "veldan/base/vel_file.h"

#include <algorithm>
#include <cstring>

namespace veldan {

namespace {

// Bytes asked of the file at a time; what lies past the line feed is given back by a seek.
constexpr long kReadChunk = 512;

}  // namespace

long TVELFile::ReadLine(char* buf, long size) {
    if (size < 1) return 0;
    long count = 0;
    bool lineFeed = false;
    while (count < size - 1 && !lineFeed) {
        ssize_t got = Read(buf + count, size_t(std::min(kReadChunk, size - 1 - count)));
        if (got <= 0) break;
        auto* end = static_cast<char*>(std::memchr(buf + count, '\n', size_t(got)));
        if (end) {
            long used = long(end - (buf + count)) + 1;
            Seek(Position() - (got - used));
            got = used;
            lineFeed = true;
        }
        count += long(got);
    }
    if (lineFeed) --count;
    buf[count] = '\0';
    if (count > 0 && buf[count - 1] == '\r') buf[count - 1] = '\0';
    return count;
}

long TVELFile::ReadValidLine(char* buf, long size) {
    if (size < 2) return 0;
    while (!Eof()) {
        off_t before = Position();
        long count = ReadLine(buf, size);
        // A read that fails short of the end consumes nothing; stop rather than spin.
        if (Position() == before) return 0;
        if (buf[0] != '\0' && buf[0] != '/' && buf[1] != '/') return count;
    }
    return 0;
}

long TVELFile::WriteLine(const char* text) {
    long total = 0;
    ssize_t written = Write(text, std::strlen(text));
    if (written > 0) total += written;
    written = Write("\n", 1);
    if (written > 0) total += written;
    return total;
}

bool TVELFile::Eof() const {
    off_t position = Position();
    return position < 0 || position >= Size();
}

}  // namespace veldan
