// A system description from the fuzzer: parsed, and if it loads, run for a few blocks with every
// control at both ends.  A description that is refused must be refused with the system's own
// failure (a VRNException, or the "invalid vector<T> subscript" of a bad index); anything else
// that escapes (an allocation failure, a crash, a hang) is a finding.

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "engine/Driver.h"

namespace {

void run(vrn::Driver& driver) {
    driver.setSamplingRate(48000.0f);
    driver.setMaxBlockSize(64);
    const size_t inputs = std::min<size_t>(driver.getNumberOfInputs(), 64);
    std::vector<std::vector<vrn::scalar>> signals(std::max<size_t>(inputs, 1), std::vector<vrn::scalar>(64));
    for (size_t c = 0; c < signals.size(); ++c)
        for (size_t i = 0; i < 64; ++i) signals[c][i] = 0.5f * std::sin(0.1f * float(i + 7 * c));
    std::vector<vrn::scalar*> pointers;
    for (auto& signal : signals) pointers.push_back(signal.data());
    const size_t blocks[] = {64, 1, 37, 64, 0, 64};
    for (size_t b = 0; b < sizeof(blocks) / sizeof(blocks[0]); ++b) {
        if (b == 2 || b == 4)
            for (auto& control : *driver.getControls()) control->setValue(b == 2 ? 0.0f : 1.0f);
        driver.process(pointers, blocks[b]);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // The engine's own element types, as orm-render --system has them.
    std::shared_ptr<vrn::Driver> driver = vrn::Driver::create();
    try {
        std::istringstream stream(std::string(reinterpret_cast<const char*>(data), size));
        driver->init(stream);
        run(*driver);
    } catch (const vrn::VRNException&) {
    } catch (const std::out_of_range&) {
    }
    return 0;
}
