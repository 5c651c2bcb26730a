#include "filters/BiQuad.h"

#include <emmintrin.h>

namespace vrn {

void BiQuad::init(const std::string& filterName, std::shared_ptr<DSPContext>& filterContext) {
    Filter::init(filterName, filterContext);
    sizePorts();
    clearState();
}

// The order of the terms is fixed: results are bit for bit those of every earlier build.
scalar BiQuad::process(scalar in) {
    const scalar out = x[0] * b[1] + in * b[0] + x[1] * b[2] - y[0] * a[0] - y[1] * a[1];
    x0 = in;
    x[1] = x[0];
    x[0] = in;
    y[1] = y[0];
    y[0] = out;
    return out;
}

scalar* BiQuad::process(scalar*, size_t) { return nullptr; }

void BiQuad::process(const scalar* in, scalar* out, size_t framesPerBuffer) {
    if (framesPerBuffer == 0 || !in || !out) return;
    const scalar b0 = b[0], b1 = b[1], b2 = b[2], a1 = a[0], a2 = a[1];
    scalar x1 = x[0], x2 = x[1], y1 = y[0], y2 = y[1];
    size_t i = 0;
    // Same arithmetic as process(scalar), four samples per round with the history in registers.
    for (; i + 4 <= framesPerBuffer; i += 4) {
        const scalar i0 = in[i], i1 = in[i + 1], i2 = in[i + 2], i3 = in[i + 3];
        const scalar o0 = x1 * b1 + i0 * b0 + x2 * b2 - y1 * a1 - y2 * a2;
        const scalar o1 = i0 * b1 + i1 * b0 + x1 * b2 - o0 * a1 - y1 * a2;
        const scalar o2 = i1 * b1 + i2 * b0 + i0 * b2 - o1 * a1 - o0 * a2;
        const scalar o3 = i2 * b1 + i3 * b0 + i1 * b2 - o2 * a1 - o1 * a2;
        out[i] = o0;
        out[i + 1] = o1;
        out[i + 2] = o2;
        out[i + 3] = o3;
        x2 = i2;
        x1 = i3;
        y2 = o2;
        y1 = o3;
    }
    for (; i < framesPerBuffer; ++i) {
        const scalar i0 = in[i];
        const scalar o0 = x1 * b1 + i0 * b0 + x2 * b2 - y1 * a1 - y2 * a2;
        out[i] = o0;
        x2 = x1;
        x1 = i0;
        y2 = y1;
        y1 = o0;
    }
    x0 = x1;
    x[0] = x1;
    x[1] = x2;
    y[0] = y1;
    y[1] = y2;
}

namespace {

constexpr size_t kLanes = 4;
constexpr size_t kMaxGroups = 4;

// One section's coefficients and state, as the scalar step reads them.
struct Section {
    scalar b0, b1, b2, a1, a2;
    scalar x1, x2, y1, y2;
    scalar step(scalar in) {
        const scalar out = x1 * b1 + in * b0 + x2 * b2 - y1 * a1 - y2 * a2;
        x2 = x1;
        x1 = in;
        y2 = y1;
        y1 = out;
        return out;
    }
};

}  // namespace

void BiQuad::processCascade(BiQuad* const* sections, size_t count, const scalar* in, scalar* out,
                            size_t frames) {
    if (count == 0 || frames == 0 || !in || !out) return;
    // Lane s works on sample t - kSkew·s at step t: its input left the lane below kSkew steps
    // earlier, so only the recursion itself stays on the path from one step to the next.
    constexpr size_t kSkew = 2;
    const size_t last = count - 1;
    const bool lanes = count % kLanes == 0 && count <= kLanes * kMaxGroups && frames > kSkew * last;
    if (!lanes) {
        // One section after the other, through out.
        for (size_t s = 0; s < count; ++s) sections[s]->process(s == 0 ? in : out, out, frames);
        return;
    }
    Section state[kLanes * kMaxGroups];
    for (size_t s = 0; s < count; ++s) {
        const BiQuad& q = *sections[s];
        state[s] = {q.b[0], q.b[1], q.b[2], q.a[0], q.a[1], q.x[0], q.x[1], q.y[0], q.y[1]};
    }
    // Ramp up: section s takes the samples before kSkew·(last - s).  The newest output of each
    // section for each parity of the step is what the lane above starts from.
    scalar carried[kSkew][kLanes * kMaxGroups] = {};
    const size_t start = kSkew * last;
    for (size_t k = 0; k < start; ++k) {
        scalar v = in[k];
        const size_t through = last - k / kSkew;  // sections 0 .. through - 1 take sample k
        for (size_t s = 0; s < through; ++s) v = state[s].step(v);
        carried[k % kSkew][through - 1] = v;
    }
    const size_t groups = count / kLanes;
    __m128 b0[kMaxGroups], b1[kMaxGroups], b2[kMaxGroups], a1[kMaxGroups], a2[kMaxGroups];
    __m128 x1[kMaxGroups], x2[kMaxGroups], y1[kMaxGroups], y2[kMaxGroups];
    // The outputs of the last kSkew steps, by step parity.
    __m128 ring[kSkew][kMaxGroups];
    auto gather = [&](size_t g, scalar Section::*field) {
        const Section* p = state + kLanes * g;
        return _mm_setr_ps(p[0].*field, p[1].*field, p[2].*field, p[3].*field);
    };
    for (size_t g = 0; g < groups; ++g) {
        b0[g] = gather(g, &Section::b0);
        b1[g] = gather(g, &Section::b1);
        b2[g] = gather(g, &Section::b2);
        a1[g] = gather(g, &Section::a1);
        a2[g] = gather(g, &Section::a2);
        x1[g] = gather(g, &Section::x1);
        x2[g] = gather(g, &Section::x2);
        y1[g] = gather(g, &Section::y1);
        y2[g] = gather(g, &Section::y2);
        for (size_t parity = 0; parity < kSkew; ++parity) ring[parity][g] = _mm_loadu_ps(carried[parity] + kLanes * g);
    }
    for (size_t t = start; t < frames; ++t) {
        __m128* older = ring[t % kSkew];  // step t - kSkew, overwritten by this step
        // Each lane takes what the lane below gave kSkew steps ago; lane 0 the new sample.
        __m128 below = _mm_set_ss(in[t]);
        for (size_t g = 0; g < groups; ++g) {
            const __m128 shifted = _mm_castsi128_ps(_mm_slli_si128(_mm_castps_si128(older[g]), 4));
            const __m128 input = _mm_move_ss(shifted, below);
            below = _mm_shuffle_ps(older[g], older[g], 0xFF);
            // The terms in the order of the scalar step.
            const __m128 sum = _mm_sub_ps(
                _mm_sub_ps(_mm_add_ps(_mm_add_ps(_mm_mul_ps(x1[g], b1[g]), _mm_mul_ps(input, b0[g])),
                                      _mm_mul_ps(x2[g], b2[g])),
                           _mm_mul_ps(y1[g], a1[g])),
                _mm_mul_ps(y2[g], a2[g]));
            x2[g] = x1[g];
            x1[g] = input;
            y2[g] = y1[g];
            y1[g] = sum;
            older[g] = sum;
        }
        out[t - start] = _mm_cvtss_f32(_mm_shuffle_ps(older[groups - 1], older[groups - 1], 0xFF));
    }
    auto scatter = [&](size_t g, scalar Section::*field, __m128 v) {
        scalar values[kLanes];
        _mm_storeu_ps(values, v);
        for (size_t lane = 0; lane < kLanes; ++lane) state[kLanes * g + lane].*field = values[lane];
    };
    for (size_t g = 0; g < groups; ++g) {
        scatter(g, &Section::x1, x1[g]);
        scatter(g, &Section::x2, x2[g]);
        scatter(g, &Section::y1, y1[g]);
        scatter(g, &Section::y2, y2[g]);
        for (size_t parity = 0; parity < kSkew; ++parity) _mm_storeu_ps(carried[parity] + kLanes * g, ring[parity][g]);
    }
    // Ramp down: sample k has passed sections 0 .. done, done's output made at step k + kSkew·done,
    // one of the last kSkew steps; the rest of the sections follow.
    for (size_t k = frames - start; k < frames; ++k) {
        const size_t done = (frames - 1 - k) / kSkew;
        scalar v = carried[(k + kSkew * done) % kSkew][done];
        for (size_t s = done + 1; s < count; ++s) v = state[s].step(v);
        out[k] = v;
    }
    for (size_t s = 0; s < count; ++s) {
        BiQuad& q = *sections[s];
        q.x0 = q.x[0] = state[s].x1;
        q.x[1] = state[s].x2;
        q.y[0] = state[s].y1;
        q.y[1] = state[s].y2;
    }
}

}  // namespace vrn
