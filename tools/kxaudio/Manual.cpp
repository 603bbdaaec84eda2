// The manual page, made from the same text as --help: every subcommand's help, with its example.

#include <sstream>
#include <string>

#include "Commands.h"
#include "KXBase/KXVersion.h"

namespace kxaudio {
namespace {

// Text as roff shows it: backslashes doubled, lines that would start a request protected.
std::string roff(const std::string& text) {
    std::ostringstream out;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::string escaped;
        for (char c : line) {
            if (c == '\\')
                escaped += "\\e";
            else if (c == '-')
                escaped += "\\-";
            else
                escaped += c;
        }
        if (!escaped.empty() && (escaped[0] == '.' || escaped[0] == '\'')) escaped.insert(0, "\\&");
        out << escaped << "\n";
    }
    return out.str();
}

}  // namespace

std::string manualPage(CLI::App& app) {
    std::ostringstream page;
    page << ".TH KXAUDIO 1 \"\" \"kxaudio " << KX_VERSION << "\" \"User Commands\"\n"
         << ".SH NAME\nkxaudio \\- open, inspect, measure, convert, tag and repair audio files\n"
         << ".SH SYNOPSIS\n.B kxaudio\n.I command\n[\\fIoptions\\fR] \\fIFILE\\fR...\n"
         << ".SH DESCRIPTION\n"
         << "Each command opens audio files through the KXAudioFile library: WAVE (with RF64 and BW64), AIFF and "
            "AIFF-C, CAF, Wave64, AU, Sound Designer I and II, REX2 (with the REX library) and the editor "
            "document. Commands over many files work on one file per core (\\fB-j\\fR), print each file's "
            "report whole and in the files' order, and with \\fB--json\\fR print one array with an entry per "
            "file: {\"path\", ...} for a file done, {\"path\", \"error\": {\"code\", \"domain\", \"action\", "
            "\"reason\"}} for a file refused.\n"
         << ".SH COMMANDS\n";
    for (CLI::App* command : app.get_subcommands({})) {
        page << ".SS " << command->get_name() << "\n.nf\n" << roff(command->help("kxaudio")) << ".fi\n";
    }
    page << ".SH EXIT STATUS\n0 when every file succeeded, 1 when any file failed, 2 for a usage error.\n"
         << ".SH ENVIRONMENT\n.TP\n.B KXAUDIO_DATA_DIR\nThe folder of the channel-name lists (default: "
            "share/kxaudio beside the installed library).\n"
         << ".SH SEE ALSO\n.BR sox (1),\n.BR soxi (1),\n.BR sndfile-info (1),\n.BR ffprobe (1)\n";
    return page.str();
}

}  // namespace kxaudio
