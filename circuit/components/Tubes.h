#pragma once
// The nonlinear components: a triode (plate, grid, cathode) and a pentode (plate, screen, grid,
// cathode).  Each clamps the voltages the solver offers, asks its current models, and stamps
// the currents (negated, in the rhs) and their derivatives (in the Jacobian).

#include <functional>
#include <memory>
#include <string>
#include <unordered_map>

#include "circuit/Component.h"
#include "circuit/components/TubeModels.h"

namespace vrn {

// The built-in tube types: type text to its property map.
const std::unordered_map<std::string, std::function<Properties()>>& builtInTriodes();
const std::unordered_map<std::string, std::function<Properties()>>& builtInPentodes();

class Triode : public Component {
public:
    Triode();
    void init(const std::string& name, const Properties& properties,
              const std::shared_ptr<std::vector<std::string>>& nodeNames,
              const std::shared_ptr<MNAContext>& context) override;
    scalar* getRhs(std::vector<scalar>& x) override;
    bool isNonlinear() override { return true; }
    scalar** getJacobian(std::vector<scalar>& x) override;
    void setNodeIndices(const std::shared_ptr<std::vector<int>>& indices) override;
    bool hasRhs() override { return true; }
    TriodeCurrent& getAnodeModel() { return *anode; }
    TriodeCurrent& getGridModel() { return *grid; }

private:
    void prepare(std::vector<scalar>& x);

    std::unique_ptr<TriodeCurrent> anode;
    std::unique_ptr<TriodeCurrent> grid;
    scalar rhs[3] = {};
    scalar jacobian[3][3] = {};
    scalar* jacobianRows[3];
    bool live[3] = {};
    scalar vp = 0.0f, lastVp = 0.0f, vg = 0.0f, vk = 0.0f;
};

class Pentode : public Component {
public:
    Pentode();
    void init(const std::string& name, const Properties& properties,
              const std::shared_ptr<std::vector<std::string>>& nodeNames,
              const std::shared_ptr<MNAContext>& context) override;
    // Audio thread: a current that is not a number throws, and the sample repeats the last solution.
    scalar* getRhs(std::vector<scalar>& x) override;
    bool isNonlinear() override { return true; }
    scalar** getJacobian(std::vector<scalar>& x) override;
    void setNodeIndices(const std::shared_ptr<std::vector<int>>& indices) override;
    bool hasRhs() override { return true; }

private:
    void prepare(std::vector<scalar>& x);

    std::unique_ptr<PentodeCurrent> anode;
    std::unique_ptr<PentodeCurrent> grid;
    std::unique_ptr<PentodeCurrent> screen;
    // ClampPlate="false": the plate node is left free (it may fall below the cathode, where the
    // tube takes no plate current), for stages whose plate is also pulled by other elements.
    bool clampPlate = true;
    bool plateCutOff = false;
    scalar rhs[4] = {};
    scalar jacobian[4][4] = {};
    scalar* jacobianRows[4];
    bool live[4] = {};
    scalar vp = 0.0f, vs = 0.0f, lastVp = 0.0f, vg = 0.0f, vk = 0.0f;
};

}  // namespace vrn
