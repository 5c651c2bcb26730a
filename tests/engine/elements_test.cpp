// The contract of element buffers and of contexts.

#include <gtest/gtest.h>

#include <initializer_list>

#include "engine/Context.h"
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

}  // namespace

TEST(Elements, BuffersOnlyGrowAndOutputsFollowThem) {
    std::unique_ptr<Gain> gain(newGain("G"));
    EXPECT_EQ(nullptr, gain->getOutput(0));  // no buffer before setMaxBlockSize, and no failure
    EXPECT_VRN_MESSAGE(gain->getOutput(1), InvalidArgumentException, "Gain: Invalid output index: 1");
    EXPECT_VRN_MESSAGE(gain->setMaxBlockSize(0), VRNException, "Gain: Invalid maxBlockSize0");
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
    EXPECT_VRN_MESSAGE(context->getElement("VD"), VRNException, "DSOContext: Cannot find element with name VD");
    context->addElement(newGain("VC"));
    std::unique_ptr<Gain> duplicate(newGain("VC"));  // a failed add leaves the filter with the caller
    EXPECT_VRN_MESSAGE(context->addElement(duplicate.get()), VRNException, "DSPContext: Duplicate element name: VC");
    EXPECT_EQ("VC", context->getElement("VC")->getName());
    std::make_shared<DSPContext>()->addElement(newGain("VC"));  // the same name in another graph is fine
    context->setMaxBlockSize(32);
    EXPECT_NE(nullptr, static_cast<Filter*>(context->getElement("VC"))->getOutput(0));
}
