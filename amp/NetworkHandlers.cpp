#include "amp/NetworkHandlers.h"

#include "amp/AmpData.h"
#include "amp/CouplingNetworks.h"
#include "engine/Context.h"

using vrn::scalar;

namespace {

const std::string kA("A");
const std::string kB("B");
// A gliding wiper or gain moves on this often, in samples at the network's rate.
constexpr size_t kGlideStride = 32;

// A private lookup filter over a grid table: resistances become conductances in siemens.
std::unique_ptr<vrn::LookupTableFilter> makeConductanceTable(const char* name, const char* vinMin,
                                                            const char* vinMax, const std::vector<scalar>& ohms) {
    auto table = std::make_unique<vrn::LookupTableFilter>();
    auto context = std::make_shared<vrn::DSPContext>();
    vrn::Properties properties;
    properties["VinMin"] = vinMin;
    properties["VinMax"] = vinMax;
    properties["DeltaV"] = "0.02";
    table->init(name, properties, context);
    auto siemens = std::make_shared<std::vector<scalar>>(ohms.size());
    for (size_t i = 0; i < ohms.size(); ++i) (*siemens)[i] = 1.0f / ohms[i];
    table->propertyChanged("Vout", siemens);
    return table;
}

}  // namespace

V2V3PropertiesHandler::V2V3PropertiesHandler(vrn::Filter* carrier)
    : V2V3PropertiesHandler(carrier, *ampdata::gridTableYd()) {}

V2V3PropertiesHandler::V2V3PropertiesHandler(vrn::Filter* carrier, const std::vector<scalar>& ydOhms)
    : lookup(makeConductanceTable("yd", "18", "30", ydOhms)),
      filter(carrier),
      Ra(interstagenetwork::Ra),
      Cc(interstagenetwork::Cc),
      K(T * Cc),
      KR(K * Ra),
      B(std::make_shared<std::vector<scalar>>(2, 0.0f)),
      A(std::make_shared<std::vector<scalar>>(1, 0.0f)) {}

void V2V3PropertiesHandler::propertiesChanged(const vrn::Properties&) {}

void V2V3PropertiesHandler::propertyChanged(const std::string&, scalar) {}

void V2V3PropertiesHandler::setSamplingRate(scalar rate) {
    dirty = true;
    T = 2.0 * static_cast<double>(rate);
    K = T * Cc;
    KR = K * Ra;
}

void V2V3PropertiesHandler::update(scalar, scalar lastOut) {
    history[2] = history[1];
    history[1] = history[0];
    history[0] = lastOut;
    // The grid voltage of the coming sample, extrapolated from the last two.
    const scalar v = 2.0f * history[0] - history[1];
    y = lookup->process(v);
    if (y < 1.1 * yLast && y > 0.9 * yLast && !dirty) return;
    dirty = false;
    yLast = y;
    yt = y + yb;
    const double r = 1.0 / (-(yt * KR) - K - yt);
    std::vector<scalar>& b = *B;
    b[1] = static_cast<scalar>(K * r);
    b[0] = -b[1];
    (*A)[0] = static_cast<scalar>((yt * KR + K - yt) * r);
    filter->propertyChanged(kA, A);
    filter->propertyChanged(kB, B);
}

VolCtrlPropertiesHandler::VolCtrlPropertiesHandler(vrn::Filter* carrier, const std::vector<scalar>& ygOhms)
    : lookup(makeConductanceTable("yg", "0", "20", ygOhms)),
      filter(carrier),
      Rs(volumenetwork::Rs),
      Rp(volumenetwork::Rp),
      C1(volumenetwork::C1),
      C2(volumenetwork::C2),
      K1(T * C1),
      K2(T * C2),
      Rl(wiper * Rp),
      Ru((1.0 - wiper) * Rp),
      B(std::make_shared<std::vector<scalar>>(3, 0.0f)),
      A(std::make_shared<std::vector<scalar>>(2, 0.0f)) {}

void VolCtrlPropertiesHandler::setWiper(double value) {
    wiper = value;
    Ru = (1.0 - wiper) * Rp;
    Rl = wiper * Rp;
}

void VolCtrlPropertiesHandler::propertiesChanged(const vrn::Properties& properties) {
    auto w = properties.find("Wiper");
    if (w != properties.end()) {
        wiperGlide.jump(vrn::parseDouble(w->second));
        setWiper(wiperGlide.value());
    }
    auto g = properties.find("Gain");
    if (g != properties.end()) {
        gain = vrn::toScalar(g->second);
        gainGlide.jump(gain);
    }
    dirty = true;
}

void VolCtrlPropertiesHandler::propertyChanged(const std::string& name, scalar value) {
    if (name == "Wiper") {
        wiperGlide.setTarget(value);
        setWiper(wiperGlide.value());
    } else if (name == "Gain") {
        gainGlide.setTarget(value);
        gain = static_cast<scalar>(gainGlide.value());
    } else {
        throw vrn::VRNException("VolCtrlPropertiesHandler: Unknown property " + name);
    }
    dirty = true;
}

void VolCtrlPropertiesHandler::setSamplingRate(scalar newRate) {
    dirty = true;
    rate = newRate;
    T = 2.0 * static_cast<double>(newRate);
    K1 = T * C1;
    K2 = T * C2;
    wiperGlide.setRate(rate);
    gainGlide.setRate(rate);
    setWiper(wiperGlide.value());
    gain = static_cast<scalar>(gainGlide.value());
}

void VolCtrlPropertiesHandler::setGlideTime(double seconds) {
    wiperGlide.setTime(seconds, rate);
    gainGlide.setTime(seconds, rate);
}

void VolCtrlPropertiesHandler::update(scalar, scalar lastOut) {
    wiperGlide.start();
    gainGlide.start();
    if (strideLeft > 0) {
        --strideLeft;
    } else if (wiperGlide.moving() || gainGlide.moving()) {
        // The stretch runs with the values it ends at; the cached terms follow the wiper.
        setWiper(wiperGlide.advance(kGlideStride));
        gain = static_cast<scalar>(gainGlide.advance(kGlideStride));
        dirty = true;
        strideLeft = kGlideStride - 1;
    }
    history[2] = history[1];
    history[1] = history[0];
    history[0] = lastOut;
    const scalar v = 2.0f * history[0] - history[1];
    y = lookup->process(v);
    if (y < 1.1 * yLast && y > 0.9 * yLast && !dirty) return;
    setConductance(y);
}

void VolCtrlPropertiesHandler::setConductance(double conductance) {
    y = conductance;
    if (dirty) {
        dirty = false;
        const double P = K1 * Ru, Q = Rl * K2, S = Rs * K1, M = Rl * K1;
        E0 = P + (S * Q + Q * P) + Q + M + S + 1.0;
        E1 = Rl + (Rs * M + Rl * P);
        E2 = S * Q + Q * P - P - Q - M - S + 1.0;
        E3 = Rl - (Rs * M + Rl * P);
        F = S * Q + Q * P;
    }
    yLast = y;
    const double a0 = y * E1 + E0;
    const double r = 1.0 / a0;
    std::vector<scalar>& b = *B;
    std::vector<scalar>& a = *A;
    b[0] = static_cast<scalar>(K1 * Rl * r) * gain;
    b[1] = 0.0f;
    b[2] = -b[0];
    a[0] = static_cast<scalar>((F - y * Rl - 1.0) * (-2.0) * r);
    a[1] = static_cast<scalar>((E3 * y + E2) * r);
    filter->propertyChanged(kA, A);
    filter->propertyChanged(kB, B);
}
