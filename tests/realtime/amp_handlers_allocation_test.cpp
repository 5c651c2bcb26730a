// The high-CPU networks' per-sample path allocates nothing, also while the grid load moves and
// the coefficients are rewritten.

#include <gtest/gtest.h>

#include <cmath>

#include "amp/NetworkHandlers.h"
#include "engine/Context.h"
#include "filters/BiQuad.h"
#include "filters/FirstOrderIIR.h"
#include "support/AllocationCounter.h"

using namespace vrn;

TEST(Allocation, NetworkHandlersRewriteCoefficientsWithoutAllocating) {
    auto context = std::make_shared<DSPContext>();
    auto interstage = std::make_shared<FirstOrderIIR>();
    interstage->init("V2V3", context);
    interstage->setMaxBlockSize(256);
    auto interstageHandler = std::make_shared<V2V3PropertiesHandler>(interstage.get());
    interstage->setPropertiesHandler(interstageHandler);
    interstage->setSamplingRate(96000.0f);

    auto volume = std::make_shared<BiQuad>();
    volume->init("VC", context);
    volume->setMaxBlockSize(256);
    // A grid table that conducts from 1 V up, falling steeply: the load moves on every swing.
    std::vector<scalar> yg(1001);
    for (size_t i = 0; i < yg.size(); ++i) {
        const double v = 0.02 * static_cast<double>(i);
        yg[i] = v <= 1.0 ? 1e10f : static_cast<scalar>(v / (5e-4 * std::pow(v - 1.0, 1.4)));
    }
    auto volumeHandler = std::make_shared<VolCtrlPropertiesHandler>(volume.get(), yg);
    volume->setPropertiesHandler(volumeHandler);
    volume->setSamplingRate(96000.0f);

    // 60 V at 200 Hz through the interstage network: the output sweeps through the whole table.
    std::vector<scalar> in(256);
    std::vector<scalar*> inputs{in.data()};
    double phase = 0;
    int moves = 0;
    orm_test::AllocationScope scope;
    for (int block = 0; block < 100; ++block) {
        for (scalar& s : in) {
            s = static_cast<scalar>(60.0 * std::sin(phase));
            phase += 2 * 3.14159265358979 * 200.0 / 96000.0;
        }
        const double before = interstageHandler->getConductance() + volumeHandler->getConductance();
        interstage->process(inputs, 256);
        volume->process(inputs, 256);
        if (before != interstageHandler->getConductance() + volumeHandler->getConductance()) ++moves;
        if (block == 50) {
            volumeHandler->propertyChanged("Wiper", 0.3f);
            volumeHandler->propertyChanged("Gain", 0.7f);
        }
    }
    EXPECT_EQ(0, scope.count());
    EXPECT_GE(moves, 25);  // the coefficients really were rewritten on the way
}
