#include "app/settings/app_privacy.h"

#include "veldan/base/strings.h"

void TAppPrivacy::AnaExePath(const char* path) {
    const std::string full = path ? path : "";
    fExeName = veldan::extract_file_name(full);
    fExePath = veldan::extract_file_path(full);
}
