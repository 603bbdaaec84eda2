#include "KXBase/KXValue.h"

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <limits>

KXDate KXDate::now() {
    using namespace std::chrono;
    return {duration<double>(system_clock::now().time_since_epoch()).count()};
}

// --- KXDictionary

KXDictionary::KXDictionary(std::initializer_list<std::pair<std::string, KXValue>> entries) {
    for (const auto& [key, value] : entries) setObject(value, key);
}

namespace {
// Dictionaries up to this size are searched in order; larger ones keep an index.
constexpr std::size_t kIndexedCount = 16;
constexpr std::size_t kNotFound = std::size_t(-1);
}  // namespace

std::size_t KXDictionary::indexOfKey(const std::string& key) const {
    if (keys_.size() > kIndexedCount) {
        const auto found = index_.find(key);
        return found == index_.end() ? kNotFound : found->second;
    }
    for (std::size_t i = 0; i < keys_.size(); ++i)
        if (keys_[i] == key) return i;
    return kNotFound;
}

const KXValue* KXDictionary::find(const std::string& key) const {
    const std::size_t i = indexOfKey(key);
    return i == kNotFound ? nullptr : &values_[i];
}

KXValue* KXDictionary::mutableObjectForKey(const std::string& key) {
    const std::size_t i = indexOfKey(key);
    return i == kNotFound ? nullptr : &values_[i];
}

const KXValue& KXDictionary::objectForKey(const std::string& key) const {
    static const KXValue kNull;
    const KXValue* value = find(key);
    return value ? *value : kNull;
}

void KXDictionary::setObject(KXValue value, const std::string& key) {
    if (const std::size_t i = indexOfKey(key); i != kNotFound) {
        values_[i] = std::move(value);
        return;
    }
    keys_.push_back(key);
    values_.push_back(std::move(value));
    if (keys_.size() > kIndexedCount + 1) {
        index_.emplace(key, keys_.size() - 1);
    } else if (keys_.size() == kIndexedCount + 1) {
        index_.reserve(keys_.size() * 2);
        for (std::size_t i = 0; i < keys_.size(); ++i) index_.emplace(keys_[i], i);
    }
}

void KXDictionary::removeObjectForKey(const std::string& key) {
    const std::size_t i = indexOfKey(key);
    if (i == kNotFound) return;
    keys_.erase(keys_.begin() + std::ptrdiff_t(i));
    values_.erase(values_.begin() + std::ptrdiff_t(i));
    index_.clear();
    if (keys_.size() > kIndexedCount)
        for (std::size_t k = 0; k < keys_.size(); ++k) index_.emplace(keys_[k], k);
}

void KXDictionary::removeAllObjects() {
    keys_.clear();
    values_.clear();
    index_.clear();
}

void KXDictionary::addEntriesFromDictionary(const KXDictionary& other) {
    for (std::size_t i = 0; i < other.keys_.size(); ++i) setObject(other.values_[i], other.keys_[i]);
}

const KXValue& KXDictionary::valueAtIndex(std::size_t index) const { return values_.at(index); }

// --- KXValue

namespace {

// The leading integer of a text, as a number-from-string conversion reads it: optional spaces,
// an optional sign, then digits; anything else ends it. Saturates instead of overflowing.
std::int64_t leadingInteger(const std::string& text) {
    std::size_t i = 0;
    while (i < text.size() && (text[i] == ' ' || text[i] == '\t' || text[i] == '\n')) ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
    std::uint64_t magnitude = 0;
    constexpr std::uint64_t kLimit = 1ull << 63;  // one past INT64_MAX: enough for either sign
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
        const auto digit = std::uint64_t(text[i] - '0');
        magnitude = magnitude > (kLimit - digit) / 10 ? kLimit : magnitude * 10 + digit;
    }
    if (negative) return magnitude >= (1ull << 63) ? std::numeric_limits<std::int64_t>::min()
                                                   : -std::int64_t(magnitude);
    return magnitude >= (1ull << 63) ? std::numeric_limits<std::int64_t>::max()
                                     : std::int64_t(magnitude);
}

std::int64_t saturatingInt64(double value) {
    if (std::isnan(value)) return 0;
    if (value >= 9223372036854775807.0) return std::numeric_limits<std::int64_t>::max();
    if (value <= -9223372036854775808.0) return std::numeric_limits<std::int64_t>::min();
    return std::int64_t(value);
}

}  // namespace

bool KXValue::isNumber() const {
    const Type t = type();
    return t == Type::boolean || t == Type::integer || t == Type::unsignedInteger || t == Type::real;
}

bool KXValue::boolValue() const {
    if (isString()) {
        const std::string& s = string();
        if (!s.empty() && (s[0] == 'Y' || s[0] == 'y' || s[0] == 'T' || s[0] == 't')) return true;
    }
    return longLongValue() != 0 || (type() == Type::real && doubleValue() != 0);
}

std::int64_t KXValue::longLongValue() const {
    switch (type()) {
        case Type::boolean: return std::get<bool>(storage_) ? 1 : 0;
        case Type::integer: return std::get<std::int64_t>(storage_);
        case Type::unsignedInteger: return std::int64_t(std::get<std::uint64_t>(storage_));
        case Type::real: return saturatingInt64(std::get<double>(storage_));
        case Type::string: return leadingInteger(string());
        default: return 0;
    }
}

std::uint64_t KXValue::unsignedLongLongValue() const {
    if (type() == Type::unsignedInteger) return std::get<std::uint64_t>(storage_);
    if (type() == Type::real) {
        const double v = std::get<double>(storage_);
        if (v >= 0 && v < 18446744073709551616.0) return std::uint64_t(v);
    }
    return std::uint64_t(longLongValue());
}

double KXValue::doubleValue() const {
    switch (type()) {
        case Type::real: return std::get<double>(storage_);
        case Type::unsignedInteger: return double(std::get<std::uint64_t>(storage_));
        case Type::string: return std::strtod(string().c_str(), nullptr);
        case Type::date: return std::get<KXDate>(storage_).secondsSince1970;
        default: return double(longLongValue());
    }
}

std::string KXValue::stringValue() const {
    switch (type()) {
        case Type::string: return string();
        case Type::boolean: return std::get<bool>(storage_) ? "1" : "0";
        case Type::integer: return std::to_string(std::get<std::int64_t>(storage_));
        case Type::unsignedInteger: return std::to_string(std::get<std::uint64_t>(storage_));
        case Type::real: {
            char text[32];
            std::snprintf(text, sizeof text, "%.17g", std::get<double>(storage_));
            return text;
        }
        default: return {};
    }
}

const std::string& KXValue::string() const {
    static const std::string kEmpty;
    const auto* value = std::get_if<std::string>(&storage_);
    return value ? *value : kEmpty;
}

const KXData& KXValue::data() const {
    static const KXData kEmpty;
    const auto* value = std::get_if<KXData>(&storage_);
    return value ? *value : kEmpty;
}

KXDate KXValue::date() const {
    const auto* value = std::get_if<KXDate>(&storage_);
    return value ? *value : KXDate{};
}

const KXArray& KXValue::array() const {
    static const KXArray kEmpty;
    const auto* value = std::get_if<KXArray>(&storage_);
    return value ? *value : kEmpty;
}

const KXDictionary& KXValue::dictionary() const {
    static const KXDictionary kEmpty;
    const auto* value = std::get_if<KXDictionary>(&storage_);
    return value ? *value : kEmpty;
}
