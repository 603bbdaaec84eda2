#pragma once
// KXUserInterface: the services the library asks of the application it runs in — alerts, the
// open panel, the modal error display, the pasteboard, and the workspace (trash, "file system
// changed").
//
// The host installs its own; the default is headless: an alert answers its default button, the
// open panel answers nothing, the pasteboard lives in the process, errors go to the application
// log, the workspace's notices are dropped, and recycling moves files into the freedesktop.org trash.

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KXBase/KXData.h"
#include "KXBase/KXError.h"

struct KXAlert {
    std::string title;
    std::string message;
    std::vector<std::string> buttons;  // the first is the right-most, as on the desktop
    std::size_t defaultButton = 0;     // what a headless run answers
};

struct KXOpenPanelRequest {
    std::string title;
    std::string message;
    std::string directory;
    std::vector<std::string> allowedExtensions;
    bool canChooseDirectories = false;
    bool allowsMultipleSelection = false;
};

class KXUserInterface {
public:
    virtual ~KXUserInterface() = default;

    // The index of the button that was chosen.
    virtual std::size_t runAlert(const KXAlert& alert);
    virtual std::optional<std::string> runOpenPanel(const KXOpenPanelRequest& request);
    virtual void presentError(const KXError& error);
    // Moves the files `names` of `directory` to the trash; true when all went.
    virtual bool recycle(const std::string& directory, const std::vector<std::string>& names,
                         KXError* error = nullptr);
    virtual void noteFileSystemChanged(const std::string& path);
    // The pasteboard: the last data put there under a type name. The headless one keeps it in
    // the process.
    virtual void writePasteboard(const std::string& type, const KXData& data);
    virtual std::optional<KXData> readPasteboard(const std::string& type);

    // The installed interface (the headless one until the host installs another).
    static KXUserInterface& shared();
    static void install(std::shared_ptr<KXUserInterface> userInterface);
};

namespace KXTrash {
// The home trash, "$XDG_DATA_HOME/Trash" (XDG_DATA_HOME defaults to ~/.local/share).
std::string homeTrashDirectory();
// Moves one file into the freedesktop.org trash: to the home trash when it
// is on the same file system, else to "$topdir/.Trash-$uid" of the file's own volume. Writes the
// ".trashinfo" record first, as freedesktop.org trash readers expect, and removes it again on failure.
// Answers the path the file now has.
std::optional<std::string> trashItemAtPath(const std::string& path, KXError* error = nullptr);
}  // namespace KXTrash
