#pragma once
// KXXMLParser: an XML document as nested dictionaries, configured by element name.
//
// The document's root element becomes a dictionary of its children, each child keyed by its
// element name:
//   an element named as an array       → an array of its children's values, in order
//   an element named as a dictionary   → a dictionary of its children
//   an ignored element                 → nothing of its own: its children join its parent
//   an ignored container               → left out with everything inside
//   any other element                  → its text, or a dictionary when it has child elements
// A key that occurs more than once in one dictionary collects its values into an array.
// With lower-case keys, every key is lower-cased (names are matched as written either way).

#include <optional>
#include <set>
#include <string>

#include "KXBase/KXData.h"
#include "KXBase/KXError.h"
#include "KXBase/KXValue.h"

class KXXMLParser {
public:
    void setArrayElements(std::set<std::string> names) { arrays_ = std::move(names); }
    void setDictionaryElements(std::set<std::string> names) { dictionaries_ = std::move(names); }
    void setIgnoredElements(std::set<std::string> names) { ignored_ = std::move(names); }
    void setIgnoredContainers(std::set<std::string> names) { skipped_ = std::move(names); }
    void setLowercaseKeys(bool lowercase) { lowercase_ = lowercase; }

    // nullopt, with EINVAL and the parser's reason, for text that is not well-formed XML.
    std::optional<KXDictionary> objectForData(const KXData& data, KXError* error = nullptr) const;

private:
    std::set<std::string> arrays_, dictionaries_, ignored_, skipped_;
    bool lowercase_ = false;

    friend struct KXXMLWalker;
};
