// The built-in amplifier as a system description: two equal chains (the second serves the right
// channel when Stereo is on), two system outputs and the eight controls.  The tube curves, the
// networks' calculators and handlers and the cabinet response are not expressible here; the
// effect's constructor wires them into the named elements.
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
    <Graph Name="G1$S" Type="DSP" Multiplier="2.0">
      <NumberOfInputs>1</NumberOfInputs>
      <Element Type="Gain" Name="InputGain">
        <Properties Gain="1.0" InputIndex="0"/>
        <Inputs><Input Port="in" Element="Graph" Output="0"/></Inputs>
      </Element>
      <Element Type="IirInterpolator" Name="1">
        <Properties CornerFrequency="15000" Factor="2" Order="2" Cascade="4" Type="Butterworth"/>
        <Inputs><Input Port="in" Element="InputGain" Output="out"/></Inputs>
      </Element>
      <Inputs><Input Graph="System" Node="$IN"/></Inputs>
      <Output><Node Name="out" Element="1" Index="0"/></Output>
    </Graph>

    <Graph Name="V1$S" Type="DSP">
      <NumberOfInputs>1</NumberOfInputs>
      <!-- The range in force is the one of the curve loaded at start-up. -->
      <Element Type="LookupTableFilter" Name="V1">
        <Properties VinMin="-8" VinMax="80" DeltaV="0.02" UseInputCurrent="0"/>
        <Inputs><Input Port="in" Element="Graph" Output="0"/></Inputs>
      </Element>
      <Inputs><Input Graph="G1$S" Node="out"/></Inputs>
      <Output><Node Name="out" Element="V1" Index="0"/></Output>
    </Graph>

    <!-- High-CPU branch: the networks follow the grid current of the next tube sample by sample. -->
    <Graph Name="V2-out-Rg$S" Type="DSP">
      <Properties Off="true"/>
      <NumberOfInputs>1</NumberOfInputs>
      <Element Type="BiQuad" Name="VC">
        <Properties A="0.0|0.0" B="0.0|0.0|0.0" PropertyNames="Wiper|Gain" Gain="1.0" Wiper="1.0" InputIndex="0"/>
        <Inputs><Input Port="in" Element="Graph" Output="0"/></Inputs>
      </Element>
      <Element Type="LookupTableFilter" Name="V2">
        <Properties VinMin="-8" VinMax="80" DeltaV="0.02"/>
        <Inputs><Input Port="in" Element="VC" Output="out"/></Inputs>
      </Element>
      <Element Type="FirstOrderIIR" Name="V2V3">
        <Properties A="0.0" B="0.0|0.0" InputIndex="0"/>
        <Inputs><Input Port="in" Element="V2" Output="out"/></Inputs>
      </Element>
      <Element Type="LookupTableFilter" Name="V3">
        <Properties VinMin="-40" VinMax="100" DeltaV="0.01"/>
        <Inputs><Input Port="in" Element="V2V3" Output="out"/></Inputs>
      </Element>
      <Inputs><Input Graph="V1$S" Node="out"/></Inputs>
      <Output><Node Name="out5" Element="V3" Port="out"/></Output>
    </Graph>

    <!-- Low-CPU branch: the networks are recomputed only when the knob or the rate changes. -->
    <Graph Name="V2-out-Rg-lowCPU$S" Type="DSP">
      <Properties Off="false"/>
      <NumberOfInputs>1</NumberOfInputs>
      <Element Type="FilterWrapper" Name="VC">
        <Properties PropertyNames="Wiper" Wiper="1.0" InputIndex="0"/>
        <Inputs><Input Port="in" Element="Graph" Output="0"/></Inputs>
      </Element>
      <Element Type="Gain" Name="GlobalFB">
        <Properties Gain="1.0" InputIndex="0"/>
        <Inputs><Input Port="in" Element="VC" Output="out"/></Inputs>
      </Element>
      <Element Type="LookupTableFilter" Name="V2">
        <Properties VinMin="-8" VinMax="80" DeltaV="0.02"/>
        <Inputs><Input Port="in" Element="GlobalFB" Output="out"/></Inputs>
      </Element>
      <Element Type="FilterWrapper" Name="V2V3">
        <Properties InputIndex="0"/>
        <Inputs><Input Port="in" Element="V2" Output="out"/></Inputs>
      </Element>
      <Element Type="LookupTableFilter" Name="V3">
        <Properties VinMin="-40" VinMax="100" DeltaV="0.01"/>
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

    <Graph Name="G2$S" Type="DSP" Multiplier="0.5">
      <NumberOfInputs>1</NumberOfInputs>
      <Element Type="IirDecimator" Name="1">
        <Properties CornerFrequency="20000" Factor="2" Order="2" Cascade="8" Type="Butterworth"/>
        <Inputs><Input Port="in" Element="Graph" Output="0"/></Inputs>
      </Element>
      <Inputs><Input Graph="Switch$S" Node="out"/></Inputs>
      <Output><Node Name="out" Element="1" Index="0"/></Output>
    </Graph>

    <Graph Name="out DC block$S" Type="DSP">
      <NumberOfInputs>1</NumberOfInputs>
      <Element Type="FirstOrderIIR" Name="DC block">
        <Properties A="-0.9995" B="1.0|-1.0"/>
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
      <!-- The response is handed over in memory at start-up.  MaxIRSize counts samples at
           MaxIRRate: the cabinet keeps the same length in time, 186 ms, at every rate; a fixed
           8192 would end inside the response's own 22 ms of delay at 384 kHz. -->
      <Element Type="WaveConvolver" Name="WV">
        <Properties Location="Memory" ImpulseResponses="u87" MaxIRSize="8192" MaxIRRate="44100" Gain="0.25" Scale="true"/>
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
        <Property Name="Wiper" Graph="V2-out-Rg" Element="VC"/>
        <Property Name="Wiper" Graph="V2-out-Rg-lowCPU" Element="VC"/>
        <Property Name="Wiper" Graph="V2-out-Rg_S" Element="VC"/>
        <Property Name="Wiper" Graph="V2-out-Rg-lowCPU_S" Element="VC"/>
      </Properties>
    </Control>
    <Control Name="Feedback" DisplayName="Feedback" Value="1.0">
      <UIProperties ControlType="CAnimKnob" Image="fender-chicken.png" X="369" Y="272" Width="66" Height="66"/>
      <Properties>
        <Property Name="Gain" Graph="V2-out-Rg" Element="VC"/>
        <Property Name="Gain" Graph="V2-out-Rg-lowCPU" Element="GlobalFB"/>
        <Property Name="Gain" Graph="V2-out-Rg_S" Element="VC"/>
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
        <Property Name="Factor" Graph="G1" Element="1"/>
        <Property Name="Factor" Graph="G2" Element="1"/>
        <Property Name="Factor" Graph="G1_S" Element="1"/>
        <Property Name="Factor" Graph="G2_S" Element="1"/>
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
