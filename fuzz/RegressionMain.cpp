// Runs a fuzz target's entry point once per file named on the command line (a directory
// stands for the files in it): the inputs that once failed, kept as regression cases.
#include <cstdint>
#include <cstdio>
#include <dirent.h>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {
void collect(const std::string& path, std::vector<std::string>& files) {
    struct stat st;
    if (stat(path.c_str(), &st) != 0) return;
    if (!S_ISDIR(st.st_mode)) {
        files.push_back(path);
        return;
    }
    if (DIR* d = opendir(path.c_str())) {
        while (dirent* e = readdir(d))
            if (e->d_name[0] != '.') collect(path + "/" + e->d_name, files);
        closedir(d);
    }
}
} // namespace

int main(int argc, char** argv) {
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) collect(argv[i], files);
    for (const auto& f : files) {
        std::ifstream in(f, std::ios::binary);
        std::ostringstream s;
        s << in.rdbuf();
        const std::string bytes = s.str();
        std::printf("%s\n", f.c_str());
        std::fflush(stdout);
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
    std::printf("%zu inputs run\n", files.size());
    return files.empty() ? 1 : 0;
}
