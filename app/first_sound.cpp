#include "app/first_sound.h"

#include <QTimer>
#include <cstdlib>
#include <string>

#include "midi/synth.h"
#include "veldan/base/atomic_file.h"

namespace {
constexpr int kLookIntervalMs = 2;
}  // namespace

void watch_first_sound(QObject* context, std::function<const TSynthConsumer*()> synth) {
    const char* path = std::getenv("QUILLMIDI_FIRST_SOUND");
    if (!path || !path[0]) return;
    auto* timer = new QTimer(context);
    timer->setInterval(kLookIntervalMs);
    QObject::connect(timer, &QTimer::timeout, context,
                     [timer, file = std::string(path), synth = std::move(synth)] {
                         const TSynthConsumer* current = synth();
                         if (!current || current->FirstNoteOnUs() == 0) return;
                         std::string error;
                         veldan::write_file_atomically(
                             file, std::to_string(current->FirstNoteOnUs()) + '\n', &error);
                         timer->stop();
                         timer->deleteLater();
                     });
    timer->start();
}
