#pragma once
// The folders the library works in. Each is settable by the host (and by tests).
//   applicationSupportDirectory  "$XDG_DATA_HOME/kxaudio" (XDG_DATA_HOME defaults to ~/.local/share)
//   temporaryDirectory           "$TMPDIR", else "/tmp"
//   libraryDataDirectory         the data shipped with the library (channel names and
//                                abbreviations): "$KXAUDIO_DATA_DIR", else share/kxaudio of
//                                the installed tree the library was loaded from (found relative
//                                to the shared library, or to the program that linked the static
//                                one), else "" (the built-in lists only)

#include <string>

namespace KXDirectories {
std::string applicationSupportDirectory();
void setApplicationSupportDirectory(const std::string& path);
std::string temporaryDirectory();
void setTemporaryDirectory(const std::string& path);
std::string libraryDataDirectory();
void setLibraryDataDirectory(const std::string& path);
}  // namespace KXDirectories
