#include "player/compact_slider.h"

#include <gtest/gtest.h>

#include <memory>

#include "tests/support/message_recorder.h"
#include "tests/support/widget_app.h"

using quill::TCompactSlider;
using veldan::TMessage;

namespace {

constexpr uint32_t kMsgChanged = 'chgd';
constexpr uint32_t kMsgChanging = 'chng';

class CompactSlider : public TWidgetTest {
  protected:
    CompactSlider() {
        slider.SetModificationMessage(std::make_unique<TMessage>(kMsgChanging));
        slider.SetTarget(&recorder);
        slider.resize(200, 16);
        slider.setValue(100);
        slider.show();
    }
    uint32_t LastCode() const { return recorder.received.back().what; }

    TCompactSlider slider{"SliderTest", std::make_unique<TMessage>(kMsgChanged), 0, 200};
    TMessageRecorder recorder;
};

TEST_F(CompactSlider, KeepsItsNameAndRange) {
    EXPECT_EQ(slider.objectName(), "SliderTest");
    EXPECT_EQ(slider.minimum(), 0);
    EXPECT_EQ(slider.maximum(), 200);
    slider.setValue(500);
    EXPECT_EQ(slider.value(), 200);
}

TEST_F(CompactSlider, ValuesSetFromCodePostNothing) {
    slider.setValue(150);
    EXPECT_TRUE(recorder.Deliver().empty());
}

TEST_F(CompactSlider, RightClickRestoresTheDefaultAndPostsTheMessage) {
    slider.SetDefaultValue(100);
    slider.setValue(150);
    QTest::mouseClick(&slider, Qt::RightButton, {}, QPoint(10, 8));
    EXPECT_EQ(slider.value(), 100);
    ASSERT_EQ(recorder.Deliver().size(), 1u);
    EXPECT_EQ(LastCode(), kMsgChanged);
    EXPECT_EQ(recorder.LastValue(), 100);
}

TEST_F(CompactSlider, RightClickWithoutADefaultDoesNothing) {
    EXPECT_FALSE(slider.HasDefault());
    slider.setValue(150);
    QTest::mouseClick(&slider, Qt::RightButton, {}, QPoint(10, 8));
    EXPECT_EQ(slider.value(), 150);
    EXPECT_TRUE(recorder.Deliver().empty());
}

TEST_F(CompactSlider, KeysPostTheMessageWithTheNewValue) {
    slider.setFocus();
    QTest::keyClick(&slider, Qt::Key_Right);
    EXPECT_EQ(slider.value(), 101);
    ASSERT_EQ(recorder.Deliver().size(), 1u);
    EXPECT_EQ(LastCode(), kMsgChanged);
    EXPECT_EQ(recorder.LastValue(), 101);
}

TEST_F(CompactSlider, DraggingPostsTheModificationMessageThenTheMessageOnRelease) {
    const QPoint thumb = slider.ThumbFrame().center();
    QTest::mousePress(&slider, Qt::LeftButton, {}, thumb);
    QMouseEvent move(QEvent::MouseMove, QPointF(thumb + QPoint(40, 0)),
                     slider.mapToGlobal(QPointF(thumb + QPoint(40, 0))), Qt::NoButton,
                     Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&slider, &move);
    QTest::mouseRelease(&slider, Qt::LeftButton, {}, thumb + QPoint(40, 0));
    const auto& received = recorder.Deliver();
    ASSERT_EQ(received.size(), 2u);
    EXPECT_EQ(received[0].what, kMsgChanging);
    EXPECT_EQ(received[1].what, kMsgChanged);
    EXPECT_GT(slider.value(), 100);
    EXPECT_EQ(recorder.LastValue(), slider.value());
}

TEST_F(CompactSlider, BarIsANarrowBandCentredInTheBounds) {
    const QRect bar = slider.BarFrame();
    EXPECT_EQ(bar.height(), 7);
    EXPECT_EQ(bar.top(), (slider.height() - 7) / 2);
    EXPECT_GT(bar.width(), 150);
}

TEST_F(CompactSlider, DrawsTheBarAndThumbInTheirColours) {
    slider.setValue(0);
    const QImage image = slider.grab().toImage();
    const QRect bar = slider.BarFrame();
    const QPoint probe(bar.right() - 10, bar.top());
    EXPECT_EQ(image.pixelColor(probe), TCompactSlider::kBarColors[0]);
    EXPECT_EQ(image.pixelColor(probe + QPoint(0, 1)), TCompactSlider::kBarColors[1]);
    EXPECT_EQ(image.pixelColor(probe + QPoint(0, 2)), TCompactSlider::kBarColors[2]);
    EXPECT_EQ(image.pixelColor(probe + QPoint(0, 3)), TCompactSlider::kBarColors[3]);
    EXPECT_EQ(image.pixelColor(slider.ThumbFrame().center()), TCompactSlider::kThumbTop);
}

}  // namespace
