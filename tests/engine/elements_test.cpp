// The contract of elements, filters, port descriptions, contexts and the element factory.

#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>

#include "engine/Context.h"
#include "engine/DSPElementFactory.h"
#include "filters/Gain.h"
#include "support/TestSupport.h"

using namespace vrn;

namespace {

Properties propertiesOf(std::initializer_list<std::pair<const char*, const char*>> entries) {
    Properties properties;
    for (const auto& [key, value] : entries) properties[key] = value;
    return properties;
}

// A Gain that does not hold a context, so that the test's contexts can die (a filter holding its
// owner would keep both alive).
Gain* newGain(const std::string& name) {
    auto* filter = new Gain();
    std::shared_ptr<DSPContext> none;
    filter->init(name, propertiesOf({{"Gain", "1"}}), none);
    return filter;
}

// The message of the VRN exception that f throws, or "(no failure)".
std::string messageOf(const std::function<void()>& f) {
    try {
        f();
    } catch (const VRNException& error) {
        return error.getMessage();
    }
    return "(no failure)";
}

}  // namespace

TEST(Elements, RefusalsNameThemselves) {
    auto context = std::make_shared<DSPContext>();
    std::unique_ptr<Gain> gain(newGain("G"));
    BasicFilterMeta meta;
    DSPElementFactory factory;
    const std::pair<std::function<void()>, const char*> cases[] = {
        {[&] { meta.getInputIndex("In"); }, "Invalid input port name: In. Expected \"in\"."},
        {[&] { meta.getOutputIndex("out0"); }, "Invalid output port name: out0. Expected \"out\"."},
        {[&] { gain->getOutput(1); }, "Gain: Invalid output index: 1"},
        {[&] { gain->setMaxBlockSize(0); }, "Gain: Invalid maxBlockSize0"},
        {[&] { context->getElement("VD"); }, "DSOContext: Cannot find element with name VD"},
        {[&] { factory.create("Tube"); }, "Unknown element type: Tube"},
    };
    for (const auto& [statement, message] : cases) EXPECT_EQ(message, messageOf(statement));
    EXPECT_EQ(0, meta.getInputIndex("in") + meta.getOutputIndex("out"));
    EXPECT_EQ(2, meta.getNumberOfInputs() + meta.getNumberOfOutputs());
}

TEST(Elements, BuffersOnlyGrowAndOutputsFollowThem) {
    std::unique_ptr<Gain> gain(newGain("G"));
    EXPECT_EQ(nullptr, gain->getOutput(0));  // no buffer before setMaxBlockSize, and no failure
    gain->setMaxBlockSize(128);
    scalar* first = gain->getOutput(0);
    ASSERT_NE(nullptr, first);
    gain->setMaxBlockSize(64);
    EXPECT_EQ(first, gain->getOutputs()[0]);
    gain->setMaxBlockSize(256);
    EXPECT_EQ(gain->getOutput(0), gain->getOutputs()[0]);
}

TEST(Contexts, OwnTheirFiltersByUniqueName) {
    auto context = std::make_shared<DSPContext>();
    EXPECT_FLOAT_EQ(0.0f, context->getSamplingRate());
    context->setSamplingRate(48000.0f);  // no elements: only stored
    EXPECT_FLOAT_EQ(48000.0f, context->getSamplingRate());
    context->addElement(newGain("VC"));
    std::unique_ptr<Gain> duplicate(newGain("VC"));  // a failed add leaves the filter with the caller
    EXPECT_VRN_MESSAGE(context->addElement(duplicate.get()), VRNException, "DSPContext: Duplicate element name: VC");
    EXPECT_EQ("VC", context->getElement("VC")->getName());
    std::make_shared<DSPContext>()->addElement(newGain("VC"));  // the same name in another graph is fine
    context->setMaxBlockSize(32);
    EXPECT_NE(nullptr, static_cast<Filter*>(context->getElement("VC"))->getOutput(0));
}

namespace {

class CountingFactory : public PluginDSPElementFactory {
public:
    Filter* create(const std::string&) override {
        ++created;
        return new Gain();
    }
    bool isSupported(const std::string& type) override {
        ++asked;
        return type == "Tube" || type == "Gain";
    }
    int created = 0;
    int asked = 0;
};

}  // namespace

TEST(ElementFactory, BuiltInTypesComeFirstThenPluginFactoriesInOrder) {
    DSPElementFactory factory;
    auto first = std::make_shared<CountingFactory>(), second = std::make_shared<CountingFactory>();
    factory.addFactory(first);
    factory.addFactory(second);
    std::unique_ptr<Filter> gain(factory.create("Gain"));
    EXPECT_NE(nullptr, dynamic_cast<Gain*>(gain.get()));
    EXPECT_EQ(0, first->asked);  // a built-in name is never offered to a plug-in
    std::unique_ptr<Filter> tube(factory.create("Tube"));
    EXPECT_EQ(1, first->created);
    EXPECT_EQ(0, second->created);
}
