#include "filters/PartitionedConvolution.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <stdexcept>

#include <fftw3.h>

#include "engine/AlignedMemory.h"
#include "engine/Exceptions.h"

namespace vrn {

namespace {

// Several plug-in instances may plan from different threads; FFTW's planner is not reentrant
// until told so.  Plans are estimated, never measured: a measured plan depends on timing, so the
// same render could differ in its last bits from run to run, and measuring stalls the thread
// that asks.
void preparePlanner() {
    static std::once_flag once;
    std::call_once(once, [] { fftwf_make_planner_thread_safe(); });
}

// A spectrum of a 2P transform: P + 1 complex bins, the stride rounded up to whole cache lines so
// that every slot of a delay line keeps the alignment the plans were made for.
size_t spectrumStride(size_t partition) {
    const size_t values = 2 * partition + 2;
    const size_t perLine = kSampleAlignment / sizeof(scalar);
    return (values + perLine - 1) / perLine * perLine;
}

// The two hot loops work element by element (no sums reordered, no fused multiply-add), so a
// wider vector form gives the same bits; where the loader can pick one at run time, it does.  Not
// under a sanitizer: the loader runs the picker before the sanitizer's runtime is up.
#if defined(__linux__) && defined(__x86_64__) && !defined(__clang__) && !defined(__SANITIZE_THREAD__) && \
    !defined(__SANITIZE_ADDRESS__)
#define ORM_WIDE_VECTORS __attribute__((target_clones("avx2", "default")))
#else
#define ORM_WIDE_VECTORS
#endif

// sum += a·b over bins complex values, interleaved; a plain loop the compiler vectorises.
ORM_WIDE_VECTORS void multiplyAccumulate(const scalar* __restrict a, const scalar* __restrict b, scalar* __restrict sum, size_t bins) {
    for (size_t k = 0; k < bins; ++k) {
        const scalar ar = a[2 * k], ai = a[2 * k + 1];
        const scalar br = b[2 * k], bi = b[2 * k + 1];
        sum[2 * k] += ar * br - ai * bi;
        sum[2 * k + 1] += ar * bi + ai * br;
    }
}

struct AlignedArray {
    explicit AlignedArray(size_t count) : data(allocateSamples(count)), size(count) { clear(); }
    ~AlignedArray() { freeSamples(data); }
    AlignedArray(const AlignedArray&) = delete;
    AlignedArray& operator=(const AlignedArray&) = delete;
    void clear() { std::fill(data, data + size, 0.0f); }
    scalar* data;
    size_t size;
};

}  // namespace

// Taps [P, P + K·P) in K partitions of P, by overlap-save with transforms of 2P.  When the P inputs
// of block j are complete, their transform joins the delay line and the partitions' products give
// the outputs of block j + 1: the tap offset P pays for the block's wait.
struct PartitionedConvolution::Level {
    Level(const scalar* taps, size_t available, size_t partitionLength, size_t partitionCount)
        : partition(partitionLength),
          count(partitionCount),
          stride(spectrumStride(partitionLength)),
          input(2 * partitionLength),
          result(2 * partitionLength),
          sum(stride),
          partitions(stride * partitionCount),
          delayLine(stride * partitionCount),
          pending(partitionLength) {
        preparePlanner();
        const int n = static_cast<int>(2 * partition);
        forward = fftwf_plan_dft_r2c_1d(n, input.data, reinterpret_cast<fftwf_complex*>(delayLine.data),
                                        FFTW_ESTIMATE | FFTW_PRESERVE_INPUT);
        backward = fftwf_plan_dft_c2r_1d(n, reinterpret_cast<fftwf_complex*>(sum.data), result.data,
                                         FFTW_ESTIMATE | FFTW_DESTROY_INPUT);
        if (!forward || !backward) {
            release();
            throw VRNException("Convolver: Cannot plan a transform of size " + toString(n));
        }
        // Each partition zero-padded to 2P, with the transforms' gain of 2P divided out here.
        const scalar norm = 1.0f / static_cast<scalar>(n);
        for (size_t k = 0; k < count; ++k) {
            input.clear();
            const size_t first = k * partition;
            const size_t length = first < available ? std::min(partition, available - first) : 0;
            for (size_t i = 0; i < length; ++i) input.data[i] = taps[first + i] * norm;
            fftwf_execute_dft_r2c(forward, input.data, reinterpret_cast<fftwf_complex*>(partitions.data + k * stride));
        }
        clear();
    }
    ~Level() { release(); }

    void release() {
        if (forward) fftwf_destroy_plan(forward);
        if (backward) fftwf_destroy_plan(backward);
        forward = backward = nullptr;
    }

    void clear() {
        input.clear();
        delayLine.clear();
        pending.clear();
        fill = 0;
        newest = 0;
    }

    // Adds this level's share to out and takes the chunk's inputs; a full block runs a frame.
    void step(const scalar* in, scalar* out, size_t frames) {
        const scalar* share = pending.data + fill;
        for (size_t i = 0; i < frames; ++i) out[i] += share[i];
        std::memcpy(input.data + partition + fill, in, frames * sizeof(scalar));
        fill += frames;
        if (fill == partition) frame();
    }

    void frame() {
        newest = newest == 0 ? count - 1 : newest - 1;
        fftwf_execute_dft_r2c(forward, input.data, reinterpret_cast<fftwf_complex*>(delayLine.data + newest * stride));
        sum.clear();
        // Partition k meets the spectrum of k blocks ago.
        const size_t bins = partition + 1;
        for (size_t k = 0; k < count; ++k) {
            const size_t age = (newest + k) % count;
            multiplyAccumulate(delayLine.data + age * stride, partitions.data + k * stride, sum.data, bins);
        }
        fftwf_execute_dft_c2r(backward, reinterpret_cast<fftwf_complex*>(sum.data), result.data);
        // The last P values are clean; the first P hold the circular wrap.
        std::memcpy(pending.data, result.data + partition, partition * sizeof(scalar));
        std::memcpy(input.data, input.data + partition, partition * sizeof(scalar));
        fill = 0;
    }

    const size_t partition;
    const size_t count;
    const size_t stride;
    AlignedArray input;     // the previous block, then the current one
    AlignedArray result;    // the inverse transform
    AlignedArray sum;       // the products' sum
    AlignedArray partitions;
    AlignedArray delayLine;  // spectra of the last count blocks
    AlignedArray pending;    // this block's outputs, made when the last one ended
    size_t fill = 0;
    size_t newest = 0;
    fftwf_plan forward = nullptr;
    fftwf_plan backward = nullptr;
};

PartitionedConvolution::PartitionedConvolution(const scalar* response, size_t length)
    : headLine(2 * kHeadLength, 0.0f) {
    headTaps = std::min(length, kHeadLength);
    head.assign(response, response + headTaps);
    // Level i covers taps [P, kGrowth·P) with P = kHeadLength·kGrowth^i; the last reaches the end.
    for (size_t partition = kHeadLength; partition < length; partition *= kGrowth) {
        const size_t end = std::min(length, kGrowth * partition);
        const bool last = end == length;
        const size_t taps = last ? length - partition : end - partition;
        const size_t count = (taps + partition - 1) / partition;
        levels.emplace_back(new Level(response + partition, taps, partition, count));
        if (last) break;
    }
}

PartitionedConvolution::~PartitionedConvolution() = default;

void PartitionedConvolution::clear() {
    std::fill(headLine.begin(), headLine.end(), 0.0f);
    for (auto& level : levels) level->clear();
}

size_t PartitionedConvolution::largestTransform() const { return levels.empty() ? 0 : 2 * levels.back()->partition; }

namespace {

// out[i] = Σ taps[t]·newest[i - t]: one tap at a time over the chunk, element-wise.
ORM_WIDE_VECTORS void directConvolution(const scalar* __restrict taps, size_t count, const scalar* newest,
                                        scalar* __restrict out, size_t frames) {
    std::fill(out, out + frames, 0.0f);
    for (size_t t = 0; t < count; ++t) {
        const scalar tap = taps[t];
        const scalar* x = newest - t;
        for (size_t i = 0; i < frames; ++i) out[i] += tap * x[i];
    }
}

}  // namespace

void PartitionedConvolution::runHead(const scalar* line, scalar* out, size_t frames) {
    directConvolution(head.data(), headTaps, line + kHeadLength - 1, out, frames);
}

void PartitionedConvolution::process(const scalar* in, scalar* out, size_t frames) {
    // headLine: the last kHeadLength - 1 inputs, then the chunk.  The chunk is taken in before
    // anything is written, so in and out may be the same array.
    scalar* line = headLine.data();
    const size_t past = kHeadLength - 1;
    size_t done = 0;
    while (done < frames) {
        // Chunks end where the smallest level's blocks end, so each level sees whole steps.
        const size_t chunk = std::min(frames - done, kHeadLength - (levels.empty() ? 0 : levels.front()->fill));
        if (in)
            std::memmove(line + past, in + done, chunk * sizeof(scalar));
        else
            std::fill(line + past, line + past + chunk, 0.0f);
        scalar* chunkOut = out + done;
        runHead(line, chunkOut, chunk);
        for (auto& level : levels) level->step(line + past, chunkOut, chunk);
        std::memmove(line, line + chunk, past * sizeof(scalar));
        done += chunk;
    }
}

}  // namespace vrn
