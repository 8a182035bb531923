#pragma once
// TLyricsView: the song's words, the syllable being sung highlighted and kept in view, and
// a choice of how the words' bytes are read. It follows the producer's play position on a
// display-rate timer while it is shown.

#include <QWidget>
#include <cstdint>

#include "player/lyrics.h"

class QComboBox;
class QTextBrowser;
class TSMFProducer;

namespace veldan {
class TLLT;
}

namespace quill {

class TLyricsView : public QWidget {
  public:
    static constexpr int kRefreshMs = 50;

    // producer must outlive the view.
    TLyricsView(const veldan::TLLT& texts, const TSMFProducer& producer, QWidget* parent = nullptr);

    // Reads the words of the song just loaded (none when nothing is loaded).
    void SongChanged();
    // Highlights the syllable at the play position; the timer does this while shown.
    void FollowPosition();
    void ApplyLanguage(const veldan::TLLT& texts);

    const TLyrics& Lyrics() const { return fLyrics; }
    int32_t CurrentSyllable() const { return fCurrent; }
    // The words as shown, without markup.
    QString ShownText() const;

  protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void timerEvent(QTimerEvent* event) override;

  private:
    void Render();

    const TSMFProducer& fProducer;
    TLyrics fLyrics;
    QComboBox* fEncoding = nullptr;
    QTextBrowser* fText = nullptr;
    int32_t fCurrent = -1;
    int fTimer = 0;
};

}  // namespace quill
