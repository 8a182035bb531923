#pragma once
// The program's icon and the names a desktop knows it by. The icon is the SVG of
// resources/desktop, read with Qt's SVG module; the build renders the same drawing into the
// PNG sizes of the hicolor theme, so launchers that read no SVG show it too.

#include <QIcon>
#include <QImage>

// The icon's name in the desktop's icon theme.
inline constexpr char kAppIconName[] = "quillmidi";
// The desktop entry's and the software-centre metadata's id (a reverse domain name).
inline constexpr char kAppDesktopId[] = "io.github.quillmidi.QuillMIDI";
// The PNG sizes installed beside the SVG, in pixels.
inline constexpr int kAppIconSizes[] = {16, 24, 32, 48, 64, 128, 256};

// The drawing in a square of size by size device-independent pixels at the given scale;
// a null image when the SVG cannot be read.
QImage render_app_icon(int size, qreal scale = 1.0);

// The installed theme's icon when there is one, else the drawing in the usual sizes.
QIcon app_icon();
