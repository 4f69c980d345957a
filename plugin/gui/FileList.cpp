#include "plugin/gui/FileList.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>

namespace kelm {

namespace fs = std::filesystem;

namespace {

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

std::string utf8(const fs::path& p) {
    const auto s = p.u8string();
    return std::string(s.begin(), s.end());
}

} // namespace

std::vector<FileList::Entry> FileList::list(const std::string& folder, const std::vector<std::string>& extensions) {
    std::vector<Entry> folders, files;
    std::error_code error;
    fs::directory_iterator it(fs::u8path(folder), fs::directory_options::skip_permission_denied, error);
    if (error) return {};
    for (; it != fs::directory_iterator(); it.increment(error)) {
        if (error) break;
        const std::string name = utf8(it->path().filename());
        if (name.empty() || name[0] == '.') continue;
        std::error_code kind;
        if (it->is_directory(kind)) {
            folders.push_back({name, true});
            continue;
        }
        const std::string ext = lower(utf8(it->path().extension()));
        if (std::find(extensions.begin(), extensions.end(), ext) != extensions.end()) files.push_back({name, false});
    }
    auto byName = [](const Entry& a, const Entry& b) { return lower(a.name) < lower(b.name); };
    std::sort(folders.begin(), folders.end(), byName);
    std::sort(files.begin(), files.end(), byName);
    folders.insert(folders.end(), files.begin(), files.end());
    return folders;
}

std::string FileList::parent(const std::string& folder) {
    const fs::path p = fs::u8path(folder).lexically_normal();
    const fs::path up = (p.has_filename() ? p : p.parent_path()).parent_path();
    return up.empty() ? folder : utf8(up);
}

std::string FileList::join(const std::string& folder, const std::string& name) {
    return utf8(fs::u8path(folder) / fs::u8path(name));
}

std::string FileList::startFolder(const std::string& path) {
    std::error_code error;
    if (!path.empty()) {
        const fs::path folder = fs::u8path(path).parent_path();
        if (!folder.empty() && fs::is_directory(folder, error)) return utf8(folder);
    }
    for (const char* variable : {"HOME", "USERPROFILE"})
        if (const char* home = std::getenv(variable))
            if (fs::is_directory(fs::u8path(home), error)) return home;
    return utf8(fs::current_path(error));
}

} // namespace kelm
