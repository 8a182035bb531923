#pragma once
// TAtomicFile: the one way the program replaces a file it writes. The new content goes to
// a temporary file in the target's own folder; Commit() flushes it to disk, renames it
// over the target and flushes the folder. Until the rename the target is untouched, and
// after it the target holds the whole new content: a crash, a kill, a power cut or a full
// disk at any moment leaves either the old file or the new one, never a mix or a stump.
//
// - Every write is checked; the first failure is kept and makes Commit() fail.
// - A failed or abandoned file (Discard(), or destruction without Commit()) removes its
//   temporary file and leaves the target as it was.
// - The replacement keeps the old file's permission bits, owner (where allowed) and its
//   "user." extended attributes; a new file gets 0666 less the umask.
// - A symbolic link is written through: its final target is replaced, the link stays.
// - Temporaries are named ".NAME.PID.RANDOM.quill-tmp". One left behind by a process
//   that has died (a crash mid-save) is removed the next time NAME is saved.
//
// Limits: no locking between two processes that save the same file at the same moment
// (the later rename wins, whole). A target on a file system without rename (none that
// Linux mounts read-write) cannot be written.
//
// Not thread-safe. Plain C++ and POSIX; reports by return values, never throws.

#include <sys/types.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace veldan {

class TAtomicFile {
  public:
    TAtomicFile() = default;
    // Opens at once; check InitCheck().
    explicit TAtomicFile(const std::filesystem::path& target);
    // Discards what was not committed.
    ~TAtomicFile();
    TAtomicFile(const TAtomicFile&) = delete;
    TAtomicFile& operator=(const TAtomicFile&) = delete;

    // Makes the temporary file beside target (after following links). 0, or a negative
    // errno: the folder is missing or read-only, or target is a file the user may not
    // write (its permission bits are kept as they are, not bypassed through the folder).
    int Open(const std::filesystem::path& target);
    // 0 while everything has succeeded, else the first error (a negative errno).
    int InitCheck() const { return fStatus; }

    // The whole buffer or a failure (ENOSPC, EFBIG, EIO...), which is kept.
    bool Write(const void* bytes, size_t size);
    bool Write(std::string_view text) { return Write(text.data(), text.size()); }
    // Writes at an absolute offset without moving the write position (for headers fixed
    // up at the end).
    bool WriteAt(const void* bytes, size_t size, uint64_t offset);

    // Sets an extended attribute on the new file, replacing the one copied from the old
    // file. A file system without extended attributes is not an error.
    void SetAttribute(const char* name, std::string_view value);

    // The open temporary file, for writers that need a descriptor (-1 when not open). A
    // writer that fails through it must call Fail().
    int Descriptor() const { return fFD; }
    // Marks the file failed with a negative errno (EIO when 0 is given).
    void Fail(int status);

    // Flushes, renames over the target, flushes the folder. 0, or a negative errno, in
    // which case the temporary file is gone and the target is as it was. Once only.
    int Commit();
    // Removes the temporary file; the target stays as it was. Safe to call at any time.
    void Discard();

    // The file that Commit() replaces: the given path with links followed.
    const std::filesystem::path& Target() const { return fTarget; }
    const std::filesystem::path& TemporaryPath() const { return fTemporary; }
    // "cannot write /x/list.qml: No space left on device", from the last failure.
    std::string ErrorText() const;

  private:
    void CopyOldAttributes();

    std::filesystem::path fTarget;
    std::filesystem::path fTemporary;
    int fFD = -1;
    int fStatus = -EBADF;
    bool fCommitted = false;
};

// The whole content in one call: 0 or a negative errno, with *error set to the
// ErrorText() when given.
int write_file_atomically(const std::filesystem::path& target, std::string_view bytes,
                          std::string* error = nullptr);

// Copies source over target the same way: 0 or a negative errno (a source that can't be
// read included), with *error set when given.
int copy_file_atomically(const std::filesystem::path& source, const std::filesystem::path& target,
                         std::string* error = nullptr);

// The file a path finally names, following every link (also a dangling last one); the path
// itself when it is no link, or when the links loop.
std::filesystem::path resolve_links(const std::filesystem::path& path);

// Moves a settings file that could not be read back aside to NAME.damaged (replacing an
// older copy there), so that saving the defaults over it destroys nothing. A missing or
// empty file holds nothing worth keeping and stays. True when the file was moved aside.
bool keep_damaged_file(const std::filesystem::path& file);

// Whether name is a temporary file of TAtomicFile's making.
bool is_atomic_temporary(std::string_view name);

}  // namespace veldan
