#include "plugin/gui/FileDialog.h"

namespace kelm {

bool FileDialog::available() { return false; }

bool FileDialog::open(void*, std::string&) { return false; }

} // namespace kelm
