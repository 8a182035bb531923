#include "app/dialogs/pref_win.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QPushButton>
#include <QRadioButton>
#include <QStyle>
#include <QStyleOptionFrame>
#include <QUrl>
#include <QVBoxLayout>
#include <algorithm>
#include <cstdlib>
#include <utility>

#include "app/dialogs/lang_files.h"
#include "app/dialogs/synth_box.h"
#include "app/settings/settings.h"
#include "veldan/base/strings.h"
#include "veldan/core/llt.h"
#include "veldan/widgets/lang_key.h"
#include "veldan/widgets/tool_tip.h"

namespace {

using veldan::llt_key;

constexpr int64_t kUsPerMs = 1000;
constexpr int64_t kUsPerS = 1000000;

constexpr char kTextWinTitle[] = "Pref_Win_Title";
constexpr char kTextStatPrefChanged[] = "Stat_Str_Pref_Changed";
constexpr char kTextRangeHyphen[] = "Range_Hyphen";

struct TResetBoxItem {
    const char* name;
    const char* label;  // the standards' own names, the same in every language
};

constexpr TResetBoxItem kResetBoxItems[] = {
    {"CBoxSRGM", "GM"}, {"CBoxSRGS", "GS"}, {"CBoxSR88", "88"}, {"CBoxSRXG", "XG"}};

struct TLabelItem {
    const char* name;
    const char* key;
};

// Every control whose text comes from the language table, relabelled on a language change.
constexpr TLabelItem kLabelItems[] = {
    {"CBoxSendSysResets", llt_key("CBox_Send_Sys_Resets")},
    {"TxtCtrlSilenceIntervalAfterSysResetsLabel",
     llt_key("TxtCtrl_Silence_Interval_After_Sys_Resets")},
    {"StrViewSilenceIntervalAfterSysResets", llt_key("StrView_Silence_Interval_After_Sys_Resets")},
    {"CBoxSilenceBetweenSongs", llt_key("CBox_Silence_Between_Songs")},
    {"StrViewSilenceIntervalBetweenSongs", llt_key("StrView_Silence_Interval_Between_Songs")},
    {"CBoxChaseOnSeek", llt_key("CBox_Chase_On_Seek")},
    {"CBoxPlayMarkedLoops", llt_key("CBox_Play_Marked_Loops")},
    {"StrViewLoopTimes", llt_key("StrView_Loop_Times")},
    {"StrViewLoopFade", llt_key("StrView_Loop_Fade")},
    {"BoxAutoSort", llt_key("Box_Auto_Sort")},
    {"RButtonAutoSortNone", llt_key("RButton_Auto_Sort_None")},
    {"RButtonAutoSortUp", llt_key("RButton_Auto_Sort_Up")},
    {"RButtonAutoSortDown", llt_key("RButton_Auto_Sort_Down")},
    {"MFieldLanguageLabel", llt_key("MField_Language")},
    {"ButtonOK", llt_key("Button_OK")},
    {"ButtonCancel", llt_key("Button_Cancel")},
};

constexpr char kAutoSortNames[][24] = {"RButtonAutoSortNone", "RButtonAutoSortUp",
                                       "RButtonAutoSortDown"};

constexpr char kTextTipAfterResets[] = "ToolTipSilenceIntervalAfterSysResets";
constexpr char kTextTipBetweenSongs[] = "ToolTipSilenceIntervalBetweenSongs";

// The string views beside the text fields are drawn in these colours, so that a disabled
// unit reads as part of the disabled field.
const QColor kEnabledTextColour(0, 0, 0);
const QColor kDisabledTextColour(128, 128, 128);

// The text as a decimal integer, as atoi reads it: text that is no number is 0.
int64_t read_integer(const QString& text) {
    const QByteArray bytes = text.toUtf8();
    return std::strtoll(bytes.constData(), nullptr, 10);
}

// Wide enough for digits digits and the caret, whatever the font and scale.
void fit_digits(QLineEdit* field, int digits) {
    QStyleOptionFrame option;
    option.initFrom(field);
    const QFontMetrics metrics = field->fontMetrics();
    const QSize content(metrics.horizontalAdvance(QString(digits, QLatin1Char('0'))) + 8,
                        metrics.height());
    field->setFixedWidth(
        field->style()->sizeFromContents(QStyle::CT_LineEdit, &option, content, field).width());
    field->setAlignment(Qt::AlignRight);
}

void set_text_colour(QLabel* label, const QColor& colour) {
    QPalette palette = label->palette();
    for (QPalette::ColorGroup group : {QPalette::Active, QPalette::Inactive, QPalette::Disabled}) {
        palette.setColor(group, QPalette::WindowText, colour);
    }
    label->setPalette(palette);
}

QLineEdit* make_field(const char* name, QWidget* parent) {
    auto* field = new QLineEdit(parent);
    field->setObjectName(name);
    fit_digits(field, 5);
    return field;
}

QLabel* make_label(const char* name, QWidget* parent) {
    auto* label = new QLabel(parent);
    label->setObjectName(name);
    return label;
}

}  // namespace

TPrefView::TPrefView(const veldan::TLLT& texts, TPref& prefs, TLanguageFolders languageFolders,
                     QWidget* parent)
    : veldan::TMessageHandler<QWidget>(parent),
      fTexts(texts),
      fPrefs(prefs),
      fBackup(prefs),
      fLanguageFolders(std::move(languageFolders)),
      fAfterResetsTip(std::make_unique<veldan::TToolTip>("SilenceIntervalAfterSysResets")),
      fBetweenSongsTip(std::make_unique<veldan::TToolTip>("SilenceIntervalBetweenSongs")) {
    setObjectName("PrefView");
    BuildLayout();
    if (!FindControls()) {
        fInitStatus = -1;
        return;
    }
    fAfterResetsTip->SetTarget(fAfterResets);
    fBetweenSongsTip->SetTarget(fBetweenSongs);
    Connect();
    LanguageChanged();
    ReloadLanguageFiles();
    UpdateCompos();
}

TPrefView::~TPrefView() = default;

void TPrefView::BuildLayout() {
    auto* resetBox = new QGroupBox(this);
    resetBox->setObjectName("BoxSendSysResets");
    auto* resetGrid = new QGridLayout(resetBox);
    auto* sendResets = new QCheckBox(resetBox);
    sendResets->setObjectName("CBoxSendSysResets");
    resetGrid->addWidget(sendResets, 0, 0, 1, 4);
    // The dependent controls stand in from the box that rules them.
    resetGrid->setColumnMinimumWidth(0, style()->pixelMetric(QStyle::PM_IndicatorWidth) +
                                            style()->pixelMetric(QStyle::PM_CheckBoxLabelSpacing));
    auto* kinds = new QHBoxLayout;
    for (const TResetBoxItem& item : kResetBoxItems) {
        auto* box = new QCheckBox(QString::fromLatin1(item.label), resetBox);
        box->setObjectName(item.name);
        kinds->addWidget(box);
    }
    kinds->addStretch(1);
    resetGrid->addLayout(kinds, 1, 1, 1, 3);
    auto* afterLabel = make_label("TxtCtrlSilenceIntervalAfterSysResetsLabel", resetBox);
    auto* afterField = make_field("TxtCtrlSilenceIntervalAfterSysResets", resetBox);
    afterLabel->setBuddy(afterField);
    resetGrid->addWidget(afterLabel, 2, 1);
    resetGrid->addWidget(afterField, 2, 2);
    resetGrid->addWidget(make_label("StrViewSilenceIntervalAfterSysResets", resetBox), 2, 3);
    resetGrid->setColumnStretch(3, 1);

    auto* betweenRow = new QHBoxLayout;
    auto* betweenBox = new QCheckBox(this);
    betweenBox->setObjectName("CBoxSilenceBetweenSongs");
    betweenRow->addWidget(betweenBox);
    betweenRow->addWidget(make_field("TxtCtrlSilenceIntervalBetweenSongs", this));
    betweenRow->addWidget(make_label("StrViewSilenceIntervalBetweenSongs", this));
    betweenRow->addStretch(1);

    auto* chase = new QCheckBox(this);
    chase->setObjectName("CBoxChaseOnSeek");

    auto* sortBox = new QGroupBox(this);
    sortBox->setObjectName("BoxAutoSort");
    auto* sortColumn = new QVBoxLayout(sortBox);
    fAutoSortGroup = new QButtonGroup(this);
    for (int i = 0; i < int(std::size(kAutoSortNames)); ++i) {
        auto* button = new QRadioButton(sortBox);
        button->setObjectName(kAutoSortNames[i]);
        fAutoSortGroup->addButton(button, i);
        sortColumn->addWidget(button);
    }

    auto* languageRow = new QHBoxLayout;
    auto* languageLabel = make_label("MFieldLanguageLabel", this);
    auto* language = new QComboBox(this);
    language->setObjectName("MFieldLanguage");
    language->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    languageLabel->setBuddy(language);
    languageRow->addWidget(languageLabel);
    languageRow->addWidget(language);
    languageRow->addStretch(1);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    auto* cancel = new QPushButton(this);
    cancel->setObjectName("ButtonCancel");
    cancel->setAutoDefault(false);
    auto* ok = new QPushButton(this);
    ok->setObjectName("ButtonOK");
    ok->setDefault(true);
    buttons->addWidget(cancel);
    buttons->addWidget(ok);

    // The synthesizer's box stands beside the rest, so the window stays as tall as before.
    auto* synth = new TSynthBox(fTexts, fPrefs, this);
    auto* columns = new QHBoxLayout;
    auto* column = new QVBoxLayout;
    columns->addLayout(column);
    columns->addWidget(synth);
    column->addWidget(resetBox);
    column->addLayout(betweenRow);
    column->addWidget(chase);
    column->addLayout(BuildLoopRow());
    column->addWidget(sortBox);
    column->addLayout(languageRow);
    column->addStretch(1);
    auto* window = new QVBoxLayout(this);
    window->addLayout(columns);
    window->addSpacing(style()->pixelMetric(QStyle::PM_LayoutVerticalSpacing));
    window->addLayout(buttons);
}

// "Play marked loops: [2] more times, then fade out over [8] s".
QLayout* TPrefView::BuildLoopRow() {
    auto* row = new QHBoxLayout;
    auto* box = new QCheckBox(this);
    box->setObjectName("CBoxPlayMarkedLoops");
    row->addWidget(box);
    auto* times = make_field("TxtCtrlLoopTimes", this);
    fit_digits(times, 2);
    row->addWidget(times);
    row->addWidget(make_label("StrViewLoopTimes", this));
    auto* fade = make_field("TxtCtrlLoopFade", this);
    fit_digits(fade, 2);
    row->addWidget(fade);
    row->addWidget(make_label("StrViewLoopFade", this));
    row->addStretch(1);
    return row;
}

// Controls are looked up by name, as the application's own layout would name them.
bool TPrefView::FindControls() {
    fSendSysResets = findChild<QCheckBox*>("CBoxSendSysResets");
    for (size_t i = 0; i < fResetBoxes.size(); ++i) {
        fResetBoxes[i] = findChild<QCheckBox*>(kResetBoxItems[i].name);
    }
    fAfterResetsLabel = findChild<QLabel*>("TxtCtrlSilenceIntervalAfterSysResetsLabel");
    fAfterResets = findChild<QLineEdit*>("TxtCtrlSilenceIntervalAfterSysResets");
    fAfterResetsUnit = findChild<QLabel*>("StrViewSilenceIntervalAfterSysResets");
    fBetweenSongsBox = findChild<QCheckBox*>("CBoxSilenceBetweenSongs");
    fBetweenSongs = findChild<QLineEdit*>("TxtCtrlSilenceIntervalBetweenSongs");
    fBetweenSongsUnit = findChild<QLabel*>("StrViewSilenceIntervalBetweenSongs");
    fChaseOnSeek = findChild<QCheckBox*>("CBoxChaseOnSeek");
    fLoopsBox = findChild<QCheckBox*>("CBoxPlayMarkedLoops");
    fLoopTimes = findChild<QLineEdit*>("TxtCtrlLoopTimes");
    fLoopTimesUnit = findChild<QLabel*>("StrViewLoopTimes");
    fLoopFade = findChild<QLineEdit*>("TxtCtrlLoopFade");
    fLoopFadeUnit = findChild<QLabel*>("StrViewLoopFade");
    fAutoSortBox = findChild<QGroupBox*>("BoxAutoSort");
    for (size_t i = 0; i < fAutoSort.size(); ++i) {
        fAutoSort[i] = findChild<QRadioButton*>(kAutoSortNames[i]);
    }
    fSynthBox = findChild<TSynthBox*>("BoxSynth");
    fLanguageLabel = findChild<QLabel*>("MFieldLanguageLabel");
    fLanguage = findChild<QComboBox*>("MFieldLanguage");
    fOK = findChild<QPushButton*>("ButtonOK");
    fCancel = findChild<QPushButton*>("ButtonCancel");

    const bool resetBoxesFound =
        std::all_of(fResetBoxes.begin(), fResetBoxes.end(), [](QCheckBox* b) { return b; });
    const bool sortFound =
        std::all_of(fAutoSort.begin(), fAutoSort.end(), [](QRadioButton* b) { return b; });
    return fSendSysResets && resetBoxesFound && fAfterResetsLabel && fAfterResets &&
           fAfterResetsUnit && fBetweenSongsBox && fBetweenSongs && fBetweenSongsUnit &&
           fChaseOnSeek && fLoopsBox && fLoopTimes && fLoopTimesUnit && fLoopFade &&
           fLoopFadeUnit && fSynthBox && fAutoSortBox && sortFound && fLanguageLabel && fLanguage &&
           fOK && fCancel;
}

void TPrefView::Connect() {
    auto guarded = [this](void (TPrefView::*handler)()) {
        return [this, handler] {
            if (!fUpdating) (this->*handler)();
        };
    };
    connect(fSendSysResets, &QCheckBox::toggled, this,
            guarded(&TPrefView::CBoxSendSysResetsChanged));
    for (QCheckBox* box : fResetBoxes) {
        connect(box, &QCheckBox::toggled, this, guarded(&TPrefView::CBoxSRCombiChanged));
    }
    connect(fAfterResets, &QLineEdit::editingFinished, this,
            guarded(&TPrefView::TxtCtrlSilenceIntervalAfterSysResetsChanged));
    connect(fBetweenSongsBox, &QCheckBox::toggled, this,
            guarded(&TPrefView::CBoxSilenceBetweenSongsChanged));
    connect(fBetweenSongs, &QLineEdit::editingFinished, this,
            guarded(&TPrefView::TxtCtrlSilenceIntervalBetweenSongsChanged));
    connect(fChaseOnSeek, &QCheckBox::toggled, this, [this](bool on) {
        if (!fUpdating) fPrefs.chaseOnSeek = on;
    });
    connect(fLoopsBox, &QCheckBox::toggled, this, guarded(&TPrefView::CBoxPlayMarkedLoopsChanged));
    connect(fLoopTimes, &QLineEdit::editingFinished, this,
            guarded(&TPrefView::TxtCtrlLoopTimesChanged));
    connect(fLoopFade, &QLineEdit::editingFinished, this,
            guarded(&TPrefView::TxtCtrlLoopFadeChanged));
    connect(fAutoSortGroup, &QButtonGroup::idToggled, this, [this](int, bool on) {
        if (on && !fUpdating) RButtonAutoSortChanged();
    });
    connect(fLanguage, &QComboBox::currentIndexChanged, this,
            guarded(&TPrefView::MFieldLanguageChanged));
    connect(fOK, &QPushButton::clicked, this, &TPrefView::ButtonOKClicked);
    connect(fCancel, &QPushButton::clicked, this, &TPrefView::ButtonCancelClicked);
}

void TPrefView::CBoxSendSysResetsChanged() {
    fPrefs.sendSysResets = fSendSysResets->isChecked();
    UpdateSRComposEnabled();
}

void TPrefView::CBoxSRCombiChanged() {
    int32_t combination = 0;
    for (size_t i = 0; i < fResetBoxes.size(); ++i) {
        if (fResetBoxes[i]->isChecked()) combination += kResetBits[i];
    }
    fPrefs.sysResetCombination = combination;
}

void TPrefView::TxtCtrlSilenceIntervalAfterSysResetsChanged() {
    // Clamped before scaling, so that a huge number can't overflow.
    const int64_t ms = std::clamp(read_integer(fAfterResets->text()), kMinSilenceAfterResetsMs,
                                  kMaxSilenceAfterResetsMs);
    fPrefs.silenceAfterResetsUs = ms * kUsPerMs;
}

void TPrefView::CBoxSilenceBetweenSongsChanged() {
    fPrefs.waitBetweenSongs = fBetweenSongsBox->isChecked();
    UpdateSilenceIntervalBetweenSongsComposEnabled();
}

void TPrefView::TxtCtrlSilenceIntervalBetweenSongsChanged() {
    const int64_t s = std::clamp(read_integer(fBetweenSongs->text()), kMinSilenceBetweenSongsS,
                                 kMaxSilenceBetweenSongsS);
    fPrefs.silenceBetweenSongsUs = s * kUsPerS;
}

void TPrefView::CBoxPlayMarkedLoopsChanged() {
    fPrefs.loops.on = fLoopsBox->isChecked();
    UpdateLoopComposEnabled();
}

// A value out of range is brought into it and shown as kept.
void TPrefView::TxtCtrlLoopTimesChanged() {
    fPrefs.loops.times = int32_t(std::clamp<int64_t>(
        read_integer(fLoopTimes->text()), TLoopSettings::kMinTimes, TLoopSettings::kMaxTimes));
    fLoopTimes->setText(QString::number(fPrefs.loops.times));
}

void TPrefView::TxtCtrlLoopFadeChanged() {
    fPrefs.loops.fadeSeconds = int32_t(
        std::clamp<int64_t>(read_integer(fLoopFade->text()), 0, TLoopSettings::kMaxFadeSeconds));
    fLoopFade->setText(QString::number(fPrefs.loops.fadeSeconds));
}

void TPrefView::RButtonAutoSortChanged() {
    const int checked = fAutoSortGroup->checkedId();
    if (checked == 1) {
        fPrefs.autoSortKind = TPref::kSortAscending;
    } else if (checked == 2) {
        fPrefs.autoSortKind = TPref::kSortDescending;
    } else {
        fPrefs.autoSortKind = TPref::kSortNone;
    }
}

void TPrefView::MFieldLanguageChanged() {
    const int index = fLanguage->currentIndex();
    if (index < 0) return;
    fPrefs.languageFile = fLanguage->itemData(index).toString().toStdString();
    NotifyPrefChange(quill::kMsgReloadLanguage);
}

void TPrefView::ButtonOKClicked() {
    window()->hide();
    fBackup = fPrefs;
    save_pref(false);
    veldan::TMessage message(quill::kMsgPrefChanged);
    message.AddString(quill::kStatBarStringField, fTexts.Text(kTextStatPrefChanged));
    NotifyPrefChange(message);
}

void TPrefView::ButtonCancelClicked() {
    const TPref edited = fPrefs;
    window()->hide();
    fPrefs = fBackup;
    NotifyPrefDiffe(edited, fPrefs);
    UpdateCompos();
}

// Only what another part caches must be told; the rest is read from the record at use.
void TPrefView::NotifyPrefDiffe(const TPref& edited, const TPref& restored) {
    if (edited.languageFile != restored.languageFile) NotifyPrefChange(quill::kMsgReloadLanguage);
}

void TPrefView::LanguageChanged() {
    for (const TLabelItem& item : kLabelItems) {
        const QString text = QString::fromUtf8(fTexts.Text(item.key));
        QObject* control = findChild<QObject*>(item.name);
        if (auto* label = qobject_cast<QLabel*>(control)) {
            label->setText(text);
        } else if (auto* button = qobject_cast<QAbstractButton*>(control)) {
            button->setText(text);
        } else if (auto* box = qobject_cast<QGroupBox*>(control)) {
            box->setTitle(text);
        }
    }
    fSynthBox->LanguageChanged();
    SetRangeTip(fAfterResetsTip.get(), kTextTipAfterResets, kMinSilenceAfterResetsMs,
                kMaxSilenceAfterResetsMs);
    SetRangeTip(fBetweenSongsTip.get(), kTextTipBetweenSongs, kMinSilenceBetweenSongsS,
                kMaxSilenceBetweenSongsS);
}

void TPrefView::SetRangeTip(veldan::TToolTip* tip, const char* textKey, int64_t min, int64_t max) {
    tip->SetTip(std::string(fTexts.Text(textKey)) + "\n " + std::to_string(min) + " " +
                fTexts.Text(kTextRangeHyphen) + " " + std::to_string(max));
}

void TPrefView::NodeLanguageChanged() { ReloadLanguageFiles(); }

// The application has already made the dropped file the language and saved it, so a
// later Cancel must keep it.
void TPrefView::LanguageFileDropped() {
    fBackup.languageFile = fPrefs.languageFile;
    ReloadLanguageFiles();
}

void TPrefView::ReloadLanguageFiles() {
    fUpdating = true;
    fLanguage->clear();
    for (const TLangFileInfo& file : get_lang_files(fLanguageFolders)) {
        fLanguage->addItem(QString::fromStdString(file.languageName),
                           QString::fromStdString(file.fileName));
    }
    MarkLanguage();
    fUpdating = false;
}

void TPrefView::MarkLanguage() {
    fLanguage->setCurrentIndex(fLanguage->findData(QString::fromStdString(fPrefs.languageFile)));
}

void TPrefView::UpdateCompos() {
    fUpdating = true;
    fSendSysResets->setChecked(fPrefs.sendSysResets);
    for (size_t i = 0; i < fResetBoxes.size(); ++i) {
        fResetBoxes[i]->setChecked((fPrefs.sysResetCombination & kResetBits[i]) != 0);
    }
    fAfterResets->setText(QString::number(fPrefs.silenceAfterResetsUs / kUsPerMs));
    fBetweenSongsBox->setChecked(fPrefs.waitBetweenSongs);
    fBetweenSongs->setText(QString::number(fPrefs.silenceBetweenSongsUs / kUsPerS));
    fChaseOnSeek->setChecked(fPrefs.chaseOnSeek);
    fLoopsBox->setChecked(fPrefs.loops.on);
    fLoopTimes->setText(QString::number(fPrefs.loops.times));
    fLoopFade->setText(QString::number(fPrefs.loops.fadeSeconds));
    fSynthBox->UpdateCompos();
    int sort = 0;
    if (fPrefs.autoSortKind == TPref::kSortAscending) sort = 1;
    if (fPrefs.autoSortKind == TPref::kSortDescending) sort = 2;
    fAutoSort[size_t(sort)]->setChecked(true);
    UpdateSRComposEnabled();
    UpdateSilenceIntervalBetweenSongsComposEnabled();
    UpdateLoopComposEnabled();
    MarkLanguage();
    fUpdating = false;
}

void TPrefView::UpdateSRComposEnabled() {
    const bool on = fPrefs.sendSysResets;
    for (QCheckBox* box : fResetBoxes) box->setEnabled(on);
    fAfterResetsLabel->setEnabled(on);
    fAfterResets->setEnabled(on);
    fAfterResetsUnit->setEnabled(on);
    set_text_colour(fAfterResetsUnit, on ? kEnabledTextColour : kDisabledTextColour);
}

void TPrefView::UpdateSilenceIntervalBetweenSongsComposEnabled() {
    const bool on = fPrefs.waitBetweenSongs;
    fBetweenSongs->setEnabled(on);
    fBetweenSongsUnit->setEnabled(on);
    set_text_colour(fBetweenSongsUnit, on ? kEnabledTextColour : kDisabledTextColour);
}

void TPrefView::UpdateLoopComposEnabled() {
    const bool on = fPrefs.loops.on;
    for (QWidget* widget :
         {static_cast<QWidget*>(fLoopTimes), static_cast<QWidget*>(fLoopTimesUnit),
          static_cast<QWidget*>(fLoopFade), static_cast<QWidget*>(fLoopFadeUnit)})
        widget->setEnabled(on);
    for (QLabel* unit : {fLoopTimesUnit, fLoopFadeUnit})
        set_text_colour(unit, on ? kEnabledTextColour : kDisabledTextColour);
}

void TPrefView::NotifyPrefChange(const veldan::TMessage& message) {
    veldan::post_message(fTarget, message);
}

void TPrefView::NotifyPrefChange(uint32_t code) { NotifyPrefChange(veldan::TMessage(code)); }

TPrefWin::TPrefWin(veldan::TLLT& texts, TPref& prefs, TLanguageFolders languageFolders,
                   QWidget* parent)
    : veldan::TMessageHandler<QDialog>(parent),
      fTexts(texts),
      fView(new TPrefView(texts, prefs, std::move(languageFolders), this)) {
    setObjectName("PrefWin");
    setAcceptDrops(true);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(fView);
    // The window follows its contents, so a longer language never cuts a label.
    layout->setSizeConstraint(QLayout::SetFixedSize);
    SetWinTitle();
}

void TPrefWin::SetWinTitle() { setWindowTitle(QString::fromUtf8(fTexts.Text(kTextWinTitle))); }

void TPrefWin::MessageReceived(veldan::TMessage* message) {
    switch (message->what) {
        case quill::kMsgLanguageChanged:
            SetWinTitle();
            fView->LanguageChanged();
            break;
        case quill::kMsgLanguageFileDropped:
            fView->LanguageFileDropped();
            break;
        case quill::kMsgLanguageFolderChanged:
            fView->NodeLanguageChanged();
            break;
        default:
            veldan::TMessageHandler<QDialog>::MessageReceived(message);
    }
}

void TPrefWin::reject() {
    // Cancel hides the window itself; QDialog's own reject would only hide it.
    fView->ButtonCancelClicked();
}

namespace {

// The first local language file among the dropped URLs; empty when there is none.
std::filesystem::path dropped_language_file(const QMimeData* data) {
    if (!data || !data->hasUrls()) return {};
    for (const QUrl& url : data->urls()) {
        if (!url.isLocalFile()) continue;
        const std::filesystem::path path(url.toLocalFile().toStdString());
        if (veldan::equals_ignoring_case(path.extension().string(), ".llt")) return path;
    }
    return {};
}

}  // namespace

void TPrefWin::dragEnterEvent(QDragEnterEvent* event) {
    if (!dropped_language_file(event->mimeData()).empty()) event->acceptProposedAction();
}

void TPrefWin::dropEvent(QDropEvent* event) {
    const std::filesystem::path file = dropped_language_file(event->mimeData());
    if (file.empty()) return;
    veldan::TMessage message(quill::kMsgLanguageFileDropped);
    message.AddRef(TPrefView::kRefsField, file);
    fView->NotifyPrefChange(message);
    event->acceptProposedAction();
}
