#pragma once
// Ideal one-way amplifiers (their output node is fixed and recomputed in b(x)), the open-loop
// op-amp in one extra row, and a memoryless table-driven amplifier with optional input current.

#include "circuit/Component.h"

namespace vrn {

class IdealAmplifier : public Component {
public:
    void init(const std::string& name, const Properties& properties,
              const std::shared_ptr<std::vector<std::string>>& nodeNames,
              const std::shared_ptr<MNAContext>& context) override;
    void propertiesChanged(const Properties& properties) override;
    void propertyChanged(const std::string& name, scalar value) override;
    using Component::propertyChanged;
    scalar* getRhs(std::vector<scalar>& x) override;
    bool hasRhs() override { return true; }
    bool isFixedVoltage() override { return true; }

private:
    scalar gain = 0.0f;
    scalar rhs[2] = {};
};

class IdealDifferentialAmplifier : public Component {
public:
    void init(const std::string& name, const Properties& properties,
              const std::shared_ptr<std::vector<std::string>>& nodeNames,
              const std::shared_ptr<MNAContext>& context) override;
    void propertiesChanged(const Properties& properties) override;
    void propertyChanged(const std::string& name, scalar value) override;
    using Component::propertyChanged;
    scalar* getRhs(std::vector<scalar>& x) override;
    bool hasRhs() override { return true; }
    bool isFixedVoltage() override { return true; }

private:
    scalar gain = 0.0f;
    scalar rhs[3] = {};
};

// Gain·v(in+) - v(out) - Gain·v(in-) = 0, the row current entering the output.
class OpAmp : public Component {
public:
    OpAmp();
    void init(const std::string& name, const Properties& properties,
              const std::shared_ptr<std::vector<std::string>>& nodeNames,
              const std::shared_ptr<MNAContext>& context) override;
    void propertiesChanged(const Properties& properties) override;
    void propertyChanged(const std::string& name, scalar value) override;
    using Component::propertyChanged;
    scalar** getB() override { return bRows; }
    scalar** getC() override { return cRows; }
    int getExtraRowCount() override { return 1; }

private:
    void setGain(scalar value);

    scalar b[3][1] = {{0.0f}, {1.0f}, {0.0f}};
    scalar* bRows[3];
    scalar c[1][3] = {};
    scalar* cRows[1];
};

class LookupTableAmp : public Component {
public:
    LookupTableAmp();
    void init(const std::string& name, const Properties& properties,
              const std::shared_ptr<std::vector<std::string>>& nodeNames,
              const std::shared_ptr<MNAContext>& context) override;
    void propertyChanged(const std::string& name, const std::shared_ptr<std::vector<scalar>>& values) override;
    using Component::propertyChanged;
    scalar* getRhs(std::vector<scalar>& x) override;
    scalar** getJacobian(std::vector<scalar>& x) override;
    bool hasRhs() override { return true; }
    bool isFixedVoltage() override { return true; }
    bool isNonlinear() override { return useInputCurrent; }

private:
    void rebuildDerivatives();
    // The lookup reads Vout[0] and Iin at every index of Vout: refused unless both hold that much.
    void checkTables(const std::vector<scalar>& out, const std::vector<scalar>& current, const char* prefix) const;

    scalar vinMin = 0.0f;
    scalar vinMax = 0.0f;
    scalar deltaV = 0.0f;
    scalar inverseDeltaV = 0.0f;
    bool useInputCurrent = true;
    std::shared_ptr<std::vector<scalar>> vout;
    std::shared_ptr<std::vector<scalar>> iin;
    std::shared_ptr<std::vector<scalar>> dIin;
    scalar rhs[2] = {};
    scalar jacobian[2][2] = {};
    scalar* jacobianRows[2];
};

}  // namespace vrn
