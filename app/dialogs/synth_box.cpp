#include "app/dialogs/synth_box.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFileDialog>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>

#include "midi/synth.h"
#include "player/pref.h"
#include "veldan/core/llt.h"
#include "veldan/widgets/lang_key.h"

namespace {

using veldan::llt_key;

constexpr double kMaxGain = 10.0;
constexpr int kMinPolyphony = 16;
constexpr int kMaxPolyphony = 4096;
constexpr int kListRows = 4;

struct TDriverItem {
    const char* driver;  // FluidSynth's name; "" probes them all
    const char* key;     // its label in the language table
};

constexpr TDriverItem kDrivers[] = {
    {"", llt_key("Synth_Driver_Auto")},
    {"pulseaudio", llt_key("Synth_Driver_Pulse")},
    {"alsa", llt_key("Synth_Driver_ALSA")},
    {"jack", llt_key("Synth_Driver_JACK")},
};

QString text_of(const veldan::TLLT& texts, const char* key) {
    return QString::fromUtf8(texts.Text(key));
}

template <class T>
T* named(T* widget, const char* name) {
    widget->setObjectName(name);
    return widget;
}

}  // namespace

TSynthBox::TSynthBox(const veldan::TLLT& texts, TPref& prefs, QWidget* parent)
    : QGroupBox(parent), fTexts(texts), fPrefs(prefs) {
    setObjectName("BoxSynth");
    fFontPanel = [this]() -> std::optional<std::filesystem::path> {
        const QString chosen = QFileDialog::getOpenFileName(
            this, fAdd->text(), QString(), "SoundFont (*.sf2 *.sf3 *.SF2 *.SF3)", nullptr,
            QFileDialog::DontUseNativeDialog);
        if (chosen.isEmpty()) return std::nullopt;
        return std::filesystem::path(chosen.toStdString());
    };
    BuildLayout();
    Connect();
    LanguageChanged();
    UpdateCompos();
}

void TSynthBox::BuildLayout() {
    fFontsLabel = named(new QLabel(this), "LabelSoundFonts");
    fFonts = named(new QListWidget(this), "ListSoundFonts");
    fFonts->setMaximumHeight(fFonts->sizeHintForRow(0) * kListRows + 2 * fFonts->frameWidth() +
                             fontMetrics().height() * kListRows);
    fFonts->setTextElideMode(Qt::ElideLeft);  // the file's own name stays in view
    fAdd = named(new QPushButton(this), "ButtonAddSoundFont");
    fRemove = named(new QPushButton(this), "ButtonRemoveSoundFont");
    fUp = named(new QPushButton(this), "ButtonSoundFontUp");
    fDown = named(new QPushButton(this), "ButtonSoundFontDown");
    for (QPushButton* button : {fAdd, fRemove, fUp, fDown}) button->setAutoDefault(false);
    auto* fontButtons = new QHBoxLayout;
    for (QPushButton* button : {fAdd, fRemove, fUp, fDown}) fontButtons->addWidget(button);
    fontButtons->addStretch(1);

    fGainLabel = named(new QLabel(this), "LabelSynthGain");
    fGain = named(new QDoubleSpinBox(this), "SpinSynthGain");
    fGain->setRange(0.0, kMaxGain);
    fGain->setSingleStep(0.1);
    fGain->setDecimals(2);
    fReverb = named(new QCheckBox(this), "CBoxSynthReverb");
    fChorus = named(new QCheckBox(this), "CBoxSynthChorus");
    fPolyphonyLabel = named(new QLabel(this), "LabelSynthPolyphony");
    fPolyphony = named(new QSpinBox(this), "SpinSynthPolyphony");
    fPolyphony->setRange(kMinPolyphony, kMaxPolyphony);
    fDriverLabel = named(new QLabel(this), "LabelSynthDriver");
    fDriver = named(new QComboBox(this), "MFieldSynthDriver");
    for (const TDriverItem& item : kDrivers)
        fDriver->addItem(QString(), QString::fromLatin1(item.driver));
    fGainLabel->setBuddy(fGain);
    fPolyphonyLabel->setBuddy(fPolyphony);
    fDriverLabel->setBuddy(fDriver);

    auto* grid = new QGridLayout;
    grid->addWidget(fGainLabel, 0, 0);
    grid->addWidget(fGain, 0, 1);
    grid->addWidget(fPolyphonyLabel, 1, 0);
    grid->addWidget(fPolyphony, 1, 1);
    grid->addWidget(fDriverLabel, 2, 0);
    grid->addWidget(fDriver, 2, 1);
    grid->setColumnStretch(2, 1);
    auto* effects = new QHBoxLayout;
    effects->addWidget(fReverb);
    effects->addWidget(fChorus);
    effects->addStretch(1);

    auto* column = new QVBoxLayout(this);
    column->addWidget(fFontsLabel);
    column->addWidget(fFonts);
    column->addLayout(fontButtons);
    column->addLayout(grid);
    column->addLayout(effects);
    column->addStretch(1);
}

void TSynthBox::Connect() {
    connect(fAdd, &QPushButton::clicked, this, [this] { AddFontClicked(); });
    connect(fRemove, &QPushButton::clicked, this, [this] { RemoveFontClicked(); });
    connect(fUp, &QPushButton::clicked, this, [this] { MoveFontClicked(-1); });
    connect(fDown, &QPushButton::clicked, this, [this] { MoveFontClicked(1); });
    connect(fFonts, &QListWidget::currentRowChanged, this, [this] { UpdateButtons(); });
    connect(fGain, &QDoubleSpinBox::valueChanged, this, [this](double gain) {
        if (!fUpdating) fPrefs.synth.gain = float(gain);
    });
    connect(fReverb, &QCheckBox::toggled, this, [this](bool on) {
        if (!fUpdating) fPrefs.synth.reverb = on;
    });
    connect(fChorus, &QCheckBox::toggled, this, [this](bool on) {
        if (!fUpdating) fPrefs.synth.chorus = on;
    });
    connect(fPolyphony, &QSpinBox::valueChanged, this, [this](int voices) {
        if (!fUpdating) fPrefs.synth.polyphony = voices;
    });
    connect(fDriver, &QComboBox::currentIndexChanged, this, [this](int index) {
        if (!fUpdating && index >= 0)
            fPrefs.synth.driver = fDriver->itemData(index).toString().toStdString();
    });
}

void TSynthBox::AddFontClicked() {
    const std::optional<std::filesystem::path> font = fFontPanel();
    if (!font) return;
    fFonts->addItem(QString::fromStdString(font->string()));
    fFonts->setCurrentRow(fFonts->count() - 1);
    StoreFonts();
}

void TSynthBox::RemoveFontClicked() {
    // The synthesizer needs one font at least.
    if (fFonts->count() <= 1 || fFonts->currentRow() < 0) return;
    delete fFonts->takeItem(fFonts->currentRow());
    StoreFonts();
}

void TSynthBox::MoveFontClicked(int step) {
    const int row = fFonts->currentRow();
    const int target = row + step;
    if (row < 0 || target < 0 || target >= fFonts->count()) return;
    fFonts->insertItem(target, fFonts->takeItem(row));
    fFonts->setCurrentRow(target);
    StoreFonts();
}

void TSynthBox::StoreFonts() {
    std::vector<std::string> fonts;
    for (int row = 0; row < fFonts->count(); ++row)
        fonts.push_back(fFonts->item(row)->text().toStdString());
    const bool onlyDefault = fonts.size() == 1 && fonts[0] == TSynthConsumer::kDefaultSoundFont;
    fPrefs.synth.soundFonts = onlyDefault ? std::vector<std::string>() : fonts;
    UpdateButtons();
}

void TSynthBox::UpdateButtons() {
    const int row = fFonts->currentRow();
    fRemove->setEnabled(row >= 0 && fFonts->count() > 1);
    fUp->setEnabled(row > 0);
    fDown->setEnabled(row >= 0 && row + 1 < fFonts->count());
}

void TSynthBox::UpdateCompos() {
    fUpdating = true;
    fFonts->clear();
    if (fPrefs.synth.soundFonts.empty()) {
        fFonts->addItem(QString::fromLatin1(TSynthConsumer::kDefaultSoundFont));
    } else {
        for (const std::string& font : fPrefs.synth.soundFonts)
            fFonts->addItem(QString::fromStdString(font));
    }
    fGain->setValue(fPrefs.synth.gain);
    fReverb->setChecked(fPrefs.synth.reverb);
    fChorus->setChecked(fPrefs.synth.chorus);
    fPolyphony->setValue(fPrefs.synth.polyphony);
    const int driver = fDriver->findData(QString::fromStdString(fPrefs.synth.driver));
    fDriver->setCurrentIndex(driver < 0 ? 0 : driver);
    UpdateButtons();
    fUpdating = false;
}

void TSynthBox::LanguageChanged() {
    setTitle(text_of(fTexts, llt_key("Box_Synth")));
    fFontsLabel->setText(text_of(fTexts, llt_key("Label_Sound_Fonts")));
    // A list takes no name from a buddy label, as the other fields here do.
    fFonts->setAccessibleName(fFontsLabel->text());
    fAdd->setText(text_of(fTexts, llt_key("Button_Add_Sound_Font")));
    fRemove->setText(text_of(fTexts, llt_key("Button_Remove_Sound_Font")));
    fUp->setText(text_of(fTexts, llt_key("Button_Sound_Font_Up")));
    fDown->setText(text_of(fTexts, llt_key("Button_Sound_Font_Down")));
    fGainLabel->setText(text_of(fTexts, llt_key("Label_Synth_Gain")));
    fReverb->setText(text_of(fTexts, llt_key("CBox_Synth_Reverb")));
    fChorus->setText(text_of(fTexts, llt_key("CBox_Synth_Chorus")));
    fPolyphonyLabel->setText(text_of(fTexts, llt_key("Label_Synth_Polyphony")));
    fDriverLabel->setText(text_of(fTexts, llt_key("Label_Synth_Driver")));
    for (int i = 0; i < int(std::size(kDrivers)); ++i)
        fDriver->setItemText(i, text_of(fTexts, kDrivers[i].key));
}
