#include "playback/audio_play_thread.h"

#include <new>

#include "handler/log.h"
#include "render/audio_player_was.h"

namespace velto {
namespace {

constexpr char pushTag[] = "velto::AudioPlayThread::PushBuffer";
constexpr size_t delayBlocks = 5;
constexpr size_t maxQueuedBlocks = 20;

void FreeBlock(AudioPlayBuffer *block)
{
    delete[] block->buf;
    delete block;
}

} // namespace

AudioPlayThread::AudioPlayThread(const SpeakerAudioParams *params, PlayerNotify notify)
    : audioParam(params), playerNotify(notify)
{
}

// Leaks the blocks that are still queued, by contract: docs/known-leaks.md.
AudioPlayThread::~AudioPlayThread()
{
    StopPlayThread();
}

bool AudioPlayThread::StartPlayThread()
{
    moduleReference.HoldModuleOf(reinterpret_cast<const void *>(&AudioPlayThread::ThreadFun));
    try {
        workThread = std::thread(&AudioPlayThread::ThreadFun, this);
    } catch (...) {
        moduleReference.Drop(); // StopPlayThread drops it only if there is a thread to join
        throw;
    }
    return true;
}

void AudioPlayThread::StopPlayThread()
{
    threadStarted = false;
    isRunning = 0;
    if (workThread.joinable()) {
        workThread.join();
        threadStarted = false;  // the thread may have set it after it was cleared above
        moduleReference.Drop(); // the calling thread keeps the module mapped
    }
}

uint32_t AudioPlayThread::ThreadFun(void *param)
{
    auto *playThread = static_cast<AudioPlayThread *>(param);
    if (playThread == nullptr) {
        LogError("velto::AudioPlayThread::ThreadFun", "playThread is nullptr");
        Sleep(1);
        return 0;
    }
    playThread->InitPlayThread();
    playThread->threadStarted = true;
    while (playThread->isRunning != 0) {
        playThread->PlayNext();
        Sleep(1);
    }
    if (playThread->audioSpkPlayer != nullptr) {
        playThread->audioSpkPlayer->Close();
    }
    playThread->threadExited = 1;
    return 0;
}

void AudioPlayThread::InitPlayThread()
{
    if (audioSpkPlayer == nullptr) {
        audioSpkPlayer.reset(new (std::nothrow) AudioPlayerWas);
        publishedPlayer = audioSpkPlayer.get();
    }
    if (audioSpkPlayer == nullptr) {
        LogError("velto::AudioPlayThread::InitPlayThread", "audioSpkPlayer is nullptr");
        return;
    }
    audioSpkPlayer->SetCallback(this);
    audioSpkPlayer->Open(static_cast<int32_t>(audioParam->bitsPerSample.load()),
                         static_cast<int32_t>(audioParam->channels.load()),
                         static_cast<int32_t>(audioParam->sampleRate.load()));
}

// Takes one block from the play queue and plays it. Without a renderer or without bytes the block is leaked,
// by contract.
void AudioPlayThread::PlayNext()
{
    AudioPlayBuffer *block = nullptr;
    {
        const std::lock_guard lock(queueMutex);
        if (!playQueue.empty()) {
            block = playQueue.front();
            playQueue.pop_front();
        }
    }
    if (block != nullptr && block->buf != nullptr && audioSpkPlayer != nullptr) {
        audioSpkPlayer->PlayAudio(block->buf, int64_t{block->len});
        FreeBlock(block);
    }
}

// When out of memory, drops this block. Blocks that were pushed before it stay queued in their order.
void AudioPlayThread::PushBuffer(AudioPlayBuffer *buffer)
{
    try {
        if (needDelay) {
            PushDelayQueue(buffer);
        } else {
            PushPlayQueue(buffer);
        }
    } catch (const std::bad_alloc &) {
        FreeBlock(buffer);
        LogError(pushTag, "no memory to queue a block, dropped");
    }
}

// When it throws std::bad_alloc, the buffer is not queued.
void AudioPlayThread::PushDelayQueue(AudioPlayBuffer *buffer)
{
    delayQueue.push_back(buffer);
    if (delayQueue.size() < delayBlocks) {
        return;
    }
    LogInfo(pushTag, "needDelay. push all delay buffer queue");
    needDelay = false; // before the move, during which the host's parameter call may set it again
    try {
        while (!delayQueue.empty()) {
            PushPlayQueue(delayQueue.front());
            delayQueue.pop_front();
        }
    } catch (...) {
        delayQueue.pop_back(); // the new buffer, which would have been moved last
        if (!delayQueue.empty()) {
            needDelay = true; // the remaining blocks are moved when the delay queue has five again
        }
        throw;
    }
}

// When it throws std::bad_alloc, the buffer is not queued.
void AudioPlayThread::PushPlayQueue(AudioPlayBuffer *buffer)
{
    const std::lock_guard lock(queueMutex);
    playQueue.push_back(buffer); // before the drop: if there is no memory, no old block is lost
    if (playQueue.size() > maxQueuedBlocks) {
        if (AudioPlayBuffer *oldest = playQueue.front()) {
            FreeBlock(oldest);
        }
        playQueue.pop_front();
    }
}

void AudioPlayThread::OnBroadcastFlag(bool value)
{
    if (playerNotify != nullptr) {
        playerNotify(value);
    }
}

void AudioPlayThread::SetBroadcastFlag(bool value)
{
    if (IAudioPlayer *player = publishedPlayer) {
        player->SetBroadcastFlag(value);
    }
}

} // namespace velto
