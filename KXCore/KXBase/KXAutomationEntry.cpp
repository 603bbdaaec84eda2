#include "KXBase/KXAutomationEntry.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <numbers>

KXPoint KXPoint::pointFromString(const std::string& text) {
    float numbers[2] = {0, 0};
    int found = 0;
    const char* p = text.c_str();
    while (*p && found < 2) {
        const bool startsNumber = (*p >= '0' && *p <= '9') || ((*p == '-' || *p == '+' || *p == '.') && p[1] >= '0' && p[1] <= '9') ||
                                  ((*p == '-' || *p == '+') && p[1] == '.' && p[2] >= '0' && p[2] <= '9');
        if (!startsNumber) {
            ++p;
            continue;
        }
        char* end = nullptr;
        numbers[found++] = std::strtof(p, &end);
        p = end > p ? end : p + 1;
    }
    return {numbers[0], numbers[1]};
}

std::string KXPoint::string() const {
    char text[64];
    std::snprintf(text, sizeof text, "{%g, %g}", double(x), double(y));
    return text;
}

void KXAutomationEntry::addControlPoint(KXPoint point) {
    // After every point of the same time, so that points at one time keep their order.
    const auto at = std::upper_bound(controlPoints_.begin(), controlPoints_.end(), point,
                                     [](const KXPoint& a, const KXPoint& b) { return a.x < b.x; });
    controlPoints_.insert(at, point);
}

namespace {

float between(std::int32_t type, double from, float fromValue, double to, float toValue, double time) {
    if (to <= from) return toValue;
    const double x = (time - from) / (to - from);
    switch (type) {
        case KXAutomationEntry::hold: return fromValue;
        case KXAutomationEntry::smooth:
            return float(fromValue + (double(toValue) - fromValue) * (1.0 - std::cos(std::numbers::pi * x)) / 2.0);
        case KXAutomationEntry::exponential:
            if (fromValue > 0 && toValue > 0) return float(fromValue * std::pow(double(toValue) / fromValue, x));
            [[fallthrough]];
        default: return float(fromValue + (double(toValue) - fromValue) * x);
    }
}

}  // namespace

float KXAutomationEntry::valueAtTime(double time) const {
    const double start = range_.start(), end = range_.end();
    if (time <= start) return startValue_;
    if (time >= end) return endValue_;
    double from = start;
    float fromValue = startValue_;
    for (const KXPoint& point : controlPoints_) {
        if (point.x < start || point.x > end) continue;
        if (point.x > time) return between(controlType_, from, fromValue, point.x, point.y, time);
        from = point.x, fromValue = point.y;
    }
    return between(controlType_, from, fromValue, end, endValue_, time);
}
