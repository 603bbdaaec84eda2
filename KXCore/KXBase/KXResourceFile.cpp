#include "KXBase/KXResourceFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <utility>

#include "KXBase/KXByteOrder.h"
#include "KXBase/KXString.h"
#include "KXBase/KXFile.h"

namespace {

constexpr std::uint32_t kAppleDoubleMagic = 0x00051607;
constexpr std::uint32_t kAppleDoubleVersion = 0x00020000;
constexpr std::uint32_t kResourceForkEntry = 2;
constexpr std::uint32_t kFinderInfoEntry = 9;
constexpr std::size_t kSidecarHeaderSize = 26;
constexpr std::size_t kSidecarEntrySize = 12;
constexpr std::size_t kForkHeaderSize = 16;
constexpr std::size_t kForkDataStart = 256;  // header plus the reserved system and application areas
constexpr std::size_t kMapHeaderSize = 28;   // up to and including the two list offsets
constexpr std::size_t kTypeEntrySize = 8;
constexpr std::size_t kReferenceSize = 12;
constexpr std::size_t kMaximumSidecarSize = 64u << 20;  // far above any real resource fork
// Far above any real fork's resource count; each resource costs far more memory than its
// 12-byte reference.
constexpr std::size_t kMaximumResources = 65536;

std::uint16_t be16(const KXData& d, std::size_t at) { return kx::load16(d.data() + at, KXByteOrder::big); }
std::uint32_t be32(const KXData& d, std::size_t at) { return kx::load32(d.data() + at, KXByteOrder::big); }

void append16(KXData& d, std::uint16_t v) {
    d.push_back(std::uint8_t(v >> 8));
    d.push_back(std::uint8_t(v));
}
void append32(KXData& d, std::uint32_t v) {
    append16(d, std::uint16_t(v >> 16));
    append16(d, std::uint16_t(v));
}
void put16(KXData& d, std::size_t at, std::uint16_t v) { kx::store16(d.data() + at, v, KXByteOrder::big); }
void put32(KXData& d, std::size_t at, std::uint32_t v) { kx::store32(d.data() + at, v, KXByteOrder::big); }

// True when [offset, offset + length) lies inside a buffer of `size` bytes.
bool fits(std::size_t size, std::uint64_t offset, std::uint64_t length) {
    return offset <= size && length <= size - offset;
}

KXError damagedFork(const std::string& path) {
    return KXError::posixError(EINVAL, "Reading the resource fork of " + path);
}

}  // namespace

// --- The fork's bytes

std::optional<std::vector<std::shared_ptr<KXResource>>> KXResourceFile::resourcesFromForkData(
    const KXData& fork) {
    std::vector<std::shared_ptr<KXResource>> resources;
    if (fork.empty()) return resources;  // an empty fork holds no resources
    if (fork.size() < kForkHeaderSize) return std::nullopt;
    const std::uint32_t dataOffset = be32(fork, 0), mapOffset = be32(fork, 4);
    const std::uint32_t dataLength = be32(fork, 8), mapLength = be32(fork, 12);
    if (!fits(fork.size(), dataOffset, dataLength) || !fits(fork.size(), mapOffset, mapLength) ||
        mapLength < kMapHeaderSize)
        return std::nullopt;
    const std::size_t map = mapOffset;
    const std::size_t typeList = map + be16(fork, map + 24);
    const std::size_t nameList = map + be16(fork, map + 26);
    const std::size_t mapEnd = map + mapLength;
    if (!fits(mapEnd, typeList, 2)) return std::nullopt;
    const std::size_t typeCount = std::size_t((be16(fork, typeList) + 1) & 0xFFFF);
    std::size_t copied = 0;
    // Each type takes 8 bytes of the map: a count that the map cannot hold is damage.
    if (!fits(mapEnd, typeList + 2, std::uint64_t(typeCount) * kTypeEntrySize)) return std::nullopt;
    std::size_t referenceCount = 0;
    for (std::size_t t = 0; t < typeCount; ++t) {
        const std::size_t entry = typeList + 2 + t * kTypeEntrySize;
        const std::uint32_t type = be32(fork, entry);
        const std::size_t count = std::size_t(be16(fork, entry + 4)) + 1;
        const std::size_t references = typeList + be16(fork, entry + 6);
        if (!fits(mapEnd, references, std::uint64_t(count) * kReferenceSize)) return std::nullopt;
        // Types may not share their references: all of them together fit in the map once (and
        // stay below the resource limit), or a small map could list billions of resources.
        referenceCount += count;
        if (referenceCount > kMaximumResources || referenceCount * kReferenceSize > mapLength) return std::nullopt;
        for (std::size_t r = 0; r < count; ++r) {
            const std::size_t ref = references + r * kReferenceSize;
            const auto resourceID = std::int16_t(be16(fork, ref));
            const std::uint16_t nameOffset = be16(fork, ref + 2);
            const std::uint8_t attributes = fork[ref + 4];
            const std::uint32_t offset = be32(fork, ref + 4) & 0xFFFFFF;
            if (!fits(dataLength, offset, 4)) return std::nullopt;
            const std::size_t at = std::size_t(dataOffset) + offset;
            const std::uint32_t length = be32(fork, at);
            if (!fits(dataLength, std::uint64_t(offset) + 4, length)) return std::nullopt;
            // References may share one resource's data; the copies together may not pass the
            // fork's own size, or a small fork could ask for gigabytes.
            if (length > fork.size() - copied) return std::nullopt;
            copied += length;
            std::optional<std::string> name;
            if (nameOffset != 0xFFFF) {
                const std::size_t nameAt = nameList + nameOffset;
                if (!fits(mapEnd, nameAt, 1)) return std::nullopt;
                // A name that runs past the map keeps the bytes the map holds.
                const std::size_t nameLength = std::min<std::size_t>(fork[nameAt], mapEnd - nameAt - 1);
                name = KXString::stringFromFileText(
                    std::string_view(reinterpret_cast<const char*>(fork.data()) + nameAt + 1, nameLength),
                    KXTextEncoding::macRoman);
            }
            auto resource = std::make_shared<KXResource>(
                type, resourceID, std::move(name),
                KXData(fork.begin() + std::ptrdiff_t(at + 4), fork.begin() + std::ptrdiff_t(at + 4 + length)));
            resource->setAttributes(attributes);
            resources.push_back(std::move(resource));
        }
    }
    return resources;
}

KXData KXResourceFile::resourceForkData(const std::vector<std::shared_ptr<KXResource>>& resources) {
    // Resource data, in the order of the resources.
    KXData data;
    std::vector<std::uint32_t> dataOffsets;
    for (const auto& resource : resources) {
        dataOffsets.push_back(std::uint32_t(data.size()));
        append32(data, std::uint32_t(resource->data().size()));
        data.insert(data.end(), resource->data().begin(), resource->data().end());
    }
    // Types in order of first appearance, each with its resources.
    std::vector<std::uint32_t> types;
    std::map<std::uint32_t, std::vector<std::size_t>> byType;
    for (std::size_t i = 0; i < resources.size(); ++i) {
        auto& members = byType[resources[i]->type()];
        if (members.empty()) types.push_back(resources[i]->type());
        members.push_back(i);
    }
    KXData names;
    KXData map(kMapHeaderSize, 0);
    const std::size_t typeListAt = map.size();
    append16(map, std::uint16_t(types.size() - 1));  // 0xFFFF when there are none
    std::size_t referenceAt = 2 + types.size() * kTypeEntrySize;  // from the type list
    for (std::uint32_t type : types) {
        append32(map, type);
        append16(map, std::uint16_t(byType[type].size() - 1));
        append16(map, std::uint16_t(referenceAt));
        referenceAt += byType[type].size() * kReferenceSize;
    }
    for (std::uint32_t type : types) {
        for (std::size_t i : byType[type]) {
            const KXResource& resource = *resources[i];
            append16(map, std::uint16_t(resource.resourceID()));
            if (resource.name()) {
                append16(map, std::uint16_t(names.size()));
                const std::string name = KXString::fileTextFromString(*resource.name(), KXTextEncoding::macRoman, 255);
                const std::size_t length = name.size();
                names.push_back(std::uint8_t(length));
                names.insert(names.end(), name.begin(), name.begin() + std::ptrdiff_t(length));
            } else {
                append16(map, 0xFFFF);
            }
            append32(map, (std::uint32_t(resource.attributes()) << 24) | (dataOffsets[i] & 0xFFFFFF));
            append32(map, 0);
        }
    }
    put16(map, 24, std::uint16_t(typeListAt));
    put16(map, 26, std::uint16_t(map.size()));
    map.insert(map.end(), names.begin(), names.end());

    KXData fork(kForkDataStart, 0);
    const std::uint32_t mapOffset = std::uint32_t(kForkDataStart + data.size());
    put32(fork, 0, std::uint32_t(kForkDataStart));
    put32(fork, 4, mapOffset);
    put32(fork, 8, std::uint32_t(data.size()));
    put32(fork, 12, std::uint32_t(map.size()));
    std::copy(fork.begin(), fork.begin() + kForkHeaderSize, map.begin());  // the map's header copy
    fork.insert(fork.end(), data.begin(), data.end());
    fork.insert(fork.end(), map.begin(), map.end());
    return fork;
}

// --- Opening

std::unique_ptr<KXResourceFile> KXResourceFile::resourceFileWithPath(const std::string& path,
                                                                     Mode mode, KXError* error) {
    const std::string sidecarPath = KXFile::sidecarPathForPath(path);
    KXError openError;
    auto sidecar = KXFile::fileWithPath(sidecarPath, KXFile::Mode::read, &openError);
    if (!sidecar) {
        KXSetError(error, KXError::posixError(int(openError.code()), "Opening the resource fork of " + path));
        return nullptr;
    }
    const std::uint64_t length = sidecar->length();
    if (length < kForkHeaderSize || length > kMaximumSidecarSize) {
        KXSetError(error, damagedFork(path));
        return nullptr;
    }
    const KXData bytes = sidecar->readDataOfLengthAtPosition(std::size_t(length), 0, error);
    if (bytes.size() != length) {
        KXSetError(error, damagedFork(path));
        return nullptr;
    }
    std::unique_ptr<KXResourceFile> file(new KXResourceFile(path, mode));
    // A sidecar that is not AppleDouble is the bare fork.
    if (be32(bytes, 0) != kAppleDoubleMagic) {
        auto resources = resourcesFromForkData(bytes);
        if (!resources) {
            KXSetError(error, damagedFork(path));
            return nullptr;
        }
        file->resources_ = std::move(*resources);
        return file;
    }
    const std::size_t entryCount = bytes.size() < kSidecarHeaderSize ? 0 : be16(bytes, 24);
    if (bytes.size() < kSidecarHeaderSize ||
        !fits(bytes.size(), kSidecarHeaderSize, entryCount * kSidecarEntrySize)) {
        KXSetError(error, damagedFork(path));
        return nullptr;
    }
    bool hasFork = false;
    for (std::size_t i = 0; i < entryCount; ++i) {
        const std::size_t entry = kSidecarHeaderSize + i * kSidecarEntrySize;
        const std::uint32_t entryID = be32(bytes, entry);
        const std::uint32_t offset = be32(bytes, entry + 4), entryLength = be32(bytes, entry + 8);
        if (!fits(bytes.size(), offset, entryLength)) {
            KXSetError(error, damagedFork(path));
            return nullptr;
        }
        KXData content(bytes.begin() + offset, bytes.begin() + offset + entryLength);
        if (entryID != kResourceForkEntry) {
            file->otherEntries_.push_back({entryID, std::move(content)});
            continue;
        }
        auto resources = resourcesFromForkData(content);
        if (!resources) {
            KXSetError(error, damagedFork(path));
            return nullptr;
        }
        file->resources_ = std::move(*resources);
        hasFork = true;
    }
    if (!hasFork && mode == Mode::read) {
        KXSetError(error, KXError::posixError(ENOENT, "Opening the resource fork of " + path));
        return nullptr;
    }
    return file;
}

std::unique_ptr<KXResourceFile> KXResourceFile::createResourceFileAtPath(const std::string& path,
                                                                         KXError* error) {
    if (KXFile::existsAtPath(KXFile::sidecarPathForPath(path)))
        return resourceFileWithPath(path, Mode::readWrite, error);
    std::unique_ptr<KXResourceFile> file(new KXResourceFile(path, Mode::readWrite));
    if (!file->write(error)) return nullptr;
    return file;
}

// --- Changing

std::shared_ptr<KXResource> KXResourceFile::resourceForType(std::uint32_t type,
                                                           std::int16_t resourceID) const {
    for (const auto& resource : resources_)
        if (resource->type() == type && resource->resourceID() == resourceID) return resource;
    return nullptr;
}

std::shared_ptr<KXResource> KXResourceFile::resourceForTypeName(std::uint32_t type,
                                                               const std::string& name) const {
    for (const auto& resource : resources_)
        if (resource->type() == type && resource->name() == name) return resource;
    return nullptr;
}

bool KXResourceFile::addResource(std::shared_ptr<KXResource> resource, KXError* error) {
    if (!resource) return true;
    auto old = resources_;
    std::erase_if(resources_, [&](const auto& r) {
        return r->type() == resource->type() && r->resourceID() == resource->resourceID();
    });
    resources_.push_back(std::move(resource));
    if (write(error)) return true;
    resources_ = std::move(old);
    return false;
}

bool KXResourceFile::removeResource(const KXResource& resource, KXError* error) {
    auto old = resources_;
    const auto removed = std::erase_if(resources_, [&](const auto& r) {
        return r->type() == resource.type() && r->resourceID() == resource.resourceID();
    });
    if (removed == 0 || write(error)) return true;
    resources_ = std::move(old);
    return false;
}

bool KXResourceFile::setResources(std::vector<std::shared_ptr<KXResource>> resources, KXError* error) {
    auto old = std::exchange(resources_, std::move(resources));
    if (write(error)) return true;
    resources_ = std::move(old);
    return false;
}

bool KXResourceFile::write(KXError* error) {
    if (mode_ != Mode::readWrite) {
        KXSetError(error, KXError::posixError(EBADF, "Writing the resource fork of " + path_));
        return false;
    }
    std::vector<SidecarEntry> entries;
    bool hasFinderInfo = false;
    for (const auto& entry : otherEntries_) hasFinderInfo |= entry.entryID == kFinderInfoEntry;
    if (!hasFinderInfo) entries.push_back({kFinderInfoEntry, KXData(32, 0)});
    entries.insert(entries.end(), otherEntries_.begin(), otherEntries_.end());
    entries.push_back({kResourceForkEntry, resourceForkData(resources_)});

    KXData sidecar;
    append32(sidecar, kAppleDoubleMagic);
    append32(sidecar, kAppleDoubleVersion);
    const char filler[] = "Mac OS X        ";
    sidecar.insert(sidecar.end(), filler, filler + 16);
    append16(sidecar, std::uint16_t(entries.size()));
    std::uint32_t offset = std::uint32_t(kSidecarHeaderSize + entries.size() * kSidecarEntrySize);
    for (const auto& entry : entries) {
        append32(sidecar, entry.entryID);
        append32(sidecar, offset);
        append32(sidecar, std::uint32_t(entry.data.size()));
        offset += std::uint32_t(entry.data.size());
    }
    for (const auto& entry : entries) sidecar.insert(sidecar.end(), entry.data.begin(), entry.data.end());

    return KXFile::writeDataToPath(sidecar, KXFile::sidecarPathForPath(path_), error);
}
