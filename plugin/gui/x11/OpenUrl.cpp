#include "plugin/gui/OpenUrl.h"

#include <spawn.h>
#include <sys/wait.h>

#include <thread>

extern char** environ;

namespace kelm {

bool openUrl(const std::string& address) {
    // The opener is started directly (no shell sees the address) and reaped on a
    // thread of its own, so that the GUI thread never waits for the browser.
    std::string program = "xdg-open", argument = address;
    char* argv[] = {&program[0], &argument[0], nullptr};
    pid_t pid = 0;
    if (posix_spawnp(&pid, "xdg-open", nullptr, nullptr, argv, environ) != 0) return false;
    std::thread([pid] {
        int status = 0;
        waitpid(pid, &status, 0);
    }).detach();
    return true;
}

} // namespace kelm
