#include "app/mpris.h"

#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QStringList>
#include <QUrl>
#include <QVariantMap>
#include <algorithm>
#include <cmath>

#include "app/app_icon.h"
#include "player/control_bar.h"
#include "player/play_modes.h"
#include "player/quill_view.h"
#include "playlist/native_loader.h"
#include "playlist/orvick_view.h"
#include "veldan/core/entry.h"
#include "veldan/core/message.h"

namespace fs = std::filesystem;
using quill::TControlBar;
using quill::TQuillController;
using quill::TQuillView;

namespace {

constexpr char kPlayerInterface[] = "org.mpris.MediaPlayer2.Player";
constexpr char kNoTrack[] = "/org/mpris/MediaPlayer2/TrackList/NoTrack";
constexpr int kForwardTimeoutMs = 5000;

QString track_id(int32_t songIdx) { return QStringLiteral("/org/quillmidi/song/%1").arg(songIdx); }

QString playback_status(TMarnelState state) {
    switch (state) {
        case kStatePlaying:
            return QStringLiteral("Playing");
        case kStatePaused:
            return QStringLiteral("Paused");
        case kStateStopped:
            return QStringLiteral("Stopped");
        default:
            return QStringLiteral("Playing");  // the silences before a song are part of it
    }
}

}  // namespace

// org.mpris.MediaPlayer2 ------------------------------------------------------------------

class TMprisService::TRootAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.mpris.MediaPlayer2")
    Q_PROPERTY(bool CanQuit READ CanQuit)
    Q_PROPERTY(bool CanRaise READ CanRaise)
    Q_PROPERTY(bool HasTrackList READ HasTrackList)
    Q_PROPERTY(QString Identity READ Identity)
    Q_PROPERTY(QString DesktopEntry READ DesktopEntry)
    Q_PROPERTY(QStringList SupportedUriSchemes READ SupportedUriSchemes)
    Q_PROPERTY(QStringList SupportedMimeTypes READ SupportedMimeTypes)

  public:
    TRootAdaptor(QObject* parent, const THooks& hooks)
        : QDBusAbstractAdaptor(parent), fHooks(hooks) {}
    bool CanQuit() const { return true; }
    bool CanRaise() const { return true; }
    bool HasTrackList() const { return false; }
    QString Identity() const { return QString::fromUtf8(TQuillController::kAppDisplayName); }
    QString DesktopEntry() const { return QString::fromLatin1(kAppDesktopId); }
    QStringList SupportedUriSchemes() const { return {QStringLiteral("file")}; }
    QStringList SupportedMimeTypes() const {
        return {QStringLiteral("audio/midi"), QStringLiteral("audio/x-midi"),
                QString::fromLatin1(TCLNative100::kMimeType)};
    }

  public slots:
    void Raise() { fHooks.raise(); }
    void Quit() { fHooks.quit(); }

  private:
    const THooks& fHooks;
};

// org.mpris.MediaPlayer2.Player -----------------------------------------------------------

class TMprisService::TPlayerAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.mpris.MediaPlayer2.Player")
    Q_PROPERTY(QString PlaybackStatus READ PlaybackStatus)
    Q_PROPERTY(QString LoopStatus READ LoopStatus WRITE SetLoopStatus)
    Q_PROPERTY(bool Shuffle READ Shuffle WRITE SetShuffle)
    Q_PROPERTY(double Rate READ Rate WRITE SetRate)
    Q_PROPERTY(double MinimumRate READ MinimumRate)
    Q_PROPERTY(double MaximumRate READ MaximumRate)
    Q_PROPERTY(double Volume READ Volume WRITE SetVolume)
    Q_PROPERTY(QVariantMap Metadata READ Metadata)
    Q_PROPERTY(qlonglong Position READ Position)
    Q_PROPERTY(bool CanGoNext READ CanPlay)
    Q_PROPERTY(bool CanGoPrevious READ CanPlay)
    Q_PROPERTY(bool CanPlay READ CanPlay)
    Q_PROPERTY(bool CanPause READ CanPlay)
    Q_PROPERTY(bool CanSeek READ CanPlay)
    Q_PROPERTY(bool CanControl READ CanControl)

  public:
    TPlayerAdaptor(QObject* parent, TQuillView* view, const THooks& hooks)
        : QDBusAbstractAdaptor(parent), fView(view), fHooks(hooks) {}

    QString PlaybackStatus() const { return playback_status(fView->Controller().State()); }

    QString LoopStatus() const {
        switch (fView->Controller().PlayMode()) {
            case quill::kPlayModeSeqRepeat:
                return QStringLiteral("Playlist");
            case quill::kPlayModeMonoRepeat:
                return QStringLiteral("Track");
            default:
                return QStringLiteral("None");
        }
    }
    void SetLoopStatus(const QString& status) {
        int32_t mode = quill::kPlayModeSeq;
        if (status == QLatin1String("Playlist")) mode = quill::kPlayModeSeqRepeat;
        if (status == QLatin1String("Track")) mode = quill::kPlayModeMonoRepeat;
        SetPlayMode(mode);
    }

    bool Shuffle() const {
        return fView->Controller().PlayMode() == quill::kPlayModeRandom ||
               fView->Controller().PlayMode() == quill::kPlayModeAIRandom;
    }
    void SetShuffle(bool shuffle) {
        // Shuffling on keeps the learning mode when it is the one chosen.
        if (shuffle != Shuffle())
            SetPlayMode(shuffle ? quill::kPlayModeRandom : quill::kPlayModeSeq);
    }

    double Rate() const { return SliderValue(TControlBar::kTempo) / 100.0; }
    void SetRate(double rate) { SetSlider(TControlBar::kTempo, rate); }
    double MinimumRate() const {
        return fView->ControlBar()->SliderMinimum(TControlBar::kTempo) / 100.0;
    }
    double MaximumRate() const {
        return fView->ControlBar()->SliderMaximum(TControlBar::kTempo) / 100.0;
    }
    double Volume() const { return SliderValue(TControlBar::kVolume) / 100.0; }
    void SetVolume(double volume) { SetSlider(TControlBar::kVolume, volume); }

    QVariantMap Metadata() const {
        QVariantMap metadata;
        fs::path song = fView->Controller().CurSongRef();
        if (song.empty()) {
            metadata[QStringLiteral("mpris:trackid")] =
                QVariant::fromValue(QDBusObjectPath(QString::fromLatin1(kNoTrack)));
            return metadata;
        }
        std::string title = fView->Controller().SongTitle();
        if (title.empty()) title = song.filename().string();
        metadata[QStringLiteral("mpris:trackid")] =
            QVariant::fromValue(QDBusObjectPath(track_id(fView->Controller().CurSongIdx())));
        metadata[QStringLiteral("xesam:title")] = QString::fromStdString(title);
        metadata[QStringLiteral("xesam:url")] =
            QUrl::fromLocalFile(QString::fromStdString(song.string())).toString(QUrl::FullyEncoded);
        metadata[QStringLiteral("mpris:length")] = qlonglong(fView->Controller().SongLengthUs());
        return metadata;
    }
    qlonglong Position() const { return fView->Controller().PositionUs(); }
    bool CanPlay() const { return fView->OrvickView()->Songs() > 0; }
    bool CanControl() const { return true; }

  public slots:
    void Next() { fView->Controller().NextSong(); }
    void Previous() { fView->Controller().PrevSong(); }
    void Pause() {
        if (fView->Controller().State() == kStatePlaying) fView->Controller().PauseSong();
    }
    void PlayPause() {
        if (fView->Controller().State() == kStatePlaying)
            fView->Controller().PauseSong();
        else
            fView->CButtonPlayClicked();
    }
    void Stop() { fView->Controller().StopSong(); }
    void Play() {
        if (fView->Controller().State() != kStatePlaying) fView->CButtonPlayClicked();
    }
    void Seek(qlonglong offsetUs) {
        if (fView->Controller().State() == kStateStopped) return;
        qlonglong target = fView->Controller().PositionUs() + offsetUs;
        // Past the end counts as next, as the interface asks.
        if (target >= fView->Controller().SongLengthUs())
            Next();
        else
            fView->Controller().SetPositionUs(std::max<qlonglong>(target, 0));
    }
    void SetPosition(const QDBusObjectPath& track, qlonglong positionUs) {
        if (fView->Controller().State() == kStateStopped ||
            track.path() != track_id(fView->Controller().CurSongIdx()))
            return;
        if (positionUs >= 0 && positionUs <= fView->Controller().SongLengthUs())
            fView->Controller().SetPositionUs(positionUs);
    }
    void OpenUri(const QString& uri) {
        QUrl url(uri);
        if (url.isLocalFile()) fHooks.open({fs::path(url.toLocalFile().toStdString())});
    }

  signals:
    void Seeked(qlonglong positionUs);

  private:
    int32_t SliderValue(TControlBar::TSlider slider) const {
        return fView->ControlBar()->SliderValue(slider);
    }
    void SetSlider(TControlBar::TSlider slider, double value) {
        if (!std::isfinite(value)) return;
        int32_t percent = int32_t(std::lround(std::clamp(value, 0.0, 10.0) * 100));
        fView->ControlBar()->SetSliderValue(slider, percent);
        // The slider keeps the value within its range.
        if (slider == TControlBar::kTempo)
            fView->Controller().SetTempoRate(SliderValue(slider));
        else
            fView->Controller().SetVolume(SliderValue(slider));
    }
    void SetPlayMode(int32_t mode) { fView->Controller().ChangePlayMode(mode); }

    TQuillView* const fView;
    const THooks& fHooks;
};

// org.quillmidi.Instance ------------------------------------------------------------------

class TMprisService::TInstanceAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.quillmidi.Instance")

  public:
    TInstanceAdaptor(QObject* parent, const THooks& hooks)
        : QDBusAbstractAdaptor(parent), fHooks(hooks) {}

  public slots:
    void OpenFiles(const QStringList& files) {
        std::vector<fs::path> paths;
        for (const QString& file : files) paths.emplace_back(file.toStdString());
        if (!paths.empty()) fHooks.open(paths);
        fHooks.raise();
    }

  private:
    const THooks& fHooks;
};

// The service -----------------------------------------------------------------------------

TMprisService::TClaim TMprisService::ClaimServiceName() {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface()) return TClaim::kNoBus;
    auto reply = bus.interface()->registerService(QString::fromLatin1(kServiceName),
                                                  QDBusConnectionInterface::DontQueueService,
                                                  QDBusConnectionInterface::DontAllowReplacement);
    if (reply.isValid() && reply.value() == QDBusConnectionInterface::ServiceRegistered)
        return TClaim::kOwned;
    return TClaim::kHeldByAnother;
}

bool TMprisService::ForwardToRunning(const std::vector<fs::path>& files) {
    // The running program has its own working folder.
    QStringList absolute;
    for (const fs::path& file : files)
        absolute << QString::fromStdString(veldan::ref_for_path(file).string());
    QDBusMessage call = QDBusMessage::createMethodCall(
        QString::fromLatin1(kServiceName), QString::fromLatin1(kObjectPath),
        QString::fromLatin1(kInstanceInterface), QStringLiteral("OpenFiles"));
    call << absolute;
    QDBusMessage reply = QDBusConnection::sessionBus().call(call, QDBus::Block, kForwardTimeoutMs);
    return reply.type() == QDBusMessage::ReplyMessage;
}

TMprisService::TMprisService(TQuillView* view, THooks hooks)
    : fView(view), fHooks(std::move(hooks)) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) return;
    new TRootAdaptor(this, fHooks);
    fPlayer = new TPlayerAdaptor(this, view, fHooks);
    new TInstanceAdaptor(this, fHooks);
    fRegistered = bus.registerObject(QString::fromLatin1(kObjectPath), this);
}

TMprisService::~TMprisService() {
    if (fRegistered)
        QDBusConnection::sessionBus().unregisterObject(QString::fromLatin1(kObjectPath));
}

void TMprisService::EmitChanged(const char* interface, const QStringList& properties) {
    if (!fRegistered) return;
    QVariantMap changed;
    for (const QString& name : properties)
        changed[name] = fPlayer->property(name.toLatin1().constData());
    QDBusMessage signal = QDBusMessage::createSignal(
        QString::fromLatin1(kObjectPath), QStringLiteral("org.freedesktop.DBus.Properties"),
        QStringLiteral("PropertiesChanged"));
    signal << QString::fromLatin1(interface) << changed << QStringList();
    QDBusConnection::sessionBus().send(signal);
}

void TMprisService::StateChanged() {
    EmitChanged(kPlayerInterface, {QStringLiteral("PlaybackStatus")});
}

void TMprisService::SongChanged() {
    EmitChanged(kPlayerInterface, {QStringLiteral("Metadata"), QStringLiteral("CanPlay"),
                                   QStringLiteral("CanGoNext"), QStringLiteral("CanGoPrevious")});
}

void TMprisService::PlayModeChanged() {
    EmitChanged(kPlayerInterface, {QStringLiteral("LoopStatus"), QStringLiteral("Shuffle")});
}

#include "mpris.moc"
