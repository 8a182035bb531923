#include "veldan/widgets/alert.h"

#include <QAbstractButton>
#include <QDesktopServices>
#include <QFileInfo>
#include <QPushButton>
#include <QThread>
#include <QUrl>
#include <filesystem>

#include "veldan/core/entry.h"
#include "veldan/core/llt.h"

namespace veldan {

namespace {

constexpr int kClickDownMs = 50;

QMessageBox::Icon icon_for(TAlertType type) {
    switch (type) {
        case TAlertType::kInfo:
        case TAlertType::kIdea:
            return QMessageBox::Information;
        case TAlertType::kWarning:
            return QMessageBox::Warning;
        case TAlertType::kStop:
            return QMessageBox::Critical;
    }
    return QMessageBox::NoIcon;
}

// The alert answers the key of a button's first character, as the user reads it.
QKeySequence first_character_key(const QString& label) {
    if (label.isEmpty()) return QKeySequence();
    return QKeySequence(label.left(1).toLower());
}

bool open_or_tell(const QUrl& url, const char* title, const std::string& failText) {
    const bool missing = url.isLocalFile() && !QFileInfo::exists(url.toLocalFile());
    if (!missing && QDesktopServices::openUrl(url)) return true;
    show_msg(title, failText.c_str(), kDefaultButtonLabel, TAlertType::kWarning);
    return false;
}

}  // namespace

std::unique_ptr<QMessageBox> make_alert(const char* title, const char* text, const char* b0,
                                        const char* b1, const char* b2, int escapeIndex,
                                        TAlertType type) {
    const QString caption = QString::fromUtf8(title ? title : "");
    auto alert = std::make_unique<QMessageBox>();
    alert->setObjectName(QStringLiteral("Title"));
    alert->setWindowTitle(caption);
    alert->setText(caption + QStringLiteral("\n\n") + QString::fromUtf8(text ? text : ""));
    alert->setIcon(icon_for(type));

    const char* labels[] = {b0, b1, b2};
    int index = 0;
    for (const char* label : labels) {
        if (!label) continue;
        // One role for all keeps the buttons in the order given.
        QPushButton* button = alert->addButton(QString::fromUtf8(label), QMessageBox::ActionRole);
        if (index == escapeIndex) {
            alert->setEscapeButton(button);
        } else {
            button->setShortcut(first_character_key(button->text()));
        }
        alert->setDefaultButton(button);
        ++index;
    }
    return alert;
}

int alert_button_index(const QMessageBox& alert, const QAbstractButton* button) {
    return alert.buttons().indexOf(const_cast<QAbstractButton*>(button));
}

int show_alert(const char* title, const char* text, const char* b0, const char* b1, const char* b2,
               int escapeIndex, TAlertType type) {
    std::unique_ptr<QMessageBox> alert = make_alert(title, text, b0, b1, b2, escapeIndex, type);
    alert->exec();
    return alert_button_index(*alert, alert->clickedButton());
}

int show_msg(const char* title, const char* text, const char* button, TAlertType type) {
    return show_alert(title, text, button ? button : kDefaultButtonLabel, nullptr, nullptr, 0,
                      type);
}

int show_failure(const TLLT& texts, const std::string& text) {
    return show_alert(texts.Text(kTextAlertCaption), text.c_str(),
                      texts.Text(kTextButtonUnderstand), nullptr, nullptr, -1,
                      TAlertType::kWarning);
}

TShowMsgFn alert_show_msg_fn() {
    return [](const char* title, const char* text, const char* button, TAlertType type) {
        show_msg(title, text, button, type);
    };
}

bool show_url(const char* url, const char* title, const char* failText) {
    const std::string address = url ? url : "";
    return open_or_tell(QUrl(QString::fromStdString(address)), title,
                        std::string(failText ? failText : "") + address);
}

bool show_help(const char* file, const char* title, const char* failText) {
    std::filesystem::path document;
    if (!get_entry(file, &document, BD_APP, nullptr)) document = file ? file : "";
    return open_or_tell(QUrl::fromLocalFile(QString::fromStdString(document.string())), title,
                        std::string(failText ? failText : "") + document.string());
}

void click_button(QAbstractButton* button) {
    if (!button) return;
    button->setDown(true);
    button->repaint();
    QThread::msleep(kClickDownMs);
    button->setDown(false);
    button->click();
}

}  // namespace veldan
