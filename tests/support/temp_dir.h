#pragma once
// A temporary folder for one test, removed with everything in it when the test ends.

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

class TTempDir {
  public:
    TTempDir();
    ~TTempDir();
    TTempDir(const TTempDir&) = delete;
    TTempDir& operator=(const TTempDir&) = delete;

    const std::filesystem::path& Path() const { return fPath; }
    std::filesystem::path Write(const std::string& name, const std::vector<uint8_t>& bytes) const;
    std::filesystem::path Write(const std::string& name, const std::string& text) const;

  private:
    std::filesystem::path fPath;
};

std::vector<uint8_t> read_file_bytes(const std::filesystem::path& path);
