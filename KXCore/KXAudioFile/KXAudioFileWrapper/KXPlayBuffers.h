#pragma once
// KXPlayBuffers: a file's two play buffers, the ranges of file frames they hold, and the thread
// that fills one of them ahead of the player.
//
// One thread reads (the player's): it makes buffers current, loads them itself and reads the
// current one's samples without a lock. The loader thread renders a requested span into a
// staging buffer of its own, from the edit list and converter it was handed with the request, and
// copies the result into the buffer under the buffers' lock — so the reading thread never waits
// for more than that copy. Each buffer carries a generation: making it current, loading it on the
// reading thread, resetting or destroying it moves the generation on, and a span whose buffer has
// moved on since it was requested is dropped instead of copied. The loader therefore never writes
// the buffer being read. A request replaces one the loader has not started.
//
// The loader thread starts with the first request and is joined by destroy() and by the
// destructor: it never outlives the buffers (or the file that owns them).

#include <array>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "KXBase/KXNativeAudioBuffer.h"

// What the play buffers did since they were made: how often the reader moved to a frame outside
// its buffer, how often it then had to load the other buffer itself, and what the predictions did.
struct KXPlayBufferStatistics {
    std::uint64_t switches = 0;            // the frame asked for was not in the current buffer
    std::uint64_t readerLoads = 0;         // … nor in the other one: loaded on the reading thread
    std::uint64_t predictedLoads = 0;      // predictions that loaded a span (at once or on the loader)
    std::uint64_t prefetchedLoads = 0;     // spans the loader thread copied in
    std::uint64_t droppedPrefetches = 0;   // spans the loader rendered for a buffer that had moved on
};

class KXPlayBuffers {
public:
    // Renders a span into the buffer it is given; answers the file frames the buffer then holds.
    using Render = std::function<KXSampleRange(KXNativeAudioBuffer&)>;

    KXPlayBuffers() = default;
    ~KXPlayBuffers();
    KXPlayBuffers(const KXPlayBuffers&) = delete;
    KXPlayBuffers& operator=(const KXPlayBuffers&) = delete;

    // --- On the reading thread
    // Makes each missing buffer, `channels` × `frames`, zeroed, range (0, 0).
    void create(std::uint32_t channels, std::uint32_t frames);
    // Joins the loader, then releases both buffers.
    void destroy();
    bool exist() const { return buffers_[0] != nullptr; }
    // Buffer 0's channel count; 0 when there is none.
    std::uint32_t numberOfChannels() const;
    // Frames a buffer holds (its capacity); 0 when there is none.
    std::uint32_t frames() const;
    // Clears both buffers and sets their ranges to (0, 0); pending loads are dropped.
    void reset();

    std::int32_t currentIndex() const { return currentIndex_; }
    // The range of buffer `index` (0 or 1); (0, 0) for a missing one.
    KXSampleRange range(std::int32_t index) const;
    const KXSampleRange& currentRange() const { return currentRange_; }
    // The current buffer, for reading its samples; nullptr when there is none.
    const KXNativeAudioBuffer* current() const { return buffers_[std::size_t(currentIndex_)].get(); }
    // Makes buffer `index` current when its range holds `frame`: true, and anything still on its
    // way into it is dropped.
    bool makeCurrentIfHolding(std::int32_t index, std::uint64_t frame);
    // Loads buffer `index` here and now, through `render`, and stores its range; `makeCurrent`
    // also makes it the current buffer.
    void load(std::int32_t index, const Render& render, bool makeCurrent);
    // Asks the loader thread to load buffer `index` through `render` (which must own what it
    // renders from).
    void prefetch(std::int32_t index, Render render);
    // Waits until the loader has nothing left to do (tests and benchmarks).
    void waitForLoader();

    KXPlayBufferStatistics statistics() const;
    void countSwitch(bool readerLoaded);
    void countPredictedLoad();

private:
    struct Request {
        std::int32_t index = 0;
        std::uint64_t generation = 0;
        std::uint32_t channels = 0, frames = 0;
        Render render;
    };
    void runLoader();
    void stopLoader();

    // Guards the buffers' ranges, generations, the objects themselves, a loaded span's copy, and
    // the statistics.
    mutable std::mutex lock_;
    std::array<std::unique_ptr<KXNativeAudioBuffer>, 2> buffers_;
    std::array<std::uint64_t, 2> generation_{};
    KXPlayBufferStatistics statistics_;
    // The reading thread's own: which buffer it reads and that buffer's range.
    std::int32_t currentIndex_ = 0;
    KXSampleRange currentRange_;

    // The loader: its thread, the request it has not started, and whether it is busy.
    std::mutex requestLock_;
    std::condition_variable requestChanged_;
    std::optional<Request> request_;
    bool loading_ = false;
    bool stopping_ = false;
    std::thread loader_;
};
