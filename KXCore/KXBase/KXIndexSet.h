#pragma once
// KXIndexSet: a set of unsigned indexes (channels, selected labels), kept as sorted, disjoint,
// non-adjacent runs so that "0 … n−1" costs one entry whatever n is.

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <vector>

class KXIndexSet {
public:
    KXIndexSet() = default;
    KXIndexSet(std::initializer_list<std::uint32_t> indexes);
    static KXIndexSet indexSetWithIndexesInRange(std::uint32_t location, std::uint32_t length);

    void addIndex(std::uint32_t index) { addIndexesInRange(index, 1); }
    void addIndexesInRange(std::uint32_t location, std::uint32_t length);
    void addIndexes(const KXIndexSet& other);
    void removeIndex(std::uint32_t index) { removeIndexesInRange(index, 1); }
    void removeIndexesInRange(std::uint32_t location, std::uint32_t length);
    void removeAllIndexes() { runs_.clear(); }

    bool containsIndex(std::uint32_t index) const;
    bool containsIndexes(const KXIndexSet& other) const;
    std::uint64_t count() const;
    bool empty() const { return runs_.empty(); }
    std::optional<std::uint32_t> firstIndex() const;
    std::optional<std::uint32_t> lastIndex() const;
    std::optional<std::uint32_t> indexGreaterThanIndex(std::uint32_t index) const;

    // Calls `body` with every index in ascending order; stops early when it answers false.
    void enumerateIndexes(const std::function<bool(std::uint32_t)>& body) const;
    std::vector<std::uint32_t> indexes() const;

    friend bool operator==(const KXIndexSet&, const KXIndexSet&) = default;

private:
    struct Run {
        std::uint64_t first, last;  // inclusive; 64-bit so that last + 1 never wraps
        friend bool operator==(const Run&, const Run&) = default;
    };
    std::vector<Run> runs_;
};
