#pragma once
// TListHint: the text an empty playlist shows in its middle, saying how songs come in
// (drop files or folders on the list, or File > Add). It shows while the list holds no
// song, follows the list's size, and lets every click and drop through to the list.

#include <QLabel>

class TOrvickView;

namespace veldan {
class TLLT;
}

namespace quill {

class TListHint : public QLabel {
  public:
    // Lies over list's viewport and is owned by it.
    TListHint(const veldan::TLLT& texts, TOrvickView* list);

    void ApplyLanguage(const veldan::TLLT& texts);
    // Shows or hides the hint by whether the list holds a song.
    void Follow();

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    TOrvickView* fList;
};

}  // namespace quill
