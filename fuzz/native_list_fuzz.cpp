// Reads arbitrary bytes as a native playlist: the built-in loader on its own, then the whole
// way into a playlist view (drive-letter and Shift-JIS conversion, nested containers).

#include <unistd.h>

#include <QApplication>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>

#include "playlist/native_loader.h"
#include "playlist/orvick_view.h"
#include "veldan/core/llt.h"

namespace {

std::string gFolder;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    static char folder[] = "/tmp/native-list-fuzz-XXXXXX";
    if (!mkdtemp(folder)) std::abort();
    gFolder = folder;
    setenv("XDG_CONFIG_HOME", folder, 1);
    setenv("QT_QPA_PLATFORM", "offscreen", 1);
    static QApplication application(*argc, *argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const veldan::TLLT texts;
    static TOrvickView view(texts, false, gFolder + "/no-loaders");
    const std::string file = gFolder + "/list.qml";
    {
        std::ofstream out(file, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(data), std::streamsize(size));
    }
    TCLNative100 loader;
    TSupportFmt kind = kFmtSong;
    std::vector<TContainerEntry> entries;
    if (loader.IsLoadable(file, &kind)) loader.Load(file, &entries);
    for (const TContainerEntry& entry : entries) {
        if (entry.path.size() > TCLNative100::kMaxLineBytes) std::abort();
    }

    view.AddListFolderFileToTopLevel(file);
    QTreeWidgetItem* top = view.topLevelItem(0);
    while (top->childCount() > 0) delete top->child(0);
    return 0;
}
