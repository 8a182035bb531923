#include "veldan/base/atomic_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace veldan {

namespace fs = std::filesystem;

namespace {

constexpr char kTemporarySuffix[] = ".quill-tmp";
constexpr size_t kTemporarySuffixLength = sizeof kTemporarySuffix - 1;
// Room for ".", ".PID.RANDOM" and the suffix within a 255-byte name.
constexpr size_t kMaxNameInTemporary = 200;
constexpr int kMaxLinkDepth = 40;
constexpr int kCreateAttempts = 100;
constexpr char kUserAttributePrefix[] = "user.";
constexpr char kDamagedSuffix[] = ".damaged";

int error_status() { return errno != 0 ? -errno : -EIO; }

// The part of the target's name that its temporaries carry.
std::string temporary_stem(const fs::path& target) {
    std::string name = target.filename().string();
    if (name.size() > kMaxNameInTemporary) name.resize(kMaxNameInTemporary);
    return "." + name + ".";
}

uint64_t random_word() {
    uint64_t word = 0;
    if (getrandom(&word, sizeof word, GRND_NONBLOCK) == ssize_t(sizeof word)) return word;
    // Early in boot the pool may not be ready; a name only has to be unlikely, O_EXCL
    // makes it unique.
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    static std::atomic<uint64_t> counter{0};
    return (uint64_t(now.tv_nsec) << 20) ^ uint64_t(now.tv_sec) ^ (++counter << 40);
}

// The writer's pid from ".NAME.PID.RANDOM.quill-tmp" when name is a temporary of target's.
bool temporary_owner(std::string_view name, std::string_view stem, pid_t* pid) {
    if (name.size() <= stem.size() + kTemporarySuffixLength || name.substr(0, stem.size()) != stem)
        return false;
    if (name.substr(name.size() - kTemporarySuffixLength) != kTemporarySuffix) return false;
    std::string_view middle =
        name.substr(stem.size(), name.size() - stem.size() - kTemporarySuffixLength);
    const size_t dot = middle.find('.');
    if (dot == 0 || dot == std::string_view::npos || dot > 10) return false;
    long value = 0;
    for (char c : middle.substr(0, dot)) {
        if (c < '0' || c > '9') return false;
        value = value * 10 + (c - '0');
    }
    *pid = pid_t(value);
    return value > 0;
}

bool process_is_gone(pid_t pid) { return ::kill(pid, 0) != 0 && errno == ESRCH; }

// A save killed half-way leaves its temporary behind; its writer is dead, so nobody will
// rename it any more. Temporaries of live writers (ours or another player's) stay.
void remove_stale_temporaries(const fs::path& folder, const fs::path& target) {
    DIR* dir = ::opendir(folder.c_str());
    if (!dir) return;
    const std::string stem = temporary_stem(target);
    while (dirent* entry = ::readdir(dir)) {
        pid_t pid = 0;
        if (!temporary_owner(entry->d_name, stem, &pid)) continue;
        if (pid != ::getpid() && process_is_gone(pid)) ::unlinkat(::dirfd(dir), entry->d_name, 0);
    }
    ::closedir(dir);
}

bool write_all(int fd, const void* bytes, size_t size, const uint64_t* offset) {
    const auto* at = static_cast<const uint8_t*>(bytes);
    uint64_t position = offset ? *offset : 0;
    while (size > 0) {
        errno = 0;
        const ssize_t count =
            offset ? ::pwrite(fd, at, size, off_t(position)) : ::write(fd, at, size);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) {
            if (count == 0) errno = ENOSPC;
            return false;
        }
        at += count;
        position += uint64_t(count);
        size -= size_t(count);
    }
    return true;
}

}  // namespace

fs::path resolve_links(const fs::path& path) {
    fs::path current = path;
    for (int depth = 0; depth < kMaxLinkDepth; ++depth) {
        std::error_code error;
        if (!fs::is_symlink(fs::symlink_status(current, error))) return current;
        fs::path next = fs::read_symlink(current, error);
        if (error) return current;
        current = next.is_absolute() ? next : current.parent_path() / next;
    }
    return path;
}

bool is_atomic_temporary(std::string_view name) {
    return name.size() > kTemporarySuffixLength + 2 && name.front() == '.' &&
           name.substr(name.size() - kTemporarySuffixLength) == kTemporarySuffix;
}

bool keep_damaged_file(const fs::path& file) {
    struct stat info;
    if (::stat(file.c_str(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_size == 0)
        return false;
    fs::path kept = file;
    kept += kDamagedSuffix;
    return ::rename(file.c_str(), kept.c_str()) == 0;
}

TAtomicFile::TAtomicFile(const fs::path& target) { Open(target); }

TAtomicFile::~TAtomicFile() { Discard(); }

int TAtomicFile::Open(const fs::path& target) {
    Discard();
    fCommitted = false;
    fTemporary.clear();
    fTarget = target.empty() ? target : resolve_links(target);
    if (fTarget.empty() || !fTarget.has_filename()) {
        fStatus = -ENOENT;
        return fStatus;
    }
    // A file the user made read-only is not to be replaced behind their back, though the
    // folder would allow the rename.
    if (::access(fTarget.c_str(), F_OK) == 0 && ::access(fTarget.c_str(), W_OK) != 0) {
        fStatus = error_status();
        return fStatus;
    }
    const fs::path folder = fTarget.has_parent_path() ? fTarget.parent_path() : fs::path(".");
    remove_stale_temporaries(folder, fTarget);
    const std::string stem = temporary_stem(fTarget);
    char middle[48];
    for (int attempt = 0; attempt < kCreateAttempts; ++attempt) {
        std::snprintf(middle, sizeof middle, "%ld.%016llx", long(::getpid()),
                      static_cast<unsigned long long>(random_word()));
        fs::path candidate = folder / (stem + middle + kTemporarySuffix);
        do {
            fFD = ::open(candidate.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        } while (fFD < 0 && errno == EINTR);
        if (fFD >= 0) {
            fTemporary = std::move(candidate);
            break;
        }
        if (errno != EEXIST) break;
    }
    if (fFD < 0) {
        fStatus = error_status();
        return fStatus;
    }
    fStatus = 0;
    struct stat old;
    if (::stat(fTarget.c_str(), &old) == 0) {
        // The replacement must look like the file it replaces to whoever shares it.
        ::fchmod(fFD, old.st_mode & 07777);
        struct stat mine;
        if (::fstat(fFD, &mine) == 0 && (mine.st_uid != old.st_uid || mine.st_gid != old.st_gid) &&
            ::fchown(fFD, old.st_uid, old.st_gid) == 0) {
            ::fchmod(fFD, old.st_mode & 07777);  // chown clears set-id bits
        }
        CopyOldAttributes();
    }
    return fStatus;
}

void TAtomicFile::CopyOldAttributes() {
    ssize_t size = ::listxattr(fTarget.c_str(), nullptr, 0);
    if (size <= 0) return;
    std::vector<char> names(static_cast<size_t>(size));
    size = ::listxattr(fTarget.c_str(), names.data(), names.size());
    if (size <= 0) return;
    std::vector<char> value;
    for (const char* name = names.data(); name < names.data() + size;
         name += std::strlen(name) + 1) {
        if (std::strncmp(name, kUserAttributePrefix, sizeof kUserAttributePrefix - 1) != 0)
            continue;
        ssize_t length = ::getxattr(fTarget.c_str(), name, nullptr, 0);
        if (length < 0) continue;
        value.resize(size_t(length) + 1);
        length = ::getxattr(fTarget.c_str(), name, value.data(), value.size());
        if (length >= 0) ::fsetxattr(fFD, name, value.data(), size_t(length), 0);
    }
}

bool TAtomicFile::Write(const void* bytes, size_t size) {
    if (fStatus != 0) return false;
    if (!write_all(fFD, bytes, size, nullptr)) {
        fStatus = error_status();
        return false;
    }
    return true;
}

bool TAtomicFile::WriteAt(const void* bytes, size_t size, uint64_t offset) {
    if (fStatus != 0) return false;
    if (!write_all(fFD, bytes, size, &offset)) {
        fStatus = error_status();
        return false;
    }
    return true;
}

void TAtomicFile::SetAttribute(const char* name, std::string_view value) {
    if (fFD >= 0) ::fsetxattr(fFD, name, value.data(), value.size(), 0);
}

void TAtomicFile::Fail(int status) {
    if (fStatus == 0) fStatus = status < 0 ? status : -EIO;
}

int TAtomicFile::Commit() {
    if (fStatus == 0 && fFD < 0) fStatus = -EBADF;
    if (fStatus == 0 && ::fsync(fFD) != 0) fStatus = error_status();
    if (fFD >= 0) {
        // Some file systems (NFS) report a failed write only here.
        if (::close(fFD) != 0 && fStatus == 0 && errno != EINTR) fStatus = error_status();
        fFD = -1;
    }
    if (fStatus == 0 && ::rename(fTemporary.c_str(), fTarget.c_str()) != 0)
        fStatus = error_status();
    if (fStatus != 0) {
        Discard();
        return fStatus;
    }
    fCommitted = true;
    // The rename itself reaches the disk with the folder. The new content is in place by
    // now whatever this says, so a folder that can't be synced (some file systems refuse)
    // is no failure of the save.
    const fs::path folder = fTarget.has_parent_path() ? fTarget.parent_path() : fs::path(".");
    const int dir = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir >= 0) {
        ::fsync(dir);
        ::close(dir);
    }
    return 0;
}

void TAtomicFile::Discard() {
    if (fFD >= 0) {
        ::close(fFD);
        fFD = -1;
    }
    if (!fCommitted && !fTemporary.empty()) ::unlink(fTemporary.c_str());
    fTemporary.clear();
    if (fStatus == 0 && !fCommitted) fStatus = -ECANCELED;
}

std::string TAtomicFile::ErrorText() const {
    return "cannot write " + fTarget.string() + ": " +
           (fStatus == 0 ? std::string("no error") : std::string(std::strerror(-fStatus)));
}

int write_file_atomically(const fs::path& target, std::string_view bytes, std::string* error) {
    TAtomicFile file(target);
    file.Write(bytes);
    const int status = file.Commit();
    if (status != 0 && error) *error = file.ErrorText();
    return status;
}

int copy_file_atomically(const fs::path& source, const fs::path& target, std::string* error) {
    int in = -1;
    do {
        in = ::open(source.c_str(), O_RDONLY | O_CLOEXEC);
    } while (in < 0 && errno == EINTR);
    if (in < 0) {
        const int status = error_status();
        if (error) *error = "cannot read " + source.string() + ": " + std::strerror(-status);
        return status;
    }
    TAtomicFile file(target);
    char buffer[64 * 1024];
    for (;;) {
        const ssize_t count = ::read(in, buffer, sizeof buffer);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) {
            const int status = error_status();
            ::close(in);
            if (error) *error = "cannot read " + source.string() + ": " + std::strerror(-status);
            return status;
        }
        if (count == 0 || !file.Write(buffer, size_t(count))) break;
    }
    ::close(in);
    const int status = file.Commit();
    if (status != 0 && error) *error = file.ErrorText();
    return status;
}

}  // namespace veldan
