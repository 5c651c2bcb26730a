#pragma once
// The netlists that the tests, the benchmarks and the documentation share, as XML graph bodies
// and as ngspice decks of the same circuits.

#include <string>

#include "Support.h"

namespace circuittest {

inline std::string inputSource(const char* properties = "InputNumber='0'") {
    return element("VoltageInputSource", "Vin", properties, {"in", "GND"});
}

inline std::string newton(const char* tolerance = "1e-6", int iterations = 50) {
    return std::string(R"(<Solver Type="NewtonRaphson"><Properties RelativeTollerance=")") + tolerance +
           R"(" AbsoluteTollerance=")" + tolerance + R"(" MaxIterations=")" + std::to_string(iterations) +
           R"("/></Solver>)";
}

inline std::string simplifiedNewton() {
    return R"(<Solver Type="SimplifiedNewton"><Properties RelativeTollerance="1e-6" AbsoluteTollerance="1e-6" MaxIterations="100"/></Solver>)";
}

inline std::string successiveApproximations() {
    return R"(<Solver Type="SuccessiveApproximations"><Properties RelativeTollerance="1e-6" AbsoluteTollerance="1e-6" InitialRelaxation="1" MinRelaxation="0.05" MaxRelaxation="1" Growth="1.2" Reduction="0.5" MaxIterations="200"/></Solver>)";
}

inline std::string linear() { return R"(<Solver Type="Linear"/>)"; }

// DC analysis, and AC analysis from the operating point (found by Newton) or from zero.
inline std::string dc(const std::string& solver = linear()) { return "<Analysis Type='DC'>" + solver + "</Analysis>"; }
inline std::string analysis(const std::string& solver) {
    return R"(<Analysis Type="AC"><InitialCondition Type="OperatingPoint">)" + newton("1e-6", 200) +
           "</InitialCondition>" + solver + "</Analysis>";
}
inline std::string fromZero(const std::string& solver = linear()) {
    return R"(<Analysis Type="AC"><InitialCondition Type="Zero"/>)" + solver + "</Analysis>";
}

inline std::string rcLowPass(const std::string& solver = linear()) {
    return inputSource() + element("Resistor", "R1", "Resistance='1000'", {"in", "out"}) +
           element("Capacitor", "C1", "Capacitance='100e-9'", {"out", "GND"}) + outputs({"out"}) + analysis(solver);
}

// A 10 kΩ pot at 0.3 into a non-inverting stage of gain 10 with 1 nF across the feedback resistor.
inline std::string potOpAmp(const std::string& solver = linear()) {
    return inputSource() + element("Potentiometer", "P1", "Resistance='10000' Wiper='0.3'", {"in", "w", "GND"}) +
           element("OpAmp", "U1", "Gain='100000'", {"w", "out", "n"}) +
           element("Resistor", "Rf", "Resistance='90000'", {"out", "n"}) +
           element("Capacitor", "Cf", "Capacitance='1e-9'", {"out", "n"}) +
           element("Resistor", "Rg", "Resistance='10000'", {"n", "GND"}) + outputs({"out"}) + analysis(solver);
}
// The wiper at 0.3 of the travel from "in": 3 kΩ above, 7 kΩ below.
inline const char* potOpAmpSpice() {
    return "Rp1 in w 3000\nRp2 w 0 7000\nE1 out 0 w n 100000\nRf out n 90000\nCf out n 1n\nRg n 0 10000\n";
}

// The common-cathode 12AX7 stage: 100 kΩ plate resistor to 300 V, 1.5 kΩ cathode resistor
// bypassed by 22 µF, 22 nF coupling capacitor into a 1 MΩ grid resistor.
inline std::string triodeStage(const std::string& solver = newton(), bool tables = false) {
    return inputSource() + element("Capacitor", "Cin", "Capacitance='22e-9'", {"in", "grid"}) +
           element("Resistor", "Rg", "Resistance='1e6'", {"grid", "GND"}) +
           element("Battery", "B1", "Voltage='300'", {"supply", "GND"}) +
           element("Resistor", "Rp", "Resistance='100e3'", {"supply", "plate"}) +
           element("Resistor", "Rk", "Resistance='1500'", {"cathode", "GND"}) +
           element("Capacitor", "Ck", "Capacitance='22e-6'", {"cathode", "GND"}) +
           element("Triode", "V1", std::string("Type='12AX7' DoNotInterpolate='") + (tables ? "false" : "true") + "'",
                   {"plate", "grid", "cathode"}) +
           outputs({"plate"}) + analysis(solver);
}

// Koren's triode and the power-law grid current as behavioural sources.  The anode current's
// grid voltage is limited to 0 V as the simulator's formula path does without tables.
inline const char* triodeStageSpice() {
    return ".param Kp=600 Kvb=300 mu=100 Ex=1.4 Kg=1060 Vc=0.53 Igc=3.14e-4 N=3\n"
           "Cin in grid 22n\nRg grid 0 1Meg\nVB supply 0 300\nRp supply plate 100k\nRk cathode 0 1.5k\nCk cathode 0 22u\n"
           "Bp plate cathode I=2/{Kg}*pwr(max(V(plate,cathode)/{Kp}*ln(1+exp({Kp}*(1/{mu}+min(V(grid,cathode),0)/"
           "sqrt({Kvb}+V(plate,cathode)*V(plate,cathode))))),0),{Ex})\n"
           "Bg grid cathode I={Igc}*pwr(max(V(grid,cathode)+{Vc},0),{N})\n";
}

// A GE6V6GT pentode: 5 kΩ plate resistor to 300 V, screen at 250 V, 470 Ω cathode resistor
// bypassed by 100 µF, 22 nF into 470 kΩ.
inline std::string pentodeStage(const std::string& solver = newton()) {
    return inputSource() + element("Capacitor", "Cin", "Capacitance='22e-9'", {"in", "grid"}) +
           element("Resistor", "Rg", "Resistance='470e3'", {"grid", "GND"}) +
           element("Battery", "B1", "Voltage='300'", {"supply", "GND"}) +
           element("Battery", "B2", "Voltage='250'", {"screen", "GND"}) +
           element("Resistor", "Rp", "Resistance='5000'", {"supply", "plate"}) +
           element("Resistor", "Rk", "Resistance='470'", {"cathode", "GND"}) +
           element("Capacitor", "Ck", "Capacitance='100e-6'", {"cathode", "GND"}) +
           element("Pentode", "V1", "Type='GE6V6GT' DoNotInterpolate='true'", {"plate", "screen", "grid", "cathode"}) +
           outputs({"plate"}) + analysis(solver);
}

inline const char* pentodeStageSpice() {
    return ".param Kp=38.07 Kvb=30.2 mu=12.67 Ex=1.198 Kg1=915 Kg2=4500 Vc=0 Igc=2.2e-4 N=1.5\n"
           "Cin in grid 22n\nRg grid 0 470k\nVB supply 0 300\nVS screen 0 250\nRp supply plate 5k\n"
           "Rk cathode 0 470\nCk cathode 0 100u\n"
           "Bp plate cathode I=atan(V(plate,cathode)/{Kvb})*2/{Kg1}*pwr(max(V(screen,cathode)/{Kp}*ln(1+exp({Kp}*(1/{mu}+"
           "V(grid,cathode)/V(screen,cathode)))),0),{Ex})\n"
           "Bs screen cathode I=pwr(max(V(screen,cathode)/{mu}+V(grid,cathode),0),1.5)/{Kg2}\n"
           "Bg grid cathode I={Igc}*pwr(max(V(grid,cathode)+{Vc},0),{N})\n";
}

}  // namespace circuittest
