#pragma once
// Exporting the current song as a WAV file through the built-in synthesizer, faster than
// real time, with the key, tempo and volume the sliders are set to and the synthesizer's
// settings of the preferences; a progress window
// with a Cancel button shows how far it got. The song is read again from its file, so
// playing goes on undisturbed.

#include <QWidget>
#include <filesystem>
#include <string>

class TPref;

namespace quill {
class TQuillView;
}
namespace veldan {
class TLLT;
}

// False with *error ("cancelled" when the user cancelled) when no file was made.
bool export_current_song(QWidget* parent, const quill::TQuillView& view, const veldan::TLLT& texts,
                         const TPref& prefs, const std::filesystem::path& target,
                         std::string* error);
