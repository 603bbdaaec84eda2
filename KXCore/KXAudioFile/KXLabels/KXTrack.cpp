#include "KXAudioFile/KXLabels/KXTrack.h"

#include <cstdio>

#include "KXAudioFile/KXLabels/KXIndex.h"
#include "KXAudioFile/KXLabels/KXTrackList.h"
#include "KXBase/KXString.h"

// The CD-Text and code fields under their state keys, in state order after "isrc" and the flags.
const KXTrack::TextField KXTrack::kTextFields[] = {
    {"performer", &KXTrack::performer_}, {"songwriter", &KXTrack::songwriter_},
    {"composer", &KXTrack::composer_},   {"arranger", &KXTrack::arranger_},
    {"message", &KXTrack::message_},     {"other", &KXTrack::other_},
    {"ddpUserText", &KXTrack::ddpUserText_},
};

const KXLabelClass& KXTrack::labelClass() {
    static const KXLabelClass kClass{"KXTrack", 4, "Track", &KXMakeLabel<KXTrack>};
    return kClass;
}

std::shared_ptr<KXLabel> KXTrack::copy() const {
    auto other = track();
    other->setStart(start());
    other->setEnd(end_);
    other->setLocked(locked_);
    return other;
}

void KXTrack::setPosition(double position) { KXRangeLabel::setPosition(KXCDFrameTime(position)); }
void KXTrack::setEnd(double end) { end_ = KXCDFrameTime(end); }
std::uint32_t KXTrack::startFrame() const { return KXCDFrame(position_); }
std::uint32_t KXTrack::endFrame() const { return KXCDFrame(end_); }

std::optional<KXData> KXTrack::isrcAsData() const {
    if (!isrc_ || isrc_->empty()) return std::nullopt;
    const std::size_t take = std::min<std::size_t>({KXString::utf16Length(*isrc_), isrc_->size(), 13});
    return KXData(isrc_->begin(), isrc_->begin() + std::ptrdiff_t(take));
}

bool KXTrack::hasCDText() const {
    for (const auto* text : {&isrc_, &performer_, &songwriter_, &composer_, &arranger_, &message_})
        if (*text && !(*text)->empty()) return true;
    return false;
}

KXDictionary KXTrack::state() const {
    KXDictionary state = KXRangeLabel::state();
    if (isrc_) state.setObject(*isrc_, "isrc");
    state.setObject(scms_, "scms");
    state.setObject(preEmphasis_, "preEmphasis");
    for (const TextField& text : kTextFields)
        if (this->*text.field) state.setObject(*(this->*text.field), text.key);
    return state;
}

void KXTrack::setState(const KXDictionary& state) {
    KXRangeLabel::setState(state);
    if (const KXValue* v = state.find("isrc")) isrc_ = v->stringValue();
    if (const KXValue* v = state.find("scms")) scms_ = v->boolValue();
    if (const KXValue* v = state.find("preEmphasis")) preEmphasis_ = v->boolValue();
    for (const TextField& text : kTextFields)
        if (const KXValue* v = state.find(text.key)) this->*text.field = v->stringValue();
}

KXValue KXTrack::objectForIdentifier(const std::string& identifier) const {
    auto text = [](const std::optional<std::string>& value) { return value ? KXValue(*value) : KXValue(); };
    if (identifier == "isrc") return text(isrc_);
    if (identifier == "scms") return scms_;
    if (identifier == "preEmphasis") return preEmphasis_;
    for (const TextField& field : kTextFields)
        if (identifier == field.key) return text(this->*field.field);
    return KXRangeLabel::objectForIdentifier(identifier);
}

void KXTrack::setObject(const KXValue& value, const std::string& identifier) {
    KXRangeLabel::setObject(value, identifier);
    auto text = [&] { return value.isNull() ? std::nullopt : std::optional(value.stringValue()); };
    if (identifier == "isrc") isrc_ = text();
    else if (identifier == "scms") scms_ = value.boolValue();
    else if (identifier == "preEmphasis") preEmphasis_ = value.boolValue();
    for (const TextField& field : kTextFields)
        if (identifier == field.key) this->*field.field = text();
}

KXArray KXTrack::details() const {
    KXArray rows = KXRangeLabel::details();
    for (const auto& [key, title] : {std::pair{"name", "Name"}, {"isrc", "ISRC"}, {"scms", "SCMS"},
                                     {"preEmphasis", "Pre-Emphasis"}, {"performer", "Performer"},
                                     {"songwriter", "Songwriter"}, {"composer", "Composer"},
                                     {"arranger", "Arranger"}, {"message", "Message"}, {"other", "Private Text"},
                                     {"ddpUserText", "DDP User Text"}})
        rows.push_back(detail(key, title, true));
    return rows;
}

// --- The list

std::shared_ptr<KXTrack> KXTrackList::trackAtIndex(std::size_t index) const {
    return std::dynamic_pointer_cast<KXTrack>(labelAtIndex(index));
}

std::shared_ptr<KXTrack> KXTrackList::trackWithID(std::uint32_t trackID) const {
    return std::dynamic_pointer_cast<KXTrack>(labelWithID(trackID));
}

std::shared_ptr<KXTrack> KXTrackList::addTrackWithID(std::uint32_t trackID, const KXRange& range,
                                                     std::optional<std::string> name) {
    if (range.location() < 0 || count() >= kMaximumTracks) return nullptr;
    if (!name) {
        char text[32];
        std::snprintf(text, sizeof text, "Track %.2u", largestTrailingNumber() + 1);
        name = text;
    }
    auto track = KXTrack::track();
    track->setLabelID(trackID);
    track->setRange(range);
    track->setName(std::move(name));
    addLabel(track);
    return track;
}

std::shared_ptr<KXTrack> KXTrackList::addTrackWithRange(const KXRange& range) {
    return addTrackWithID(nextTrackID(), range, std::nullopt);
}

std::shared_ptr<KXTrack> KXTrackList::addTrackWithName(std::optional<std::string> name, const KXRange& range) {
    return addTrackWithID(nextTrackID(), range, std::move(name));
}

bool KXTrackList::hasCDText() const {
    for (const auto& label : list_)
        if (auto track = std::dynamic_pointer_cast<KXTrack>(label); track && track->hasCDText()) return true;
    return false;
}
