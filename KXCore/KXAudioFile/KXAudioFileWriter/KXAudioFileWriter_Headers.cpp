// The header writers of each output format, called by beginWrite (before the samples) and
// endWrite (after them). Headerless formats ('RAW ', and the editor document's part files)
// have none. A format whose header writer is not part of the library yet refuses with -6.

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"

namespace {

struct HeaderRule {
    std::uint32_t format;
    const char* action;  // what a refusal says was being done
};

constexpr HeaderRule kHeaders[] = {
    {KXFourCC("AIFF"), "Writing the AIFF header"},  {KXFourCC("APLL"), "Writing the AIFF header"},
    {KXFourCC("WAVE"), "Writing the WAVE header"},  {KXFourCC("ACID"), "Writing the WAVE header"},
    {KXFourCC("CAFF"), "Writing the CAF header"},   {KXFourCC("SDII"), "Writing the SDII header"},
    {KXAudioFileWriter::kSplitSDII, "Writing the SDII header"},
    {KXFourCC("SFIL"), "Writing the SFIL header"},  {KXFourCC("ULAW"), "Writing the AU header"},
};

const HeaderRule* headerRuleForFormat(std::uint32_t format) {
    for (const HeaderRule& rule : kHeaders)
        if (rule.format == format) return &rule;
    return nullptr;
}

bool refuse(const char* action, KXError* error) {
    KXSetError(error, KXAudioFileError::errorWithCode(KXAudioFileErrorUnsupportedFormat, action));
    return false;
}

}  // namespace

bool KXAudioFileWriter::writePreDataHeader(KXWritingFile& /*file*/, KXError* error) {
    const HeaderRule* rule = headerRuleForFormat(format_);
    return rule ? refuse(rule->action, error) : true;
}

bool KXAudioFileWriter::writePostDataHeader(KXWritingFile& /*file*/, KXError* error) {
    // Sound Designer II writes everything before the samples.
    if (format_ == KXFourCC("SDII") || format_ == kSplitSDII) return true;
    const HeaderRule* rule = headerRuleForFormat(format_);
    return rule ? refuse(rule->action, error) : true;
}

bool KXAudioFileWriter::writeAnalysisHeader(KXError* error) { return refuse("Writing the analysis", error); }

bool KXAudioFileWriter::writeTessaroHeader(KXError* error) { return refuse("Writing the Tessaro header", error); }
