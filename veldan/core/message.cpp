#include "veldan/core/message.h"

#include <QByteArray>
#include <QDataStream>
#include <QIODevice>
#include <algorithm>
#include <array>
#include <bit>
#include <cstdio>
#include <unordered_set>
#include <utility>

namespace veldan {

namespace {

constexpr uint32_t kFlatMagic = 'QMF1';
constexpr int kStreamVersion = QDataStream::Qt_6_0;
constexpr qint64 kHeaderSize = 8;  // magic and body size

// Type codes in the order of TMessage::TValue's alternatives.
constexpr std::array<uint32_t, 10> kTypeCodes = {kBoolType,    kInt32Type,  kInt64Type, kFloatType,
                                                 kDoubleType,  kStringType, kRectType,  kRefType,
                                                 kMessageType, kPointerType};

std::string hex32(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08x", value);
    return text;
}

bool is_valid_name(std::string_view name) {
    return !name.empty() && name.size() <= TMessage::kMaxNameLength;
}

// A file reference must be absolute; every other value is storable as it is.
template <class TValue>
bool is_storable(const TValue& value) {
    const auto* ref = std::get_if<std::filesystem::path>(&value);
    return !ref || ref->is_absolute();
}

void prepare(QDataStream& stream) {
    stream.setVersion(kStreamVersion);
    stream.setByteOrder(QDataStream::BigEndian);
}

// Reads up to size bytes; a device that has nothing more to give ends the read early.
QByteArray read_up_to(QIODevice* device, qint64 size) {
    QByteArray data;
    while (data.size() < size) {
        QByteArray chunk = device->read(size - data.size());
        if (chunk.isEmpty()) break;
        data += chunk;
    }
    return data;
}

}  // namespace

// Writes a message body; refuses what Unflatten would refuse, so every flattened
// message can be read back.
class TFlatWriter {
  public:
    explicit TFlatWriter(QByteArray* body) : fStream(body, QIODevice::WriteOnly), fBody(body) {
        prepare(fStream);
    }

    bool Body(const TMessage& message, int depth) {
        if (depth > TMessage::kMaxDepth) return false;
        auto flattened = [](const TMessage::TField& field) {
            return !std::holds_alternative<TMessage::TPointerValue>(field.values.front());
        };
        fStream << quint32(message.what)
                << quint32(
                       std::count_if(message.fFields.begin(), message.fFields.end(), flattened));
        for (const TMessage::TField& field : message.fFields) {
            if (!flattened(field)) continue;
            fValues += field.values.size();
            if (fValues > TMessage::kMaxValues) return false;
            fStream << quint8(field.name.size());
            fStream.writeRawData(field.name.data(), int(field.name.size()));
            fStream << quint32(kTypeCodes[field.values.front().index()])
                    << quint32(field.values.size());
            for (const TMessage::TValue& value : field.values) {
                if (!Value(value, depth)) return false;
            }
        }
        return fStream.status() == QDataStream::Ok &&
               size_t(fBody->size()) <= TMessage::kMaxFlattenedSize;
    }

  private:
    bool Value(const TMessage::TValue& value, int depth) {
        if (fBody->size() > qsizetype(TMessage::kMaxFlattenedSize)) return false;
        switch (value.index()) {
            case 0:
                fStream << quint8(std::get<bool>(value));
                return true;
            case 1:
                fStream << quint32(std::get<int32_t>(value));
                return true;
            case 2:
                fStream << quint64(std::get<int64_t>(value));
                return true;
            case 3:
                Float(std::get<float>(value));
                return true;
            case 4:
                fStream << std::bit_cast<quint64>(std::get<double>(value));
                return true;
            case 5:
                return Bytes(std::get<std::string>(value));
            case 6: {
                const TRect& rect = std::get<TRect>(value);
                for (float edge : {rect.left, rect.top, rect.right, rect.bottom}) Float(edge);
                return true;
            }
            case 7:
                return Bytes(std::get<std::filesystem::path>(value).string());
            case 8:
                return Body(*std::get<TMessage::TMessageValue>(value).message, depth + 1);
        }
        return false;
    }
    void Float(float value) { fStream << std::bit_cast<quint32>(value); }
    bool Bytes(const std::string& bytes) {
        if (bytes.size() > TMessage::kMaxFlattenedSize) return false;
        fStream << quint32(bytes.size());
        return fStream.writeRawData(bytes.data(), int(bytes.size())) == int(bytes.size());
    }

    QDataStream fStream;
    const QByteArray* fBody;
    size_t fValues = 0;
};

// Reads a message body. Every read is checked against the bytes left, so no count or
// length from the input decides an allocation larger than the input itself.
class TFlatReader {
  public:
    explicit TFlatReader(const QByteArray& body) : fStream(body) { prepare(fStream); }

    bool Body(TMessage* message, int depth) {
        uint32_t what = 0;
        uint32_t fieldCount = 0;
        if (!U32(&what) || !U32(&fieldCount)) return false;
        message->what = what;
        std::unordered_set<std::string> names;
        for (uint32_t i = 0; i < fieldCount; i++) {
            if (!Field(message, depth, &names)) return false;
        }
        return true;
    }
    bool AtEnd() {
        if (Left() == 0) return true;
        return Fail(std::to_string(Left()) + " bytes after the message");
    }
    const std::string& Error() const { return fError; }

  private:
    bool Field(TMessage* message, int depth, std::unordered_set<std::string>* names) {
        uint8_t nameLength = 0;
        std::string name;
        if (!U8(&nameLength) || !Bytes(nameLength, &name)) return false;
        if (nameLength == 0) return Fail("empty field name");
        if (!names->insert(name).second) return Fail("field \"" + name + "\" appears twice");
        uint32_t type = 0;
        uint32_t count = 0;
        if (!U32(&type) || !U32(&count)) return false;
        const auto known = std::find(kTypeCodes.begin(), kTypeCodes.end() - 1, type);
        if (known == kTypeCodes.end() - 1) {
            return Fail("field \"" + name + "\": unknown type code " + hex32(type));
        }
        if (count == 0 || count > Left()) {
            return Fail("field \"" + name + "\": " + std::to_string(count) + " values in " +
                        std::to_string(Left()) + " bytes");
        }
        fValues += count;
        if (fValues > TMessage::kMaxValues) {
            return Fail("more than " + std::to_string(TMessage::kMaxValues) + " values");
        }
        TMessage::TField field{name, {}};
        for (uint32_t i = 0; i < count; i++) {
            TMessage::TValue value;
            if (!Value(type, depth, &value)) {
                return Fail("field \"" + name + "\" value " + std::to_string(i) + " unreadable");
            }
            field.values.push_back(std::move(value));
        }
        message->fFields.push_back(std::move(field));
        return true;
    }

    bool Value(uint32_t type, int depth, TMessage::TValue* value) {
        uint8_t u8 = 0;
        uint32_t u32 = 0;
        uint64_t u64 = 0;
        std::string bytes;
        switch (type) {
            case kBoolType:
                if (!U8(&u8)) return false;
                if (u8 > 1) return Fail("bool value " + std::to_string(u8));
                value->emplace<bool>(u8 == 1);
                return true;
            case kInt32Type:
                if (!U32(&u32)) return false;
                value->emplace<int32_t>(int32_t(u32));
                return true;
            case kInt64Type:
                if (!U64(&u64)) return false;
                value->emplace<int64_t>(int64_t(u64));
                return true;
            case kFloatType:
                if (!U32(&u32)) return false;
                value->emplace<float>(std::bit_cast<float>(u32));
                return true;
            case kDoubleType:
                if (!U64(&u64)) return false;
                value->emplace<double>(std::bit_cast<double>(u64));
                return true;
            case kStringType:
                if (!String(&bytes)) return false;
                value->emplace<std::string>(std::move(bytes));
                return true;
            case kRectType:
                return Rect(value);
            case kRefType:
                return Ref(value);
            case kMessageType:
                return Nested(depth, value);
        }
        return Fail("unknown type code " + hex32(type));
    }
    bool Rect(TMessage::TValue* value) {
        std::array<uint32_t, 4> edges{};
        for (uint32_t& edge : edges) {
            if (!U32(&edge)) return false;
        }
        value->emplace<TRect>(TRect{std::bit_cast<float>(edges[0]), std::bit_cast<float>(edges[1]),
                                    std::bit_cast<float>(edges[2]),
                                    std::bit_cast<float>(edges[3])});
        return true;
    }
    bool Ref(TMessage::TValue* value) {
        std::string path;
        if (!String(&path)) return false;
        if (path.empty() || path.front() != '/') {
            return Fail("file reference \"" + path + "\" is not an absolute path");
        }
        value->emplace<std::filesystem::path>(path);
        return true;
    }
    bool Nested(int depth, TMessage::TValue* value) {
        if (depth + 1 > TMessage::kMaxDepth) {
            return Fail("messages nested deeper than " + std::to_string(TMessage::kMaxDepth));
        }
        auto nested = std::make_shared<TMessage>();
        if (!Body(nested.get(), depth + 1)) return false;
        value->emplace<TMessage::TMessageValue>(TMessage::TMessageValue{std::move(nested)});
        return true;
    }

    bool String(std::string* bytes) {
        uint32_t length = 0;
        return U32(&length) && Bytes(length, bytes);
    }
    bool Bytes(uint32_t length, std::string* bytes) {
        if (length > Left()) {
            return Fail("length " + std::to_string(length) + " exceeds the " +
                        std::to_string(Left()) + " bytes left");
        }
        bytes->resize(length);
        return fStream.readRawData(bytes->data(), int(length)) == int(length) || Fail("short read");
    }
    bool U8(uint8_t* value) { return Read<quint8>(value); }
    bool U32(uint32_t* value) { return Read<quint32>(value); }
    bool U64(uint64_t* value) { return Read<quint64>(value); }
    template <class Q, class T>
    bool Read(T* value) {
        Q read = 0;
        fStream >> read;
        if (fStream.status() != QDataStream::Ok) return Fail("truncated");
        *value = read;
        return true;
    }
    uint64_t Left() const { return uint64_t(fStream.device()->bytesAvailable()); }
    bool Fail(const std::string& why) {
        if (fError.empty()) fError = why;
        return false;
    }

    QDataStream fStream;
    size_t fValues = 0;
    std::string fError;
};

TMessage::TValue TMessage::Stored(const TMessage& value) {
    return TValue(std::in_place_type<TMessageValue>,
                  TMessageValue{std::make_shared<const TMessage>(value)});
}

TMessage::TValue TMessage::Stored(void* value) {
    return TValue(std::in_place_type<TPointerValue>, TPointerValue{value, nullptr, false});
}

bool TMessage::Load(const TValue& stored, TMessage* value) {
    const TMessageValue* held = std::get_if<TMessageValue>(&stored);
    if (held) *value = *held->message;
    return held != nullptr;
}

bool TMessage::Load(const TValue& stored, void** value) {
    const TPointerValue* held = std::get_if<TPointerValue>(&stored);
    if (held) *value = held->Get();
    return held != nullptr;
}

bool TMessage::AddGuarded(std::string_view name, void* address, QObject* object) {
    return AddValue(
        name, TValue(std::in_place_type<TPointerValue>, TPointerValue{address, object, true}));
}

bool TMessage::AddValue(std::string_view name, TValue value) {
    if (!is_valid_name(name) || !is_storable(value)) return false;
    TField* field = FieldFor(name);
    if (!field) {
        fFields.push_back(TField{std::string(name), {std::move(value)}});
        return true;
    }
    if (field->values.front().index() != value.index()) return false;
    field->values.push_back(std::move(value));
    return true;
}

bool TMessage::ReplaceValue(std::string_view name, int32_t index, TValue value) {
    TField* field = FieldFor(name);
    if (!field || index < 0 || size_t(index) >= field->values.size()) return false;
    if (field->values.front().index() != value.index() || !is_storable(value)) return false;
    field->values[size_t(index)] = std::move(value);
    return true;
}

const TMessage::TValue* TMessage::ValueAt(std::string_view name, int32_t index) const {
    const TField* field = FieldFor(name);
    if (!field || index < 0 || size_t(index) >= field->values.size()) return nullptr;
    return &field->values[size_t(index)];
}

bool TMessage::RemoveData(std::string_view name, int32_t index) {
    TField* field = FieldFor(name);
    if (!field || index < 0 || size_t(index) >= field->values.size()) return false;
    field->values.erase(field->values.begin() + index);
    if (field->values.empty()) RemoveName(name);
    return true;
}

bool TMessage::RemoveName(std::string_view name) {
    const auto found = std::find_if(fFields.begin(), fFields.end(),
                                    [name](const TField& field) { return field.name == name; });
    if (found == fFields.end()) return false;
    fFields.erase(found);
    return true;
}

void TMessage::MakeEmpty() { fFields.clear(); }

bool TMessage::GetInfo(std::string_view name, uint32_t* type, int32_t* count) const {
    const TField* field = FieldFor(name);
    if (!field) return false;
    if (type) *type = kTypeCodes[field->values.front().index()];
    if (count) *count = int32_t(field->values.size());
    return true;
}

int32_t TMessage::CountValues(std::string_view name) const {
    const TField* field = FieldFor(name);
    return field ? int32_t(field->values.size()) : 0;
}

const TMessage::TField* TMessage::FieldFor(std::string_view name) const {
    for (const TField& field : fFields) {
        if (field.name == name) return &field;
    }
    return nullptr;
}

TMessage::TField* TMessage::FieldFor(std::string_view name) {
    return const_cast<TField*>(std::as_const(*this).FieldFor(name));
}

bool TMessage::Flatten(QByteArray* data) const {
    QByteArray body;
    if (!TFlatWriter(&body).Body(*this, 0)) return false;
    data->clear();
    QDataStream stream(data, QIODevice::WriteOnly);
    prepare(stream);
    stream << kFlatMagic << quint32(body.size());
    stream.writeRawData(body.constData(), int(body.size()));
    return stream.status() == QDataStream::Ok;
}

bool TMessage::Flatten(QIODevice* device) const {
    QByteArray data;
    return device && Flatten(&data) && device->write(data) == data.size();
}

namespace {

bool set_error(std::string* error, const std::string& why) {
    if (error) *error = why;
    return false;
}

// Checks the header and takes the body size it announces.
bool read_header(const QByteArray& header, qint64* size, std::string* error) {
    if (header.size() < kHeaderSize) {
        return set_error(error, "truncated: " + std::to_string(header.size()) + " bytes");
    }
    QDataStream stream(header);
    prepare(stream);
    quint32 magic = 0;
    quint32 announced = 0;
    stream >> magic >> announced;
    if (magic != kFlatMagic) {
        return set_error(error, "not a flattened message (magic " + hex32(magic) + ")");
    }
    if (announced > TMessage::kMaxFlattenedSize) {
        return set_error(error,
                         "body of " + std::to_string(announced) + " bytes exceeds the limit");
    }
    *size = announced;
    return true;
}

}  // namespace

bool TMessage::Unflatten(const QByteArray& data, std::string* error) {
    qint64 size = 0;
    if (!read_header(data.left(kHeaderSize), &size, error)) return false;
    if (data.size() - kHeaderSize != size) {
        return set_error(error, "body size " + std::to_string(size) + " but " +
                                    std::to_string(data.size() - kHeaderSize) + " bytes follow");
    }
    TFlatReader reader(data.mid(kHeaderSize));
    TMessage read;
    if (!reader.Body(&read, 0) || !reader.AtEnd()) return set_error(error, reader.Error());
    *this = std::move(read);
    return true;
}

bool TMessage::Unflatten(QIODevice* device, std::string* error) {
    if (!device) return set_error(error, "no device");
    const QByteArray header = read_up_to(device, kHeaderSize);
    qint64 size = 0;
    if (!read_header(header, &size, error)) return false;
    const QByteArray body = read_up_to(device, size);
    if (body.size() != size) {
        return set_error(error, "truncated: body of " + std::to_string(size) + " bytes, " +
                                    std::to_string(body.size()) + " read");
    }
    return Unflatten(header + body, error);
}

bool TMessage::operator==(const TMessage& other) const {
    return what == other.what && fFields == other.fFields;
}

}  // namespace veldan
