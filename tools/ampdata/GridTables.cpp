#include "GridTables.h"

#include <algorithm>
#include <cmath>

namespace ampdata_gen {

std::vector<double> gridTableYd() {
    const double vinMin = 18.0, deltaV = 0.02, onset = 18.2974, igc = 2.2e-4, open = 1e10;
    const int entries = 601;
    std::vector<double> ohms(entries);
    for (int i = 0; i < entries; ++i) {
        const double vin = vinMin + deltaV * i;
        if (vin <= onset) {
            ohms[i] = open;
            continue;
        }
        const double ig = igc * std::pow(vin - onset, 1.5);
        ohms[i] = std::min(open, vin / ig);
    }
    return ohms;
}

}  // namespace ampdata_gen
