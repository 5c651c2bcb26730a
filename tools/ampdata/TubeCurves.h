#pragma once
// The tube curves A to E and the grid table "yg": DC operating points of the stage netlists in
// resources/tubes/, solved by the circuit simulator at every input voltage of a curve's grid.

#include <string>
#include <vector>

namespace ampdata_gen {

struct CurveGrid {
    char name;
    const char* netlist;  // file name in resources/tubes/
    double vinMin, vinMax, deltaV;
    int entries;
};

// 'A'..'E'; throws std::invalid_argument for another letter.
const CurveGrid& curveGrid(char name);
// Input voltage of entry i, as the table's users compute it.
double gridVoltage(const CurveGrid& grid, int i);
// The plate voltage at every entry, with the cut-off of the 260 V stages made exact.
std::vector<float> tubeCurve(char name, const std::string& resourceDir);
// The plate voltage of any stage netlist at the inputs given, solved as the curves are (for fitting).
std::vector<float> stageCurve(const std::string& netlistPath, const std::vector<float>& inputs);
// Resistance Vin / Ig of stage C in ohm, 0 V to 20 V in steps of 0.02 V; 1e10 without grid current.
std::vector<double> gridTableYg(const std::string& resourceDir);

}  // namespace ampdata_gen
