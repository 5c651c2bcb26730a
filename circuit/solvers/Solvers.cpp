#include "circuit/solvers/Solvers.h"

#include <algorithm>
#include <cctype>
#include <cmath>

#include "circuit/MNAContext.h"

namespace vrn {

namespace {

typedef Eigen::Map<Eigen::Matrix<scalar, Eigen::Dynamic, 1>> VectorMap;

// One number for the whole vector: the worst step beyond the relative allowance.
scalar errorMeasure(const std::vector<scalar>& delta, const std::vector<scalar>& x, std::vector<scalar>& error,
                    scalar relativeTollerance) {
    scalar e = -INFINITY;
    for (size_t i = 0; i < x.size(); ++i) {
        error[i] = std::fabs(delta[i]) - relativeTollerance * std::fabs(x[i]);
        e = std::max(e, error[i]);
    }
    return e;
}

void resize(std::vector<scalar>& vector, size_t n) {
    if (vector.size() != n) vector.assign(n, 0.0f);
}

void refreshPacked(std::unique_ptr<PackedMatrix>& packed, const SolverMatrix& source) {
    int n = static_cast<int>(source.rows());
    if (packed && packed->getRows() == n && packed->getColumns() == n)
        packed->updateMatrix(source.data(), n, n);
    else
        packed.reset(new PackedMatrix(source.data(), n, n));
}

// The context's A as an Eigen matrix.
void copyLinearMatrix(MNAContext& context, SolverMatrix& matrix) {
    context.assembleLinearMatrix();
    int n = context.getSize();
    matrix = Eigen::Map<SolverMatrix>(context.getLinearMatrix().data(), n, n);
}

// The property readers share their messages' shape: "<prefix>: <Key> is not defined." and
// "<prefix>: <Key> must be greater than 0. <shown>=<value>".
struct Reader {
    const Properties& properties;
    std::string prefix;

    scalar positive(const std::string& key, const std::string& shown) const {
        scalar value = 0.0f;
        getProperty(properties, key, value, toScalar, VRNException(prefix + ": " + key + " is not defined."));
        if (!(value > 0))
            throw InvalidArgumentException(prefix + ": " + key + " must be greater than 0. " + shown + "=" +
                                           toString(static_cast<double>(value)));
        return value;
    }

    int positiveCount(const std::string& key) const {
        int value = 0;
        getProperty(properties, key, value, toInt, VRNException(prefix + ": " + key + " is not defined."));
        if (!(value > 0))
            throw InvalidArgumentException(prefix + ": " + key + " must be greater than 0. " + key + "=" + toString(value));
        return value;
    }
};

}  // namespace

std::shared_ptr<Solver> makeSolver(const std::string& type) {
    if (type == "NewtonRaphson") return std::make_shared<NewtonSolver>();
    if (type == "Linear") return std::make_shared<LinearSolver>();
    if (type == "SuccessiveApproximations") return std::make_shared<SuccessiveApproximationsSolver>();
    if (type == "SimplifiedNewton") return std::make_shared<SimplifiedNewtonSolver>();
    throw VRNException("Unknown solver type: " + type);
}

// --- LinearSolver

void LinearSolver::setProperties(const Properties&) {}

void LinearSolver::init(const std::shared_ptr<MNAContext>& mnaContext) {
    context = mnaContext;
    update();
}

void LinearSolver::update() {
    copyLinearMatrix(*context, matrix);
    Eigen::PartialPivLU<SolverMatrix> lu(matrix);
    inverse = lu.inverse();
    refreshPacked(packedInverse, inverse);
    size_t n = static_cast<size_t>(context->getSize());
    resize(rhs, n);
    resize(scratch, n);
}

bool LinearSolver::solve(std::vector<scalar>& x) {
    context->getRhs(x, rhs);
    int n = static_cast<int>(rhs.size());
    packedInverse->multiply(rhs.data(), x.data(), n, n);
    return true;
}

// --- NewtonSolver

void NewtonSolver::setProperties(const Properties& properties) {
    Reader read{properties, "NewtonSolver"};
    relativeTollerance = read.positive("RelativeTollerance", "relativeTollerance");
    absoluteTollerance = read.positive("AbsoluteTollerance", "AbsoluteTollerance");
    auto found = properties.find("Relaxation");
    relaxation = found != properties.end() ? toScalar(found->second) : 1.0f;
    if (!(relaxation > 0 && relaxation <= 1))
        throw InvalidArgumentException(
            "NewtonSolver: Relaxation must be greater than 0 and less than or equal to 1. InitialRelaxation=" +
            toString(static_cast<double>(relaxation)));
    found = properties.find("FixedPointSteps");
    fixedPointSteps = found != properties.end() ? toInt(found->second) : 0;
    if (fixedPointSteps < 0)
        throw InvalidArgumentException("NewtonSolver: FixedPointSteps must be greater than or equal to 0. FixedPointSteps=" +
                                       toString(fixedPointSteps));
    found = properties.find("UseDiagonalNewton");
    useDiagonalNewton = false;
    if (found != properties.end()) {
        std::string text = found->second;
        std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
        useDiagonalNewton = text == "true";
    }
    maxIterations = read.positiveCount("MaxIterations");
    propertiesSet = true;
}

void NewtonSolver::init(const std::shared_ptr<MNAContext>& mnaContext) {
    if (!propertiesSet) throw VRNException("NewtonSolver: Properties must be set before calling init().");
    context = mnaContext;
    update();
    initialized = true;
}

void NewtonSolver::update() {
    copyLinearMatrix(*context, matrix);
    lu.compute(matrix);
    refreshPacked(packedMatrix, matrix);
    int n = context->getSize();
    stride = n;
    unknownCount = context->getLowestFixedNode() + 1 + n;
    pivots.assign(static_cast<size_t>(n), 0);
    for (std::vector<scalar>* v : {&rhs, &previous, &delta, &error, &residual}) resize(*v, static_cast<size_t>(n));
}

void NewtonSolver::splitSolve(std::vector<scalar>& jacobian) {
    // Fixed nodes have unit rows: their updates are known and go to the right side, and only the
    // block of unknowns is factorised.
    const int u = unknownCount;
    const int n = stride;
    for (int i = u; i < n; ++i) {
        saxpy(u, -residual[static_cast<size_t>(i)], jacobian.data() + static_cast<size_t>(i) * static_cast<size_t>(n),
              residual.data());
        delta[static_cast<size_t>(i)] = residual[static_cast<size_t>(i)];
    }
    int result = ludcmp(u, jacobian.data(), n, pivots.data());
    if (result != 0) {
        lastError = result;
        // The first column without a usable pivot is the unknown that the system leaves undetermined.
        int column = 0;
        for (; column < u; ++column) {
            bool pivot = false;
            for (int i = column; i < u && !pivot; ++i)
                pivot = std::fabs(jacobian[static_cast<size_t>(i) + static_cast<size_t>(column) * static_cast<size_t>(n)]) >= 1e-20f;
            if (!pivot) break;
        }
        // A branch current is left undetermined by some node's equation that found no partner: the
        // rows still without a pivot are those equations, in their original order.
        int unknown = column;
        if (column < u && context->isExtraRow(column))
            for (int i = column; i < u; ++i)
                if (!context->isExtraRow(pivots[static_cast<size_t>(i)])) {
                    unknown = pivots[static_cast<size_t>(i)];
                    break;
                }
        throw VRNException("ludcmp returned error: " + toString(result) +
                           (column < u ? " at " + context->describeUnknown(unknown) : std::string()));
    }
    result = lubksb(u, jacobian.data(), n, pivots.data(), delta.data(), residual.data());
    if (result != 0) {
        lastError = result;
        throw VRNException("lubksb returned error: " + toString(result));
    }
}

bool NewtonSolver::solve(std::vector<scalar>& x) {
    if (!initialized) throw VRNException("NewtonSolver: Not initialized.");
    std::fill(delta.begin(), delta.end(), 0.0f);
    lastIterations = 0;
    // A tolerance of 10 or more switches the iteration off.
    if (!(10.0f > absoluteTollerance)) return maxIterations > 0;
    const int n = stride;
    for (int k = 1;; ++k) {
        if (k - 1 >= maxIterations) return false;
        lastIterations = k;
        context->getRhs(x, rhs);
        std::copy(x.begin(), x.end(), previous.begin());
        if (k <= fixedPointSteps) {
            VectorMap(x.data(), n) = lu.solve(VectorMap(rhs.data(), n));
            for (int i = 0; i < n; ++i) {
                delta[static_cast<size_t>(i)] = x[static_cast<size_t>(i)] - previous[static_cast<size_t>(i)];
                x[static_cast<size_t>(i)] = previous[static_cast<size_t>(i)] + relaxation * delta[static_cast<size_t>(i)];
            }
        } else {
            packedMatrix->multiply(x.data(), residual.data(), n, n);
            saxpy(n, -1.0f, rhs.data(), residual.data());
            std::vector<scalar>& jacobian = context->getJacobian(x);
            if (useDiagonalNewton) {
                for (int i = 0; i < n; ++i)
                    delta[static_cast<size_t>(i)] =
                        residual[static_cast<size_t>(i)] *
                        (1.0f / jacobian[static_cast<size_t>(i) + static_cast<size_t>(n) * static_cast<size_t>(i)]);
            } else {
                splitSolve(jacobian);
            }
            for (int i = 0; i < n; ++i)
                x[static_cast<size_t>(i)] = previous[static_cast<size_t>(i)] - relaxation * delta[static_cast<size_t>(i)];
        }
        if (!(errorMeasure(delta, x, error, relativeTollerance) > absoluteTollerance)) return k < maxIterations;
    }
}

// --- SimplifiedNewtonSolver

void SimplifiedNewtonSolver::setProperties(const Properties& properties) {
    Reader read{properties, "SimplifiedNewtonSolver"};
    relativeTollerance = read.positive("RelativeTollerance", "relativeTollerance");
    absoluteTollerance = read.positive("AbsoluteTollerance", "AbsoluteTollerance");
    maxIterations = read.positiveCount("MaxIterations");
    propertiesSet = true;
}

void SimplifiedNewtonSolver::init(const std::shared_ptr<MNAContext>& mnaContext) {
    if (!propertiesSet) throw VRNException("SimplifiedNewtonSolver: Properties must be set before calling init().");
    context = mnaContext;
    update();
    initialized = true;
}

void SimplifiedNewtonSolver::update() {
    copyLinearMatrix(*context, matrix);
    fullLu.compute(matrix);
    refreshPacked(packedMatrix, matrix);
    size_t n = static_cast<size_t>(context->getSize());
    for (std::vector<scalar>* v : {&rhs, &previous, &delta, &error, &residual, &previousResidual, &slopes})
        resize(*v, n);
}

bool SimplifiedNewtonSolver::solve(std::vector<scalar>& x) {
    if (!initialized) throw VRNException("SimplifiedNewtonSolver is not initialized.");
    std::fill(delta.begin(), delta.end(), 0.0f);
    lastIterations = 0;
    if (!(10.0f > absoluteTollerance)) return maxIterations > 0;
    const int n = static_cast<int>(x.size());
    for (int k = 1;; ++k) {
        if (k - 1 >= maxIterations) return false;
        lastIterations = k;
        context->getRhs(x, rhs);
        packedMatrix->multiply(x.data(), residual.data(), n, n);
        saxpy(n, -1.0f, rhs.data(), residual.data());
        if (k > 1) {
            // Secant slope per coordinate; a residual that did not move keeps the old slope.
            for (size_t i = 0; i < x.size(); ++i) {
                scalar d = residual[i] - previousResidual[i];
                if (std::fabs(d) > 1e-8f) slopes[i] = (x[i] - previous[i]) / d;
            }
        }
        std::copy(residual.begin(), residual.end(), previousResidual.begin());
        std::copy(x.begin(), x.end(), previous.begin());
        if (k == 1) {
            VectorMap(x.data(), n) = fullLu.solve(VectorMap(rhs.data(), n));
            for (size_t i = 0; i < x.size(); ++i) delta[i] = x[i] - previous[i];
        } else {
            for (size_t i = 0; i < x.size(); ++i) {
                delta[i] = -(slopes[i] * residual[i]);
                x[i] = previous[i] + delta[i];
            }
        }
        if (!(errorMeasure(delta, x, error, relativeTollerance) > absoluteTollerance)) return k < maxIterations;
    }
}

// --- SuccessiveApproximationsSolver

void SuccessiveApproximationsSolver::setProperties(const Properties& properties) {
    Reader read{properties, "SuccessiveApproximations"};
    relativeTollerance = read.positive("RelativeTollerance", "relativeTollerance");
    absoluteTollerance = read.positive("AbsoluteTollerance", "AbsoluteTollerance");
    initialRelaxation = read.positive("InitialRelaxation", "InitialRelaxation");
    minRelaxation = read.positive("MinRelaxation", "MinRelaxation");
    maxRelaxation = read.positive("MaxRelaxation", "MaxRelaxation");
    growth = read.positive("Growth", "Growth");
    reduction = read.positive("Reduction", "Reduction");
    maxIterations = read.positiveCount("MaxIterations");
    propertiesSet = true;
}

void SuccessiveApproximationsSolver::init(const std::shared_ptr<MNAContext>& mnaContext) {
    if (!propertiesSet)
        throw VRNException("SuccessiveApproximationsSolver: Properties must be set before calling init().");
    context = mnaContext;
    update();
    initialized = true;
}

void SuccessiveApproximationsSolver::update() {
    copyLinearMatrix(*context, matrix);
    fullLu.compute(matrix);
    invertible = matrix.rows() == matrix.cols() && fullLu.rank() == matrix.rows();
    if (invertible) {
        inverse = fullLu.inverse();
        refreshPacked(packedInverse, inverse);
    }
    size_t n = static_cast<size_t>(context->getSize());
    for (std::vector<scalar>* v : {&rhs, &previous, &delta, &error}) resize(*v, n);
}

bool SuccessiveApproximationsSolver::solve(std::vector<scalar>& x) {
    if (!initialized) throw VRNException("SuccessiveApproximationsSolver is not initialized");
    scalar r = initialRelaxation;
    scalar p = 0.0f;
    std::fill(delta.begin(), delta.end(), 0.0f);
    lastIterations = 0;
    if (!(absoluteTollerance + 1.0f > absoluteTollerance)) return maxIterations > 0;
    const int n = static_cast<int>(x.size());
    for (int k = 1;; ++k) {
        if (k - 1 >= maxIterations) return false;
        lastIterations = k;
        std::copy(x.begin(), x.end(), previous.begin());
        std::fill(rhs.begin(), rhs.end(), 0.0f);
        context->getRhs(x, rhs);
        if (invertible)
            packedInverse->multiply(rhs.data(), x.data(), n, n);
        else
            VectorMap(x.data(), n) = fullLu.solve(VectorMap(rhs.data(), n));
        for (size_t i = 0; i < x.size(); ++i) delta[i] = x[i] - previous[i];
        scalar e = errorMeasure(delta, x, error, relativeTollerance);
        if (e < absoluteTollerance && k > 1) return k < maxIterations;
        if (k > maxIterations) return false;
        if (k != 1) {
            // Relax harder while the error grows, less while it falls.
            if (e > p)
                r = std::max(r * reduction, minRelaxation);
            else
                r = std::min(r * growth, maxRelaxation);
            for (size_t i = 0; i < x.size(); ++i) x[i] = previous[i] + r * delta[i];
        }
        p = e;
        if (!(e > absoluteTollerance)) return k < maxIterations;
    }
}

}  // namespace vrn
