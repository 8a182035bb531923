#pragma once
// TSynthBox: the built-in synthesizer's part of the preferences window. The sound fonts in
// the order they are searched for a preset, the master gain, reverb and chorus, the
// polyphony and the audio output. It edits the preferences record it is given, as the rest
// of the window does; the application makes the synthesizer again when OK changed them.

#include <QGroupBox>
#include <filesystem>
#include <functional>
#include <optional>

class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QListWidget;
class QPushButton;
class QSpinBox;
class TPref;

namespace veldan {
class TLLT;
}

class TSynthBox : public QGroupBox {
  public:
    // Asks for a sound font file to add; none when the user cancelled. Replaced in tests.
    using TFontPanelFn = std::function<std::optional<std::filesystem::path>()>;

    TSynthBox(const veldan::TLLT& texts, TPref& prefs, QWidget* parent = nullptr);

    void SetFontPanelFn(TFontPanelFn panel) { fFontPanel = std::move(panel); }
    // From the record; writes nothing back.
    void UpdateCompos();
    void LanguageChanged();

  private:
    void BuildLayout();
    void Connect();
    void AddFontClicked();
    void RemoveFontClicked();
    void MoveFontClicked(int step);
    // The list as the record's sound fonts (the default one is stored as none).
    void StoreFonts();
    void UpdateButtons();

    const veldan::TLLT& fTexts;
    TPref& fPrefs;
    TFontPanelFn fFontPanel;
    bool fUpdating = false;
    QLabel* fFontsLabel = nullptr;
    QListWidget* fFonts = nullptr;
    QPushButton* fAdd = nullptr;
    QPushButton* fRemove = nullptr;
    QPushButton* fUp = nullptr;
    QPushButton* fDown = nullptr;
    QLabel* fGainLabel = nullptr;
    QDoubleSpinBox* fGain = nullptr;
    QCheckBox* fReverb = nullptr;
    QCheckBox* fChorus = nullptr;
    QLabel* fPolyphonyLabel = nullptr;
    QSpinBox* fPolyphony = nullptr;
    QLabel* fDriverLabel = nullptr;
    QComboBox* fDriver = nullptr;
};
