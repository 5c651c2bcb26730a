#include "tools/orm-render/Check.h"

#include <cstdio>
#include <exception>

#include "circuit/Circuit.h"
#include "engine/Control.h"
#include "engine/Exceptions.h"
#include "tools/orm-render/SystemRenderer.h"

namespace orm_render {

namespace {

// Rates are shown at a host rate of 48 kHz: a graph runs at that times its multiplier.
constexpr double kShownRate = 48000.0;

void describe(const std::string& path, vrn::Driver& driver) {
    std::printf("%s: loads\n", path.c_str());
    std::printf("graphs, in processing order (rates at a host rate of %.0f Hz):\n", kShownRate);
    const vrn::GraphList& graphs = *driver.getGraphs();
    for (int index : driver.getOrder()) {
        const vrn::Graph& graph = *graphs[static_cast<size_t>(index)];
        const double multiplier = driver.getMultipliers()[static_cast<size_t>(index)];
        std::printf("  %s: %s, x%g (%g Hz), %d input%s, %d output%s", graph.getName().c_str(),
                    graph.getType() == 1 ? "MNA" : "DSP", multiplier, multiplier * kShownRate, graph.getNumberOfInputs(),
                    graph.getNumberOfInputs() == 1 ? "" : "s", graph.getNumberOfOutputs(),
                    graph.getNumberOfOutputs() == 1 ? "" : "s");
        if (auto* circuit = dynamic_cast<const vrn::Circuit*>(&graph)) {
            const auto& names = circuit->getMNAContext()->getOutputNames();
            const char* separator = " (";
            for (size_t i = 0; names && i < names->size(); ++i, separator = ", ")
                std::printf("%s%s", separator, (*names)[i].c_str());
            if (names && !names->empty()) std::printf(")");
        }
        std::printf("\n");
    }
    std::printf("system: %zu input%s, %zu output%s\n", driver.getNumberOfInputs(),
                driver.getNumberOfInputs() == 1 ? "" : "s", driver.getNumberOfOutputs(),
                driver.getNumberOfOutputs() == 1 ? "" : "s");
    const vrn::ControlList& controls = *driver.getControls();
    std::printf("controls:%s\n", controls.empty() ? " none" : "");
    for (const auto& control : controls)
        std::printf("  %s (\"%s\"), value %g\n", control->getName().c_str(), control->getDisplayName().c_str(),
                    static_cast<double>(control->getValue()));
}

}  // namespace

int checkDescription(const std::string& path) {
    try {
        SystemRenderer system(path);
        describe(path, system.getDriver());
        return 0;
    } catch (const vrn::VRNException& error) {
        std::fprintf(stderr, "orm-render: %s\n", error.getMessage().c_str());
    } catch (const std::exception& error) {
        std::fprintf(stderr, "orm-render: %s\n", error.what());
    }
    return 1;
}

}  // namespace orm_render
