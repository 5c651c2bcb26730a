// No description crashes the process: every attribute of the examples, removed or given a hostile
// value, either loads and runs or fails with an exception that carries a message.

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <cctype>
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

TEST(Robustness, HostileAttributesFailCleanly) {
    const std::vector<std::string> hostile = {"", "-1", "0", "abc", "1e30", "2147483648", "nan", "|"};
    // A netlist builds its tube tables at load (tens of milliseconds): fewer values there.
    const std::vector<std::string> hostileToNetlists = {"abc", "-1", "1e30"};
    int variants = 0, refused = 0;
    for (const char* example : {"/examples/tube-stage.xml", "/examples/oversampling.xml", "/docs/circuits.md"}) {
        std::string original = readFile(std::string(ORM_SOURCE_DIR) + example);
        if (original.compare(0, 2, "<?") != 0) {  // the netlist example inside the circuits guide
            const size_t start = original.find("```xml\n<System>") + 7;
            original = original.substr(start, original.find("```", start) - start);
        }
        // Every Name="value" of the document, found by its ="…" and the letters before it.
        for (size_t quote = original.find("=\""); quote != std::string::npos; quote = original.find("=\"", quote + 2)) {
            size_t at = quote;
            while (at > 0 && (std::isalpha(static_cast<unsigned char>(original[at - 1])) || original[at - 1] == '_')) --at;
            const size_t length = original.find('"', quote + 2) + 1 - at;
            const std::string attributeName = original.substr(at, quote - at);
            std::vector<std::string> replacements{""};  // the attribute removed
            const bool netlist = std::string(example).find("circuits") != std::string::npos;
            for (const std::string& value : netlist ? hostileToNetlists : hostile) replacements.push_back(attributeName + "=\"" + value + "\"");
            for (const std::string& replacement : replacements) {
                std::string variant = original;
                variant.replace(at, length, replacement);
                std::string message;
                ++variants;
                if (!loadsAndRuns(variant, message)) {
                    ++refused;
                    EXPECT_FALSE(message.empty()) << replacement;
                }
            }
        }
    }
    std::printf("%d variants, %d refused with a message, the rest ran\n", variants, refused);
}

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
