#include "tests/support/temp_dir.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

TTempDir::TTempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "quill-test-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
    fPath = pattern;
}

TTempDir::~TTempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(fPath, ignored);
}

std::filesystem::path TTempDir::Write(const std::string& name,
                                      const std::vector<uint8_t>& bytes) const {
    std::filesystem::path path = fPath / name;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    return path;
}

std::filesystem::path TTempDir::Write(const std::string& name, const std::string& text) const {
    return Write(name, std::vector<uint8_t>(text.begin(), text.end()));
}

std::vector<uint8_t> read_file_bytes(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}
