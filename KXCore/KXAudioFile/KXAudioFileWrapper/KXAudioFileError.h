#pragma once
// The audio-file error domain: negative codes, each with its reason text.

#include <cstdint>
#include <string>

#include "KXBase/KXError.h"

enum KXAudioFileErrorCode : std::int64_t {
    KXAudioFileErrorInitializationFailed = -1,
    KXAudioFileErrorUndefined = -2,  // deliberately without a reason of its own
    KXAudioFileErrorNoData = -3,
    KXAudioFileErrorIncorrectFileSize = -4,
    KXAudioFileErrorMissingRequiredData = -5,
    KXAudioFileErrorUnsupportedFormat = -6,
    KXAudioFileErrorCorruptFile = -7,
    KXAudioFileErrorChunkVerificationFailed = -8,
    KXAudioFileErrorUserCancelled = -9,
    KXAudioFileErrorFileSizeAdjusted = -10,
};

namespace KXAudioFileError {

inline constexpr const char* domain = "KXAudioFileErrorDomain";
inline constexpr const char* alertMessage = "An audio file error occurred";

// The reason text of a code; codes without one give "an undefined error occurred: <code>".
std::string failureReasonForError(std::int64_t code);
// An error of this domain; `action` says what was being done ("Parsing the AIFF file").
KXError errorWithCode(std::int64_t code, const std::string& action);
// Sets `*error` (when given) to errorWithCode(code, action) and answers false: the one way the
// library's operations fail with a code of this domain.
bool fail(KXError* error, std::int64_t code, const std::string& action);
// -6 for a file of more frames than the model's 2^32 − 1, which it cannot count.
KXError tooManyFramesError(const std::string& action);

}  // namespace KXAudioFileError
