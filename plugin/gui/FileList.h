#pragma once
#include <string>
#include <vector>

namespace kelm {

// A folder's entries as a file browser lists them: its sub-folders, then the files whose
// names end in one of the extensions (case ignored), each group sorted by name; hidden
// entries (a leading '.') are left out. Paths are UTF-8.
class FileList {
public:
    struct Entry {
        std::string name;
        bool folder = false;
    };
    // Empty when the folder cannot be read.
    static std::vector<Entry> list(const std::string& folder, const std::vector<std::string>& extensions);
    // The folder above, or the folder itself at the top.
    static std::string parent(const std::string& folder);
    static std::string join(const std::string& folder, const std::string& name);
    // A folder to start in: the one holding `path` when there is one, else the home folder.
    static std::string startFolder(const std::string& path);
};

} // namespace kelm
