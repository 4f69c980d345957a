#include "netlist/SystemDescription.h"

#include <cctype>
#include <cstdio>

#include "netlist/NetlistImporter.h"

namespace kelm {

namespace {

bool endsWith(const std::string& s, const char* suffix) {
    const std::string t(suffix);
    if (s.size() < t.size()) return false;
    for (size_t i = 0; i < t.size(); ++i)
        if (std::tolower(static_cast<unsigned char>(s[s.size() - t.size() + i])) != t[i]) return false;
    return true;
}

} // namespace

bool isNetlist(const std::string& text, const std::string& fileName) {
    for (const char* e : {".cir", ".net", ".sp", ".spice", ".ckt"})
        if (endsWith(fileName, e)) return true;
    if (endsWith(fileName, ".xml")) return false;
    // An XML document starts with '<' after any blanks and a byte-order mark.
    size_t p = 0;
    if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) p = 3;
    while (p < text.size() && std::isspace(static_cast<unsigned char>(text[p]))) ++p;
    return p < text.size() && text[p] != '<';
}

std::string systemDescription(const std::string& text, const std::string& fileName, double sampleRate) {
    if (!isNetlist(text, fileName)) return text;
    NetlistImporter::Options options;
    options.rate = sampleRate;
    const NetlistImporter::Result r = NetlistImporter(options).import(text, fileName);
    for (const std::string& m : r.messages) std::fprintf(stderr, "%s\n", m.c_str());
    return r.document;
}

} // namespace kelm
