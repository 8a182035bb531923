// Converts arbitrary playlist lines: the first line of the input is the Windows path,
// the rest the playlist file's own path.

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "playlist/drvcvt.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // The converter reads its table from the settings folder: keep it away from the
    // real one.
    static char folder[] = "/tmp/drvcvt-fuzz-XXXXXX";
    if (!mkdtemp(folder)) std::abort();
    setenv("XDG_CONFIG_HOME", folder, 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const TDrvCvt table = [] {
        TDrvCvt defaults;
        defaults.SetBeDL('D', "/media/d\\with\\backslashes");
        defaults.SetBeDL('z', "/");
        return defaults;
    }();
    const std::string input(reinterpret_cast<const char*>(data), size);
    const size_t lineEnd = input.find('\n');
    const std::string line = input.substr(0, lineEnd);
    const std::string base = lineEnd == std::string::npos ? "" : input.substr(lineEnd + 1);
    std::string out;
    if (table.CvtPathWinToBe(line.c_str(), &out, base.c_str()) && out.size() > 3 * (size + 64)) {
        std::abort();  // conversion never grows a path beyond three bytes per byte
    }
    return 0;
}
