#include "KXREX/KXREX.h"

#include <dlfcn.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cstdlib>
#include <mutex>

#include "KXBase/KXFile.h"
#include "KXBase/KXPropertyList.h"

namespace {

// The entry points, in the order they are resolved.
enum Entry {
    kOpen, kClose, kCreate, kDelete, kGetInfo, kGetInfoFromBuffer, kGetCreatorInfo, kGetSliceInfo,
    kSetOutputSampleRate, kRenderSlice, kStartPreview, kStopPreview, kRenderPreviewBatch, kSetPreviewTempo, kEntries
};
constexpr std::array<const char*, kEntries> kEntryNames = {
    "Open", "Close", "REXCreate", "REXDelete", "REXGetInfo", "REXGetInfoFromBuffer", "REXGetCreatorInfo",
    "REXGetSliceInfo", "REXSetOutputSampleRate", "REXRenderSlice", "REXStartPreview", "REXStopPreview",
    "REXRenderPreviewBatch", "REXSetPreviewTempo"};

// An Info.plist is small; anything bigger is not one.
constexpr std::uint64_t kMaximumInfoPlistBytes = 1 << 20;

struct State {
    std::mutex lock;  // loading and unloading
    void* library = nullptr;
    std::string path;
    std::int32_t loadCount = 0;
    std::array<void*, kEntries> table{};
    std::string applicationFolder;
};

State& state() {
    static State shared;
    return shared;
}

template <typename Function>
Function entry(Entry index) {
    return reinterpret_cast<Function>(state().table[index]);
}

// The leading decimal number of a version text ("1.6.0" → 1); -1 when there is none.
int majorVersion(const std::string& text) {
    if (text.empty() || text[0] < '0' || text[0] > '9') return -1;
    return std::atoi(text.c_str());
}

struct Candidate {
    std::string sharedObject;
    int major = -1;
};

// A library called `name` in `folder`: a bundle first, then a plain shared object.
std::optional<Candidate> libraryInFolder(const std::string& folder, const std::string& name) {
    const std::string bundle = KXFile::pathByAppendingComponent(folder, name + ".bundle");
    if (KXFile::isDirectoryAtPath(bundle)) {
        Candidate candidate;
        std::string executable = name;
        const std::string plist = bundle + "/Contents/Info.plist";
        if (const auto data = KXFile::dataWithContentsOfPath(plist, kMaximumInfoPlistBytes)) {
            if (const auto info = KXPropertyList::propertyListFromData(*data); info && info->type() == KXValue::Type::dictionary) {
                const KXDictionary& keys = info->dictionary();
                for (const char* key : {"CFBundleVersion", "CFBundleShortVersionString"}) {
                    const KXValue& version = keys.objectForKey(key);
                    if (version.isString()) {
                        candidate.major = majorVersion(version.stringValue());
                        break;
                    }
                }
                if (keys.objectForKey("CFBundleExecutable").isString())
                    executable = keys.objectForKey("CFBundleExecutable").stringValue();
            }
        }
        candidate.sharedObject = bundle + "/Contents/Linux/" + executable + ".so";
        return candidate;
    }
    const std::string plain = KXFile::pathByAppendingComponent(folder, name + ".so");
    if (!KXFile::existsAtPath(plain)) return std::nullopt;
    Candidate candidate{plain, -1};
    char resolved[PATH_MAX];
    if (::realpath(plain.c_str(), resolved)) {
        const std::string file = KXFile::lastPathComponent(resolved);
        const std::string stem = name + ".so.";
        if (file.compare(0, stem.size(), stem) == 0) candidate.major = majorVersion(file.substr(stem.size()));
    }
    return candidate;
}

void clearTable(State& s) {
    s.table.fill(nullptr);
    if (s.library) ::dlclose(s.library);
    s.library = nullptr;
    s.path.clear();
    s.loadCount = 0;
}

}  // namespace

// --- Finding the library

std::string KXREX::applicationFolder() {
    {
        std::lock_guard<std::mutex> lock(state().lock);
        if (!state().applicationFolder.empty()) return state().applicationFolder;
    }
    char executable[PATH_MAX];
    const ssize_t length = ::readlink("/proc/self/exe", executable, sizeof executable - 1);
    if (length <= 0) return {};
    return KXFile::directoryOfPath(std::string(executable, std::size_t(length)));
}

void KXREX::setApplicationFolder(const std::string& folder) {
    std::lock_guard<std::mutex> lock(state().lock);
    state().applicationFolder = folder;
}

std::vector<std::string> KXREX::searchFolders() {
    std::vector<std::string> domains;
    if (const char* home = std::getenv("HOME"); home && *home) domains.push_back(std::string(home) + "/.local/lib");
    domains.insert(domains.end(), {"/usr/local/lib", "/usr/lib"});
    std::vector<std::string> folders;
    if (std::string application = applicationFolder(); !application.empty()) folders.push_back(application);
    for (const std::string& domain : domains) {
        folders.push_back(domain + "/Propellerhead Software/Rex");
        folders.push_back(domain);
    }
    return folders;
}

const std::vector<std::string>& KXREX::libraryNames() {
    static const std::vector<std::string> names = {"REX Shared Library Debugging", "REX Shared Library Testing",
                                                   "REX Shared Library"};
    return names;
}

bool KXREX::isLoaded() {
    std::lock_guard<std::mutex> lock(state().lock);
    return state().library != nullptr;
}

std::string KXREX::loadedPath() {
    std::lock_guard<std::mutex> lock(state().lock);
    return state().path;
}

// --- Loading

extern "C" REXError REXLoadDLL(void) {
    const std::vector<std::string> folders = KXREX::searchFolders();
    State& s = state();
    std::lock_guard<std::mutex> lock(s.lock);
    if (s.library) {
        ++s.loadCount;
        return kREXImplError_DLLAlreadyLoaded;
    }
    std::optional<Candidate> found;
    for (const std::string& name : KXREX::libraryNames()) {
        for (const std::string& folder : folders)
            if ((found = libraryInFolder(folder, name))) break;
        if (found) break;
    }
    if (!found || found->major != 1) return kREXError_UnableToLoadDLL;
    s.library = ::dlopen(found->sharedObject.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!s.library) return kREXError_UnableToLoadDLL;
    s.path = found->sharedObject;
    s.loadCount = 1;
    bool complete = true;
    for (std::size_t i = 0; i < kEntries; ++i) {
        s.table[i] = ::dlsym(s.library, kEntryNames[i]);
        complete = complete && s.table[i];
    }
    if (complete && entry<char (*)()>(kOpen)()) return kREXError_NoError;
    clearTable(s);
    return kREXError_UnableToLoadDLL;
}

extern "C" void REXUnloadDLL(void) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.lock);
    if (s.loadCount > 0) --s.loadCount;
    if (s.loadCount > 0 || !s.library) return;
    if (auto close = entry<void (*)()>(kClose)) close();
    clearTable(s);
}

// --- Forwarding: 200 while nothing is loaded or the entry is missing

namespace {
template <typename Function, typename... Arguments>
REXError forward(Entry index, Arguments... arguments) {
    const auto function = entry<Function>(index);
    return function ? function(arguments...) : kREXImplError_DLLNotInitialized;
}
}  // namespace

extern "C" REXError REXCreate(REXHandle* handle, const char buffer[], REX_int32_t size, REXCreateCallback callbackFunc,
                              void* userData) {
    return forward<REXError (*)(REXHandle*, const char*, REX_int32_t, REXCreateCallback, void*)>(
        kCreate, handle, buffer, size, callbackFunc, userData);
}

extern "C" void REXDelete(REXHandle* handle) {
    if (const auto function = entry<void (*)(REXHandle*)>(kDelete)) function(handle);
}

extern "C" REXError REXGetInfo(REXHandle handle, REX_int32_t infoSize, REXInfo* info) {
    return forward<REXError (*)(REXHandle, REX_int32_t, REXInfo*)>(kGetInfo, handle, infoSize, info);
}

extern "C" REXError REXGetInfoFromBuffer(REX_int32_t bufferSize, const char buffer[], REX_int32_t infoSize, REXInfo* info) {
    return forward<REXError (*)(REX_int32_t, const char*, REX_int32_t, REXInfo*)>(kGetInfoFromBuffer, bufferSize, buffer,
                                                                                 infoSize, info);
}

extern "C" REXError REXGetCreatorInfo(REXHandle handle, REX_int32_t creatorInfoSize, REXCreatorInfo* creatorInfo) {
    return forward<REXError (*)(REXHandle, REX_int32_t, REXCreatorInfo*)>(kGetCreatorInfo, handle, creatorInfoSize,
                                                                          creatorInfo);
}

extern "C" REXError REXGetSliceInfo(REXHandle handle, REX_int32_t sliceIndex, REX_int32_t sliceInfoSize,
                                    REXSliceInfo* sliceInfo) {
    return forward<REXError (*)(REXHandle, REX_int32_t, REX_int32_t, REXSliceInfo*)>(kGetSliceInfo, handle, sliceIndex,
                                                                                     sliceInfoSize, sliceInfo);
}

extern "C" REXError REXSetOutputSampleRate(REXHandle handle, REX_int32_t outputSampleRate) {
    return forward<REXError (*)(REXHandle, REX_int32_t)>(kSetOutputSampleRate, handle, outputSampleRate);
}

extern "C" REXError REXRenderSlice(REXHandle handle, REX_int32_t sliceIndex, REX_int32_t bufferFrameLength,
                                   float* outputBuffers[2]) {
    return forward<REXError (*)(REXHandle, REX_int32_t, REX_int32_t, float**)>(kRenderSlice, handle, sliceIndex,
                                                                               bufferFrameLength, outputBuffers);
}

extern "C" REXError REXStartPreview(REXHandle handle) {
    return forward<REXError (*)(REXHandle)>(kStartPreview, handle);
}

extern "C" REXError REXStopPreview(REXHandle handle) { return forward<REXError (*)(REXHandle)>(kStopPreview, handle); }

extern "C" REXError REXRenderPreviewBatch(REXHandle handle, REX_int32_t framesToRender, float* outputBuffers[2]) {
    return forward<REXError (*)(REXHandle, REX_int32_t, float**)>(kRenderPreviewBatch, handle, framesToRender,
                                                                  outputBuffers);
}

extern "C" REXError REXSetPreviewTempo(REXHandle handle, REX_int32_t tempo) {
    return forward<REXError (*)(REXHandle, REX_int32_t)>(kSetPreviewTempo, handle, tempo);
}
