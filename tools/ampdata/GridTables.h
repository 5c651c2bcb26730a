#pragma once
// Grid tables of the high-CPU networks: the effective resistance of a conducting tube grid.

#include <vector>

namespace ampdata_gen {

// "yd": the power stage's grid, riding on its cathode bias of 18.2974 V.  The grid current
// follows the 3/2-power law Ig = 2.2e-4 (Vin - 18.2974)^1.5 A; the table holds Vin / Ig in ohm
// on 18..30 V in steps of 0.02 V, and 1e10 where the grid does not conduct.
std::vector<double> gridTableYd();

}  // namespace ampdata_gen
