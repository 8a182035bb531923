// Loads arbitrary bytes as a language file. A file that loads must answer every key of
// its table with the stored text, and decoding may only shorten a text.

#include <QByteArray>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "veldan/core/llt.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    veldan::TLLT table;
    int status = table.LoadData(QByteArray(reinterpret_cast<const char*>(data), qsizetype(size)));
    if (status != 0) {
        if (status != -1 || !table.TextMap().empty()) abort();
        return 0;
    }
    for (const auto& [key, text] : table.TextMap()) {
        if (std::strcmp(table.Text(key.c_str()), text.c_str()) != 0) abort();
        if (text.size() > size_t(veldan::TLLT::kMaxLineLength)) abort();
    }
    // A second load of the same bytes adds nothing.
    size_t count = table.TextMap().size();
    table.LoadData(QByteArray(reinterpret_cast<const char*>(data), qsizetype(size)));
    if (table.TextMap().size() != count) abort();
    return 0;
}
