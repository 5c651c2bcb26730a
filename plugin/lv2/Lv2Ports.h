#pragma once
// The LV2 face of the amplifier's eight controls: the ports a host sees, in the panel's units,
// and the mapping to and from the controls' own 0..1 values.  Shared by the plug-in and its UI,
// so that both read the same numbers the same way.

#include <cstdint>

namespace orm_lv2 {

constexpr const char* kPluginUri = "http://tarnvale.example/plugins/orm";
constexpr const char* kMonoPluginUri = "http://tarnvale.example/plugins/orm#mono";
constexpr const char* kUiUri = "http://tarnvale.example/plugins/orm#ui";

enum class PortKind { Knob, Factor, Toggle };

struct ControlPort {
    const char* control;  // the control's Name in the system description
    const char* symbol;
    const char* name;  // the panel's name for it (the control's DisplayName)
    PortKind kind;
    float defaultValue;  // in panel units
};

// Control port i is control i of the description: the index a VST2 host uses for the parameter.
constexpr uint32_t kControlPorts = 8;
extern const ControlPort kControls[kControlPorts];

// After the controls: the audio ports, then the latency report.
struct PortLayout {
    uint32_t audioIn;
    uint32_t audioOut;
    uint32_t latency;
    uint32_t channels;
};
constexpr PortLayout kStereoLayout{8, 10, 12, 2};
constexpr PortLayout kMonoLayout{8, 9, 10, 1};

// The control's 0..1 value for a port value in panel units: knobs 0..10, the factor 2, 4 or 8
// (the nearest of them), toggles off at zero or below.  Out-of-range values count as the nearer
// end.  NaN has no meaning and gives NaN: callers keep the value they had.
float toControlValue(uint32_t port, float portValue);
// The port value in panel units that shows a control's 0..1 value.
float toPortValue(uint32_t port, float controlValue);

}  // namespace orm_lv2
