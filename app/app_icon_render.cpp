// Renders the program's icon into the hicolor theme's PNG sizes at build time:
//   quill_icon_render OUT SIZE...   writes OUT/<n>x<n>/apps/quillmidi.png for each size.
// The PNGs are made from the one SVG, never kept in the sources.

#include <QDir>
#include <QGuiApplication>
#include <QImage>
#include <QString>
#include <cstdio>

#include "app/app_icon.h"

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: quill_icon_render OUT SIZE...\n");
        return 2;
    }
    // Painting needs no screen; the build machine may have none.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    const QString out = QString::fromLocal8Bit(argv[1]);
    for (int i = 2; i < argc; ++i) {
        const int size = QString::fromLatin1(argv[i]).toInt();
        if (size <= 0) {
            std::fprintf(stderr, "quill_icon_render: not a size: %s\n", argv[i]);
            return 2;
        }
        const QString folder = QString("%1/%2x%2/apps").arg(out).arg(size);
        const QString file = folder + "/" + kAppIconName + ".png";
        const QImage image = render_app_icon(size);
        if (image.isNull() || !QDir().mkpath(folder) || !image.save(file, "PNG")) {
            std::fprintf(stderr, "quill_icon_render: cannot write %s\n", qPrintable(file));
            return 1;
        }
    }
    return 0;
}
