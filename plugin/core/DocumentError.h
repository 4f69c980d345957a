#pragma once
#include <string>

#include "engine/KELMException.h"

namespace kelm {

// A document that cannot be loaded into Kelm Circuit: what is wrong, in which file and on
// which line (0 when the fault has no line of its own), and of what kind.
class DocumentError : public KELMException {
public:
    enum Kind {
        Empty,      // no text at all
        Binary,     // bytes that are no text (a NUL, or not a description nor a netlist)
        TooLarge,   // beyond the size or element limits
        Syntax,     // XML that does not parse
        Netlist,    // the netlist importer refused it
        Build,      // the engine refused the description
        TooSlow,    // it cannot run anywhere near real time here
        State       // a saved state that does not read
    };

    DocumentError(Kind kind, const std::string& file, int line, const std::string& message)
        : KELMException(place(file, line) + message), errorKind(kind), fileName(file), lineNumber(line), text(message) {}

    Kind kind() const { return errorKind; }
    const std::string& file() const { return fileName; }
    int line() const { return lineNumber; }
    // The message without the place.
    const std::string& detail() const { return text; }

private:
    static std::string place(const std::string& file, int line) {
        if (file.empty()) return "";
        return line > 0 ? file + ":" + std::to_string(line) + ": " : file + ": ";
    }

    Kind errorKind;
    std::string fileName;
    int lineNumber;
    std::string text;
};

} // namespace kelm
