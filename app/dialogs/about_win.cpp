#include "app/dialogs/about_win.h"

#include <QApplication>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QScrollBar>
#include <QTabWidget>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <algorithm>
#include <utility>

#include "app/dialogs/lang_files.h"
#include "app/settings/exit_state.h"
#include "playlist/loader_host.h"
#include "veldan/core/llt.h"
#include "veldan/widgets/lang_key.h"

namespace {

using veldan::llt_key;

constexpr char kTextWinTitle[] = "About_Win_Title";
constexpr char kTextAppAuthor[] = "App_Author";
constexpr char kTextVersion[] = "About_Version";

constexpr int kAppIconSize = 64;

enum TTab : int { kTabApp = 0, kTabLanguage, kTabLoader };
constexpr const char* kTabKeys[] = {llt_key("About_Tab_App"), llt_key("About_Tab_Language"),
                                    llt_key("About_Tab_Loader")};

constexpr const char* kLanguageColumnKeys[] = {
    llt_key("About_Language_Name"), llt_key("About_Writer"), llt_key("About_Special_Thanks")};
constexpr const char* kLoaderColumnKeys[] = {llt_key("About_Loader_Name"),
                                             llt_key("About_Loader_Formats")};

// Rows of the lists, so that the window opens showing a few without scrolling.
constexpr int kVisibleRows = 6;

QTreeWidget* make_list(const char* name, int columns) {
    auto* list = new QTreeWidget;
    list->setObjectName(name);
    list->setColumnCount(columns);
    list->setRootIsDecorated(false);
    list->setSelectionMode(QAbstractItemView::NoSelection);
    list->setFocusPolicy(Qt::NoFocus);
    list->header()->setStretchLastSection(true);
    list->header()->setSectionsMovable(false);
    return list;
}

QString from_std(const std::string& text) { return QString::fromStdString(text); }

}  // namespace

TAboutWin::TAboutWin(const veldan::TLLT& texts, TLanguageFolders languageFolders,
                     std::filesystem::path loaderFolder, QWidget* parent)
    : veldan::TMessageHandler<QDialog>(parent),
      fTexts(texts),
      fLanguageFolders(std::move(languageFolders)),
      fLoaderFolder(std::move(loaderFolder)) {
    setObjectName("AboutWin");
    BuildLayout();
    SetAppInfo(kAppDisplayName, kAppVersion, fTexts.Text(kTextAppAuthor));
    LanguageChanged();
    ReloadLanguageFiles();
    ReloadLoaders();
}

void TAboutWin::BuildLayout() {
    fTabs = new QTabWidget(this);
    fTabs->setObjectName("TabAbout");
    fTabs->addTab(MakeAppTab(), QString());

    fLanguages = make_list("LViewLanguages", int(std::size(kLanguageColumnKeys)));
    auto* languagePage = new QWidget;
    languagePage->setObjectName("TabLanguage");
    (new QVBoxLayout(languagePage))->addWidget(fLanguages);
    fTabs->addTab(languagePage, QString());

    fLoaders = make_list("LViewLoaders", int(std::size(kLoaderColumnKeys)));
    auto* loaderPage = new QWidget;
    loaderPage->setObjectName("TabLoader");
    (new QVBoxLayout(loaderPage))->addWidget(fLoaders);
    fTabs->addTab(loaderPage, QString());

    auto* column = new QVBoxLayout(this);
    column->addWidget(fTabs);
}

QWidget* TAboutWin::MakeAppTab() {
    auto* page = new QWidget;
    page->setObjectName("TabApp");
    fAppName = new QLabel(page);
    fAppName->setObjectName("StrViewAppName");
    QFont large = fAppName->font();
    large.setPointSizeF(large.pointSizeF() * 1.6);
    large.setBold(true);
    fAppName->setFont(large);

    fVersionLabel = new QLabel(page);
    fVersionLabel->setObjectName("StrViewVersionLabel");
    fVersion = new QLabel(page);
    fVersion->setObjectName("StrViewVersion");
    fVersion->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto* version = new QFormLayout;
    version->setContentsMargins(0, 0, 0, 0);
    version->addRow(fVersionLabel, fVersion);

    fAuthor = new QLabel(page);
    fAuthor->setObjectName("StrViewAuthor");
    fAuthor->setWordWrap(true);

    // The application's icon, which is the desktop theme's when one is installed, as the
    // window and the tray show it.
    auto* icon = new QLabel(page);
    icon->setObjectName("StrViewAppIcon");
    icon->setPixmap(QApplication::windowIcon().pixmap(kAppIconSize));
    auto* heading = new QHBoxLayout;
    heading->addWidget(icon);
    heading->addWidget(fAppName, 1);

    auto* column = new QVBoxLayout(page);
    column->addLayout(heading);
    column->addLayout(version);
    column->addSpacing(fAppName->fontMetrics().height() / 2);
    column->addWidget(fAuthor);
    column->addStretch(1);
    return page;
}

void TAboutWin::SetAppInfo(const std::string& name, const std::string& version,
                           const std::string& author) {
    fAppName->setText(from_std(name));
    fVersion->setText(from_std(version));
    fAuthor->setText(from_std(author));
}

void TAboutWin::LanguageChanged() {
    setWindowTitle(QString::fromUtf8(fTexts.Text(kTextWinTitle)));
    for (int i = 0; i < int(std::size(kTabKeys)); ++i) {
        fTabs->setTabText(i, QString::fromUtf8(fTexts.Text(kTabKeys[i])));
    }
    fVersionLabel->setText(QString::fromUtf8(fTexts.Text(kTextVersion)));
    fAuthor->setText(QString::fromUtf8(fTexts.Text(kTextAppAuthor)));
    QStringList languageColumns;
    for (const char* key : kLanguageColumnKeys)
        languageColumns << QString::fromUtf8(fTexts.Text(key));
    fLanguages->setHeaderLabels(languageColumns);
    QStringList loaderColumns;
    for (const char* key : kLoaderColumnKeys) loaderColumns << QString::fromUtf8(fTexts.Text(key));
    fLoaders->setHeaderLabels(loaderColumns);
    FitColumns(fLanguages);
    FitColumns(fLoaders);
}

void TAboutWin::ReloadLanguageFiles() {
    fLanguages->clear();
    for (const TLangFileInfo& file : get_lang_files(fLanguageFolders)) {
        auto* row = new QTreeWidgetItem(
            fLanguages, QStringList{from_std(file.languageName), from_std(file.writer),
                                    from_std(file.specialThanks)});
        row->setData(0, Qt::UserRole, from_std(file.fileName));
        row->setToolTip(0, from_std(file.fileName));
    }
    FitColumns(fLanguages);
}

void TAboutWin::ReloadLoaders() {
    fLoaders->clear();
    // The loaders are made only to ask them who they are; the playlist views keep lists
    // of their own.
    TLoaderList loaders;
    load_container_loader(&loaders, fLoaderFolder);
    for (const auto& loader : loaders) {
        auto* row = new QTreeWidgetItem(
            fLoaders, QStringList{from_std(loader->Name() + " " + loader->Version()),
                                  from_std(loader->Description())});
        const std::string where = loader->Path().empty() ? std::string() : "\n" + loader->Path();
        row->setToolTip(0, from_std(loader->Copyright() + where));
    }
    unload_container_loader(&loaders);
    FitColumns(fLoaders);
}

// Every column as wide as its widest text, and the list wide and tall enough to show
// them, so that no name is cut in any language.
void TAboutWin::FitColumns(QTreeWidget* list) {
    // A gap between columns, as wide as two letters, keeps neighbouring texts apart.
    const int gap = 2 * list->fontMetrics().averageCharWidth();
    int width = 0;
    for (int i = 0; i < list->columnCount(); ++i) {
        list->resizeColumnToContents(i);
        list->setColumnWidth(i, list->columnWidth(i) + gap);
        width += list->columnWidth(i);
    }
    const int frame = 2 * list->frameWidth();
    list->setMinimumWidth(width + frame + list->verticalScrollBar()->sizeHint().width());
    const int rowHeight = std::max(list->fontMetrics().height(), 16) + 4;
    list->setMinimumHeight(list->header()->sizeHint().height() + kVisibleRows * rowHeight + frame);
}

void TAboutWin::MessageReceived(veldan::TMessage* message) {
    switch (message->what) {
        case quill::kMsgLanguageChanged:
            LanguageChanged();
            break;
        case quill::kMsgLanguageFolderChanged:
            ReloadLanguageFiles();
            break;
        case quill::kMsgLoaderFolderChanged:
            ReloadLoaders();
            break;
        default:
            veldan::TMessageHandler<QDialog>::MessageReceived(message);
    }
}
