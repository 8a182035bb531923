#include "veldan/core/llt.h"

#include <QByteArray>
#include <QFile>
#include <QString>
#include <string_view>
#include <unordered_map>

#include "veldan/base/file.h"
#include "veldan/base/ini_file.h"
#include "veldan/base/strings.h"

namespace veldan {

namespace {

// Replaces each "#letter" by replacement, unless its "#" is the second of an escaped
// "##": that is, when the run of "#" ending at it is of even length.
std::string decode_pass(std::string_view text, char letter, char replacement) {
    std::string out;
    out.reserve(text.size());
    size_t run = 0;  // "#" characters ending the text already passed
    for (size_t i = 0; i < text.size(); ++i) {
        bool pattern = text[i] == '#' && i + 1 < text.size() && text[i + 1] == letter;
        if (!pattern) {
            out += text[i];
            run = text[i] == '#' ? run + 1 : 0;
            continue;
        }
        if ((run + 1) % 2 == 1) {
            out += replacement;
        } else {
            out += '#';
            out += letter;
        }
        run = 0;
        ++i;
    }
    return out;
}

std::string decode_hashes(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        out += text[i];
        if (text[i] == '#' && i + 1 < text.size() && text[i + 1] == '#') ++i;
    }
    return out;
}

std::string decode_escapes(std::string_view text) {
    std::string out = decode_pass(text, 'n', '\n');
    out = decode_pass(out, 't', '\t');
    out = decode_pass(out, 's', ' ');
    return decode_hashes(out);
}

}  // namespace

int TLLT::Load(const char* path) {
    TIniFile ini(path ? path : "", kReadOnly, kMaxLineLength);
    return Load(&ini);
}

int TLLT::LoadData(const QByteArray& data) {
    TMemoryIO memory(data.constData(), size_t(data.size()));
    TIniFile ini(&memory, kMaxLineLength);
    return Load(&ini);
}

int TLLT::LoadResource(const QString& path) {
    QFile resource(path);
    if (!resource.open(QIODevice::ReadOnly)) return -1;
    return LoadData(resource.readAll());
}

int TLLT::Load(TIniFile* ini) {
    if (!ini) return -1;
    ini->ChangeSection("Informations");
    std::string header;
    if (!ini->ReadValue("Header", &header) || header != kHeader) return -1;
    ini->ReadValue("Language", &fLanguageName);
    ini->ReadValue("Writer", &fWriter);
    ini->ReadValue("SpecialThanks", &fSpecialThanks);

    ini->ChangeSection("Data");
    AddTexts(*ini->CurrentSection());
    return 0;
}

void TLLT::AddTexts(const TIniFileSection& data) {
    // Every key takes the value of the first pair whose key matches it ignoring case, as
    // a lookup in the section would give; one pass keeps large files linear.
    std::unordered_map<std::string, const std::string*> firstValues;
    for (const TIniFilePair& pair : data.Pairs()) {
        auto first = firstValues.try_emplace(upper_ascii(pair.Key()), &pair.Value()).first;
        if (!fTexts.contains(pair.Key())) {
            fTexts.emplace(pair.Key(), decode_escapes(*first->second));
        }
    }
}

const char* TLLT::Text(const char* key) const {
    auto found = key ? fTexts.find(key) : fTexts.end();
    if (found != fTexts.end()) return found->second.c_str();
    if (fShowMissingKeys && fShowMsg) {
        fShowMsg("TLLT::Text", key ? key : "", "OK", TAlertType::kStop);
    }
    return "";
}

void TLLT::AddMissingTexts(const TLLT& fallback) {
    fTexts.insert(fallback.fTexts.begin(), fallback.fTexts.end());
}

void TLLT::InitLangInfoAndData() {
    fTexts.clear();
    fLanguageName.clear();
    fSpecialThanks.clear();
    fWriter.clear();
}

}  // namespace veldan
