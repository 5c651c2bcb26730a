#pragma once
// A property value that moves to a new target in a straight line over a fixed time instead of
// jumping.  A control is delivered at a block boundary; a gain or a network that jumped there
// would put a step into the signal, heard as a click (or, under automation, as zipper noise).
// Gliding spreads the change over about 20 ms, short enough to follow a hand on a knob.
//
// Until audio has passed (start) a new target is taken at once: the first values of an element
// are settings, not moves.  No allocation; the owner's thread only.

#include <cmath>
#include <cstddef>

namespace vrn {

class Glide {
public:
    explicit Glide(double initial = 0.0) : current(initial), goal(initial) {}

    // The glide's time at the owner's rate; 0 seconds or an unknown rate make every change a jump.
    // A glide under way ends at its target.
    void setTime(double seconds, double rate) {
        time = seconds;
        const double n = seconds > 0.0 && rate > 0.0 ? std::floor(seconds * rate + 0.5) : 0.0;
        length = n > 0.0 && n < 1e9 ? static_cast<size_t>(n) : 0;
        jump(goal);
    }
    void setRate(double rate) { setTime(time, rate); }

    // Audio has passed: from now on a change glides.
    void start() { started = true; }
    // Back to the state before any audio, the value at its target.
    void stop() {
        started = false;
        jump(goal);
    }

    void setTarget(double value) {
        if (value == goal) return;
        if (!started || length == 0 || !std::isfinite(value) || !std::isfinite(current)) {
            jump(value);
            return;
        }
        goal = value;
        remaining = length;
        step = (goal - current) / static_cast<double>(length);
    }
    void jump(double value) {
        current = goal = value;
        remaining = 0;
        step = 0.0;
    }

    // Moves `frames` samples on; returns the new value.
    double advance(size_t frames) {
        if (frames >= remaining) {
            jump(goal);
        } else {
            remaining -= frames;
            current = goal - step * static_cast<double>(remaining);
        }
        return current;
    }

    bool moving() const { return remaining > 0; }
    // Samples left until the target.
    size_t left() const { return remaining; }
    double value() const { return current; }
    double target() const { return goal; }
    // The value `frames` samples from now, without moving.
    double ahead(size_t frames) const {
        return frames >= remaining ? goal : goal - step * static_cast<double>(remaining - frames);
    }

private:
    double current;
    double goal;
    double step = 0.0;
    double time = 0.0;
    size_t length = 0;
    size_t remaining = 0;
    bool started = false;
};

}  // namespace vrn
