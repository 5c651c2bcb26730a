// The built-in amplifier as a system description.
//
// INTERIM FORM.  The sixteen graphs keep their names, order, inputs, outputs and node names, the
// two system outputs and the eight controls (names, display names, values, UIProperties, the
// order and count of their bindings) are the final ones.  What differs from the full amplifier
// until the missing element types and data are in the module:
//
//  * Resamplers: element "1" of G1 (IirInterpolator) and of G2 (IirDecimator) is a Gain of 1.0,
//    and the Multiplier of G1 and G2 is 1.0 instead of 2.0 and 0.5: every graph runs at the
//    host's rate.  Each of G1 and G2 holds one extra, unconnected Gain element "Factor" (start
//    value 2.0) that receives the Oversampling control's factor (2, 4, 8) as "Gain" in place of
//    the resamplers' "Factor"; it does nothing with it.
//  * Tube stages: "V1" of V1 and "V2", "V3" of both middle graphs are Gains of 1.0 instead of
//    LookupTableFilter elements: with no tube curves loaded a table element cannot run.
//  * Volume network: "VC" of V2-out-Rg-lowCPU (FilterWrapper) and of V2-out-Rg (BiQuad) are Gains
//    of 1.0; the Gain control sets their "Gain" instead of "Wiper", so the wiper value is a
//    plain factor.  V2-out-Rg has one extra Gain, "VC Gain", behind "VC": it takes the Feedback
//    control's value that "VC" itself would take as "Gain".
//  * Coupling network: "V2V3" of both middle graphs (FilterWrapper, FirstOrderIIR) is a Gain of 1.0.
//  * DC block: "DC block" of out DC block (FirstOrderIIR) is a Gain of 1.0: no high-pass.
//  * Cabinet: "WV" of WaveConvolver (WaveConvolver) is a Gain of 0.25, the convolver's own gain,
//    with no impulse response.  Cabinet and Stereo still bypass the convolver graphs.
//
// The interim system is therefore linear: output = input * Input * Gain * Feedback * Vol * 0.25
// with the controls' mapped values, in both chains; Switch, Off, Bypass and the Stereo and mono
// paths behave as in the full system.
//
// The first channel's graphs are written once; the second channel is the same text with "_S"
// added to every graph name it holds and system input 1 instead of 0.

#include "plugin/OrmSystemDescription.h"

namespace {

const char* const kHead = R"(<?xml version="1.0" encoding="UTF-8"?>
<System>
  <Graphs>
)";

// $S: the chain's suffix ("" or "_S"); $IN: its system input.
const char* const kChain = R"(
    <Graph Name="G1$S" Type="DSP" Multiplier="1.0">
      <NumberOfInputs>1</NumberOfInputs>
      <Element Type="Gain" Name="InputGain">
        <Properties Gain="1.0" InputIndex="0"/>
        <Inputs><Input Port="in" Element="Graph" Output="0"/></Inputs>
      </Element>
      <!-- Stands in for the interpolator (CornerFrequency 15000, Factor 2, Order 2, Cascade 4, Butterworth). -->
      <Element Type="Gain" Name="1">
        <Properties Gain="1.0"/>
        <Inputs><Input Port="in" Element="InputGain" Output="out"/></Inputs>
      </Element>
      <!-- Receives the oversampling factor until the interpolator takes it. -->
      <Element Type="Gain" Name="Factor">
        <Properties Gain="2.0"/>
      </Element>
      <Inputs><Input Graph="System" Node="$IN"/></Inputs>
      <Output><Node Name="out" Element="1" Index="0"/></Output>
    </Graph>

    <Graph Name="V1$S" Type="DSP">
      <NumberOfInputs>1</NumberOfInputs>
      <!-- Stands in for the tube stage (LookupTableFilter, VinMin -8, VinMax 80, DeltaV 0.02). -->
      <Element Type="Gain" Name="V1">
        <Properties Gain="1.0"/>
        <Inputs><Input Port="in" Element="Graph" Output="0"/></Inputs>
      </Element>
      <Inputs><Input Graph="G1$S" Node="out"/></Inputs>
      <Output><Node Name="out" Element="V1" Index="0"/></Output>
    </Graph>

    <Graph Name="V2-out-Rg$S" Type="DSP">
      <Properties Off="true"/>
      <NumberOfInputs>1</NumberOfInputs>
      <!-- Stands in for the volume network (BiQuad with the properties Wiper and Gain). -->
      <Element Type="Gain" Name="VC">
        <Properties Gain="1.0" InputIndex="0"/>
        <Inputs><Input Port="in" Element="Graph" Output="0"/></Inputs>
      </Element>
      <Element Type="Gain" Name="VC Gain">
        <Properties Gain="1.0" InputIndex="0"/>
        <Inputs><Input Port="in" Element="VC" Output="out"/></Inputs>
      </Element>
      <Element Type="Gain" Name="V2">
        <Properties Gain="1.0"/>
        <Inputs><Input Port="in" Element="VC Gain" Output="out"/></Inputs>
      </Element>
      <!-- Stands in for the coupling network (FirstOrderIIR). -->
      <Element Type="Gain" Name="V2V3">
        <Properties Gain="1.0" InputIndex="0"/>
        <Inputs><Input Port="in" Element="V2" Output="out"/></Inputs>
      </Element>
      <Element Type="Gain" Name="V3">
        <Properties Gain="1.0"/>
        <Inputs><Input Port="in" Element="V2V3" Output="out"/></Inputs>
      </Element>
      <Inputs><Input Graph="V1$S" Node="out"/></Inputs>
      <Output><Node Name="out5" Element="V3" Port="out"/></Output>
    </Graph>

    <Graph Name="V2-out-Rg-lowCPU$S" Type="DSP">
      <Properties Off="false"/>
      <NumberOfInputs>1</NumberOfInputs>
      <!-- Stands in for the volume network (FilterWrapper with the property Wiper). -->
      <Element Type="Gain" Name="VC">
        <Properties Gain="1.0" InputIndex="0"/>
        <Inputs><Input Port="in" Element="Graph" Output="0"/></Inputs>
      </Element>
      <Element Type="Gain" Name="GlobalFB">
        <Properties Gain="1.0" InputIndex="0"/>
        <Inputs><Input Port="in" Element="VC" Output="out"/></Inputs>
      </Element>
      <Element Type="Gain" Name="V2">
        <Properties Gain="1.0"/>
        <Inputs><Input Port="in" Element="GlobalFB" Output="out"/></Inputs>
      </Element>
      <!-- Stands in for the coupling network (FilterWrapper). -->
      <Element Type="Gain" Name="V2V3">
        <Properties Gain="1.0" InputIndex="0"/>
        <Inputs><Input Port="in" Element="V2" Output="out"/></Inputs>
      </Element>
      <Element Type="Gain" Name="V3">
        <Properties Gain="1.0"/>
        <Inputs><Input Port="in" Element="V2V3" Output="out"/></Inputs>
      </Element>
      <Inputs><Input Graph="V1$S" Node="out"/></Inputs>
      <Output><Node Name="out5" Element="V3" Port="out"/></Output>
    </Graph>

    <Graph Name="Switch$S" Type="DSP">
      <NumberOfInputs>2</NumberOfInputs>
      <Element Type="Switch" Name="S">
        <Properties NumberOfInputs="2" Position="0"/>
        <Inputs>
          <Input Port="in_0" Element="Graph" Output="0"/>
          <Input Port="in_1" Element="Graph" Output="1"/>
        </Inputs>
      </Element>
      <Inputs>
        <Input Graph="V2-out-Rg-lowCPU$S" Node="out5"/>
        <Input Graph="V2-out-Rg$S" Node="out5"/>
      </Inputs>
      <Output><Node Name="out" Element="S" Port="out"/></Output>
    </Graph>

    <Graph Name="G2$S" Type="DSP" Multiplier="1.0">
      <NumberOfInputs>1</NumberOfInputs>
      <!-- Stands in for the decimator (CornerFrequency 20000, Factor 2, Order 2, Cascade 8, Butterworth). -->
      <Element Type="Gain" Name="1">
        <Properties Gain="1.0"/>
        <Inputs><Input Port="in" Element="Graph" Output="0"/></Inputs>
      </Element>
      <Element Type="Gain" Name="Factor">
        <Properties Gain="2.0"/>
      </Element>
      <Inputs><Input Graph="Switch$S" Node="out"/></Inputs>
      <Output><Node Name="out" Element="1" Index="0"/></Output>
    </Graph>

    <Graph Name="out DC block$S" Type="DSP">
      <NumberOfInputs>1</NumberOfInputs>
      <!-- Stands in for the DC block (FirstOrderIIR, A -0.9995, B 1.0|-1.0). -->
      <Element Type="Gain" Name="DC block">
        <Properties Gain="1.0"/>
        <Inputs><Input Port="in" Element="Graph" Output="0"/></Inputs>
      </Element>
      <Element Type="Gain" Name="Gain">
        <Properties Gain="1.0" InputIndex="0"/>
        <Inputs><Input Port="in" Element="DC block" Output="out"/></Inputs>
      </Element>
      <Inputs><Input Graph="G2$S" Node="out"/></Inputs>
      <Output><Node Name="out" Element="Gain" Index="0"/></Output>
    </Graph>

    <Graph Name="WaveConvolver$S" Type="DSP">
      <NumberOfInputs>1</NumberOfInputs>
      <!-- Stands in for the cabinet (WaveConvolver, Memory "u87", MaxIRSize 8192, Gain 0.25, Scale). -->
      <Element Type="Gain" Name="WV">
        <Properties Gain="0.25"/>
        <Inputs><Input Port="in" Element="Graph" Output="0"/></Inputs>
      </Element>
      <Inputs><Input Graph="out DC block$S" Node="out"/></Inputs>
      <Output><Node Name="out" Element="WV" Index="0"/></Output>
    </Graph>
)";

const char* const kTail = R"(
  </Graphs>

  <Outputs>
    <Output Graph="WaveConvolver" Node="out"/>
    <Output Graph="WaveConvolver_S" Node="out"/>
  </Outputs>

  <Controls>
    <Control Name="Gain" DisplayName="Volume" Value="0.5">
      <UIProperties ControlType="CAnimKnob" Image="fender-chicken.png" X="281" Y="272" Width="66" Height="66"/>
      <Properties>
        <Property Name="Gain" Graph="V2-out-Rg" Element="VC"/>
        <Property Name="Gain" Graph="V2-out-Rg-lowCPU" Element="VC"/>
        <Property Name="Gain" Graph="V2-out-Rg_S" Element="VC"/>
        <Property Name="Gain" Graph="V2-out-Rg-lowCPU_S" Element="VC"/>
      </Properties>
    </Control>
    <Control Name="Feedback" DisplayName="Feedback" Value="1.0">
      <UIProperties ControlType="CAnimKnob" Image="fender-chicken.png" X="369" Y="272" Width="66" Height="66"/>
      <Properties>
        <Property Name="Gain" Graph="V2-out-Rg" Element="VC Gain"/>
        <Property Name="Gain" Graph="V2-out-Rg-lowCPU" Element="GlobalFB"/>
        <Property Name="Gain" Graph="V2-out-Rg_S" Element="VC Gain"/>
        <Property Name="Gain" Graph="V2-out-Rg-lowCPU_S" Element="GlobalFB"/>
      </Properties>
    </Control>
    <Control Name="Vol" DisplayName="Output" Value="0.5">
      <UIProperties ControlType="CAnimKnob" Image="fender-chicken.png" X="465" Y="272" Width="66" Height="66"/>
      <Properties>
        <Property Name="Gain" Graph="out DC block" Element="Gain"/>
        <Property Name="Gain" Graph="out DC block_S" Element="Gain"/>
      </Properties>
    </Control>
    <Control Name="Oversampling" DisplayName="Oversampling" Value="0.5">
      <UIProperties ControlType="CHorizontalSwitch" Image="HorizontalSwitch-3P.png" X="723" Y="274" Width="40" Height="20"
                    NumberOfImages="3" HeightOfOneImage="20.0"/>
      <Properties>
        <Property Name="Gain" Graph="G1" Element="Factor"/>
        <Property Name="Gain" Graph="G2" Element="Factor"/>
        <Property Name="Gain" Graph="G1_S" Element="Factor"/>
        <Property Name="Gain" Graph="G2_S" Element="Factor"/>
      </Properties>
    </Control>
    <Control Name="Cabinet" DisplayName="Cabinet" Value="1">
      <UIProperties ControlType="CVerticalSwitch" Image="VerticalSwitch.png" X="721" Y="304" Width="20" Height="40"/>
      <Properties>
        <Property Name="Bypass" Graph="WaveConvolver"/>
        <Property Name="Bypass" Graph="WaveConvolver_S"/>
      </Properties>
    </Control>
    <Control Name="CPU" DisplayName="CPU" Value="0.0">
      <UIProperties ControlType="CVerticalSwitch" Image="VerticalSwitch.png" X="671" Y="304" Width="20" Height="40"/>
      <Properties>
        <Property Name="Position" Graph="Switch" Element="S"/>
        <Property Name="Off" Graph="V2-out-Rg-lowCPU"/>
        <Property Name="Off" Graph="V2-out-Rg"/>
        <Property Name="Position" Graph="Switch_S" Element="S"/>
        <Property Name="Off" Graph="V2-out-Rg-lowCPU_S"/>
        <Property Name="Off" Graph="V2-out-Rg_S"/>
      </Properties>
    </Control>
    <Control Name="Input" DisplayName="Input" Value="0.5">
      <UIProperties ControlType="CAnimKnob" Image="fender-chicken.png" X="185" Y="272" Width="66" Height="66"/>
      <Properties>
        <Property Name="Gain" Graph="G1" Element="InputGain"/>
        <Property Name="Gain" Graph="G1_S" Element="InputGain"/>
      </Properties>
    </Control>
    <Control Name="Stereo" DisplayName="Stereo" Value="0.0">
      <UIProperties ControlType="CVerticalSwitch" Image="VerticalSwitch.png" X="778" Y="304" Width="20" Height="40"/>
      <Properties>
        <Property Name="Bypass" Graph="G1_S"/>
        <Property Name="Bypass" Graph="V1_S"/>
        <Property Name="Bypass" Graph="V2-out-Rg-lowCPU_S"/>
        <Property Name="Bypass" Graph="V2-out-Rg_S"/>
        <Property Name="Bypass" Graph="G2_S"/>
        <Property Name="Bypass" Graph="out DC block_S"/>
        <Property Name="Bypass_1" Graph="WaveConvolver_S"/>
      </Properties>
    </Control>
  </Controls>
</System>
)";

std::string chain(const std::string& suffix, const std::string& input) {
    std::string text = kChain;
    for (size_t at = text.find('$'); at != std::string::npos; at = text.find('$', at)) {
        if (text.compare(at, 3, "$IN") == 0) {
            text.replace(at, 3, input);
            at += input.size();
        } else {
            text.replace(at, 2, suffix);
            at += suffix.size();
        }
    }
    return text;
}

}  // namespace

std::string makeOrmSystemDescription() { return kHead + chain("", "0") + chain("_S", "1") + kTail; }
