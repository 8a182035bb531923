#include "app/app_icon.h"

#include <QPainter>
#include <QPixmap>
#include <QSvgRenderer>

namespace {

constexpr char kSvgResource[] = ":/icons/quillmidi.svg";

}  // namespace

QImage render_app_icon(int size, qreal scale) {
    QSvgRenderer renderer{QString(kSvgResource)};
    if (!renderer.isValid()) return QImage();
    const int pixels = qRound(size * scale);
    QImage image(pixels, pixels, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    renderer.render(&painter, QRectF(0, 0, pixels, pixels));
    painter.end();
    image.setDevicePixelRatio(scale);
    return image;
}

QIcon app_icon() {
    QIcon drawn;
    for (int size : kAppIconSizes) {
        // Twice the size as well, for screens scaled to 200 %.
        for (qreal scale : {1.0, 2.0}) {
            const QImage image = render_app_icon(size, scale);
            if (!image.isNull()) drawn.addPixmap(QPixmap::fromImage(image));
        }
    }
    return QIcon::fromTheme(QString::fromLatin1(kAppIconName), drawn);
}
