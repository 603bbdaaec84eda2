// A stand-in for the REX shared library, for the tests: it implements the REX interface over the
// made-up loop format of KXFakeREXLoop.h. Built in variants: KX_FAKE_REX_OPEN_FAILS makes "Open"
// answer false, KX_FAKE_REX_WITHOUT_RENDER leaves REXRenderSlice out.

#include <algorithm>

#include "KXREX/KXREX.h"
#include "rex/KXFakeREXLoop.h"

#define KX_EXPORT extern "C" __attribute__((visibility("default")))

namespace {
int openCount = 0;
KXFakeREXLoop::Loop* loopOf(REXHandle handle) { return reinterpret_cast<KXFakeREXLoop::Loop*>(handle); }
}  // namespace

KX_EXPORT char Open(void) {
#ifdef KX_FAKE_REX_OPEN_FAILS
    return 0;
#else
    ++openCount;
    return 1;
#endif
}

KX_EXPORT void Close(void) { --openCount; }

// How many times the library is open (the tests check that unloading closes it).
KX_EXPORT int KXFakeREXOpenCount(void) { return openCount; }

KX_EXPORT REXError REXCreate(REXHandle* handle, const char buffer[], REX_int32_t size, REXCreateCallback callback,
                             void* userData) {
    if (!handle || !buffer || size <= 0) return kREXImplError_InvalidArgument;
    auto loop = new KXFakeREXLoop::Loop;
    if (!KXFakeREXLoop::decode(buffer, std::size_t(size), *loop)) {
        delete loop;
        return kREXError_FileCorrupt;
    }
    if (loop->answer != kREXError_NoError) {
        const auto answer = REXError(loop->answer);
        delete loop;
        return answer;
    }
    if (callback) callback(100, userData);
    *handle = reinterpret_cast<REXHandle>(loop);
    return kREXError_NoError;
}

KX_EXPORT void REXDelete(REXHandle* handle) {
    if (!handle) return;
    delete loopOf(*handle);
    *handle = nullptr;
}

KX_EXPORT REXError REXGetInfo(REXHandle handle, REX_int32_t infoSize, REXInfo* info) {
    if (!handle) return kREXImplError_InvalidHandle;
    if (infoSize != sizeof(REXInfo)) return kREXImplError_InvalidSize;
    const KXFakeREXLoop::Loop& loop = *loopOf(handle);
    *info = {loop.channels, loop.rate, REX_int32_t(loop.slices.size()), loop.tempo, loop.tempo, loop.ticks,
             loop.numerator, loop.denominator, loop.depth};
    return kREXError_NoError;
}

KX_EXPORT REXError REXGetInfoFromBuffer(REX_int32_t size, const char buffer[], REX_int32_t infoSize, REXInfo* info) {
    REXHandle handle = nullptr;
    const REXError answer = REXCreate(&handle, buffer, size, nullptr, nullptr);
    if (answer != kREXError_NoError) return answer;
    const REXError got = REXGetInfo(handle, infoSize, info);
    REXDelete(&handle);
    return got;
}

KX_EXPORT REXError REXGetCreatorInfo(REXHandle, REX_int32_t, REXCreatorInfo*) { return kREXError_NoCreatorInfoAvailable; }

KX_EXPORT REXError REXGetSliceInfo(REXHandle handle, REX_int32_t index, REX_int32_t size, REXSliceInfo* slice) {
    if (!handle) return kREXImplError_InvalidHandle;
    if (size != sizeof(REXSliceInfo)) return kREXImplError_InvalidSize;
    const KXFakeREXLoop::Loop& loop = *loopOf(handle);
    if (index < 0 || std::size_t(index) >= loop.slices.size()) return kREXImplError_InvalidSlice;
    *slice = {loop.slices[std::size_t(index)].ticks, loop.slices[std::size_t(index)].frames};
    return kREXError_NoError;
}

KX_EXPORT REXError REXSetOutputSampleRate(REXHandle handle, REX_int32_t) {
    return handle ? kREXError_NoError : kREXImplError_InvalidHandle;
}

#ifndef KX_FAKE_REX_WITHOUT_RENDER
KX_EXPORT REXError REXRenderSlice(REXHandle handle, REX_int32_t index, REX_int32_t frames, float* outputs[2]) {
    if (!handle) return kREXImplError_InvalidHandle;
    const KXFakeREXLoop::Loop& loop = *loopOf(handle);
    if (index < 0 || std::size_t(index) >= loop.slices.size()) return kREXImplError_InvalidSlice;
    if (frames < loop.slices[std::size_t(index)].frames) return kREXImplError_BufferTooSmall;
    for (int c = 0; c < std::min(loop.channels, 2); ++c)
        if (outputs[c])
            for (REX_int32_t f = 0; f < loop.slices[std::size_t(index)].frames; ++f)
                outputs[c][f] = KXFakeREXLoop::sliceSample(index, f, c);
    return kREXError_NoError;
}
#endif

KX_EXPORT REXError REXStartPreview(REXHandle) { return kREXError_NoError; }
KX_EXPORT REXError REXStopPreview(REXHandle) { return kREXError_NoError; }
KX_EXPORT REXError REXRenderPreviewBatch(REXHandle, REX_int32_t, float*[2]) { return kREXError_NoError; }
KX_EXPORT REXError REXSetPreviewTempo(REXHandle, REX_int32_t) { return kREXError_NoError; }
