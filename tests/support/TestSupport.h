#pragma once
// Small helpers shared by the test suites.

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "engine/Driver.h"
#include "engine/Exceptions.h"

namespace orm_test {

// Runs statement and expects an exception of type T with exactly this message.
#define EXPECT_VRN_MESSAGE(statement, Type, text)                                   \
    do {                                                                            \
        bool thrown_ = false;                                                       \
        try {                                                                       \
            statement;                                                              \
        } catch (const Type& error_) {                                              \
            thrown_ = true;                                                         \
            EXPECT_EQ(std::string(text), error_.getMessage());                      \
        }                                                                           \
        EXPECT_TRUE(thrown_) << "no " #Type " from " #statement;                    \
    } while (0)

// The message of the exception an action throws, "" when it throws none.
inline std::string messageOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const vrn::VRNException& error) {
        return error.getMessage();
    } catch (const std::exception& error) {
        return error.what();
    }
    return "";
}

// A Driver initialised from description text.
inline std::shared_ptr<vrn::Driver> loadSystem(const std::string& xml) {
    auto driver = vrn::Driver::create();
    std::istringstream stream(xml);
    driver->init(stream);
    return driver;
}

// The message of the VRNException that loading xml throws ("" if it loads).
inline std::string loadError(const std::string& xml) {
    try {
        loadSystem(xml);
    } catch (const vrn::VRNException& error) {
        return error.getMessage();
    }
    return "";
}

// A one-input, one-output DSP graph of Gain elements chained in document order.
inline std::string gainGraph(const std::string& name, const std::string& source, const std::string& node,
                             double gain = 1.0, const std::string& extraAttributes = "") {
    std::ostringstream xml;
    xml << "<Graph Name=\"" << name << "\" Type=\"DSP\" " << extraAttributes << ">"
        << "<NumberOfInputs>1</NumberOfInputs>"
        << "<Inputs><Input Graph=\"" << source << "\" Node=\"" << node << "\"/></Inputs>"
        << "<Element Type=\"Gain\" Name=\"G\"><Properties Gain=\"" << gain << "\"/>"
        << "<Inputs><Input Port=\"in\" Element=\"Graph\" Output=\"0\"/></Inputs></Element>"
        << "<Output><Node Name=\"out\" Element=\"G\" Port=\"out\"/></Output></Graph>";
    return xml.str();
}

inline std::string systemOf(const std::string& graphs, const std::string& outputs, const std::string& controls = "") {
    return "<System><Graphs>" + graphs + "</Graphs><Outputs>" + outputs + "</Outputs>" + controls + "</System>";
}

}  // namespace orm_test
