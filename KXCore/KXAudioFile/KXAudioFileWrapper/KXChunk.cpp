#include "KXAudioFile/KXAudioFileWrapper/KXChunk.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "KXBase/KXFile.h"
#include "KXBase/KXResourceFile.h"
#include "KXBase/KXString.h"

namespace {

constexpr std::uint64_t kCAFHeaderSize = 12;
constexpr std::uint64_t kWave64HeaderSize = 24;
constexpr std::uint64_t kIFFHeaderSize = 8;
constexpr std::uint32_t kCAFStringEntrySize = 12;  // 32-bit ID, 64-bit offset

struct EvenSizeRule {
    std::uint32_t formats[2];
    std::uint32_t types[5];
};

// The chunk types whose payload is padded to an even length, by container format. 'iXML' is
// padded in every format, including those not listed.
constexpr EvenSizeRule kEvenSizeRules[] = {
    {{KXFourCC("WAVE"), KXFourCC("ACID")},
     {KXFourCC("data"), KXFourCC("labl"), KXFourCC("ltxt"), KXFourCC("smpl"), KXFourCC("iXML")}},
    {{KXFourCC("AIFF"), KXFourCC("APLL")},
     {KXFourCC("MIDI"), KXFourCC("APPL"), KXFourCC("NAME"), KXFourCC("COMT"), KXFourCC("iXML")}},
};

}  // namespace

void KXChunk::reset() {
    data_.clear();
    type_ = subtype_ = 0;
    chunkID_ = 0;
    name_.reset();
}

void KXChunk::setFormat(std::uint32_t format) {
    format_ = format;
    const bool little = format == KXFourCC("WAVE") || format == KXFourCC("ACID") || format == KXFourCC("WV64");
    byteOrder_ = little ? KXByteOrderLittleValue : KXByteOrderBigValue;
}

KXTextEncoding KXChunk::textEncoding() const {
    // RIFF text was Windows-1252 before UTF-8; CAF text is UTF-8 (and written so here), with the
    // same fallback.
    const bool utf8 = format_ == KXFourCC("WAVE") || format_ == KXFourCC("ACID") || format_ == KXFourCC("WV64") ||
                      format_ == KXFourCC("caff");
    return utf8 ? KXTextEncoding::windows1252 : KXTextEncoding::macRoman;
}

std::string KXChunk::fileText(std::string_view text, std::size_t limit) const {
    return KXString::fileTextFromString(text, textEncoding(), limit);
}

void KXChunk::setType(std::uint32_t type) {
    type_ = type;
    if (type == KXFourCC("anal")) byteOrder_ = KXByteOrderBigValue;
}

std::uint64_t KXChunk::dataPosition() const {
    if (format_ == KXFourCC("caff")) return position_ + kCAFHeaderSize;
    if (format_ == KXFourCC("WV64")) return position_ + kWave64HeaderSize;
    return position_ + kIFFHeaderSize;
}

bool KXChunk::requiresEvenSize() const {
    for (const EvenSizeRule& rule : kEvenSizeRules) {
        if (format_ != rule.formats[0] && format_ != rule.formats[1]) continue;
        for (std::uint32_t type : rule.types)
            if (type == type_) return true;
        return false;
    }
    return type_ == KXFourCC("iXML");
}

std::string KXChunk::description() const {
    return "KXChunk '" + KXFourCCString(type_) + "' " + std::to_string(length()) + " bytes " +
           (data_.empty() ? "(not loaded)" : "");
}

// --- Readers

bool KXChunk::bytesAt(std::uint32_t offset, std::uint8_t* out, std::size_t width) const {
    std::memset(out, 0, width);
    if (offset >= data_.size()) return false;
    std::memcpy(out, data_.data() + offset, std::min<std::size_t>(width, data_.size() - offset));
    return true;
}

std::int8_t KXChunk::charValueAtByte(std::uint32_t offset) const {
    return offset < data_.size() ? std::int8_t(data_[offset]) : 0;
}

std::int16_t KXChunk::shortValueAtByte(std::uint32_t offset) const {
    std::uint8_t b[2];
    return bytesAt(offset, b, 2) ? std::int16_t(kx::load16(b, order())) : 0;
}

std::int32_t KXChunk::intValueAtByte(std::uint32_t offset) const {
    std::uint8_t b[4];
    return bytesAt(offset, b, 4) ? std::int32_t(kx::load32(b, order())) : 0;
}

std::int64_t KXChunk::longLongValueAtByte(std::uint32_t offset) const {
    std::uint8_t b[8];
    return bytesAt(offset, b, 8) ? std::int64_t(kx::load64(b, order())) : 0;
}

float KXChunk::floatValueAtByte(std::uint32_t offset) const {
    std::uint8_t b[4];
    return bytesAt(offset, b, 4) ? std::bit_cast<float>(kx::load32(b, order())) : 0.0f;
}

double KXChunk::doubleValueAtByte(std::uint32_t offset) const {
    std::uint8_t b[8];
    return bytesAt(offset, b, 8) ? std::bit_cast<double>(kx::load64(b, order())) : 0.0;
}

std::uint32_t KXChunk::typeValueAtByte(std::uint32_t offset) const {
    std::uint8_t b[4];
    return bytesAt(offset, b, 4) ? kx::load32(b, KXByteOrder::big) : 0;
}

std::uint32_t KXChunk::float80ValueAtByte(std::uint32_t offset) const {
    std::uint8_t b[10];
    if (!bytesAt(offset, b, 10)) return 0;
    const std::uint8_t exponent = b[1];  // sign and high exponent byte are ignored
    std::uint32_t mantissa = kx::load32(b + 2, KXByteOrder::big);
    // The shift count is 30 − e taken as an unsigned byte: an e above 30 wraps to a count large
    // enough to shift everything out.
    const std::uint8_t shifts = std::uint8_t(30 - exponent);
    std::uint32_t last = 0;
    for (unsigned i = 0; i < shifts; ++i) {
        last = mantissa;
        mantissa >>= 1;
    }
    if (last & 1) ++mantissa;
    return mantissa;
}

std::optional<std::string> KXChunk::pascalStringAtByte(std::uint32_t offset) const {
    const std::uint8_t count = std::uint8_t(charValueAtByte(offset));
    if (count == 0) return std::nullopt;
    if (std::uint64_t(offset) + count + 1 > data_.size()) return std::nullopt;
    return KXString::stringFromFileText(
        std::string_view(reinterpret_cast<const char*>(data_.data()) + offset + 1, count), textEncoding());
}

std::optional<std::string> KXChunk::cStringAtByte(std::uint32_t offset) const {
    if (offset >= data_.size()) return std::nullopt;
    const char* start = reinterpret_cast<const char*>(data_.data()) + offset;
    const std::size_t available = data_.size() - offset;
    const void* nul = std::memchr(start, 0, available);
    const std::size_t length = nul ? std::size_t(static_cast<const char*>(nul) - start) : available;
    return KXString::stringFromFileText(std::string_view(start, length), textEncoding());
}

std::string KXChunk::stringAtByte(std::uint32_t offset, std::uint32_t length) const {
    if (offset >= data_.size()) return {};
    const char* start = reinterpret_cast<const char*>(data_.data()) + offset;
    const std::size_t take = std::min<std::size_t>(data_.size() - offset, length);
    const void* nul = std::memchr(start, 0, take);
    return KXString::stringFromFileText(
        std::string_view(start, nul ? std::size_t(static_cast<const char*>(nul) - start) : take), textEncoding());
}

std::optional<KXData> KXChunk::dataAtByte(std::uint32_t offset, std::uint32_t length) const {
    if (offset >= data_.size()) return std::nullopt;
    const std::size_t take = std::min<std::size_t>(data_.size() - offset, length);
    return KXData(data_.begin() + offset, data_.begin() + std::ptrdiff_t(offset + take));
}

std::optional<std::string> KXChunk::stringForID(std::uint32_t stringID) const {
    if (format_ != KXFourCC("caff") || type_ != KXFourCC("strg") || stringID == 0) return std::nullopt;
    const std::uint64_t count = std::uint32_t(intValueAtByte(0));
    // The table must fit in the payload; checked by division, which cannot overflow.
    if (data_.size() < 4 || count > (data_.size() - 4) / kCAFStringEntrySize) return std::nullopt;
    const std::uint64_t stringsStart = 4 + kCAFStringEntrySize * count;
    for (std::uint64_t i = 0; i < count; ++i) {
        const std::uint32_t entry = std::uint32_t(4 + kCAFStringEntrySize * i);
        if (std::uint32_t(intValueAtByte(entry)) != stringID) continue;
        const std::uint64_t offset = std::uint64_t(longLongValueAtByte(entry + 4));
        if (offset >= data_.size() - stringsStart) return std::nullopt;
        return cStringAtByte(std::uint32_t(stringsStart + offset));
    }
    return std::nullopt;
}

// --- Appenders

void KXChunk::appendShort(std::uint16_t value) {
    std::uint8_t b[2];
    kx::store16(b, value, order());
    appendBytes(b, 2);
}

void KXChunk::appendInt(std::uint32_t value) {
    std::uint8_t b[4];
    kx::store32(b, value, order());
    appendBytes(b, 4);
}

void KXChunk::appendLongLong(std::uint64_t value) {
    std::uint8_t b[8];
    kx::store64(b, value, order());
    appendBytes(b, 8);
}

void KXChunk::appendFloat(float value) { appendInt(std::bit_cast<std::uint32_t>(value)); }
void KXChunk::appendDouble(double value) { appendLongLong(std::bit_cast<std::uint64_t>(value)); }

void KXChunk::appendType(std::uint32_t code) {
    std::uint8_t b[4];
    kx::store32(b, code, KXByteOrder::big);
    appendBytes(b, 4);
}

void KXChunk::appendAsFloat80(std::uint32_t value) {
    std::uint8_t b[10] = {};
    const double x = doubleFromUInt32(value);
    if (x != 0) {
        const auto exponent = std::int16_t(std::trunc(std::log(x) / std::log(2.0) + 16383.0));
        const double f = std::ldexp(x, 16414 - exponent);
        const std::uint32_t hiMant = uInt32FromDouble(f);
        const std::uint32_t loMant = uInt32FromDouble((f - doubleFromUInt32(hiMant)) * 4294967296.0);
        b[0] = std::uint8_t(std::uint16_t(exponent) >> 8);  // the sign bit is 0: the input is unsigned
        b[1] = std::uint8_t(exponent);
        kx::store32(b + 2, hiMant, KXByteOrder::big);
        kx::store32(b + 6, loMant, KXByteOrder::big);
    }
    appendBytes(b, 10);
}

void KXChunk::appendAsPascalString(const std::optional<std::string>& text, bool pad) {
    std::size_t count = 1;
    if (!text) {
        appendByte(0);
    } else {
        const std::string bytes = fileText(*text, 255);
        appendByte(std::uint8_t(bytes.size()));
        appendBytes(bytes.data(), bytes.size());
        count = bytes.size() + 1;
    }
    if (pad && (count & 1)) appendByte(0);
}

void KXChunk::appendAsPascalString(const KXValue& value, bool pad) {
    appendAsPascalString(value.isNull() ? std::nullopt : std::optional(value.stringValue()), pad);
}

void KXChunk::appendAsCString(const std::optional<std::string>& text, bool pad) {
    if (!text) {
        appendByte(0);
        return;
    }
    const std::string bytes = fileText(*text);
    appendBytes(bytes.data(), bytes.size());
    appendByte(0);
    if (pad && !(bytes.size() & 1)) appendByte(0);
}

void KXChunk::appendAsCString(const KXValue& value, bool pad) {
    appendAsCString(value.isNull() ? std::nullopt : std::optional(value.stringValue()), pad);
}

void KXChunk::appendAsCStringSize(const std::optional<std::string>& text, std::uint32_t size) {
    std::size_t written = 0;
    if (text && size > 0) {
        const std::string bytes = fileText(*text, size - 1);
        appendBytes(bytes.data(), bytes.size());
        written = bytes.size();
    }
    appendPadOfLength(std::uint32_t(size - written));
}

void KXChunk::appendText(std::string_view text, std::size_t limit) {
    const std::string bytes = fileText(text, limit);
    appendBytes(bytes.data(), bytes.size());
}

void KXChunk::appendString(const std::string& text) {
    appendBytes(text.data(), std::min(KXString::utf16Length(text), text.size()));
}

void KXChunk::appendString(const std::string& text, std::uint32_t size) {
    const std::size_t take = std::min<std::size_t>({KXString::utf16Length(text), text.size(), size});
    appendBytes(text.data(), take);
    appendPadOfLength(std::uint32_t(size - take));
}

void KXChunk::appendBytes(const void* bytes, std::size_t length) {
    const auto* p = static_cast<const std::uint8_t*>(bytes);
    data_.insert(data_.end(), p, p + length);
}

void KXChunk::appendPadByte() {
    if (data_.size() & 1) data_.push_back(0);
}

void KXChunk::replaceIntAtByte(std::uint32_t offset, std::uint32_t value) {
    if (offset > data_.size()) return;
    if (data_.size() - offset < 4) data_.resize(std::size_t(offset) + 4);
    kx::store32(data_.data() + offset, value, order());
}

std::uint32_t KXChunk::uInt32FromDouble(double value) {
    if (!(value > 0)) return 0;  // negative, zero and NaN
    if (value >= 4294967295.0) return 0xFFFFFFFFu;
    return std::uint32_t(value);
}

// --- Files

KXData KXChunk::flatHeader() const { return flatHeader(data_.size()); }

KXData KXChunk::flatHeader(std::uint64_t payloadLength) const {
    if (type_ == 0) return {};
    // What the chunk walk took out of the payload goes back in front of it: a WAVE 'LIST''s or an
    // AIFF 'APPL''s four-character subtype, a 'uuid' chunk's UUID.
    std::uint8_t prefix[16];
    std::size_t prefixLength = 0;
    if (hasSubtypeInPayload()) {
        kx::store32(prefix, subtype_, KXByteOrder::big);
        prefixLength = 4;
    } else if (type_ == KXFourCC("uuid")) {
        const KXData uuid = uuid_.value_or(KXUUID()).dataValue();
        std::copy_n(uuid.begin(), std::min<std::size_t>(uuid.size(), 16), prefix);
        prefixLength = 16;
    }
    // Type, then the size: 64-bit in CAF, else 32-bit.
    std::uint8_t header[4 + 8 + 16];
    std::size_t length = 4;
    kx::store32(header, type_, KXByteOrder::big);
    const std::uint64_t size = payloadLength + prefixLength;
    if (format_ == KXFourCC("caff")) {
        kx::store64(header + length, size, order());
        length += 8;
    } else {
        kx::store32(header + length, std::uint32_t(size), order());
        length += 4;
    }
    std::copy_n(prefix, prefixLength, header + length);
    length += prefixLength;
    return KXData(header, header + length);
}

KXData KXChunk::flatBytes() const {
    KXData bytes = flatHeader();
    bytes.insert(bytes.end(), data_.begin(), data_.end());
    return bytes;
}

bool KXChunk::writeToFlatFile(KXFile& file, KXError* error) const {
    return file.writeData(flatHeader(), error) && file.writeData(data_, error);
}

bool KXChunk::hasSubtypeInPayload() const {
    return (type_ == KXFourCC("LIST") && (format_ == KXFourCC("WAVE") || format_ == KXFourCC("ACID"))) ||
           (type_ == KXFourCC("APPL") && (format_ == KXFourCC("AIFF") || format_ == KXFourCC("APLL")));
}

bool KXChunk::appendToFile(KXFile& file, KXError* error) const {
    return file.moveToEnd(error) && writeToFlatFile(file, error);
}

bool KXChunk::appendToFile(KXResourceFile& file, KXError* error) const {
    return file.addResource(std::make_shared<KXResource>(type_, chunkID_, name_, data_), error);
}

bool KXChunk::writeToFile(KXFile& file, const KXChunk* replaced, KXError* error) const {
    if (!replaced) return appendToFile(file, error);
    if (replaced->length() != length_)
        return replaced->removeFromFile(file, error) && appendToFile(file, error);
    return file.moveTo(replaced->position(), error) && writeToFlatFile(file, error);
}

bool KXChunk::writeToFile(KXResourceFile& file, const KXChunk* replaced, KXError* error) const {
    if (replaced && !replaced->removeFromFile(file, error)) return false;
    return appendToFile(file, error);
}

bool KXChunk::removeFromFile(KXFile& file, KXError* error) const {
    return file.writeIntValueToPosition(KXFourCC("JUNK"), position_, KXByteOrder::big, error);
}

bool KXChunk::removeFromFile(KXResourceFile& file, KXError* error) const {
    auto resource = file.resourceForType(type_, chunkID_);
    return !resource || file.removeResource(*resource, error);
}
