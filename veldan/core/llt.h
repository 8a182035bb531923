#pragma once
// TLLT: the language table. Every text the application shows is looked up by key here,
// so loading another language file switches the whole interface.
//
// A language file is an INI file (maximum line length kMaxLineLength) with:
//   [Informations]  Header = LLT File Format 100   (exact and case-sensitive; required)
//                   Language, Writer, SpecialThanks (optional)
//   [Data]          key = text, one per key
// Section and key names in the file match ignoring case; the header value and the keys of
// the table are case-sensitive. Because the INI reader trims values, texts escape what
// trimming would lose: "#n" line feed, "#t" tab, "#s" space, "##" "#".
//
// Loading never empties the table: the first text for a key wins, also over texts of an
// earlier load. InitLangInfoAndData starts afresh.
//
// Not thread-safe; the GUI thread owns it.

#include <map>
#include <string>

#include "veldan/core/alert_hook.h"

class QByteArray;
class QString;

namespace veldan {

class TIniFile;
class TIniFileSection;

class TLLT {
  public:
    static constexpr int kMaxLineLength = 2048;
    static constexpr const char* kHeader = "LLT File Format 100";

    // Each Load returns 0, or -1 when the header is wrong or missing (an unreadable file
    // has none); on -1 the table and the information strings stay as they were.
    int Load(const char* path);
    // The bytes of a language file, such as the built-in language.
    int LoadData(const QByteArray& data);
    // A language file among the Qt resources (":/..."); -1 when there is no such resource.
    int LoadResource(const QString& path);
    int Load(TIniFile* ini);

    // The text for key; "" when it is missing (after an alert, when missing keys are
    // shown). The pointer stays valid while the table is unchanged.
    const char* Text(const char* key) const;

    void InitLangInfoAndData();
    // Gives every key this table lacks the text it has in fallback (the built-in
    // language), so that a translation older than the program shows no blank labels.
    // The information strings stay this table's.
    void AddMissingTexts(const TLLT& fallback);
    // Shows an alert for every missing key looked up, through the function given to
    // SetShowMsg.
    void SET_SHOW_DB_INFO(bool show) { fShowMissingKeys = show; }
    void SetShowMsg(TShowMsgFn showMsg) { fShowMsg = std::move(showMsg); }

    const std::string& LanguageName() const { return fLanguageName; }
    const std::string& Writer() const { return fWriter; }
    const std::string& SpecialThanks() const { return fSpecialThanks; }
    const std::map<std::string, std::string>& TextMap() const { return fTexts; }

  private:
    void AddTexts(const TIniFileSection& data);

    bool fShowMissingKeys = false;
    std::map<std::string, std::string> fTexts;
    std::string fLanguageName;
    std::string fSpecialThanks;
    std::string fWriter;
    TShowMsgFn fShowMsg;
};

}  // namespace veldan
