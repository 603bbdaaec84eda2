#include "KXAudioFile/KXLabels/KXLabel.h"

#include "KXAudioFile/KXLabels/KXLabelList.h"

#include <cmath>
#include <cstdio>

#include "KXAudioFile/KXLabels/KXRangeLabel.h"

const KXLabelClass& KXLabel::labelClass() {
    static const KXLabelClass kClass{"KXLabel", -1, "Label", &KXMakeLabel<KXLabel>};
    return kClass;
}

std::shared_ptr<KXLabel> KXLabel::copy() const {
    auto other = classOfLabel().make();
    other->setPosition(position_);
    other->labelID_ = labelID_;
    other->setName(name_);
    other->locked_ = locked_;
    return other;
}

void KXLabel::setPosition(double position) { position_ = std::fabs(position) <= kZeroSnap ? 0.0 : position; }

double KXLabel::positionForPart(std::uint32_t) const { return position_; }
void KXLabel::setPosition(double position, std::uint32_t) { setPosition(position); }

KXRange KXLabel::range() const { return KXRange::rangeWithLocation(position_, 0); }
void KXLabel::setRange(const KXRange& range) { setPosition(range.location()); }
bool KXLabel::isWithinRange(const KXRange& range) const { return range.includesLocation(position_); }
bool KXLabel::intersectsRange(const KXRange& range) const { return range.includesLocation(position_); }
bool KXLabel::isAtPosition(double position) const { return position == position_; }

std::string KXLabel::description() const {
    char text[96];
    std::snprintf(text, sizeof text, " : position = %f>\n", position_);
    return std::string("<") + classOfLabel().name + text;
}

KXDictionary KXLabel::state() const {
    KXDictionary state{{"class", classOfLabel().name},
                       {"position", position_},
                       {"id", labelID_},
                       {"locked", locked_},
                       {"selected", selected_}};
    if (name_) state.setObject(*name_, "name");
    return state;
}

const KXValue* KXLabel::valueForKeyOrAlias(const KXDictionary& state, const char* key, const char* alias) {
    if (const KXValue* value = state.find(key)) return value;
    return alias ? state.find(alias) : nullptr;
}

void KXLabel::setState(const KXDictionary& state) {
    if (const KXValue* v = valueForKeyOrAlias(state, "position", "Position")) setPosition(v->doubleValue());
    if (const KXValue* v = valueForKeyOrAlias(state, "id", "ID")) setLabelID(v->unsignedIntValue());
    if (const KXValue* v = valueForKeyOrAlias(state, "name", "Name"))
        setName(v->isNull() ? std::nullopt : std::optional(v->stringValue()));
    if (const KXValue* v = valueForKeyOrAlias(state, "locked", "Lock")) locked_ = v->boolValue();
    if (const KXValue* v = valueForKeyOrAlias(state, "selected", nullptr)) selected_ = v->boolValue();
}

KXValue KXLabel::objectForIdentifier(const std::string& identifier) const {
    if (is(identifier, "position", "Position")) return position_;
    if (is(identifier, "locked", "Lock")) return locked_;
    if (is(identifier, "id", "ID")) return labelID_;
    if (is(identifier, "name", "Name")) return name_ ? KXValue(*name_) : KXValue();
    return {};
}

void KXLabel::setObject(const KXValue& value, const std::string& identifier) {
    if (is(identifier, "position", "Position")) setPosition(value.doubleValue());
    else if (is(identifier, "locked", "Lock")) locked_ = value.boolValue();
    else if (is(identifier, "id", "ID")) setLabelID(value.unsignedIntValue());
    else if (is(identifier, "name", "Name")) setName(value.isNull() ? std::nullopt : std::optional(value.stringValue()));
}

KXDictionary KXLabel::detail(const char* key, const char* title, bool editable) {
    return {{"key", key}, {"title", title}, {"editable", editable}};
}

KXArray KXLabel::details() const { return {detail("locked", "Locked", true), detail("id", "ID", false)}; }

void KXLabel::encodeWithCoder(KXCoder& coder) const {
    coder.encodeDouble(position_);
    coder.encodeUnsignedInt(labelID_);
    coder.encodeString(name_);
    coder.encodeChar(locked_);
    coder.encodeChar(modifying_);
}

void KXLabel::initWithCoder(KXDecoder& decoder) {
    position_ = decoder.decodeDouble();
    labelID_ = decoder.decodeUnsignedInt();
    name_ = decoder.decodeString();
    locked_ = decoder.decodeChar() != 0;
    modifying_ = decoder.decodeChar() != 0;
}

// A label that a list holds tells the lists that their ID and name index may be out of date
// (the owner is not dereferenced: a list may be gone while its labels live on).
void KXLabel::setLabelID(std::uint32_t labelID) {
    labelID_ = labelID;
    if (owner_) KXLabelList::noteLabelIdentityChange();
}

void KXLabel::setName(std::optional<std::string> name) {
    name_ = std::move(name);
    if (owner_) KXLabelList::noteLabelIdentityChange();
}

KXRange KXRangeWithLabel(const KXLabel& label) {
    KXRange range = KXRange::range();
    range.setLocation(label.position());
    if (label.isRangeLabel()) range.setLength(static_cast<const KXRangeLabel&>(label).length());
    return range;
}
