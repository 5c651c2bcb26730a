#pragma once
// The failure classes of the engine: thrown by value, not derived from std::exception.

#include <string>

namespace vrn {

class VRNException {
public:
    VRNException(const char* message) : message(message) {}
    VRNException(const std::string& message) : message(message) {}
    virtual ~VRNException() {}
    virtual const std::string& getMessage() const { return message; }

protected:
    std::string message;
};

// A bad property, a bad port name, a bad index.
class InvalidArgumentException : public VRNException {
public:
    using VRNException::VRNException;
};

// An operation that this element does not have.
class OperationNotSupportedException : public VRNException {
public:
    using VRNException::VRNException;
};

}  // namespace vrn
