#include "KXBase/KXRange.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

namespace {
// "All time" runs from the start of the file as far as a finite length goes. It begins at 0,
// not below: a label list scales "all time" about the range's start, which must be time zero.
constexpr double kAllTimeLocation = 0;
constexpr double kAllTimeLength = std::numeric_limits<double>::max();
}  // namespace

KXRange KXRange::rangeWithLocation(double location, double length) {
    KXRange range;
    range.location_ = location;
    range.length_ = length;
    return range;
}

KXRange KXRange::rangeWithStart(double start, double end) {
    return rangeWithLocation(start, end - start);
}

KXRange KXRange::rangeWithAllTime() { return rangeWithLocation(kAllTimeLocation, kAllTimeLength); }

KXRange KXRange::rangeWithRate(double rate) {
    KXRange range;
    range.rate_ = rate;
    return range;
}

KXRange KXRange::rangeWithSampleStart(std::uint32_t sampleStart, std::uint32_t sampleEnd,
                                      double rate) {
    KXRange range = rangeWithRate(rate);
    if (rate > 0) range = rangeWithStart(sampleStart / rate, sampleEnd / rate);
    range.rate_ = rate;
    return range;
}

bool KXRange::isAllTime() const { return location_ == kAllTimeLocation && length_ == kAllTimeLength; }

void KXRange::setStart(double start) {
    const double oldEnd = end();
    location_ = start;
    length_ = oldEnd - start;
}

bool KXRange::intersectsRange(const KXRange& other) const {
    return other.start() <= end() && start() <= other.end();
}

void KXRange::includeRange(const KXRange& other) {
    const double newStart = std::min(start(), other.start());
    const double newEnd = std::max(end(), other.end());
    location_ = newStart;
    length_ = newEnd - newStart;
}

std::uint32_t KXRange::framesForSeconds(double seconds) const {
    if (!(rate_ > 0)) return 0;
    const double frames = std::nearbyint(seconds * rate_);
    if (!(frames > 0)) return 0;  // negative or NaN
    if (frames >= 4294967295.0) return 0xFFFFFFFFu;
    return std::uint32_t(frames);
}

std::uint32_t KXRange::sampleStart() const { return framesForSeconds(start()); }
std::uint32_t KXRange::sampleEnd() const { return framesForSeconds(end()); }

KXSampleRange KXRange::sampleRange() const {
    const std::uint32_t first = sampleStart(), last = sampleEnd();
    return {first, last > first ? last - first : 0};
}

void KXRange::setSampleLocation(std::uint32_t frame) {
    if (rate_ > 0) setStart(frame / rate_);
}

void KXRange::setSampleEnd(std::uint32_t frame) {
    if (rate_ > 0) setEnd(frame / rate_);
}

// --- KXSampleRange

namespace {
KXSampleRange sampleRangeBetween(std::uint64_t start, std::uint64_t end) {
    if (end <= start) return {};
    return {std::uint32_t(start), std::uint32_t(std::min<std::uint64_t>(end - start, 0xFFFFFFFFu))};
}
}  // namespace

KXSampleRange KXSampleRange::intersection(const KXSampleRange& other) const {
    const std::uint64_t start = std::max(location, other.location);
    const std::uint64_t finish = std::min(end(), other.end());
    return sampleRangeBetween(start, finish);
}

KXSampleRange KXSampleRange::unionWith(const KXSampleRange& other) const {
    return sampleRangeBetween(std::min(location, other.location), std::max(end(), other.end()));
}

std::string KXSampleRange::string() const {
    char text[32];
    std::snprintf(text, sizeof text, "{%u, %u}", location, length);
    return text;
}

KXSampleRange KXSampleRange::rangeFromString(const std::string& text) {
    std::uint64_t numbers[2] = {0, 0};
    int found = 0;
    for (std::size_t i = 0; i < text.size() && found < 2;) {
        if (text[i] < '0' || text[i] > '9') {
            ++i;
            continue;
        }
        std::uint64_t value = 0;
        for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i)
            value = std::min<std::uint64_t>(value * 10 + std::uint64_t(text[i] - '0'), 0xFFFFFFFFu);
        numbers[found++] = value;
    }
    return {std::uint32_t(numbers[0]), std::uint32_t(numbers[1])};
}
