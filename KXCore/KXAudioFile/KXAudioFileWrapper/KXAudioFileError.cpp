#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"

namespace {

struct Reason {
    std::int64_t code;
    const char* text;
};

constexpr Reason kReasons[] = {
    {KXAudioFileErrorInitializationFailed, "the initialization failed."},
    {KXAudioFileErrorNoData, "the file has no data."},
    {KXAudioFileErrorIncorrectFileSize, "the described file size is incorrect."},
    {KXAudioFileErrorMissingRequiredData, "the file is missing required data."},
    {KXAudioFileErrorUnsupportedFormat, "the file format is unsupported."},
    {KXAudioFileErrorCorruptFile, "the file is corrupt."},
    {KXAudioFileErrorChunkVerificationFailed, "the chunk verification failed."},
    {KXAudioFileErrorUserCancelled, "the user cancelled the operation."},
    {KXAudioFileErrorFileSizeAdjusted, "the file size was adjusted."},
};

}  // namespace

namespace KXAudioFileError {

std::string failureReasonForError(std::int64_t code) {
    for (const Reason& reason : kReasons)
        if (reason.code == code) return reason.text;
    return "an undefined error occurred: " + std::to_string(code);
}

KXError errorWithCode(std::int64_t code, const std::string& action) {
    return KXError(domain, code, action, failureReasonForError(code), alertMessage);
}

bool fail(KXError* error, std::int64_t code, const std::string& action) {
    KXSetError(error, errorWithCode(code, action));
    return false;
}

KXError tooManyFramesError(const std::string& action) {
    return KXError(domain, KXAudioFileErrorUnsupportedFormat, action,
                   "the file holds more than 4294967295 frames, the most an audio file can hold here.");
}

}  // namespace KXAudioFileError
