#pragma once
// The program's icon, drawn here after resources/desktop/quillmidi.svg: Qt reads SVG only
// through a plug-in that a plain Qt install lacks, and the window and tray need it anyway.

#include <QIcon>

// The installed theme's icon when there is one, else the drawn one in the usual sizes.
QIcon app_icon();
