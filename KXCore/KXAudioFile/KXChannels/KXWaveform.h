#pragma once
// KXWaveform: a waveform overview — one 32-bit float per block of 256 frames of one channel, so
// that displays and searches need not read samples. Entry i describes frames i × 256 to
// i × 256 + 255. Three kinds differ only in what an entry holds: KXMaxWaveform (largest
// magnitude), KXRMSWaveform (root mean square), KXMeanWaveform (mean magnitude).
//
// Tables are in host byte order; swap() reverses every entry for big-endian storage.

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "KXBase/KXCoder.h"
#include "KXBase/KXData.h"
#include "KXBase/KXNativeAudioBuffer.h"

class KXWaveform : public KXCoding {
public:
    enum Type : std::int32_t { kMax = 0, kRMS = 1, kMean = 2, kNoType = -1 };
    static constexpr std::uint32_t kSamplesPerEntry = 256;

    KXWaveform() = default;
    ~KXWaveform() override = default;
    // A new empty overview of the kind.
    static std::shared_ptr<KXWaveform> waveformOfType(Type type);
    // A new overview of the kind holding a copy of `table` (host order; whole entries only).
    static std::shared_ptr<KXWaveform> waveformWithTable(Type type, const KXData& table);
    std::shared_ptr<KXWaveform> copy() const;

    virtual Type type() const { return kNoType; }
    // The entry value of `count` samples: 0.0 for the base kind.
    virtual float entryValueForBuffer(const float* samples, std::uint32_t count) const;

    bool hasTable() const { return table_.has_value(); }
    // The entries, valid until the table is replaced or resized; empty when there is none.
    std::span<const float> entries() const;
    std::span<float> mutableEntries();
    // The table as bytes, host order; nullopt when there is none.
    std::optional<KXData> table() const;
    // Takes a copy of the bytes, whole entries only (a trailing part of an entry is dropped);
    // empty bytes leave no table.
    void setTable(const KXData& table);
    void removeTable() { table_.reset(); }
    // Bytes in the table.
    std::uint64_t length() const { return std::uint64_t(numberOfEntries()) * 4; }
    std::uint32_t numberOfEntries() const { return table_ ? std::uint32_t(table_->size()) : 0; }
    // Frames the table covers: a multiple of 256.
    std::uint64_t sampleLength() const { return std::uint64_t(numberOfEntries()) * kSamplesPerEntry; }
    // Resizes to ceil(frames / 256) entries; new entries are 0.0, old ones keep their values.
    void setSampleLength(std::uint64_t frames);
    // Allocates room for the entries of `frames` frames at once (the table still grows as it is
    // filled, without reallocating up to there).
    void reserveSampleLength(std::uint64_t frames);
    std::uint32_t samplesPerEntry() const { return kSamplesPerEntry; }
    // Reverses the byte order of every entry.
    void swap();

    void beginAnalysis() {}
    // Gives back what the table's growth reserved beyond its entries (a long file's tables grow
    // block by block).
    void endAnalysis() {
        if (table_) table_->shrink_to_fit();
    }
    // Updates the entries that the buffer's range covers. A block the buffer covers only in part
    // gets the value of that part (it is overwritten, not merged): analysis passes align their
    // buffers to 256 frames, so only a file's last, short block is ever partial.
    void analyzeBuffer(const KXNativeAudioBuffer& buffer, std::uint32_t channel);
    // The entries a buffer's range touches: calls `body(entry, samples, count)` for the part
    // before the first entry boundary, each whole entry, and the part after the last, in order.
    // Grows the table first when the range runs past it.
    template <typename Body>
    void forEachEntryOfBuffer(const KXNativeAudioBuffer& buffer, const float* samples, Body body);
    // The same, the whole entries given together: `whole(firstEntry, samples, entries)`.
    template <typename Body, typename WholeBody>
    void forEachEntryOfBuffer(const KXNativeAudioBuffer& buffer, const float* samples, Body body, WholeBody whole);

    // Archive: the table as one data object.
    std::string archiveClassName() const override;
    void encodeWithCoder(KXCoder& coder) const override;
    void initWithCoder(KXDecoder& decoder) override;
    // Makes the overview classes named in archives.
    static std::shared_ptr<KXCoding> archiveObjectForClassName(const std::string& name);

private:
    std::optional<std::vector<float>> table_;
};

class KXMaxWaveform : public KXWaveform {
public:
    Type type() const override { return kMax; }
    float entryValueForBuffer(const float* samples, std::uint32_t count) const override;
};

class KXRMSWaveform : public KXWaveform {
public:
    Type type() const override { return kRMS; }
    float entryValueForBuffer(const float* samples, std::uint32_t count) const override;
};

class KXMeanWaveform : public KXWaveform {
public:
    Type type() const override { return kMean; }
    float entryValueForBuffer(const float* samples, std::uint32_t count) const override;
};

template <typename Body>
void KXWaveform::forEachEntryOfBuffer(const KXNativeAudioBuffer& buffer, const float* samples, Body body) {
    forEachEntryOfBuffer(buffer, samples, body, [&](std::size_t first, const float* whole, std::uint32_t entries) {
        for (std::uint32_t entry = 0; entry < entries; ++entry)
            body(first + entry, whole + std::size_t(entry) * kSamplesPerEntry, std::uint32_t(kSamplesPerEntry));
    });
}

template <typename Body, typename WholeBody>
void KXWaveform::forEachEntryOfBuffer(const KXNativeAudioBuffer& buffer, const float* samples, Body body, WholeBody whole) {
    const std::uint64_t location = buffer.range().location;
    const std::uint64_t count = std::min<std::uint64_t>(buffer.range().length, buffer.frames());
    const std::uint64_t end = location + count;
    // Frames before the first entry boundary; a buffer inside one entry is all head.
    const std::uint64_t toBoundary = (kSamplesPerEntry - location % kSamplesPerEntry) % kSamplesPerEntry;
    const std::uint64_t head = std::min(toBoundary, count);
    const std::uint64_t full = (count - head) / kSamplesPerEntry;
    const std::uint64_t tail = count - head - full * kSamplesPerEntry;
    if (end > sampleLength()) setSampleLength(end);
    if (head) body(std::size_t(location / kSamplesPerEntry), samples, std::uint32_t(head));
    const std::uint64_t firstFull = (location + head) / kSamplesPerEntry;
    if (full) whole(std::size_t(firstFull), samples + head, std::uint32_t(full));
    if (tail) body(std::size_t((end - tail) / kSamplesPerEntry), samples + head + full * kSamplesPerEntry, std::uint32_t(tail));
}
