#include "engine/DSPGraph.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>
#include <set>

#include <boost/graph/adjacency_list.hpp>
#include <boost/graph/depth_first_search.hpp>
#include <boost/graph/topological_sort.hpp>

namespace vrn {

namespace {

typedef boost::adjacency_list<boost::vecS, boost::vecS, boost::bidirectionalS> FilterGraph;
typedef boost::graph_traits<FilterGraph>::edge_descriptor FilterEdge;

// Collects the edges that lead back to a vertex still on the search path.
class BackEdgeRecorder : public boost::default_dfs_visitor {
public:
    explicit BackEdgeRecorder(std::vector<FilterEdge>& backEdges) : backEdges(&backEdges) {}
    void back_edge(FilterEdge edge, const FilterGraph&) { backEdges->push_back(edge); }

private:
    std::vector<FilterEdge>* backEdges;
};

const std::function<ProcessingMethod(const std::string&)> toProcessingMethod = [](const std::string& word) {
    if (word == "Block") return Block;
    if (word == "Sequential") return Sequential;
    if (word == "Iterative") return Iterative;
    throw InvalidArgumentException("DSPGraph: Invalid ProcessingMethod property " + word);
};

}  // namespace

DSPGraph::DSPGraph()
    : inputPointers(std::make_shared<std::vector<scalar*>>()),
      iterationInputs(std::make_shared<std::vector<scalar>>()),
      inputSources(std::make_shared<PortTable>()),
      inputPorts(std::make_shared<PortTable>()),
      outputPorts(std::make_shared<std::vector<int>>()),
      outputFilters(std::make_shared<std::vector<int>>()) {}

void DSPGraph::setWiring(const std::shared_ptr<PortTable>& sources, const std::shared_ptr<PortTable>& ports,
                         const std::shared_ptr<std::vector<int>>& filters,
                         const std::shared_ptr<std::vector<int>>& filterPorts) {
    inputSources = sources;
    inputPorts = ports;
    outputFilters = filters;
    outputPorts = filterPorts;
    numberOfOutputs = static_cast<int>(filters->size());
    outputs.assign(filters->size(), nullptr);
}

void DSPGraph::setProperties(const Properties& properties) {
    auto method = properties.find("ProcessingMethod");
    if (method != properties.end()) processingMethod = toProcessingMethod(method->second);
    if (processingMethod == Iterative) {
        getProperty(properties, "RelativeTollerance", relativeTollerance, toScalar,
                    VRNException("DSPGraph: RelativeTollerance is not defined."));
        if (!(relativeTollerance > 0))
            throw InvalidArgumentException("DSPGraph: RelativeTollerance must be greater than 0. relativeTollerance=" +
                                           toString(relativeTollerance));
        getProperty(properties, "AbsoluteTollerance", absoluteTollerance, toScalar,
                    VRNException("DSPGraph: AbsoluteTollerance is not defined."));
        if (!(absoluteTollerance > 0))
            throw InvalidArgumentException("DSPGraph: AbsoluteTollerance must be greater than 0. AbsoluteTollerance=" +
                                           toString(absoluteTollerance));
        getProperty(properties, "MaxIterations", maxIterations, toInt,
                    VRNException("DSPGraph: MaxIterations is not defined."));
        if (maxIterations <= 0)
            throw InvalidArgumentException("DSPGraph: MaxIterations must be greater than 0. MaxIterations=" +
                                           toString(maxIterations));
    }
    Graph::setProperties(properties);
}

void DSPGraph::init() {
    if (!context) throw VRNException("Context not set for DSPGraph " + name);
    if (numberOfInputs < 1)
        throw VRNException("Invalid number of outputs for DSPGraph " + name +
                           ", number of outputs: " + toString(numberOfOutputs));
    const std::vector<Filter*>& filters = context->getElements();
    int maxPorts = -1;
    for (Filter* filter : filters) maxPorts = std::max(maxPorts, filter->getMeta()->getNumberOfInputs());
    size_t ports = static_cast<size_t>(std::max(maxPorts, 0));
    switch (processingMethod) {
        case Block:
            inputPointers->assign(ports, nullptr);
            break;
        case Sequential:
            sampleInputs.assign(filters.size(), std::vector<scalar*>(ports, nullptr));
            inputSamples.assign(static_cast<size_t>(numberOfInputs), 0.0f);
            outputBuffers.clear();
            for (int k = 0; k < numberOfOutputs; ++k) outputBuffers.push_back(std::make_shared<std::vector<scalar>>());
            break;
        case Iterative:
            iterationInputs->assign(ports, 0.0f);
            currentOutputs.assign(static_cast<size_t>(numberOfOutputs), 0.0f);
            previousOutputs.assign(static_cast<size_t>(numberOfOutputs), 0.0f);
            break;
        default:
            throw VRNException("Invalid processing method");
    }
    checkWiring();
    computeFilterOrder();
    initialized = true;
}

void DSPGraph::checkWiring() {
    // Numbers in a description are read leniently; here they must point at something that exists,
    // so that no block reads outside a buffer.
    const std::vector<Filter*>& filters = context->getElements();
    for (size_t i = 0; i < filters.size() && i < inputSources->size(); ++i) {
        const std::vector<int>& sources = *(*inputSources)[i];
        const std::vector<int>& ports = *(*inputPorts)[i];
        for (size_t port = 0; port < ports.size(); ++port) {
            if (ports[port] == -1 || sources[port] != -1) continue;
            if (ports[port] < 0 || ports[port] >= numberOfInputs)
                throw VRNException("DSPGraph: Invalid graph input " + toString(ports[port]) + " for element " +
                                   filters[i]->getName() + ". Graph: " + name + ", number of inputs: " +
                                   toString(numberOfInputs));
        }
    }
    for (int k = 0; k < numberOfOutputs; ++k) {
        Filter* filter = filters.at(static_cast<size_t>((*outputFilters)[k]));
        int port = (*outputPorts)[k];
        if (port < 0 || port >= filter->getMeta()->getNumberOfOutputs())
            throw VRNException("DSPGraph: Invalid output index " + toString(port) + " of element " + filter->getName() +
                               ". Graph: " + name);
    }
}

void DSPGraph::computeFilterOrder() {
    const size_t filterCount = context->getElements().size();
    FilterGraph graph(filterCount);
    bool usesGraphInput = false;
    for (size_t i = 0; i < filterCount && i < inputSources->size(); ++i) {
        const std::vector<int>& sources = *(*inputSources)[i];
        const std::vector<int>& ports = *(*inputPorts)[i];
        std::vector<int> seen;
        for (size_t port = 0; port < ports.size(); ++port) {
            if (ports[port] == -1) continue;
            int source = sources[port];
            if (std::find(seen.begin(), seen.end(), source) != seen.end()) continue;
            seen.push_back(source);
            size_t from = static_cast<size_t>(source);
            if (source == -1) {
                from = filterCount;
                if (!usesGraphInput) {
                    boost::add_vertex(graph);
                    usesGraphInput = true;
                }
            }
            boost::add_edge(from, i, graph);
        }
    }

    if (processingMethod == Sequential || processingMethod == Iterative) {
        std::vector<FilterEdge> backEdges;
        boost::depth_first_search(graph, boost::visitor(BackEdgeRecorder(backEdges)));
        for (const FilterEdge& edge : backEdges) {
            if (usesGraphInput && (boost::source(edge, graph) == filterCount || boost::target(edge, graph) == filterCount))
                throw VRNException("DSPGraph: A back edge containing graph detected. Cannot create filter processing order.");
        }
        for (const FilterEdge& edge : backEdges) boost::remove_edge(edge, graph);
    }

    std::vector<size_t> finished;
    try {
        boost::topological_sort(graph, std::back_inserter(finished));
    } catch (const boost::not_a_dag&) {
        throw VRNException("Filters do not form a DAG.");
    }
    filterOrder.clear();
    for (auto it = finished.rbegin(); it != finished.rend(); ++it)
        if (*it != filterCount) filterOrder.push_back(static_cast<int>(*it));
}

void DSPGraph::setMaxBlockSize(int size) {
    if (size < 1) throw VRNException("DSPGraph: Invalid maxBlockSize" + toString(size));
    switch (processingMethod) {
        case Block:
        case Iterative:
            // A graph that raises the rate hands on multiplier × size samples; its buffers hold
            // that many even when no element of it resamples, so no reader runs past them.
            context->setMaxBlockSize(multiplier > 1.0 ? static_cast<int>(std::ceil(size * multiplier)) : size);
            break;
        case Sequential:
            context->setMaxBlockSize(1);
            if (size > maxBlockSize) {
                for (auto& buffer : outputBuffers) buffer->resize(static_cast<size_t>(size));
                wireSequentialInputs();
            }
            break;
        default:
            throw VRNException("Invalid processing method");
    }
    maxBlockSize = size;
}

void DSPGraph::setSamplingRate(scalar rate) {
    context->setSamplingRate(rate);
    if (processingMethod == Sequential) wireSequentialInputs();
}

void DSPGraph::wireSequentialInputs() {
    const std::vector<Filter*>& filters = context->getElements();
    for (size_t i = 0; i < sampleInputs.size() && i < inputSources->size(); ++i) {
        const std::vector<int>& sources = *(*inputSources)[i];
        const std::vector<int>& ports = *(*inputPorts)[i];
        for (size_t port = 0; port < ports.size(); ++port) {
            scalar*& pointer = sampleInputs[i][port];
            if (ports[port] == -1)
                pointer = nullptr;
            else if (sources[port] == -1)
                pointer = &inputSamples.at(static_cast<size_t>(ports[port]));
            else
                pointer = filters[static_cast<size_t>(sources[port])]->getOutputs()[static_cast<size_t>(ports[port])];
        }
    }
}

void DSPGraph::process(const std::vector<scalar*>& inputs, size_t framesPerBuffer) {
    if (static_cast<long long>(framesPerBuffer) > maxBlockSize)
        throw VRNException("maxBlockSize is less than input size. DSPGraph name: " + name +
                           " maxBlockSize: " + toString(maxBlockSize) + " input size:" + toString(framesPerBuffer));
    process(inputs, outputs, framesPerBuffer);
}

scalar* DSPGraph::bypassTarget(int output) {
    if (processingMethod == Sequential) return outputBuffers[static_cast<size_t>(output)]->data();
    Filter* filter = context->getElements()[static_cast<size_t>((*outputFilters)[output])];
    return filter->getOutputs()[static_cast<size_t>((*outputPorts)[output])];
}

void DSPGraph::process(const std::vector<scalar*>& inputs, std::vector<scalar*>& graphOutputs,
                       size_t framesPerBuffer) {
    if (!initialized) throw VRNException("DSPGraph is not initialized. DSPGraph Name: " + name);
    if (bypass) {
        if (numberOfInputs != numberOfOutputs)
            throw VRNException(
                "DSPGraph: Cannot bypass a graph that does not have the same number of inputs and outputs. Graph name: " +
                name);
        for (int k = 0; k < numberOfOutputs; ++k) {
            scalar* target = bypassTarget(k);
            if (framesPerBuffer > 0) std::memmove(target, inputs[static_cast<size_t>(k)], framesPerBuffer * sizeof(scalar));
            graphOutputs[static_cast<size_t>(k)] = target;
        }
    } else if (off) {
        for (int k = 0; k < numberOfOutputs; ++k) {
            scalar* target = bypassTarget(k);
            std::fill(target, target + framesPerBuffer, 0.0f);
            graphOutputs[static_cast<size_t>(k)] = target;
        }
    } else if (processingMethod == Block) {
        processBlock(inputs, graphOutputs, framesPerBuffer);
    } else if (processingMethod == Sequential) {
        processSequential(inputs, graphOutputs, framesPerBuffer);
    } else {
        processIterative(inputs, graphOutputs, framesPerBuffer);
    }
}

void DSPGraph::processBlock(const std::vector<scalar*>& inputs, std::vector<scalar*>& graphOutputs, size_t frames) {
    const std::vector<Filter*>& filters = context->getElements();
    std::vector<scalar*>& pointers = *inputPointers;
    for (int index : filterOrder) {
        const std::vector<int>& sources = *(*inputSources)[static_cast<size_t>(index)];
        const std::vector<int>& ports = *(*inputPorts)[static_cast<size_t>(index)];
        for (size_t port = 0; port < ports.size(); ++port) {
            if (ports[port] == -1)
                pointers[port] = nullptr;
            else if (sources[port] == -1)
                pointers[port] = inputs[static_cast<size_t>(ports[port])];
            else
                pointers[port] = filters[static_cast<size_t>(sources[port])]->getOutputs()[static_cast<size_t>(ports[port])];
        }
        filters[static_cast<size_t>(index)]->process(pointers, frames);
    }
    for (int k = 0; k < numberOfOutputs; ++k)
        graphOutputs[static_cast<size_t>(k)] =
            filters[static_cast<size_t>((*outputFilters)[k])]->getOutputs()[static_cast<size_t>((*outputPorts)[k])];
}

void DSPGraph::processSequential(const std::vector<scalar*>& inputs, std::vector<scalar*>& graphOutputs,
                                 size_t frames) {
    const std::vector<Filter*>& filters = context->getElements();
    const size_t inputCount = std::min(inputs.size(), inputSamples.size());
    for (size_t n = 0; n < frames; ++n) {
        for (size_t j = 0; j < inputCount; ++j)
            if (inputs[j]) inputSamples[j] = inputs[j][n];
        for (size_t i = 0; i < filters.size(); ++i) filters[i]->process(sampleInputs[i], 1);
        for (int k = 0; k < numberOfOutputs; ++k)
            (*outputBuffers[static_cast<size_t>(k)])[n] =
                filters[static_cast<size_t>((*outputFilters)[k])]->getOutputs()[static_cast<size_t>((*outputPorts)[k])][0];
    }
    for (int k = 0; k < numberOfOutputs; ++k) graphOutputs[static_cast<size_t>(k)] = outputBuffers[static_cast<size_t>(k)]->data();
}

void DSPGraph::processIterative(const std::vector<scalar*>& inputs, std::vector<scalar*>& graphOutputs,
                                size_t frames) {
    const std::vector<Filter*>& filters = context->getElements();
    std::vector<scalar>& samples = *iterationInputs;
    for (size_t n = 0; n < frames; ++n) {
        std::fill(previousOutputs.begin(), previousOutputs.end(), 0.0f);
        scalar absoluteError = absoluteTollerance + 1.0f;
        scalar relativeError = absoluteTollerance + 1.0f;
        int iteration = 0;
        while ((relativeError > 0 || absoluteError > absoluteTollerance) && iteration < maxIterations) {
            for (int index : filterOrder) {
                const std::vector<int>& sources = *(*inputSources)[static_cast<size_t>(index)];
                const std::vector<int>& ports = *(*inputPorts)[static_cast<size_t>(index)];
                for (size_t port = 0; port < ports.size(); ++port) {
                    if (ports[port] == -1)
                        samples[port] = 0.0f;
                    else if (sources[port] == -1)
                        samples[port] = inputs[static_cast<size_t>(ports[port])][n];
                    else
                        samples[port] = filters[static_cast<size_t>(sources[port])]
                                            ->getLastIterationResults()[static_cast<size_t>(ports[port])];
                }
                filters[static_cast<size_t>(index)]->process(iterationInputs, n, iteration);
            }
            absoluteError = -1.0f;
            relativeError = -1.0f;
            for (int k = 0; k < numberOfOutputs; ++k) {
                scalar current = filters[static_cast<size_t>((*outputFilters)[k])]
                                     ->getLastIterationResults()[static_cast<size_t>((*outputPorts)[k])];
                currentOutputs[static_cast<size_t>(k)] = current;
                if (iteration == 0) {
                    relativeError = 1.0f;
                    absoluteError = absoluteTollerance + 1.0f;
                } else {
                    scalar d = std::fabs(current - previousOutputs[static_cast<size_t>(k)]);
                    absoluteError = std::max(absoluteError, d);
                    relativeError = std::max(relativeError, d - std::fabs(current) * relativeTollerance);
                }
            }
            previousOutputs = currentOutputs;
            ++iteration;
        }
        for (Filter* filter : filters) filter->endIteration(static_cast<int>(n));
    }
    for (int k = 0; k < numberOfOutputs; ++k)
        graphOutputs[static_cast<size_t>(k)] =
            filters[static_cast<size_t>((*outputFilters)[k])]->getOutputs()[static_cast<size_t>((*outputPorts)[k])];
}

}  // namespace vrn
