#include "KXBase/KXPropertyList.h"

#include <plist/plist.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>

namespace {

// Property-list dates count from 2001-01-01 00:00:00 UTC.
constexpr double kSecondsFrom1970To2001 = 978307200.0;
// Nesting deeper than this is refused: a hostile file must not exhaust the stack.
constexpr int kMaximumDepth = 256;

struct PlistDeleter {
    void operator()(plist_t node) const { plist_free(node); }
};
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

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
            const double since2001 = value.date().secondsSince1970 - kSecondsFrom1970To2001;
            double whole = std::floor(since2001);
            const double micro = std::round((since2001 - whole) * 1e6);
            return plist_new_date(std::int32_t(whole), std::int32_t(micro));
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

std::optional<KXValue> valueFromNode(plist_t node, int depth) {
    if (!node || depth > kMaximumDepth) return std::nullopt;
    switch (plist_get_node_type(node)) {
        case PLIST_BOOLEAN: {
            std::uint8_t b = 0;
            plist_get_bool_val(node, &b);
            return KXValue(b != 0);
        }
        case PLIST_UINT: {
            std::uint64_t v = 0;
            plist_get_uint_val(node, &v);
            return KXValue(static_cast<long long>(v));
        }
        case PLIST_REAL: {
            double v = 0;
            plist_get_real_val(node, &v);
            return KXValue(v);
        }
        case PLIST_STRING:
        case PLIST_KEY: {
            char* text = nullptr;
            plist_get_string_val(node, &text);
            KXValue value(std::string(text ? text : ""));
            std::free(text);
            return value;
        }
        case PLIST_DATA: {
            char* bytes = nullptr;
            std::uint64_t length = 0;
            plist_get_data_val(node, &bytes, &length);
            KXData data(reinterpret_cast<std::uint8_t*>(bytes),
                        reinterpret_cast<std::uint8_t*>(bytes) + length);
            std::free(bytes);
            return KXValue(std::move(data));
        }
        case PLIST_DATE: {
            std::int32_t seconds = 0, micro = 0;
            plist_get_date_val(node, &seconds, &micro);
            return KXValue(KXDate{seconds + micro / 1e6 + kSecondsFrom1970To2001});
        }
        case PLIST_ARRAY: {
            KXArray array;
            const std::uint32_t count = plist_array_get_size(node);
            for (std::uint32_t i = 0; i < count; ++i) {
                auto item = valueFromNode(plist_array_get_item(node, i), depth + 1);
                if (!item) return std::nullopt;
                array.push_back(std::move(*item));
            }
            return KXValue(std::move(array));
        }
        case PLIST_DICT: {
            KXDictionary dict;
            plist_dict_iter iter = nullptr;
            plist_dict_new_iter(node, &iter);
            for (;;) {
                char* key = nullptr;
                plist_t item = nullptr;
                plist_dict_next_item(node, iter, &key, &item);
                if (!item) {
                    std::free(key);
                    break;
                }
                auto value = valueFromNode(item, depth + 1);
                std::string keyText(key ? key : "");
                std::free(key);
                if (!value) {
                    std::free(iter);
                    return std::nullopt;
                }
                dict.setObject(std::move(*value), keyText);
            }
            std::free(iter);
            return KXValue(std::move(dict));
        }
        default: return std::nullopt;
    }
}

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
    PlistPtr root(nodeFromValue(value));
    char* bytes = nullptr;
    std::uint32_t length = 0;
    plist_to_bin(root.get(), &bytes, &length);
    return bytesOf(bytes, length, plist_to_bin_free);
}

std::optional<KXValue> propertyListFromData(const KXData& data, KXError* error,
                                            const std::string& action) {
    plist_t node = nullptr;
    if (!data.empty() && data.size() <= std::numeric_limits<std::uint32_t>::max())
        plist_from_memory(reinterpret_cast<const char*>(data.data()), std::uint32_t(data.size()),
                          &node);
    PlistPtr root(node);
    std::optional<KXValue> value = valueFromNode(node, 0);
    if (!value) KXSetError(error, KXError::posixError(EINVAL, action));
    return value;
}

}  // namespace KXPropertyList
