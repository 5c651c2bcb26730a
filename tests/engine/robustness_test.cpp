// The circuit guide's netlist loads and runs, and each ordinary mistake in it is named at load.

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "support/TestSupport.h"

using namespace vrn;

namespace {

std::string readFile(const std::string& path) {
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

// Loads and runs a few blocks; false with the message when the system refuses.
bool loadsAndRuns(const std::string& xml, std::string& message) {
    try {
        auto driver = orm_test::loadSystem(xml);
        driver->setSamplingRate(48000.0f);
        driver->setMaxBlockSize(64);
        std::vector<scalar> left(64, 0.5f), right(64, -0.5f);
        std::vector<scalar*> inputs{left.data(), right.data()};
        for (int block = 0; block < 3; ++block) driver->process(inputs, 64);
        return true;
    } catch (const VRNException& error) {
        message = error.getMessage();
    } catch (const std::exception& error) {
        message = error.what();
    }
    return false;
}

}  // namespace

TEST(Robustness, NetlistMistakesAreNamedAtLoad) {
    // The circuit guide's netlist with one ordinary mistake each: the load fails and names it.
    std::string guide = readFile(std::string(ORM_SOURCE_DIR) + "/docs/circuits.md");
    const size_t start = guide.find("```xml\n<System>") + 7;
    guide = guide.substr(start, guide.find("```", start) - start);
    auto edited = [&](const std::string& from, const std::string& to) {
        std::string text = guide;
        const size_t at = text.find(from);
        EXPECT_NE(std::string::npos, at) << from;
        return at == std::string::npos ? text : text.replace(at, from.size(), to);
    };
    const std::string stageInputs = "<NumberOfInputs>1</NumberOfInputs>\n      <Inputs><Input Graph=\"Pre\"";
    const struct {
        std::string description;
        const char* words;
    } cases[] = {
        {edited("<Node Name=\"supply\"/><Node Name=\"plate\"/>", "<Node Name=\"supply\"/><Node Name=\"plate\"/><Node Name=\"GND\"/>"),
         "Resistor must have two nodes. Resistor name=Rp, nodes=3"},
        {edited("<Node Name=\"plate\"/><Node Name=\"grid\"/><Node Name=\"cathode\"/>", "<Node Name=\"plate\"/><Node Name=\"grid\"/>"),
         "Triode must have three nodes. Triode name=V1, nodes=2"},
        {edited("InputNumber=\"0\"", "InputNumber=\"1\""), "InputNumber out of range. VoltageInputSource name=Vin, InputNumber=1"},
        {edited(stageInputs, "<Inputs><Input Graph=\"Pre\""), "Inputs are wired to graph Stage, which declares no NumberOfInputs"},
        {edited("Type=\"12AX7\"", "Type=\"12AX7\" DeltaVgk=\"0\""), "DeltaVgk must be greater than 0. Triode name=V1"},
        {edited("Type=\"12AX7\"", "Type=\"12AX7\" DeltaVgk=\"1e-7\""), "the anode current table would hold"},
        {edited("<Node Name=\"in\"/><Node Name=\"grid\"/>", "<Node Name=\"in\"/><Node Name=\"mid\"/></Element>"
                "<Element Type=\"Capacitor\" Name=\"C2\"><Properties Capacitance=\"22e-9\"/><Node Name=\"mid\"/><Node Name=\"grid\"/>"),
         "singular matrix: node mid has no DC path to ground in Circuit Stage"},
    };
    for (const auto& c : cases) {
        std::string message;
        EXPECT_FALSE(loadsAndRuns(c.description, message)) << c.words;
        EXPECT_NE(std::string::npos, message.find(c.words)) << message;
    }
    std::string message;
    EXPECT_TRUE(loadsAndRuns(guide, message)) << message;
}
