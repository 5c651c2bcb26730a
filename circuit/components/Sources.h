#pragma once
// Voltage sources: a battery and a source driven by one of the circuit's inputs.  A source is
// fixed on its first live node unless UseFixedVoltage says false; then it takes an extra row.

#include "circuit/Component.h"

namespace vrn {

class VoltageSource : public Component {
public:
    VoltageSource();
    scalar** getB() override { return fixed ? nullptr : bRows; }
    scalar** getC() override { return fixed ? nullptr : cRows; }
    int getExtraRowCount() override { return fixed ? 0 : 1; }
    bool hasRhs() override { return true; }
    bool isFixedVoltage() override { return fixed; }
    virtual void readProperties(const Properties& properties) = 0;

protected:
    // Node count check and the choice of the fixed node; typeName is for the message.
    void chooseFixedNode(const char* typeName);
    // The rhs for a source of value u.
    void fillRhs(scalar u);

    bool fixed = false;
    scalar b[2][1] = {{1.0f}, {-1.0f}};
    scalar* bRows[2];
    scalar c[1][2] = {{1.0f, -1.0f}};
    scalar* cRows[1];
    scalar rhs[3] = {};
};

class Battery : public VoltageSource {
public:
    void init(const std::string& name, const Properties& properties,
              const std::shared_ptr<std::vector<std::string>>& nodeNames,
              const std::shared_ptr<MNAContext>& context) override;
    void readProperties(const Properties& properties) override;
    void propertiesChanged(const Properties& properties) override;
    // Stores the voltage; it reaches the solution only at the next propertiesChanged.
    void propertyChanged(const std::string& name, scalar value) override;
    using Component::propertyChanged;
    scalar* getRhs(std::vector<scalar>& x) override;
    scalar getVoltage() const { return voltage; }

private:
    scalar voltage = 0.0f;
};

class VoltageInputSource : public VoltageSource, public MNAEventListener {
public:
    void init(const std::string& name, const Properties& properties,
              const std::shared_ptr<std::vector<std::string>>& nodeNames,
              const std::shared_ptr<MNAContext>& context) override;
    void readProperties(const Properties& properties) override;
    void propertiesChanged(const Properties& properties) override;
    void propertyChanged(const std::string& name, scalar value) override;
    using Component::propertyChanged;
    // Audio thread: DCOffset plus the present input sample.
    scalar* getRhs(std::vector<scalar>& x) override;
    void analysisChanged(int oldType, int newType) override;
    // Load time, when the graph's input count is known: InputNumber must name one of its inputs.
    void checkInputNumber(int numberOfInputs) const;

private:
    int inputNumber = 0;
    scalar dcOffset = 0.0f;
    scalar input = 0.0f;
    bool inputsTaken = false;
    std::shared_ptr<std::vector<scalar>> inputs;
};

}  // namespace vrn
