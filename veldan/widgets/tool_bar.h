#pragma once
// TToolBar: a row of TToolButtons laid out left to right, 3 pixels from the left and top
// edges and 1 pixel apart; the bar is as tall as its tallest button plus 6. Buttons are
// children of the bar and owned by it.

#include <QString>
#include <QWidget>
#include <vector>

namespace veldan {

class TToolButton;

class TToolBar : public QWidget {
  public:
    static constexpr int kMargin = 3;
    static constexpr int kSpacing = 1;

    explicit TToolBar(const QString& name, QWidget* parent = nullptr);

    void AddItem(TToolButton* button);
    // index runs from 0 to CountItems(); any other index is refused and nothing changes.
    bool AddItem(TToolButton* button, int index);
    // A separator as tall as the tallest button added so far.
    void AddSeparatorItem();

    TToolButton* ItemAt(int index) const;
    int IndexOf(const TToolButton* button) const;
    int CountItems() const { return int(fButtons.size()); }
    TToolButton* FindItem(const QString& name) const;
    // The button that is on in the radio group of the button at index; null when none.
    TToolButton* FindPushed(int index) const;

    void SetTargetForItems(QObject* target);
    void SetEnabled(bool enabled) { setEnabled(enabled); }
    bool IsEnabled() const { return isEnabled(); }
    void SetFlat(bool flat);
    bool IsFlat() const { return fFlat; }

    // Width: the last button's right edge plus 3 (3 when empty); height: the tallest
    // button plus 6.
    void GetPreferredSize(int* width, int* height) const;
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    void LayOutFrom(int index);

    bool fFlat = false;
    int fTallest = 0;
    std::vector<TToolButton*> fButtons;
};

}  // namespace veldan
