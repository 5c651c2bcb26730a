// The contract of elements, filters, port descriptions, contexts and the element factory.

#include <gtest/gtest.h>

#include "engine/Context.h"
#include "engine/DSPElementFactory.h"
#include "filters/Gain.h"
#include "filters/LookupTableFilter.h"
#include "support/TestSupport.h"

using namespace vrn;

namespace {

class RecordingHandler : public PropertiesHandler {
public:
    void propertiesChanged(const Properties& properties) override {
        ++calls;
        seen = properties;
    }
    void propertyChanged(const std::string& name, scalar value) override {
        lastName = name;
        lastValue = value;
    }
    void setSamplingRate(scalar rate) override { this->rate = rate; }
    bool isPerSample() override { return false; }
    void update(scalar, scalar) override {}

    int calls = 0;
    Properties seen;
    std::string lastName;
    scalar lastValue = 0;
    scalar rate = 0;
};

std::shared_ptr<DSPContext> newContext() { return std::make_shared<DSPContext>(); }

Gain* newGain(const std::string& name, const std::string& gain, std::shared_ptr<DSPContext>& context) {
    auto* filter = new Gain();
    Properties properties;
    properties["Gain"] = gain;
    filter->init(name, properties, context);
    return filter;
}

}  // namespace

TEST(Elements, DefaultPropertyOperationsRefuseWithTheirMessages) {
    auto context = newContext();
    LookupTableFilter filter;
    filter.init("T", context);
    EXPECT_VRN_MESSAGE(filter.propertyChanged("X", 1.0f), OperationNotSupportedException,
                       "propertyChanged(scalar) is not supported. Filter: T");
    Gain gain;
    gain.init("G", context);
    EXPECT_VRN_MESSAGE(gain.propertyChanged("X", std::make_shared<std::vector<scalar>>()),
                       OperationNotSupportedException, "propertyChanged(vector) is not supported. Element: G");
    EXPECT_VRN_MESSAGE(gain.propertiesChanged(Properties()), OperationNotSupportedException,
                       "propertiesChanged is not supported. Element: G");
}

TEST(Elements, BasicMetaNamesOnePortEachWay) {
    BasicFilterMeta meta;
    EXPECT_EQ(0, meta.getInputIndex("in"));
    EXPECT_EQ(0, meta.getOutputIndex("out"));
    EXPECT_EQ(1, meta.getNumberOfInputs());
    EXPECT_EQ(1, meta.getNumberOfOutputs());
    EXPECT_VRN_MESSAGE(meta.getInputIndex("In"), InvalidArgumentException,
                       "Invalid input port name: In. Expected \"in\".");
    EXPECT_VRN_MESSAGE(meta.getOutputIndex("out0"), InvalidArgumentException,
                       "Invalid output port name: out0. Expected \"out\".");
}

TEST(Elements, BuffersOnlyGrowAndOutputsFollowThem) {
    auto context = newContext();
    std::unique_ptr<Gain> gain(newGain("G", "1", context));
    EXPECT_EQ(nullptr, gain->getOutput(0));  // no buffer before setMaxBlockSize, and no failure
    EXPECT_VRN_MESSAGE(gain->getOutput(1), InvalidArgumentException, "Gain: Invalid output index: 1");
    gain->setMaxBlockSize(128);
    scalar* first = gain->getOutput(0);
    ASSERT_NE(nullptr, first);
    gain->setMaxBlockSize(64);
    EXPECT_EQ(first, gain->getOutputs()[0]);
    gain->setMaxBlockSize(256);
    EXPECT_EQ(gain->getOutput(0), gain->getOutputs()[0]);
    EXPECT_VRN_MESSAGE(gain->setMaxBlockSize(0), VRNException, "Gain: Invalid maxBlockSize0");
    EXPECT_VRN_MESSAGE(gain->setMaxBlockSize(-3), VRNException, "Gain: Invalid maxBlockSize-3");
}

TEST(Elements, HandlersSeeTheirFilterProperties) {
    auto context = newContext();
    auto handler = std::make_shared<RecordingHandler>();
    LookupTableFilter bare;
    bare.init("T", context);
    bare.setPropertiesHandler(handler);
    EXPECT_EQ(0, handler->calls);  // no properties: not called

    Properties properties;
    properties["VinMin"] = "0";
    properties["VinMax"] = "1";
    properties["DeltaV"] = "0.5";
    LookupTableFilter table;
    table.init("T2", properties, context);
    table.setPropertiesHandler(handler);
    EXPECT_EQ(1, handler->calls);
    EXPECT_EQ("0.5", handler->seen["DeltaV"]);
    table.propertyChanged("A", 0.25f);  // forwarded, not refused
    EXPECT_EQ("A", handler->lastName);
    EXPECT_FLOAT_EQ(0.25f, handler->lastValue);
    table.setSamplingRate(96000.0f);
    EXPECT_FLOAT_EQ(96000.0f, handler->rate);
}

TEST(Contexts, OwnTheirFiltersByUniqueName) {
    auto context = newContext();
    EXPECT_FLOAT_EQ(0.0f, context->getSamplingRate());
    context->setSamplingRate(48000.0f);  // no elements: only stored
    EXPECT_FLOAT_EQ(48000.0f, context->getSamplingRate());
    context->addElement(newGain("VC", "1", context));
    Gain* duplicate = newGain("VC", "2", context);
    EXPECT_VRN_MESSAGE(context->addElement(duplicate), VRNException, "DSPContext: Duplicate element name: VC");
    delete duplicate;  // a failed add leaves the filter with the caller
    EXPECT_VRN_MESSAGE(context->getElement("VD"), InvalidArgumentException, "DSOContext: Cannot find element with name VD");
    EXPECT_EQ("VC", context->getElement("VC")->getName());

    auto other = newContext();  // the same name in another graph is fine
    other->addElement(newGain("VC", "1", other));
    context->setMaxBlockSize(32);
    EXPECT_NE(nullptr, static_cast<Filter*>(context->getElement("VC"))->getOutput(0));
}

namespace {

class CountingFactory : public PluginDSPElementFactory {
public:
    explicit CountingFactory(std::string type) : type(std::move(type)) {}
    Filter* create(const std::string&) override {
        ++created;
        return new Gain();
    }
    bool isSupported(const std::string& asked) override {
        ++asked_;
        return asked == type || asked == "Gain";
    }
    std::string type;
    int created = 0;
    int asked_ = 0;
};

}  // namespace

TEST(ElementFactory, BuiltInTypesComeFirstThenPluginFactoriesInOrder) {
    DSPElementFactory factory;
    EXPECT_VRN_MESSAGE(factory.create("Tube"), VRNException, "Unknown element type: Tube");
    EXPECT_VRN_MESSAGE(factory.create(""), VRNException, "Unknown element type: ");

    auto first = std::make_shared<CountingFactory>("Tube");
    auto second = std::make_shared<CountingFactory>("Tube");
    factory.addFactory(first);
    factory.addFactory(second);
    std::unique_ptr<Filter> gain(factory.create("Gain"));
    EXPECT_NE(nullptr, dynamic_cast<Gain*>(gain.get()));
    EXPECT_EQ(0, first->asked_);  // a built-in name is never offered to a plug-in
    std::unique_ptr<Filter> tube(factory.create("Tube"));
    EXPECT_EQ(1, first->created);
    EXPECT_EQ(0, second->created);

    for (const char* type : {"Gain", "Mixer", "Switch", "DifferentialFilter", "Relaxation", "LookupTableFilter"}) {
        std::unique_ptr<Filter> filter(DSPElementFactory().create(type));
        EXPECT_NE(nullptr, filter.get()) << type;
    }
}
