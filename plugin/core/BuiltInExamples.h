#pragma once
#include <string>

namespace kelm {

// The example documents compiled into Kelm Circuit (examples/*.xml, *.cir and *.net at
// build time), in the order of their file names, so that the plug-in plays before any file
// is chosen.
class BuiltInExamples {
public:
    static int count();
    // The file name, e.g. "fuzz-face.xml"; "" outside 0 .. count() - 1.
    static std::string name(int index);
    static std::string text(int index);
    // The index of the example of that file name, -1 when there is none.
    static int find(const std::string& name);
};

} // namespace kelm
