#include "veldan/widgets/alert.h"

#include <gtest/gtest.h>

#include <QByteArray>
#include <QDesktopServices>
#include <QPushButton>
#include <QTimer>
#include <QUrl>
#include <functional>

#include "tests/support/temp_dir.h"
#include "tests/support/widget_app.h"
#include "veldan/core/llt.h"

using veldan::TAlertType;

namespace {

// Answers the next modal alert from inside its event loop: inspect, then act on it.
void answer_next_alert(std::function<void(QMessageBox*)> answer) {
    QTimer::singleShot(0, [answer = std::move(answer)] {
        QMessageBox* alert = nullptr;
        process_until([&] {
            alert = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            return alert != nullptr;
        });
        ASSERT_NE(alert, nullptr) << "no alert appeared";
        answer(alert);
    });
}

void press_key(QMessageBox* alert, Qt::Key key) { QTest::keyClick(alert, key); }

class Alert : public TWidgetTest {};

TEST_F(Alert, EveryButtonAnswersItsFirstLetterAndTheEscapeButtonEscape) {
    auto alert =
        veldan::make_alert("Title", "Text", "Save", "Discard", "Cancel", 1, TAlertType::kWarning);
    const QList<QAbstractButton*> buttons = alert->buttons();
    ASSERT_EQ(buttons.size(), 3);
    EXPECT_EQ(buttons[0]->text(), "Save");
    EXPECT_EQ(buttons[0]->shortcut(), QKeySequence("s"));
    EXPECT_EQ(alert->escapeButton(), buttons[1]);
    EXPECT_TRUE(buttons[1]->shortcut().isEmpty());
    EXPECT_EQ(buttons[2]->shortcut(), QKeySequence("c"));
    EXPECT_EQ(alert->defaultButton(), buttons[2]);
}

TEST_F(Alert, TextIsTheTitleABlankLineAndTheText) {
    auto alert = veldan::make_alert("Quill MIDI", "Something failed", "OK", nullptr, nullptr, 0,
                                    TAlertType::kStop);
    EXPECT_EQ(alert->text(), "Quill MIDI\n\nSomething failed");
    EXPECT_EQ(alert->objectName(), "Title");
    EXPECT_EQ(alert->windowTitle(), "Quill MIDI");
    EXPECT_EQ(alert->icon(), QMessageBox::Critical);
    EXPECT_EQ(alert->buttons().size(), 1);
}

TEST_F(Alert, ALetterKeyPressesItsButton) {
    answer_next_alert([](QMessageBox* alert) { QTest::keyClick(alert, 'd'); });
    EXPECT_EQ(veldan::show_alert("T", "Save changes?", "Save", "Discard", "Cancel", 2,
                                 TAlertType::kWarning),
              1);
}

TEST_F(Alert, EscapePressesTheEscapeButton) {
    answer_next_alert([](QMessageBox* alert) { press_key(alert, Qt::Key_Escape); });
    EXPECT_EQ(veldan::show_alert("T", "Save changes?", "Save", "Discard", "Cancel", 1,
                                 TAlertType::kWarning),
              1);
}

TEST_F(Alert, OneButtonAlertWithoutLabelSaysFullWidthOK) {
    QString label;
    answer_next_alert([&label](QMessageBox* alert) {
        label = alert->buttons().value(0)->text();
        press_key(alert, Qt::Key_Return);
    });
    EXPECT_EQ(veldan::show_msg("T", "Done", nullptr, TAlertType::kInfo), 0);
    EXPECT_EQ(label, QString::fromUtf8("ＯＫ"));
}

TEST_F(Alert, FailureAlertTakesCaptionAndButtonFromTheLanguage) {
    veldan::TLLT texts;
    ASSERT_EQ(texts.LoadData(QByteArray("[Informations]\nHeader = LLT File Format 100\n[Data]\n"
                                        "Alert_Caption = Caption Here\n"
                                        "Button_Understand = Understood\n")),
              0);
    QString text;
    QString button;
    answer_next_alert([&](QMessageBox* alert) {
        text = alert->text();
        button = alert->buttons().value(0)->text();
        QTest::keyClick(alert, 'u');
    });
    EXPECT_EQ(veldan::show_failure(texts, "Disk full"), 0);
    EXPECT_EQ(text, "Caption Here\n\nDisk full");
    EXPECT_EQ(button, "Understood");
}

TEST_F(Alert, MissingLanguageKeysCanBeShownThroughTheAlert) {
    veldan::TLLT texts;
    texts.SetShowMsg(veldan::alert_show_msg_fn());
    texts.SET_SHOW_DB_INFO(true);
    QString text;
    answer_next_alert([&](QMessageBox* alert) {
        text = alert->text();
        press_key(alert, Qt::Key_Return);
    });
    EXPECT_STREQ(texts.Text("No_Such_Key"), "");
    EXPECT_EQ(text, "TLLT::Text\n\nNo_Such_Key");
}

TEST_F(Alert, ClickButtonShowsThePressThenClicks) {
    QPushButton button("Go");
    int clicks = 0;
    QObject::connect(&button, &QPushButton::clicked, [&] { ++clicks; });
    veldan::click_button(&button);
    EXPECT_EQ(clicks, 1);
    EXPECT_FALSE(button.isDown());
    veldan::click_button(nullptr);
}

}  // namespace

// Receives the file URLs that would go to the desktop's preferred application.
class TUrlCatcher : public QObject {
    Q_OBJECT
  public:
    QList<QUrl> opened;

  public slots:
    void Open(const QUrl& url) { opened.append(url); }
};

namespace {

TEST_F(Alert, HelpOpensTheDocumentAsAFileUrl) {
    TTempDir dir;
    const std::filesystem::path document = dir.Write("Quill Help.htm", "<html></html>");
    TUrlCatcher catcher;
    QDesktopServices::setUrlHandler("file", &catcher, "Open");
    const bool opened = veldan::show_help(document.c_str(), "Help", "Cannot open: ");
    QDesktopServices::unsetUrlHandler("file");
    EXPECT_TRUE(opened);
    ASSERT_EQ(catcher.opened.size(), 1);
    EXPECT_EQ(catcher.opened[0].toLocalFile().toStdString(), document.string());
}

TEST_F(Alert, AMissingHelpDocumentIsToldWithItsFullPath) {
    QString text;
    answer_next_alert([&](QMessageBox* alert) {
        text = alert->text();
        press_key(alert, Qt::Key_Return);
    });
    EXPECT_FALSE(veldan::show_help("No Such Help.htm", "Help", "Cannot open: "));
    EXPECT_TRUE(text.startsWith("Help\n\nCannot open: /")) << text.toStdString();
    EXPECT_TRUE(text.endsWith("/No Such Help.htm")) << text.toStdString();
}

TEST_F(Alert, UrlGoesToItsSchemesHandler) {
    TUrlCatcher catcher;
    QDesktopServices::setUrlHandler("https", &catcher, "Open");
    const bool opened = veldan::show_url("https://example.org/quill", "Web", "Cannot show: ");
    QDesktopServices::unsetUrlHandler("https");
    EXPECT_TRUE(opened);
    ASSERT_EQ(catcher.opened.size(), 1);
    EXPECT_EQ(catcher.opened[0].toString(), "https://example.org/quill");
}

}  // namespace

#include "alert_test.moc"
