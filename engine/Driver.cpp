#include "engine/Driver.h"

#include <cmath>
#include <iterator>
#include <list>
#include <sstream>
#include <thread>
#include <unordered_set>

#include <boost/graph/adjacency_list.hpp>
#include <boost/graph/topological_sort.hpp>

namespace vrn {

std::shared_ptr<Driver> Driver::create() {
    return std::shared_ptr<Driver>(new Driver());
}

Driver::Driver()
    : outputPointers(std::make_shared<std::vector<scalar*>>()), controls(std::make_shared<ControlList>()) {}

Driver::~Driver() {
    DriverMessage message;
    while (messageQueue.pop(message)) {
    }
}

size_t Driver::roundedSize(size_t frames, size_t graph) const {
    return static_cast<size_t>(std::floor(static_cast<double>(frames) * multipliers[graph] + 0.5));
}

void Driver::init(std::istream& description) {
    NewParser parser(dspElementFactory, componentFactory);
    parser.parse(description);

    graphs = parser.getGraphs();
    for (auto& graph : *graphs) graph->getContext()->setDriver(this);
    for (auto& graph : *graphs) graphsByName[graph->getName()] = graph;
    inputGraphs = parser.getInputGraphs();
    inputNodes = parser.getInputNodes();
    outputGraphs = parser.getOutputGraphs();
    outputNodes = parser.getOutputNodes();

    computeOrder();

    int largestInputs = -1;
    for (int g : order) {
        largestInputs = std::max(largestInputs, (*graphs)[static_cast<size_t>(g)]->getNumberOfInputs());
        largestInputs = std::max(largestInputs, static_cast<int>((*inputGraphs)[static_cast<size_t>(g)]->size()));
    }
    inputPointers.assign(static_cast<size_t>(std::max(largestInputs, 0)), nullptr);

    multipliers.assign(graphs->size(), 1.0);
    computeMultipliers();
    outputPointers = std::make_shared<std::vector<scalar*>>(outputGraphs->size(), nullptr);

    for (size_t i = 0; i < graphs->size(); ++i) {
        (*graphs)[i]->init();
        if (maxBlockSize > 0)
            (*graphs)[i]->setMaxBlockSize(static_cast<int>(roundedSize(static_cast<size_t>(maxBlockSize), i)));
    }

    controls = parser.getControls();
    bindProperties();
    initialized = 1;
}

void Driver::computeOrder() {
    typedef boost::adjacency_list<boost::vecS, boost::vecS, boost::bidirectionalS,
                                  boost::property<boost::vertex_color_t, boost::default_color_type>,
                                  boost::no_property, boost::no_property, boost::listS>
        GraphOrder;
    GraphOrder dependencies(graphs->size());
    for (size_t g = 0; g < graphs->size(); ++g) {
        std::unordered_set<int> sources;
        for (int source : *(*inputGraphs)[g])
            if (source != -1) sources.insert(source);
        for (int source : sources) boost::add_edge(static_cast<size_t>(source), g, dependencies);
    }
    std::list<unsigned long long> sorted;
    try {
        boost::topological_sort(dependencies, std::front_inserter(sorted));
    } catch (const boost::not_a_dag&) {
        throw VRNException("Graphs do not form a DAG.");
    }
    order.assign(sorted.begin(), sorted.end());
}

void Driver::computeMultipliers() {
    for (auto& graph : *graphs) graph->setInputMultiplier(1.0);
    for (int g : order) {
        Graph& graph = *(*graphs)[static_cast<size_t>(g)];
        double m = -1.0;
        for (int source : *(*inputGraphs)[static_cast<size_t>(g)]) {
            double v = source == -1 ? 1.0 : (*graphs)[static_cast<size_t>(source)]->getOutputMultiplier();
            if (m > 0 && std::fabs(v - m) > 1e-10) throw VRNException("Invalid input multipliers for graph" + graph.getName());
            if (!(m > 0)) m = v;
        }
        // A graph that no other graph feeds runs at the system's rate.
        if (!(m > 0)) m = 1.0;
        graph.setInputMultiplier(m);
        multipliers[static_cast<size_t>(g)] = m;
    }
    for (int source : *outputGraphs) {
        if (source == -1) continue;
        double v = (*graphs)[static_cast<size_t>(source)]->getOutputMultiplier();
        if (v != 1.0) {
            std::ostringstream text;
            text.imbue(std::locale::classic());
            text << "Invalid multiplier. Expected 1 but got " << v;
            throw VRNException(text.str());
        }
    }
}

void Driver::bindProperties() {
    if (controls->empty()) return;
    properties = std::make_shared<PropertyList>();
    std::unordered_set<std::string> seen;
    for (auto& control : *controls) {
        for (auto& property : *control->getProperties()) {
            if (!seen.insert(property->name + property->graphName + property->elementName).second)
                throw VRNException("Driver: Multiple definitions of the same property. Property name: " + property->name +
                                   " graph: " + property->graphName + " element: " + property->elementName);
            properties->push_back(property);
            property->index = static_cast<int>(properties->size() - 1);
        }
    }
    propertyGraphs = std::make_shared<std::vector<std::shared_ptr<Graph>>>(properties->size());
    propertyElements = std::make_shared<std::vector<Element*>>(properties->size(), nullptr);
    for (size_t i = 0; i < properties->size(); ++i) {
        Property& property = *(*properties)[i];
        auto graph = graphsByName.find(property.graphName);
        if (graph == graphsByName.end())
            throw VRNException("Invalid Property: Invalid graph name " + property.graphName + ". Property, name=" +
                               property.name);
        (*propertyGraphs)[i] = graph->second;
        property.graph = graph->second;
        if (!property.elementName.empty()) {
            Element* element = nullptr;
            try {
                element = graph->second->getContext()->getElement(property.elementName);
            } catch (const InvalidArgumentException&) {
            }
            if (!element)
                throw VRNException("Invalid Property: Invalid element name " + property.elementName +
                                   ". Property, name=" + property.name);
            (*propertyElements)[i] = element;
            property.element = element;
        }
    }
}

size_t Driver::getNumberOfInputs() const {
    int highest = -1;
    for (size_t g = 0; inputGraphs && g < inputGraphs->size(); ++g)
        for (size_t j = 0; j < (*inputGraphs)[g]->size(); ++j)
            if ((*(*inputGraphs)[g])[j] == -1) highest = std::max(highest, (*(*inputNodes)[g])[j]);
    for (size_t i = 0; outputGraphs && i < outputGraphs->size(); ++i)
        if ((*outputGraphs)[i] == -1) highest = std::max(highest, (*outputNodes)[i]);
    return static_cast<size_t>(highest + 1);
}

std::shared_ptr<Graph>& Driver::getGraph(std::string name) {
    auto it = graphsByName.find(name);
    if (it == graphsByName.end()) throw InvalidArgumentException(name + " is not a valid graph name.");
    return it->second;
}

void Driver::setSuspended(bool value) {
    // Take the processing flag ourselves, so that no block is running or can start meanwhile.
    uint8_t idle = 0;
    while (!processing.compare_exchange_weak(idle, 1)) {
        idle = 0;
        std::this_thread::yield();
    }
    suspended.exchange(value ? 1 : 0);
    processing.exchange(0);
}

void Driver::setSamplingRate(float rate) {
    samplingRate = rate;
    if (!initialized) return;
    for (size_t i = 0; i < graphs->size(); ++i)
        (*graphs)[i]->setSamplingRate(static_cast<float>(multipliers[i]) * rate);
}

void Driver::setMaxBlockSize(int size) {
    if (size <= 0)
        throw InvalidArgumentException("Driver: maxBlockSize must be greater than zero. maxBlockSize=" + toString(size));
    maxBlockSize = size;
    if (!initialized) return;
    for (size_t i = 0; i < graphs->size(); ++i)
        (*graphs)[i]->setMaxBlockSize(static_cast<int>(roundedSize(static_cast<size_t>(size), i)));
}

void Driver::applyControls() {
    for (auto& control : *controls) {
        if (!control->isDirty() || !control->tryLock()) continue;
        try {
            for (auto& property : *control->getProperties()) {
                if (!property->element)
                    property->graph->setProperty(property->name, property->scalarValue);
                else if (property->type == Scalar)
                    property->element->propertyChanged(property->name, property->scalarValue);
                else if (property->type == Vector)
                    property->element->propertyChanged(property->name, property->vectorValue);
            }
        } catch (...) {
            // The control is released; the failure itself goes on to the caller.
            control->clearDirtyAndUnlock();
            throw;
        }
        control->clearDirtyAndUnlock();
    }
}

void Driver::refreshOutputPointers(std::vector<scalar*>& inputs) {
    for (size_t i = 0; i < outputGraphs->size(); ++i) {
        int source = (*outputGraphs)[i];
        int node = (*outputNodes)[i];
        (*outputPointers)[i] = source == -1 ? inputs.at(static_cast<size_t>(node))
                                            : (*graphs)[static_cast<size_t>(source)]->getOutput(node);
    }
}

bool Driver::process(std::vector<scalar*>& inputs, size_t framesPerBuffer) {
    if (!initialized) throw VRNException("Cannot process. Driver is not initialized.");
    if (suspended.load()) throw VRNException("Driver: Cannot process. Driver is in the suspend state.");
    if (maxBlockSize < 0) throw VRNException("Driver: Cannot process. maxBlockSize is not set.");
    if (processing.exchange(1) == 1) {
        refreshOutputPointers(inputs);
        return false;
    }
    // A failing block must not leave the flag set: the next block would only replay the old
    // outputs, and setSuspended would wait for ever.
    struct Leave {
        std::atomic<uint8_t>& flag;
        ~Leave() { flag.exchange(0); }
    } leave{processing};

    applyControls();

    if (multipliersChanged.load()) {
        computeMultipliers();
        for (size_t i = 0; i < graphs->size(); ++i) {
            (*graphs)[i]->setSamplingRate(static_cast<float>(multipliers[i]) * samplingRate);
            if (maxBlockSize > 0)
                (*graphs)[i]->setMaxBlockSize(static_cast<int>(roundedSize(static_cast<size_t>(maxBlockSize), i)));
        }
        multipliersChanged.exchange(0);
    }

    for (int g : order) {
        const std::vector<int>& sources = *(*inputGraphs)[static_cast<size_t>(g)];
        const std::vector<int>& nodes = *(*inputNodes)[static_cast<size_t>(g)];
        std::fill(inputPointers.begin(), inputPointers.end(), nullptr);
        for (size_t j = 0; j < sources.size(); ++j)
            inputPointers[j] = sources[j] == -1 ? inputs.at(static_cast<size_t>(nodes[j]))
                                                : (*graphs)[static_cast<size_t>(sources[j])]->getOutput(nodes[j]);
        (*graphs)[static_cast<size_t>(g)]->process(inputPointers, roundedSize(framesPerBuffer, static_cast<size_t>(g)));
    }

    refreshOutputPointers(inputs);
    return true;
}

}  // namespace vrn
