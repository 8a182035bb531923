#pragma once
// The language tables the player tests run under: the built-in one (English) and the
// Japanese file of the source tree.

#include <gtest/gtest.h>

#include <QString>
#include <string>

#include "player/resources.h"
#include "veldan/core/llt.h"

inline std::string language_file(const char* name) {
    return std::string(QUILL_SOURCE_DIR) + "/resources/Language/" + name;
}

inline veldan::TLLT builtin_language() {
    quill::init_resources();
    veldan::TLLT texts;
    EXPECT_EQ(texts.LoadResource(QString::fromUtf8(quill::kBuiltinLanguagePath)), 0);
    return texts;
}

inline veldan::TLLT file_language(const char* name) {
    veldan::TLLT texts;
    EXPECT_EQ(texts.Load(language_file(name).c_str()), 0) << name;
    return texts;
}
