#pragma once
// Audio in and out of orm-render, block by block, so that memory does not grow with the input:
// files libsndfile reads (or standard input), generated signals, conversion to another rate;
// files in the format their name asks for, written safely.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <sndfile.h>
#include <soxr.h>

#include "tools/orm-render/Signals.h"

namespace orm_render {

// Interleaved frames from somewhere.
class Source {
public:
    virtual ~Source() {}
    virtual int channels() const = 0;
    virtual double rate() const = 0;
    // The number of frames to come, or -1 when unknown (a pipe).
    virtual int64_t frames() const = 0;
    // Up to n frames into out (n · channels values); 0 at the end.
    virtual size_t read(float* out, size_t n) = 0;
};

// A file, or standard input for "-"; its first `seconds` when seconds > 0.  Throws
// std::runtime_error with libsndfile's reason.
std::unique_ptr<Source> openFile(const std::string& path, double seconds);
std::unique_ptr<Source> openSignal(const std::string& name, double rate, uint64_t frames);
// SOURCE converted to RATE with soxr (linear phase, pass band to 0.98 of Nyquist).
std::unique_ptr<Source> convertRate(std::unique_ptr<Source> source, double rate);

// Where and how the output goes: the format from the name's extension and --bits.
struct OutputFormat {
    int format = 0;        // libsndfile's major | subtype
    int bits = 32;         // 16 or 24: dithered integers; 32: float
    std::string name;      // "32-bit float WAV"
};
// Throws UsageError for an unknown extension or a depth the format cannot hold.
OutputFormat outputFormat(const std::string& path, const std::string& bits);

// The file is written beside its target (a link is followed, not replaced) and renamed over it
// when complete; a target that isn't a regular file (a device, a pipe, "-") is written directly.
// An interrupted render (SIGINT, SIGTERM, SIGHUP) removes its temporary file.
class AudioOutput {
public:
    AudioOutput(const std::string& path, const OutputFormat& format, int channels, int rate);
    ~AudioOutput();  // removes the temporary file unless commit() ran
    AudioOutput(const AudioOutput&) = delete;
    AudioOutput& operator=(const AudioOutput&) = delete;

    // One pointer per channel (null: silence), frames samples each.
    void write(const std::vector<const float*>& channels, size_t frames);
    void commit();

    // Resolves links: the file that will really be written; SPECIAL is set when the way leads
    // through /dev or /proc (/dev/stdout), where nothing may be replaced.
    static std::string target(const std::string& path, bool* special = nullptr);

private:
    void put(const void* data, size_t bytes);

    std::string path;
    std::string temporary;  // empty when written directly
    OutputFormat format;
    int channelCount;
    SNDFILE* file = nullptr;
    int stream = -1;  // a descriptor for WAV written by hand to a pipe or device
    std::vector<float> interleaved;
    std::vector<int> integers;
    std::vector<uint8_t> bytes;
    uint32_t dither = 0x6f726d31;  // fixed: equal renders give equal files
};

}  // namespace orm_render
