#pragma once
// KXRect: a rectangle of four 32-bit floats (origin and size): where a view last drew a label or
// a block. Stored, never interpreted by the library.

#include <algorithm>
#include <string>

struct KXRect {
    float x = 0, y = 0, width = 0, height = 0;

    bool isEmpty() const { return width <= 0 || height <= 0; }
    // The smallest rectangle holding both; an empty rectangle adds nothing.
    KXRect unionWith(const KXRect& other) const {
        if (isEmpty()) return other;
        if (other.isEmpty()) return *this;
        const float left = std::min(x, other.x), top = std::min(y, other.y);
        const float right = std::max(x + width, other.x + other.width);
        const float bottom = std::max(y + height, other.y + other.height);
        return {left, top, right - left, bottom - top};
    }

    friend bool operator==(const KXRect&, const KXRect&) = default;
};

// KXPoint: two 32-bit floats, as a view or an automation curve uses them.
struct KXPoint {
    float x = 0, y = 0;

    // "{x, y}": the first two decimal numbers of the text (signs, fractions and exponents
    // allowed); 0 for each one missing.
    static KXPoint pointFromString(const std::string& text);
    std::string string() const;

    friend bool operator==(const KXPoint&, const KXPoint&) = default;
};
