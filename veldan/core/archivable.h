#pragma once
// TArchivable: the base of every settings object. An object writes its fields into one
// TMessage (Archive) and reads them back (Unarchive); a settings file is exactly that
// message flattened, with no header of its own.
//
// Settings objects set their defaults first and then Unarchive with TMessage's Find
// functions, which leave a member untouched when its field is missing: a file from an
// older version, or no file at all, leaves the defaults for what it lacks.

#include <filesystem>
#include <string>

#include "veldan/core/message.h"

namespace veldan {

class TArchivable {
  public:
    virtual ~TArchivable() = default;

    // The base writes nothing and reads nothing; both return true.
    virtual bool Archive(TMessage* into) const;
    virtual bool Unarchive(const TMessage& from);

    // Unarchive's result; false when the file can't be read or holds no message. A file
    // that is there but holds no message (cut short, overwritten by something else) is
    // moved aside to NAME.damaged, so that the defaults saved over it later destroy
    // nothing the user had.
    bool Load(const std::filesystem::path& entry);
    // Replaces the file with Archive's message, whole or not at all (veldan::TAtomicFile):
    // false, with the file as it was and *error saying why when given, when Archive fails
    // or the file can't be written.
    bool Save(const std::filesystem::path& entry, std::string* error = nullptr) const;

    // No data of its own: lets derived records default their comparison.
    bool operator==(const TArchivable&) const = default;
};

// Reads the one flattened message a file holds; false (and *message untouched) otherwise.
bool load_message(const std::filesystem::path& file, TMessage* message);

}  // namespace veldan
