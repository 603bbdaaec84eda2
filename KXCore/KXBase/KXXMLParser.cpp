#include "KXBase/KXXMLParser.h"

#include <pugixml.hpp>

#include <cctype>
#include <cerrno>

#include "KXBase/KXString.h"

// The walk over a parsed document, with the parser's configuration.
struct KXXMLWalker {
    const KXXMLParser& parser;

    std::string keyFor(const char* name) const {
        std::string key = KXString::validUTF8(name);
        if (parser.lowercase_)
            for (char& c : key) c = char(std::tolower(static_cast<unsigned char>(c)));
        return key;
    }

    static bool hasChildElements(const pugi::xml_node& node) {
        for (const pugi::xml_node& child : node.children())
            if (child.type() == pugi::node_element) return true;
        return false;
    }

    KXValue valueOf(const pugi::xml_node& node, int depth) const {
        const std::string name = node.name();
        if (parser.arrays_.count(name)) {
            KXArray items;
            for (const pugi::xml_node& child : node.children()) addToArray(child, items, depth + 1);
            return items;
        }
        if (parser.dictionaries_.count(name) || hasChildElements(node)) return dictionaryOf(node, depth);
        return KXString::validUTF8(node.text().get());
    }

    void addToArray(const pugi::xml_node& node, KXArray& items, int depth) const {
        if (node.type() != pugi::node_element || depth > kMaximumDepth || parser.skipped_.count(node.name())) return;
        if (parser.ignored_.count(node.name())) {
            for (const pugi::xml_node& child : node.children()) addToArray(child, items, depth + 1);
            return;
        }
        items.push_back(valueOf(node, depth));
    }

    // The children of `node` as a dictionary.
    KXDictionary dictionaryOf(const pugi::xml_node& node, int depth) const {
        KXDictionary entries;
        std::set<std::string> repeated;
        for (const pugi::xml_node& child : node.children()) addToDictionary(child, entries, repeated, depth + 1);
        return entries;
    }

    void addToDictionary(const pugi::xml_node& node, KXDictionary& entries, std::set<std::string>& repeated,
                         int depth) const {
        if (node.type() != pugi::node_element || depth > kMaximumDepth || parser.skipped_.count(node.name())) return;
        if (parser.ignored_.count(node.name())) {
            for (const pugi::xml_node& child : node.children()) addToDictionary(child, entries, repeated, depth + 1);
            return;
        }
        const std::string key = keyFor(node.name());
        KXValue value = valueOf(node, depth);
        KXValue* existing = entries.mutableObjectForKey(key);
        if (!existing) return entries.setObject(std::move(value), key);
        // A repeated key gathers its values into an array, grown in place.
        if (!repeated.count(key)) {
            *existing = KXArray{std::move(*existing)};
            repeated.insert(key);
        }
        existing->mutableArray()->push_back(std::move(value));
    }

    static constexpr int kMaximumDepth = 64;
};

std::optional<KXDictionary> KXXMLParser::objectForData(const KXData& data, KXError* error) const {
    pugi::xml_document document;
    // Well-formed UTF-8 is taken as UTF-8 whatever the declaration names (a caller may have
    // decoded the document already); anything else goes by its byte-order mark and declaration.
    const std::string_view bytes(reinterpret_cast<const char*>(data.data()), data.size());
    const pugi::xml_encoding encoding = KXString::isValidUTF8(bytes) ? pugi::encoding_utf8 : pugi::encoding_auto;
    const pugi::xml_parse_result result = document.load_buffer(data.data(), data.size(), pugi::parse_default, encoding);
    if (!result) {
        KXSetError(error, KXError(KXPOSIXErrorDomain, EINVAL, "Reading an XML document", result.description()));
        return std::nullopt;
    }
    return KXXMLWalker{*this}.dictionaryOf(document.document_element(), 0);
}
