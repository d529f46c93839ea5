// Volume and sound track of a layer's audio output.
//
// One record carries either a volume change ("effectType" 7603, "volume" in
// percent) or a sound-track change (7604, "soundTrack" = channel layout).
// A sound-track change closes and reopens the audio output, which can block,
// so the public command runs the change on the service's worker pool and
// returns at once; nobody waits for the job's future.
//
// Lifetime of a queued job. The job holds the player as a raw pointer. The
// only place where the service deletes a player is onSigDeleteObj, and it
// first waits, with waitForQueuedJobs below, until every job queued before
// that moment has finished. Jobs are queued only from the service's thread,
// which is the thread that deletes the player, so no job for a deleted
// player can be queued afterwards (a deleted layer is no longer found by its
// ids). So a job never touches a deleted player, without any state beyond
// the pool itself. The wait is short as long as a job's audio calls never
// wait for the service's thread in turn (the audio output and the engine's
// audio calls are made from any thread and must stay so).
#include "UI_Proc_KELMOR_Player_Desktop.h"
#include "player_internal.h"

#include "AVPlayer.h"
#include "AudioFormat.h"
#include "AudioOutput.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"

#include <QDebug>
#include <condition_variable>
#include <mutex>

using namespace kelmor;

namespace {

constexpr int kVolumeChange = 7603;
constexpr int kSoundTrackChange = 7604;

/// "soundTrack" 3 (stereo) is asked for as given by the pool path and as
/// layout 4 by the synchronous variant; every other number passes as given.
/// The two paths differ on purpose.
enum class StereoMapping { AsGiven, ToLayout4 };

int channelLayoutFor(int soundTrack, StereoMapping mapping)
{
    if (soundTrack == 3 && mapping == StereoMapping::ToLayout4)
        return 4;
    return soundTrack;
}

void applyAudioRecord(QtAV::AVPlayer* player, const QMap<QString, QVariant>& record,
                      StereoMapping mapping)
{
    if (ignoreNullPlayer(player, "setVolumeState"))
        return;
    const int effectType = record.contains(QStringLiteral("effectType"))
                               ? record.value(QStringLiteral("effectType")).toInt()
                               : 0;
    QtAV::AudioOutput* audio = player->audio();
    if (!audio) {
        qDebug() << "setVolumeState ignored: player without audio output";
        return;
    }

    if (effectType == kVolumeChange) {
        // Percent to gain in single precision, as the host computes it.
        const float percent = record.value(QStringLiteral("volume")).toFloat();
        const double volume = static_cast<double>(percent / 100.0f);
        if (volume != audio->volume())
            audio->setVolume(volume);
        return;
    }
    if (effectType == kSoundTrackChange) {
        const int layout =
            channelLayoutFor(record.value(QStringLiteral("soundTrack")).toInt(), mapping);
        // A layout only takes effect when the output is reopened; a failed
        // close leaves the output as it was.
        if (!audio->close())
            return;
        QtAV::AudioFormat format = audio->audioFormat();
        if (format.channelLayout() != layout) {
            format.setChannelLayout(static_cast<QtAV::AudioFormat::ChannelLayout>(layout));
            audio->setAudioFormat(format);
        }
        audio->open();
    }
}

} // namespace

void UI_Proc_KELMOR_Player_Desktop::setVolumeState(int layerId, int bankId,
                                                   QMap<QString, QVariant> record)
{
    QtAV::AVPlayer* player = registry().getplayerByID(layerId, bankId);
    if (!player)
        return;
    // The future is dropped: the command does not wait for the change.
    (void)workerPool.enqueue(&UI_Proc_KELMOR_Player_Desktop::setVolumeStateThread, player, record);
}

void UI_Proc_KELMOR_Player_Desktop::setVolumeStateThread(QtAV::AVPlayer* player,
                                                         QMap<QString, QVariant> record)
{
    applyAudioRecord(player, record, StereoMapping::AsGiven);
}

void UI_Proc_KELMOR_Player_Desktop::setVolumeState(QtAV::AVPlayer* player,
                                                   QMap<QString, QVariant> record)
{
    applyAudioRecord(player, record, StereoMapping::ToLayout4);
}

namespace kelmor {

// Every worker of the pool takes one meeting job and waits in it until all of
// them have arrived. While all workers sit in meeting jobs none of them runs
// anything else, and the queue is first in, first out: every job queued
// before the meeting has then finished.
void waitForQueuedJobs(WorkerPool& pool)
{
    struct Meeting
    {
        std::mutex mutex;
        std::condition_variable allArrived;
        std::size_t arrived = 0;
        bool calledOff = false;
    };
    const std::size_t workers = pool.threadCount();
    auto meeting = std::make_shared<Meeting>();
    std::vector<std::future<void>> done;
    try {
        for (std::size_t i = 0; i < workers; ++i) {
            done.push_back(pool.enqueue([meeting, workers] {
                std::unique_lock<std::mutex> lock(meeting->mutex);
                ++meeting->arrived;
                meeting->allArrived.notify_all();
                meeting->allArrived.wait(lock, [&] {
                    return meeting->arrived == workers || meeting->calledOff;
                });
            }));
        }
    } catch (const std::runtime_error&) {
        // A stopped pool (the service is going away) takes no more jobs and
        // finishes the queued ones in its own destructor. Release the meeting
        // jobs already queued so that they do not wait for the others.
        qDebug() << "waitForQueuedJobs: worker pool stopped; not waiting";
        std::lock_guard<std::mutex> lock(meeting->mutex);
        meeting->calledOff = true;
        meeting->allArrived.notify_all();
        return;
    }
    for (std::future<void>& job : done)
        job.wait();
}

} // namespace kelmor
