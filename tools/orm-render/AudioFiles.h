#pragma once
// Reading any audio file libsndfile knows, and writing 32-bit float WAV safely: into a temporary
// file beside the target, renamed only when complete, so a failure leaves no half file.

#include <string>
#include <vector>

#include <sndfile.h>

namespace orm_render {

struct Audio {
    double rate = 0;
    std::vector<std::vector<float>> channels;
};

// Throws std::runtime_error with libsndfile's reason.
Audio readAudio(const std::string& path);

class WavOutput {
public:
    WavOutput(const std::string& path, int channels, int rate);
    ~WavOutput();  // removes the temporary file unless commit() ran
    WavOutput(const WavOutput&) = delete;
    WavOutput& operator=(const WavOutput&) = delete;

    // One pointer per channel, frames samples each.
    void write(const std::vector<const float*>& channels, size_t frames);
    void commit();

private:
    std::string path;
    std::string temporary;
    SNDFILE* file = nullptr;
    std::vector<float> interleaved;
};

}  // namespace orm_render
