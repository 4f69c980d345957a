#include "engine/PropertyMap.h"

#include <cstdlib>
#include <sstream>

namespace kelm {

namespace {
template <typename T>
T extract(const std::string& text) {
    std::istringstream in(text);
    T value = T();
    in >> value;
    return value;
}
} // namespace

const std::function<scalar(const std::string&)> Conversions::toScalar = [](const std::string& s) {
    return extract<float>(s);
};
const std::function<double(const std::string&)> Conversions::toDouble = [](const std::string& s) {
    return extract<double>(s);
};
const std::function<int(const std::string&)> Conversions::toInt = [](const std::string& s) {
    return extract<int>(s);
};
const std::function<bool(const std::string&)> Conversions::toBool = [](const std::string& s) {
    return s == "true";
};
// The text is cut at each "|"; every non-empty piece is read as a double and
// narrowed. Empty pieces (doubled or trailing separators) are skipped.
const std::function<ScalarVectorPtr(const std::string&)> Conversions::toVector = [](const std::string& s) {
    auto result = std::make_shared<ScalarVector>();
    size_t start = 0;
    while (start <= s.size()) {
        size_t bar = s.find('|', start);
        if (bar == std::string::npos) bar = s.size();
        std::string piece = s.substr(start, bar - start);
        if (!piece.empty()) result->push_back(static_cast<scalar>(std::strtod(piece.c_str(), nullptr)));
        start = bar + 1;
    }
    return result;
};

} // namespace kelm
