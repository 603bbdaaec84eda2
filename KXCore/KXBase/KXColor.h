#pragma once
// KXColor: an RGBA colour with components from 0 to 1, for model objects that carry a colour for
// an editor to draw with (no drawing happens in the library).

struct KXColor {
    float red = 0, green = 0, blue = 0, alpha = 1;

    static constexpr KXColor redColor() { return {1, 0, 0, 1}; }
    static constexpr KXColor magentaColor() { return {1, 0, 1, 1}; }
    static constexpr KXColor orangeColor() { return {1, 0.5f, 0, 1}; }
    static constexpr KXColor yellowColor() { return {1, 1, 0, 1}; }
    static constexpr KXColor greenColor() { return {0, 1, 0, 1}; }
    static constexpr KXColor cyanColor() { return {0, 1, 1, 1}; }
    static constexpr KXColor blueColor() { return {0, 0, 1, 1}; }
    static constexpr KXColor purpleColor() { return {0.5f, 0, 0.5f, 1}; }
    static constexpr KXColor brownColor() { return {0.6f, 0.4f, 0.2f, 1}; }
    static constexpr KXColor whiteColor(float white, float alpha) { return {white, white, white, alpha}; }

    friend bool operator==(const KXColor&, const KXColor&) = default;
};
