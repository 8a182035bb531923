#pragma once
// The about window: the application's name, version and author, the language files that
// can be chosen, and the playlist loaders the player would use.
//
// Child names: "TabAbout" with the pages "TabApp", "TabLanguage" and "TabLoader";
// "StrViewAppName", "StrViewVersionLabel", "StrViewVersion", "StrViewAuthor";
// "LViewLanguages" (columns: language, writer, special thanks; the file name as
// Qt::UserRole data of column 0); "LViewLoaders" (columns: name and version, formats).
//
// Takes '_lgc' (relabel and show the author text of the new language), 'nlnc' (the
// language folder changed) and 'nloc' (the loader folder changed).

#include <QDialog>
#include <cstdint>
#include <filesystem>
#include <string>

#include "app/dialogs/lang_files.h"
#include "app/language_messages.h"
#include "playlist/app_messages.h"
#include "veldan/core/handler.h"

class QLabel;
class QTabWidget;
class QTreeWidget;

namespace veldan {
class TLLT;
}  // namespace veldan

class TAboutWin : public veldan::TMessageHandler<QDialog> {
  public:
    static constexpr char kAppDisplayName[] = "Quill MIDI";

    // Shows kAppDisplayName, kAppVersion and the author text of texts until SetAppInfo
    // says otherwise. texts must outlive the window.
    TAboutWin(const veldan::TLLT& texts, TLanguageFolders languageFolders,
              std::filesystem::path loaderFolder, QWidget* parent = nullptr);

    void SetAppInfo(const std::string& name, const std::string& version, const std::string& author);
    // Relabels everything and takes the author text from the language table.
    void LanguageChanged();
    void ReloadLanguageFiles();
    void ReloadLoaders();

    void MessageReceived(veldan::TMessage* message) override;

  private:
    void BuildLayout();
    QWidget* MakeAppTab();
    void FitColumns(QTreeWidget* list);

    const veldan::TLLT& fTexts;
    TLanguageFolders fLanguageFolders;
    std::filesystem::path fLoaderFolder;
    QTabWidget* fTabs = nullptr;
    QLabel* fAppName = nullptr;
    QLabel* fVersionLabel = nullptr;
    QLabel* fVersion = nullptr;
    QLabel* fAuthor = nullptr;
    QTreeWidget* fLanguages = nullptr;
    QTreeWidget* fLoaders = nullptr;
};
