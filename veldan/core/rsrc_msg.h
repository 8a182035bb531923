#pragma once
// TRsrcMsg: fetches an archived message by name, either from the application's Qt
// resources or from a file that holds one flattened message of named messages (a
// language's message table, for instance).

#include <QString>
#include <filesystem>

#include "veldan/core/message.h"

namespace veldan {

class TRsrcMsg {
  public:
    // Resource messages lie at <root>/<name>, each one flattened message.
    static inline const QString kResourceRoot = QStringLiteral(":/RAWT");

    void SetTo(const std::filesystem::path& file) {
        fFile = file;
        fFromFile = true;
    }
    void Unset() { fFromFile = false; }
    bool IsFromFile() const { return fFromFile; }

    // From resources: the message stored under name below root. From a file: the message
    // field name of the file's message. On failure *out is left as it was.
    bool GetMessage(const char* name, TMessage* out, const QString& root = kResourceRoot) const;

  private:
    bool fFromFile = false;
    std::filesystem::path fFile;
};

}  // namespace veldan
