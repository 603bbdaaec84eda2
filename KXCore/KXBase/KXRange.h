#pragma once
// KXRange: a span of time in seconds (location and length), optionally carrying a sample rate so
// that it can answer in frames. A range includes both of its ends, so an empty range at a label's
// position includes that position.
//
// Frame conversions round to nearest (rate × seconds) and clamp to 0 … 4294967295, the range of
// a frame index. "All time" begins at 0 and runs as far as a finite length goes, so it answers
// sample start 0 and sample end 4294967295.

#include <cstdint>
#include <string>

// A run of frames. Ends are computed in 64 bits, so a range may reach 2^32 without wrapping.
struct KXSampleRange {
    std::uint32_t location = 0;
    std::uint32_t length = 0;

    std::uint64_t end() const { return std::uint64_t(location) + length; }
    bool containsFrame(std::uint64_t frame) const { return frame >= location && frame < end(); }
    // The frames both hold; (0, 0) when they do not meet.
    KXSampleRange intersection(const KXSampleRange& other) const;
    // From the lower start to the higher end (a gap between them included).
    KXSampleRange unionWith(const KXSampleRange& other) const;
    // "{location, length}".
    std::string string() const;
    // The first two decimal numbers of the text ("{900, 600}"); 0 for each one missing.
    static KXSampleRange rangeFromString(const std::string& text);

    friend bool operator==(const KXSampleRange&, const KXSampleRange&) = default;
};

class KXRange {
public:
    KXRange() = default;  // location 0, length 0, no rate

    static KXRange range() { return {}; }
    static KXRange rangeWithLocation(double location, double length);
    static KXRange rangeWithStart(double start, double end);
    static KXRange rangeWithLength(double length) { return rangeWithLocation(0, length); }
    static KXRange rangeWithRange(const KXRange& other) { return other; }
    static KXRange rangeWithAllTime();
    static KXRange rangeWithRate(double rate);
    static KXRange rangeWithSampleStart(std::uint32_t sampleStart, std::uint32_t sampleEnd,
                                        double rate);

    double location() const { return location_; }
    double length() const { return length_; }
    double start() const { return location_; }
    double end() const { return location_ + length_; }
    double rate() const { return rate_; }
    bool isAllTime() const;

    void setLocation(double location) { location_ = location; }
    void setLength(double length) { length_ = length; }
    void setStart(double start);  // keeps the end
    void setEnd(double end) { length_ = end - location_; }
    void setRate(double rate) { rate_ = rate; }

    bool includesLocation(double time) const { return time >= start() && time <= end(); }
    bool intersectsRange(const KXRange& other) const;
    // Grows this range to the union of both.
    void includeRange(const KXRange& other);

    // Frames at the range's rate (0 when it has none).
    std::uint32_t sampleStart() const;
    std::uint32_t sampleEnd() const;
    KXSampleRange sampleRange() const;
    void setSampleLocation(std::uint32_t frame);  // keeps the end
    void setSampleEnd(std::uint32_t frame);

    friend bool operator==(const KXRange&, const KXRange&) = default;

private:
    std::uint32_t framesForSeconds(double seconds) const;

    double location_ = 0;
    double length_ = 0;
    double rate_ = 0;
};
