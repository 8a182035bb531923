#include "veldan/base/file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace veldan {

namespace {

constexpr uint32_t kAllowedModes =
    O_ACCMODE | kCreateFile | kEraseFile | kFailIfExists | kOpenAtEnd;

}  // namespace

TFile::~TFile() { Unset(); }

int TFile::SetTo(const char* path, uint32_t openMode) {
    Unset();
    if (!path || !*path) {
        fStatus = -ENOENT;
        return fStatus;
    }
    int flags = int(openMode & kAllowedModes) | O_CLOEXEC;
    do {
        fFD = ::open(path, flags, 0666);
    } while (fFD < 0 && errno == EINTR);
    fStatus = fFD < 0 ? -errno : 0;
    return fStatus;
}

void TFile::Unset() {
    if (fFD >= 0) ::close(fFD);
    fFD = -1;
    fStatus = -EBADF;
}

ssize_t TFile::Read(void* buffer, size_t size) {
    if (fFD < 0) return -1;
    ssize_t count;
    do {
        count = ::read(fFD, buffer, size);
    } while (count < 0 && errno == EINTR);
    return count;
}

ssize_t TFile::Write(const void* buffer, size_t size) {
    if (fFD < 0) return -1;
    const auto* bytes = static_cast<const uint8_t*>(buffer);
    size_t written = 0;
    while (written < size) {
        ssize_t count = ::write(fFD, bytes + written, size - written);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return written > 0 ? ssize_t(written) : -1;
        written += size_t(count);
    }
    return ssize_t(written);
}

off_t TFile::Seek(off_t position) {
    if (fFD < 0 || position < 0) return -1;
    return ::lseek(fFD, position, SEEK_SET);
}

off_t TFile::Position() const { return fFD < 0 ? -1 : ::lseek(fFD, 0, SEEK_CUR); }

off_t TFile::Size() const {
    struct stat info;
    if (fFD < 0 || ::fstat(fFD, &info) != 0) return -1;
    return info.st_size;
}

bool TFile::IsDirectory() const {
    struct stat info;
    return fFD >= 0 && ::fstat(fFD, &info) == 0 && S_ISDIR(info.st_mode);
}

TMemoryIO::TMemoryIO(const void* data, size_t size)
    : fBytes(static_cast<const uint8_t*>(data), static_cast<const uint8_t*>(data) + size) {}

ssize_t TMemoryIO::Read(void* buffer, size_t size) {
    size_t count = fPosition < fBytes.size() ? std::min(size, fBytes.size() - fPosition) : 0;
    if (count > 0) std::memcpy(buffer, fBytes.data() + fPosition, count);
    fPosition += count;
    return ssize_t(count);
}

ssize_t TMemoryIO::Write(const void* buffer, size_t size) {
    if (size == 0) return 0;
    if (fPosition + size > fBytes.size()) fBytes.resize(fPosition + size);
    std::memcpy(fBytes.data() + fPosition, buffer, size);
    fPosition += size;
    return ssize_t(size);
}

off_t TMemoryIO::Seek(off_t position) {
    if (position < 0) return -1;
    fPosition = size_t(position);
    return position;
}

}  // namespace veldan
