#include "KXAudioFile/KXLabels/KXRegion.h"

#include "KXAudioFile/KXLabels/KXRegionList.h"

const KXLabelClass& KXRegion::labelClass() {
    static const KXLabelClass kClass{"KXRegion", 2, "Region", &KXMakeLabel<KXRegion>};
    return kClass;
}

std::shared_ptr<KXLabel> KXRegion::copy() const {
    auto other = KXRangeLabel::copy();
    auto& region = static_cast<KXRegion&>(*other);
    region.sync_ = sync_;
    region.timeStamp_ = timeStamp_;
    return other;
}

KXDictionary KXRegion::state() const {
    KXDictionary state = KXRangeLabel::state();
    state.setObject(sync_, "syncFrame");
    state.setObject(timeStamp_, "timeStamp");
    return state;
}

void KXRegion::setState(const KXDictionary& state) {
    KXRangeLabel::setState(state);
    if (const KXValue* v = valueForKeyOrAlias(state, "syncFrame", "Sync Frame")) sync_ = v->unsignedIntValue();
    if (const KXValue* v = valueForKeyOrAlias(state, "timeStamp", "Time Stamp")) timeStamp_ = v->unsignedLongLongValue();
    // Deliberate: the halves are OR-ed into whatever the time stamp already holds.
    if (const KXValue* v = state.find("Time Stamp MS")) timeStamp_ |= std::uint64_t(v->unsignedIntValue()) << 32;
    if (const KXValue* v = state.find("Time Stamp LS")) timeStamp_ |= v->unsignedIntValue();
}

KXValue KXRegion::objectForIdentifier(const std::string& identifier) const {
    if (is(identifier, "syncFrame", "Sync Frame")) return sync_;
    if (is(identifier, "timeStamp", "Time Stamp")) return timeStamp_;
    return KXRangeLabel::objectForIdentifier(identifier);
}

void KXRegion::setObject(const KXValue& value, const std::string& identifier) {
    KXRangeLabel::setObject(value, identifier);
    if (is(identifier, "syncFrame", "Sync Frame")) sync_ = value.unsignedIntValue();
    else if (is(identifier, "timeStamp", "Time Stamp")) timeStamp_ = value.unsignedLongLongValue();
}

KXArray KXRegion::details() const {
    KXArray rows = KXRangeLabel::details();
    rows.push_back(detail("name", "Name", true));
    rows.push_back(detail("syncFrame", "Sync Frame", true));
    rows.push_back(detail("timeStamp", "Time Stamp", true));
    return rows;
}

void KXRegion::encodeWithCoder(KXCoder& coder) const {
    KXRangeLabel::encodeWithCoder(coder);
    coder.encodeUnsignedInt(sync_);
    coder.encodeUnsignedLongLong(timeStamp_);
}

void KXRegion::initWithCoder(KXDecoder& decoder) {
    KXRangeLabel::initWithCoder(decoder);
    sync_ = decoder.decodeUnsignedInt();
    timeStamp_ = decoder.decodeUnsignedLongLong();
}

// --- The list

std::shared_ptr<KXRegion> KXRegionList::regionAtIndex(std::size_t index) const {
    return std::dynamic_pointer_cast<KXRegion>(labelAtIndex(index));
}

std::shared_ptr<KXRegion> KXRegionList::regionWithID(std::uint32_t regionID) const {
    return std::dynamic_pointer_cast<KXRegion>(labelWithID(regionID));
}

std::shared_ptr<KXRegion> KXRegionList::addRegionWithID(std::uint32_t regionID, const KXRange& range,
                                                        std::uint32_t sync, std::uint64_t timeStamp,
                                                        std::optional<std::string> name) {
    if (range.location() < 0) return nullptr;
    if (!name) name = "Region " + std::to_string(count() + 1);
    auto region = KXRegion::region();
    region->setLabelID(regionID);
    region->setRange(range);
    region->setSync(sync);
    region->setTimeStamp(timeStamp);
    region->setName(std::move(name));
    addLabel(region);
    return region;
}

std::shared_ptr<KXRegion> KXRegionList::addRegionWithID(std::uint32_t regionID, const KXRange& range) {
    return addRegionWithID(regionID, range, 0, 0, std::nullopt);
}

std::shared_ptr<KXRegion> KXRegionList::addRegionWithRange(const KXRange& range, std::optional<std::string> name) {
    return addRegionWithID(nextRegionID(), range, 0, 0, std::move(name));
}

std::shared_ptr<KXRegion> KXRegionList::addRegionWithRange(const KXRange& range, std::uint32_t sync,
                                                           std::uint64_t timeStamp, std::optional<std::string> name) {
    return addRegionWithID(nextRegionID(), range, sync, timeStamp, std::move(name));
}

std::shared_ptr<KXRegion> KXRegionList::addRegionWithStartMarker(const KXLabel& start, const KXLabel& end,
                                                                 std::optional<std::string> name) {
    return addRegionWithID(nextRegionID(), KXRange::rangeWithStart(start.position(), end.position()), 0, 0,
                           std::move(name));
}

void KXRegionList::addLabels(const KXLabelList& other) {
    const KXLabelArray labels = other.list();
    for (const auto& label : labels) {
        if (!label->isRangeLabel()) continue;
        if (std::dynamic_pointer_cast<KXRegion>(label)) {
            addLabel(label);
            continue;
        }
        auto region = KXRegion::region();
        region->setLabelID(label->labelID());
        region->setRange(label->range());
        region->setName(label->name());
        region->setLocked(label->locked());
        addLabel(std::move(region));
    }
}
