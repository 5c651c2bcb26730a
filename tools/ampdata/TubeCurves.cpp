#include "TubeCurves.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "circuit/Circuit.h"
#include "circuit/components/Passive.h"
#include "circuit/components/Tubes.h"
#include "engine/NewParser.h"

namespace ampdata_gen {

namespace {

const CurveGrid kGrids[] = {
    {'A', "stage-a.xml", -8, 8, 0.01, 1601},   {'B', "stage-b.xml", -8, 100, 0.02, 5401},
    {'C', "stage-c.xml", -8, 80, 0.02, 4401},  {'D', "stage-d.xml", -40, 100, 0.01, 14001},
    {'E', "stage-e.xml", -40, 100, 0.01, 14001},
};

// A stage whose plate current drops less than this across its load (about one float step at
// 260 V) is cut off: its entry is the 260 V supply exactly, which the table's users test for.
constexpr double kSupplyAB = 260.0;
constexpr double kCutOffBand = 3.15e-5;

// A parsed stage; without a Driver nobody breaks the graph-context cycle, so the handle does.
std::shared_ptr<vrn::Circuit> loadStage(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("cannot read " + path);
    vrn::NewParser parser(nullptr, nullptr);
    try {
        parser.parse(file);
    } catch (const vrn::VRNException& error) {
        throw std::runtime_error(path + ": " + error.getMessage());
    }
    auto circuit = std::dynamic_pointer_cast<vrn::Circuit>(parser.getGraphs()->at(0));
    if (!circuit) throw std::runtime_error(path + ": not an MNA graph");
    auto handle = std::shared_ptr<vrn::Circuit>(circuit.get(), [circuit](vrn::Circuit* c) mutable {
        c->getMNAContext()->setGraph(nullptr);
        circuit.reset();
    });
    handle->init();
    return handle;
}

// Solves the operating point at each input in turn, each starting from the last; every point is
// solved twice so that the second solve starts at the first one's answer.  `each` sees the
// circuit after every point.
template <typename Each>
std::vector<float> sweep(vrn::Circuit& circuit, const std::vector<float>& inputs, Each each) {
    circuit.setMaxBlockSize(2);
    std::vector<float> plate(inputs.size());
    float pair[2];
    std::vector<float*> arrays{pair};
    for (size_t i = 0; i < inputs.size(); ++i) {
        pair[0] = pair[1] = inputs[i];
        circuit.process(arrays, 2);
        plate[i] = circuit.getOutput(0)[1];
        if (std::fabs(plate[i] - circuit.getOutput(0)[0]) > 1e-3f)
            throw std::runtime_error("no operating point at " + std::to_string(inputs[i]) + " V: " +
                                     std::to_string(circuit.getOutput(0)[0]) + " then " + std::to_string(plate[i]));
        each(i);
    }
    return plate;
}

std::vector<float> inputsOf(double vinMin, double deltaV, int entries) {
    std::vector<float> inputs(static_cast<size_t>(entries));
    for (int i = 0; i < entries; ++i) inputs[static_cast<size_t>(i)] = static_cast<float>(vinMin + deltaV * i);
    return inputs;
}

}  // namespace

const CurveGrid& curveGrid(char name) {
    for (const CurveGrid& grid : kGrids)
        if (grid.name == name) return grid;
    throw std::invalid_argument(std::string("no tube curve ") + name);
}

double gridVoltage(const CurveGrid& grid, int i) { return grid.vinMin + grid.deltaV * i; }

std::vector<float> tubeCurve(char name, const std::string& resourceDir) {
    const CurveGrid& grid = curveGrid(name);
    auto circuit = loadStage(resourceDir + "/tubes/" + grid.netlist);
    const std::vector<float> inputs = inputsOf(grid.vinMin, grid.deltaV, grid.entries);
    if (name != 'A' && name != 'B' && name != 'C') return sweep(*circuit, inputs, [](size_t) {});

    // Near cut-off the plate's drop across its load is far below a float step at 260 V, and the
    // solved plate voltage is only good to about one step.  The drop is taken from the plate
    // current instead, which float holds to full relative precision.
    vrn::MNAContext& context = *circuit->getMNAContext();
    auto* triode = dynamic_cast<vrn::Triode*>(context.getElement("V"));
    auto* load = dynamic_cast<vrn::Resistor*>(context.getElement("Rp"));
    if (!triode || !load) throw std::runtime_error(std::string(grid.netlist) + ": no triode V or plate load Rp");
    const auto& nodes = context.getNodes();
    const size_t plateNode = static_cast<size_t>(nodes.at("plate")), gridNode = static_cast<size_t>(nodes.at("grid")),
                 cathodeNode = static_cast<size_t>(nodes.at("cathode"));
    std::vector<bool> cutOff(inputs.size());
    std::vector<float> plate = sweep(*circuit, inputs, [&](size_t i) {
        const std::vector<float>& x = context.getSolution();
        const float ip = triode->getAnodeModel().current(x[gridNode] - x[cathodeNode], x[plateNode] - x[cathodeNode]);
        cutOff[i] = static_cast<double>(ip) / static_cast<double>(load->getConductance()) <= kCutOffBand;
    });
    for (size_t i = 0; i < plate.size(); ++i)
        if (cutOff[i]) plate[i] = static_cast<float>(kSupplyAB);
    return plate;
}

std::vector<float> stageCurve(const std::string& netlistPath, const std::vector<float>& inputs) {
    auto circuit = loadStage(netlistPath);
    return sweep(*circuit, inputs, [](size_t) {});
}

std::vector<double> gridTableYg(const std::string& resourceDir) {
    const double open = 1e10;
    const int entries = 1001;
    auto circuit = loadStage(resourceDir + "/tubes/stage-c.xml");
    vrn::MNAContext& context = *circuit->getMNAContext();
    auto* triode = dynamic_cast<vrn::Triode*>(context.getElement("V"));
    if (!triode) throw std::runtime_error("stage-c.xml: no triode V");
    const int gridNode = context.getNodes().at("grid");
    const int cathodeNode = context.getNodes().at("cathode");
    const int plateNode = context.getNodes().at("plate");
    const std::vector<float> inputs = inputsOf(0.0, 0.02, entries);
    std::vector<double> ohms(static_cast<size_t>(entries), open);
    sweep(*circuit, inputs, [&](size_t i) {
        const std::vector<float>& x = context.getSolution();
        const float vk = x[static_cast<size_t>(cathodeNode)];
        const float ig = triode->getGridModel().current(x[static_cast<size_t>(gridNode)] - vk,
                                                        x[static_cast<size_t>(plateNode)] - vk);
        if (ig > 0) ohms[i] = std::min(open, inputs[i] / static_cast<double>(ig));
    });
    return ohms;
}

}  // namespace ampdata_gen
