#include <stdexcept>

#include "cli/Renderer.h"

namespace kelm {
namespace cli {

std::unique_ptr<Renderer> makeBuiltInRenderer() {
    throw std::runtime_error("the built-in preamp is not available yet; give a system with --system FILE.xml");
}

int writeTables(const std::string&) { throw std::runtime_error("the built-in tables are not available yet"); }

} // namespace cli
} // namespace kelm
