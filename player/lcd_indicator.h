#pragma once
// TLCDIndicator: a small label in a liquid-crystal look, used for the port and reset
// indicators and the song title. The text colour never changes; the background shows
// the state.

#include <QColor>
#include <QLabel>
#include <array>

namespace quill {

class TLCDIndicator : public QLabel {
  public:
    enum class TLit {
        kUnlit,
        kHalfLit,  // a reset is being sent
        kLit,
    };

    static inline const QColor kTextColor{203, 255, 0};
    static inline const QColor kLitBackground{0, 0, 0};
    static inline const QColor kHalfLitBackground{100, 133, 0};
    static inline const QColor kUnlitBackground{150, 200, 0};

    TLCDIndicator(const QString& name, const QString& text, TLit lit, QWidget* parent = nullptr);

    void SetLit(TLit lit);
    TLit Lit() const { return fLit; }
    static QColor Background(TLit lit);

    // What a screen reader says of each state, as the indicator's description; the
    // colours alone tell nothing to someone who cannot see them.
    void SetStateTexts(const QString& unlit, const QString& halfLit, const QString& lit);

  private:
    void DescribeState();

    TLit fLit;
    std::array<QString, 3> fStateTexts;
};

}  // namespace quill
