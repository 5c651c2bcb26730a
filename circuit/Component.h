#pragma once
// The element of a netlist: it stamps small arrays on its own nodes and never sees the global
// system.  MNAEventListener: what a component hears of rate, sample and analysis changes.

#include <memory>
#include <string>
#include <vector>

#include "engine/Element.h"

namespace vrn {

class MNAContext;

// The largest table a component may build at load (entries of float, 64 MB): a step that would
// need more is refused instead of taking the machine's memory.
constexpr double kMaxTableEntries = 16777216.0;

class Component : public Element {
public:
    ~Component() override {}
    using Element::propertiesChanged;
    using Element::propertyChanged;
    const std::string& getName() const override { return name; }

    // Load time: stores the context, the name and the node names, then reads the properties.
    virtual void init(const std::string& name, const Properties& properties,
                      const std::shared_ptr<std::vector<std::string>>& nodeNames,
                      const std::shared_ptr<MNAContext>& context) = 0;

    // Stamps, owned by the component and valid until its next call; null when there is none.
    // G is n×n on the component's nodes, B n×e, C e×n, D e×e, as arrays of row pointers.
    virtual scalar** getG() { return nullptr; }
    virtual scalar** getB() { return nullptr; }
    virtual scalar** getC() { return nullptr; }
    virtual scalar** getD() { return nullptr; }
    // n + e values; a nonlinear component returns its currents negated.  May clamp x.
    virtual scalar* getRhs(std::vector<scalar>& x) {
        (void)x;
        return nullptr;
    }
    virtual int getExtraRowCount() { return 0; }
    virtual bool isNonlinear() { return false; }
    // n×n derivative of the component's currents (plus sign).  May clamp x.
    virtual scalar** getJacobian(std::vector<scalar>& x) {
        (void)x;
        return nullptr;
    }
    virtual void setNodeIndices(const std::shared_ptr<std::vector<int>>& indices) { nodeIndices = indices; }
    virtual const std::shared_ptr<std::vector<int>>& getNodeIndices() { return nodeIndices; }
    virtual const std::shared_ptr<std::vector<std::string>>& getNodeNames() { return nodeNames; }
    virtual void setFirstExtraRow(int row) { firstExtraRow = row; }
    virtual bool hasRhs() { return false; }
    virtual bool isFixedVoltage() { return false; }
    virtual std::string getFixedNode() { return fixedNode; }

protected:
    // Stores what every init stores.
    void bind(const std::string& componentName, const std::shared_ptr<std::vector<std::string>>& names,
              const std::shared_ptr<MNAContext>& mnaContext) {
        name = componentName;
        nodeNames = names;
        context = mnaContext.get();
    }

    // Load time: a component reads its nodes by position, so a wrong count is refused before any
    // stamp is made.  "<type> must have <word> nodes. <type> name=<name>, nodes=<count>"
    void checkNodeCount(const std::string& type, size_t count, const char* countWord) const {
        if (nodeNames && nodeNames->size() == count) return;
        throw InvalidArgumentException(type + " must have " + countWord + " nodes. " + type + " name=" + name +
                                       ", nodes=" + toString(nodeNames ? nodeNames->size() : size_t(0)));
    }

    // The context owns the component: a plain pointer, so that the two do not keep each other.
    MNAContext* context = nullptr;
    std::shared_ptr<std::vector<std::string>> nodeNames;
    std::shared_ptr<std::vector<int>> nodeIndices;
    int firstExtraRow = 0;
    std::string fixedNode;
};

class MNAEventListener {
public:
    virtual ~MNAEventListener() {}
    // Only after the context is initialised.
    virtual void samplingRateChanged(scalar rate) { (void)rate; }
    // Audio thread, before the solve of each sample in an AC analysis.
    virtual void nextSample() {}
    virtual void analysisChanged(int oldType, int newType) {
        (void)oldType;
        (void)newType;
    }
};

// Finds the solution of one sample: A·x = b(x).
class Solver {
public:
    // Load time: reads and validates.
    virtual void setProperties(const Properties& properties) = 0;
    // Load time: stores the context, assembles and factorises, sizes the work vectors.
    virtual void init(const std::shared_ptr<MNAContext>& context) = 0;
    // Between blocks: assembles A and factorises again.
    virtual void update() = 0;
    virtual ~Solver() {}
    // Audio thread, no allocation: x is the start and the result.  True when converged.
    virtual bool solve(std::vector<scalar>& x) = 0;

protected:
    std::shared_ptr<MNAContext> context;
};

}  // namespace vrn
