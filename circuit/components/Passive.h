#pragma once
// Resistor, capacitor (trapezoidal companion model) and potentiometer.

#include "circuit/Component.h"

namespace vrn {

class Resistor : public Component {
public:
    Resistor();
    void init(const std::string& name, const Properties& properties,
              const std::shared_ptr<std::vector<std::string>>& nodeNames,
              const std::shared_ptr<MNAContext>& context) override;
    void propertiesChanged(const Properties& properties) override;
    void propertyChanged(const std::string& name, scalar value) override;
    using Component::propertyChanged;
    scalar** getG() override { return gRows; }
    scalar getConductance() const { return conductance; }

private:
    void readProperties(const Properties& properties);
    void setResistance(scalar value, const char* prefix);

    scalar conductance = 0.0f;
    scalar g[2][2] = {};
    scalar* gRows[2];
};

// Trapezoidal companion: a conductance 2C·fs and a history current, updated once per sample.
class Capacitor : public Component, public MNAEventListener {
public:
    Capacitor();
    void init(const std::string& name, const Properties& properties,
              const std::shared_ptr<std::vector<std::string>>& nodeNames,
              const std::shared_ptr<MNAContext>& context) override;
    void propertiesChanged(const Properties& properties) override;
    void propertyChanged(const std::string& name, scalar value) override;
    using Component::propertyChanged;
    scalar** getG() override;
    scalar* getRhs(std::vector<scalar>& x) override;
    bool hasRhs() override { return true; }

    void samplingRateChanged(scalar rate) override;
    void nextSample() override;
    void analysisChanged(int oldType, int newType) override;

    scalar getConductance() const { return conductance; }
    scalar getHistory() const { return history; }

private:
    void readProperties(const Properties& properties);
    void setCapacitance(scalar value);
    void ensureSamplingRate();

    scalar capacitance = 0.0f;
    scalar samplingRate = -1.0f;
    scalar conductance = 0.0f;
    scalar history = 0.0f;
    bool firstStep = true;
    scalar g[2][2] = {};
    scalar* gRows[2];
    scalar rhs[2] = {};
};

class Potentiometer : public Component {
public:
    Potentiometer();
    void init(const std::string& name, const Properties& properties,
              const std::shared_ptr<std::vector<std::string>>& nodeNames,
              const std::shared_ptr<MNAContext>& context) override;
    void propertiesChanged(const Properties& properties) override;
    void propertyChanged(const std::string& name, scalar value) override;
    using Component::propertyChanged;
    scalar** getG() override { return gRows; }

private:
    void readProperties(const Properties& properties);
    void setWiper(scalar value);

    scalar resistance = 0.0f;
    scalar wiper = 0.5f;
    scalar g[3][3] = {};
    scalar* gRows[3];
};

}  // namespace vrn
