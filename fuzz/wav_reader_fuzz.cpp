// The engine's WAV reader on bytes from the fuzzer, used as the convolver uses it: open, a
// buffer of the announced size, read.  A file that is refused must be refused with a
// VRNException; anything else that escapes is a finding.

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "engine/Exceptions.h"
#include "filters/AudioFileRead.h"

namespace {

// The reader takes a path: the bytes go into a file in memory.
int memoryFile() {
    static int fd = memfd_create("orm-fuzz-wav", 0);
    return fd;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const int fd = memoryFile();
    if (fd < 0 || ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != static_cast<ssize_t>(size)) return 0;
    try {
        stk::AudioFileRead reader("/proc/self/fd/" + std::to_string(fd));
        reader.openFile();
        stk::StkFrames frames(reader.getBufferFrames(), reader.getChannels());
        reader.read(frames);
        volatile float sum = 0.0f;
        for (size_t i = 0; i < frames.size(); ++i) sum = sum + frames[i];
    } catch (const vrn::VRNException&) {
    }
    return 0;
}
