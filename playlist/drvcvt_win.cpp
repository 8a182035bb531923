#include "playlist/drvcvt_win.h"

#include <QComboBox>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QShowEvent>
#include <QVBoxLayout>
#include <algorithm>
#include <string>

#include "veldan/core/llt.h"

namespace {

constexpr char kTextWinTitle[] = "DLC_Drv_Cvt_Prefs_Win_Title";
constexpr char kTextDescription[] = "DLC_Description";
constexpr char kTextRegist[] = "DLC_Button_Regist";
constexpr char kTextRemove[] = "DLC_Button_Remove";
constexpr char kTextOK[] = "Button_OK";
constexpr char kTextCancel[] = "Button_Cancel";

constexpr char kRowSeparator[] = "  <-->  ";
// Room for a typical mount path in the text field and the table.
constexpr int kPathChars = 32;
constexpr int kTableRows = 8;

QPushButton* make_button(const char* name, QWidget* parent) {
    auto* button = new QPushButton(parent);
    button->setObjectName(name);
    button->setAutoDefault(false);
    return button;
}

}  // namespace

TDrvCvtView::TDrvCvtView(const veldan::TLLT& texts, QWidget* parent)
    : QWidget(parent), fTexts(texts) {
    setObjectName("DrvCvtView");
    BuildLayout();
    LanguageChanged();
    UpdateTable();
    MFieldWinDLChanged();
}

void TDrvCvtView::BuildLayout() {
    fDescription = new QLabel(this);
    fDescription->setObjectName("StrViewDesc");
    fDescription->setWordWrap(true);

    auto* scroller = new QWidget(this);
    scroller->setObjectName("ScrlViewTable");
    fList = new QListWidget(scroller);
    fList->setObjectName("LViewTable");
    fList->setSelectionMode(QAbstractItemView::SingleSelection);
    auto* scrollerLayout = new QVBoxLayout(scroller);
    scrollerLayout->setContentsMargins(0, 0, 0, 0);
    scrollerLayout->addWidget(fList);
    const QFontMetrics metrics = fontMetrics();
    const QString widest = QString("W:") + kRowSeparator + QString(kPathChars, QLatin1Char('x'));
    fList->setMinimumSize(metrics.horizontalAdvance(widest) + 2 * fList->frameWidth(),
                          kTableRows * metrics.lineSpacing() + 2 * fList->frameWidth());
    fDescription->setMinimumWidth(fList->minimumWidth());

    auto* field = new QWidget(this);
    field->setObjectName("MFieldWinDL");
    fLetters = new QComboBox(field);
    fLetters->setObjectName("MenuField");
    fLetters->view()->setObjectName("PopMenu");
    for (char letter = 'A'; letter <= 'Z'; ++letter) fLetters->addItem(QString(QChar(letter)));
    fLetters->setCurrentIndex('C' - 'A');
    auto* fieldLayout = new QHBoxLayout(field);
    fieldLayout->setContentsMargins(0, 0, 0, 0);
    fieldLayout->addWidget(fLetters);
    fieldLayout->addWidget(new QLabel(":", field));

    fPath = new QLineEdit(this);
    fPath->setObjectName("TxtCtrlBeDL");
    fPath->setMinimumWidth(metrics.horizontalAdvance(QString(kPathChars / 2, QLatin1Char('x'))));

    fRegister = make_button("ButtonRegist", this);
    fRemove = make_button("ButtonRemove", this);
    auto* separator = new QFrame(this);
    separator->setObjectName("BoxSep");
    separator->setFrameShape(QFrame::HLine);
    separator->setFrameShadow(QFrame::Sunken);
    fCancel = make_button("ButtonCancel", this);
    fOK = make_button("ButtonOK", this);
    fOK->setDefault(true);

    auto* entry = new QGridLayout;
    entry->addWidget(field, 0, 0);
    entry->addWidget(fPath, 0, 1, 1, 3);
    entry->setColumnStretch(1, 1);
    entry->addWidget(fRemove, 1, 2);
    entry->addWidget(fRegister, 1, 3);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(fCancel);
    buttons->addWidget(fOK);

    auto* column = new QVBoxLayout(this);
    column->addWidget(fDescription);
    column->addWidget(scroller, 1);
    column->addLayout(entry);
    column->addWidget(separator);
    column->addLayout(buttons);

    connect(fLetters, &QComboBox::currentIndexChanged, this, &TDrvCvtView::MFieldWinDLChanged);
    connect(fList, &QListWidget::itemSelectionChanged, this,
            &TDrvCvtView::LViewTableSelectionChanged);
    connect(fRegister, &QPushButton::clicked, this, &TDrvCvtView::ButtonRegistClicked);
    connect(fRemove, &QPushButton::clicked, this, &TDrvCvtView::ButtonRemoveClicked);
    connect(fOK, &QPushButton::clicked, this, &TDrvCvtView::ButtonOKClicked);
    connect(fCancel, &QPushButton::clicked, this, &TDrvCvtView::ButtonCancelClicked);
    // Return in the path field registers, rather than confirming the whole window.
    connect(fPath, &QLineEdit::returnPressed, this, &TDrvCvtView::ButtonRegistClicked);
}

char TDrvCvtView::MarkedLetter() const { return char('A' + std::max(fLetters->currentIndex(), 0)); }

void TDrvCvtView::MFieldWinDLChanged() {
    std::string path;
    fTable.GetBeDL(MarkedLetter(), &path);
    fPath->setText(QString::fromStdString(path));
}

// Choosing a row picks its letter, so that its path can be edited at once.
void TDrvCvtView::LViewTableSelectionChanged() {
    const QList<QListWidgetItem*> selected = fList->selectedItems();
    if (selected.isEmpty() || selected.front()->text().isEmpty()) return;
    const QChar letter = selected.front()->text().front();
    if (letter >= QLatin1Char('A') && letter <= QLatin1Char('Z')) {
        fLetters->setCurrentIndex(letter.unicode() - 'A');
    }
}

void TDrvCvtView::ButtonRegistClicked() {
    std::string path = fPath->text().toStdString();
    if (!path.empty() && path.front() != '/') path.insert(path.begin(), '/');
    fTable.SetBeDL(MarkedLetter(), path);
    UpdateTable();
    MFieldWinDLChanged();
}

void TDrvCvtView::ButtonRemoveClicked() {
    const QList<QListWidgetItem*> selected = fList->selectedItems();
    if (selected.isEmpty() || selected.front()->text().isEmpty()) return;
    fTable.SetBeDL(char(selected.front()->text().front().unicode()), std::string());
    UpdateTable();
    MFieldWinDLChanged();
}

void TDrvCvtView::ButtonOKClicked() {
    window()->hide();
    if (fTable.Save()) veldan::post_message(fTarget, veldan::TMessage(quill::kMsgDrvCvtChanged));
}

void TDrvCvtView::ButtonCancelClicked() {
    window()->hide();
    ReloadTable();
}

void TDrvCvtView::ReloadTable() {
    fTable = TDrvCvt();
    UpdateTable();
    MFieldWinDLChanged();
}

void TDrvCvtView::UpdateTable() {
    fList->clear();
    for (char letter = 'A'; letter <= 'Z'; ++letter) {
        std::string path;
        if (!fTable.GetBeDL(letter, &path)) continue;
        fList->addItem(QString(QChar(letter)) + ":" + kRowSeparator + QString::fromStdString(path));
    }
}

void TDrvCvtView::LanguageChanged() {
    fDescription->setText(QString::fromUtf8(fTexts.Text(kTextDescription)));
    // Layouts size a window from minimum heights, which know nothing of wrapping; as tall as
    // the text wraps at the narrowest width, the description is never cut.
    fDescription->setMinimumHeight(fDescription->heightForWidth(fDescription->minimumWidth()));
    fRegister->setText(QString::fromUtf8(fTexts.Text(kTextRegist)));
    fRemove->setText(QString::fromUtf8(fTexts.Text(kTextRemove)));
    fOK->setText(QString::fromUtf8(fTexts.Text(kTextOK)));
    fCancel->setText(QString::fromUtf8(fTexts.Text(kTextCancel)));
}

TDrvCvtWin::TDrvCvtWin(const veldan::TLLT& texts, QWidget* parent)
    : veldan::TMessageHandler<QDialog>(parent), fTexts(texts), fView(new TDrvCvtView(texts, this)) {
    setObjectName("DrvCvtWin");
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(fView);
    LanguageChanged();
}

void TDrvCvtWin::LanguageChanged() {
    setWindowTitle(QString::fromUtf8(fTexts.Text(kTextWinTitle)));
    fView->LanguageChanged();
}

void TDrvCvtWin::MessageReceived(veldan::TMessage* message) {
    if (message->what == quill::kMsgLanguageChanged) {
        LanguageChanged();
    } else {
        veldan::TMessageHandler<QDialog>::MessageReceived(message);
    }
}

void TDrvCvtWin::reject() { fView->ButtonCancelClicked(); }

void TDrvCvtWin::showEvent(QShowEvent* event) {
    // A window brought back from the task bar is no reopening; its edits stay.
    if (!event->spontaneous()) fView->ReloadTable();
    veldan::TMessageHandler<QDialog>::showEvent(event);
}
