#include "player/lyrics_view.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QScrollBar>
#include <QTextBrowser>
#include <QTimerEvent>
#include <QVBoxLayout>

#include "engine/smf_producer.h"
#include "player/lcd_indicator.h"
#include "veldan/core/llt.h"
#include "veldan/widgets/lang_key.h"

namespace quill {

namespace {

using veldan::llt_key;

struct TEncodingItem {
    TLyrics::TEncoding encoding;
    const char* key;
};

constexpr TEncodingItem kEncodings[] = {
    {TLyrics::TEncoding::kAuto, llt_key("Lyrics_Encoding_Auto")},
    {TLyrics::TEncoding::kUtf8, llt_key("Lyrics_Encoding_UTF8")},
    {TLyrics::TEncoding::kShiftJis, llt_key("Lyrics_Encoding_Shift_JIS")},
    {TLyrics::TEncoding::kLatin1, llt_key("Lyrics_Encoding_Latin1")},
};

const QString kCurrentStyle =
    QStringLiteral("background-color:%1;color:%2;")
        .arg(TLCDIndicator::kLitBackground.name(), TLCDIndicator::kTextColor.name());

}  // namespace

TLyricsView::TLyricsView(const veldan::TLLT& texts, const TSMFProducer& producer, QWidget* parent)
    : QWidget(parent), fProducer(producer) {
    setObjectName("LyricsView");
    fEncoding = new QComboBox(this);
    fEncoding->setObjectName("MFieldLyricsEncoding");
    for (int i = 0; i < int(std::size(kEncodings)); ++i) fEncoding->addItem(QString(), i);
    fText = new QTextBrowser(this);
    fText->setObjectName("TextLyrics");
    // Words to sing along with are read from a step back.
    QFont font = fText->font();
    font.setPointSizeF(font.pointSizeF() * 1.4);
    fText->setFont(font);
    fText->setMinimumHeight(fText->fontMetrics().height() * 4);
    auto* row = new QHBoxLayout;
    row->addStretch(1);
    row->addWidget(fEncoding);
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(4, 2, 4, 2);
    column->addLayout(row);
    column->addWidget(fText, 1);
    connect(fEncoding, &QComboBox::currentIndexChanged, this, [this] { SongChanged(); });
    ApplyLanguage(texts);
}

void TLyricsView::ApplyLanguage(const veldan::TLLT& texts) {
    for (int i = 0; i < int(std::size(kEncodings)); ++i)
        fEncoding->setItemText(i, QString::fromUtf8(texts.Text(kEncodings[i].key)));
}

void TLyricsView::SongChanged() {
    const int chosen = std::max(fEncoding->currentIndex(), 0);
    fLyrics = TLyrics::Read(fProducer, kEncodings[chosen].encoding);
    fCurrent = -1;
    Render();
    FollowPosition();
}

void TLyricsView::FollowPosition() {
    // Before the play thread starts, the position is the song's start.
    const int32_t current = fProducer.IsPlaying() || fProducer.IsPaused()
                                ? fLyrics.SyllableAt(fProducer.CurrentTick())
                                : -1;
    if (current == fCurrent) return;
    fCurrent = current;
    Render();
}

void TLyricsView::Render() {
    QString html;
    for (const std::string& header : fLyrics.Headers())
        html += "<i>" + QString::fromStdString(header).toHtmlEscaped() + "</i><br>";
    if (!fLyrics.Headers().empty()) html += "<br>";
    const auto& syllables = fLyrics.Syllables();
    for (size_t i = 0; i < syllables.size(); ++i) {
        const TLyrics::TSyllable& syllable = syllables[i];
        if (syllable.newParagraph) html += "<br>";
        if (syllable.newLine && i > 0) html += "<br>";
        const QString text = QString::fromStdString(syllable.text).toHtmlEscaped();
        if (int32_t(i) == fCurrent)
            html += "<a name=\"now\"></a><span style=\"" + kCurrentStyle + "\">" + text + "</span>";
        else
            html += text;
    }
    const int scroll = fText->verticalScrollBar()->value();
    fText->setHtml(html);
    fText->verticalScrollBar()->setValue(scroll);
    if (fCurrent >= 0) fText->scrollToAnchor("now");
}

QString TLyricsView::ShownText() const { return fText->toPlainText(); }

void TLyricsView::showEvent(QShowEvent* event) {
    if (!fTimer) fTimer = startTimer(kRefreshMs);
    FollowPosition();
    QWidget::showEvent(event);
}

void TLyricsView::hideEvent(QHideEvent* event) {
    if (fTimer) killTimer(fTimer);
    fTimer = 0;
    QWidget::hideEvent(event);
}

void TLyricsView::timerEvent(QTimerEvent*) { FollowPosition(); }

}  // namespace quill
