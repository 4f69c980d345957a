#pragma once
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>

#include "engine/KELMException.h"
#include "engine/Types.h"

namespace kelm {

// The process-wide conversions from property text to values.
struct Conversions {
    static const std::function<scalar(const std::string&)> toScalar;
    static const std::function<double(const std::string&)> toDouble;
    static const std::function<int(const std::string&)> toInt;
    static const std::function<bool(const std::string&)> toBool;
    static const std::function<ScalarVectorPtr(const std::string&)> toVector;
};

// Conversion chosen by the type of the target.
template <typename T> struct Convert;
template <> struct Convert<scalar> { static scalar from(const std::string& s) { return Conversions::toScalar(s); } };
template <> struct Convert<double> { static double from(const std::string& s) { return Conversions::toDouble(s); } };
template <> struct Convert<int> { static int from(const std::string& s) { return Conversions::toInt(s); } };
template <> struct Convert<bool> { static bool from(const std::string& s) { return Conversions::toBool(s); } };
template <> struct Convert<std::string> { static std::string from(const std::string& s) { return s; } };
template <> struct Convert<ScalarVectorPtr> { static ScalarVectorPtr from(const std::string& s) { return Conversions::toVector(s); } };

// All attributes of one Properties node: property name to value text.
// Text is converted only when a reader asks for a property.
class PropertyMap : public std::unordered_map<std::string, std::string> {
public:
    using std::unordered_map<std::string, std::string>::unordered_map;

    // Optional read: false (target untouched) when absent, else converts and stores.
    template <typename T>
    bool readOptional(const std::string& name, T& target) const {
        auto it = find(name);
        if (it == end()) return false;
        target = Convert<T>::from(it->second);
        return true;
    }

    // Optional read with a caller-supplied conversion.
    template <typename T, typename F>
    bool readOptional(const std::string& name, T& target, F convert) const {
        auto it = find(name);
        if (it == end()) return false;
        target = convert(it->second);
        return true;
    }

    // Required read: when absent, the message of the given exception is thrown
    // as a plain KELMException, whatever the class of the object passed.
    template <typename T>
    void readRequired(const std::string& name, T& target, const KELMException& missing) const {
        auto it = find(name);
        if (it == end()) throw KELMException(missing.message());
        target = Convert<T>::from(it->second);
    }

    template <typename T, typename F>
    void readRequired(const std::string& name, T& target, const KELMException& missing, F convert) const {
        auto it = find(name);
        if (it == end()) throw KELMException(missing.message());
        target = convert(it->second);
    }

    bool has(const std::string& name) const { return find(name) != end(); }
};

typedef std::shared_ptr<PropertyMap> PropertyMapPtr;

} // namespace kelm
