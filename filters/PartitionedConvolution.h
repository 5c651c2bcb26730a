#pragma once
// Convolution with a long response at no added latency and a cost per sample that hardly depends
// on the block length: the first taps are convolved directly, the rest by uniformly partitioned
// overlap-save levels whose partitions grow sixteen-fold from one level to the next.  A level of
// partition P starts at tap P, so the block of P inputs it transforms is complete before any of
// its outputs are due.

#include <cstddef>
#include <memory>
#include <vector>

#include "engine/Types.h"

namespace vrn {

class PartitionedConvolution {
public:
    // Taps convolved directly; also the first level's partition.
    static constexpr size_t kHeadLength = 64;
    // Each level's partitions are this many times those of the level before.
    static constexpr size_t kGrowth = 16;

    // Load time: copies the response and makes the transforms.
    PartitionedConvolution(const scalar* response, size_t length);
    ~PartitionedConvolution();
    PartitionedConvolution(const PartitionedConvolution&) = delete;
    PartitionedConvolution& operator=(const PartitionedConvolution&) = delete;

    // Audio thread, no allocation: out[i] = Σ h[k]·x[i - k] over this block and the past.
    // A null in is silence; in and out may be the same array.
    void process(const scalar* in, scalar* out, size_t frames);
    // Forgets the past input.
    void clear();

    // The longest transform in use (0 for a response the head covers alone).
    size_t largestTransform() const;

private:
    struct Level;
    void runHead(const scalar* line, scalar* out, size_t frames);

    std::vector<scalar> head;  // the first taps, reversed
    size_t headTaps = 0;
    // The head's last kHeadLength - 1 inputs, then room for one chunk.
    std::vector<scalar> headLine;
    std::vector<std::unique_ptr<Level>> levels;
};

}  // namespace vrn
