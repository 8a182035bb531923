#pragma once
// TLLM: the library's own message table, for the few texts the framework itself shows.
// It is an archived message named "_RLM" whose string field "_ALM" holds the texts in
// order; a language's table lies in a file (one flattened message of named messages),
// the built-in one among the Qt resources.
//
// Not thread-safe; the GUI thread owns it.

#include <QString>
#include <cstdint>
#include <string>
#include <vector>

#include "veldan/core/alert_hook.h"
#include "veldan/core/message.h"
#include "veldan/core/rsrc_msg.h"

namespace veldan {

// The library's language selector.
enum TLang : int32_t {
    LANG_JAPANESE = 0,
    LANG_ENGLISH = 1,
};

class TLLM {
  public:
    static constexpr const char* kMessageName = "_RLM";
    static constexpr const char* kTextsField = "_ALM";

    virtual ~TLLM() = default;

    // Takes the table from file in the absolute folder when both are given, else (or when
    // that fails) from the resources under resourceRoot. True only when the first place
    // tried held the table.
    bool Load(const char* folder, const char* file,
              const QString& resourceRoot = TRsrcMsg::kResourceRoot);
    // Loads files[lang]; when that fails, tells the user through the alert function in
    // the language asked for. The built-in table is then in use if the resources hold it.
    bool Load(const char* folder, const char* const* files, TLang lang,
              const QString& resourceRoot = TRsrcMsg::kResourceRoot);

    // The index-th text; "" when there is none. Valid until the next Load.
    const char* Msg(int index) const;
    const TMessage& Message() const { return fMessage; }

    void SetShowMsg(TShowMsgFn showMsg) { fShowMsg = std::move(showMsg); }

  protected:
    // Called at the end of every Load, with the table in place, so that a derived table
    // can build texts from the loaded ones.
    virtual void GenerateRelativeMsg() {}

  private:
    void ReportFailure(const char* folder, const char* file, TLang lang) const;

    TMessage fMessage;
    std::vector<std::string> fTexts;  // fMessage's "_ALM" strings, for stable pointers
    TShowMsgFn fShowMsg;
};

}  // namespace veldan
