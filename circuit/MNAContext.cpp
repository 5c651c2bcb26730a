#include "circuit/MNAContext.h"

#include <algorithm>

namespace vrn {

namespace {

bool isGround(const std::string& node) { return node == "0" || node == "GND"; }

}  // namespace

MNAContext::MNAContext() : outputs(std::make_shared<std::vector<scalar>>()) { samplingRate = 48000.0f; }

MNAContext::~MNAContext() {}

void MNAContext::setSamplingRate(scalar rate) {
    samplingRate = rate;
    if (!initialized) return;
    for (MNAEventListener* listener : listeners) listener->samplingRateChanged(rate);
}

Element* MNAContext::getElement(std::string elementName) {
    auto it = elements.find(elementName);
    if (it == elements.end())
        throw InvalidArgumentException("MNAContext cannot find element with name " + elementName);
    return it->second.get();
}

void MNAContext::addElement(Element* element) {
    if (initialized) throw VRNException("Cannot add components after the context was initialized");
    Component* component = dynamic_cast<Component*>(element);
    if (!component) throw InvalidArgumentException("MNAContext accepts only circuit components.");
    const std::string& componentName = component->getName();
    if (elements.count(componentName)) throw VRNException("Duplicate component name: " + componentName);
    elements.emplace(componentName, std::unique_ptr<Element>(element));
    components.push_back(component);
    componentNames.push_back(componentName);
    hasRhs.push_back(component->hasRhs());
    extraRowCounts.push_back(component->getExtraRowCount());
    if (component->isFixedVoltage() && !component->hasRhs())
        throw VRNException("Fixed voltage component must have rhs. Component name=" + componentName);
    isFixedVoltage.push_back(component->isFixedVoltage());
    isNonlinear.push_back(component->isNonlinear());
}

void MNAContext::addListener(MNAEventListener* listener) {
    if (std::find(listeners.begin(), listeners.end(), listener) == listeners.end()) listeners.push_back(listener);
}

void MNAContext::setAnalysis(int type) {
    if (initialized)
        for (MNAEventListener* listener : listeners) listener->analysisChanged(analysisType, type);
    analysisType = type;
}

void MNAContext::initialize() {
    // Fixed nodes are numbered first, downwards from -2, so that they can go to the tail of x.
    for (size_t i = 0; i < components.size(); ++i) {
        if (!isFixedVoltage[i]) continue;
        std::string fixedNode = components[i]->getFixedNode();
        for (const std::string& node : *components[i]->getNodeNames())
            if (node == fixedNode && !nodes.count(node)) nodes[node] = --lowestFixedNode;
    }
    for (size_t i = 0; i < components.size(); ++i) {
        auto indices = std::make_shared<std::vector<int>>();
        for (const std::string& node : *components[i]->getNodeNames()) {
            if (isGround(node)) {
                indices->push_back(-1);
                continue;
            }
            auto it = nodes.find(node);
            if (it != nodes.end()) {
                indices->push_back(it->second);
            } else {
                nodes[node] = ++highestNode;
                indices->push_back(highestNode);
            }
        }
        nodeIndices.push_back(indices);
        int row = -1;
        if (isFixedVoltage[i]) {
            auto fixed = nodes.find(components[i]->getFixedNode());
            if (fixed != nodes.end()) row = fixed->second;
        }
        fixedRow.push_back(row);
    }
    if (highestNode == -1) throw VRNException("No MNA nodes.");

    int nodeCount = highestNode + 1;
    for (size_t i = 0; i < components.size(); ++i) {
        int count = components[i]->getExtraRowCount();
        if (count < 1) {
            firstExtraRow.push_back(nodeCount);
            continue;
        }
        int row = nodeCount + extraRowCount;
        components[i]->setFirstExtraRow(row);
        extraRowByName[componentNames[i]] = row;
        firstExtraRow.push_back(row);
        extraRowCount += count;
    }

    if (lowestFixedNode < -1) {
        int t = extraRowCount + highestNode;
        auto translate = [t](int& v) {
            if (v < -1) v = t - v - 1;
        };
        for (auto& node : nodes) translate(node.second);
        for (auto& indices : nodeIndices)
            for (int& v : *indices) translate(v);
        for (int& v : fixedRow) translate(v);
    }
    for (size_t i = 0; i < components.size(); ++i) components[i]->setNodeIndices(nodeIndices[i]);

    if (outputNames) {
        for (const std::string& outputName : *outputNames) {
            auto it = nodes.find(outputName);
            if (it == nodes.end()) throw VRNException("Output node with name " + outputName + " does not exist.");
            outputIndices.push_back(it->second);
        }
        outputs = std::make_shared<std::vector<scalar>>(outputNames->size(), 0.0f);
    }

    size = extraRowCount - lowestFixedNode + highestNode;
    size_t n = static_cast<size_t>(size);
    solution.assign(n, 0.0f);
    fixedValues.assign(n, 0.0f);
    linearMatrix.assign(n * n, 0.0f);
    jacobian.assign(n * n, 0.0f);
    initialized = true;
}

std::vector<std::string> MNAContext::findFloatingNodes() {
    // Union-find over the unknowns, with one more entry for ground.
    const int ground = size;
    std::vector<int> parent(static_cast<size_t>(size) + 1);
    for (size_t i = 0; i < parent.size(); ++i) parent[i] = static_cast<int>(i);
    auto find = [&](int v) {
        while (parent[static_cast<size_t>(v)] != v) v = parent[static_cast<size_t>(v)];
        return v;
    };
    auto join = [&](int a, int b) { parent[static_cast<size_t>(find(a < 0 ? ground : a))] = find(b < 0 ? ground : b); };
    for (size_t i = 0; i < components.size(); ++i) {
        Component* component = components[i];
        const std::vector<int>& nodeIndex = *nodeIndices[i];
        const size_t count = nodeIndex.size();
        if (fixedRow[i] >= 0) join(fixedRow[i], ground);
        if (isNonlinear[i])
            for (size_t p = 1; p < count; ++p) join(nodeIndex[0], nodeIndex[p]);
        if (scalar** g = component->getG())
            for (size_t p = 0; p < count; ++p) {
                bool alone = g[p][p] != 0;
                for (size_t q = 0; q < count; ++q)
                    if (q != p && g[p][q] != 0) {
                        join(nodeIndex[p], nodeIndex[q]);
                        alone = false;
                    }
                // A conductance with no partner among the component's nodes leads to ground.
                if (alone) join(nodeIndex[p], ground);
            }
        scalar** b = extraRowCounts[i] > 0 ? component->getB() : nullptr;
        scalar** c = extraRowCounts[i] > 0 ? component->getC() : nullptr;
        for (int k = 0; k < extraRowCounts[i]; ++k)
            for (size_t p = 0; p < count; ++p)
                if ((b && b[p][k] != 0) || (c && c[k][p] != 0)) join(firstExtraRow[i] + k, nodeIndex[p]);
    }
    std::vector<std::pair<int, std::string>> floating;
    for (const auto& node : nodes)
        if (find(node.second) != find(ground)) floating.emplace_back(node.second, node.first);
    std::sort(floating.begin(), floating.end());
    std::vector<std::string> names;
    for (const auto& node : floating) names.push_back(node.second);
    return names;
}

std::string MNAContext::describeUnknown(int index) const {
    for (const auto& node : nodes)
        if (node.second == index) return "node " + node.first;
    for (size_t i = 0; i < components.size(); ++i)
        if (extraRowCounts[i] > 0 && index >= firstExtraRow[i] && index < firstExtraRow[i] + extraRowCounts[i])
            return "branch current of " + componentNames[i];
    return "unknown " + toString(index);
}

void MNAContext::assembleLinearMatrix() {
    std::fill(linearMatrix.begin(), linearMatrix.end(), 0.0f);
    const int last = highestNode + extraRowCount;
    const size_t n = static_cast<size_t>(size);
    auto at = [&](int r, int c) -> scalar& { return linearMatrix[static_cast<size_t>(r) + n * static_cast<size_t>(c)]; };
    for (size_t i = 0; i < components.size(); ++i) {
        Component* component = components[i];
        const std::vector<int>& nodeIndex = *nodeIndices[i];
        const size_t count = nodeIndex.size();
        const int first = firstExtraRow[i];
        const int extra = extraRowCounts[i];
        if (scalar** g = component->getG()) {
            for (size_t p = 0; p < count; ++p) {
                if (nodeIndex[p] == -1 || nodeIndex[p] > last) continue;
                for (size_t q = 0; q < count; ++q)
                    if (nodeIndex[q] != -1) at(nodeIndex[p], nodeIndex[q]) += g[p][q];
            }
        }
        if (extra <= 0) continue;
        if (scalar** b = component->getB())
            for (int k = 0; k < extra; ++k)
                for (size_t p = 0; p < count; ++p)
                    if (nodeIndex[p] != -1 && nodeIndex[p] <= last) at(nodeIndex[p], first + k) += b[p][k];
        if (scalar** c = component->getC())
            for (int k = 0; k < extra; ++k)
                for (size_t p = 0; p < count; ++p)
                    if (nodeIndex[p] != -1) at(first + k, nodeIndex[p]) += c[k][p];
    }
    for (int row : fixedRow)
        if (row >= 0) at(row, row) = 1.0f;
}

void MNAContext::getRhs(std::vector<scalar>& x, std::vector<scalar>& rhs) {
    std::fill(rhs.begin(), rhs.end(), 0.0f);
    for (size_t i = 0; i < components.size(); ++i) {
        if (!hasRhs[i]) continue;
        scalar* r = components[i]->getRhs(x);
        if (!r) continue;
        const std::vector<int>& nodeIndex = *nodeIndices[i];
        const size_t count = nodeIndex.size();
        const int row = fixedRow[i];
        for (size_t p = 0; p < count; ++p) {
            int node = nodeIndex[p];
            if (node == -1) continue;
            if (row >= 0 && node == row)
                fixedValues[static_cast<size_t>(node)] = r[p];
            else
                rhs[static_cast<size_t>(node)] += r[p];
        }
        for (int k = 0; k < extraRowCounts[i]; ++k) rhs[static_cast<size_t>(firstExtraRow[i] + k)] += r[count + static_cast<size_t>(k)];
    }
    for (int row : fixedRow)
        if (row >= 0) rhs[static_cast<size_t>(row)] = fixedValues[static_cast<size_t>(row)];
}

std::vector<scalar>& MNAContext::getJacobian(std::vector<scalar>& x) {
    std::copy(linearMatrix.begin(), linearMatrix.end(), jacobian.begin());
    const int last = highestNode + extraRowCount;
    const size_t n = static_cast<size_t>(size);
    for (size_t i = 0; i < components.size(); ++i) {
        if (!isNonlinear[i]) continue;
        scalar** s = components[i]->getJacobian(x);
        if (!s) continue;
        const std::vector<int>& nodeIndex = *nodeIndices[i];
        const size_t count = nodeIndex.size();
        for (size_t p = 0; p < count; ++p) {
            if (nodeIndex[p] == -1 || nodeIndex[p] > last) continue;
            for (size_t q = 0; q < count; ++q)
                if (nodeIndex[q] != -1)
                    jacobian[static_cast<size_t>(nodeIndex[p]) + n * static_cast<size_t>(nodeIndex[q])] += s[p][q];
        }
    }
    return jacobian;
}

void MNAContext::setSolution(const std::vector<scalar>& x) {
    if (solution.size() != x.size()) solution.resize(x.size());
    std::copy(x.begin(), x.end(), solution.begin());
}

std::vector<scalar>& MNAContext::getOutputs() {
    if (!outputNames) return *outputs;
    for (size_t k = 0; k < outputIndices.size(); ++k)
        (*outputs)[k] = solution[static_cast<size_t>(outputIndices[k])];
    return *outputs;
}

}  // namespace vrn
