#include "KXAudioFile/KXAudioFileWrapper/KXPlayBuffers.h"

#include <algorithm>

KXPlayBuffers::~KXPlayBuffers() { stopLoader(); }

// --- The buffers

void KXPlayBuffers::create(std::uint32_t channels, std::uint32_t frames) {
    std::lock_guard<std::mutex> lock(lock_);
    for (std::size_t i = 0; i < buffers_.size(); ++i) {
        if (buffers_[i]) continue;
        buffers_[i] = std::make_unique<KXNativeAudioBuffer>(channels, frames);
        buffers_[i]->setRange({0, 0});
        ++generation_[i];
        if (std::int32_t(i) == currentIndex_) currentRange_ = {};
    }
}

void KXPlayBuffers::destroy() {
    stopLoader();
    std::lock_guard<std::mutex> lock(lock_);
    for (std::size_t i = 0; i < buffers_.size(); ++i) {
        buffers_[i].reset();
        ++generation_[i];
    }
    currentIndex_ = 0;
    currentRange_ = {};
}

std::uint32_t KXPlayBuffers::numberOfChannels() const { return buffers_[0] ? buffers_[0]->numberOfChannels() : 0; }

std::uint32_t KXPlayBuffers::frames() const { return buffers_[0] ? buffers_[0]->capacity() : 0; }

void KXPlayBuffers::reset() {
    std::lock_guard<std::mutex> lock(lock_);
    for (std::size_t i = 0; i < buffers_.size(); ++i) {
        ++generation_[i];
        if (!buffers_[i]) continue;
        buffers_[i]->clear();
        buffers_[i]->setRange({0, 0});
    }
    currentRange_ = {};
}

KXSampleRange KXPlayBuffers::range(std::int32_t index) const {
    std::lock_guard<std::mutex> lock(lock_);
    const auto& buffer = buffers_[std::size_t(index)];
    return buffer ? buffer->range() : KXSampleRange{};
}

bool KXPlayBuffers::makeCurrentIfHolding(std::int32_t index, std::uint64_t frame) {
    std::lock_guard<std::mutex> lock(lock_);
    const auto& buffer = buffers_[std::size_t(index)];
    if (!buffer || !buffer->range().containsFrame(frame)) return false;
    ++generation_[std::size_t(index)];
    currentIndex_ = index;
    currentRange_ = buffer->range();
    return true;
}

void KXPlayBuffers::load(std::int32_t index, const Render& render, bool makeCurrent) {
    KXNativeAudioBuffer* buffer;
    {
        // From here on nothing the loader finishes lands in this buffer, so it is this thread's
        // to write without the lock.
        std::lock_guard<std::mutex> lock(lock_);
        buffer = buffers_[std::size_t(index)].get();
        if (!buffer) return;
        ++generation_[std::size_t(index)];
        buffer->setRange({0, 0});
        if (makeCurrent) currentIndex_ = index;
        if (index == currentIndex_) currentRange_ = {};
    }
    const KXSampleRange range = render(*buffer);
    std::lock_guard<std::mutex> lock(lock_);
    buffer->setRange(range);
    if (index == currentIndex_) currentRange_ = range;
}

// --- The loader thread

void KXPlayBuffers::prefetch(std::int32_t index, Render render) {
    Request request;
    {
        std::lock_guard<std::mutex> lock(lock_);
        const auto& buffer = buffers_[std::size_t(index)];
        if (!buffer) return;
        request = {index, generation_[std::size_t(index)], buffer->numberOfChannels(), buffer->capacity(), std::move(render)};
    }
    {
        std::lock_guard<std::mutex> lock(requestLock_);
        request_ = std::move(request);
        if (!loader_.joinable()) {
            stopping_ = false;
            loader_ = std::thread([this] { runLoader(); });
        }
    }
    requestChanged_.notify_all();
}

void KXPlayBuffers::runLoader() {
    std::unique_ptr<KXNativeAudioBuffer> staging;
    std::unique_lock<std::mutex> requests(requestLock_);
    while (true) {
        requestChanged_.wait(requests, [this] { return stopping_ || request_; });
        if (stopping_) break;
        Request request = std::move(*request_);
        request_.reset();
        loading_ = true;
        requests.unlock();

        if (!staging || staging->numberOfChannels() != request.channels || staging->capacity() != request.frames)
            staging = std::make_unique<KXNativeAudioBuffer>(request.channels, request.frames);
        const KXSampleRange range = request.render(*staging);
        {
            std::lock_guard<std::mutex> lock(lock_);
            KXNativeAudioBuffer* buffer = buffers_[std::size_t(request.index)].get();
            const bool wanted = buffer && generation_[std::size_t(request.index)] == request.generation &&
                                buffer->numberOfChannels() == request.channels && buffer->capacity() == request.frames;
            if (wanted) {
                for (std::uint32_t c = 0; c < request.channels; ++c)
                    std::copy_n(staging->channel(c), request.frames, buffer->channel(c));
                buffer->setRange(range);
                ++statistics_.prefetchedLoads;
            } else {
                ++statistics_.droppedPrefetches;
            }
        }

        requests.lock();
        loading_ = false;
        requestChanged_.notify_all();
    }
}

void KXPlayBuffers::waitForLoader() {
    std::unique_lock<std::mutex> requests(requestLock_);
    requestChanged_.wait(requests, [this] { return !loader_.joinable() || (!request_ && !loading_); });
}

void KXPlayBuffers::stopLoader() {
    {
        std::lock_guard<std::mutex> lock(requestLock_);
        if (!loader_.joinable()) return;
        stopping_ = true;
        request_.reset();
    }
    requestChanged_.notify_all();
    loader_.join();
}

// --- Statistics

KXPlayBufferStatistics KXPlayBuffers::statistics() const {
    std::lock_guard<std::mutex> lock(lock_);
    return statistics_;
}

void KXPlayBuffers::countSwitch(bool readerLoaded) {
    std::lock_guard<std::mutex> lock(lock_);
    ++statistics_.switches;
    if (readerLoaded) ++statistics_.readerLoads;
}

void KXPlayBuffers::countPredictedLoad() {
    std::lock_guard<std::mutex> lock(lock_);
    ++statistics_.predictedLoads;
}
