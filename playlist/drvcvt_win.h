#pragma once
// The drive-letter settings window: edits a copy of the drive-letter table (see drvcvt.h)
// and writes it to "DriveLetter.arc" on OK. Cancel, the close box and every showing of
// the window read the copy from the file again, so edits that were not confirmed are lost.
//
// Child names: "DrvCvtView" holding "StrViewDesc", "ScrlViewTable" with the table
// "LViewTable" (one row per mapped letter: "C:  <-->  /windows"), "MFieldWinDL" with the
// menu field "MenuField" (letters A to Z) whose pop-up is "PopMenu", "TxtCtrlBeDL",
// "ButtonRegist", "ButtonRemove", "BoxSep", "ButtonOK", "ButtonCancel".
//
// Posts '_dcc' to the target (the application) after OK has saved the table; takes '_lgc'
// to relabel.

#include <QDialog>
#include <QPointer>
#include <QWidget>
#include <cstdint>

#include "playlist/app_messages.h"
#include "playlist/drvcvt.h"
#include "veldan/core/handler.h"

class QComboBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;

namespace veldan {
class TLLT;
}  // namespace veldan

class TDrvCvtView : public QWidget {
  public:
    // texts must outlive the view; it is read again at every relabelling.
    explicit TDrvCvtView(const veldan::TLLT& texts, QWidget* parent = nullptr);

    void SetTarget(QObject* target) { fTarget = target; }
    // The copy being edited.
    const TDrvCvt& Table() const { return fTable; }

    void MFieldWinDLChanged();
    void LViewTableSelectionChanged();
    void ButtonRegistClicked();
    void ButtonRemoveClicked();
    void ButtonOKClicked();
    void ButtonCancelClicked();

    // Discards the edits: the defaults, then the file.
    void ReloadTable();
    void LanguageChanged();

  private:
    void BuildLayout();
    void UpdateTable();
    char MarkedLetter() const;

    const veldan::TLLT& fTexts;
    TDrvCvt fTable;
    QPointer<QObject> fTarget;
    QLabel* fDescription = nullptr;
    QListWidget* fList = nullptr;
    QComboBox* fLetters = nullptr;
    QLineEdit* fPath = nullptr;
    QPushButton* fRegister = nullptr;
    QPushButton* fRemove = nullptr;
    QPushButton* fOK = nullptr;
    QPushButton* fCancel = nullptr;
};

class TDrvCvtWin : public veldan::TMessageHandler<QDialog> {
  public:
    explicit TDrvCvtWin(const veldan::TLLT& texts, QWidget* parent = nullptr);

    void SetTarget(QObject* target) { fView->SetTarget(target); }
    TDrvCvtView* View() const { return fView; }
    void LanguageChanged();

    void MessageReceived(veldan::TMessage* message) override;
    // The close box and Escape act as Cancel.
    void reject() override;

  protected:
    void showEvent(QShowEvent* event) override;

  private:
    const veldan::TLLT& fTexts;
    TDrvCvtView* fView;
};
