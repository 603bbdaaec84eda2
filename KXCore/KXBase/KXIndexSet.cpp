#include "KXBase/KXIndexSet.h"

#include <algorithm>

KXIndexSet::KXIndexSet(std::initializer_list<std::uint32_t> indexes) {
    for (std::uint32_t index : indexes) addIndex(index);
}

KXIndexSet KXIndexSet::indexSetWithIndexesInRange(std::uint32_t location, std::uint32_t length) {
    KXIndexSet set;
    set.addIndexesInRange(location, length);
    return set;
}

void KXIndexSet::addIndexesInRange(std::uint32_t location, std::uint32_t length) {
    if (length == 0) return;
    Run added{location, std::min<std::uint64_t>(std::uint64_t(location) + length - 1, 0xFFFFFFFFu)};
    std::vector<Run> merged;
    merged.reserve(runs_.size() + 1);
    bool placed = false;
    for (const Run& run : runs_) {
        if (run.last + 1 < added.first) {
            merged.push_back(run);
        } else if (added.last + 1 < run.first) {
            if (!placed) merged.push_back(added), placed = true;
            merged.push_back(run);
        } else {  // overlapping or adjacent: absorb
            added.first = std::min(added.first, run.first);
            added.last = std::max(added.last, run.last);
        }
    }
    if (!placed) merged.push_back(added);
    runs_ = std::move(merged);
}

void KXIndexSet::addIndexes(const KXIndexSet& other) {
    for (const Run& run : other.runs_)
        addIndexesInRange(std::uint32_t(run.first), std::uint32_t(run.last - run.first + 1));
}

void KXIndexSet::removeIndexesInRange(std::uint32_t location, std::uint32_t length) {
    if (length == 0) return;
    const std::uint64_t first = location, last = std::uint64_t(location) + length - 1;
    std::vector<Run> kept;
    for (const Run& run : runs_) {
        if (run.last < first || run.first > last) {
            kept.push_back(run);
            continue;
        }
        if (run.first < first) kept.push_back({run.first, first - 1});
        if (run.last > last) kept.push_back({last + 1, run.last});
    }
    runs_ = std::move(kept);
}

bool KXIndexSet::containsIndex(std::uint32_t index) const {
    auto it = std::upper_bound(runs_.begin(), runs_.end(), std::uint64_t(index),
                               [](std::uint64_t value, const Run& run) { return value < run.first; });
    return it != runs_.begin() && std::prev(it)->last >= index;
}

bool KXIndexSet::containsIndexes(const KXIndexSet& other) const {
    KXIndexSet both = *this;
    both.addIndexes(other);
    return both == *this;
}

std::uint64_t KXIndexSet::count() const {
    std::uint64_t total = 0;
    for (const Run& run : runs_) total += run.last - run.first + 1;
    return total;
}

std::optional<std::uint32_t> KXIndexSet::firstIndex() const {
    if (runs_.empty()) return std::nullopt;
    return std::uint32_t(runs_.front().first);
}

std::optional<std::uint32_t> KXIndexSet::lastIndex() const {
    if (runs_.empty()) return std::nullopt;
    return std::uint32_t(runs_.back().last);
}

std::optional<std::uint32_t> KXIndexSet::indexGreaterThanIndex(std::uint32_t index) const {
    for (const Run& run : runs_) {
        if (run.last > index) return std::uint32_t(std::max<std::uint64_t>(run.first, index + 1ull));
    }
    return std::nullopt;
}

void KXIndexSet::enumerateIndexes(const std::function<bool(std::uint32_t)>& body) const {
    for (const Run& run : runs_)
        for (std::uint64_t i = run.first; i <= run.last; ++i)
            if (!body(std::uint32_t(i))) return;
}

std::vector<std::uint32_t> KXIndexSet::indexes() const {
    std::vector<std::uint32_t> all;
    enumerateIndexes([&](std::uint32_t i) { return all.push_back(i), true; });
    return all;
}
