#pragma once
#include <string>

#include "engine/KELMException.h"

namespace kelm {

// A netlist the importer cannot turn into a system description: what kind of fault,
// the offending name, and where (file and line, when the fault has a place).
class NetlistError : public KELMException {
public:
    enum Kind {
        Syntax,           // a card that does not read
        Unsupported,      // an element or card the engine has nothing for
        UnknownModel,     // a device names a model without a card or a built-in
        UnknownSubcircuit,
        Expression,       // a value or {expression} that does not parse or evaluate
        DanglingNode,     // a node connected once
        MissingInput,
        MissingOutput,
        Duplicate,        // two elements of one name
        Include,          // an .include that cannot be read
        TooLarge          // nesting or size beyond the importer's limits
    };

    NetlistError(Kind kind, const std::string& name, const std::string& what)
        : KELMException(what), errorKind(kind), offending(name), detail(what) {}

    Kind kind() const { return errorKind; }
    const std::string& name() const { return offending; }
    const std::string& file() const { return fileName; }
    int line() const { return lineNumber; }
    // The error placed at file:line; a place already given is kept.
    NetlistError& at(const std::string& file, int line) {
        if (lineNumber == 0 && fileName.empty()) {
            fileName = file;
            lineNumber = line;
            msg = (line > 0 ? file + ":" + std::to_string(line) : file) + ": " + detail;
        }
        return *this;
    }

private:
    Kind errorKind;
    std::string offending;
    std::string detail;
    std::string fileName;
    int lineNumber = 0;
};

} // namespace kelm
