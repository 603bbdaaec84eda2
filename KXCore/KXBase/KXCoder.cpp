#include "KXBase/KXCoder.h"

#include <bit>

namespace {
constexpr char kMagic[] = {'K', 'X', 'a', 'r', 1};
constexpr int kMaximumDepth = 64;  // nesting of objects in objects
}  // namespace

// --- Encoding

KXCoder::KXCoder() : data_(std::begin(kMagic), std::end(kMagic)) {}

void KXCoder::append(std::uint64_t value, int bytes) {
    for (int i = bytes - 1; i >= 0; --i) data_.push_back(std::uint8_t(value >> (8 * i)));
}

void KXCoder::encodeDouble(double value) {
    tag('d');
    append(std::bit_cast<std::uint64_t>(value), 8);
}

void KXCoder::encodeFloat(float value) {
    tag('f');
    append(std::bit_cast<std::uint32_t>(value), 4);
}

void KXCoder::encodeUnsignedInt(std::uint32_t value) {
    tag('I');
    append(value, 4);
}

void KXCoder::encodeUnsignedLongLong(std::uint64_t value) {
    tag('Q');
    append(value, 8);
}

void KXCoder::encodeChar(std::int8_t value) {
    tag('c');
    append(std::uint8_t(value), 1);
}

void KXCoder::encodeString(const std::optional<std::string>& value) {
    tag('@');
    if (!value) return data_.push_back(0);
    tag('S');
    append(value->size(), 4);
    data_.insert(data_.end(), value->begin(), value->end());
}

void KXCoder::encodeData(const std::optional<KXData>& value) {
    tag('@');
    if (!value) return data_.push_back(0);
    tag('D');
    append(value->size(), 4);
    data_.insert(data_.end(), value->begin(), value->end());
}

void KXCoder::encodeObject(const KXCoding* object) {
    tag('@');
    if (!object) return data_.push_back(0);
    tag('O');
    const std::string name = object->archiveClassName();
    append(name.size(), 2);
    data_.insert(data_.end(), name.begin(), name.end());
    object->encodeWithCoder(*this);
    tag('.');
}

void KXCoder::encodeArrayCount(std::uint32_t count) {
    tag('@');
    tag('A');
    append(count, 4);
}

void KXCoder::encodeArray(const KXCodingArray& objects) {
    encodeArrayCount(std::uint32_t(objects.size()));
    for (const auto& object : objects) encodeObject(object.get());
}

KXData KXCoder::archivedDataWithRootObject(const KXCoding& object) {
    KXCoder coder;
    coder.encodeObject(&object);
    return coder.data();
}

// --- Decoding

KXDecoder::KXDecoder(const KXData& data, KXCodingResolver resolver)
    : data_(data), resolver_(std::move(resolver)) {
    if (data_.size() < sizeof kMagic || !std::equal(std::begin(kMagic), std::end(kMagic), data_.begin())) markDamaged();
    else offset_ = sizeof kMagic;
}

bool KXDecoder::take(std::size_t count) {
    if (failed_ || data_.size() - offset_ < count) {
        markDamaged();
        return false;
    }
    return true;
}

std::uint64_t KXDecoder::read(int bytes) {
    if (!take(std::size_t(bytes))) return 0;
    std::uint64_t value = 0;
    for (int i = 0; i < bytes; ++i) value = (value << 8) | data_[offset_++];
    return value;
}

bool KXDecoder::expect(char tag) {
    if (!take(1)) return false;
    if (data_[offset_] != std::uint8_t(tag)) {
        markDamaged();
        return false;
    }
    ++offset_;
    return true;
}

double KXDecoder::decodeDouble() { return expect('d') ? std::bit_cast<double>(read(8)) : 0.0; }
float KXDecoder::decodeFloat() { return expect('f') ? std::bit_cast<float>(std::uint32_t(read(4))) : 0.0f; }
std::uint32_t KXDecoder::decodeUnsignedInt() { return expect('I') ? std::uint32_t(read(4)) : 0; }
std::uint64_t KXDecoder::decodeUnsignedLongLong() { return expect('Q') ? read(8) : 0; }
std::int8_t KXDecoder::decodeChar() { return expect('c') ? std::int8_t(read(1)) : 0; }

int KXDecoder::objectKind() {
    if (!expect('@') || !take(1)) return -1;
    return data_[offset_++];
}

std::optional<std::string> KXDecoder::decodeString() {
    const int kind = objectKind();
    if (kind == 0) return std::nullopt;
    if (kind != 'S') return markDamaged(), std::nullopt;
    const auto length = std::size_t(read(4));
    if (!take(length)) return std::nullopt;
    std::string text(data_.begin() + std::ptrdiff_t(offset_), data_.begin() + std::ptrdiff_t(offset_ + length));
    offset_ += length;
    return text;
}

std::optional<KXData> KXDecoder::decodeData() {
    const int kind = objectKind();
    if (kind == 0) return std::nullopt;
    if (kind != 'D') return markDamaged(), std::nullopt;
    const auto length = std::size_t(read(4));
    if (!take(length)) return std::nullopt;
    KXData bytes(data_.begin() + std::ptrdiff_t(offset_), data_.begin() + std::ptrdiff_t(offset_ + length));
    offset_ += length;
    return bytes;
}

std::shared_ptr<KXCoding> KXDecoder::decodeObject() {
    const int kind = objectKind();
    if (kind == 0) return nullptr;
    if (kind != 'O' || depth_ >= kMaximumDepth) return markDamaged(), nullptr;
    const auto length = std::size_t(read(2));
    if (!take(length)) return nullptr;
    const std::string name(data_.begin() + std::ptrdiff_t(offset_), data_.begin() + std::ptrdiff_t(offset_ + length));
    offset_ += length;
    std::shared_ptr<KXCoding> object = resolver_ ? resolver_(name) : nullptr;
    if (!object) return markDamaged(), nullptr;
    ++depth_;
    object->initWithCoder(*this);
    --depth_;
    if (!expect('.')) return nullptr;
    return object;
}

std::uint32_t KXDecoder::decodeArrayCount() {
    if (objectKind() != 'A') return markDamaged(), 0;
    const std::uint64_t count = read(4);
    // Every element takes at least two bytes: a count past what is left is damage.
    if (failed_ || count > (data_.size() - offset_) / 2) return markDamaged(), 0;
    return std::uint32_t(count);
}

KXCodingArray KXDecoder::decodeArray() {
    KXCodingArray objects;
    const std::uint32_t count = decodeArrayCount();
    for (std::uint64_t i = 0; i < count && !failed_; ++i) objects.push_back(decodeObject());
    if (failed_) objects.clear();
    return objects;
}

KXError KXDecoder::error() const {
    return KXError(KXCoderErrorDomain, 1, "Reading an archive", "the archive is damaged or incomplete.");
}

std::shared_ptr<KXCoding> KXDecoder::unarchiveObjectWithData(const KXData& data, const KXCodingResolver& resolver,
                                                             KXError* error) {
    KXDecoder decoder(data, resolver);
    auto object = decoder.decodeObject();
    if (decoder.failed() || !decoder.atEnd() || !object) {
        KXSetError(error, decoder.error());
        return nullptr;
    }
    return object;
}
