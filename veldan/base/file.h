#pragma once
// Positionable byte streams: the interface that INI files and line files read and write
// through, a file on disk, and a memory block.
//
// Operations report failure by their return values (a negative errno, or -1) and never
// throw. None of these classes is thread-safe.

#include <fcntl.h>
#include <sys/types.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace veldan {

// Open modes for TFile; combine one access mode with any of the flags.
constexpr uint32_t kReadOnly = O_RDONLY;
constexpr uint32_t kWriteOnly = O_WRONLY;
constexpr uint32_t kReadWrite = O_RDWR;
constexpr uint32_t kCreateFile = O_CREAT;
constexpr uint32_t kEraseFile = O_TRUNC;
constexpr uint32_t kFailIfExists = O_EXCL;
constexpr uint32_t kOpenAtEnd = O_APPEND;

class TPositionIO {
  public:
    virtual ~TPositionIO() = default;

    // Up to size bytes from the position on; the count read, 0 at the end, -1 on error.
    virtual ssize_t Read(void* buffer, size_t size) = 0;
    // The count written, -1 on error.
    virtual ssize_t Write(const void* buffer, size_t size) = 0;
    // Moves to an absolute position; returns it, or -1.
    virtual off_t Seek(off_t position) = 0;
    virtual off_t Position() const = 0;
    // The size in bytes, -1 when unknown.
    virtual off_t Size() const = 0;
    // A directory holds no bytes to read; readers skip it.
    virtual bool IsDirectory() const { return false; }
};

class TFile : public TPositionIO {
  public:
    TFile() = default;
    TFile(const char* path, uint32_t openMode) { SetTo(path, openMode); }
    ~TFile() override;
    TFile(const TFile&) = delete;
    TFile& operator=(const TFile&) = delete;

    // Opens path with the open mode (new files get permissions 0666 less the umask).
    // Returns 0, or a negative errno; on failure the file is left unopened and its
    // operations fail.
    int SetTo(const char* path, uint32_t openMode);
    void Unset();
    // 0 when open, else the error of the last SetTo (-ENOENT, say) or -EBADF.
    int InitCheck() const { return fStatus; }

    ssize_t Read(void* buffer, size_t size) override;
    ssize_t Write(const void* buffer, size_t size) override;
    off_t Seek(off_t position) override;
    off_t Position() const override;
    off_t Size() const override;
    bool IsDirectory() const override;

  private:
    int fFD = -1;
    int fStatus = -EBADF;
};

// A memory block: starts with a copy of the given bytes and grows as it is written past
// its end.
class TMemoryIO : public TPositionIO {
  public:
    TMemoryIO() = default;
    TMemoryIO(const void* data, size_t size);

    ssize_t Read(void* buffer, size_t size) override;
    ssize_t Write(const void* buffer, size_t size) override;
    off_t Seek(off_t position) override;
    off_t Position() const override { return off_t(fPosition); }
    off_t Size() const override { return off_t(fBytes.size()); }

    const std::vector<uint8_t>& Bytes() const { return fBytes; }

  private:
    std::vector<uint8_t> fBytes;
    size_t fPosition = 0;
};

}  // namespace veldan
