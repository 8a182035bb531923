// A loader plug-in built by the tests: reads ".tlst" files of one absolute path per line as
// semi-raw lists. Built with TEST_INTERFACE_VERSION set to another number, it stands for a
// plug-in written against another version of the interface; built with TEST_RAW_LISTS, it is
// a new release of the plug-in that reads the same files as raw lists.

#include <fstream>
#include <new>

#include "loaders/container_loader.h"

namespace {

#ifdef TEST_RAW_LISTS
constexpr TSupportFmt kListKind = kFmtRawList;
constexpr char kRelease[] = " raw";
#else
constexpr TSupportFmt kListKind = kFmtSemiRawList;
constexpr char kRelease[] = "";
#endif

bool ends_with_tlst(const std::string& path) {
    return path.size() > 5 && path.compare(path.size() - 5, 5, ".tlst") == 0;
}

class TTestListLoader : public TContainerLoader {
  public:
    using TContainerLoader::TContainerLoader;

    int32_t SpecificationNumber() const noexcept override { return TEST_INTERFACE_VERSION; }
    bool IsLoadable(const std::string& path, TSupportFmt* kind) const noexcept override {
        if (!ends_with_tlst(path)) return false;
        *kind = kListKind;
        return true;
    }
    int32_t Load(const std::string& path, std::vector<TContainerEntry>* entries) noexcept override {
        std::ifstream in(path);
        if (!in) return -1;
        for (std::string line; std::getline(in, line);) entries->push_back({line, false});
        return 0;
    }
    std::string Name() const noexcept override { return "Test List Loader"; }
    std::string Version() const noexcept override {
        return std::to_string(TEST_INTERFACE_VERSION) + kRelease;
    }
    std::string Copyright() const noexcept override { return "test"; }
    std::string Description() const noexcept override { return "test lists"; }
};

}  // namespace

extern "C" __attribute__((visibility("default"))) TContainerLoader* make_container_loader(
    const char* pluginPath) noexcept {
    return new (std::nothrow) TTestListLoader(pluginPath ? pluginPath : "");
}
