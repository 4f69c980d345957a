#include "netlist/NetlistReader.h"

#include <cctype>

#include "netlist/NetlistError.h"

namespace kelm {

namespace {

const int kMaxIncludeDepth = 16;

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\f' || c == '\v' || c == '\r' || c == '\n'; }

std::string trimLeft(const std::string& s) {
    size_t p = 0;
    while (p < s.size() && isSpace(s[p])) ++p;
    return s.substr(p);
}

// The line without its trailing comment: from ';' on, or from '$' after a blank.
std::string withoutComment(const std::string& s) {
    size_t end = s.size();
    int braces = 0;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '{') ++braces;
        if (s[i] == '}' && braces > 0) --braces;
        if (braces) continue;
        if (s[i] == ';' || (s[i] == '$' && i > 0 && isSpace(s[i - 1]))) {
            end = i;
            break;
        }
    }
    return s.substr(0, end);
}

} // namespace

struct NetlistReader::State {
    Netlist netlist;
    Netlist::Subcircuit* current = nullptr;
    std::vector<std::pair<Netlist::Subcircuit*, Netlist::Place>> open;  // .subckt lines not yet closed
    bool inControl = false;
    bool ended = false;
    bool probesTaken = false;
    int depth = 0;
};

std::vector<std::string> NetlistReader::tokenize(const std::string& text) {
    std::vector<std::string> tokens;
    std::string word;
    auto flush = [&] {
        if (word.empty()) return;
        const std::string l = lower(word);
        if (l.compare(0, 7, "params:") == 0 && word.size() > 7) {
            tokens.push_back(word.substr(0, 7));
            tokens.push_back(word.substr(7));
        } else
            tokens.push_back(word);
        word.clear();
    };
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (isSpace(c)) {
            flush();
        } else if (c == '{') {
            flush();
            int depth = 0;
            size_t j = i;
            for (; j < text.size(); ++j) {
                if (text[j] == '{') ++depth;
                if (text[j] == '}' && --depth == 0) break;
            }
            if (j >= text.size()) throw NetlistError(NetlistError::Syntax, text.substr(i), "'{' without '}'");
            tokens.push_back(text.substr(i, j - i + 1));
            i = j;
        } else if (c == '\'' || c == '"') {
            flush();
            size_t j = text.find(c, i + 1);
            if (j == std::string::npos)
                throw NetlistError(NetlistError::Syntax, text.substr(i), std::string("unclosed ") + c);
            const std::string inner = text.substr(i + 1, j - i - 1);
            // 'expression' is a braced expression; "text" a word (a file name).
            tokens.push_back(c == '\'' ? "{" + inner + "}" : inner);
            i = j;
        } else if (c == '=' || c == '(' || c == ')' || c == ',') {
            flush();
            tokens.push_back(std::string(1, c));
        } else {
            word += c;
        }
    }
    flush();
    return tokens;
}

std::string NetlistReader::resolve(const std::string& including, const std::string& path) {
    if (path.empty() || path[0] == '/') return path;
    const size_t slash = including.rfind('/');
    return slash == std::string::npos ? path : including.substr(0, slash + 1) + path;
}

Netlist NetlistReader::read(const std::string& text, const std::string& fileName) {
    State state;
    state.current = state.netlist.top.get();
    readText(text, fileName, true, state);
    if (!state.open.empty()) {
        const auto& o = state.open.back();
        throw NetlistError(NetlistError::Syntax, o.first->name, ".subckt " + o.first->name + " without .ends")
            .at(o.second.file, o.second.line);
    }
    return std::move(state.netlist);
}

void NetlistReader::readText(const std::string& text, const std::string& fileName, bool hasTitle, State& state) {
    std::vector<std::string> lines;
    size_t start = 0;
    while (start <= text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        std::string line = text.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        lines.push_back(line);
        start = end + 1;
    }
    size_t first = 0;
    if (hasTitle && !lines.empty()) {
        state.netlist.title = lines[0];
        first = 1;
    }
    // Logical lines: a card and the + lines after it (comment lines between them allowed).
    std::string pending;
    Netlist::Place pendingPlace;
    auto flush = [&] {
        if (pending.empty()) return;
        std::string t = pending;
        pending.clear();
        try {
            card(t, pendingPlace, state);
        } catch (NetlistError& e) {
            e.at(pendingPlace.file, pendingPlace.line);
            throw;
        }
    };
    for (size_t i = first; i < lines.size() && !state.ended; ++i) {
        const Netlist::Place place{fileName, static_cast<int>(i) + 1};
        const std::string t = trimLeft(lines[i]);
        if (t.empty()) continue;
        if (t[0] == '*') {
            if (!state.inControl && lower(t.substr(0, 5)) == "*kelm" && (t.size() == 5 || isSpace(t[5]))) {
                flush();
                Netlist::Directive d;
                d.place = place;
                d.words = tokenize(withoutComment(t.substr(5)));
                state.netlist.directives.push_back(d);
            }
            continue;
        }
        if (t[0] == '+') {
            if (pending.empty()) {
                if (state.inControl) continue;
                throw NetlistError(NetlistError::Syntax, "+", "a continuation line with no card before it")
                    .at(place.file, place.line);
            }
            pending += " " + withoutComment(t.substr(1));
            continue;
        }
        flush();
        if (state.ended) break;
        pending = withoutComment(t);
        pendingPlace = place;
        if (trimLeft(pending).empty()) pending.clear();
    }
    flush();
}

namespace {

// name = value pairs from tokens[from] on; a value runs up to the next "name =".
std::vector<Netlist::Parameter> pairs(const std::vector<std::string>& tokens, size_t from,
                                      const Netlist::Place& place, std::vector<std::string>* loose = nullptr) {
    std::vector<Netlist::Parameter> list;
    size_t i = from;
    while (i < tokens.size()) {
        const std::string& t = tokens[i];
        if (lower(t) == "params:" || t == "(" || t == ")" || t == ",") {
            ++i;
            continue;
        }
        if (i + 1 >= tokens.size() || tokens[i + 1] != "=") {
            if (!loose) throw NetlistError(NetlistError::Syntax, t, "expected name=value, found '" + t + "'");
            loose->push_back(t);
            ++i;
            continue;
        }
        if (t == "=") throw NetlistError(NetlistError::Syntax, t, "'=' without a name");
        Netlist::Parameter p;
        p.name = lower(t);
        p.place = place;
        size_t j = i + 2;
        std::string value;
        while (j < tokens.size() && !(j + 1 < tokens.size() && tokens[j + 1] == "=")) {
            if (tokens[j] != "," && !(loose && (tokens[j] == "(" || tokens[j] == ")")))
                value += (value.empty() ? "" : " ") + tokens[j];
            ++j;
        }
        if (value.empty()) throw NetlistError(NetlistError::Syntax, t, "'" + t + "=' without a value");
        p.expression = value;
        list.push_back(p);
        i = j;
    }
    return list;
}

} // namespace

void NetlistReader::card(const std::string& text, const Netlist::Place& place, State& state) {
    const std::vector<std::string> tokens = tokenize(text);
    if (tokens.empty()) return;
    const std::string keyword = lower(tokens[0]);
    if (state.inControl) {
        if (keyword == ".endc") state.inControl = false;
        return;
    }
    Netlist& n = state.netlist;
    Netlist::Subcircuit& sub = *state.current;
    auto note = [&](const std::string& what, bool shown = false) { n.notes.push_back({place, what, shown}); };
    if (keyword[0] != '.') {
        if (!std::isalpha(static_cast<unsigned char>(keyword[0])))
            throw NetlistError(NetlistError::Syntax, tokens[0], "'" + tokens[0] + "' is not an element name");
        sub.elements.push_back({place, tokens, text});
        return;
    }
    if (keyword == ".subckt") {
        if (tokens.size() < 2) throw NetlistError(NetlistError::Syntax, ".subckt", ".subckt without a name");
        auto def = std::make_shared<Netlist::Subcircuit>();
        def->name = tokens[1];
        def->parent = state.current;
        def->place = place;
        size_t i = 2;
        while (i < tokens.size() && lower(tokens[i]) != "params:" && !(i + 1 < tokens.size() && tokens[i + 1] == "=")) {
            if (tokens[i] == "(" || tokens[i] == ")" || tokens[i] == ",")
                throw NetlistError(NetlistError::Syntax, tokens[i], "unexpected '" + tokens[i] + "' in .subckt " + def->name);
            def->pins.push_back(lower(tokens[i++]));
        }
        def->defaults = pairs(tokens, i, place);
        const std::string key = lower(def->name);
        if (sub.subcircuits.count(key))
            throw NetlistError(NetlistError::Duplicate, def->name, "subcircuit " + def->name + " defined twice");
        sub.subcircuits[key] = def;
        state.open.push_back({def.get(), place});
        state.current = def.get();
        return;
    }
    if (keyword == ".ends") {
        if (state.open.empty()) throw NetlistError(NetlistError::Syntax, ".ends", ".ends without .subckt");
        state.current = state.open.back().first->parent;
        state.open.pop_back();
        return;
    }
    if (keyword == ".param") {
        for (const auto& p : pairs(tokens, 1, place)) sub.parameters.push_back(p);
        return;
    }
    if (keyword == ".model") {
        if (tokens.size() < 3) throw NetlistError(NetlistError::Syntax, ".model", ".model needs a name and a type");
        Netlist::Model m;
        m.name = tokens[1];
        m.type = lower(tokens[2]);
        m.place = place;
        std::vector<std::string> loose;
        m.parameters = pairs(tokens, 3, place, &loose);
        for (const std::string& l : loose)
            if (l != "(" && l != ")" && l != ",") note("model " + m.name + ": '" + l + "' without a value ignored");
        sub.models[lower(m.name)] = m;
        return;
    }
    if (keyword == ".include" || keyword == ".inc") {
        if (tokens.size() < 2) throw NetlistError(NetlistError::Include, keyword, keyword + " without a file");
        const std::string path = resolve(place.file, tokens[1]);
        std::string content;
        if (!readFile || !readFile(path, content))
            throw NetlistError(NetlistError::Include, tokens[1], "cannot read included file " + path);
        if (state.depth >= kMaxIncludeDepth)
            throw NetlistError(NetlistError::TooLarge, tokens[1], "included files nested too deeply at " + path);
        ++state.depth;
        readText(content, path, false, state);
        --state.depth;
        state.ended = false;  // an .end in an included file ends that file only
        return;
    }
    if (keyword == ".global") {
        for (size_t i = 1; i < tokens.size(); ++i) n.globals.push_back(lower(tokens[i]));
        return;
    }
    if (keyword == ".print" || keyword == ".plot" || keyword == ".save") {
        size_t i = 1;
        if (keyword != ".save") {
            if (tokens.size() < 2 || lower(tokens[1]) != "tran") return;
            i = 2;
        }
        if (state.probesTaken) return;
        std::vector<Netlist::Probe> probes;
        while (i < tokens.size()) {
            const std::string t = lower(tokens[i]);
            if ((t == "v" || t == "i") && i + 1 < tokens.size() && tokens[i + 1] == "(") {
                size_t close = i + 2;
                std::vector<std::string> inside;
                while (close < tokens.size() && tokens[close] != ")") {
                    if (tokens[close] != ",") inside.push_back(lower(tokens[close]));
                    ++close;
                }
                if (t == "v" && (inside.size() == 1 || inside.size() == 2))
                    probes.push_back({inside[0], inside.size() == 2 ? inside[1] : "", place});
                i = close + 1;
                continue;
            }
            if (keyword == ".save" && t != "all" && t != "(" && t != ")" && t != "," && t[0] != '@')
                probes.push_back({t, "", place});
            ++i;
        }
        if (!probes.empty()) {
            n.probes = probes;
            state.probesTaken = true;
        }
        return;
    }
    if (keyword == ".end") {
        state.ended = true;
        return;
    }
    if (keyword == ".control") {
        state.inControl = true;
        return;
    }
    if (keyword == ".lib")
        throw NetlistError(NetlistError::Unsupported, ".lib", ".lib is not supported: .include the model file");
    static const char* const quiet[] = {".options", ".option", ".opt",  ".tran",  ".op",     ".ac",     ".dc",
                                        ".temp",    ".ic",     ".nodeset", ".meas", ".measure", ".four", ".width",
                                        ".probe",   ".title",  ".csparam", ".noise", ".tf",     ".sens",   ".pz",
                                        ".disto",   ".endc"};
    for (const char* q : quiet)
        if (keyword == q) return;
    note("card " + tokens[0] + " ignored");
}

} // namespace kelm
