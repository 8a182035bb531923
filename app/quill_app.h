#pragma once
// TQuillApp: the application object. It starts the MIDI systems and the built-in
// synthesizer, loads the language, installs the playlist file type on the first start of
// a version, opens the main window, watches the "Language" and "Loader" folders, routes
// the application-level messages to the windows that must hear them, opens the secondary
// windows on first use, and closes everything in order when the user quits.
//
// It is a message handler beside the QApplication that main makes, not the QApplication
// itself, so that tests can make and quit it several times in one process.
//
// Everything here runs on the GUI thread.

#include <QFileSystemWatcher>
#include <QPointer>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "app/dialogs/about_win.h"
#include "app/dialogs/pref_win.h"
#include "app/language_messages.h"
#include "app/mpris.h"
#include "app/quill_win.h"
#include "midi/backends.h"
#include "midi/synth.h"
#include "player/pref.h"
#include "player/pref_messages.h"
#include "playlist/app_messages.h"
#include "playlist/drvcvt_win.h"
#include "veldan/core/handler.h"

class TQuillApp : public veldan::THandler {
  public:
    static constexpr char kHelpDocument[] = "QuillMIDI.htm";

    struct TOptions {
        // Holds "Language", "Loader" and the help document.
        std::filesystem::path exeFolder;
        // Non-empty: the built-in synthesizer renders into this file instead of playing.
        std::string wavPath;
        // Off in tests: the machine's ALSA and JACK stay out of the roster.
        bool startSystemMidi = true;
        // Given on the command line: added to the playlist, and the first one played.
        std::vector<std::filesystem::path> files;
    };

    explicit TQuillApp(const TOptions& options);
    ~TQuillApp() override;

    TQuillWin* MainWin() const { return fMainWin; }
    TPrefWin* PrefWin() const { return fPrefWin; }
    TDrvCvtWin* DrvCvtWin() const { return fDrvCvtWin; }
    TAboutWin* AboutWin() const { return fAboutWin; }
    // The built-in synthesizer; null when it could not be made.
    TSynthConsumer* Synth() const { return fSynth.get(); }
    // False once Quit has run.
    bool IsRunning() const { return fMainWin != nullptr; }

    // The main window's answer: false when the user cancelled over an unsaved playlist.
    bool QuitRequested();
    // Closes the secondary windows, then the main window, which writes the exit state;
    // then ends the event loop.
    void Quit();

    // Adds songs, folders or playlists to the playlist and plays the first song added, as
    // for the files a start is given (also those a second start hands over).
    void OpenFiles(const std::vector<std::filesystem::path>& files);

    // Posts a copy of message to window; a window that is not open is skipped.
    static void TransferMessage(const veldan::TMessage& message, QObject* window);

    void LoadLanguage();
    // A shared-mime-info package for playlists in the user's data folder; errors ignored.
    void InstallPlayListMime();
    void SetNodeMonitorLanguage();
    void SetNodeMonitorLoader();
    void LanguageChanged();
    void LanguageFileDropped(const veldan::TMessage& message);
    void NodeLanguageChanged();
    void PrefLanguageChanged();
    void MItemPrefClicked();
    void MItemDrvCvtSettingClicked();
    void MItemHelpClicked();
    void MItemAuthorWebClicked();
    void AboutRequested();
    void DrvCvtSettingChanged();

    void MessageReceived(veldan::TMessage* message) override;

  private:
    void StartMidi(const TOptions& options);
    void LoadAIDatabase();
    TLanguageFolders LanguageFolders() const;
    TSynthConsumer::TOptions SynthOptions(const TPref::TSynthSettings& settings) const;
    // Makes the synthesizer again when the preferences changed its settings, keeping its
    // port connections; one that fails is told in an alert and the previous one stays.
    void ApplySynthPrefs();
    void TellSynthProblem(const std::string& problem);
    void StartMpris();
    void RaiseMainWin();
    void ShowStatus(const std::string& text);
    void ShowMidiStatus(bool systemMidiAsked);
    template <class TWin>
    void CloseWindow(QPointer<TWin>* window);

    std::filesystem::path fExeFolder;
    // Before the windows: the systems' ports go after the producers that feed them.
    TMidiBackends fBackends;
    std::unique_ptr<TSynthConsumer> fSynth;
    std::string fSynthError;
    // Why the preferred synthesizer settings gave way to the defaults at start, if they did.
    std::string fSynthProblem;
    // The settings that made fSynth.
    TPref::TSynthSettings fSynthInUse;
    std::string fWavPath;
    QPointer<TQuillWin> fMainWin;
    QPointer<TPrefWin> fPrefWin;
    QPointer<TDrvCvtWin> fDrvCvtWin;
    QPointer<TAboutWin> fAboutWin;
    QFileSystemWatcher fLanguageWatcher;
    QFileSystemWatcher fLoaderWatcher;
    std::unique_ptr<TMprisService> fMpris;
};
