#pragma once
// KXChunk: one tagged block of an IFF-like file (AIFF/AIFF-C, WAVE and its relatives, Wave64,
// CAF) or one resource of a Sound Designer file. It holds the payload without its header, knows
// the container format and byte order it belongs to, decodes numbers and strings at payload
// offsets, encodes them onto the payload's end, and writes, replaces or removes itself in a flat
// file or a resource fork. It is the only code that reads or builds raw chunk bytes.
//
// Byte order. A new chunk has format 'AIFF' but little-endian order: the order follows the
// format only through setFormat() ('WAVE', 'ACID' and 'WV64' little-endian, everything else
// big-endian), or setType('anal'), which is always big-endian. Deliberate: producers of
// big-endian chunks call setFormat() after construction.
//
// Readers never fail and never touch memory outside the payload. A multi-byte reader checks
// only that its first byte lies inside (offset < payload length); bytes past the end read as
// zero. Callers keep their offsets inside the payload.
//
// Text. Strings are UTF-8. Text in a chunk is read as UTF-8 when it is well-formed UTF-8, else
// in the format's 8-bit encoding (Windows-1252 for 'WAVE', 'ACID', 'WV64' and 'caff', Mac OS Roman
// for the rest). Text is written so that it reads back the same: UTF-8 in RIFF and CAF; Mac OS Roman
// in the others when it holds the text, else UTF-8 (see KXString::fileTextFromString). Deliberate:
// nothing is lost to "?" or stripped accents. The C form includes its terminating NUL:
// appendAsCString("AB", true) appends 41 42 00 00 (three bytes, odd, then the pad byte).

#include <cstdint>
#include <memory>
#include <vector>
#include <optional>
#include <string>
#include <string_view>

#include "KXBase/KXByteOrder.h"
#include "KXBase/KXData.h"
#include "KXBase/KXError.h"
#include "KXBase/KXFourCC.h"
#include "KXBase/KXString.h"
#include "KXBase/KXUUID.h"
#include "KXBase/KXValue.h"

class KXFile;
class KXResourceFile;

class KXChunk {
public:
    static constexpr std::uint64_t kLengthNotSet = ~std::uint64_t(0);

    KXChunk() = default;
    static std::shared_ptr<KXChunk> chunk() { return std::make_shared<KXChunk>(); }

    // Empties the payload and zeroes type, subtype, chunkID and name; format, byte order, length
    // and position stay.
    void reset();

    std::uint32_t format() const { return format_; }
    void setFormat(std::uint32_t format);
    // The 8-bit encoding of the format's text where it is not UTF-8.
    KXTextEncoding textEncoding() const;
    // The bytes that the text appenders store for `text`, at most `limit` of them.
    std::string fileText(std::string_view text, std::size_t limit = std::string::npos) const;
    std::uint32_t byteOrder() const { return byteOrder_; }
    void setByteOrder(std::uint32_t byteOrder) { byteOrder_ = byteOrder; }
    std::uint32_t type() const { return type_; }
    void setType(std::uint32_t type);
    std::uint32_t subtype() const { return subtype_; }
    void setSubtype(std::uint32_t subtype) { subtype_ = subtype; }
    const std::optional<KXUUID>& uuid() const { return uuid_; }
    void setUUID(std::optional<KXUUID> uuid) { uuid_ = uuid; }
    std::int16_t chunkID() const { return chunkID_; }
    void setChunkID(std::int16_t chunkID) { chunkID_ = chunkID; }
    const std::optional<std::string>& name() const { return name_; }
    void setName(std::optional<std::string> name) { name_ = std::move(name); }
    const KXData& data() const { return data_; }
    KXData& mutableData() { return data_; }
    // The declared length when set, else the payload's length.
    std::uint64_t length() const { return length_ == kLengthNotSet ? data_.size() : length_; }
    // The stored field itself, kLengthNotSet when never set.
    std::uint64_t storedLength() const { return length_; }
    void setLength(std::uint64_t length) { length_ = length; }
    std::uint64_t position() const { return position_; }
    void setPosition(std::uint64_t position) { position_ = position; }
    // Where the payload begins in the file: after the 12-byte CAF, 24-byte Wave64 or 8-byte
    // IFF/RIFF chunk header.
    std::uint64_t dataPosition() const;
    bool used() const { return used_; }
    void setIsUsed(bool used) { used_ = used; }

    // Whether the payload must be padded to an even length in its container: in 'WAVE' and
    // 'ACID' for 'data', 'labl', 'ltxt', 'smpl' and 'iXML'; in 'AIFF' and 'APLL' for 'MIDI',
    // 'APPL', 'NAME', 'COMT' and 'iXML'; in any other format only for 'iXML'. Deliberately
    // narrow: the chunk walk's one-byte retry absorbs the rest.
    bool requiresEvenSize() const;
    // "KXChunk 'TYPE' <length> bytes", then "(not loaded)" when the payload is empty.
    std::string description() const;

    // --- Readers
    std::int8_t charValueAtByte(std::uint32_t offset) const;
    std::int16_t shortValueAtByte(std::uint32_t offset) const;
    std::int32_t intValueAtByte(std::uint32_t offset) const;
    std::int64_t longLongValueAtByte(std::uint32_t offset) const;
    float floatValueAtByte(std::uint32_t offset) const;
    double doubleValueAtByte(std::uint32_t offset) const;
    // A four-character code, always big-endian.
    std::uint32_t typeValueAtByte(std::uint32_t offset) const;
    // A big-endian 80-bit extended value as a whole number (the AIFF sample rate): only the low
    // exponent byte and the top 32 mantissa bits count, rounded on the last bit shifted out.
    std::uint32_t float80ValueAtByte(std::uint32_t offset) const;
    // nullopt for a count of 0 or one that runs past the payload. No pad byte is consumed.
    std::optional<std::string> pascalStringAtByte(std::uint32_t offset) const;
    // Up to the first NUL or the payload's end.
    std::optional<std::string> cStringAtByte(std::uint32_t offset) const;
    // At most `length` bytes from the offset, ending early at a NUL (fixed-size text fields are
    // NUL-padded); "" when the offset is outside.
    std::string stringAtByte(std::uint32_t offset, std::uint32_t length) const;
    // Calls `body(offset)` for each of `count` records of `size` bytes from `start` that lie whole
    // inside the payload (never more, whatever the count says).
    template <typename Body>
    void forEachRecord(std::uint32_t count, std::uint32_t start, std::uint32_t size, Body body) const {
        for (std::uint64_t i = 0, at = start; i < count && at + size <= data_.size(); ++i, at += size) body(std::uint32_t(at));
    }
    // A copy of up to `length` bytes: the part of them that the payload holds.
    std::optional<KXData> dataAtByte(std::uint32_t offset, std::uint32_t length) const;
    // The text of a CAF 'strg' chunk's entry with this ID; nullopt when this is no CAF string
    // chunk, the ID is 0 or absent, or the entry points outside the payload.
    std::optional<std::string> stringForID(std::uint32_t stringID) const;

    // --- Appenders, all in the chunk's order except codes, which are big-endian
    void appendByte(std::uint8_t value) { data_.push_back(value); }
    void appendShort(std::uint16_t value);
    void appendInt(std::uint32_t value);
    void appendLongLong(std::uint64_t value);
    void appendFloat(float value);
    void appendDouble(double value);
    void appendType(std::uint32_t code);
    // Ten bytes of 80-bit extended; the exponent comes from ln(x) / ln(2), truncated, which
    // decides every stored rate and must stay as it is.
    void appendAsFloat80(std::uint32_t value);
    // nullopt appends an empty Pascal string (one zero byte). With `pad`, an odd count (count
    // byte included) gets one zero byte more.
    void appendAsPascalString(const std::optional<std::string>& text, bool pad);
    void appendAsPascalString(const KXValue& value, bool pad);
    // nullopt appends one zero byte and counts 0, so no pad byte follows.
    void appendAsCString(const std::optional<std::string>& text, bool pad);
    void appendAsCString(const KXValue& value, bool pad);
    // Exactly `size` bytes: the C form, cut to size − 1 bytes and a NUL when it is longer.
    void appendAsCStringSize(const std::optional<std::string>& text, std::uint32_t size);
    // The stored form of the text, at most `limit` bytes, without count or terminator.
    void appendText(std::string_view text, std::size_t limit = std::string::npos);
    // The first (UTF-16 length) bytes of the UTF-8 form; deliberately cuts text outside ASCII.
    void appendString(const std::string& text);
    void appendString(const std::string& text, std::uint32_t size);
    void appendData(const KXData& data) { data_.insert(data_.end(), data.begin(), data.end()); }
    void appendBytes(const void* bytes, std::size_t length);
    void appendPadByte();
    void appendPadOfLength(std::uint32_t length) { data_.insert(data_.end(), length, 0); }

    // Overwrites four bytes in the chunk's order, growing the payload when they run past its
    // end; does nothing when the offset lies beyond the end.
    void replaceIntAtByte(std::uint32_t offset, std::uint32_t value);

    static double doubleFromUInt32(std::uint32_t value) { return double(value); }
    // Negative gives 0, 4294967295 and above give 4294967295, the rest truncates toward zero.
    static std::uint32_t uInt32FromDouble(double value);

    // --- Files. Each answers success; on failure the file layer's error.
    // A flat file: moves to its end, then writes header and payload there.
    [[nodiscard]] bool appendToFile(KXFile& file, KXError* error = nullptr) const;
    // The chunk as a flat file holds it: header (type, size and any subtype or UUID the walk took
    // out of the payload), then the payload; no pad byte.
    KXData flatBytes() const;
    [[nodiscard]] bool appendToFile(KXResourceFile& file, KXError* error = nullptr) const;
    // Writes this chunk in place of `replaced` (or appends it when there is none). In a flat
    // file the old chunk is overwritten only when its length equals this chunk's stored length
    // field; otherwise it becomes 'JUNK' and this one is appended. A chunk whose length was
    // never set therefore always goes to the end: set it first to overwrite in place.
    [[nodiscard]] bool writeToFile(KXFile& file, const KXChunk* replaced, KXError* error = nullptr) const;
    [[nodiscard]] bool writeToFile(KXResourceFile& file, const KXChunk* replaced,
                                   KXError* error = nullptr) const;
    // A flat file: the type bytes at `position` become "JUNK", size and payload stay. A
    // resource file: the resource of this type and ID is removed.
    [[nodiscard]] bool removeFromFile(KXFile& file, KXError* error = nullptr) const;
    [[nodiscard]] bool removeFromFile(KXResourceFile& file, KXError* error = nullptr) const;

    // Header and payload at the file's current position: the type, then the payload length
    // (32 bits; 64 bits for 'caff'), then what the chunk walk keeps apart from the payload — the
    // subtype of a WAVE 'LIST' or an AIFF 'APPL', the UUID of a 'uuid' chunk — counted in the
    // length. A chunk of type 0 writes only its payload. No pad byte is added: chunks that need
    // one carry it.
    [[nodiscard]] bool writeToFlatFile(KXFile& file, KXError* error = nullptr) const;
    // The header flatBytes() starts with; empty for a chunk of type 0 (raw bytes).
    KXData flatHeader() const;
    // The same for a payload of `payloadLength` bytes that the caller writes after it.
    KXData flatHeader(std::uint64_t payloadLength) const;
    // Whether this chunk's subtype is stored as the first four payload bytes on disk.
    bool hasSubtypeInPayload() const;

private:
    KXByteOrder order() const { return KXByteOrderFromValue(byteOrder_); }
    // The `width` bytes at `offset`, zero past the payload's end; false when offset is outside.
    bool bytesAt(std::uint32_t offset, std::uint8_t* out, std::size_t width) const;

    std::uint32_t format_ = KXFourCC("AIFF");
    std::uint32_t byteOrder_ = KXByteOrderLittleValue;
    std::uint32_t type_ = 0;
    std::uint32_t subtype_ = 0;
    std::optional<KXUUID> uuid_;
    std::int16_t chunkID_ = 0;
    std::optional<std::string> name_;
    KXData data_;
    std::uint64_t length_ = kLengthNotSet;
    std::uint64_t position_ = 0;
    bool used_ = false;
};

// The chunks of a file, in file order.
using KXChunkArray = std::vector<std::shared_ptr<KXChunk>>;
