#include "plugin/lv2/Lv2Ports.h"

#include <cmath>

namespace orm_lv2 {

// The description's defaults in panel units: knobs at 0.5 show 5, Feedback at 1.0 shows 10,
// Oversampling at 0.5 is 4x, the cabinet in, the low-CPU path, one chain.
const ControlPort kControls[kControlPorts] = {
    {"Gain", "volume", "Volume", PortKind::Knob, 5.0f},
    {"Feedback", "feedback", "Feedback", PortKind::Knob, 10.0f},
    {"Vol", "output", "Output", PortKind::Knob, 5.0f},
    {"Oversampling", "oversampling", "Oversampling", PortKind::Factor, 4.0f},
    {"Cabinet", "cabinet", "Cabinet", PortKind::Toggle, 1.0f},
    {"CPU", "cpu", "CPU", PortKind::Toggle, 0.0f},
    {"Input", "input", "Input", PortKind::Knob, 5.0f},
    {"Stereo", "stereo", "Stereo", PortKind::Toggle, 0.0f},
};

float toControlValue(uint32_t port, float value) {
    if (port >= kControlPorts || std::isnan(value)) return NAN;
    switch (kControls[port].kind) {
        case PortKind::Knob:
            // A division, so that the knob's n tenths reach the control as the float nearest n/10,
            // as a VST2 host's 0.n does.
            return value <= 0.0f ? 0.0f : value >= 10.0f ? 1.0f : value / 10.0f;
        case PortKind::Factor:
            // The switch's three positions; the borders lie between the factors.
            return value < 3.0f ? 0.0f : value < 6.0f ? 0.5f : 1.0f;
        case PortKind::Toggle:
            return value > 0.0f ? 1.0f : 0.0f;
    }
    return NAN;
}

float toPortValue(uint32_t port, float value) {
    if (port >= kControlPorts || std::isnan(value)) return NAN;
    switch (kControls[port].kind) {
        case PortKind::Knob:
            return value <= 0.0f ? 0.0f : value >= 1.0f ? 10.0f : value * 10.0f;
        case PortKind::Factor:
            // The position the switch shows for the value: the nearest of 0, 0.5 and 1.
            return value < 0.25f ? 2.0f : value < 0.75f ? 4.0f : 8.0f;
        case PortKind::Toggle:
            return value >= 0.5f ? 1.0f : 0.0f;
    }
    return NAN;
}

}  // namespace orm_lv2
