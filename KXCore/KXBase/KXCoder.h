#pragma once
// Sequential archives: typed items written and read back in a fixed order, for the objects whose
// archive is a file format of the editor document (labels, lists, edit blocks …).
//
// Stream layout (numbers big-endian):
//   "KXar" 1                   magic and version
//   then items, each a tag byte and its value:
//   'd' 8-byte IEEE double     'f' 4-byte IEEE float      'c' 1 byte (char, 8-bit boolean)
//   'I' unsigned 32-bit        'Q' unsigned 64-bit
//   '@' an object, then one of:
//       0                      nil
//       'S' u32 n, n bytes     a UTF-8 string
//       'D' u32 n, n bytes     data
//       'A' u32 n, n objects   an array of objects (each written as an '@' item)
//       'O' u16 n, n bytes     a codable object: its class name, then its own items, then '.'
//
// Decoding checks every tag and length. The first mismatch, truncation or unknown class puts
// the decoder in a failed state in which every read answers zero or nil; the caller asks
// failed() (or error()) at the end, so a damaged archive gives an error, never a crash.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KXBase/KXData.h"
#include "KXBase/KXError.h"

class KXCoder;
class KXDecoder;

// An object that can be archived. A decoded object is made by its class's factory (plain
// initialisation) and then given initWithCoder().
class KXCoding {
public:
    virtual ~KXCoding() = default;
    virtual std::string archiveClassName() const = 0;
    virtual void encodeWithCoder(KXCoder& coder) const = 0;
    virtual void initWithCoder(KXDecoder& decoder) = 0;
};

using KXCodingArray = std::vector<std::shared_ptr<KXCoding>>;
// Makes a new, plainly initialised object of a class named in an archive; nullptr for a class
// the caller does not accept.
using KXCodingResolver = std::function<std::shared_ptr<KXCoding>(const std::string& className)>;

class KXCoder {
public:
    KXCoder();
    void encodeDouble(double value);
    void encodeFloat(float value);
    void encodeUnsignedInt(std::uint32_t value);
    void encodeUnsignedLongLong(std::uint64_t value);
    void encodeChar(std::int8_t value);
    void encodeString(const std::optional<std::string>& value);
    void encodeData(const std::optional<KXData>& value);
    void encodeObject(const KXCoding* object);
    void encodeArray(const KXCodingArray& objects);
    // The head of an array whose `count` elements the caller then encodes (arrays of arrays).
    void encodeArrayCount(std::uint32_t count);

    const KXData& data() const { return data_; }
    static KXData archivedDataWithRootObject(const KXCoding& object);

private:
    void tag(char tag) { data_.push_back(std::uint8_t(tag)); }
    void append(std::uint64_t value, int bytes);

    KXData data_;
};

class KXDecoder {
public:
    KXDecoder(const KXData& data, KXCodingResolver resolver);

    double decodeDouble();
    float decodeFloat();
    std::uint32_t decodeUnsignedInt();
    std::uint64_t decodeUnsignedLongLong();
    std::int8_t decodeChar();
    std::optional<std::string> decodeString();
    std::optional<KXData> decodeData();
    std::shared_ptr<KXCoding> decodeObject();
    KXCodingArray decodeArray();
    // The head of an array the caller then decodes element by element; 0 for a damaged one.
    std::uint32_t decodeArrayCount();

    bool failed() const { return failed_; }
    // For an object that finds what it decoded unacceptable: the archive is damaged.
    void markDamaged() { failed_ = true; }
    bool atEnd() const { return offset_ == data_.size(); }
    // The error of a failed decoder.
    KXError error() const;

    // The root object of an archive; nullptr and the error for a damaged one, or for one with
    // bytes left over.
    static std::shared_ptr<KXCoding> unarchiveObjectWithData(const KXData& data, const KXCodingResolver& resolver,
                                                             KXError* error = nullptr);

private:
    bool expect(char tag);
    bool take(std::size_t count);  // true when `count` bytes remain; fails otherwise
    std::uint64_t read(int bytes);
    // Reads the object kind after an '@' tag.
    int objectKind();

    const KXData& data_;
    KXCodingResolver resolver_;
    std::size_t offset_ = 0;
    bool failed_ = false;
    int depth_ = 0;
};

inline constexpr const char* KXCoderErrorDomain = "KXCoderErrorDomain";
