#pragma once
// TIniFile: a text settings file of named sections holding key/value pairs and comment
// lines. It is read whole into memory from a positionable stream (a file, or a memory
// block such as a built-in resource), queried and changed in memory, and written back by
// Flush or on destruction.
//
// Reading:
// - Lines end with LF or CRLF (a lone CR ends nothing). A line longer than the maximum
//   line length is split, its rest read as the next line; text after a NUL byte in a line
//   is ignored.
// - Leading white space is dropped. ";" starts a comment line (its text trimmed); "["
//   starts a section header whose name is the trimmed text up to the first "]" (what
//   follows is ignored; no "]" gives an empty name); empty lines are skipped; any other
//   line is a pair: the trimmed text before the first "=" is the key, the trimmed rest
//   is the value, which may hold "=" and ";". A line without "=" is a pair with an empty
//   key. "#" starts nothing.
// - What stands before the first header belongs to the global section, the first section
//   of every loaded file, which is never written with a header.
// - Section names and keys match ignoring ASCII case; duplicates are kept and the first
//   in file order always wins.
// - A stream larger than kMaxStreamBytes, or one that can't be read, loads as empty.
//
// Writing (Flush): from position 0, every section in order: "[ name ]" (not for the
// global section), each comment as "; text", each pair as "key = value", then an empty
// line; always LF. The stream is not truncated: if the new text is shorter than the old,
// the old tail stays after it, so an owner whose file may shrink opens it with
// kEraseFile. Write errors are not reported.
//
// Not thread-safe.

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "veldan/base/file.h"
#include "veldan/base/rgb_color.h"

namespace veldan {

class TIniFilePair {
  public:
    TIniFilePair(std::string_view key, std::string_view value) : fKey(key), fValue(value) {}

    const std::string& Key() const { return fKey; }
    const std::string& Value() const { return fValue; }
    void SetValue(std::string_view value) { fValue = value; }

  private:
    std::string fKey;
    std::string fValue;
};

class TIniFileSection {
  public:
    explicit TIniFileSection(std::string_view name) : fName(name) {}

    const std::string& Name() const { return fName; }
    const std::vector<TIniFilePair>& Pairs() const { return fPairs; }

    // The first pair whose key matches ignoring case; null when none. The pointer stays
    // valid until a pair is added to or removed from this section.
    TIniFilePair* FindPair(std::string_view key);
    // Appends a pair, even when one of that key exists.
    TIniFilePair* CreatePair(std::string_view key, std::string_view value);
    // Removes the first matching pair; false when there is none.
    bool DeletePair(std::string_view key);
    void EnumKeys(std::vector<std::string>* out) const;

    // Comment lines in order; a text holding line feeds adds one line per part.
    void AddComment(std::string_view text);
    // The next comment line; false when none is left.
    bool ReadComment(std::string* out);
    void RewindComments() { fCommentPosition = 0; }

  private:
    std::string fName;
    size_t fCommentPosition = 0;  // into fComments, for ReadComment
    std::vector<TIniFilePair> fPairs;
    std::string fComments;  // every comment line followed by "\n"
};

class TIniFile {
  public:
    static constexpr const char* kGlobalSectionName = "_TIniF_GlobalSec";
    static constexpr size_t kMaxStreamBytes = 16 * 1024 * 1024;

    // No stream: no section exists until ChangeSection makes one.
    explicit TIniFile(int maxLen);
    // The caller's stream, which must outlive this object (or its Unset).
    TIniFile(TPositionIO* io, int maxLen);
    // An owned file opened with openMode (kReadOnly, kReadWrite | kCreateFile, ...).
    TIniFile(const std::filesystem::path& path, uint32_t openMode, int maxLen);
    TIniFile(const std::filesystem::path& dir, const char* name, uint32_t openMode, int maxLen);
    // Flushes when dirty.
    virtual ~TIniFile();
    TIniFile(const TIniFile&) = delete;
    TIniFile& operator=(const TIniFile&) = delete;

    // Unset, then open and load; the global section becomes current. The file forms return
    // the open status (0 or a negative errno): a file that fails to open loads as empty.
    virtual int SetTo(TPositionIO* io, int maxLen);
    virtual int SetTo(const std::filesystem::path& path, uint32_t openMode, int maxLen);
    virtual int SetTo(const std::filesystem::path& dir, const char* name, uint32_t openMode,
                      int maxLen);
    // Loads from the stream already set (nothing when none); the global section, if any,
    // becomes current.
    void Init(int maxLen);
    // Flushes when dirty, then forgets every section and the stream.
    virtual void Unset();

    // Makes the named section current, appending an empty one when none matches; always
    // true. Neither this nor CreateSection makes the file dirty.
    virtual bool ChangeSection(const char* name);
    // A new empty section at index, or at the end for -1; no check for an existing name.
    TIniFileSection* CreateSection(const char* name, int index);
    TIniFileSection* FindSection(const char* name) const;
    TIniFileSection* CurrentSection() const { return fCurrent; }
    // Sections in file order, duplicates included; null out of range.
    int CountSections() const { return int(fSections.size()); }
    TIniFileSection* SectionAt(int index) const;
    virtual bool SectionExists(const char* name) const;
    // Removes the first matching section. Deleting the global section puts an empty one
    // in its place; when the current section goes, the front section becomes current.
    virtual bool DeleteSection(const char* name);
    // Appends every section's name in file order, the global section's first.
    virtual void EnumSections(std::vector<std::string>* out) const;

    // Operations on keys of the current section; with no current section they find
    // nothing and change nothing.
    virtual bool KeyExists(const char* key) const;
    virtual void EnumKeys(std::vector<std::string>* out) const;
    // False, with *out untouched, when the key is missing. A present key returns true
    // even when its text does not parse; *out then keeps its value too. Numbers are
    // decimal; bool is an integer, non-zero for true; a colour is four integers (red,
    // green, blue, alpha) of which the low 8 bits count.
    virtual bool ReadValue(const char* key, std::string* out) const;
    virtual bool ReadValue(const char* key, bool* out) const;
    virtual bool ReadValue(const char* key, int32_t* out) const;
    virtual bool ReadValue(const char* key, int64_t* out) const;
    virtual bool ReadValue(const char* key, float* out) const;
    virtual bool ReadValue(const char* key, rgb_color* out) const;
    // Sets the first matching pair, or appends one. Written forms: decimal integers, "1"
    // or "0", floats as printf "%g" would (in any locale), colours as "r g b a".
    virtual bool WriteValue(const char* key, const char* value);
    virtual bool WriteValue(const char* key, bool value);
    virtual bool WriteValue(const char* key, int32_t value);
    virtual bool WriteValue(const char* key, int64_t value);
    virtual bool WriteValue(const char* key, float value);
    virtual bool WriteValue(const char* key, rgb_color value);
    virtual bool DeleteKey(const char* key);
    virtual bool WriteComment(const char* text);
    virtual bool ReadComment(std::string* out);

    // Writes everything to the stream; false, writing nothing, when there is no stream or
    // when the file is clean and force is false.
    virtual bool Flush(bool force = false);
    bool IsDirty() const { return fDirty; }

  private:
    void Load();
    bool ReadStream(std::vector<uint8_t>* bytes) const;
    void ParseLine(std::string_view line, TIniFileSection** filling);
    std::string Text();
    const TIniFilePair* FindCurrentPair(const char* key) const;
    bool StoreValue(const char* key, std::string_view text);

    bool fDirty = false;
    int fMaxLen = 0;
    TFile fFile;
    std::vector<std::unique_ptr<TIniFileSection>> fSections;
    TPositionIO* fStream = nullptr;  // fFile or the caller's; not owned
    TIniFileSection* fCurrent = nullptr;
};

}  // namespace veldan
