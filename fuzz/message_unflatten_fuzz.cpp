// Unflattens arbitrary bytes as a settings-file message. Whatever is accepted must
// flatten back to exactly the bytes it came from.

#include <QBuffer>
#include <QByteArray>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "veldan/core/message.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray input(reinterpret_cast<const char*>(data), qsizetype(size));
    veldan::TMessage message;
    std::string error;
    const bool whole = message.Unflatten(input, &error);

    QBuffer device;
    device.setData(input);
    device.open(QIODevice::ReadOnly);
    veldan::TMessage fromDevice;
    const bool first = fromDevice.Unflatten(&device);
    if (whole && !first) std::abort();  // the device reader accepts what the strict one does

    if (whole) {
        QByteArray again;
        if (!message.Flatten(&again) || again != input) std::abort();
        bool found = false;
        message.FindBool("x", &found);
        message.CountValues("x");
    }
    return 0;
}
