#pragma once
// Alerts and opening documents with the desktop's preferred application.
//
// An alert shows its title, a blank line and its text (the title also names the window),
// with one to three buttons in the order given; the last one is the default. Every button
// has a key: the one at escapeIndex answers Escape, each other one the lower-case form of
// the first character of its label. Alerts run modally and return the index of the button
// pressed; closing the window counts as the Escape button (-1 when there is none).

#include <QMessageBox>
#include <memory>
#include <string>

#include "veldan/core/alert_hook.h"

class QAbstractButton;

namespace veldan {

class TLLT;

// Language keys of the conventional failure alert.
inline constexpr char kTextAlertCaption[] = "Alert_Caption";
inline constexpr char kTextButtonUnderstand[] = "Button_Understand";

// The label of a one-button alert that was given none: "OK" in full-width letters.
inline constexpr char kDefaultButtonLabel[] = "ＯＫ";

// Builds the alert show_alert runs, without running it. b1 and b2 may be null.
std::unique_ptr<QMessageBox> make_alert(const char* title, const char* text, const char* b0,
                                        const char* b1, const char* b2, int escapeIndex,
                                        TAlertType type);
// The index of button among the alert's buttons; -1 when it is none of them.
int alert_button_index(const QMessageBox& alert, const QAbstractButton* button);

int show_alert(const char* title, const char* text, const char* b0, const char* b1, const char* b2,
               int escapeIndex, TAlertType type);
// A one-button alert; a null button reads kDefaultButtonLabel.
int show_msg(const char* title, const char* text, const char* button, TAlertType type);
// The conventional alert for a failure the user must see: the caption "Alert_Caption" and
// the one button "Button_Understand" from the language table.
int show_failure(const TLLT& texts, const std::string& text);
// show_msg as a function that code below the widgets can be given.
TShowMsgFn alert_show_msg_fn();

// Opens url with the preferred application; on failure a warning alert shows failText
// followed directly by the url, and false is returned.
bool show_url(const char* url, const char* title, const char* failText);
// Opens the document file, relative to the executable's folder unless absolute; on
// failure a warning alert shows failText followed by the document's full path.
bool show_help(const char* file, const char* title, const char* failText);

// Presses the button as if clicked: drawn down for 50 ms, then clicked. Null is ignored.
void click_button(QAbstractButton* button);

}  // namespace veldan
