#pragma once
// KXLabelList: the labels of one kind, in list order (insertion order until sortBy()). Each kind
// has its own list class, which decides the class of labels restored from state.
//
// Position queries answer 0.0 (first, last) or -1.0 (nearest, after, before) for an empty list.
// Shift, scale and reverse leave locked labels alone; shiftSelected() does not look at locks.

#include <atomic>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "KXAudioFile/KXLabels/KXLabel.h"

using KXLabelArray = std::vector<std::shared_ptr<KXLabel>>;

class KXLabelList : public KXCoding {
public:
    static constexpr std::size_t kNotFound = std::numeric_limits<std::size_t>::max();

    KXLabelList() : KXLabelList(KXLabel::labelClass()) {}
    ~KXLabelList() override = default;
    static std::shared_ptr<KXLabelList> labelList() { return std::make_shared<KXLabelList>(); }
    // A list that holds copies of `labels` (initWithList:).
    static std::shared_ptr<KXLabelList> labelListWithList(const KXLabelArray& labels);
    // A new list of this list's class holding copies of its labels.
    std::shared_ptr<KXLabelList> copy() const;

    // The class of labels made from state without a class name.
    const KXLabelClass& labelClass() const { return *labelClass_; }
    void* owner() const { return owner_; }
    void setOwner(void* owner) { owner_ = owner; }
    std::string description() const;

    // --- Access
    const KXLabelArray& list() const { return list_; }
    std::size_t count() const { return list_.size(); }
    std::shared_ptr<KXLabel> labelAtIndex(std::size_t index) const;
    std::size_t indexOfLabel(const KXLabel* label) const;

    // --- Insertion and removal
    // Appends the label (a null one is ignored) and makes this list its owner; no sorting, no ID.
    void addLabel(std::shared_ptr<KXLabel> label);
    // Appends the other list's labels themselves (not copies) and takes them over.
    virtual void addLabels(const KXLabelList& other);
    void removeLabel(const KXLabel* label);
    void removeLabelAtIndex(std::size_t index);
    // Removes every label of the set in one step.
    void removeLabels(const std::unordered_set<const KXLabel*>& labels);
    void removeAllLabels() {
        list_.clear();
        dropIndex();
    }
    // Removes every label not within the range / that intersects it / that is at the position.
    void cropRange(const KXRange& range);
    void removeRange(const KXRange& range);
    void removeAtPosition(double position);

    // --- Positions (span ends count too, except for firstPosition)
    double firstPosition() const;
    double lastPosition() const;
    // Skips labels being modified. Ties keep the earlier label; a start wins over its own end.
    double positionNearestTo(double position) const;
    double positionAfter(double position) const;
    double positionBefore(double position) const;
    void addLabelsInRange(const KXRange& range, KXLabelArray& labels) const;

    // --- Order and editing
    // Ascending by objectForIdentifier(identifier); equal keys keep their order.
    void sortBy(const std::string& identifier);
    // Removes later labels at the same position (and, for spans, the same end) as an earlier one.
    void removeDuplicates();
    // Moves every unlocked position (and end) strictly after `by`'s location by its length.
    void shiftRange(const KXRange& by);
    void shift(double seconds) { shiftRange(KXRange::rangeWithLocation(0, seconds)); }
    // Scales what lies in `range` about its start, then shifts what follows its end by the
    // change of its length — labels scaled past the end are shifted again.
    void scale(float factor, const KXRange& range);
    void scale(float factor) { scale(factor, KXRange::rangeWithAllTime()); }
    // Mirrors what lies in `range`; spans whose ends crossed are turned round.
    void reverseRange(const KXRange& range);

    // --- Selection
    KXLabelArray selectedLabels() const;
    std::size_t numberOfSelectedLabels() const;
    // 1 all selected (and not empty), 0 none (or empty), -1 some.
    int selectedState() const;
    void selectAllLabels();
    void deselectAllLabels();
    // The union of the selected labels' ranges; nullopt when none is selected.
    std::optional<KXRange> selectedRange() const;
    void shiftSelected(double seconds);
    void bringSelectedToFront();
    void removeSelectedLabels();

    // --- State: the labels' state dictionaries, in list order
    KXArray state() const;
    void setState(const KXArray& state);
    // One label per dictionary, of the class its "Class" entry names, else of labelClass().
    // (Labels write their class under "class": restored labels take the list's own class.)
    void appendState(const KXArray& state);

    // --- Archive: the label array as one object; the owner is not archived.
    std::string archiveClassName() const override { return "KXLabelList"; }
    void encodeWithCoder(KXCoder& coder) const override;
    void initWithCoder(KXDecoder& decoder) override;
    // Makes the label and list classes named in label archives.
    static std::shared_ptr<KXCoding> archiveObjectForClassName(const std::string& name);

    // Called when a label that a list holds changes its ID or name: every list's index is dropped.
    static void noteLabelIdentityChange() { gIdentityGeneration.fetch_add(1, std::memory_order_relaxed); }

protected:
    explicit KXLabelList(const KXLabelClass& labelClass) : labelClass_(&labelClass) {}
    // A new, empty list of this list's class.
    virtual std::shared_ptr<KXLabelList> makeEmpty() const { return labelList(); }
    // Removes the labels `remove` picks in one step, keeping the survivors' order.
    template <typename Predicate>
    void removeIf(Predicate remove);
    // The smallest ID from 1 up that no label uses (gaps are reused; 0 is never handed out).
    std::uint32_t nextLabelID() const;
    // The first label in list order with the ID.
    std::shared_ptr<KXLabel> labelWithID(std::uint32_t labelID) const;
    // The largest number that ends a label name ("Verse 7" → 7; the last blank-separated piece,
    // when it begins with a digit); 0 when none does. Default names count on from it.
    std::uint32_t largestTrailingNumber() const;

    const KXLabelClass* labelClass_;
    void* owner_ = nullptr;  // not owned
    KXLabelArray list_;

private:
    // What the ID and default-name rules would otherwise find by scanning every label, so that
    // adding n labels (a file may hold hundreds of thousands) takes O(n) work, not O(n²). It stays
    // valid while the list only grows through addLabel and no listed label changes its ID or
    // name (the generation); anything else drops it, and the next lookup rebuilds it.
    struct Index {
        bool valid = false;
        std::uint64_t generation = 0;
        std::unordered_map<std::uint32_t, std::size_t> firstWithID;  // ID → list position
        std::uint32_t nextFreeID = 1;
        std::uint32_t largestNumber = 0;
    };
    void dropIndex() { index_.valid = false; }
    const Index& index() const;
    void addToIndex(const KXLabel& label, std::size_t position) const;

    mutable Index index_;
    static inline std::atomic<std::uint64_t> gIdentityGeneration{0};
};
