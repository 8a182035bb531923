// Renders the control bar and the transport tool bar to PNG files, in English and in
// Japanese, at whatever scale QT_SCALE_FACTOR sets, and checks that every label's text
// fits inside the label.

#include <gtest/gtest.h>

#include <QDir>
#include <QImage>
#include <QLabel>

#include "player/control_bar.h"
#include "tests/player/language_fixture.h"
#include "tests/support/widget_app.h"
#include "veldan/widgets/tool_bar.h"
#include "veldan/widgets/tool_button.h"

namespace {

using quill::TControlBar;
using TLit = quill::TLCDIndicator::TLit;

constexpr int kTypicalWidth = 640;

void show_everything(TControlBar* bar, const veldan::TLLT& texts) {
    bar->SetTitle("Prelude in C major, BWV 846");
    // The widest time: a song of over an hour.
    bar->SetTime(3723000000, 5025000000);
    bar->SetStatusText(texts.Text("Stat_Str_Pref_Changed"));
    bar->SetPlayState(quill::kStatePlaying);
    bar->SetPortLit(0, true);
    bar->SetResetLit(1, TLit::kLit);
    bar->SetResetLit(2, TLit::kHalfLit);
    bar->SetSliderValue(TControlBar::kKey, -12);
    bar->SetSliderValue(TControlBar::kTempo, 300);
    bar->SetSliderValue(TControlBar::kPos, 100);
}

QString save(QWidget& widget, const QString& name) {
    const QPixmap pixmap = widget.grab();
    EXPECT_FALSE(pixmap.isNull()) << name.toStdString();
    const QString scale = QString::number(qRound(pixmap.devicePixelRatio()));
    const QString path = QString(QUILL_RENDER_DIR) + "/" + name + "@" + scale + "x.png";
    QDir().mkpath(QUILL_RENDER_DIR);
    EXPECT_TRUE(pixmap.save(path)) << path.toStdString();
    return path;
}

bool has_more_than_one_colour(const QImage& image) {
    const QRgb first = image.pixel(0, 0);
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            if (image.pixel(x, y) != first) return true;
        }
    }
    return false;
}

// Labels that give up their width to the window (the title, the status bar) may cut a
// long text; they are checked only when stretchedToo is set.
void expect_no_label_cut(const QWidget& root, bool stretchedToo) {
    for (const QLabel* label : root.findChildren<QLabel*>()) {
        if (label->text().isEmpty() || !label->isVisible()) continue;
        const bool stretched = label->sizePolicy().horizontalPolicy() == QSizePolicy::Ignored;
        if (stretched && !stretchedToo) continue;
        const QFontMetrics metrics = label->fontMetrics();
        const QRect room = label->contentsRect().adjusted(label->margin(), label->margin(),
                                                          -label->margin(), -label->margin());
        EXPECT_LE(metrics.horizontalAdvance(label->text()), room.width())
            << label->objectName().toStdString() << " \"" << label->text().toStdString() << "\"";
        EXPECT_LE(metrics.height(), room.height()) << label->objectName().toStdString();
    }
}

void expect_inside_parent(const QWidget& widget) {
    EXPECT_TRUE(widget.parentWidget()->rect().contains(widget.geometry()))
        << widget.objectName().toStdString();
}

class Render : public TWidgetTest, public ::testing::WithParamInterface<const char*> {
  protected:
    veldan::TLLT Language() {
        return std::string(GetParam()) == "en" ? builtin_language() : file_language("Japanese.llt");
    }
};

TEST_P(Render, ControlBarAtItsSmallestAndTypicalWidthsCutsNoLabel) {
    const veldan::TLLT texts = Language();
    TControlBar bar(texts);
    show_everything(&bar, texts);
    bar.show();
    QString path;
    for (int width : {bar.minimumSizeHint().width(), kTypicalWidth}) {
        bar.resize(std::max(width, bar.minimumSizeHint().width()), bar.sizeHint().height());
        QCoreApplication::processEvents();
        const bool typical = width == kTypicalWidth;
        expect_no_label_cut(bar, typical);
        for (const QWidget* slider : bar.findChildren<quill::TCompactSlider*>()) {
            EXPECT_GE(slider->width(), slider->minimumWidth())
                << slider->objectName().toStdString();
            EXPECT_GE(slider->width(), 40) << slider->objectName().toStdString();
        }
        path = save(bar, QString("control_bar_") + GetParam() + (typical ? "" : "_narrow"));
    }
    const QImage image(path);
    EXPECT_EQ(image.size(), bar.size() * qRound(bar.devicePixelRatioF()));
    EXPECT_TRUE(has_more_than_one_colour(image));
}

TEST_P(Render, TransportBarShowsEveryButtonWhole) {
    const veldan::TLLT texts = Language();
    TControlBar bar(texts);
    bar.SetPlayState(quill::kStatePaused);
    bar.resize(kTypicalWidth, bar.sizeHint().height());
    bar.show();
    QCoreApplication::processEvents();
    veldan::TToolBar* tools = bar.TransportBar();
    expect_inside_parent(*tools);
    for (int i = 0; i < tools->CountItems(); ++i) expect_inside_parent(*tools->ItemAt(i));
    const QString path = save(*tools, QString("tool_bar_") + GetParam());
    EXPECT_TRUE(has_more_than_one_colour(QImage(path)));
}

INSTANTIATE_TEST_SUITE_P(Languages, Render, ::testing::Values("en", "ja"));

}  // namespace
