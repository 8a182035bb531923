#pragma once
// Saving widget pictures for a person to look at, and checks that a laid-out window cuts
// none of its texts. Pictures land in QUILL_RENDER_DIR, named with the scale ("@2x").

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QDir>
#include <QGroupBox>
#include <QImage>
#include <QLabel>
#include <QPixmap>
#include <QString>
#include <QWidget>

// The saved file's path; empty when it could not be written.
inline QString save_render(QWidget& widget, const QString& name, const QString& folder) {
    const QPixmap pixmap = widget.grab();
    EXPECT_FALSE(pixmap.isNull()) << name.toStdString();
    const QString scale = QString::number(qRound(pixmap.devicePixelRatio()));
    const QString path = folder + "/" + name + "@" + scale + "x.png";
    QDir().mkpath(folder);
    EXPECT_TRUE(pixmap.save(path)) << path.toStdString();
    return path;
}

inline bool has_more_than_one_colour(const QImage& image) {
    if (image.isNull()) return false;
    const QRgb first = image.pixel(0, 0);
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            if (image.pixel(x, y) != first) return true;
        }
    }
    return false;
}

// Every visible label, button and box title of root has the room its text asks for, and
// lies inside its parent.
inline void expect_nothing_cut(const QWidget& root) {
    for (const QWidget* widget : root.findChildren<QWidget*>()) {
        if (!widget->isVisibleTo(&root)) continue;
        const std::string name = widget->objectName().toStdString();
        if (const auto* label = qobject_cast<const QLabel*>(widget)) {
            if (label->text().isEmpty()) continue;
            if (label->wordWrap()) {
                EXPECT_GE(label->height(), label->heightForWidth(label->width())) << name;
            } else {
                EXPECT_GE(label->width(), label->sizeHint().width()) << name;
                EXPECT_GE(label->height(), label->fontMetrics().height()) << name;
            }
        } else if (qobject_cast<const QAbstractButton*>(widget) ||
                   qobject_cast<const QGroupBox*>(widget)) {
            EXPECT_GE(widget->width(), widget->minimumSizeHint().width()) << name;
            EXPECT_GE(widget->height(), widget->minimumSizeHint().height()) << name;
        }
        if (widget->parentWidget() && widget->parentWidget() != &root && !widget->isWindow()) {
            EXPECT_TRUE(widget->parentWidget()->rect().contains(widget->geometry())) << name;
        }
    }
}
