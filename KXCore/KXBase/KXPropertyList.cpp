#include "KXBase/KXPropertyList.h"

#include <plist/plist.h>
#include <pugixml.hpp>

#include <algorithm>
#include <bit>
#include <climits>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "KXBase/KXString.h"

namespace {

// Property-list dates count from 2001-01-01 00:00:00 UTC.
constexpr double kSecondsFrom1970To2001 = 978307200.0;
// Nesting deeper than this is refused: a hostile file must not exhaust the stack.
constexpr int kMaximumDepth = 256;

struct PlistDeleter {
    void operator()(plist_t node) const { plist_free(node); }
};
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

// A date as the writers store it: whole seconds since 2001 within 32 bits (dates beyond are held
// at the ends of that range) and microseconds.
struct StoredDate {
    std::int32_t seconds, microseconds;
};

StoredDate storedDate(const KXDate& date) {
    double since2001 = date.secondsSince1970 - kSecondsFrom1970To2001;
    if (!std::isfinite(since2001)) since2001 = 0;
    since2001 = std::clamp(since2001, double(INT32_MIN), double(INT32_MAX));
    const double whole = std::floor(since2001);
    return {std::int32_t(whole), std::int32_t(std::round((since2001 - whole) * 1e6))};
}

plist_t nodeFromValue(const KXValue& value) {
    switch (value.type()) {
        case KXValue::Type::null: return plist_new_string("");
        case KXValue::Type::boolean: return plist_new_bool(value.boolValue() ? 1 : 0);
        case KXValue::Type::integer: return plist_new_uint(std::uint64_t(value.longLongValue()));
        case KXValue::Type::unsignedInteger: return plist_new_uint(value.unsignedLongLongValue());
        case KXValue::Type::real: return plist_new_real(value.doubleValue());
        case KXValue::Type::string: return plist_new_string(value.string().c_str());
        case KXValue::Type::data:
            return plist_new_data(reinterpret_cast<const char*>(value.data().data()),
                                  value.data().size());
        case KXValue::Type::date: {
            const StoredDate stored = storedDate(value.date());
            return plist_new_date(stored.seconds, stored.microseconds);
        }
        case KXValue::Type::array: {
            plist_t array = plist_new_array();
            for (const KXValue& item : value.array()) plist_array_append_item(array, nodeFromValue(item));
            return array;
        }
        case KXValue::Type::dictionary: {
            plist_t dict = plist_new_dict();
            const KXDictionary& d = value.dictionary();
            for (std::size_t i = 0; i < d.count(); ++i)
                plist_dict_set_item(dict, d.keys()[i].c_str(), nodeFromValue(d.valueAtIndex(i)));
            return dict;
        }
    }
    return plist_new_string("");
}


// --- Reading
//
// Property lists come from files, so reading is our own and bounded: nesting stops at
// kMaximumDepth levels (a hostile list must not exhaust the stack), and a binary list's objects,
// which may be shared by reference and so expand on every use, may not expand to more than a
// small multiple of the list's own size (nor may they refer to themselves).

constexpr std::uint64_t kExpandedObjectsPerByte = 4;
constexpr std::uint64_t kExpandedBytesPerByte = 8;
constexpr std::uint64_t kExpansionAllowance = 1 << 16;

bool isBinary(const KXData& data) { return data.size() >= 8 && std::memcmp(data.data(), "bplist00", 8) == 0; }

// The date of `since2001` seconds, kept to the microsecond as the writer stores it.
KXDate dateSince2001(double since2001) {
    if (!std::isfinite(since2001)) return KXDate{kSecondsFrom1970To2001};
    const double whole = std::floor(since2001);
    return KXDate{whole + std::round((since2001 - whole) * 1e6) / 1e6 + kSecondsFrom1970To2001};
}

// The binary form, "bplist00": the objects, a table of their offsets, then a 32-byte trailer of
// big-endian fields:
//   0  6 unused   6  1 offset-table entry size   7  1 object-reference size
//   8  8 object count   16  8 top object   24  8 offset-table position
// Each object starts with a marker byte whose high nibble is its kind and whose low nibble is a
// count (0xF: the count follows as an integer object):
//   0x08 false, 0x09 true; 0x1n integer of 2^n bytes; 0x2n real of 2^n bytes; 0x33 date (64-bit
//   float, seconds since 2001); 0x4n data; 0x5n ASCII text; 0x6n UTF-16 text (big-endian);
//   0xAn array of n object references; 0xDn dictionary: n key references, then n value references.
// Other kinds (null, sets, UIDs) are not property-list values here and fail the whole list.
class BinaryReader {
public:
    explicit BinaryReader(const KXData& data) : d_(data) {}

    std::optional<KXValue> read() {
        constexpr std::size_t kHeaderSize = 8, kTrailerSize = 32;
        if (d_.size() < kHeaderSize + kTrailerSize) return std::nullopt;
        const std::size_t trailer = d_.size() - kTrailerSize;
        offsetSize_ = d_[trailer + 6];
        referenceSize_ = d_[trailer + 7];
        if (offsetSize_ < 1 || offsetSize_ > 8 || referenceSize_ < 1 || referenceSize_ > 8) return std::nullopt;
        count_ = number(trailer + 8, 8);
        const std::uint64_t top = number(trailer + 16, 8), table = number(trailer + 24, 8);
        // The offset table lies between the header and the trailer; counts checked by division.
        if (table < kHeaderSize || table > trailer || count_ > (trailer - table) / offsetSize_ || top >= count_)
            return std::nullopt;
        table_ = std::size_t(table);
        objectsLeft_ = kExpandedObjectsPerByte * d_.size() + kExpansionAllowance;
        bytesLeft_ = kExpandedBytesPerByte * d_.size() + kExpansionAllowance;
        open_.assign(std::size_t(count_), false);
        return object(top, 0);
    }

private:
    // A big-endian number of `size` bytes at `at`; the caller has checked the bounds.
    std::uint64_t number(std::size_t at, std::size_t size) const {
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < size; ++i) value = (value << 8) | d_[at + i];
        return value;
    }
    // Whether `length` bytes from `at` lie among the objects, before the offset table.
    bool fits(std::size_t at, std::uint64_t length) const { return at <= table_ && length <= table_ - at; }

    // The count of the object at `at`, advancing `at` to its contents.
    bool countOf(std::size_t& at, std::uint64_t& count) const {
        const std::uint8_t low = d_[at] & 0x0F;
        ++at;
        if (low != 0x0F) {
            count = low;
            return true;
        }
        if (!fits(at, 1) || (d_[at] >> 4) != 0x1 || (d_[at] & 0x0F) > 3) return false;
        const std::size_t size = std::size_t(1) << (d_[at] & 0x0F);
        if (!fits(at + 1, size)) return false;
        count = number(at + 1, size);
        at += 1 + size;
        return true;
    }

    bool takeBytes(std::uint64_t count) {
        if (count > bytesLeft_) return false;
        bytesLeft_ -= count;
        return true;
    }

    std::optional<KXValue> object(std::uint64_t reference, int depth) {
        if (depth > kMaximumDepth || objectsLeft_ == 0 || reference >= count_ || open_[std::size_t(reference)])
            return std::nullopt;
        --objectsLeft_;
        const std::uint64_t offset = number(table_ + std::size_t(reference) * offsetSize_, offsetSize_);
        if (offset < 8 || offset >= table_) return std::nullopt;
        std::size_t at = std::size_t(offset);
        const std::uint8_t marker = d_[at];
        switch (marker >> 4) {
            case 0x0:
                if (marker == 0x08 || marker == 0x09) return KXValue(marker == 0x09);
                return std::nullopt;
            case 0x1: {
                // 1, 2 and 4 bytes are unsigned, 8 signed; of 16 (an unsigned 64-bit value) the
                // low 8 bytes count.
                const std::size_t size = std::size_t(1) << (marker & 0x0F);
                if (size > 16 || !fits(at + 1, size)) return std::nullopt;
                const std::uint64_t value = size == 16 ? number(at + 9, 8) : number(at + 1, size);
                return KXValue(static_cast<long long>(value));
            }
            case 0x2: {
                const std::size_t size = std::size_t(1) << (marker & 0x0F);
                if ((size != 4 && size != 8) || !fits(at + 1, size)) return std::nullopt;
                if (size == 4) return KXValue(double(std::bit_cast<float>(std::uint32_t(number(at + 1, 4)))));
                return KXValue(std::bit_cast<double>(number(at + 1, 8)));
            }
            case 0x3:
                if (marker != 0x33 || !fits(at + 1, 8)) return std::nullopt;
                return KXValue(dateSince2001(std::bit_cast<double>(number(at + 1, 8))));
            case 0x4:
            case 0x5:
            case 0x6: {
                std::uint64_t count = 0;
                if (!countOf(at, count)) return std::nullopt;
                const bool utf16 = (marker >> 4) == 0x6;
                if ((utf16 && count > table_ / 2) || !fits(at, utf16 ? count * 2 : count) ||
                    !takeBytes(utf16 ? count * 2 : count))
                    return std::nullopt;
                const auto* bytes = d_.data() + at;
                if ((marker >> 4) == 0x4) return KXValue(KXData(bytes, bytes + count));
                if (!utf16) return KXValue(KXString::validUTF8({reinterpret_cast<const char*>(bytes), std::size_t(count)}));
                std::vector<char16_t> units{};
                units.resize(std::size_t(count));
                for (std::size_t i = 0; i < units.size(); ++i) units[i] = char16_t((bytes[2 * i] << 8) | bytes[2 * i + 1]);
                return KXValue(KXString::stringFromUTF16(units.data(), units.size()));
            }
            case 0xA:
            case 0xD: {
                std::uint64_t count = 0;
                if (!countOf(at, count)) return std::nullopt;
                const bool dictionary = (marker >> 4) == 0xD;
                const std::uint64_t references = dictionary ? 2 : 1;
                if (count > table_ / referenceSize_ / references || !fits(at, count * references * referenceSize_))
                    return std::nullopt;
                open_[std::size_t(reference)] = true;
                std::optional<KXValue> value = dictionary ? dictionaryAt(at, count, depth) : arrayAt(at, count, depth);
                open_[std::size_t(reference)] = false;
                return value;
            }
            default: return std::nullopt;
        }
    }

    std::optional<KXValue> arrayAt(std::size_t at, std::uint64_t count, int depth) {
        KXArray items;
        for (std::uint64_t i = 0; i < count; ++i) {
            auto item = object(number(at + std::size_t(i) * referenceSize_, referenceSize_), depth + 1);
            if (!item) return std::nullopt;
            items.push_back(std::move(*item));
        }
        return KXValue(std::move(items));
    }

    std::optional<KXValue> dictionaryAt(std::size_t at, std::uint64_t count, int depth) {
        KXDictionary entries;
        const std::size_t values = at + std::size_t(count) * referenceSize_;
        for (std::uint64_t i = 0; i < count; ++i) {
            auto key = object(number(at + std::size_t(i) * referenceSize_, referenceSize_), depth + 1);
            auto value = object(number(values + std::size_t(i) * referenceSize_, referenceSize_), depth + 1);
            if (!key || !key->isString() || !value) return std::nullopt;
            entries.setObject(std::move(*value), key->string());
        }
        return KXValue(std::move(entries));
    }

    const KXData& d_;
    std::size_t offsetSize_ = 0, referenceSize_ = 0, table_ = 0;
    std::uint64_t count_ = 0, objectsLeft_ = 0, bytesLeft_ = 0;
    std::vector<bool> open_;  // the containers being read: a reference back to one is a cycle
};

// The XML form: <plist version="1.0"> around one value, <dict> (a <key> before each value),
// <array>, <string>, <integer>, <real>, <true/>, <false/>, <date> (ISO 8601, UTC) and <data>
// (base64). pugixml parses without recursion and expands no entities of a document's own.
std::optional<KXData> base64Decoded(std::string_view text) {
    KXData bytes;
    std::uint32_t bits = 0;
    int held = 0;
    for (const char c : text) {
        int value;
        if (c >= 'A' && c <= 'Z') value = c - 'A';
        else if (c >= 'a' && c <= 'z') value = c - 'a' + 26;
        else if (c >= '0' && c <= '9') value = c - '0' + 52;
        else if (c == '+') value = 62;
        else if (c == '/') value = 63;
        else if (c == '=' || std::isspace(static_cast<unsigned char>(c))) continue;
        else return std::nullopt;
        bits = (bits << 6) | std::uint32_t(value);
        held += 6;
        if (held >= 8) {
            held -= 8;
            bytes.push_back(std::uint8_t(bits >> held));
        }
    }
    return bytes;
}

std::optional<KXDate> dateFromISO8601(const char* text) {
    std::tm parts{};
    char zone = 0;
    if (std::sscanf(text, "%4d-%2d-%2dT%2d:%2d:%2d%c", &parts.tm_year, &parts.tm_mon, &parts.tm_mday, &parts.tm_hour,
                    &parts.tm_min, &parts.tm_sec, &zone) != 7 || zone != 'Z')
        return std::nullopt;
    parts.tm_year -= 1900;
    parts.tm_mon -= 1;
    return KXDate{double(timegm(&parts))};
}

std::optional<KXValue> xmlValue(const pugi::xml_node& node, int depth) {
    if (depth > kMaximumDepth) return std::nullopt;
    const std::string_view name = node.name();
    const char* text = node.text().get();
    if (name == "string") return KXValue(KXString::validUTF8(text));
    if (name == "true" || name == "false") return KXValue(name == "true");
    if (name == "integer") {
        // Values above 2^63 − 1 come back negative, as the binary form keeps them.
        while (std::isspace(static_cast<unsigned char>(*text))) ++text;
        return KXValue(*text == '-' ? std::strtoll(text, nullptr, 10)
                                    : static_cast<long long>(std::strtoull(text, nullptr, 10)));
    }
    if (name == "real") return KXValue(std::strtod(text, nullptr));
    if (name == "date") {
        if (auto date = dateFromISO8601(text)) return KXValue(*date);
        return std::nullopt;
    }
    if (name == "data") {
        if (auto bytes = base64Decoded(text)) return KXValue(std::move(*bytes));
        return std::nullopt;
    }
    if (name == "array") {
        KXArray items;
        for (const pugi::xml_node& child : node.children()) {
            if (child.type() != pugi::node_element) continue;
            auto item = xmlValue(child, depth + 1);
            if (!item) return std::nullopt;
            items.push_back(std::move(*item));
        }
        return KXValue(std::move(items));
    }
    if (name == "dict") {
        KXDictionary entries;
        std::optional<std::string> key;
        for (const pugi::xml_node& child : node.children()) {
            if (child.type() != pugi::node_element) continue;
            if (!key) {
                if (std::string_view(child.name()) != "key") return std::nullopt;
                key = KXString::validUTF8(child.text().get());
                continue;
            }
            auto value = xmlValue(child, depth + 1);
            if (!value) return std::nullopt;
            entries.setObject(std::move(*value), *key);
            key.reset();
        }
        if (key) return std::nullopt;
        return KXValue(std::move(entries));
    }
    return std::nullopt;
}

std::optional<KXValue> xmlPropertyList(const KXData& data) {
    pugi::xml_document document;
    if (data.empty() || !document.load_buffer(data.data(), data.size())) return std::nullopt;
    pugi::xml_node root = document.document_element();
    if (std::string_view(root.name()) == "plist") {
        root = root.first_child();
        while (root && root.type() != pugi::node_element) root = root.next_sibling();
    }
    if (!root) return std::nullopt;
    return xmlValue(root, 0);
}

// --- Writing binary lists
//
// Written straight from the value, without an intermediate tree: objects are numbered as they
// are reached (a container gives out the numbers of what it holds), their sizes added up first,
// so that the length is known before the first byte goes out and a buffer is allocated once.
// Data objects go to the sink as they lie in the value: the analysis of a long file holds
// megabytes of tables, which a file writer then never copies.

class BinaryWriter {
public:
    explicit BinaryWriter(const KXValue& root) : root_(root) {
        count(root);
        referenceSize_ = byteCountFor(objects_ - 1);
        std::uint64_t body = 8;
        measure(root, body);
        offsetSize_ = byteCountFor(body);
        length_ = body + objects_ * offsetSize_ + 32;
    }

    std::uint64_t length() const { return length_; }

    bool write(const KXPropertyList::Sink& sink) {
        sink_ = &sink;
        for (const char c : std::string_view("bplist00")) put(std::uint8_t(c));
        offsets_.assign(std::size_t(objects_), 0);
        next_ = 1;
        emit(root_, 0);
        const std::uint64_t table = position_;
        for (const std::uint64_t offset : offsets_) appendNumber(offset, offsetSize_);
        for (int i = 0; i < 6; ++i) put(0);
        put(std::uint8_t(offsetSize_));
        put(std::uint8_t(referenceSize_));
        appendNumber(objects_, 8);
        appendNumber(0, 8);  // the root is object 0
        appendNumber(table, 8);
        flush();
        return ok_;
    }

private:
    static std::uint32_t byteCountFor(std::uint64_t largest) {
        return largest < 0x100 ? 1 : largest < 0x10000 ? 2 : largest <= 0xFFFFFFFF ? 4 : 8;
    }

    // Text that is not all ASCII is stored as UTF-16 (big-endian) code units.
    static bool isASCII(const std::string& text) {
        return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    }
    static std::u16string utf16(const std::string& text) {
        const std::string valid = KXString::validUTF8(text);
        std::u16string units;
        for (std::size_t i = 0; i < valid.size();) {
            const auto lead = static_cast<unsigned char>(valid[i]);
            const std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
            std::uint32_t code = length == 1 ? lead : lead & (0x3F >> (length - 1));
            for (std::size_t k = 1; k < length; ++k) code = (code << 6) | (static_cast<unsigned char>(valid[i + k]) & 0x3F);
            if (code >= 0x10000) {
                units.push_back(char16_t(0xD800 + ((code - 0x10000) >> 10)));
                units.push_back(char16_t(0xDC00 + ((code - 0x10000) & 0x3FF)));
            } else {
                units.push_back(char16_t(code));
            }
            i += length;
        }
        return units;
    }

    // A null value is written as an empty string.
    void count(const KXValue& value) {
        ++objects_;
        if (value.type() == KXValue::Type::array)
            for (const KXValue& item : value.array()) count(item);
        if (value.type() == KXValue::Type::dictionary) {
            const KXDictionary& d = value.dictionary();
            objects_ += d.count();
            for (std::size_t i = 0; i < d.count(); ++i) count(d.valueAtIndex(i));
        }
    }

    static std::uint64_t markerSize(std::uint64_t length) { return length < 15 ? 1 : 1 + 1 + byteCountFor(length); }
    static std::uint64_t integerSize(const KXValue& value) {
        if (value.type() == KXValue::Type::unsignedInteger && value.unsignedLongLongValue() > std::uint64_t(INT64_MAX)) return 17;
        const long long x = value.longLongValue();
        return x < 0 ? 9 : 1 + byteCountFor(std::uint64_t(x));
    }
    static std::uint64_t stringSize(const std::string& text) {
        if (isASCII(text)) return markerSize(text.size()) + text.size();
        const std::uint64_t units = utf16(text).size();
        return markerSize(units) + 2 * units;
    }

    void measure(const KXValue& value, std::uint64_t& size) const {
        switch (value.type()) {
            case KXValue::Type::null: size += 1; break;
            case KXValue::Type::boolean: size += 1; break;
            case KXValue::Type::integer:
            case KXValue::Type::unsignedInteger: size += integerSize(value); break;
            case KXValue::Type::real:
            case KXValue::Type::date: size += 9; break;
            case KXValue::Type::string: size += stringSize(value.string()); break;
            case KXValue::Type::data: size += markerSize(value.data().size()) + value.data().size(); break;
            case KXValue::Type::array:
                size += markerSize(value.array().size()) + value.array().size() * referenceSize_;
                for (const KXValue& item : value.array()) measure(item, size);
                break;
            case KXValue::Type::dictionary: {
                const KXDictionary& d = value.dictionary();
                size += markerSize(d.count()) + 2 * d.count() * referenceSize_;
                for (std::size_t i = 0; i < d.count(); ++i) size += stringSize(d.keys()[i]);
                for (std::size_t i = 0; i < d.count(); ++i) measure(d.valueAtIndex(i), size);
                break;
            }
        }
    }

    // Bytes go out through a small buffer; data objects straight from the value.
    void put(std::uint8_t byte) {
        out_.push_back(byte);
        ++position_;
        if (out_.size() >= kBufferBytes) flush();
    }
    void putBytes(const std::uint8_t* bytes, std::size_t count) {
        if (count >= kBufferBytes) {
            flush();
            ok_ = ok_ && (*sink_)(bytes, count);
            position_ += count;
            return;
        }
        for (std::size_t i = 0; i < count; ++i) put(bytes[i]);
    }
    void flush() {
        if (!out_.empty()) ok_ = ok_ && (*sink_)(out_.data(), out_.size());
        out_.clear();
    }
    void appendNumber(std::uint64_t value, std::uint32_t size) {
        for (std::uint32_t b = size; b-- > 0;) put(std::uint8_t(value >> (8 * b)));
    }
    void appendMarker(std::uint8_t kind, std::uint64_t length) {
        if (length < 15) return put(std::uint8_t(kind | length));
        put(std::uint8_t(kind | 0x0F));
        const std::uint32_t size = byteCountFor(length);
        put(std::uint8_t(0x10 | std::countr_zero(size)));
        appendNumber(length, size);
    }
    void appendString(const std::string& text, std::uint64_t number) {
        offsets_[std::size_t(number)] = position_;
        if (isASCII(text)) {
            appendMarker(0x50, text.size());
            putBytes(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
            return;
        }
        const std::u16string units = utf16(text);
        appendMarker(0x60, units.size());
        for (const char16_t unit : units) appendNumber(unit, 2);
    }

    // Writes `value` as object `number`, then the objects it holds, numbered after every number
    // given out so far.
    void emit(const KXValue& value, std::uint64_t number) {
        if (value.type() == KXValue::Type::string || value.type() == KXValue::Type::null)
            return appendString(value.type() == KXValue::Type::string ? value.string() : std::string(), number);
        offsets_[std::size_t(number)] = position_;
        switch (value.type()) {
            case KXValue::Type::boolean: put(value.boolValue() ? 0x09 : 0x08); return;
            case KXValue::Type::integer:
            case KXValue::Type::unsignedInteger: {
                const std::uint64_t size = integerSize(value) - 1;
                put(std::uint8_t(0x10 | std::countr_zero(size)));
                if (size == 16) {
                    appendNumber(0, 8);
                    appendNumber(value.unsignedLongLongValue(), 8);
                } else {
                    appendNumber(std::uint64_t(value.longLongValue()), std::uint32_t(size));
                }
                return;
            }
            case KXValue::Type::real:
                put(0x23);
                appendNumber(std::bit_cast<std::uint64_t>(value.doubleValue()), 8);
                return;
            case KXValue::Type::date:
                put(0x33);
                appendNumber(std::bit_cast<std::uint64_t>(secondsSince2001(value.date())), 8);
                return;
            case KXValue::Type::data:
                appendMarker(0x40, value.data().size());
                putBytes(value.data().data(), value.data().size());
                return;
            case KXValue::Type::array: {
                const KXArray& items = value.array();
                appendMarker(0xA0, items.size());
                const std::uint64_t first = next_;
                next_ += items.size();
                for (std::size_t i = 0; i < items.size(); ++i) appendNumber(first + i, referenceSize_);
                for (std::size_t i = 0; i < items.size(); ++i) emit(items[i], first + i);
                return;
            }
            case KXValue::Type::dictionary: {
                const KXDictionary& d = value.dictionary();
                appendMarker(0xD0, d.count());
                const std::uint64_t keys = next_, values = next_ + d.count();
                next_ += 2 * d.count();
                for (std::size_t i = 0; i < d.count(); ++i) appendNumber(keys + i, referenceSize_);
                for (std::size_t i = 0; i < d.count(); ++i) appendNumber(values + i, referenceSize_);
                for (std::size_t i = 0; i < d.count(); ++i) appendString(d.keys()[i], keys + i);
                for (std::size_t i = 0; i < d.count(); ++i) emit(d.valueAtIndex(i), values + i);
                return;
            }
            default: return;
        }
    }

    static double secondsSince2001(const KXDate& date) {
        const StoredDate stored = storedDate(date);
        return double(stored.seconds) + double(stored.microseconds) / 1e6;
    }

    static constexpr std::size_t kBufferBytes = 1 << 16;
    const KXValue& root_;
    const KXPropertyList::Sink* sink_ = nullptr;
    KXData out_;
    std::vector<std::uint64_t> offsets_;
    std::uint64_t objects_ = 0, next_ = 0, length_ = 0, position_ = 0;
    std::uint32_t referenceSize_ = 1, offsetSize_ = 1;
    bool ok_ = true;
};

KXData bytesOf(char* bytes, std::uint32_t length, void (*release)(char*)) {
    KXData data(reinterpret_cast<std::uint8_t*>(bytes), reinterpret_cast<std::uint8_t*>(bytes) + length);
    if (bytes) release(bytes);
    return data;
}

}  // namespace

namespace KXPropertyList {

KXData xmlData(const KXValue& value) {
    PlistPtr root(nodeFromValue(value));
    char* bytes = nullptr;
    std::uint32_t length = 0;
    plist_to_xml(root.get(), &bytes, &length);
    return bytesOf(bytes, length, plist_to_xml_free);
}

KXData binaryData(const KXValue& value) {
    BinaryWriter writer(value);
    KXData data;
    data.reserve(std::size_t(writer.length()));
    (void)writer.write([&](const std::uint8_t* bytes, std::size_t count) {
        data.insert(data.end(), bytes, bytes + count);
        return true;
    });
    return data;
}

bool writeBinary(const KXValue& value, const std::function<bool(std::uint64_t)>& begin, const Sink& write) {
    BinaryWriter writer(value);
    return begin(writer.length()) && writer.write(write);
}

std::optional<KXValue> propertyListFromData(const KXData& data, KXError* error,
                                            const std::string& action) {
    std::optional<KXValue> value = isBinary(data) ? BinaryReader(data).read() : xmlPropertyList(data);
    if (!value) KXSetError(error, KXError::posixError(EINVAL, action));
    return value;
}

}  // namespace KXPropertyList
