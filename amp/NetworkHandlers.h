#pragma once
// The coupling networks loaded by the grid of the next tube (high-CPU mode).  A handler rides on
// a plain BiQuad or FirstOrderIIR and runs before every sample: it predicts the grid voltage from
// the last two outputs, looks the grid conductance up in its own table and re-derives the
// coefficients when the conductance has moved by 10 % or more.  The same bilinear transform as
// the low-CPU calculators, so both agree while the grid does not conduct.

#include <memory>
#include <string>
#include <vector>

#include "engine/Element.h"
#include "engine/Glide.h"
#include "filters/LookupTableFilter.h"

// The interstage network with the grid conductance y across Rb:
// H(s) = s Cc / (s Cc (1 + yt Ra) + yt), yt = y + 1/Rb.
class V2V3PropertiesHandler : public vrn::PropertiesHandler {
public:
    // The built-in grid table "yd".
    explicit V2V3PropertiesHandler(vrn::Filter* filter);
    // A table of resistances in ohm on 18..30 V in steps of 0.02 V (601 entries).
    V2V3PropertiesHandler(vrn::Filter* filter, const std::vector<vrn::scalar>& ydOhms);

    // The network has no parameter: property calls are accepted and ignored.
    void propertiesChanged(const vrn::Properties& properties) override;
    void propertyChanged(const std::string& name, vrn::scalar value) override;
    void setSamplingRate(vrn::scalar rate) override;
    bool isPerSample() override { return true; }
    // Audio thread, no allocation.
    void update(vrn::scalar in, vrn::scalar lastOut) override;

    double getConductance() const { return yLast; }

private:
    std::unique_ptr<vrn::LookupTableFilter> lookup;
    vrn::Filter* filter;
    double Ra;
    double Cc;
    double T = 1.0;
    double K;
    double KR;
    double yb = 4.5454545454545455e-06;
    double y = 0;
    double yt = 0;
    vrn::scalar history[3] = {0.0f, 0.0f, 0.0f};
    double yLast = 0;
    bool dirty = true;
    std::shared_ptr<std::vector<vrn::scalar>> B;
    std::shared_ptr<std::vector<vrn::scalar>> A;
};

// The volume network with the grid conductance y across the lower part of the potentiometer,
// and a gain on the numerator: H(s) = gain s C1 Rl / (D0 + D1 s + D2 s^2).
// Properties "Wiper" (0..1) and "Gain".
class VolCtrlPropertiesHandler : public vrn::PropertiesHandler {
public:
    // A table of resistances in ohm on 0..20 V in steps of 0.02 V (1001 entries), 1e10 where
    // the grid does not conduct.
    VolCtrlPropertiesHandler(vrn::Filter* filter, const std::vector<vrn::scalar>& ygOhms);

    void propertiesChanged(const vrn::Properties& properties) override;
    // "Wiper" or "Gain"; anything else is a VRNException.  With a glide time, a new value is
    // reached over that time once audio has passed.
    void propertyChanged(const std::string& name, vrn::scalar value) override;
    void setSamplingRate(vrn::scalar rate) override;
    bool isPerSample() override { return true; }
    // Audio thread, no allocation.  While the wiper or the gain glides, the coefficients are
    // rewritten every few dozen samples as well.
    void update(vrn::scalar in, vrn::scalar lastOut) override;
    // Load time: 0 (the default) takes a new value at once.
    void setGlideTime(double seconds);

    // What update does once the load has moved: new coefficients for the grid conductance y (S).
    void setConductance(double conductance);

    double getConductance() const { return yLast; }
    double getWiper() const { return wiper; }
    vrn::scalar getGain() const { return gain; }

private:
    void setWiper(double value);

    std::unique_ptr<vrn::LookupTableFilter> lookup;
    vrn::Filter* filter;
    vrn::scalar gain = 0.61f;
    double wiper = 1.0;
    double Rs;
    double Rp;
    double C1;
    double C2;
    double T = 1.0;
    double K1;
    double K2;
    double y = 0;
    double Rl;
    double Ru;
    // Terms that depend on the wiper and the rate only, refreshed under the dirty flag.
    double E0 = 0, E1 = 0, E2 = 0, E3 = 0, F = 0;
    vrn::scalar history[3] = {0.0f, 0.0f, 0.0f};
    double yLast = 0;
    bool dirty = true;
    std::shared_ptr<std::vector<vrn::scalar>> B;
    std::shared_ptr<std::vector<vrn::scalar>> A;
    vrn::Glide wiperGlide{1.0};
    vrn::Glide gainGlide{0.61};
    double rate = 0;
    // Samples until the gliding values move on again.
    size_t strideLeft = 0;
};
