#pragma once
// The netlists that the tests, the benchmarks and the documentation share, as XML graph bodies
// and as ngspice decks of the same circuits.

#include <string>

namespace circuittest {

inline std::string inputSource() {
    return R"(<Element Type="VoltageInputSource" Name="Vin"><Properties InputNumber="0"/><Node Name="in"/><Node Name="GND"/></Element>)";
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

// AC analysis from the operating point, found by Newton.
inline std::string analysis(const std::string& solver) {
    return R"(<Analysis Type="AC"><InitialCondition Type="OperatingPoint">)" + newton("1e-6", 200) +
           "</InitialCondition>" + solver + "</Analysis>";
}

inline std::string rcLowPass(const std::string& solver = linear()) {
    return inputSource() +
           R"(<Element Type="Resistor" Name="R1"><Properties Resistance="1000"/><Node Name="in"/><Node Name="out"/></Element>
<Element Type="Capacitor" Name="C1"><Properties Capacitance="100e-9"/><Node Name="out"/><Node Name="GND"/></Element>
<Output><Node Name="out"/></Output>)" +
           analysis(solver);
}
inline const char* rcLowPassSpice() { return "R1 in out 1000\nC1 out 0 100n\n"; }

inline std::string rcHighPass(const std::string& solver = linear()) {
    return inputSource() +
           R"(<Element Type="Capacitor" Name="C1"><Properties Capacitance="100e-9"/><Node Name="in"/><Node Name="out"/></Element>
<Element Type="Resistor" Name="R1"><Properties Resistance="1000"/><Node Name="out"/><Node Name="GND"/></Element>
<Output><Node Name="out"/></Output>)" +
           analysis(solver);
}
inline const char* rcHighPassSpice() { return "C1 in out 100n\nR1 out 0 1000\n"; }

// A 10 kΩ pot at 0.3 into a non-inverting stage of gain 10 with 1 nF across the feedback resistor.
inline std::string potOpAmp(const std::string& solver = linear()) {
    return inputSource() +
           R"(<Element Type="Potentiometer" Name="P1"><Properties Resistance="10000" Wiper="0.3"/><Node Name="in"/><Node Name="w"/><Node Name="GND"/></Element>
<Element Type="OpAmp" Name="U1"><Properties Gain="100000"/><Node Name="w"/><Node Name="out"/><Node Name="n"/></Element>
<Element Type="Resistor" Name="Rf"><Properties Resistance="90000"/><Node Name="out"/><Node Name="n"/></Element>
<Element Type="Capacitor" Name="Cf"><Properties Capacitance="1e-9"/><Node Name="out"/><Node Name="n"/></Element>
<Element Type="Resistor" Name="Rg"><Properties Resistance="10000"/><Node Name="n"/><Node Name="GND"/></Element>
<Output><Node Name="out"/></Output>)" +
           analysis(solver);
}
// The wiper at 0.3 of the travel from "in": 3 kΩ above, 7 kΩ below.
inline const char* potOpAmpSpice() {
    return "Rp1 in w 3000\nRp2 w 0 7000\nE1 out 0 w n 100000\nRf out n 90000\nCf out n 1n\nRg n 0 10000\n";
}

// The common-cathode 12AX7 stage: 100 kΩ plate resistor to 300 V, 1.5 kΩ cathode resistor
// bypassed by 22 µF, 22 nF coupling capacitor into a 1 MΩ grid resistor.
inline std::string triodeStage(const std::string& solver = newton(), bool tables = false) {
    return inputSource() +
           R"(<Element Type="Capacitor" Name="Cin"><Properties Capacitance="22e-9"/><Node Name="in"/><Node Name="grid"/></Element>
<Element Type="Resistor" Name="Rg"><Properties Resistance="1e6"/><Node Name="grid"/><Node Name="GND"/></Element>
<Element Type="Battery" Name="B1"><Properties Voltage="300"/><Node Name="supply"/><Node Name="GND"/></Element>
<Element Type="Resistor" Name="Rp"><Properties Resistance="100e3"/><Node Name="supply"/><Node Name="plate"/></Element>
<Element Type="Resistor" Name="Rk"><Properties Resistance="1500"/><Node Name="cathode"/><Node Name="GND"/></Element>
<Element Type="Capacitor" Name="Ck"><Properties Capacitance="22e-6"/><Node Name="cathode"/><Node Name="GND"/></Element>
<Element Type="Triode" Name="V1"><Properties Type="12AX7" DoNotInterpolate=")" +
           (tables ? "false" : "true") + R"("/><Node Name="plate"/><Node Name="grid"/><Node Name="cathode"/></Element>
<Output><Node Name="plate"/></Output>)" +
           analysis(solver);
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
    return inputSource() +
           R"(<Element Type="Capacitor" Name="Cin"><Properties Capacitance="22e-9"/><Node Name="in"/><Node Name="grid"/></Element>
<Element Type="Resistor" Name="Rg"><Properties Resistance="470e3"/><Node Name="grid"/><Node Name="GND"/></Element>
<Element Type="Battery" Name="B1"><Properties Voltage="300"/><Node Name="supply"/><Node Name="GND"/></Element>
<Element Type="Battery" Name="B2"><Properties Voltage="250"/><Node Name="screen"/><Node Name="GND"/></Element>
<Element Type="Resistor" Name="Rp"><Properties Resistance="5000"/><Node Name="supply"/><Node Name="plate"/></Element>
<Element Type="Resistor" Name="Rk"><Properties Resistance="470"/><Node Name="cathode"/><Node Name="GND"/></Element>
<Element Type="Capacitor" Name="Ck"><Properties Capacitance="100e-6"/><Node Name="cathode"/><Node Name="GND"/></Element>
<Element Type="Pentode" Name="V1"><Properties Type="GE6V6GT" DoNotInterpolate="true"/><Node Name="plate"/><Node Name="screen"/><Node Name="grid"/><Node Name="cathode"/></Element>
<Output><Node Name="plate"/></Output>)" +
           analysis(solver);
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
