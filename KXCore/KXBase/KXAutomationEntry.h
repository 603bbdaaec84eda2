#pragma once
// KXAutomationEntry: a value that changes over a span of time — a start value at the start of
// the range, an end value at its end and control points in between — with the curve shape
// between neighbouring points chosen by the control type:
//
//   0  linear       straight lines from point to point (also any type not listed here)
//   1  hold         each point's value until the next point (a step)
//   2  smooth       a raised-cosine S-curve from point to point: level at both points
//   3  exponential  equal ratios in equal times (straight in decibels) where both points are
//                   above 0; straight lines where either is 0 or below
//
// Control points are (time, value) pairs in the range's units; points outside the range are
// left out, points at one time keep the order they were added in (a jump). Before the range
// the value is the start value, after it the end value.

#include <cstdint>
#include <vector>

#include "KXBase/KXRange.h"
#include "KXBase/KXRect.h"

class KXAutomationEntry {
public:
    enum ControlType : std::int32_t { linear = 0, hold = 1, smooth = 2, exponential = 3 };

    const KXRange& range() const { return range_; }
    void setStart(double start, double end) { range_ = KXRange::rangeWithStart(start, end); }
    float startValue() const { return startValue_; }
    void setStartValue(float value) { startValue_ = value; }
    float endValue() const { return endValue_; }
    void setEndValue(float value) { endValue_ = value; }
    std::int32_t controlType() const { return controlType_; }
    void setControlType(std::int32_t type) { controlType_ = type; }
    const std::vector<KXPoint>& controlPoints() const { return controlPoints_; }
    void addControlPoint(KXPoint point);

    float valueAtTime(double time) const;

private:
    KXRange range_;
    float startValue_ = 0, endValue_ = 0;
    std::int32_t controlType_ = linear;
    std::vector<KXPoint> controlPoints_;  // kept in time order
};
