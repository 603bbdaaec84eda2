// REX2 loops ("CAT "): the REX shared library decodes them (see KXREX). Opening takes the loop's
// description and slice positions from it; reading renders the slices that meet a span and lays
// each at its position. The open REX document stays with the file until the file goes.
//
// Positions: a loop's ticks are PPQ units, 15,360 a quarter note; tempo comes in thousandths of a
// beat per minute.

#include <algorithm>
#include <cmath>
#include <mutex>
#include <vector>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXChannels/KXWaveformCache.h"
#include "KXBase/KXFile.h"

namespace {
constexpr const char* kAction = "Parsing the ReCycle file";
constexpr float kTicksPerQuarter = 15360.0f;
// REX loops are short; a "CAT " file beyond this is no loop the library is handed whole.
constexpr std::uint64_t kMaximumREX2FileBytes = std::uint64_t(1) << 28;
// More slices than any loop has (a count no loop file could lead to: a label each).
constexpr REX_int32_t kMaximumSlices = 1 << 16;
// No slice renders longer than this (about six minutes at 44.1 kHz): a longer one is skipped.
constexpr std::int32_t kMaximumSliceFrames = 1 << 24;

// The REX library is one per process and not known to take calls from two threads at once.
std::mutex& rexLock() {
    static std::mutex lock;
    return lock;
}
}  // namespace

bool KXAudioFile::openREXDocument(KXFile& file, REXError* answer) {
    std::vector<char> bytes(static_cast<std::size_t>(fileSize_));
    if (file.readBytes(bytes.data(), bytes.size(), 0) != bytes.size()) return false;
    std::lock_guard<std::mutex> lock(rexLock());
    *answer = REXCreate(&rexHandle_, bytes.data(), REX_int32_t(bytes.size()), nullptr, nullptr);
    return *answer == kREXError_NoError;
}

void KXAudioFile::closeREXDocument() {
    if (!rexHandle_) return;
    std::lock_guard<std::mutex> lock(rexLock());
    REXDelete(&rexHandle_);
    rexHandle_ = nullptr;
}

bool KXAudioFile::parseREX2Header(KXFile& file, KXError* error) {
    format_ = KXFourCC("REX2");
    encoding_ = KXFourCC("lpcm");
    blockSizeByteOrder_ = audioDataByteOrder_ = KXByteOrderBigValue;
    isInterleaved_ = true;
    if (fileSize_ > kMaximumREX2FileBytes) return KXAudioFileError::fail(error, KXAudioFileErrorUnsupportedFormat, kAction);
    REXError answer = kREXImplError_DLLNotInitialized;
    if (!openREXDocument(file, &answer)) {
        return KXAudioFileError::fail(
            error, answer == kREXError_FileCorrupt ? KXAudioFileErrorCorruptFile : KXAudioFileErrorUnsupportedFormat, kAction);
    }
    REXInfo info{};
    {
        std::lock_guard<std::mutex> lock(rexLock());
        if (REXGetInfo(rexHandle_, sizeof info, &info) != kREXError_NoError)
            return KXAudioFileError::fail(error, KXAudioFileErrorUnsupportedFormat, kAction);
    }
    // What no loop has: nothing to lay the frames out by.
    if (info.fChannels < 1 || info.fChannels > 2 || info.fSampleRate <= 0 || info.fTempo <= 0 || info.fPPQLength <= 0 ||
        info.fBitDepth <= 0 || info.fBitDepth > 32 || info.fSliceCount > kMaximumSlices)
        return KXAudioFileError::fail(error, KXAudioFileErrorUnsupportedFormat, kAction);
    rate_ = std::uint32_t(info.fSampleRate);
    depth_ = std::uint32_t(info.fBitDepth);
    isFloatingPoint_ = false;
    numberOfChannels_ = std::uint32_t(info.fChannels);
    buildChannelsList();
    setTempo(float(info.fTempo) / 1000.0f);
    setMeterNumeratorDenominator(info.fTimeSignNom, info.fTimeSignDenom);
    setEighthBeats(info.fPPQLength / 7680);
    const double secondsPerBeat = 60.0 / double(tempo());
    const double frames = std::round(secondsPerBeat * double(float(info.fPPQLength) / kTicksPerQuarter) * rate_);
    if (!(frames >= 0 && frames <= 4294967295.0)) {
        KXSetError(error, KXAudioFileError::tooManyFramesError(kAction));
        return false;
    }
    frames_ = std::uint32_t(frames);
    // Deliberate: a REX2 file must have slices.
    if (info.fSliceCount <= 0) return KXAudioFileError::fail(error, KXAudioFileErrorMissingRequiredData, kAction);
    for (REX_int32_t i = 0; i < info.fSliceCount; ++i) {
        REXSliceInfo slice{};
        {
            std::lock_guard<std::mutex> lock(rexLock());
            if (REXGetSliceInfo(rexHandle_, i, sizeof slice, &slice) != kREXError_NoError) break;
        }
        sliceList_->addSliceWithPosition(secondsPerBeat * double(float(slice.fPPQPos) / kTicksPerQuarter));
    }
    setEditList(KXEditList::editListWithAudioFile(*this, 0));
    // Deliberate: the cached chunk is read as an 'anal' chunk.
    if (KXWaveformCache::isEnabled() && filename_)
        if (const auto chunk = KXWaveformCache::sharedInstance().chunkForPath(filename_->path())) parseAnalChunk(*chunk);
    return true;
}

KXSampleRange KXAudioFile::loadBufferFromREX2Source(std::int64_t frame, KXNativeAudioBuffer& buffer, bool reverse) {
    const std::int64_t n = buffer.capacity();
    // Reversed, the span ends at the frame — or starts at 0, so that the range says where the
    // frames lie.
    const std::int64_t start = std::clamp<std::int64_t>(reverse ? frame - n + 1 : frame, 0, 0xFFFFFFFF);
    const KXSampleRange range{std::uint32_t(start), std::uint32_t(n)};
    if (!rexHandle_) return range;
    std::lock_guard<std::mutex> lock(rexLock());
    REXInfo info{};
    REXGetInfo(rexHandle_, sizeof info, &info);
    const float tempo = float(info.fTempo) / 1000.0f;
    const std::size_t count = sliceList_->count();
    std::vector<REXSliceInfo> slices(count);
    std::int32_t longest = 0;
    for (std::size_t i = 0; i < count; ++i) {
        REXGetSliceInfo(rexHandle_, REX_int32_t(i), sizeof(REXSliceInfo), &slices[i]);
        if (slices[i].fSampleLength <= kMaximumSliceFrames) longest = std::max(longest, slices[i].fSampleLength);
    }
    std::vector<float> left(static_cast<std::size_t>(longest)), right(numberOfChannels_ == 2 ? std::size_t(longest) : 0);
    float* outputs[2] = {left.data(), numberOfChannels_ == 2 ? right.data() : nullptr};
    for (std::size_t i = 0; i < count && tempo > 0; ++i) {
        const std::int32_t length = slices[i].fSampleLength;
        if (length <= 0 || length > kMaximumSliceFrames) continue;
        const std::int64_t first = std::lround((60.0 / tempo) * double(float(slices[i].fPPQPos) / kTicksPerQuarter) * rate_);
        const std::int64_t from = std::max(first, start), to = std::min(first + length, start + n);
        if (from >= to) continue;
        REXRenderSlice(rexHandle_, REX_int32_t(i), length, outputs);
        for (std::uint32_t c = 0; c < std::min<std::uint32_t>(numberOfChannels_, 2); ++c)
            if (float* target = buffer.channel(c))
                std::copy(outputs[c] + (from - first), outputs[c] + (to - first), target + (from - start));
    }
    return range;
}
