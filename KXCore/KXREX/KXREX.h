#pragma once
// The REX shared library: Propellerhead's decoder of REX2 loops, found on the user's machine at
// run time (it is not part of this library). This layer finds and loads it, resolves its entry
// points into one table, counts loads, and exports the REX interface's functions under their own
// names, each answering kREXImplError_DLLNotInitialized (200) while no library is loaded.
//
// The types below are the REX interface's, as its documentation publishes them.
//
// Finding it: for each name in turn — "REX Shared Library Debugging", "REX Shared Library Testing",
// "REX Shared Library" — the search folders are tried in order (searchFolders()): the
// application's folder, then ~/.local/lib, /usr/local/lib and /usr/lib, each first with the
// subfolder "Propellerhead Software/Rex", then itself. In a folder a library is either
//   - a bundle "<name>.bundle": "Contents/Info.plist" gives the version (CFBundleVersion, else
//     CFBundleShortVersionString) and the executable's name (CFBundleExecutable, else <name>),
//     and the shared object is "Contents/Linux/<executable>.so"; or
//   - a plain shared object "<name>.so" whose real file (links followed) is named
//     "<name>.so.<major>[.<minor>…]", the version carried in its name as Linux libraries carry it.
// The first library found is the one used: its major version must be 1, it must export all
// fourteen entry points, and its "Open" must answer true, or loading answers
// kREXError_UnableToLoadDLL (101) and nothing stays loaded.
//
// The host loads the library (REXLoadDLL) before opening REX2 files and unloads it at the end;
// nothing inside this library calls either. Loading and unloading take a lock; the forwarding
// functions read the table without one, so a host must not unload while a REX call runs.

#include <cstdint>
#include <string>
#include <vector>

extern "C" {

typedef std::int32_t REX_int32_t;

typedef enum {
    kREXError_NoError = 1,
    kREXError_OperationAbortedByUser = 2,
    kREXError_NoCreatorInfoAvailable = 3,
    kREXError_NotEnoughMemoryForDLL = 100,
    kREXError_UnableToLoadDLL = 101,
    kREXError_DLLTooOld = 102,
    kREXError_DLLNotFound = 103,
    kREXError_APITooOld = 104,
    kREXError_OutOfMemory = 105,
    kREXError_FileCorrupt = 106,
    kREXError_REX2FileTooNew = 107,
    kREXError_FileHasZeroLoopLength = 108,
    kREXImplError_DLLNotInitialized = 200,
    kREXImplError_DLLAlreadyLoaded = 201,
    kREXImplError_InvalidHandle = 202,
    kREXImplError_InvalidSize = 203,
    kREXImplError_InvalidArgument = 204,
    kREXImplError_InvalidSlice = 205,
    kREXImplError_InvalidSampleRate = 206,
    kREXImplError_BufferTooSmall = 207,
    kREXImplError_IsBeingPreviewed = 208,
    kREXImplError_NotBeingPreviewed = 209,
    kREXImplError_InvalidTempo = 210,
    kREXError_Undefined = 666
} REXError;

typedef enum { kREXCallback_Abort = 1, kREXCallback_Continue = 2 } REXCallbackResult;

typedef struct REXOpaqueHandle* REXHandle;

// The loop: tempo in thousandths of a beat per minute, length in PPQ ticks (15,360 a quarter note).
typedef struct {
    REX_int32_t fChannels;
    REX_int32_t fSampleRate;
    REX_int32_t fSliceCount;
    REX_int32_t fTempo;
    REX_int32_t fOriginalTempo;
    REX_int32_t fPPQLength;
    REX_int32_t fTimeSignNom;
    REX_int32_t fTimeSignDenom;
    REX_int32_t fBitDepth;
} REXInfo;

typedef struct {
    REX_int32_t fPPQPos;
    REX_int32_t fSampleLength;
} REXSliceInfo;

typedef struct {
    char fName[256];
    char fCopyright[256];
    char fURL[256];
    char fEmail[256];
    char fFreeText[256];
} REXCreatorInfo;

typedef REXCallbackResult (*REXCreateCallback)(REX_int32_t percentFinished, void* userData);

REXError REXLoadDLL(void);
void REXUnloadDLL(void);
REXError REXCreate(REXHandle* handle, const char buffer[], REX_int32_t size, REXCreateCallback callbackFunc,
                   void* userData);
void REXDelete(REXHandle* handle);
REXError REXGetInfo(REXHandle handle, REX_int32_t infoSize, REXInfo* info);
REXError REXGetInfoFromBuffer(REX_int32_t bufferSize, const char buffer[], REX_int32_t infoSize, REXInfo* info);
REXError REXGetCreatorInfo(REXHandle handle, REX_int32_t creatorInfoSize, REXCreatorInfo* creatorInfo);
REXError REXGetSliceInfo(REXHandle handle, REX_int32_t sliceIndex, REX_int32_t sliceInfoSize, REXSliceInfo* sliceInfo);
REXError REXSetOutputSampleRate(REXHandle handle, REX_int32_t outputSampleRate);
REXError REXRenderSlice(REXHandle handle, REX_int32_t sliceIndex, REX_int32_t bufferFrameLength, float* outputBuffers[2]);
REXError REXStartPreview(REXHandle handle);
REXError REXStopPreview(REXHandle handle);
REXError REXRenderPreviewBatch(REXHandle handle, REX_int32_t framesToRender, float* outputBuffers[2]);
REXError REXSetPreviewTempo(REXHandle handle, REX_int32_t tempo);

}  // extern "C"

namespace KXREX {
// The folder of the running program (the folder of /proc/self/exe) unless a host set another.
std::string applicationFolder();
void setApplicationFolder(const std::string& folder);
// Every folder searched, in order (see above).
std::vector<std::string> searchFolders();
// The library's names, in the order they are looked for.
const std::vector<std::string>& libraryNames();
bool isLoaded();
// The path of the loaded library's shared object; empty when none is loaded.
std::string loadedPath();
}  // namespace KXREX
