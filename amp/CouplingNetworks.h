#pragma once
// The two passive networks between the tube stages, with the grid of the next tube taken as an
// open circuit (low-CPU mode): coefficients depend only on the control and the sampling rate and
// are recomputed on a change.  Both become filters by the bilinear transform without pre-warping,
// s = T (1 - 1/z) / (1 + 1/z), T = 2 fs.

#include <memory>
#include <vector>

#include "amp/FilterWrapper.h"
#include "engine/Glide.h"
#include "filters/BiQuad.h"
#include "filters/FirstOrderIIR.h"

// Component values of the volume network: the source drives Rs, C1 and the upper part of the
// potentiometer (1 - w) Rp into the wiper; the lower part w Rp and C2 go from the wiper to ground.
namespace volumenetwork {
constexpr double Rs = 41000.0;
constexpr double Rp = 1000000.0;
constexpr double C1 = 2.2e-8;
constexpr double C2 = 1.44e-10;
}  // namespace volumenetwork

// Component values of the interstage network: the source drives Ra and Cc into the next grid,
// which Rb ties to ground.
namespace interstagenetwork {
constexpr double Ra = 69000.0;
constexpr double Rb = 220000.0;
constexpr double Cc = 2.2e-8;
}  // namespace interstagenetwork

// The volume network as a BiQuad: H(s) = s C1 Rl / (1 + D1 s + D2 s^2).  Property "Wiper", 0..1.
class VolumeControl : public WrappedFilterPropertyCalculator {
public:
    VolumeControl();
    std::shared_ptr<vrn::Filter>& getFilter() override { return filter; }
    // Recomputes if the map holds "Wiper"; otherwise does nothing.
    void propertiesChanged(const std::unordered_map<std::string, vrn::scalar>& properties) override;
    // "Wiper" only; anything else is a VRNException.  With a glide time, a new wiper is reached
    // over that time once audio has passed.
    void propertyChanged(const std::string& name, vrn::scalar value) override;
    void setSamplingRate(vrn::scalar rate) override;
    // While the wiper glides: new coefficients every few dozen samples.
    size_t advance(size_t frames) override;
    // Load time: 0 (the default) takes a new wiper at once.
    void setGlideTime(double seconds);

    double getWiper() const { return wiper; }

private:
    void recompute();

    std::shared_ptr<vrn::Filter> filter;
    double wiper = 1.0;
    vrn::Glide glide{1.0};
    double Rs = volumenetwork::Rs;
    double Rp = volumenetwork::Rp;
    double C1 = volumenetwork::C1;
    double C2 = volumenetwork::C2;
    double T = 1.0;
    std::shared_ptr<std::vector<vrn::scalar>> B;
    std::shared_ptr<std::vector<vrn::scalar>> A;
};

// The interstage network as a FirstOrderIIR: H(s) = s Cc Rb / (1 + s Cc (Ra + Rb)).  It has no
// parameter: every property call just recomputes, whatever its name.
class V2V3Coupling : public WrappedFilterPropertyCalculator {
public:
    V2V3Coupling();
    std::shared_ptr<vrn::Filter>& getFilter() override { return filter; }
    void propertiesChanged(const std::unordered_map<std::string, vrn::scalar>& properties) override;
    void propertyChanged(const std::string& name, vrn::scalar value) override;
    void setSamplingRate(vrn::scalar rate) override;

private:
    void recompute();

    std::shared_ptr<vrn::Filter> filter;
    double Ra = interstagenetwork::Ra;
    double Rb = interstagenetwork::Rb;
    double Cc = interstagenetwork::Cc;
    double T = 1.0;
    std::shared_ptr<std::vector<vrn::scalar>> B;
    std::shared_ptr<std::vector<vrn::scalar>> A;
};
