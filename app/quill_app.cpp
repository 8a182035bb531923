#include "app/quill_app.h"

#include <QApplication>
#include <QFile>
#include <QProcess>
#include <QScreen>
#include <QStandardPaths>
#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <system_error>

#include "app/dialogs/about_win.h"
#include "app/dialogs/pref_win.h"
#include "app/first_sound.h"
#include "app/quill_win.h"
#include "app/settings/settings.h"
#include "midi/synth.h"
#include "player/control_bar.h"
#include "player/quill_view.h"
#include "player/resources.h"
#include "playlist/drvcvt_win.h"
#include "playlist/native_loader.h"
#include "playlist/orvick_view.h"
#include "veldan/base/atomic_file.h"
#include "veldan/core/entry.h"
#include "veldan/core/llt.h"
#include "veldan/widgets/alert.h"

namespace fs = std::filesystem;

namespace {

constexpr char kLanguageFolder[] = "Language";
constexpr char kStatCannotAddLanguage[] = "Stat_Str_Cannot_Add_Language";
constexpr char kLoaderFolder[] = "Loader";
constexpr char kTextCannotOpenHelp[] = "Err_Cannot_Open_Help";
constexpr char kTextCannotOpenWeb[] = "Err_Cannot_Open_Web";
constexpr char kTextTranslationsUrl[] = "Author_Web_URL";
constexpr char kTextCannotCreatePrefWin[] = "Err_Cannot_Create_Pref_Win";
constexpr char kTextSynthToFile[] = "Stat_Str_Synth_To_File";
constexpr char kTextNoSequencer[] = "Stat_Str_No_MIDI_Sequencer";
constexpr char kTextCannotStartSynth[] = "Err_Cannot_Start_Synth";
// Below the main window's top edge, so both title bars stay visible.
constexpr int kSecondaryWindowOffset = 20;

// The one alert whose texts are fixed: no language may be loaded when it shows.
constexpr char kNoLanguageCaption[] = "* Quill MIDI *";
constexpr char kNoLanguageText[] = "Can't load language file:\n";
constexpr char kNoLanguageButton[] = "U - Understand";

// The same package that installing the program puts into the system's MIME folder.
constexpr char kMimePackageResource[] = ":/mime/playlist.xml";

QRect rect_of(const veldan::TRect& frame) {
    return QRect(QPoint(int(frame.left), int(frame.top)),
                 QPoint(int(frame.right), int(frame.bottom)));
}

// A frame kept from a monitor that is no longer there comes back onto the primary screen.
// One that still shows a good part of its title band on some screen stays, even partly
// off an edge: the user may have put it there.
QRect on_screen(QRect frame) {
    constexpr int kGrip = 40;  // of the title band that must show, in each direction
    const QRect band(frame.topLeft(), QSize(frame.width(), kGrip));
    for (const QScreen* screen : QGuiApplication::screens()) {
        const QRect shown = screen->availableGeometry().intersected(band);
        if (shown.width() >= kGrip && shown.height() >= kGrip / 2) return frame;
    }
    const QScreen* primary = QGuiApplication::primaryScreen();
    if (!primary) return frame;
    const QRect area = primary->availableGeometry();
    frame.setSize(frame.size().boundedTo(area.size()));
    frame.moveTo(std::clamp(frame.left(), area.left(), area.right() - frame.width() + 1),
                 std::clamp(frame.top(), area.top(), area.bottom() - frame.height() + 1));
    return frame;
}

}  // namespace

TQuillApp::TQuillApp(const TOptions& options) : fExeFolder(options.exeFolder) {
    quill::init_resources();
    StartMidi(options);
    watch_first_sound(this, [this] { return fSynth.get(); });
    LoadLanguage();
    if (!fSynthProblem.empty()) TellSynthProblem(fSynthProblem);
    if (exit_state().version != kAppVersion) InstallPlayListMime();

    // The window opens at its expanded height whatever it was at exit.
    QRect frame = rect_of(exit_state().frame);
    frame.setHeight(int(exit_state().expandedHeight));
    frame = on_screen(frame);
    fMainWin =
        new TQuillWin(language_table(), pref(), exit_state(), this, fExeFolder / kLoaderFolder);
    fMainWin->setGeometry(frame);
    // The one converter, which the drive-letter settings window's OK reloads.
    fMainWin->View()->OrvickView()->SetDrvCvt(&app_privacy());
    QObject::connect(&fMainWin->View()->Controller(), &quill::TQuillController::StateChanged, this,
                     [this](TMarnelState state) {
                         app_privacy().SetState(state);
                         if (fMpris) fMpris->StateChanged();
                     });
    LoadAIDatabase();
    fMainWin->RestoreExitState();
    StartMpris();
    OpenFiles(options.files);
    fMainWin->show();
    ShowMidiStatus(options.startSystemMidi);

    connect(&fLanguageWatcher, &QFileSystemWatcher::directoryChanged, this,
            [this] { post_message(this, veldan::TMessage(quill::kMsgLanguageFolderChanged)); });
    connect(&fLanguageWatcher, &QFileSystemWatcher::fileChanged, this,
            [this] { post_message(this, veldan::TMessage(quill::kMsgLanguageFolderChanged)); });
    connect(&fLoaderWatcher, &QFileSystemWatcher::directoryChanged, this,
            [this] { post_message(this, veldan::TMessage(quill::kMsgLoaderFolderChanged)); });
    SetNodeMonitorLanguage();
    SetNodeMonitorLoader();
}

TQuillApp::~TQuillApp() {
    if (IsRunning()) Quit();
}

void TQuillApp::StartMidi(const TOptions& options) {
    if (options.startSystemMidi) {
        fBackends.SetProblemHandler([this](const std::string& problem) {
            veldan::TMessage status(quill::kMsgPrefChanged);
            status.AddString(quill::kStatBarStringField, problem);
            TransferMessage(status, fMainWin);
        });
        fBackends.Start();
    }
    fWavPath = options.wavPath;
    std::string error;
    fSynthInUse = pref().synth;
    fSynth = TSynthConsumer::Create(SynthOptions(fSynthInUse), &error);
    if (!fSynth && fSynthInUse != TPref::TSynthSettings()) {
        // The user's synthesizer settings fail (a sound font moved away): the defaults
        // still make music, and an alert says why once the language is loaded.
        fSynthInUse = TPref::TSynthSettings();
        fSynth = TSynthConsumer::Create(SynthOptions(fSynthInUse), &fSynthProblem);
        std::swap(error, fSynthProblem);
    }
    if (fSynth)
        fSynth->Register();
    else
        fSynthError = TSynthConsumer::kName + (": " + error);
}

void TQuillApp::LoadAIDatabase() {
    // Read before the first song is scored, or this run's scores would replace what was
    // learned before at quit.
    fMainWin->View()->Controller().LoadLearnedScores();
}

void TQuillApp::TellSynthProblem(const std::string& problem) {
    const veldan::TLLT& texts = language_table();
    veldan::show_alert(
        texts.Text("Alert_Caption"), (texts.Text(kTextCannotStartSynth) + problem).c_str(),
        texts.Text("Button_Understand"), nullptr, nullptr, 0, veldan::TAlertType::kWarning);
}

TSynthConsumer::TOptions TQuillApp::SynthOptions(const TPref::TSynthSettings& settings) const {
    TSynthConsumer::TOptions options;
    options.wavPath = fWavPath;
    if (!settings.soundFonts.empty()) options.soundFonts = settings.soundFonts;
    options.gain = settings.gain;
    options.reverb = settings.reverb;
    options.chorus = settings.chorus;
    options.polyphony = settings.polyphony;
    options.audioDriver = settings.driver;
    return options;
}

void TQuillApp::ApplySynthPrefs() {
    if (pref().synth == fSynthInUse || !fMainWin) return;
    quill::TQuillController& player = fMainWin->View()->Controller();
    std::vector<int> connected;
    for (int port = 0; port < TOutputChain::kPorts; ++port)
        if (fSynth && player.IsConnected(port, fSynth.get())) connected.push_back(port);
    // A file being rendered is finished first: the new synthesizer writes the same path.
    if (fSynth && fSynth->DriverName() == TSynthConsumer::kWavDriver) fSynth.reset();
    std::string error;
    std::unique_ptr<TSynthConsumer> fresh =
        TSynthConsumer::Create(SynthOptions(pref().synth), &error);
    if (fresh) {
        fSynthInUse = pref().synth;
    } else {
        TellSynthProblem(error);
        pref().synth = fSynthInUse;
        save_pref(false);
        if (fPrefWin) fPrefWin->View()->UpdateCompos();
        if (fSynth) return;
        fresh = TSynthConsumer::Create(SynthOptions(fSynthInUse), &error);
        if (!fresh) return;
    }
    fresh->Register();
    for (int port : connected) player.ConnectMidiOut(port, fresh->ID());
    if (fSynth) fSynth->Finish(0);
    fSynth = std::move(fresh);
    fMainWin->View()->UpdatePortCompos();
}

void TQuillApp::StartMpris() {
    TMprisService::THooks hooks;
    hooks.raise = [this] { RaiseMainWin(); };
    hooks.quit = [this] { post_message(this, veldan::TMessage(veldan::kMsgQuitRequested)); };
    hooks.open = [this](const std::vector<fs::path>& files) { OpenFiles(files); };
    fMpris = std::make_unique<TMprisService>(fMainWin->View(), std::move(hooks));
    fMainWin->SetPlayerChangeFn([this](uint32_t what) {
        if (what == quill::TQuillController::kMsgDeskBarTitle)
            fMpris->SongChanged();
        else
            fMpris->PlayModeChanged();
    });
}

void TQuillApp::RaiseMainWin() {
    fMainWin->show();
    fMainWin->raise();
    fMainWin->activateWindow();
}

void TQuillApp::OpenFiles(const std::vector<fs::path>& files) {
    TOrvickView* list = fMainWin->View()->OrvickView();
    int32_t firstNew = list->Songs();
    for (const fs::path& file : files)
        fMainWin->OpenListFolderFileRqtd(veldan::ref_for_path(file), true);
    if (files.empty() || list->Songs() <= firstNew) return;
    // The first song handed over, whatever row is selected. Play scores the song once; a
    // change request would score it a second time.
    fMainWin->View()->Controller().PlaySongAt(firstNew);
}

void TQuillApp::ShowStatus(const std::string& text) {
    fMainWin->View()->ControlBar()->SetStatusText(text);
}

void TQuillApp::ShowMidiStatus(bool systemMidiAsked) {
    const veldan::TLLT& texts = language_table();
    if (!fSynth)
        ShowStatus(fSynthError);
    else if (fSynth->DriverName() == TSynthConsumer::kWavDriver)
        // Without a sound device the music goes to a file; the user must learn where.
        ShowStatus(texts.Text(kTextSynthToFile) + fSynth->WavPath());
    else if (systemMidiAsked && !fBackends.Alsa())
        ShowStatus(texts.Text(kTextNoSequencer));
}

// Quitting -------------------------------------------------------------------------------

bool TQuillApp::QuitRequested() { return fMainWin && fMainWin->QuitRequested(); }

template <class TWin>
void TQuillApp::CloseWindow(QPointer<TWin>* window) {
    if (!*window) return;
    (*window)->close();
    delete window->data();
    *window = nullptr;
}

void TQuillApp::Quit() {
    if (!fMainWin) return;
    fMainWin->hide();
    fMainWin->SetPlayerChangeFn(nullptr);
    fMpris.reset();
    CloseWindow(&fPrefWin);
    CloseWindow(&fDrvCvtWin);
    CloseWindow(&fAboutWin);
    // What the next start needs is written first: silencing the outputs and letting go of
    // the MIDI systems can wait on an outside server, and a user tired of waiting may kill
    // the program.
    fMainWin->WriteExitState();
    save_exit_state();
    // Stopped first, so that what the song taught is in the scores saved.
    fMainWin->View()->Controller().StopSong();
    std::string error;
    if (fs::path database; fMainWin->View()->Controller().SaveLearnedScores(&error, &database) != 0)
        report_settings_failure(error, database);
    // No note may hang in a synthesizer that outlives us.
    fMainWin->View()->Controller().MuteAllMidiOut();
    delete fMainWin.data();
    fMainWin = nullptr;
    if (fSynth) fSynth->Finish(0);
    QCoreApplication::quit();
}

void TQuillApp::TransferMessage(const veldan::TMessage& message, QObject* window) {
    if (window) veldan::post_message(window, message);
}

// Language -------------------------------------------------------------------------------

void TQuillApp::LoadLanguage() {
    veldan::TLLT& texts = language_table();
    texts = veldan::TLLT();
    veldan::TLLT builtin;
    builtin.LoadResource(QString::fromUtf8(quill::kBuiltinLanguagePath));
    const std::string& file = pref().languageFile;
    if (file.empty()) {
        texts = builtin;
        return;
    }
    fs::path path = find_lang_file(LanguageFolders(), file);
    if (path.empty()) path = fExeFolder / kLanguageFolder / file;  // named in the alert
    if (texts.Load(path.c_str()) != 0) {
        veldan::show_alert(kNoLanguageCaption, (kNoLanguageText + path.string()).c_str(),
                           kNoLanguageButton, nullptr, nullptr, 0, veldan::TAlertType::kWarning);
        // Better than the empty table the original left: every menu would be blank.
        texts = builtin;
        return;
    }
    // A translation made for an older version lacks the newer texts.
    texts.AddMissingTexts(builtin);
}

void TQuillApp::SetNodeMonitorLanguage() {
    if (!fLanguageWatcher.files().isEmpty()) fLanguageWatcher.removePaths(fLanguageWatcher.files());
    if (!fLanguageWatcher.directories().isEmpty())
        fLanguageWatcher.removePaths(fLanguageWatcher.directories());
    // Folders that do not exist yet are not watched; the user's is made by its first drop.
    for (const fs::path& folder : LanguageFolders())
        if (std::error_code error; fs::is_directory(folder, error))
            fLanguageWatcher.addPath(QString::fromStdString(folder.string()));
    fs::path current = find_lang_file(LanguageFolders(), pref().languageFile);
    if (!pref().languageFile.empty() && !current.empty())
        fLanguageWatcher.addPath(QString::fromStdString(current.string()));
}

TLanguageFolders TQuillApp::LanguageFolders() const {
    return language_folders(fExeFolder / kLanguageFolder);
}

void TQuillApp::SetNodeMonitorLoader() {
    if (!fLoaderWatcher.directories().isEmpty())
        fLoaderWatcher.removePaths(fLoaderWatcher.directories());
    fLoaderWatcher.addPath(QString::fromStdString((fExeFolder / kLoaderFolder).string()));
}

void TQuillApp::NodeLanguageChanged() {
    post_message(this, veldan::TMessage(quill::kMsgReloadLanguage));
}

void TQuillApp::PrefLanguageChanged() {
    LoadLanguage();
    post_message(this, veldan::TMessage(quill::kMsgLanguageChanged));
}

void TQuillApp::LanguageChanged() {
    if (fDrvCvtWin) fDrvCvtWin->LanguageChanged();
    if (fAboutWin) fAboutWin->LanguageChanged();
    SetNodeMonitorLanguage();
}

void TQuillApp::LanguageFileDropped(const veldan::TMessage& message) {
    fs::path source;
    if (!message.FindRef(TPrefView::kRefsField, &source)) return;
    const fs::path folder = lang_drop_folder(LanguageFolders(), source.filename().string());
    const fs::path target = folder / source.filename();
    std::error_code error;
    // A file dropped from where it already lies is chosen as it is: copying a file onto
    // itself fails.
    const bool inPlace = !folder.empty() && fs::equivalent(source, target, error);
    if (folder.empty() || (!inPlace && veldan::copy_file_atomically(source, target) != 0)) {
        ShowStatus(language_table().Text(kStatCannotAddLanguage) + source.filename().string());
        return;
    }
    // A new folder: from now on its changes are heard too.
    SetNodeMonitorLanguage();
    pref().languageFile = source.filename().string();
    save_pref(false);
    post_message(this, veldan::TMessage(quill::kMsgReloadLanguage));
}

void TQuillApp::InstallPlayListMime() {
    QString data = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    if (data.isEmpty()) return;
    fs::path mime = fs::path(data.toStdString()) / "mime";
    std::error_code error;
    fs::create_directories(mime / "packages", error);
    // The package is named after the type it defines, as shared-mime-info names its own.
    const std::string_view type = TCLNative100::kMimeType;
    const std::string packageFile = std::string(type.substr(type.find('/') + 1)) + ".xml";
    const QString package = QString::fromStdString((mime / "packages" / packageFile).string());
    QFile resource(kMimePackageResource);
    if (resource.open(QIODevice::ReadOnly)) {
        const QByteArray bytes = resource.readAll();
        veldan::write_file_atomically(package.toStdString(),
                                      std::string_view(bytes.constData(), size_t(bytes.size())));
    }
    // The desktop reads the compiled database; without the tool the package waits for the
    // next system update of it.
    QString tool = QStandardPaths::findExecutable("update-mime-database");
    if (!tool.isEmpty()) QProcess::startDetached(tool, {QString::fromStdString(mime.string())});
}

// Secondary windows ----------------------------------------------------------------------

void TQuillApp::MItemPrefClicked() {
    if (!fPrefWin) {
        auto* win = new TPrefWin(language_table(), pref(), LanguageFolders());
        if (win->InitCheck() != 0) {
            veldan::show_failure(language_table(), language_table().Text(kTextCannotCreatePrefWin));
            delete win;
            return;
        }
        win->move(fMainWin->geometry().topLeft() + QPoint(0, kSecondaryWindowOffset));
        win->SetTarget(this);
        fPrefWin = win;
    }
    fPrefWin->show();
    fPrefWin->raise();
    fPrefWin->activateWindow();
}

void TQuillApp::MItemDrvCvtSettingClicked() {
    if (!fDrvCvtWin) {
        fDrvCvtWin = new TDrvCvtWin(language_table());
        fDrvCvtWin->move(fMainWin->geometry().topLeft() +
                         QPoint(kSecondaryWindowOffset, kSecondaryWindowOffset));
        fDrvCvtWin->SetTarget(this);
    }
    // Every opening shows the table as the file holds it.
    fDrvCvtWin->show();
    fDrvCvtWin->raise();
}

void TQuillApp::DrvCvtSettingChanged() { app_privacy().Load(); }

void TQuillApp::MItemHelpClicked() {
    veldan::show_help((fExeFolder / kHelpDocument).c_str(), language_table().Text("Alert_Caption"),
                      language_table().Text(kTextCannotOpenHelp));
}

void TQuillApp::MItemAuthorWebClicked() {
    // The address is a text of the language file, so each translation can name its own
    // page; ours is the translating chapter of the help document.
    std::string url = language_table().Text(kTextTranslationsUrl);
    if (url.find("://") == std::string::npos) url = "file://" + (fExeFolder / url).string();
    veldan::show_url(url.c_str(), language_table().Text("Alert_Caption"),
                     language_table().Text(kTextCannotOpenWeb));
}

void TQuillApp::AboutRequested() {
    if (!fAboutWin) {
        fAboutWin = new TAboutWin(language_table(), LanguageFolders(), fExeFolder / kLoaderFolder);
        fAboutWin->move(fMainWin->geometry().topLeft() +
                        QPoint(kSecondaryWindowOffset, kSecondaryWindowOffset));
    }
    fAboutWin->show();
    fAboutWin->raise();
}

// Messages -------------------------------------------------------------------------------

void TQuillApp::MessageReceived(veldan::TMessage* message) {
    switch (message->what) {
        case quill::kMsgLanguageChanged:
            LanguageChanged();
            TransferMessage(*message, fMainWin);
            TransferMessage(*message, fPrefWin);
            break;
        case quill::kMsgLanguageFileDropped:
            LanguageFileDropped(*message);
            TransferMessage(*message, fPrefWin);
            break;
        case quill::kMsgLanguageFolderChanged:
            NodeLanguageChanged();
            TransferMessage(*message, fPrefWin);
            if (fAboutWin) fAboutWin->ReloadLanguageFiles();
            break;
        case quill::kMsgLoaderFolderChanged:
            TransferMessage(*message, fMainWin);
            if (fAboutWin) fAboutWin->ReloadLoaders();
            break;
        case quill::kMsgReloadLanguage:
            PrefLanguageChanged();
            break;
        case quill::kMsgPrefChanged:
            ApplySynthPrefs();
            TransferMessage(*message, fMainWin);
            break;
        case TQuillWin::kMsgPrefs:
            MItemPrefClicked();
            break;
        case TQuillWin::kMsgDrvCvtPrefs:
            MItemDrvCvtSettingClicked();
            break;
        case quill::kMsgDrvCvtChanged:
            DrvCvtSettingChanged();
            break;
        case TQuillWin::kMsgHelp:
            MItemHelpClicked();
            break;
        case TQuillWin::kMsgAuthorWeb:
            MItemAuthorWebClicked();
            break;
        case TQuillWin::kMsgAboutRequested:
            AboutRequested();
            break;
        case veldan::kMsgQuitRequested:
            if (QuitRequested()) Quit();
            break;
        default:
            veldan::THandler::MessageReceived(message);
            break;
    }
}
