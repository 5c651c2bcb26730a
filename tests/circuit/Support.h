#pragma once
// Shared by the circuit tests and benchmarks: netlists from XML, running a circuit over signals, and running
// the same circuit through ngspice in batch mode.

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <unistd.h>

#include "circuit/Circuit.h"
#include "engine/NewParser.h"

namespace circuittest {

// Parses a system document around one "MNA" graph named "C" with `inputs` inputs from the system.
inline std::shared_ptr<vrn::Circuit> parseCircuit(const std::string& graphBody, int inputs = 1) {
    std::string text = "<System><Graphs><Graph Name=\"C\" Type=\"MNA\">" + graphBody;
    if (inputs > 0) {
        text += "<NumberOfInputs>" + std::to_string(inputs) + "</NumberOfInputs><Inputs>";
        for (int i = 0; i < inputs; ++i) text += "<Input Graph=\"System\" Node=\"" + std::to_string(i) + "\"/>";
        text += "</Inputs>";
    }
    vrn::NewParser parser(nullptr, nullptr);
    std::istringstream stream(text + "</Graph></Graphs></System>");
    parser.parse(stream);
    auto circuit = std::dynamic_pointer_cast<vrn::Circuit>(parser.getGraphs()->at(0));
    // Without a Driver nobody breaks the graph-context cycle: the test's handle does it.
    return std::shared_ptr<vrn::Circuit>(circuit.get(), [circuit](vrn::Circuit* c) mutable {
        c->getMNAContext()->setGraph(nullptr);
        circuit.reset();
    });
}

// The message of a VRNException thrown by f, or "" when nothing is thrown.
template <typename F>
std::string messageOf(F f) {
    try {
        f();
    } catch (const vrn::VRNException& e) {
        return e.getMessage();
    }
    return "";
}

// Runs the circuit over input signals of equal length in blocks; returns every output.
inline std::vector<std::vector<float>> runAll(vrn::Circuit& circuit, std::vector<std::vector<float>> input, size_t block = 64) {
    circuit.setMaxBlockSize(static_cast<int>(block));
    std::vector<std::vector<float>> result(static_cast<size_t>(circuit.getNumberOfOutputs()));
    for (size_t start = 0; start < input[0].size(); start += block) {
        size_t n = std::min(block, input[0].size() - start);
        std::vector<float*> inputs;
        for (std::vector<float>& signal : input) inputs.push_back(signal.data() + start);
        circuit.process(inputs, n);
        for (size_t k = 0; k < result.size(); ++k) {
            const float* out = circuit.getOutput(static_cast<int>(k));
            result[k].insert(result[k].end(), out, out + n);
        }
    }
    return result;
}

// Output 0 over one input signal.
inline std::vector<float> run(vrn::Circuit& circuit, const std::vector<float>& input, size_t block = 64) {
    return runAll(circuit, {input}, block)[0];
}

// Parses, initialises and runs a netlist of one input.
inline std::vector<float> solve(const std::string& graphBody, const std::vector<float>& input) {
    auto circuit = parseCircuit(graphBody);
    circuit->init();
    return run(*circuit, input);
}

inline std::vector<float> sine(double amplitude, double frequency, double rate, size_t n) {
    std::vector<float> s(n);
    for (size_t i = 0; i < n; ++i)
        s[i] = static_cast<float>(amplitude * std::sin(2.0 * M_PI * frequency * static_cast<double>(i) / rate));
    return s;
}

// Transient analysis with trapezoidal integration, the step fixed to the sample period: n samples
// of `node` on that grid, empty when ngspice fails.
inline std::vector<double> ngspiceTransient(const std::string& netlist, const std::string& node, double rate,
                                            size_t n) {
    const std::string base = "/tmp/orm_circuit_" + std::to_string(getpid()) + "_" + std::to_string(std::rand());
    const double period = 1.0 / rate;
    std::ofstream deck(base + ".cir");
    deck.precision(12);
    deck << "* orm circuit test\n" << netlist << "\n.options method=trap\n.tran " << period << " "
         << period * static_cast<double>(n - 1) << " 0 " << period << "\n.control\nrun\nlinearize v(" << node
         << ")\nwrdata " << base << ".txt v(" << node << ")\nquit\n.endc\n.end\n";
    deck.close();
    std::vector<double> values;
    if (std::system(("ngspice -b " + base + ".cir > " + base + ".log 2>&1").c_str()) == 0) {
        std::ifstream data(base + ".txt");
        double time, v;
        while (data >> time >> v) values.push_back(v);
    }
    for (const char* ext : {".cir", ".txt", ".log"}) std::remove((base + ext).c_str());
    return values;
}

inline std::string nodeList(const std::vector<const char*>& nodes) {
    std::string text;
    for (const char* node : nodes) text += std::string("<Node Name='") + node + "'/>";
    return text;
}
inline std::string outputs(const std::vector<const char*>& nodes) { return "<Output>" + nodeList(nodes) + "</Output>"; }

// One element of a netlist: <Element Type Name><Properties .../><Node/>...</Element>.
inline std::string element(const std::string& type, const std::string& name, const std::string& properties,
                           const std::vector<const char*>& nodes) {
    return "<Element Type='" + type + "' Name='" + name + "'><Properties " + properties + "/>" + nodeList(nodes) + "</Element>";
}

// The largest |difference| from sample `from` on, as a fraction of the reference's peak-to-peak there.
inline double disagreement(const std::vector<float>& ours, const std::vector<double>& reference, size_t from) {
    double worst = 0.0, low = INFINITY, high = -INFINITY;
    for (size_t i = from; i < ours.size() && i < reference.size(); ++i) {
        worst = std::max(worst, std::fabs(static_cast<double>(ours[i]) - reference[i]));
        low = std::min(low, reference[i]);
        high = std::max(high, reference[i]);
    }
    return worst / (high - low);
}

}  // namespace circuittest
