#pragma once
// The netlist of one circuit: owns the components, numbers the nodes, keeps the linear system
// matrix A and the solution x, and tells its listeners about rate and analysis changes.
// Layout of x: K node voltages, E extra rows (branch currents), F fixed-voltage nodes.

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "circuit/Component.h"
#include "engine/Context.h"

namespace vrn {

class MNAContext : public Context {
public:
    MNAContext();
    ~MNAContext() override;

    // Stores; once initialised, every listener hears of it in order.
    void setSamplingRate(scalar rate) override;
    Element* getElement(std::string name) override;
    // Load time: takes ownership of a Component.
    void addElement(Element* element) override;
    void addListener(MNAEventListener* listener);
    void setOutputNames(const std::shared_ptr<std::vector<std::string>>& names) { outputNames = names; }
    const std::shared_ptr<std::vector<std::string>>& getOutputNames() const { return outputNames; }
    void setAnalysis(int type);
    int getAnalysis() const { return analysisType; }
    // Load time: numbers the nodes and extra rows, allocates the system.
    void initialize();
    void assembleLinearMatrix();
    // Audio thread, no allocation: rhs = b(x).
    void getRhs(std::vector<scalar>& x, std::vector<scalar>& rhs);
    // Audio thread, no allocation: A plus the nonlinear derivatives at x.
    std::vector<scalar>& getJacobian(std::vector<scalar>& x);
    void setSolution(const std::vector<scalar>& x);
    // Reads the named nodes out of the solution.
    std::vector<scalar>& getOutputs();
    // Load time, after initialize(): the nodes that nothing ties to ground or to a fixed voltage
    // in the present analysis, in the order of numbering.  Such a node leaves the matrix singular.
    // Nonlinear components count as joining all their nodes, so a netlist is never refused for
    // what only a tube's conduction would decide.
    std::vector<std::string> findFloatingNodes();
    // "node <name>" or "branch current of <component>" for an index of x; for messages.
    std::string describeUnknown(int index) const;
    bool isExtraRow(int index) const { return index > highestNode && index <= highestNode + extraRowCount; }

    void setInputs(const std::shared_ptr<std::vector<scalar>>& values) { inputs = values; }
    const std::shared_ptr<std::vector<scalar>>& getInputs() const { return inputs; }
    const std::vector<scalar>& getSolution() const { return solution; }
    std::vector<scalar>& getLinearMatrix() { return linearMatrix; }
    int getSize() const { return size; }
    int getHighestNode() const { return highestNode; }
    int getExtraRowCount() const { return extraRowCount; }
    int getLowestFixedNode() const { return lowestFixedNode; }
    bool isInitialized() const { return initialized; }
    bool isMatrixChanged() const { return matrixChanged; }
    void setMatrixChanged(bool changed) { matrixChanged = changed; }
    const std::unordered_map<std::string, int>& getNodes() const { return nodes; }
    const std::vector<Component*>& getComponents() const { return components; }
    const std::vector<MNAEventListener*>& getListeners() const { return listeners; }

private:
    int highestNode = -1;
    int extraRowCount = 0;
    int lowestFixedNode = -1;
    int size = 0;
    std::vector<scalar> linearMatrix;
    std::vector<scalar> solution;
    std::vector<scalar> jacobian;
    std::unordered_map<std::string, std::unique_ptr<Element>> elements;
    std::vector<Component*> components;
    std::unordered_map<std::string, int> nodes;
    std::unordered_map<std::string, int> extraRowByName;
    std::vector<int> firstExtraRow;
    std::vector<int> extraRowCounts;
    std::vector<bool> hasRhs;
    std::vector<bool> isNonlinear;
    std::vector<bool> isFixedVoltage;
    std::vector<std::shared_ptr<std::vector<int>>> nodeIndices;
    std::vector<int> fixedRow;
    std::vector<scalar> fixedValues;
    std::vector<std::string> componentNames;
    std::vector<MNAEventListener*> listeners;
    std::shared_ptr<std::vector<scalar>> inputs;
    std::shared_ptr<std::vector<std::string>> outputNames;
    std::vector<int> outputIndices;
    std::shared_ptr<std::vector<scalar>> outputs;
    int analysisType = 1;
    bool initialized = false;
    bool matrixChanged = false;
};

}  // namespace vrn
