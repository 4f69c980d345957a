#pragma once
#include <string>

namespace kelm {

// The operating system's own open-file dialog, where the platform has one (Windows); on
// X11 there is none and the editor shows a browser of its own.
class FileDialog {
public:
    static bool available();
    // Asks for a system description or netlist (.xml, .cir, .net, any file) over the window
    // `parent`; false when the user cancelled. Blocks the GUI thread while it is open.
    static bool open(void* parent, std::string& path);
};

} // namespace kelm
