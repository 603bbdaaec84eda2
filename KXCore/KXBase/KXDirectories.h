#pragma once
// The folders the library works in. Each is settable by the host (and by tests).
//   applicationSupportDirectory  "$XDG_DATA_HOME/kxaudio" (XDG_DATA_HOME defaults to ~/.local/share)
//   temporaryDirectory           "$TMPDIR", else "/tmp"
//   libraryDataDirectory         the data shipped with the library (channel names and
//                                abbreviations): "$KXAUDIO_DATA_DIR", else the folder the build
//                                was configured with

#include <string>

namespace KXDirectories {
std::string applicationSupportDirectory();
void setApplicationSupportDirectory(const std::string& path);
std::string temporaryDirectory();
void setTemporaryDirectory(const std::string& path);
std::string libraryDataDirectory();
void setLibraryDataDirectory(const std::string& path);
}  // namespace KXDirectories
