#include "veldan/core/archivable.h"

#include <QByteArray>
#include <fstream>

namespace veldan {

// Files are opened through std::filesystem so that a path is used byte for byte, whatever
// its encoding.

bool TArchivable::Archive(TMessage*) const { return true; }

bool TArchivable::Unarchive(const TMessage&) { return true; }

bool TArchivable::Load(const std::filesystem::path& entry) {
    TMessage message;
    return load_message(entry, &message) && Unarchive(message);
}

bool TArchivable::Save(const std::filesystem::path& entry) const {
    std::ofstream file(entry, std::ios::binary | std::ios::trunc);
    if (!file) return false;
    TMessage message;
    QByteArray data;
    if (!Archive(&message) || !message.Flatten(&data)) return false;
    file.write(data.constData(), data.size());
    file.flush();
    return bool(file);
}

bool load_message(const std::filesystem::path& file, TMessage* message) {
    std::ifstream in(file, std::ios::binary);
    if (!in) return false;
    in.seekg(0, std::ios::end);
    const std::streamoff size = in.tellg();
    if (size < 0 || uint64_t(size) > TMessage::kMaxFlattenedSize + 8) return false;
    in.seekg(0);
    QByteArray data(qsizetype(size), '\0');
    if (!in.read(data.data(), size)) return false;
    return message->Unflatten(data);
}

}  // namespace veldan
