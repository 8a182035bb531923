#include "app/settings/mruf.h"

#include <algorithm>

#include "veldan/base/strings.h"

void TMRUF::AddMRUF(const std::string& path) {
    const int32_t found = FindMRUF(path);
    if (found >= 0) {
        std::string existing = std::move(fEntries[size_t(found)]);
        fEntries.erase(fEntries.begin() + found);
        fEntries.push_front(std::move(existing));
        return;
    }
    fEntries.push_front(path);
    DeleteExtraMRUF();
}

std::optional<std::string> TMRUF::RemoveMRUF(int32_t index) {
    if (index < 0 || index >= CountMRUFs()) return std::nullopt;
    std::string removed = std::move(fEntries[size_t(index)]);
    fEntries.erase(fEntries.begin() + index);
    return removed;
}

std::optional<std::string> TMRUF::RemoveMRUF(const std::string& path) {
    return RemoveMRUF(FindMRUF(path));
}

int32_t TMRUF::FindMRUF(const std::string& path) const {
    const auto found = std::find(fEntries.begin(), fEntries.end(), path);
    return found == fEntries.end() ? -1 : int32_t(found - fEntries.begin());
}

std::string TMRUF::MRUFAt(int32_t index) const {
    return index >= 0 && index < CountMRUFs() ? fEntries[size_t(index)] : std::string();
}

void TMRUF::DeleteExtraMRUF() {
    while (CountMRUFs() > fMax) fEntries.pop_back();
}

void TMRUF::SetMaxMRUF(int32_t max) {
    fMax = std::clamp(max, kMinMax, kMaxMax);
    DeleteExtraMRUF();
}

std::string TMRUF::ItemLabel(int32_t index) const {
    const int32_t n = Number(index);
    const char number = char(n <= 9 ? '0' + n : 'A' + (n - 10));
    return number + fSeparator + veldan::extract_file_name(MRUFAt(index));
}

char TMRUF::ItemShortcut(int32_t index) const {
    const int32_t n = Number(index);
    return fShowSC && n <= 9 ? char('0' + n) : '\0';
}

bool TMRUF::Archive(veldan::TMessage* into) const {
    if (!TArchivable::Archive(into)) return false;
    for (auto entry = fEntries.rbegin(); entry != fEntries.rend(); ++entry) {
        if (!into->AddString(kField, *entry)) return false;
    }
    return true;
}

bool TMRUF::Unarchive(const veldan::TMessage& from) {
    TArchivable::Unarchive(from);
    ClearMRUF();
    std::string path;
    for (int32_t index = 0; from.FindString(kField, index, &path); index++) AddMRUF(path);
    return true;
}
