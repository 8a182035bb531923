#include "app/song_export.h"

#include <QApplication>
#include <QProgressDialog>

#include "engine/offline_render.h"
#include "engine/smf_producer.h"
#include "player/control_bar.h"
#include "player/pref.h"
#include "player/quill_view.h"
#include "veldan/core/llt.h"

namespace {

constexpr int kProgressSteps = 1000;

}  // namespace

bool export_current_song(QWidget* parent, const quill::TQuillView& view, const veldan::TLLT& texts,
                         const TPref& prefs, const std::filesystem::path& target,
                         std::string* error) {
    const std::filesystem::path song = view.Controller().CurSongRef();
    TSMFProducer producer;
    if (song.empty() || producer.SetTo(song.string()) != 0) {
        *error = song.empty() ? "no song" : producer.LastError();
        return false;
    }
    producer.SetLoopSettings(prefs.loops);
    const quill::TControlBar& bar = *view.ControlBar();
    TRenderOptions options;
    options.tempoPercent = bar.SliderValue(quill::TControlBar::kTempo);
    options.key = bar.SliderValue(quill::TControlBar::kKey);
    options.volumePercent = bar.SliderValue(quill::TControlBar::kVolume);
    options.soundFonts = prefs.synth.soundFonts;
    options.reverb = prefs.synth.reverb;
    options.chorus = prefs.synth.chorus;

    QProgressDialog progress(QString::fromStdString(song.filename().string()),
                             QString::fromUtf8(texts.Text("Button_Cancel")), 0, kProgressSteps,
                             parent);
    progress.setObjectName("ExportProgress");
    progress.setWindowTitle(QString::fromUtf8(texts.Text("MItem_Export_WAV")));
    progress.setWindowModality(Qt::WindowModal);
    progress.setMinimumDuration(0);
    auto report = [&progress](int64_t doneUs, int64_t totalUs) {
        progress.setValue(totalUs > 0 ? int(doneUs * kProgressSteps / totalUs) : kProgressSteps);
        QApplication::processEvents();
        return !progress.wasCanceled();
    };
    return render_song(producer, target.string(), options, report, error) == 0;
}
