#pragma once
// KXLabel: a named, numbered point in time on an audio file — the base of every label kind
// (markers, slices, indexes; spans derive from KXRangeLabel). Positions are seconds.
//
// Besides its fields a label offers a property interface by string keys (state/setState,
// objectForIdentifier/setObject, details) for table views and inspectors, and a sequential
// archive (KXCoder). The exact keys and the archive order are file formats of the editor
// document.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "KXBase/KXCoder.h"
#include "KXBase/KXRange.h"
#include "KXBase/KXRect.h"
#include "KXBase/KXValue.h"

class KXLabel;
class KXLabelList;


// A label class as a value: what the class answers at class level, and how to make one.
struct KXLabelClass {
    const char* name;  // "KXMarker"
    std::int32_t type;
    const char* kind;  // "Marker"
    std::shared_ptr<KXLabel> (*make)();
};

class KXLabel : public KXCoding {
public:
    // One sample period at 192 kHz: positions this close to zero are stored as 0.0.
    static constexpr double kZeroSnap = 1.0 / 192000.0;

    KXLabel() = default;
    ~KXLabel() override = default;
    static std::shared_ptr<KXLabel> label() { return std::make_shared<KXLabel>(); }

    // --- Class
    static const KXLabelClass& labelClass();
    virtual const KXLabelClass& classOfLabel() const { return labelClass(); }
    std::int32_t type() const { return classOfLabel().type; }
    std::string kind() const { return classOfLabel().kind; }
    // 0 marker, 1 slice, 2 region, 3 loop, 4 track, 5 index; nullptr for any other.
    static const KXLabelClass* labelClassForType(std::int32_t type);
    // Any label class by its name ("KXRegion"); nullptr for an unknown name.
    static const KXLabelClass* labelClassNamed(const std::string& name);
    virtual bool isRangeLabel() const { return false; }

    // A new label of this one's class with its position (through the setter), ID, name (through
    // the setter) and lock; selection, owner and rectangles are not copied.
    virtual std::shared_ptr<KXLabel> copy() const;

    // --- Fields
    double position() const { return position_; }
    // Values within kZeroSnap of zero are stored as 0.0; others, negative ones too, as given.
    virtual void setPosition(double position);
    std::uint32_t labelID() const { return labelID_; }
    void setLabelID(std::uint32_t labelID);
    const std::optional<std::string>& name() const { return name_; }
    virtual void setName(std::optional<std::string> name);
    KXLabelList* owner() const { return owner_; }
    void setOwner(KXLabelList* owner) { owner_ = owner; }
    bool locked() const { return locked_; }
    void setLocked(bool locked) { locked_ = locked; }
    bool selected() const { return selected_; }
    void setSelected(bool selected) { selected_ = selected; }
    void select() { selected_ = true; }
    void deselect() { selected_ = false; }
    bool modifying() const { return modifying_; }
    void setModifying(bool modifying) { modifying_ = modifying; }
    const KXRect& headRect() const { return headRect_; }
    void setHeadRect(const KXRect& rect) { headRect_ = rect; }

    // --- Parts and ranges. A point label has one part, whatever the number asked.
    virtual double positionForPart(std::uint32_t part) const;
    virtual void setPosition(double position, std::uint32_t part);
    virtual KXRange range() const;
    virtual void setRange(const KXRange& range);
    // Whether the range includes the position (for a point label both mean the same).
    virtual bool isWithinRange(const KXRange& range) const;
    virtual bool intersectsRange(const KXRange& range) const;
    virtual bool isAtPosition(double position) const;
    virtual std::string description() const;

    // --- Properties by key
    virtual KXDictionary state() const;
    virtual void setState(const KXDictionary& state);
    virtual KXValue objectForIdentifier(const std::string& identifier) const;
    virtual void setObject(const KXValue& value, const std::string& identifier);
    // One {"key", "title", "editable"} dictionary per user-visible property.
    virtual KXArray details() const;

    // --- Archive: position, ID, name, locked, modifying (not selected: deliberate).
    std::string archiveClassName() const override { return classOfLabel().name; }
    void encodeWithCoder(KXCoder& coder) const override;
    void initWithCoder(KXDecoder& decoder) override;

protected:
    static KXDictionary detail(const char* key, const char* title, bool editable);
    // The value of `key`, else of `alias`; nullptr when neither is present.
    static const KXValue* valueForKeyOrAlias(const KXDictionary& state, const char* key, const char* alias);
    static bool is(const std::string& identifier, const char* key, const char* alias) {
        return identifier == key || identifier == alias;
    }

    double position_ = 0;
    std::uint32_t labelID_ = 0;
    std::optional<std::string> name_;
    KXLabelList* owner_ = nullptr;  // not owned

    bool locked_ = false;
    bool selected_ = false;
    bool modifying_ = false;
    KXRect headRect_;
};

// A range over the label: from its position, with a span label's length (0 for a point label).
KXRange KXRangeWithLabel(const KXLabel& label);

// The label classes' makers, shared by the kinds' class objects.
template <typename Label>
std::shared_ptr<KXLabel> KXMakeLabel() {
    return std::make_shared<Label>();
}
