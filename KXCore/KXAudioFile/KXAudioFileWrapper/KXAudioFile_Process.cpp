// Processing: a changed copy of the file's samples rendered into a writer — gain, curve, anchored
// and automation fades, phase inversion, the DC-offset filter, channel sums and differences,
// balance, reversal, a channel matrix, snipping, sample-rate conversion (libsoxr) and time
// stretching and pitch shifting (SoundTouch).
//
// Every operation begins the writer's write, resets the progress delegate, works, and ends the
// write, also when the delegate stopped it. The sample-by-sample operations report after every
// frame; they read and write whole blocks, and a stop writes the frames done up to and including
// the frame whose report stopped them, just as writing sample by sample would have.

#include <soundtouch/SoundTouch.h>
#include <soxr.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXBase/KXAutomationEntry.h"

namespace {

struct Frames {
    std::uint64_t start = 0, end = 0;
    std::uint64_t count() const { return end > start ? end - start : 0; }
};

// "range" (at the file's rate) or "start" and "end", as given.
Frames framesOf(const KXFrameSelection& selection, std::uint32_t rate, std::uint32_t frames) {
    if (selection.range) {
        KXRange range = *selection.range;
        range.setRate(rate);
        return {range.sampleStart(), range.sampleEnd()};
    }
    return {selection.start.value_or(0), selection.end.value_or(frames)};
}

// The same, kept within the file.
Frames clampedFramesOf(const KXFrameSelection& selection, std::uint32_t rate, std::uint32_t frames) {
    const Frames given = framesOf(selection, rate, frames);
    const std::uint64_t start = std::min<std::uint64_t>(given.start, frames);
    return {start, std::clamp<std::uint64_t>(given.end, start, frames)};
}

KXIndexSet indexSetOf(const std::vector<std::uint32_t>& channels) {
    KXIndexSet set;
    for (std::uint32_t channel : channels) set.addIndex(channel);
    return set;
}

// The bits of a float with the sign flipped: 0.0 becomes -0.0.
float flippedSign(float x) { return std::bit_cast<float>(std::bit_cast<std::uint32_t>(x) ^ 0x80000000u); }

float curveFadeIn(float t, float c) { return (1 - t) * t * 2 * (1 - c) + t * t; }
float curveFadeOut(float t, float c) { return (1 - t) * (1 - t) + t * 2 * c * (1 - t); }

void refuse(KXError* error, const std::string& action) { KXSetError(error, KXError::posixError(EINVAL, action)); }

// Writes what a stream processor makes, up to `expected` frames in all, and silence after its
// last frame when it made fewer: a conversion's length is the selection's times the ratio,
// rounded, whatever the processor's delay and flushing leave.
class StreamOutput {
public:
    StreamOutput(KXAudioFileWriter& writer, std::uint32_t channels, std::uint64_t expected)
        : writer_(writer), buffer_(channels, kFrames), expected_(expected) {}
    KXNativeAudioBuffer& buffer() { return buffer_; }
    // Writes the first `frames` frames of the buffer, or what is still expected of them.
    void write(std::uint32_t frames) {
        const auto n = std::uint32_t(std::min<std::uint64_t>(frames, expected_ - written_));
        buffer_.setFrames(n);
        writer_.writeBuffer(buffer_);
        buffer_.setFrames(buffer_.capacity());
        written_ += n;
    }
    bool isComplete() const { return written_ >= expected_; }
    void finish() {
        buffer_.setFrames(buffer_.capacity());
        buffer_.clear();
        while (!isComplete()) write(buffer_.capacity());
    }

    static constexpr std::uint32_t kFrames = 8192;

private:
    KXAudioFileWriter& writer_;
    KXNativeAudioBuffer buffer_;
    std::uint64_t expected_, written_ = 0;
};

// Stretching keeps within these: a quarter to four times the length, three octaves either way.
constexpr double kMinimumStretch = 0.25, kMaximumStretch = 4.0, kMaximumSemitones = 36.0;

}  // namespace

// --- The frame of every operation

// The writer's write around `work`, which answers the last status.
template <class Work>
std::int32_t KXAudioFile::writeProcessed(KXAudioFileWriter& writer, KXError* error, Work&& work) {
    if (!writer.beginWrite(error)) return kProcessFailed;
    progressDelegate_->reset();
    const std::int32_t status = work();
    if (!writer.endWrite(error)) return kProcessFailed;
    return status;
}

// Frames [from, to) of `channels`, block by block: `frame(in, out, i, f)` makes output frame i of
// the block (file frame f) from input frame i, then `fraction(f)` is reported.
template <class Frame, class Fraction>
std::int32_t KXAudioFile::renderFrames(KXAudioFileWriter& writer, std::uint64_t from, std::uint64_t to,
                                       const KXIndexSet& channels, std::uint32_t outputs, Frame&& frame,
                                       Fraction&& fraction) {
    const std::uint32_t block = readBufferFrames();
    KXNativeAudioBuffer in(std::uint32_t(channels.count()), block), out(outputs, block);
    std::int32_t status = kGoOn;
    for (std::uint64_t position = from; position < to && status == kGoOn;) {
        in.setFrames(std::uint32_t(std::min<std::uint64_t>(to - position, block)));
        const std::int32_t read = readSamplesToBuffer(in, std::int64_t(position), channels);
        if (read <= 0) break;
        std::uint32_t done = 0;
        while (done < std::uint32_t(read) && status == kGoOn) {
            frame(in, out, done, position + done);
            status = progressDelegate_->update(fraction(position + done));
            ++done;
        }
        out.setFrames(done);
        writer.writeBuffer(out);
        position += done;
    }
    return status;
}

// Frames [from, to) of `channels` in whole blocks: `block(buffer)` answers what to write of the
// block read (the buffer itself, changed in place, another, or nothing); `fraction(f)` is
// reported once a block, f being the frame after it.
template <class Block, class Fraction>
std::int32_t KXAudioFile::renderBlocks(KXAudioFileWriter& writer, std::uint64_t from, std::uint64_t to,
                                       const KXIndexSet& channels, Block&& block, Fraction&& fraction) {
    KXNativeAudioBuffer buffer(std::uint32_t(channels.count()), readBufferFrames());
    std::int32_t status = kGoOn;
    std::uint64_t position = from;
    do {
        buffer.setFrames(std::uint32_t(std::min<std::uint64_t>(to - position, buffer.capacity())));
        const std::int32_t read = readSamplesToBuffer(buffer, std::int64_t(position), channels);
        // Deliberate: an end past the file's last frame reads nothing there, and stops.
        if (read <= 0) break;
        position += std::uint64_t(read);
        buffer.setFrames(std::uint32_t(read));
        if (const KXNativeAudioBuffer* result = block(buffer)) writer.writeBuffer(*result);
        status = progressDelegate_->update(fraction(position));
    } while (status == kGoOn && position < to);
    return status;
}

// --- Gain and fades

std::int32_t KXAudioFile::changeAmplitude(const KXAmplitudeInstructions& instructions, KXAudioFileWriter& writer,
                                          KXError* error) {
    const Frames frames = framesOf(instructions, rate_, frames_);
    const KXIndexSet channels = indexSetOf(channelsIn(instructions.channels.value_or(channelSet())));
    const float gain = instructions.gain.value_or(1.0f);
    writer.setChannels(std::int32_t(channels.count()));
    // Deliberate: an end before the start reads one buffer from the start, as the unsigned
    // frame count of the design's loop makes it.
    return writeProcessed(writer, error, [&] {
        return renderBlocks(
            writer, frames.start, frames.end, channels,
            [&](KXNativeAudioBuffer& buffer) -> const KXNativeAudioBuffer* {
                if (gain != 1.0f) buffer.scale(gain);
                return &buffer;
            },
            [&](std::uint64_t position) { return double(position - frames.start) / double(frames.end - frames.start); });
    });
}

std::int32_t KXAudioFile::fade(KXAudioFileWriter& writer, std::uint32_t from, std::uint32_t to,
                               const KXIndexSet& wanted, std::int32_t type, float curve, KXError* error) {
    const KXIndexSet channels = indexSetOf(channelsIn(wanted));
    writer.setChannels(std::int32_t(channels.count()));
    const std::uint32_t n = to > from ? to - from : 0;
    return writeProcessed(writer, error, [&] {
        // Deliberate: any other type writes nothing and answers the first frame.
        if (type != 0 && type != 1) return std::int32_t(from);
        const auto t = [&](std::uint64_t frame) { return float(frame - from) / float(n); };
        return renderFrames(
            writer, from, std::uint64_t(from) + n, channels, std::uint32_t(channels.count()),
            [&](const KXNativeAudioBuffer& in, KXNativeAudioBuffer& out, std::uint32_t i, std::uint64_t frame) {
                const float gain = type == 0 ? curveFadeIn(t(frame), curve) : curveFadeOut(t(frame), curve);
                for (std::uint32_t c = 0; c < in.numberOfChannels(); ++c) out.channel(c)[i] = in.channel(c)[i] * gain;
            },
            t);
    });
}

std::int32_t KXAudioFile::fade(KXAudioFileWriter& writer, std::int32_t type, std::uint32_t anchor, float curve,
                               KXError* error) {
    const KXIndexSet channels = channelSet();
    const double frames = frames_;
    return writeProcessed(writer, error, [&] {
        return renderFrames(
            writer, 0, frames_, channels, numberOfChannels_,
            [&](const KXNativeAudioBuffer& in, KXNativeAudioBuffer& out, std::uint32_t i, std::uint64_t frame) {
                float gain = 1;
                if (type == 0 && frame < anchor) {
                    const float t = float(frame) / float(anchor);
                    gain = t * t + (1 - t) * t * 2 * (1 - curve);
                } else if (type == 1 && frame > anchor) {
                    const float t = float(frame - anchor) / float(frames_ - anchor);
                    gain = 2 * curve * t * (1 - t) + (1 - t) * (1 - t);
                }
                for (std::uint32_t c = 0; c < in.numberOfChannels(); ++c) out.channel(c)[i] = in.channel(c)[i] * gain;
            },
            [&](std::uint64_t frame) { return double(frame) / frames; });
    });
}

std::int32_t KXAudioFile::fade(const KXFadeInstructions& instructions, KXAudioFileWriter& writer, KXError* error) {
    const Frames frames = framesOf(instructions, rate_, frames_);
    KXAutomationEntry entry;
    entry.setStart(0.0, 1.0);
    entry.setStartValue(instructions.startValue.value_or(0.0f));
    entry.setEndValue(instructions.endValue.value_or(0.0f));
    entry.setControlType(instructions.type.value_or(0));
    if (instructions.controlPoints)
        for (const std::string& point : *instructions.controlPoints) entry.addControlPoint(KXPoint::pointFromString(point));
    writer.setChannels(std::int32_t(numberOfChannels_));
    const double length = double(frames.count());
    const auto time = [&](std::uint64_t frame) { return double(frame - frames.start) / length; };
    return writeProcessed(writer, error, [&] {
        return renderFrames(
            writer, frames.start, frames.start + frames.count(), channelSet(), numberOfChannels_,
            [&](const KXNativeAudioBuffer& in, KXNativeAudioBuffer& out, std::uint32_t i, std::uint64_t frame) {
                const float gain = entry.valueAtTime(time(frame));
                for (std::uint32_t c = 0; c < in.numberOfChannels(); ++c) out.channel(c)[i] = in.channel(c)[i] * gain;
            },
            [&](std::uint64_t frame) { return double(float(time(frame))); });
    });
}

// --- Phase, DC offset, sums and differences

std::int32_t KXAudioFile::invertPhase(KXAudioFileWriter& writer, KXError* error) {
    return invertPhase(writer, 0, frames_, channelSet(), error);
}

std::int32_t KXAudioFile::invertPhase(KXAudioFileWriter& writer, std::uint32_t from, std::uint32_t to,
                                      const KXIndexSet& wanted, KXError* error) {
    const KXIndexSet channels = indexSetOf(channelsIn(wanted));
    return writeProcessed(writer, error, [&] {
        return renderFrames(
            writer, from, std::max(from, to), channels, std::uint32_t(channels.count()),
            [](const KXNativeAudioBuffer& in, KXNativeAudioBuffer& out, std::uint32_t i, std::uint64_t) {
                for (std::uint32_t c = 0; c < in.numberOfChannels(); ++c) out.channel(c)[i] = flippedSign(in.channel(c)[i]);
            },
            [&](std::uint64_t frame) { return double(frame - from) / double(to - from); });
    });
}

std::int32_t KXAudioFile::filterDCOffset(KXAudioFileWriter& writer, KXError* error) {
    return filterDCOffset(writer, 0, frames_, channelSet(), error);
}

std::int32_t KXAudioFile::filterDCOffset(KXAudioFileWriter& writer, std::uint32_t from, std::uint32_t to,
                                         const KXIndexSet& wanted, KXError* error) {
    const KXIndexSet channels = indexSetOf(channelsIn(wanted));
    // Computed in double precision, kept in single: 0.9971429 at 44,100 Hz.
    const auto r = float(1.0 - 126.0 / double(rate_));
    std::vector<float> previousIn(channels.count(), 0.0f), previousOut(channels.count(), 0.0f);
    return writeProcessed(writer, error, [&] {
        return renderFrames(
            writer, from, std::max(from, to), channels, std::uint32_t(channels.count()),
            [&](const KXNativeAudioBuffer& in, KXNativeAudioBuffer& out, std::uint32_t i, std::uint64_t) {
                for (std::uint32_t c = 0; c < in.numberOfChannels(); ++c) {
                    const float x = in.channel(c)[i];
                    const float y = x - previousIn[c] + r * previousOut[c];
                    previousIn[c] = x, previousOut[c] = y;
                    out.channel(c)[i] = y;
                }
            },
            [&](std::uint64_t frame) { return double(frame - from) / double(to - from); });
    });
}

std::int32_t KXAudioFile::sumChannels(const KXIndexSet& channels, bool average, KXAudioFileWriter& writer,
                                      KXError* error) {
    return sumChannels(channels, average, KXSampleRange{0, frames_}, writer, error);
}

std::int32_t KXAudioFile::sumChannels(const KXIndexSet& channels, bool average, KXSampleRange range,
                                      KXAudioFileWriter& writer, KXError* error) {
    return combineChannels(channels, average, range, false, writer, error);
}

std::int32_t KXAudioFile::subtractChannels(const KXIndexSet& channels, bool average, KXAudioFileWriter& writer,
                                           KXError* error) {
    return subtractChannels(channels, average, KXSampleRange{0, frames_}, writer, error);
}

std::int32_t KXAudioFile::subtractChannels(const KXIndexSet& channels, bool average, KXSampleRange range,
                                           KXAudioFileWriter& writer, KXError* error) {
    return combineChannels(channels, average, range, true, writer, error);
}

std::int32_t KXAudioFile::combineChannels(const KXIndexSet& wanted, bool average, KXSampleRange range,
                                          bool difference, KXAudioFileWriter& writer, KXError* error) {
    const KXIndexSet channels = indexSetOf(channelsIn(wanted));
    const auto count = float(channels.count());
    return writeProcessed(writer, error, [&] {
        return renderFrames(
            writer, range.location, range.end(), channels, 1,
            [&](const KXNativeAudioBuffer& in, KXNativeAudioBuffer& out, std::uint32_t i, std::uint64_t) {
                float value = in.numberOfChannels() > 0 ? in.channel(0)[i] : 0.0f;
                for (std::uint32_t c = 1; c < in.numberOfChannels(); ++c)
                    value = difference ? value - in.channel(c)[i] : value + in.channel(c)[i];
                out.channel(0)[i] = average && count > 0 ? value / count : value;
            },
            // Deliberate: the absolute frame over the length, beyond 1 for a range not at 0.
            [&](std::uint64_t frame) { return double(frame) / double(range.length); });
    });
}

// --- Balance, reversal, channel matrix, snipping

std::int32_t KXAudioFile::changeBalance(float balance, const KXProcessSelection& selection,
                                        KXAudioFileWriter& writer, KXError* error) {
    if (!(balance >= -1.0f && balance <= 1.0f)) {
        refuse(error, "Changing the balance: it must lie between -1 and 1");
        return kProcessFailed;
    }
    const Frames frames = clampedFramesOf(selection, rate_, frames_);
    const KXIndexSet channels = indexSetOf(channelsIn(selection.channels.value_or(channelSet())));
    const float left = std::min(1.0f, 1.0f - balance), right = std::min(1.0f, 1.0f + balance);
    writer.setChannels(std::int32_t(channels.count()));
    return writeProcessed(writer, error, [&] {
        if (frames.count() == 0) return kGoOn;
        return renderBlocks(
            writer, frames.start, frames.end, channels,
            [&](KXNativeAudioBuffer& buffer) -> const KXNativeAudioBuffer* {
                if (buffer.numberOfChannels() < 2) return &buffer;
                for (std::uint32_t i = 0; i < buffer.frames(); ++i) buffer.channel(0)[i] *= left;
                for (std::uint32_t i = 0; i < buffer.frames(); ++i) buffer.channel(1)[i] *= right;
                return &buffer;
            },
            [&](std::uint64_t position) { return double(position - frames.start) / double(frames.count()); });
    });
}

std::int32_t KXAudioFile::reverse(const KXProcessSelection& selection, KXAudioFileWriter& writer, KXError* error) {
    const Frames frames = clampedFramesOf(selection, rate_, frames_);
    const KXIndexSet channels = indexSetOf(channelsIn(selection.channels.value_or(channelSet())));
    writer.setChannels(std::int32_t(channels.count()));
    return writeProcessed(writer, error, [&] {
        KXNativeAudioBuffer buffer(std::uint32_t(channels.count()), readBufferFrames());
        std::int32_t status = kGoOn;
        for (std::uint64_t end = frames.end; end > frames.start && status == kGoOn;) {
            const std::uint64_t start = end - std::min<std::uint64_t>(end - frames.start, buffer.capacity());
            buffer.setFrames(std::uint32_t(end - start));
            if (readSamplesToBuffer(buffer, std::int64_t(start), channels) != std::int32_t(end - start)) break;
            buffer.reverse();
            writer.writeBuffer(buffer);
            end = start;
            status = progressDelegate_->update(double(frames.end - end) / double(frames.count()));
        }
        return status;
    });
}

std::int32_t KXAudioFile::mixChannels(const KXChannelMatrix& matrix, const KXProcessSelection& selection,
                                      KXAudioFileWriter& writer, KXError* error) {
    if (matrix.empty()) {
        refuse(error, "Mixing channels: the matrix has no rows");
        return kProcessFailed;
    }
    const Frames frames = clampedFramesOf(selection, rate_, frames_);
    const KXIndexSet channels = indexSetOf(channelsIn(selection.channels.value_or(channelSet())));
    writer.setChannels(std::int32_t(std::min<std::size_t>(matrix.size(), 0x7FFFFFFF)));
    return writeProcessed(writer, error, [&] {
        if (frames.count() == 0) return kGoOn;
        // Made once the writer has taken the channel count: it refuses more than it can hold.
        KXNativeAudioBuffer out(std::uint32_t(matrix.size()), readBufferFrames());
        return renderBlocks(
            writer, frames.start, frames.end, channels,
            [&](const KXNativeAudioBuffer& in) -> const KXNativeAudioBuffer* {
                out.setFrames(in.frames());
                for (std::uint32_t o = 0; o < matrix.size(); ++o) {
                    float* mixed = out.channel(o);
                    std::fill_n(mixed, in.frames(), 0.0f);
                    const std::size_t inputs = std::min<std::size_t>(matrix[o].size(), in.numberOfChannels());
                    for (std::uint32_t c = 0; c < inputs; ++c) {
                        const float weight = matrix[o][c];
                        const float* samples = in.channel(c);
                        if (weight != 0.0f)
                            for (std::uint32_t i = 0; i < in.frames(); ++i) mixed[i] += weight * samples[i];
                    }
                }
                return &out;
            },
            [&](std::uint64_t position) { return double(position - frames.start) / double(frames.count()); });
    });
}

std::int32_t KXAudioFile::snip(const KXFrameSelection& selection, KXAudioFileWriter& writer, KXError* error) {
    const Frames cut = clampedFramesOf(selection, rate_, frames_);
    const KXIndexSet channels = channelSet();
    writer.setChannels(std::int32_t(numberOfChannels_));
    const double kept = double(frames_ - cut.count());
    const auto copy = [](KXNativeAudioBuffer& buffer) -> const KXNativeAudioBuffer* { return &buffer; };
    return writeProcessed(writer, error, [&] {
        std::int32_t status = kGoOn;
        if (cut.start > 0)
            status = renderBlocks(writer, 0, cut.start, channels, copy,
                                  [&](std::uint64_t position) { return double(position) / kept; });
        if (status == kGoOn && cut.end < frames_)
            status = renderBlocks(writer, cut.end, frames_, channels, copy,
                                  [&](std::uint64_t position) { return double(position - cut.count()) / kept; });
        return status;
    });
}

// --- Rate, tempo and pitch

std::int32_t KXAudioFile::convertRate(const KXRateInstructions& instructions, KXAudioFileWriter& writer,
                                      KXError* error) {
    const Frames frames = clampedFramesOf(instructions, rate_, frames_);
    const KXIndexSet channels = indexSetOf(channelsIn(instructions.channels.value_or(channelSet())));
    const auto count = std::uint32_t(channels.count());
    const double expected = rate_ ? std::round(double(frames.count()) * instructions.rate / double(rate_)) : 0.0;
    if (instructions.rate == 0 || instructions.rate > 0x7FFFFFFF || count == 0 || expected > 0xFFFFFFFF) {
        refuse(error, "Converting the sample rate: the rate, the channels or the resulting length cannot be");
        return kProcessFailed;
    }
    static constexpr unsigned long kRecipes[] = {SOXR_QQ, SOXR_LQ, SOXR_MQ, SOXR_HQ, SOXR_VHQ};
    const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_S, SOXR_FLOAT32_S);
    const soxr_quality_spec_t quality = soxr_quality_spec(kRecipes[int(instructions.quality)], 0);
    const soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
    soxr_error_t failure = nullptr;
    const std::unique_ptr<soxr, void (*)(soxr_t)> resampler(
        soxr_create(double(rate_), double(instructions.rate), count, &failure, &io, &quality, &runtime), soxr_delete);
    if (!resampler) {
        refuse(error, std::string("Converting the sample rate: ") + (failure ? failure : "no resampler"));
        return kProcessFailed;
    }
    writer.setRate(std::int32_t(instructions.rate));
    writer.setChannels(std::int32_t(count));
    return writeProcessed(writer, error, [&] {
        StreamOutput output(writer, count, std::uint64_t(expected));
        std::vector<void*> outputs(count);
        std::vector<const void*> inputs(count);
        for (std::uint32_t c = 0; c < count; ++c) outputs[c] = output.buffer().channel(c);
        // One call: the input from `used` on (none: the end of the input), as much output as fits.
        const auto process = [&](const KXNativeAudioBuffer* in, std::size_t used, std::size_t& taken) {
            for (std::uint32_t c = 0; in && c < count; ++c) inputs[c] = in->channel(c) + used;
            std::size_t made = 0;
            soxr_process(resampler.get(), in ? inputs.data() : nullptr, in ? in->frames() - used : 0, &taken,
                         outputs.data(), StreamOutput::kFrames, &made);
            output.write(std::uint32_t(made));
            return made;
        };
        const std::int32_t status = renderBlocks(
            writer, frames.start, frames.end, channels,
            [&](const KXNativeAudioBuffer& in) -> const KXNativeAudioBuffer* {
                for (std::size_t used = 0, made = StreamOutput::kFrames; used < in.frames() || made == StreamOutput::kFrames;) {
                    std::size_t taken = 0;
                    made = process(&in, used, taken);
                    used += taken;
                    if (taken == 0 && made == 0) break;
                }
                return nullptr;
            },
            [&](std::uint64_t position) { return double(position - frames.start) / double(frames.count()); });
        if (status != kGoOn) return status;
        for (std::size_t taken = 0; !output.isComplete() && process(nullptr, 0, taken) > 0;) {}
        output.finish();
        return status;
    });
}

std::int32_t KXAudioFile::stretch(const KXStretchInstructions& instructions, KXAudioFileWriter& writer,
                                  KXError* error) {
    const Frames frames = clampedFramesOf(instructions, rate_, frames_);
    const KXIndexSet channels = indexSetOf(channelsIn(instructions.channels.value_or(channelSet())));
    const auto count = std::uint32_t(channels.count());
    const double expected = std::round(double(frames.count()) * instructions.factor);
    if (!(instructions.factor >= kMinimumStretch && instructions.factor <= kMaximumStretch) ||
        !(std::fabs(instructions.semitones) <= kMaximumSemitones) || count == 0 || count > 16 || rate_ == 0 ||
        expected > 0xFFFFFFFF) {
        refuse(error, "Stretching: the factor, the pitch change or the channels cannot be");
        return kProcessFailed;
    }
    soundtouch::SoundTouch stretcher;
    stretcher.setSampleRate(rate_);
    stretcher.setChannels(count);
    stretcher.setTempo(1.0 / instructions.factor);
    stretcher.setPitchSemiTones(instructions.semitones);
    writer.setChannels(std::int32_t(count));
    return writeProcessed(writer, error, [&] {
        StreamOutput output(writer, count, std::uint64_t(expected));
        std::vector<float> interleaved(std::size_t(count) * std::max(readBufferFrames(), StreamOutput::kFrames));
        // Everything the stretcher has ready.
        const auto receive = [&] {
            KXNativeAudioBuffer& out = output.buffer();
            while (const std::uint32_t made = stretcher.receiveSamples(interleaved.data(), StreamOutput::kFrames)) {
                for (std::uint32_t c = 0; c < count; ++c)
                    for (std::uint32_t i = 0; i < made; ++i) out.channel(c)[i] = interleaved[std::size_t(i) * count + c];
                output.write(made);
            }
        };
        const std::int32_t status = renderBlocks(
            writer, frames.start, frames.end, channels,
            [&](const KXNativeAudioBuffer& in) -> const KXNativeAudioBuffer* {
                for (std::uint32_t c = 0; c < count; ++c)
                    for (std::uint32_t i = 0; i < in.frames(); ++i) interleaved[std::size_t(i) * count + c] = in.channel(c)[i];
                stretcher.putSamples(interleaved.data(), in.frames());
                receive();
                return nullptr;
            },
            [&](std::uint64_t position) { return double(position - frames.start) / double(frames.count()); });
        if (status != kGoOn) return status;
        stretcher.flush();
        receive();
        output.finish();
        return status;
    });
}
