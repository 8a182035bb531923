#include "app/app_icon.h"

#include <QPainter>
#include <QPainterPath>
#include <QPixmap>

namespace {

constexpr int kSizes[] = {16, 24, 32, 48, 64, 128, 256};
const QColor kInk(0x1c, 0x1c, 0x1c);
const QColor kRim(0x9a, 0xd4, 0x00);
const QColor kFace(0xd8, 0xff, 0x4a);

// In the drawing's own 64-unit square.
void draw_icon(QPainter& painter) {
    painter.setPen(Qt::NoPen);
    painter.setBrush(kInk);
    painter.drawRoundedRect(QRectF(2, 2, 60, 60), 10, 10);
    painter.setBrush(kRim);
    painter.drawRoundedRect(QRectF(6, 6, 52, 52), 7, 7);
    painter.setBrush(kFace);
    painter.drawRoundedRect(QRectF(9, 9, 46, 46), 5, 5);
    // A quill whose shaft ends as a note stem.
    QPainterPath vane(QPointF(44, 12));
    vane.cubicTo(34, 14, 26, 22, 24, 36);
    vane.lineTo(27, 37);
    vane.cubicTo(30, 26, 36, 18, 44, 12);
    painter.setBrush(kInk);
    painter.drawPath(vane);
    QPainterPath shaft(QPointF(44, 12));
    shaft.cubicTo(40, 20, 34, 27, 27, 37);
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(kFace, 1.2));
    painter.drawPath(shaft);
    painter.setPen(QPen(kInk, 3));
    painter.drawLine(QPointF(24.5, 36), QPointF(24.5, 46));
    painter.setPen(Qt::NoPen);
    painter.setBrush(kInk);
    painter.translate(19.5, 47);
    painter.rotate(-20);
    painter.drawEllipse(QPointF(0, 0), 6.5, 4.5);
}

}  // namespace

QIcon app_icon() {
    QIcon drawn;
    for (int size : kSizes) {
        QPixmap pixmap(size, size);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.scale(size / 64.0, size / 64.0);
        draw_icon(painter);
        painter.end();
        drawn.addPixmap(pixmap);
    }
    return QIcon::fromTheme(QStringLiteral("quillmidi"), drawn);
}
