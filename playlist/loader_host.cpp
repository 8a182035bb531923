#include "playlist/loader_host.h"

#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

#include "playlist/native_loader.h"
#include "veldan/core/entry.h"

namespace {

// MFD_EXEC of Linux 6.3, which older C library headers lack.
constexpr unsigned kMemfdExec = 0x0010U;

// Far above any loader; a bigger file is no plug-in of ours.
constexpr off_t kMaxPluginBytes = 64 << 20;

// True when the bytes hold every segment the dynamic linker will map. A plug-in still
// being copied in fails here instead of being mapped past its end, which would bring the
// player down with SIGBUS.
bool is_whole_elf(const std::string& bytes) {
    ElfW(Ehdr) header;
    if (bytes.size() < sizeof header) return false;
    std::memcpy(&header, bytes.data(), sizeof header);
    if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 ||
        header.e_phentsize != sizeof(ElfW(Phdr)))
        return false;
    const uint64_t tableEnd =
        uint64_t(header.e_phoff) + uint64_t(header.e_phnum) * sizeof(ElfW(Phdr));
    if (header.e_phnum == 0 || tableEnd > bytes.size()) return false;
    for (size_t i = 0; i < header.e_phnum; i++) {
        ElfW(Phdr) segment;
        std::memcpy(&segment, bytes.data() + header.e_phoff + i * sizeof segment, sizeof segment);
        if (segment.p_type == PT_LOAD &&
            uint64_t(segment.p_offset) + segment.p_filesz > bytes.size())
            return false;
    }
    return true;
}

// The whole file when it is a regular file of a sane size; never waits on a pipe.
bool read_plugin(const std::filesystem::path& file, std::string* bytes) {
    const int fd = ::open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return false;
    struct stat info {};
    bool ok = ::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_size <= kMaxPluginBytes;
    if (ok) {
        bytes->resize(size_t(info.st_size));
        size_t done = 0;
        while (done < bytes->size()) {
            const ssize_t got = ::read(fd, bytes->data() + done, bytes->size() - done);
            if (got <= 0) break;
            done += size_t(got);
        }
        bytes->resize(done);
    }
    ::close(fd);
    return ok;
}

}  // namespace

// A plug-in image opened from a private copy of its file, under a name of its own. So a
// plug-in replaced on disk is a new image the next time (dlopen would hand back the image
// it already has under the old name), and overwriting the file in place can't change the
// code of an image in use.
class TPluginImage {
  public:
    static std::shared_ptr<TPluginImage> Open(const std::filesystem::path& file) {
        std::string bytes;
        if (!read_plugin(file, &bytes) || !is_whole_elf(bytes)) return nullptr;
        // Where the system makes memory files non-executable by default, the copy must
        // ask to be executable; kernels before 6.3 know no such flag and refuse it.
        int copy = ::memfd_create("quill-loader", MFD_CLOEXEC | kMemfdExec);
        if (copy < 0 && errno == EINVAL) copy = ::memfd_create("quill-loader", MFD_CLOEXEC);
        if (copy < 0) return nullptr;
        size_t done = 0;
        while (done < bytes.size()) {
            const ssize_t put = ::write(copy, bytes.data() + done, bytes.size() - done);
            if (put <= 0) break;
            done += size_t(put);
        }
        const std::string name = "/proc/self/fd/" + std::to_string(copy);
        void* handle = done == bytes.size() ? dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL) : nullptr;
        if (!handle) {
            ::close(copy);
            return nullptr;
        }
        return std::shared_ptr<TPluginImage>(new TPluginImage(handle, copy, name));
    }

    ~TPluginImage() {
        dlclose(fHandle);
        // An image the linker keeps (a plug-in with unique symbols stays for good) keeps
        // its name: closing the copy would let the next copy come under the same name and
        // be mistaken for it.
        if (void* kept = dlopen(fName.c_str(), RTLD_NOW | RTLD_NOLOAD)) {
            dlclose(kept);
            return;
        }
        ::close(fCopy);
    }

    TPluginImage(const TPluginImage&) = delete;
    TPluginImage& operator=(const TPluginImage&) = delete;

    TMakeContainerLoader EntryPoint() const {
        // dlsym hands out an object pointer; POSIX guarantees it converts to a function pointer.
        return reinterpret_cast<TMakeContainerLoader>(dlsym(fHandle, kMakeContainerLoaderSymbol));
    }

  private:
    TPluginImage(void* handle, int copy, std::string name)
        : fHandle(handle), fCopy(copy), fName(std::move(name)) {}

    void* fHandle;
    int fCopy;
    std::string fName;
};

void TLoaderRelease::operator()(TContainerLoader* loader) noexcept {
    delete loader;  // its destructor lives in the image
    image.reset();
}

namespace {

// The plug-in's loader when it is acceptable; its image stays open then, and only then.
TLoaderPtr open_plugin(const std::filesystem::path& file) {
    std::shared_ptr<TPluginImage> image = TPluginImage::Open(file);
    if (!image) return nullptr;
    TMakeContainerLoader make = image->EntryPoint();
    TLoaderPtr loader(make ? make(file.c_str()) : nullptr, TLoaderRelease{image});
    if (loader && loader->SpecificationNumber() == kContainerLoaderInterface) return loader;
    return nullptr;
}

}  // namespace

void load_container_loader(TLoaderList* loaders, const std::filesystem::path& folder) {
    loaders->emplace_back(new TCLNative100);
    std::error_code error;
    std::filesystem::directory_iterator entries(folder, error);
    if (error) return;
    for (const std::filesystem::directory_entry& entry : entries) {
        if (!entry.is_regular_file(error)) continue;  // follows links
        if (TLoaderPtr loader = open_plugin(entry.path())) loaders->push_back(std::move(loader));
    }
}

void unload_container_loader(TLoaderList* loaders) { loaders->clear(); }

bool is_container_loader(const std::filesystem::path& file) {
    const std::shared_ptr<TPluginImage> image = TPluginImage::Open(file);
    return image && image->EntryPoint() != nullptr;
}

TContainerLoader* find_container_loader(const TLoaderList& loaders, const std::string& path,
                                        TSupportFmt* kind) {
    for (const auto& loader : loaders) {
        if (loader->IsLoadable(path, kind)) return loader.get();
    }
    return nullptr;
}

std::filesystem::path default_loader_folder() { return veldan::app_dir() / "Loader"; }
