#pragma once
// The four ways of solving one sample of A·x = b(x): no iteration, Newton (true Jacobian or its
// diagonal), a secant-like simplified Newton, and successive approximations with adaptive
// relaxation.

#include <memory>
#include <string>
#include <vector>

#include <Eigen/Dense>

#include "circuit/Component.h"
#include "engine/Kernels.h"

namespace vrn {

// Load time: "NewtonRaphson", "Linear", "SuccessiveApproximations", "SimplifiedNewton".
std::shared_ptr<Solver> makeSolver(const std::string& type);

typedef Eigen::Matrix<scalar, Eigen::Dynamic, Eigen::Dynamic> SolverMatrix;

// One pass per sample with b taken at the start: exact for linear netlists.
class LinearSolver : public Solver {
public:
    void setProperties(const Properties& properties) override;
    void init(const std::shared_ptr<MNAContext>& context) override;
    void update() override;
    bool solve(std::vector<scalar>& x) override;

private:
    SolverMatrix matrix;
    SolverMatrix inverse;
    std::unique_ptr<PackedMatrix> packedInverse;
    std::vector<scalar> rhs;
    std::vector<scalar> scratch;
};

class NewtonSolver : public Solver {
public:
    void setProperties(const Properties& properties) override;
    void init(const std::shared_ptr<MNAContext>& context) override;
    void update() override;
    bool solve(std::vector<scalar>& x) override;
    int getLastIterations() const { return lastIterations; }

private:
    void splitSolve(std::vector<scalar>& jacobian);

    scalar relativeTollerance = 0.0f;
    scalar absoluteTollerance = 0.0f;
    scalar relaxation = 1.0f;
    int maxIterations = 0;
    int fixedPointSteps = 0;
    bool useDiagonalNewton = false;
    SolverMatrix matrix;
    Eigen::PartialPivLU<SolverMatrix> lu;
    std::unique_ptr<PackedMatrix> packedMatrix;
    std::vector<scalar> rhs;
    std::vector<scalar> previous;
    std::vector<scalar> delta;
    std::vector<scalar> error;
    std::vector<scalar> residual;
    int unknownCount = 0;
    int stride = 0;
    std::vector<int> pivots;
    int lastError = 0;
    int lastIterations = 0;
    bool propertiesSet = false;
    bool initialized = false;
};

class SimplifiedNewtonSolver : public Solver {
public:
    void setProperties(const Properties& properties) override;
    void init(const std::shared_ptr<MNAContext>& context) override;
    void update() override;
    bool solve(std::vector<scalar>& x) override;
    int getLastIterations() const { return lastIterations; }

private:
    scalar relativeTollerance = 0.0f;
    scalar absoluteTollerance = 0.0f;
    int maxIterations = 0;
    SolverMatrix matrix;
    Eigen::FullPivLU<SolverMatrix> fullLu;
    std::unique_ptr<PackedMatrix> packedMatrix;
    std::vector<scalar> rhs;
    std::vector<scalar> previous;
    std::vector<scalar> delta;
    std::vector<scalar> error;
    std::vector<scalar> residual;
    std::vector<scalar> previousResidual;
    std::vector<scalar> slopes;
    int lastIterations = 0;
    bool propertiesSet = false;
    bool initialized = false;
};

class SuccessiveApproximationsSolver : public Solver {
public:
    void setProperties(const Properties& properties) override;
    void init(const std::shared_ptr<MNAContext>& context) override;
    void update() override;
    bool solve(std::vector<scalar>& x) override;
    int getLastIterations() const { return lastIterations; }

private:
    scalar relativeTollerance = 0.0f;
    scalar absoluteTollerance = 0.0f;
    scalar initialRelaxation = 0.0f;
    scalar minRelaxation = 0.0f;
    scalar maxRelaxation = 0.0f;
    scalar growth = 0.0f;
    scalar reduction = 0.0f;
    int maxIterations = 0;
    SolverMatrix matrix;
    SolverMatrix inverse;
    Eigen::FullPivLU<SolverMatrix> fullLu;
    bool invertible = false;
    std::unique_ptr<PackedMatrix> packedInverse;
    std::vector<scalar> rhs;
    std::vector<scalar> previous;
    std::vector<scalar> delta;
    std::vector<scalar> error;
    int lastIterations = 0;
    bool propertiesSet = false;
    bool initialized = false;
};

}  // namespace vrn
