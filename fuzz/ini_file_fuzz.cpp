// Loads arbitrary bytes as an INI file, reads every value in every form, changes a few
// things and flushes. When lines are allowed to be long enough, what was read must also
// survive being written out and read back unchanged.
//
// The first byte chooses the maximum line length (odd: short, so lines split; even: ample);
// the rest is the file.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "veldan/base/ini_file.h"

using namespace veldan;

namespace {

struct TSectionCopy {
    std::string name;
    std::vector<std::pair<std::string, std::string>> pairs;
    std::vector<std::string> comments;
    bool operator==(const TSectionCopy&) const = default;
};

std::vector<TSectionCopy> snapshot(const TIniFile& ini) {
    std::vector<TSectionCopy> copies;
    for (int i = 0; i < ini.CountSections(); ++i) {
        TIniFileSection* section = ini.SectionAt(i);
        TSectionCopy& copy = copies.emplace_back();
        copy.name = section->Name();
        for (const TIniFilePair& pair : section->Pairs()) {
            copy.pairs.emplace_back(pair.Key(), pair.Value());
        }
        section->RewindComments();
        std::string comment;
        while (section->ReadComment(&comment)) copy.comments.push_back(comment);
        section->RewindComments();
    }
    return copies;
}

void read_everything(TIniFile* ini) {
    std::vector<std::string> names;
    ini->EnumSections(&names);
    for (const std::string& name : names) {
        ini->ChangeSection(name.c_str());
        std::vector<std::string> keys;
        ini->EnumKeys(&keys);
        for (const std::string& key : keys) {
            std::string text;
            bool flag;
            int32_t n32;
            int64_t n64;
            float real;
            rgb_color color;
            if (!ini->ReadValue(key.c_str(), &text) || !ini->ReadValue(key.c_str(), &flag) ||
                !ini->ReadValue(key.c_str(), &n32) || !ini->ReadValue(key.c_str(), &n64) ||
                !ini->ReadValue(key.c_str(), &real) || !ini->ReadValue(key.c_str(), &color)) {
                abort();  // every listed key must be found
            }
        }
        std::string comment;
        while (ini->ReadComment(&comment)) {
        }
    }
}

void change_something(TIniFile* ini) {
    std::vector<std::string> names;
    ini->EnumSections(&names);
    if (names.size() > 1) ini->DeleteSection(names[1].c_str());
    std::vector<std::string> keys;
    ini->EnumKeys(&keys);
    if (!keys.empty()) ini->DeleteKey(keys.front().c_str());
    ini->WriteValue("fuzz", int64_t{-1});
    ini->WriteComment("changed");
}

// Writes the sections into a fresh, empty stream, so that no old tail follows the text.
std::vector<uint8_t> written(const std::vector<TSectionCopy>& copies, int maxLen) {
    TMemoryIO memory;
    {
        TIniFile out(&memory, maxLen);
        for (size_t i = 0; i < copies.size(); ++i) {
            TIniFileSection* section =
                i == 0 ? out.SectionAt(0) : out.CreateSection(copies[i].name.c_str(), -1);
            for (const auto& [key, value] : copies[i].pairs) section->CreatePair(key, value);
            for (const std::string& comment : copies[i].comments) section->AddComment(comment);
        }
        out.Flush(true);
    }
    return memory.Bytes();
}

// Kept quirk of the format: a header naming the global section is written without its
// header line, so its pairs join the section before it on reading.
bool round_trips(const std::vector<TSectionCopy>& copies) {
    for (size_t i = 1; i < copies.size(); ++i) {
        if (copies[i].name == TIniFile::kGlobalSectionName) return false;
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    // Written lines are at most three bytes longer than the lines they came from.
    int maxLen = data[0] % 2 ? 1 + data[0] % 64 : int(size) + 8;
    TMemoryIO input(data + 1, size - 1);
    TIniFile ini(&input, maxLen);
    std::vector<TSectionCopy> loaded = snapshot(ini);
    if (loaded.empty() || loaded[0].name != TIniFile::kGlobalSectionName) abort();

    if (data[0] % 2 == 0 && round_trips(loaded)) {
        std::vector<uint8_t> text = written(loaded, maxLen);
        TMemoryIO again(text.data(), text.size());
        TIniFile reread(&again, maxLen);
        if (snapshot(reread) != loaded) abort();
    }

    read_everything(&ini);
    change_something(&ini);
    ini.Flush(false);
    return 0;
}
