#include "engine/BufferedFilter.h"

#include <algorithm>

#include "engine/AlignedMemory.h"

namespace vrn {

BufferedFilter::~BufferedFilter() { freeSamples(buffer); }

void BufferedFilter::setMaxBlockSize(int size) {
    if (size < 1) throw VRNException(std::string(typeName) + ": Invalid maxBlockSize" + toString(size));
    if (size <= maxBlockSize) return;
    maxBlockSize = size;
    freeSamples(buffer);
    buffer = nullptr;
    buffer = allocateSamples(static_cast<size_t>(size));
    // Old contents are not kept; silence rather than stale memory for a feedback read before the first run.
    std::fill(buffer, buffer + size, 0.0f);
    if (outputs.empty()) outputs.resize(1);
    outputs[0] = buffer;
}

scalar* BufferedFilter::getOutput(int index) {
    if (index < 0 || static_cast<size_t>(index) >= outputs.size())
        throw InvalidArgumentException(std::string(typeName) + ": Invalid output index: " + toString(index));
    return outputs[index];
}

void BufferedFilter::endIteration(int frameIndex) { buffer[frameIndex] = iterationResults[0]; }

void BufferedFilter::refuse() { throw OperationNotSupportedException(""); }
scalar BufferedFilter::process(scalar) { refuse(); }
scalar* BufferedFilter::process(scalar*, size_t) { refuse(); }
void BufferedFilter::process(const scalar*, scalar*, size_t) { refuse(); }

void BufferedFilter::sizePorts(size_t ports) {
    outputs.assign(ports, nullptr);
    outputs[0] = buffer;
    iterationResults.assign(ports, 0.0f);
}

}  // namespace vrn
