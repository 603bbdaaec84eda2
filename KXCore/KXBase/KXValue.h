#pragma once
// KXValue: one property-list value (null, boolean, integer, unsigned 64-bit, real, string, data,
// date, array, dictionary), with number-like accessors that convert the way metadata readers
// expect: a string answers intValue() as its leading integer, a number answers stringValue() as
// its decimal text, anything else answers 0 or "".
//
// KXDictionary keeps its keys in insertion order; setting an existing key replaces the value in
// place. Lookups are linear: metadata and state dictionaries hold tens of keys, not thousands.

#include <cstdint>
#include <initializer_list>
#include <string>
#include <utility>
#include <variant>
#include <unordered_map>
#include <vector>

#include "KXBase/KXData.h"

class KXValue;

// A point in time, in seconds since 1970-01-01 00:00:00 UTC.
struct KXDate {
    double secondsSince1970 = 0;
    static KXDate now();
    friend bool operator==(const KXDate&, const KXDate&) = default;
};

using KXArray = std::vector<KXValue>;

class KXDictionary {
public:
    KXDictionary() = default;
    KXDictionary(std::initializer_list<std::pair<std::string, KXValue>> entries);

    // Null when absent.
    const KXValue& objectForKey(const std::string& key) const;
    const KXValue* find(const std::string& key) const;
    // The value of `key` to change in place; null when absent.
    KXValue* mutableObjectForKey(const std::string& key);
    bool contains(const std::string& key) const { return find(key) != nullptr; }
    void setObject(KXValue value, const std::string& key);
    void removeObjectForKey(const std::string& key);
    void removeAllObjects();
    // Entries of `other` replace or follow this dictionary's.
    void addEntriesFromDictionary(const KXDictionary& other);

    std::size_t count() const { return keys_.size(); }
    bool empty() const { return keys_.empty(); }
    const std::vector<std::string>& keys() const { return keys_; }
    const KXValue& valueAtIndex(std::size_t index) const;

    friend bool operator==(const KXDictionary& a, const KXDictionary& b);

private:
    std::size_t indexOfKey(const std::string& key) const;

    std::vector<std::string> keys_;
    std::vector<KXValue> values_;
    // Beyond a few entries, the position of each key: a dictionary read from a file may hold
    // hundreds of thousands, and setting or finding each one must not scan them all.
    std::unordered_map<std::string, std::size_t> index_;
};

class KXValue {
public:
    enum class Type { null, boolean, integer, unsignedInteger, real, string, data, date, array, dictionary };

    KXValue() = default;
    KXValue(std::nullptr_t) {}
    KXValue(bool value) : storage_(value) {}
    KXValue(int value) : storage_(std::int64_t(value)) {}
    KXValue(long value) : storage_(std::int64_t(value)) {}
    KXValue(long long value) : storage_(std::int64_t(value)) {}
    KXValue(unsigned value) : storage_(std::int64_t(value)) {}
    // Unsigned 64-bit values keep their own kind so that values above 2^63 survive.
    KXValue(unsigned long value) : storage_(std::uint64_t(value)) {}
    KXValue(unsigned long long value) : storage_(std::uint64_t(value)) {}
    KXValue(double value) : storage_(value) {}
    KXValue(float value) : storage_(double(value)) {}
    KXValue(const char* value) : storage_(std::string(value)) {}
    KXValue(std::string value) : storage_(std::move(value)) {}
    KXValue(KXData value) : storage_(std::move(value)) {}
    KXValue(KXDate value) : storage_(value) {}
    KXValue(KXArray value) : storage_(std::move(value)) {}
    KXValue(KXDictionary value) : storage_(std::move(value)) {}

    Type type() const { return Type(storage_.index()); }
    bool isNull() const { return type() == Type::null; }
    bool isNumber() const;
    bool isString() const { return type() == Type::string; }

    bool boolValue() const;
    std::int32_t intValue() const { return std::int32_t(longLongValue()); }
    std::uint32_t unsignedIntValue() const { return std::uint32_t(unsignedLongLongValue()); }
    std::int64_t longLongValue() const;
    std::uint64_t unsignedLongLongValue() const;
    float floatValue() const { return float(doubleValue()); }
    double doubleValue() const;
    std::string stringValue() const;

    // The held value when it is of that kind; an empty one otherwise.
    const std::string& string() const;
    const KXData& data() const;
    KXDate date() const;
    const KXArray& array() const;
    const KXDictionary& dictionary() const;
    KXArray* mutableArray() { return std::get_if<KXArray>(&storage_); }
    KXDictionary* mutableDictionary() { return std::get_if<KXDictionary>(&storage_); }

    friend bool operator==(const KXValue& a, const KXValue& b) { return a.storage_ == b.storage_; }

private:
    std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double, std::string, KXData,
                 KXDate, KXArray, KXDictionary>
        storage_;
};

inline bool operator==(const KXDictionary& a, const KXDictionary& b) {
    return a.keys_ == b.keys_ && a.values_ == b.values_;
}
