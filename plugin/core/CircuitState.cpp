#include "plugin/core/CircuitState.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "plugin/core/DocumentError.h"

namespace kelm {

namespace {

const char* const kStateName = "(state)";

// One header line "key: value" at `pos`; false when the bytes end first.
bool readLine(const std::string& bytes, size_t& pos, std::string& key, std::string& value) {
    const size_t end = bytes.find('\n', pos);
    if (end == std::string::npos) return false;
    const std::string line = bytes.substr(pos, end - pos);
    pos = end + 1;
    const size_t colon = line.find(": ");
    if (colon == std::string::npos) {
        key = line;
        value.clear();
    } else {
        key = line.substr(0, colon);
        value = line.substr(colon + 2);
    }
    return true;
}

// Names and paths are single lines: anything that would end one is dropped.
std::string oneLine(const std::string& s) {
    std::string out;
    for (char c : s)
        if (c != '\n' && c != '\r' && c != '\0') out += c;
    return out;
}

} // namespace

std::string CircuitState::encode() const {
    std::string s = kMagic;
    s += "name: " + oneLine(name) + "\n";
    s += "path: " + oneLine(path) + "\n";
    s += std::string("reload: ") + (reload ? "1" : "0") + "\n";
    s += "parameters:";
    char number[32];
    for (float p : parameters) {
        std::snprintf(number, sizeof number, " %.9g", static_cast<double>(p));
        s += number;
    }
    s += "\ndocument: " + std::to_string(document.size()) + "\n";
    s += document;
    return s;
}

CircuitState CircuitState::decode(const void* data, size_t size) {
    if (!data || size == 0) throw DocumentError(DocumentError::Empty, kStateName, 0, "the state is empty");
    const std::string bytes(static_cast<const char*>(data), size);
    CircuitState state;
    const size_t magic = std::strlen(kMagic);
    if (bytes.compare(0, magic, kMagic) != 0) {
        state.document = bytes;  // a document's text alone
        return state;
    }
    state.hasHeader = true;
    size_t pos = magic;
    std::string key, value;
    while (readLine(bytes, pos, key, value)) {
        if (key == "name") {
            state.name = value;
        } else if (key == "path") {
            state.path = value;
        } else if (key == "reload") {
            state.reload = value == "1";
        } else if (key == "parameters") {
            const char* p = value.c_str();
            while (*p) {
                char* end = nullptr;
                const double v = std::strtod(p, &end);
                if (end == p) break;
                state.parameters.push_back(std::isfinite(v) ? static_cast<float>(v) : 0.0f);
                p = end;
            }
        } else if (key == "document") {
            char* end = nullptr;
            const unsigned long long length = std::strtoull(value.c_str(), &end, 10);
            if (value.empty() || *end != '\0' || length != size - pos)
                throw DocumentError(DocumentError::State, kStateName, 0,
                                    "the state's document length " + value + " does not match the " +
                                        std::to_string(size - pos) + " bytes that follow");
            state.document = bytes.substr(pos);
            return state;
        }
        // Other keys are from a later version: skipped.
    }
    throw DocumentError(DocumentError::State, kStateName, 0, "the state ends before its document");
}

} // namespace kelm
