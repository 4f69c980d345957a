#pragma once
#include <string>

namespace kelm {

// Base of every failure the engine reports. Deliberately not derived from
// std::exception: callers catch it by name.
class KELMException {
public:
    KELMException(const char* message) : msg(message ? message : "") {}
    KELMException(const std::string& message) : msg(message) {}
    virtual ~KELMException() {}
    virtual const std::string& message() const { return msg; }

protected:
    std::string msg;
};

} // namespace kelm
