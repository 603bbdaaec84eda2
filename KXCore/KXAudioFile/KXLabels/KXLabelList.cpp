#include "KXAudioFile/KXLabels/KXLabelList.h"

#include <algorithm>
#include <cmath>

#include "KXAudioFile/KXLabels/KXRangeLabel.h"

namespace {

const KXRangeLabel* asSpan(const KXLabel& label) {
    return label.isRangeLabel() ? static_cast<const KXRangeLabel*>(&label) : nullptr;
}
KXRangeLabel* asSpan(KXLabel& label) {
    return label.isRangeLabel() ? static_cast<KXRangeLabel*>(&label) : nullptr;
}

// Ascending order of two property values: numbers by value, text by bytes, absent values first.
bool valueLess(const KXValue& a, const KXValue& b) {
    if (a.isNumber() && b.isNumber()) return a.doubleValue() < b.doubleValue();
    if (a.isString() && b.isString()) return a.string() < b.string();
    return a.isNull() && !b.isNull();
}

}  // namespace

std::shared_ptr<KXLabelList> KXLabelList::labelListWithList(const KXLabelArray& labels) {
    auto list = labelList();
    for (const auto& label : labels)
        if (label) list->addLabel(label->copy());
    return list;
}

std::shared_ptr<KXLabelList> KXLabelList::copy() const {
    auto other = makeEmpty();
    for (const auto& label : list_) other->addLabel(label->copy());
    return other;
}

std::string KXLabelList::description() const {
    std::string text = std::string(archiveClassName()) + " : " + std::to_string(list_.size()) + " items\n";
    for (const auto& label : list_) text += label->description();
    return text;
}

// --- Access, insertion, removal

std::shared_ptr<KXLabel> KXLabelList::labelAtIndex(std::size_t index) const {
    return index < list_.size() ? list_[index] : nullptr;
}

std::size_t KXLabelList::indexOfLabel(const KXLabel* label) const {
    for (std::size_t i = 0; i < list_.size(); ++i)
        if (list_[i].get() == label) return i;
    return kNotFound;
}

void KXLabelList::addLabel(std::shared_ptr<KXLabel> label) {
    if (!label) return;
    label->setOwner(this);
    list_.push_back(std::move(label));
    if (index_.valid && index_.generation == gIdentityGeneration.load(std::memory_order_relaxed))
        addToIndex(*list_.back(), list_.size() - 1);
}

void KXLabelList::addLabels(const KXLabelList& other) {
    const KXLabelArray labels = other.list_;  // `other` may be this list
    for (const auto& label : labels) addLabel(label);
}

void KXLabelList::removeLabel(const KXLabel* label) {
    removeIf([&](const KXLabel& l) { return &l == label; });
}

void KXLabelList::removeLabels(const std::unordered_set<const KXLabel*>& labels) {
    removeIf([&](const KXLabel& l) { return labels.count(&l) != 0; });
}

void KXLabelList::removeLabelAtIndex(std::size_t index) {
    if (index < list_.size()) list_.erase(list_.begin() + std::ptrdiff_t(index));
    dropIndex();
}

template <typename Predicate>
void KXLabelList::removeIf(Predicate remove) {
    std::erase_if(list_, [&](const std::shared_ptr<KXLabel>& label) { return remove(*label); });
    dropIndex();
}

void KXLabelList::cropRange(const KXRange& range) {
    removeIf([&](const KXLabel& l) { return !l.isWithinRange(range); });
}

void KXLabelList::removeRange(const KXRange& range) {
    removeIf([&](const KXLabel& l) { return l.intersectsRange(range); });
}

void KXLabelList::removeAtPosition(double position) {
    removeIf([&](const KXLabel& l) { return l.isAtPosition(position); });
}

namespace {
// The number that ends a label's name: its last blank-separated piece, when that begins with a
// digit; 0 otherwise.
std::uint32_t trailingNumber(const std::optional<std::string>& name) {
    if (!name) return 0;
    const std::size_t blank = name->find_last_of(' ');
    const std::string last = blank == std::string::npos ? *name : name->substr(blank + 1);
    if (last.empty() || last[0] < '0' || last[0] > '9') return 0;
    // Kept below the largest value so that the next name's number cannot wrap.
    return std::uint32_t(std::min<std::int64_t>(KXValue(last).longLongValue(), 0x7FFFFFFE));
}
}  // namespace

void KXLabelList::addToIndex(const KXLabel& label, std::size_t position) const {
    index_.firstWithID.emplace(label.labelID(), position);
    while (index_.nextFreeID != 0xFFFFFFFF && index_.firstWithID.count(index_.nextFreeID)) ++index_.nextFreeID;
    index_.largestNumber = std::max(index_.largestNumber, trailingNumber(label.name()));
}

const KXLabelList::Index& KXLabelList::index() const {
    const std::uint64_t generation = gIdentityGeneration.load(std::memory_order_relaxed);
    if (index_.valid && index_.generation == generation) return index_;
    index_.valid = true;
    index_.generation = generation;
    index_.firstWithID.clear();
    index_.firstWithID.reserve(list_.size());
    index_.nextFreeID = 1;
    index_.largestNumber = 0;
    for (std::size_t i = 0; i < list_.size(); ++i) addToIndex(*list_[i], i);
    return index_;
}

std::uint32_t KXLabelList::nextLabelID() const { return index().nextFreeID; }

std::shared_ptr<KXLabel> KXLabelList::labelWithID(std::uint32_t labelID) const {
    const Index& ids = index();
    const auto found = ids.firstWithID.find(labelID);
    return found == ids.firstWithID.end() ? nullptr : list_[found->second];
}

std::uint32_t KXLabelList::largestTrailingNumber() const { return index().largestNumber; }

// --- Positions

double KXLabelList::firstPosition() const {
    if (list_.empty()) return 0.0;
    double first = list_.front()->position();
    for (const auto& label : list_) first = std::min(first, label->position());
    return first;
}

double KXLabelList::lastPosition() const {
    double last = 0.0;
    for (const auto& label : list_) {
        const KXRangeLabel* span = asSpan(*label);
        last = std::max(last, span ? span->end() : label->position());
    }
    return last;
}

double KXLabelList::positionNearestTo(double position) const {
    bool found = false;
    double candidate = std::numeric_limits<double>::max();
    auto consider = [&](double value) {
        if (std::fabs(value - position) < std::fabs(candidate - position)) {
            candidate = value;
            found = true;
        }
    };
    for (const auto& label : list_) {
        if (label->modifying()) continue;
        consider(label->position());
        if (const KXRangeLabel* span = asSpan(*label)) consider(span->end());
    }
    return found ? candidate : -1.0;
}

double KXLabelList::positionAfter(double position) const {
    std::optional<double> difference;
    auto consider = [&](double value) {
        if (value > position && (!difference || value - position < *difference)) difference = value - position;
    };
    for (const auto& label : list_) {
        consider(label->position());
        if (const KXRangeLabel* span = asSpan(*label)) consider(span->end());
    }
    return difference ? position + *difference : -1.0;
}

double KXLabelList::positionBefore(double position) const {
    std::optional<double> difference;
    auto consider = [&](double value) {
        if (value < position && (!difference || position - value < *difference)) difference = position - value;
    };
    for (const auto& label : list_) {
        consider(label->position());
        if (const KXRangeLabel* span = asSpan(*label)) consider(span->end());
    }
    return difference ? position - *difference : -1.0;
}

void KXLabelList::addLabelsInRange(const KXRange& range, KXLabelArray& labels) const {
    for (const auto& label : list_)
        if (label->isWithinRange(range)) labels.push_back(label);
}

// --- Order and editing

void KXLabelList::sortBy(const std::string& identifier) {
    std::stable_sort(list_.begin(), list_.end(), [&](const auto& a, const auto& b) {
        return valueLess(a->objectForIdentifier(identifier), b->objectForIdentifier(identifier));
    });
    dropIndex();
}

void KXLabelList::removeDuplicates() {
    for (std::size_t i = 0; i < list_.size(); ++i) {
        const KXLabel& first = *list_[i];
        const KXRangeLabel* firstSpan = asSpan(first);
        for (std::size_t j = list_.size() - 1; j > i; --j) {
            const KXLabel& later = *list_[j];
            if (later.position() != first.position()) continue;
            if (firstSpan && (!later.isRangeLabel() || asSpan(later)->end() != firstSpan->end())) continue;
            list_.erase(list_.begin() + std::ptrdiff_t(j));
        }
    }
    dropIndex();
}

void KXLabelList::shiftRange(const KXRange& by) {
    for (const auto& label : list_) {
        if (label->locked()) continue;
        if (label->position() > by.location()) label->setPosition(label->position() + by.length());
        if (KXRangeLabel* span = asSpan(*label); span && span->end() > by.location())
            span->setEnd(span->end() + by.length());
    }
}

void KXLabelList::scale(float factor, const KXRange& range) {
    const double f = factor;
    for (const auto& label : list_) {
        if (label->locked()) continue;
        if (range.includesLocation(label->position()))
            label->setPosition(range.start() + (label->position() - range.start()) * f);
        if (KXRangeLabel* span = asSpan(*label); span && range.includesLocation(span->end()))
            span->setEnd(range.start() + (span->end() - range.start()) * f);
    }
    shiftRange(KXRange::rangeWithLocation(range.end(), range.length() * f - range.length()));
}

void KXLabelList::reverseRange(const KXRange& range) {
    for (const auto& label : list_) {
        if (label->locked()) continue;
        if (range.includesLocation(label->position()))
            label->setPosition(range.end() - (label->position() - range.start()));
        KXRangeLabel* span = asSpan(*label);
        if (!span) continue;
        if (range.includesLocation(span->end())) span->setEnd(range.end() - (span->end() - range.start()));
        if (span->start() > span->end()) {
            const double oldStart = span->start(), oldEnd = span->end();
            span->setStart(oldEnd);
            span->setEnd(oldStart);
        }
    }
}

// --- Selection

KXLabelArray KXLabelList::selectedLabels() const {
    KXLabelArray selected;
    for (const auto& label : list_)
        if (label->selected()) selected.push_back(label);
    return selected;
}

std::size_t KXLabelList::numberOfSelectedLabels() const {
    return std::size_t(std::count_if(list_.begin(), list_.end(), [](const auto& l) { return l->selected(); }));
}

int KXLabelList::selectedState() const {
    const std::size_t selected = numberOfSelectedLabels();
    if (selected == 0) return 0;
    return selected == list_.size() ? 1 : -1;
}

void KXLabelList::selectAllLabels() {
    for (const auto& label : list_) label->select();
}

void KXLabelList::deselectAllLabels() {
    for (const auto& label : list_) label->deselect();
}

std::optional<KXRange> KXLabelList::selectedRange() const {
    std::optional<KXRange> range;
    for (const auto& label : list_) {
        if (!label->selected()) continue;
        if (!range) range = label->range();
        else if (!label->isWithinRange(*range)) range->includeRange(label->range());
    }
    return range;
}

void KXLabelList::shiftSelected(double seconds) {
    for (const auto& label : list_) {
        if (!label->selected()) continue;
        label->setPosition(label->position() + seconds);
        if (KXRangeLabel* span = asSpan(*label)) span->setEnd(span->end() + seconds);
    }
}

void KXLabelList::bringSelectedToFront() {
    std::stable_partition(list_.begin(), list_.end(), [](const auto& l) { return l->selected(); });
    dropIndex();
}

void KXLabelList::removeSelectedLabels() {
    removeIf([](const KXLabel& l) { return l.selected(); });
}

// --- State

KXArray KXLabelList::state() const {
    KXArray state;
    for (const auto& label : list_) state.push_back(label->state());
    return state;
}

void KXLabelList::setState(const KXArray& state) {
    removeAllLabels();
    appendState(state);
}

void KXLabelList::appendState(const KXArray& state) {
    for (const KXValue& entry : state) {
        if (entry.type() != KXValue::Type::dictionary) continue;
        const KXDictionary& dictionary = entry.dictionary();
        const KXLabelClass* labelClass = labelClass_;
        if (const KXValue* name = dictionary.find("Class"))
            if (const KXLabelClass* named = KXLabel::labelClassNamed(name->stringValue())) labelClass = named;
        auto label = labelClass->make();
        label->setState(dictionary);
        addLabel(std::move(label));
    }
}

// --- Archive

void KXLabelList::encodeWithCoder(KXCoder& coder) const {
    coder.encodeArray(KXCodingArray(list_.begin(), list_.end()));
}

void KXLabelList::initWithCoder(KXDecoder& decoder) {
    removeAllLabels();
    for (auto& object : decoder.decodeArray()) {
        auto label = std::dynamic_pointer_cast<KXLabel>(object);
        if (!label) {  // an archived list holds labels only
            decoder.markDamaged();
            removeAllLabels();
            return;
        }
        addLabel(std::move(label));
    }
}
