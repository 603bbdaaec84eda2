#pragma once
// KXRangeLabel: a label over a span of time — the base of regions, loops and tracks. The start
// is the inherited position (snapped near zero like any position); the end is stored as given.

#include "KXAudioFile/KXLabels/KXLabel.h"

class KXRangeLabel : public KXLabel {
public:
    static const KXLabelClass& labelClass();
    const KXLabelClass& classOfLabel() const override { return labelClass(); }
    bool isRangeLabel() const override { return true; }
    std::shared_ptr<KXLabel> copy() const override;

    double start() const { return position_; }
    void setStart(double start) { setPosition(start); }
    double end() const { return end_; }
    virtual void setEnd(double end) { end_ = end; }
    double length() const { return end_ - position_; }
    const KXRect& endHeadRect() const { return endHeadRect_; }
    void setEndHeadRect(const KXRect& rect) { endHeadRect_ = rect; }

    // Part 0 is the start, part 1 the end.
    double positionForPart(std::uint32_t part) const override;
    void setPosition(double position, std::uint32_t part) override;
    using KXLabel::setPosition;
    KXRange range() const override;
    void setRange(const KXRange& range) override;
    // Within: the range includes both ends. Intersects: it includes either end — so a span that
    // encloses the range with both ends outside it does not intersect it.
    bool isWithinRange(const KXRange& range) const override;
    bool intersectsRange(const KXRange& range) const override;
    bool isAtPosition(double position) const override;
    std::string description() const override;

    KXDictionary state() const override;
    void setState(const KXDictionary& state) override;
    KXValue objectForIdentifier(const std::string& identifier) const override;
    void setObject(const KXValue& value, const std::string& identifier) override;
    KXArray details() const override;

    // Archive: position, locked, modifying, end — not the ID or the name (deliberate).
    void encodeWithCoder(KXCoder& coder) const override;
    void initWithCoder(KXDecoder& decoder) override;

protected:
    double end_ = 0;
    KXRect endHeadRect_;
};
