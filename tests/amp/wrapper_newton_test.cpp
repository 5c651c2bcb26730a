// FilterWrapper with its calculator, OrmFactory, and the Newton loop solver: alone and in a
// system description run by the Driver.

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "amp/CouplingNetworks.h"
#include "amp/FilterWrapper.h"
#include "amp/Newton.h"
#include "amp/OrmFactory.h"
#include "engine/Context.h"
#include "engine/DSPGraph.h"
#include "filters/FirstOrderIIR.h"
#include "filters/Gain.h"
#include "filters/LookupTableFilter.h"
#include "support/TestSupport.h"

using namespace vrn;

namespace {

// Records what reaches it; its inner filter is a FirstOrderIIR it leaves alone.
class RecordingCalculator : public WrappedFilterPropertyCalculator {
public:
    RecordingCalculator() : filter(std::make_shared<FirstOrderIIR>()) {}
    std::shared_ptr<Filter>& getFilter() override { return filter; }
    void propertiesChanged(const std::unordered_map<std::string, scalar>& properties) override {
        ++wholeSets;
        last = properties;
    }
    void propertyChanged(const std::string& name, scalar value) override { single.emplace_back(name, value); }
    void setSamplingRate(scalar value) override { rate = value; }

    std::shared_ptr<Filter> filter;
    int wholeSets = 0;
    std::unordered_map<std::string, scalar> last;
    std::vector<std::pair<std::string, scalar>> single;
    scalar rate = 0;
};

Properties props(std::initializer_list<std::pair<const std::string, std::string>> list) {
    Properties p;
    for (auto& kv : list) p.insert(kv);
    return p;
}

std::shared_ptr<Driver> loadWithOrmFactory(const std::string& xml) {
    auto factory = std::make_shared<DSPElementFactory>();
    factory->addFactory(std::make_shared<OrmFactory>());
    auto driver = Driver::create();
    driver->setDSPElementFactory(factory);
    std::istringstream stream(xml);
    driver->init(stream);
    return driver;
}

template <typename T>
T* element(const std::shared_ptr<Driver>& driver, const std::string& graph, const std::string& name) {
    return dynamic_cast<T*>(driver->getGraph(graph)->getContext()->getElement(name));
}

}  // namespace

TEST(FilterWrapper, PropertyNamesAreParsedRememberedAndDeliveredAtWiring) {
    auto context = std::make_shared<DSPContext>();
    FilterWrapper wrapper;
    wrapper.init("VC", props({{"PropertyNames", "Wiper|Missing|Bad"}, {"Wiper", "0.25"}, {"Bad", "x1"}}), context);
    EXPECT_EQ(2u, wrapper.getWrappedProperties().size());
    EXPECT_FLOAT_EQ(0.25f, wrapper.getWrappedProperties().at("Wiper"));
    EXPECT_FLOAT_EQ(0.0f, wrapper.getWrappedProperties().at("Bad"));  // malformed numbers read as 0
    wrapper.propertyChanged("Wiper", 0.5f);
    wrapper.propertyChanged("Wiper", 0.75f);  // the last value before wiring wins

    auto calculator = std::make_shared<RecordingCalculator>();
    wrapper.setCalculator(calculator);
    EXPECT_EQ(1, calculator->wholeSets);
    EXPECT_FLOAT_EQ(0.75f, calculator->last.at("Wiper"));
    EXPECT_EQ(calculator->filter, wrapper.getFilter());
    EXPECT_EQ("VC", calculator->filter->getName());  // the inner filter bears the wrapper's name

    // After wiring: changes go to the calculator, not into the map; the rate too.
    wrapper.propertyChanged("Wiper", 0.1f);
    ASSERT_EQ(1u, calculator->single.size());
    EXPECT_FLOAT_EQ(0.75f, wrapper.getWrappedProperties().at("Wiper"));
    wrapper.setSamplingRate(96000.0f);
    EXPECT_FLOAT_EQ(96000.0f, calculator->rate);
    EXPECT_TRUE(dynamic_cast<BasicFilterMeta*>(wrapper.getMeta().get()));
}

TEST(FilterWrapper, WithoutValuesTheCalculatorSeesNoWholeSet) {
    auto context = std::make_shared<DSPContext>();
    for (const Properties& p : {props({}), props({{"PropertyNames", "Wiper"}})}) {
        FilterWrapper wrapper;
        wrapper.init("V2V3", p, context);
        auto calculator = std::make_shared<RecordingCalculator>();
        wrapper.setCalculator(calculator);
        EXPECT_EQ(0, calculator->wholeSets);
    }
    // V2V3 unwired by a rate has all-zero coefficients, and silence out.
    FilterWrapper wrapper;
    wrapper.init("V2V3", props({}), context);
    auto coupling = std::make_shared<V2V3Coupling>();
    wrapper.setCalculator(coupling);
    auto* inner = dynamic_cast<FirstOrderIIR*>(wrapper.getFilter().get());
    ASSERT_TRUE(inner);
    EXPECT_EQ(0.0f, inner->getB()[0]);
    EXPECT_EQ(0.0f, inner->getA()[0]);
    wrapper.setSamplingRate(88200.0f);
    EXPECT_NE(0.0f, inner->getB()[0]);
}

TEST(OrmFactory, MakesItsTwoTypesOnly) {
    OrmFactory factory;
    EXPECT_TRUE(factory.isSupported("Newton"));
    EXPECT_TRUE(factory.isSupported("FilterWrapper"));
    EXPECT_FALSE(factory.isSupported("Gain"));
    std::unique_ptr<Filter> newton(factory.create("Newton"));
    EXPECT_TRUE(dynamic_cast<Newton*>(newton.get()));
    std::unique_ptr<Filter> wrapper(factory.create("FilterWrapper"));
    EXPECT_TRUE(dynamic_cast<FilterWrapper*>(wrapper.get()));
    EXPECT_VRN_MESSAGE(factory.create("Gain"), VRNException, "Unknown element type: Gain");
    // Through the engine: built-in types first, then the plug-in's.
    DSPElementFactory engine;
    EXPECT_VRN_MESSAGE(engine.create("FilterWrapper"), VRNException, "Unknown element type: FilterWrapper");
    engine.addFactory(std::make_shared<OrmFactory>());
    std::unique_ptr<Filter> made(engine.create("FilterWrapper"));
    EXPECT_TRUE(dynamic_cast<FilterWrapper*>(made.get()));
}

// A wrapped volume network in a described graph: the control's wiper reaches the calculator,
// the rate comes from the graph, and the audio equals a BiQuad with the same coefficients.
TEST(FilterWrapper, RunsInADescribedSystem) {
    const std::string xml =
        "<System><Graphs><Graph Name=\"Net\" Type=\"DSP\"><NumberOfInputs>1</NumberOfInputs>"
        "<Inputs><Input Graph=\"System\" Node=\"0\"/></Inputs>"
        "<Element Type=\"FilterWrapper\" Name=\"VC\"><Properties PropertyNames=\"Wiper\" Wiper=\"1.0\"/>"
        "<Inputs><Input Port=\"in\" Element=\"Graph\" Output=\"0\"/></Inputs></Element>"
        "<Output><Node Name=\"out\" Element=\"VC\" Port=\"out\"/></Output></Graph></Graphs>"
        "<Outputs><Output Graph=\"Net\" Node=\"out\"/></Outputs>"
        "<Controls><Control Name=\"Volume\" DisplayName=\"Volume\" Value=\"0.5\"><Properties>"
        "<Property Name=\"Wiper\" Graph=\"Net\" Element=\"VC\"/></Properties></Control></Controls></System>";
    auto driver = loadWithOrmFactory(xml);
    auto* wrapper = element<FilterWrapper>(driver, "Net", "VC");
    ASSERT_TRUE(wrapper);
    auto volume = std::make_shared<VolumeControl>();
    wrapper->setCalculator(volume);
    EXPECT_DOUBLE_EQ(1.0, volume->getWiper());
    driver->setSamplingRate(48000.0f);
    driver->setMaxBlockSize(64);

    std::vector<scalar> in(64), expected(64);
    for (size_t i = 0; i < in.size(); ++i) in[i] = std::sin(0.05f * static_cast<float>(i));
    std::vector<scalar*> inputs{in.data()};
    driver->process(inputs, 64);  // delivers the control's 0.5
    EXPECT_DOUBLE_EQ(0.5, volume->getWiper());

    auto* inner = dynamic_cast<BiQuad*>(wrapper->getFilter().get());
    ASSERT_TRUE(inner);
    BiQuad reference;
    auto context = std::make_shared<DSPContext>();
    reference.init("ref", context);
    reference.setCoefficients(inner->getA(), inner->getB());
    driver->process(inputs, 64);
    // The first block ran with wiper 1; rerun the reference over both blocks' inputs from rest.
    wrapper->reset();
    driver->process(inputs, 64);
    for (size_t i = 0; i < in.size(); ++i) expected[i] = reference.process(in[i]);
    for (size_t i = 0; i < in.size(); ++i) EXPECT_EQ(expected[i], driver->getOutputs()[0][i]) << i;
}

TEST(Newton, MessagesOfInitAndRefusedForms) {
    auto context = std::make_shared<DSPContext>();
    auto initMessage = [&](const Properties& p) {
        Newton newton;
        try {
            newton.init("N", p, context);
        } catch (const VRNException& e) {
            return e.getMessage();
        }
        return std::string();
    };
    EXPECT_EQ("Newton: N missing RelativeError", initMessage(props({})));
    EXPECT_EQ("Newton: N missing AbsoluteError", initMessage(props({{"RelativeError", "1e-6"}})));
    EXPECT_EQ("Newton: N missing MaxIterations",
              initMessage(props({{"RelativeError", "1e-6"}, {"AbsoluteError", "1e-6"}})));
    const Properties base = props({{"RelativeError", "1e-6"}, {"AbsoluteError", "1e-6"}, {"MaxIterations", "10"}});
    EXPECT_EQ("Newton: FeedbackType must be specified", initMessage(base));
    Properties odd = base;
    odd["FeedbackType"] = "Sideways";
    EXPECT_EQ("Newton: Unknown FeedbackType: Sideways", initMessage(odd));
    Properties good = base;
    good["FeedbackType"] = "Positive";
    EXPECT_EQ("", initMessage(good));

    Newton newton;
    newton.init("N", good, context);
    auto inputs = std::make_shared<std::vector<scalar>>(1, 0.0f);
    EXPECT_VRN_MESSAGE(newton.process(1.0f), VRNException, "Newton: Newton::process Not supported.");
    EXPECT_VRN_MESSAGE(newton.process(inputs, 0, 0), VRNException, "Newton: Iterative processing is not supported.");
    EXPECT_VRN_MESSAGE(newton.getLastIterationResults(), VRNException,
                       "Newton: getLastIterationResults is not supported.");
    EXPECT_VRN_MESSAGE(newton.endIteration(0), VRNException, "Newton: endIteration is not supported.");
    EXPECT_VRN_MESSAGE(newton.setMaxBlockSize(0), VRNException, "Newton: Invalid maxBlockSize0");
}

namespace {

std::shared_ptr<Filter> gainStage(scalar gain) {
    auto stage = std::make_shared<Gain>();
    auto context = std::make_shared<DSPContext>();
    Properties p;
    p["Gain"] = std::to_string(gain);
    stage->init("g", p, context);
    stage->setMaxBlockSize(16);
    return stage;
}

std::unique_ptr<Newton> makeNewton(const std::string& type, const std::string& relaxation = "1") {
    auto newton = std::make_unique<Newton>();
    auto context = std::make_shared<DSPContext>();
    newton->init("N", props({{"RelativeError", "1e-6"}, {"AbsoluteError", "1e-7"}, {"MaxIterations", "50"},
                             {"FeedbackType", type}, {"Relaxation", relaxation}}),
                 context);
    return newton;
}

// A stage whose output is the constant slope of a linear stage, whatever its input.
std::shared_ptr<Filter> constantSlope(scalar slope) {
    auto stage = std::make_shared<LookupTableFilter>();
    auto context = std::make_shared<DSPContext>();
    stage->init("slope", props({{"VinMin", "-1000"}, {"VinMax", "1000"}, {"DeltaV", "2000"}}), context);
    stage->propertyChanged("Vout", std::make_shared<std::vector<scalar>>(2, slope));
    stage->setMaxBlockSize(16);
    return stage;
}

}  // namespace

TEST(Newton, LinearLoopSettlesInOnePassAndTypesAgree) {
    // y = 2 (x - y): x = 3 gives y = 2, exactly, at the first pass.
    for (const char* type : {"Negative", "Positive"}) {
        auto newton = makeNewton(type);
        newton->addForwardFilter(gainStage(2));
        newton->addForwardDerivative(constantSlope(2));
        newton->addFeedbackFilter(gainStage(1));
        newton->addFeedbackDerivative(constantSlope(1));
        newton->setMaxBlockSize(16);
        std::vector<scalar> in(4, 3.0f), out(4);
        newton->process(in.data(), out.data(), 4);
        for (scalar v : out) EXPECT_EQ(2.0f, v) << type;
        // With no pass allowed the output is the last solution, whatever the input.
        EXPECT_THROW(newton->propertyChanged("MaxIterations", 0.0f), InvalidArgumentException);  // Gain refuses it
    }
    {
        auto newton = makeNewton("Negative");
        newton->setMaxBlockSize(16);
        std::vector<scalar> in{3.0f, 5.0f}, out(2);
        newton->process(in.data(), out.data(), 1);
        // Empty chains are identities: the loop is y = x - y, solved in one pass (product 1, f' = 2).
        EXPECT_EQ(1.5f, out[0]);
        newton->propertyChanged("MaxIterations", 0.0f);
        newton->process(in.data() + 1, out.data() + 1, 1);
        EXPECT_EQ(1.5f, out[1]);  // no pass: the last solution stands
    }
}

TEST(Newton, SolvesANonlinearLoopAndRelaxationSlowsIt) {
    // Forward stage tanh-like table with its slope table; feedback 0.5.  Checked by bisection.
    auto table = [](bool slope) {
        auto stage = std::make_shared<LookupTableFilter>();
        auto context = std::make_shared<DSPContext>();
        stage->init("t", props({{"VinMin", "-4"}, {"VinMax", "4"}, {"DeltaV", "0.001"}}), context);
        auto values = std::make_shared<std::vector<scalar>>();
        for (int i = 0; i <= 8000; ++i) {
            const double v = -4.0 + 0.001 * i, t = std::tanh(v);
            values->push_back(static_cast<scalar>(slope ? 1.0 - t * t : t));
        }
        stage->propertyChanged("Vout", values);
        stage->setMaxBlockSize(16);
        return stage;
    };
    int passesFull = 0, passesHalf = 0;
    for (const char* relaxation : {"1", "0.5"}) {
        auto newton = makeNewton("Negative", relaxation);
        newton->addForwardFilter(table(false));
        newton->addForwardDerivative(table(true));
        newton->addFeedbackFilter(gainStage(0.5f));
        newton->addFeedbackDerivative(constantSlope(0.5f));
        newton->setMaxBlockSize(16);
        std::vector<scalar> in{1.5f}, out(1);
        newton->process(in.data(), out.data(), 1);
        double lo = -1, hi = 1;  // root of y - tanh(1.5 - 0.5 y)
        for (int k = 0; k < 100; ++k) {
            const double mid = 0.5 * (lo + hi);
            (mid - std::tanh(1.5 - 0.5 * mid) > 0 ? hi : lo) = mid;
        }
        EXPECT_NEAR(lo, out[0], 2e-6) << relaxation;  // the table's interpolation error is ~1e-7
        // Count passes: reset the estimate by a fresh element and limit the iterations.
        for (int limit = 1; limit <= 50; ++limit) {
            auto probe = makeNewton("Negative", relaxation);
            probe->propertyChanged("MaxIterations", static_cast<scalar>(limit));
            probe->addForwardFilter(table(false));
            probe->addForwardDerivative(table(true));
            probe->addFeedbackFilter(gainStage(0.5f));
            probe->addFeedbackDerivative(constantSlope(0.5f));
            probe->setMaxBlockSize(16);
            probe->process(in.data(), out.data(), 1);
            if (std::fabs(out[0] - lo) < 2e-6) {
                (std::string(relaxation) == "1" ? passesFull : passesHalf) = limit;
                break;
            }
        }
    }
    EXPECT_GT(passesFull, 0);
    EXPECT_GT(passesHalf, passesFull);
}

TEST(Newton, RecursiveStagesSeeTheIterationProtocol) {
    // A one-pole low pass in the forward path: y[n] = F(x - y) with F(u)[n] = 0.5 u[n] + 0.5 F[n-1].
    // Solved by hand: y = (0.5 (x - y) + 0.5 yPrev) => y = (0.5 x + 0.5 yPrev) / 1.5.
    auto newton = makeNewton("Negative");
    auto context = std::make_shared<DSPContext>();
    auto lowPass = std::make_shared<FirstOrderIIR>();
    lowPass->init("lp", props({{"A", "-0.5"}, {"B", "0.5|0"}}), context);
    lowPass->setMaxBlockSize(16);
    newton->addForwardFilter(lowPass);
    newton->addForwardDerivative(constantSlope(0.5f));  // d out / d in = b0
    newton->addFeedbackFilter(gainStage(1));
    newton->addFeedbackDerivative(constantSlope(1));
    newton->setMaxBlockSize(16);
    std::vector<scalar> in{1, 1, 1, 0, -1, 2}, out(6);
    newton->process(in.data(), out.data(), in.size());
    double yPrev = 0;
    for (size_t n = 0; n < in.size(); ++n) {
        const double fPrev = yPrev;  // the filter's output is the loop output
        const double y = (0.5 * in[n] + 0.5 * fPrev) / 1.5;
        EXPECT_NEAR(y, out[n], 1e-6) << n;
        yPrev = y;
    }
    // The estimate survives a reset: the next block starts from the old solution.
    const scalar kept = newton->getEstimate();
    newton->reset();
    EXPECT_EQ(kept, newton->getEstimate());
}
