#pragma once
// Resource forks, kept where foreign volumes keep them: in the sidecar "._<name>" beside the
// file, an AppleDouble file (what the Mac writes on foreign volumes, and what we write) or the
// bare fork itself (what libsndfile writes on Linux). A bare fork that is changed is written
// back as AppleDouble.
//
// AppleDouble sidecar (all numbers big-endian):
//   OFFSET SIZE DESCRIPTION
//   0      4    magic 0x00051607
//   4      4    version 0x00020000
//   8      16   filler
//   24     2    number of entries n
//   26     12n  entries: ID (2 = resource fork, 9 = Finder info), offset, length
//
// Resource fork:
//   0      16   header: data offset, map offset, data length, map length
//   …           resource data, each a 4-byte length then the bytes
//   map:   16   copy of the header; 4 next-map handle; 2 file reference; 2 attributes;
//          2    offset from the map to the type list; 2 offset from the map to the name list
//   type list:  2 number of types − 1; then per type: 4 type, 2 count − 1,
//               2 offset from the type list to its reference list
//   reference:  2 ID, 2 name offset into the name list (0xFFFF: none), 1 attributes,
//               3 data offset from the data start, 4 handle
//   name list:  Pascal strings (a last name that runs past the map keeps what the map holds:
//               libsndfile writes its maps two bytes short)
//
// Every change is written back at once, to a new sidecar that replaces the old one by rename,
// so a failure never leaves a half-written fork. Entries of the sidecar other than the resource
// fork (Finder info, attributes) are kept as they were.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KXBase/KXData.h"
#include "KXBase/KXError.h"

class KXResource {
public:
    KXResource() = default;
    KXResource(std::uint32_t type, std::int16_t resourceID, std::optional<std::string> name, KXData data)
        : type_(type), id_(resourceID), name_(std::move(name)), data_(std::move(data)) {}

    std::uint32_t type() const { return type_; }
    void setType(std::uint32_t type) { type_ = type; }
    std::int16_t resourceID() const { return id_; }
    void setResourceID(std::int16_t resourceID) { id_ = resourceID; }
    const std::optional<std::string>& name() const { return name_; }
    void setName(std::optional<std::string> name) { name_ = std::move(name); }
    const KXData& data() const { return data_; }
    void setData(KXData data) { data_ = std::move(data); }
    std::uint8_t attributes() const { return attributes_; }
    void setAttributes(std::uint8_t attributes) { attributes_ = attributes; }

private:
    std::uint32_t type_ = 0;
    std::int16_t id_ = 0;
    std::optional<std::string> name_;
    KXData data_;
    std::uint8_t attributes_ = 0;
};

class KXResourceFile {
public:
    enum class Mode { read, readWrite };

    // Opens the resource fork of the file at `path`. A file without one fails with the file
    // layer's error (ENOENT); a damaged one with EINVAL.
    static std::unique_ptr<KXResourceFile> resourceFileWithPath(const std::string& path,
                                                                Mode mode = Mode::read,
                                                                KXError* error = nullptr);
    // Opens the resource fork of `path` for writing, making an empty one when there is none.
    static std::unique_ptr<KXResourceFile> createResourceFileAtPath(const std::string& path,
                                                                    KXError* error = nullptr);

    const std::string& path() const { return path_; }
    const std::vector<std::shared_ptr<KXResource>>& resources() const { return resources_; }
    std::shared_ptr<KXResource> resourceForType(std::uint32_t type, std::int16_t resourceID) const;
    std::shared_ptr<KXResource> resourceForTypeName(std::uint32_t type, const std::string& name) const;

    // Adds the resource, replacing one of the same type and ID, and writes the fork.
    [[nodiscard]] bool addResource(std::shared_ptr<KXResource> resource, KXError* error = nullptr);
    // Removes the resource of the same type and ID, and writes the fork; one that is not there
    // is no error.
    [[nodiscard]] bool removeResource(const KXResource& resource, KXError* error = nullptr);
    // Replaces every resource with these, in their order, and writes the fork once.
    [[nodiscard]] bool setResources(std::vector<std::shared_ptr<KXResource>> resources, KXError* error = nullptr);

    // The bytes of a resource fork, and back; nullopt for a damaged fork.
    static KXData resourceForkData(const std::vector<std::shared_ptr<KXResource>>& resources);
    static std::optional<std::vector<std::shared_ptr<KXResource>>> resourcesFromForkData(
        const KXData& fork);

private:
    struct SidecarEntry {
        std::uint32_t entryID;
        KXData data;
    };

    KXResourceFile(std::string path, Mode mode) : path_(std::move(path)), mode_(mode) {}
    bool write(KXError* error);

    std::string path_;
    Mode mode_;
    std::vector<std::shared_ptr<KXResource>> resources_;
    std::vector<SidecarEntry> otherEntries_;  // kept as they were, in their order
};
