#include "KXAudioFile/KXLabels/KXRangeLabel.h"

#include <cstdio>

const KXLabelClass& KXRangeLabel::labelClass() {
    static const KXLabelClass kClass{"KXRangeLabel", -1, "Label", &KXMakeLabel<KXRangeLabel>};
    return kClass;
}

std::shared_ptr<KXLabel> KXRangeLabel::copy() const {
    auto other = KXLabel::copy();
    auto& span = static_cast<KXRangeLabel&>(*other);  // copy() makes this label's own class
    span.setStart(start());
    span.setEnd(end_);
    span.setLocked(locked_);
    return other;
}

double KXRangeLabel::positionForPart(std::uint32_t part) const {
    return part == 0 ? start() : part == 1 ? end_ : 0.0;
}

void KXRangeLabel::setPosition(double position, std::uint32_t part) {
    if (part == 0) setStart(position);
    else if (part == 1) setEnd(position);
}

KXRange KXRangeLabel::range() const { return KXRange::rangeWithStart(start(), end_); }

void KXRangeLabel::setRange(const KXRange& range) {
    setPosition(range.start());
    setEnd(range.end());
}

bool KXRangeLabel::isWithinRange(const KXRange& range) const {
    return range.includesLocation(start()) && range.includesLocation(end_);
}

bool KXRangeLabel::intersectsRange(const KXRange& range) const {
    return range.includesLocation(start()) || range.includesLocation(end_);
}

bool KXRangeLabel::isAtPosition(double position) const { return position == start() || position == end_; }

std::string KXRangeLabel::description() const {
    char text[128];
    std::snprintf(text, sizeof text, " : start = %f : end = %f>\n", start(), end_);
    return std::string("<") + classOfLabel().name + text;
}

KXDictionary KXRangeLabel::state() const {
    KXDictionary state{{"class", classOfLabel().name}, {"start", start()}, {"end", end_},
                       {"id", labelID_},                {"locked", locked_}};
    if (name_) state.setObject(*name_, "name");
    return state;
}

void KXRangeLabel::setState(const KXDictionary& state) {
    KXLabel::setState(state);
    if (const KXValue* v = valueForKeyOrAlias(state, "start", "Start")) setStart(v->doubleValue());
    if (const KXValue* v = valueForKeyOrAlias(state, "end", "End")) setEnd(v->doubleValue());
}

KXValue KXRangeLabel::objectForIdentifier(const std::string& identifier) const {
    if (is(identifier, "start", "Start")) return start();
    if (is(identifier, "end", "End")) return end_;
    if (is(identifier, "length", "Length")) return length();
    return KXLabel::objectForIdentifier(identifier);
}

void KXRangeLabel::setObject(const KXValue& value, const std::string& identifier) {
    KXLabel::setObject(value, identifier);
    if (is(identifier, "start", "Start")) setStart(value.doubleValue());
    else if (is(identifier, "end", "End")) setEnd(value.doubleValue());
    else if (is(identifier, "length", "Length")) setEnd(start() + value.doubleValue());
}

KXArray KXRangeLabel::details() const {
    KXArray rows = KXLabel::details();
    rows.push_back(detail("start", "Start", true));
    rows.push_back(detail("end", "End", true));
    return rows;
}

void KXRangeLabel::encodeWithCoder(KXCoder& coder) const {
    coder.encodeDouble(position_);
    coder.encodeChar(locked_);
    coder.encodeChar(modifying_);
    coder.encodeDouble(end_);
}

void KXRangeLabel::initWithCoder(KXDecoder& decoder) {
    position_ = decoder.decodeDouble();
    locked_ = decoder.decodeChar() != 0;
    modifying_ = decoder.decodeChar() != 0;
    end_ = decoder.decodeDouble();
}
