#pragma once
// What orm-render runs audio through: a system description or a hosted module.

#include <string>
#include <vector>

namespace orm_render {

// A control as the user meets it: its host value runs 0..1, the panel shows it as a knob
// (0/10 to 10/10), a switch with named positions spread evenly over 0..1, or a plain number.
struct Parameter {
    enum Kind { Plain, Knob, Switch };
    int index = 0;
    std::string name;      // as the host sees it
    std::string longName;  // the panel's full name, when the host's is cut short
    std::string what;      // what it does
    Kind kind = Plain;
    std::vector<std::string> positions;  // a switch's, first at 0, last at 1
    double value = 0;                    // the default, 0..1
    bool unbounded = false;              // a description's control whose default lies outside 0..1
};

class Renderer {
public:
    virtual ~Renderer() {}
    virtual size_t numberOfInputs() const = 0;
    virtual size_t numberOfOutputs() const = 0;
    virtual std::vector<Parameter> parameters() const = 0;
    // A host value 0..1 for parameters()[index], before the first block.
    virtual void set(size_t index, double value) = 0;
    virtual void start(double rate, int maxBlock) = 0;
    // One block: one pointer per input; returns one pointer per output, frames samples each.
    virtual const std::vector<float*>& process(std::vector<float*>& inputs, size_t frames) = 0;
    virtual void stop() = 0;
    // Samples that a circuit could not solve (each repeated the previous one).
    virtual unsigned long long failedSamples() const { return 0; }
};

}  // namespace orm_render
