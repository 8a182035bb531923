#pragma once
// TMessage: a `what` code and named, typed fields, each holding one or more values
// (index 0, 1, ...). The currency of posted requests and of the ".arc" settings files.
//
// Four-character codes are multi-character literals packed big-endian
// ('plse' == 0x706c7365); each module names its codes as constants beside its handler.
//
// Field rules:
// - A name is 1 to kMaxNameLength bytes. A name holds values of one type only: adding a
//   value of another type to an existing name fails.
// - Find functions copy the value out only when the field exists, has that type and
//   holds that index; otherwise they return false and leave the target as it was. The
//   settings classes set their defaults first and rely on this.
// - A file reference is an absolute path; a relative or empty one is refused.
// - A pointer to a QObject reads back as null once that object is destroyed. Pointers
//   mean nothing outside this process, so Flatten leaves pointer fields out.
//
// Flattened form (QDataStream, fixed stream version, big-endian): the magic 'QMF1', the
// body size, then the body: what, the field count, and per field its name, type code,
// value count and values; a nested message is a body of its own. Unflatten checks every
// read against the bytes that are left, and refuses bodies over kMaxFlattenedSize,
// nesting deeper than kMaxDepth, more than kMaxValues values in all, unknown type codes,
// duplicate names and trailing bytes. On failure the message is left as it was.
// Not thread-safe; a message is handed between threads by copy.

#include <QObject>
#include <QPointer>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

class QByteArray;
class QIODevice;

namespace veldan {

// Field type codes, as GetInfo reports them.
constexpr uint32_t kBoolType = 'BOOL';
constexpr uint32_t kInt32Type = 'LONG';
constexpr uint32_t kInt64Type = 'LLNG';
constexpr uint32_t kFloatType = 'FLOT';
constexpr uint32_t kDoubleType = 'DBLE';
constexpr uint32_t kStringType = 'CSTR';
constexpr uint32_t kRectType = 'RECT';
constexpr uint32_t kRefType = 'RREF';
constexpr uint32_t kMessageType = 'MSGG';
constexpr uint32_t kPointerType = 'PNTR';

// A rectangle with inclusive edges; the default one is invalid (right < left).
struct TRect {
    float left = 0.0f;
    float top = 0.0f;
    float right = -1.0f;
    float bottom = -1.0f;

    float Width() const { return right - left; }
    float Height() const { return bottom - top; }
    bool IsValid() const { return left <= right && top <= bottom; }
    bool operator==(const TRect&) const = default;
};

class TMessage {
  public:
    static constexpr size_t kMaxNameLength = 255;
    static constexpr size_t kMaxFlattenedSize = 4 * 1024 * 1024;
    static constexpr int kMaxDepth = 32;
    static constexpr size_t kMaxValues = 256 * 1024;

    explicit TMessage(uint32_t code = 0) : what(code) {}

    uint32_t what;

    bool AddBool(std::string_view name, bool value) { return Add(name, value); }
    bool AddInt32(std::string_view name, int32_t value) { return Add(name, value); }
    bool AddInt64(std::string_view name, int64_t value) { return Add(name, value); }
    bool AddFloat(std::string_view name, float value) { return Add(name, value); }
    bool AddDouble(std::string_view name, double value) { return Add(name, value); }
    bool AddString(std::string_view name, const std::string& value) { return Add(name, value); }
    bool AddRect(std::string_view name, const TRect& value) { return Add(name, value); }
    bool AddRef(std::string_view name, const std::filesystem::path& value) {
        return Add(name, value);
    }
    bool AddMessage(std::string_view name, const TMessage& value) { return Add(name, value); }
    bool AddPointer(std::string_view name, void* value) { return Add(name, value); }
    template <std::derived_from<QObject> T>
    bool AddPointer(std::string_view name, T* object) {
        return AddGuarded(name, object, object);
    }

    bool FindBool(std::string_view name, int32_t index, bool* value) const {
        return Find(name, index, value);
    }
    bool FindInt32(std::string_view name, int32_t index, int32_t* value) const {
        return Find(name, index, value);
    }
    bool FindInt64(std::string_view name, int32_t index, int64_t* value) const {
        return Find(name, index, value);
    }
    bool FindFloat(std::string_view name, int32_t index, float* value) const {
        return Find(name, index, value);
    }
    bool FindDouble(std::string_view name, int32_t index, double* value) const {
        return Find(name, index, value);
    }
    bool FindString(std::string_view name, int32_t index, std::string* value) const {
        return Find(name, index, value);
    }
    bool FindRect(std::string_view name, int32_t index, TRect* value) const {
        return Find(name, index, value);
    }
    bool FindRef(std::string_view name, int32_t index, std::filesystem::path* value) const {
        return Find(name, index, value);
    }
    bool FindMessage(std::string_view name, int32_t index, TMessage* value) const {
        return Find(name, index, value);
    }
    bool FindPointer(std::string_view name, int32_t index, void** value) const {
        return Find(name, index, value);
    }

    bool FindBool(std::string_view name, bool* value) const { return Find(name, 0, value); }
    bool FindInt32(std::string_view name, int32_t* value) const { return Find(name, 0, value); }
    bool FindInt64(std::string_view name, int64_t* value) const { return Find(name, 0, value); }
    bool FindFloat(std::string_view name, float* value) const { return Find(name, 0, value); }
    bool FindDouble(std::string_view name, double* value) const { return Find(name, 0, value); }
    bool FindString(std::string_view name, std::string* value) const {
        return Find(name, 0, value);
    }
    bool FindRect(std::string_view name, TRect* value) const { return Find(name, 0, value); }
    bool FindRef(std::string_view name, std::filesystem::path* value) const {
        return Find(name, 0, value);
    }
    bool FindMessage(std::string_view name, TMessage* value) const { return Find(name, 0, value); }
    bool FindPointer(std::string_view name, void** value) const { return Find(name, 0, value); }

    // Replace an existing value of the same type; false when there is none at index.
    bool ReplaceBool(std::string_view name, int32_t index, bool value) {
        return Replace(name, index, value);
    }
    bool ReplaceInt32(std::string_view name, int32_t index, int32_t value) {
        return Replace(name, index, value);
    }
    bool ReplaceInt64(std::string_view name, int32_t index, int64_t value) {
        return Replace(name, index, value);
    }
    bool ReplaceFloat(std::string_view name, int32_t index, float value) {
        return Replace(name, index, value);
    }
    bool ReplaceDouble(std::string_view name, int32_t index, double value) {
        return Replace(name, index, value);
    }
    bool ReplaceString(std::string_view name, int32_t index, const std::string& value) {
        return Replace(name, index, value);
    }
    bool ReplaceRect(std::string_view name, int32_t index, const TRect& value) {
        return Replace(name, index, value);
    }
    bool ReplaceRef(std::string_view name, int32_t index, const std::filesystem::path& value) {
        return Replace(name, index, value);
    }
    bool ReplaceMessage(std::string_view name, int32_t index, const TMessage& value) {
        return Replace(name, index, value);
    }
    bool ReplacePointer(std::string_view name, int32_t index, void* value) {
        return Replace(name, index, value);
    }

    // Removes one value; a field left without values disappears.
    bool RemoveData(std::string_view name, int32_t index = 0);
    bool RemoveName(std::string_view name);
    void MakeEmpty();

    bool HasField(std::string_view name) const { return FieldFor(name) != nullptr; }
    bool GetInfo(std::string_view name, uint32_t* type, int32_t* count) const;
    // Number of values under name; 0 when there is no such field.
    int32_t CountValues(std::string_view name) const;
    int32_t CountNames() const { return int32_t(fFields.size()); }
    bool IsEmpty() const { return fFields.empty(); }

    // Writes the flattened form; false when the device refuses it or the message breaks
    // the limits that Unflatten enforces.
    bool Flatten(QIODevice* device) const;
    bool Flatten(QByteArray* data) const;
    // Reads exactly one flattened message from the device (it may hold more after it).
    bool Unflatten(QIODevice* device, std::string* error = nullptr);
    // data must hold exactly one flattened message.
    bool Unflatten(const QByteArray& data, std::string* error = nullptr);

    bool operator==(const TMessage& other) const;

  private:
    struct TPointerValue {
        void* address;
        QPointer<QObject> guard;
        bool guarded;

        void* Get() const { return !guarded || guard ? address : nullptr; }
        bool operator==(const TPointerValue& other) const { return address == other.address; }
    };
    struct TMessageValue {
        std::shared_ptr<const TMessage> message;  // shared and never changed: copies are cheap
        bool operator==(const TMessageValue& other) const { return *message == *other.message; }
    };
    using TValue = std::variant<bool, int32_t, int64_t, float, double, std::string, TRect,
                                std::filesystem::path, TMessageValue, TPointerValue>;
    struct TField {
        std::string name;
        std::vector<TValue> values;
        bool operator==(const TField&) const = default;
    };
    friend class TFlatWriter;
    friend class TFlatReader;

    template <class T>
    bool Add(std::string_view name, const T& value) {
        return AddValue(name, Stored(value));
    }
    template <class T>
    bool Find(std::string_view name, int32_t index, T* value) const {
        const TValue* stored = ValueAt(name, index);
        return stored && Load(*stored, value);
    }
    template <class T>
    bool Replace(std::string_view name, int32_t index, const T& value) {
        return ReplaceValue(name, index, Stored(value));
    }

    template <class T>
    static TValue Stored(const T& value) {
        return TValue(std::in_place_type<T>, value);
    }
    static TValue Stored(const TMessage& value);
    static TValue Stored(void* value);
    template <class T>
    static bool Load(const TValue& stored, T* value) {
        const T* held = std::get_if<T>(&stored);
        if (held) *value = *held;
        return held != nullptr;
    }
    static bool Load(const TValue& stored, TMessage* value);
    static bool Load(const TValue& stored, void** value);

    bool AddGuarded(std::string_view name, void* address, QObject* object);
    bool AddValue(std::string_view name, TValue value);
    bool ReplaceValue(std::string_view name, int32_t index, TValue value);
    const TValue* ValueAt(std::string_view name, int32_t index) const;
    const TField* FieldFor(std::string_view name) const;
    TField* FieldFor(std::string_view name);

    std::vector<TField> fFields;  // in the order they were added, which Flatten keeps
};

}  // namespace veldan
