#include "support/KXTestSupport.h"

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"

#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

KXTemporaryFolder::KXTemporaryFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "kxaudio-test-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
}

KXTemporaryFolder::~KXTemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string KXTemporaryFolder::write(const std::string& name, const KXData& bytes) const {
    const std::string path = pathFor(name);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    return path;
}

std::string KXTemporaryFolder::writeSparse(const std::string& name, const KXData& header, std::uint64_t tailBytes,
                                           std::initializer_list<std::pair<std::uint64_t, std::uint8_t>> marks) const {
    const std::string path = write(name, header);
    std::filesystem::resize_file(path, header.size() + tailBytes);
    std::fstream out(path, std::ios::binary | std::ios::in | std::ios::out);
    for (const auto& [offset, byte] : marks) {
        out.seekp(std::streamoff(header.size() + offset));
        out.put(char(byte));
    }
    return path;
}

KXPayload& KXPayload::u16(std::uint16_t v) {
    std::uint8_t b[2];
    kx::store16(b, v, order);
    return raw(KXData(b, b + 2));
}

KXPayload& KXPayload::u32(std::uint32_t v) {
    std::uint8_t b[4];
    kx::store32(b, v, order);
    return raw(KXData(b, b + 4));
}

KXPayload& KXPayload::u64(std::uint64_t v) {
    std::uint8_t b[8];
    kx::store64(b, v, order);
    return raw(KXData(b, b + 8));
}

KXPayload& KXPayload::f32(float v) {
    std::uint32_t u;
    std::memcpy(&u, &v, 4);
    return u32(u);
}

KXPayload& KXPayload::text(const std::string& s, std::size_t size) {
    KXData field(size, 0);
    std::copy_n(s.begin(), std::min(s.size(), size), field.begin());
    return raw(field);
}

KXPayload& KXPayload::pascal(const std::string& text) {
    u8(std::uint8_t(text.size())).raw(KXData(text.begin(), text.end()));
    if (text.size() % 2 == 0) u8(0);
    return *this;
}

KXPayload& KXPayload::sub(const char* type, const KXData& payload) {
    raw(KXData(type, type + 4)).u32(std::uint32_t(payload.size())).raw(payload);
    if (payload.size() % 2) u8(0);
    return *this;
}

const KXData* KXWalkedChunks::find(const std::string& type) const {
    for (const auto& [t, payload] : chunks)
        if (t == type) return &payload;
    return nullptr;
}

std::vector<std::string> KXWalkedChunks::order() const {
    std::vector<std::string> types;
    for (const auto& chunk : chunks) types.push_back(chunk.first);
    return types;
}

KXWalkedChunks walkChunks(const KXData& bytes, KXByteOrder order) {
    KXWalkedChunks walked;
    if (bytes.size() < 8) return walked;
    walked.containerSize = kx::load32(bytes.data() + 4, order);
    for (std::size_t at = 12; at + 8 <= bytes.size();) {
        const std::uint32_t size = kx::load32(bytes.data() + at + 4, order);
        walked.chunks.emplace_back(std::string(bytes.begin() + std::ptrdiff_t(at), bytes.begin() + std::ptrdiff_t(at + 4)),
                                   KXData(bytes.begin() + std::ptrdiff_t(at + 8),
                                          bytes.begin() + std::ptrdiff_t(std::min<std::size_t>(bytes.size(), at + 8 + size))));
        at += 8 + std::size_t(size) + (size & 1);
    }
    return walked;
}

KXData readWholeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return KXData(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

KXData bytesOf(const std::string& text) { return KXData(text.begin(), text.end()); }

std::uint32_t fourCC(const std::string& text) {
    return kx::load32(reinterpret_cast<const std::uint8_t*>(text.c_str()), KXByteOrder::big);
}

bool supportsUserAttributes(const std::string& folder) {
    const std::string probe = folder + "/.xattr-probe";
    std::ofstream(probe).put('x');
    const bool ok = setxattr(probe.c_str(), "user.kxaudio.probe", "1", 1, 0) == 0;
    unlink(probe.c_str());
    return ok;
}

namespace {
void append(KXData& data, const char* text, std::size_t length) {
    const std::size_t at = data.size();
    data.resize(at + length);
    std::memcpy(data.data() + at, text, length);
}
}  // namespace

KXTestFile KXTestFile::riff(const char* form) {
    KXTestFile file(Kind::iff, KXByteOrder::little);
    append(file.data_, "RIFF\0\0\0\0", 8);
    append(file.data_, form, 4);
    return file;
}

KXTestFile KXTestFile::aiff(const char* form) {
    KXTestFile file(Kind::iff, KXByteOrder::big);
    append(file.data_, "FORM\0\0\0\0", 8);
    append(file.data_, form, 4);
    return file;
}

KXTestFile KXTestFile::caf() {
    KXTestFile file(Kind::caf, KXByteOrder::big);
    append(file.data_, "caff\0\x01\0\0", 8);
    return file;
}

KXTestFile KXTestFile::wave64() {
    KXTestFile file(Kind::wave64, KXByteOrder::little);
    // 'riff' GUID, 64-bit size, 'wave' GUID: 40 bytes.
    append(file.data_, "riff\x2E\x91\xCF\x11\xA5\xD6\x28\xDB\x04\xC1\x00\x00", 16);
    file.data_.resize(24, 0);
    append(file.data_, "wave\xF3\xAC\xD3\x11\x8C\xD1\x00\xC0\x4F\x8E\xDB\x8A", 16);
    return file;
}

KXTestFile& KXTestFile::chunk(const char* type, const KXData& payload, bool pad) {
    append(data_, type, 4);
    const std::size_t at = data_.size();
    if (kind_ == Kind::wave64) {
        data_.resize(at + 20, 0);  // the rest of the GUID, then the size
        kx::store64(data_.data() + at + 12, payload.size() + 24, order_);
    } else if (kind_ == Kind::caf) {
        data_.resize(at + 8);
        kx::store64(data_.data() + at, payload.size(), order_);
    } else {
        data_.resize(at + 4);
        kx::store32(data_.data() + at, std::uint32_t(payload.size()), order_);
    }
    data_.insert(data_.end(), payload.begin(), payload.end());
    if (pad && (payload.size() & 1)) data_.push_back(0);
    return *this;
}

KXTestFile& KXTestFile::bytes(const KXData& raw) {
    data_.insert(data_.end(), raw.begin(), raw.end());
    return *this;
}

KXTestFile& KXTestFile::finish() {
    if (kind_ == Kind::wave64) return setU64At(16, data_.size());
    if (kind_ == Kind::iff) return setU32At(4, std::uint32_t(data_.size() - 8));
    return *this;
}

KXTestFile& KXTestFile::setU32At(std::size_t offset, std::uint32_t value) {
    kx::store32(data_.data() + offset, value, order_);
    return *this;
}

KXTestFile& KXTestFile::setU64At(std::size_t offset, std::uint64_t value) {
    kx::store64(data_.data() + offset, value, order_);
    return *this;
}

std::int16_t KXTestSamples::value(std::uint32_t frame, std::uint32_t channel) {
    return std::int16_t(std::int32_t((frame * 7u + channel * 1000u) % 60001u) - 30000);
}

std::string KXTestSamples::writeFile(const KXTemporaryFolder& folder, const std::string& name, std::uint32_t channels,
                                     std::uint32_t frames, std::uint32_t offset) {
    KXData bytes(offset + std::size_t(frames) * channels * 2, 0);
    std::uint8_t* p = bytes.data() + offset;
    for (std::uint32_t f = 0; f < frames; ++f)
        for (std::uint32_t c = 0; c < channels; ++c, p += 2) kx::store16(p, std::uint16_t(value(f, c)), KXByteOrder::little);
    return folder.write(name, bytes);
}

std::string KXTestSamples::writeSignalFile(const KXTemporaryFolder& folder, const std::string& name,
                                           std::uint32_t channels, std::uint32_t rate, std::uint32_t frames, bool floats,
                                           const std::function<float(std::uint32_t, std::uint32_t)>& signal) {
    const std::uint16_t bytes = floats ? 4 : 2;
    const KXData fmt = KXPayload::little()
                           .u16(floats ? 3 : 1)
                           .u16(std::uint16_t(channels))
                           .u32(rate)
                           .u32(rate * channels * bytes)
                           .u16(std::uint16_t(channels * bytes))
                           .u16(std::uint16_t(bytes * 8))
                           .bytes;
    KXPayload data = KXPayload::little();
    data.bytes.reserve(std::size_t(frames) * channels * bytes);
    for (std::uint32_t f = 0; f < frames; ++f)
        for (std::uint32_t c = 0; c < channels; ++c) {
            const float x = signal(f, c);
            if (floats) data.f32(x);
            else data.u16(std::uint16_t(std::int16_t(std::lround(std::clamp(x * 32768.0f, -32768.0f, 32767.0f)))));
        }
    return folder.write(name, KXTestFile::riff().chunk("fmt ", fmt).chunk("data", data.bytes).finish().data());
}

std::vector<std::vector<float>> KXTestSamples::samplesOf(KXAudioFile& file) {
    std::vector<std::vector<float>> channels(file.numberOfChannels(), std::vector<float>(file.frames()));
    for (std::uint32_t c = 0; c < file.numberOfChannels(); ++c)
        for (std::uint32_t done = 0; done < file.frames();) {
            std::int32_t size = std::int32_t(file.frames() - done);
            file.readSamplesToBuffer(channels[c].data() + done, done, size, c);
            if (size <= 0) break;
            done += std::uint32_t(size);
        }
    return channels;
}
