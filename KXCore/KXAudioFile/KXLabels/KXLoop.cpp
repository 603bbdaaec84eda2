#include "KXAudioFile/KXLabels/KXLoop.h"

#include "KXAudioFile/KXLabels/KXLoopList.h"

namespace {
struct LoopTypeName {
    std::uint32_t type;
    const char* name;
};
constexpr LoopTypeName kLoopTypeNames[] = {
    {KXLoop::kNone, "None"},
    {KXLoop::kForward, "Forward"},
    {KXLoop::kForwardBackward, "Forward-Backward"},
    {KXLoop::kBackward, "Backward"},
};
}  // namespace

const KXLabelClass& KXLoop::labelClass() {
    static const KXLabelClass kClass{"KXLoop", 3, "Loop", &KXMakeLabel<KXLoop>};
    return kClass;
}

std::shared_ptr<KXLabel> KXLoop::copy() const {
    auto other = KXRangeLabel::copy();
    static_cast<KXLoop&>(*other).loopType_ = loopType_;
    return other;
}

void KXLoop::clearCrossfade() {
    crossfadeEnabled_ = false;
    crossfadeType_ = 0;
    crossfadeLength_ = 0;
    crossfadeCurve_ = 0;
}

std::optional<std::string> KXLoop::nameForLoopType(std::uint32_t loopType) {
    for (const LoopTypeName& entry : kLoopTypeNames)
        if (entry.type == loopType) return entry.name;
    return std::nullopt;
}

std::optional<std::uint32_t> KXLoop::loopTypeForName(const std::string& name) {
    for (const LoopTypeName& entry : kLoopTypeNames)
        if (name == entry.name) return entry.type;
    return std::nullopt;
}

KXDictionary KXLoop::state() const {
    KXDictionary state = KXRangeLabel::state();
    state.setObject(loopType_, "type");
    state.setObject(playback_, "playback");
    state.setObject(crossfadeEnabled_, "crossfadeEnabled");
    state.setObject(crossfadeType_, "crossfadeType");
    state.setObject(crossfadeLength_, "crossfadeLength");
    state.setObject(crossfadeCurve_, "crossfadeCurve");
    return state;
}

void KXLoop::setState(const KXDictionary& state) {
    KXRangeLabel::setState(state);
    if (const KXValue* v = state.find("Start Name")) name_ = v->isNull() ? std::nullopt : std::optional(v->stringValue());
    if (const KXValue* v = valueForKeyOrAlias(state, "type", "Type")) {
        if (v->isString()) loopType_ = loopTypeForName(v->string()).value_or(loopType_);
        else loopType_ = v->unsignedIntValue();
    }
    if (const KXValue* v = state.find("playback")) playback_ = v->boolValue();
    if (const KXValue* v = state.find("crossfadeEnabled")) crossfadeEnabled_ = v->boolValue();
    if (const KXValue* v = state.find("crossfadeType")) crossfadeType_ = v->unsignedIntValue();
    if (const KXValue* v = state.find("crossfadeLength")) crossfadeLength_ = v->doubleValue();
    if (const KXValue* v = state.find("crossfadeCurve")) crossfadeCurve_ = v->floatValue();
}

KXValue KXLoop::objectForIdentifier(const std::string& identifier) const {
    if (is(identifier, "type", "Type")) return loopType_;
    return KXRangeLabel::objectForIdentifier(identifier);
}

void KXLoop::setObject(const KXValue& value, const std::string& identifier) {
    KXRangeLabel::setObject(value, identifier);
    if (is(identifier, "type", "Type")) loopType_ = value.unsignedIntValue();
}

KXArray KXLoop::details() const {
    KXArray rows = KXRangeLabel::details();
    rows.push_back(detail("type", "Playback Type", true));
    return rows;
}

void KXLoop::encodeWithCoder(KXCoder& coder) const {
    KXRangeLabel::encodeWithCoder(coder);
    coder.encodeUnsignedInt(loopType_);
    coder.encodeChar(crossfadeEnabled_);
    coder.encodeUnsignedInt(crossfadeType_);
    coder.encodeDouble(crossfadeLength_);
    coder.encodeFloat(crossfadeCurve_);
}

void KXLoop::initWithCoder(KXDecoder& decoder) {
    KXRangeLabel::initWithCoder(decoder);
    loopType_ = decoder.decodeUnsignedInt();
    crossfadeEnabled_ = decoder.decodeChar() != 0;
    crossfadeType_ = decoder.decodeUnsignedInt();
    crossfadeLength_ = decoder.decodeDouble();
    crossfadeCurve_ = decoder.decodeFloat();
}

// --- The list

std::shared_ptr<KXLoop> KXLoopList::loopAtIndex(std::size_t index) const {
    return std::dynamic_pointer_cast<KXLoop>(labelAtIndex(index));
}

std::shared_ptr<KXLoop> KXLoopList::loopWithID(std::uint32_t loopID) const {
    return std::dynamic_pointer_cast<KXLoop>(labelWithID(loopID));
}

std::shared_ptr<KXLoop> KXLoopList::addLoopWithID(std::uint32_t loopID, std::uint32_t loopType, const KXRange& range,
                                                  std::optional<std::string> name) {
    if (range.location() < 0) return nullptr;
    auto loop = KXLoop::loop();
    loop->setLabelID(loopID);
    loop->setRange(range);
    loop->setLoopType(loopType);
    loop->setName(std::move(name));  // no effect on a loop
    addLabel(loop);
    return loop;
}

std::shared_ptr<KXLoop> KXLoopList::addLoopWithID(std::uint32_t loopID, std::uint32_t loopType, const KXRange& range) {
    return addLoopWithID(loopID, loopType, range, std::nullopt);
}

std::shared_ptr<KXLoop> KXLoopList::addLoopWithType(std::uint32_t loopType, const KXRange& range) {
    return addLoopWithID(nextLoopID(), loopType, range, std::nullopt);
}

std::shared_ptr<KXLoop> KXLoopList::addLoopWithType(std::uint32_t loopType, const KXRange& range,
                                                    std::optional<std::string> name) {
    return addLoopWithID(nextLoopID(), loopType, range, std::move(name));
}

std::shared_ptr<KXLoop> KXLoopList::addLoopWithType(std::uint32_t loopType, const KXLabel& start, const KXLabel& end) {
    return addLoopWithID(nextLoopID(), loopType, KXRange::rangeWithStart(start.position(), end.position()), start.name());
}

std::shared_ptr<KXLoop> KXLoopList::addLoopWithLength(double length) {
    return addLoopWithID(nextLoopID(), KXLoop::kForward, KXRange::rangeWithLength(length), std::nullopt);
}

std::size_t KXLoopList::countValid() const {
    std::size_t valid = 0;
    for (const auto& label : list_)
        if (auto loop = std::dynamic_pointer_cast<KXLoop>(label); loop && loop->loopType() != KXLoop::kNone) ++valid;
    return valid;
}

std::shared_ptr<KXLoop> KXLoopList::playbackLoop() const {
    for (const auto& label : list_)
        if (auto loop = std::dynamic_pointer_cast<KXLoop>(label); loop && loop->playback()) return loop;
    return nullptr;
}
