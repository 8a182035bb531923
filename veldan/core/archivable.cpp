#include "veldan/core/archivable.h"

#include <unistd.h>

#include <QByteArray>
#include <fstream>
#include <string_view>

#include "veldan/base/atomic_file.h"

namespace veldan {

// Files are opened through std::filesystem so that a path is used byte for byte, whatever
// its encoding.

bool TArchivable::Archive(TMessage*) const { return true; }

bool TArchivable::Unarchive(const TMessage&) { return true; }

bool TArchivable::Load(const std::filesystem::path& entry) {
    TMessage message;
    if (load_message(entry, &message)) return Unarchive(message);
    // A file we may not read is not damaged; it stays for whoever may.
    if (::access(entry.c_str(), R_OK) == 0) keep_damaged_file(entry);
    return false;
}

bool TArchivable::Save(const std::filesystem::path& entry, std::string* error) const {
    TMessage message;
    QByteArray data;
    if (!Archive(&message) || !message.Flatten(&data)) {
        if (error) *error = "cannot write " + entry.string() + ": the settings do not flatten";
        return false;
    }
    return write_file_atomically(entry, std::string_view(data.constData(), size_t(data.size())),
                                 error) == 0;
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
