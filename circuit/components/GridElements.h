#pragma once
// Two elements for stage models in which the grid of a tube is driven past its cathode:
// GridClamp holds a grid node at its drive but never above the cathode (the limit of a source
// resistance much larger than the conducting grid), and GridCurrentLoad draws a power-law grid
// current, controlled by a drive and a cathode, out of any node (for instance through a plate
// load, to model a following stage that loads this one).

#include "circuit/Component.h"

namespace vrn {

// Nodes: grid, drive, cathode.  v(grid) = min(v(drive), v(cathode) + Offset); the grid node is
// fixed and recomputed in b(x), like the output of an ideal amplifier.
class GridClamp : public Component {
public:
    void init(const std::string& name, const Properties& properties,
              const std::shared_ptr<std::vector<std::string>>& nodeNames,
              const std::shared_ptr<MNAContext>& context) override;
    void propertiesChanged(const Properties& properties) override;
    using Component::propertiesChanged;
    using Component::propertyChanged;
    scalar* getRhs(std::vector<scalar>& x) override;
    bool hasRhs() override { return true; }
    bool isFixedVoltage() override { return true; }

private:
    scalar offset = 0.0f;
    scalar rhs[3] = {};
};

// Nodes: load, drive, cathode.  I = Igc·(v(drive) - v(cathode) + Vc)^N above zero, flowing out of
// the load node into the cathode node (into the load node when Igc is negative).
class GridCurrentLoad : public Component {
public:
    GridCurrentLoad();
    void init(const std::string& name, const Properties& properties,
              const std::shared_ptr<std::vector<std::string>>& nodeNames,
              const std::shared_ptr<MNAContext>& context) override;
    void propertiesChanged(const Properties& properties) override;
    using Component::propertiesChanged;
    using Component::propertyChanged;
    scalar* getRhs(std::vector<scalar>& x) override;
    bool hasRhs() override { return true; }
    bool isNonlinear() override { return true; }
    scalar** getJacobian(std::vector<scalar>& x) override;
    // The current at the voltages of x, in ampere.
    double current(const std::vector<scalar>& x) const;

private:
    void readProperties(const Properties& properties);
    double controlVoltage(const std::vector<scalar>& x) const;

    double igc = 0, vc = 0, exponent = 1;
    scalar rhs[3] = {};
    scalar jacobian[3][3] = {};
    scalar* jacobianRows[3];
};

}  // namespace vrn
