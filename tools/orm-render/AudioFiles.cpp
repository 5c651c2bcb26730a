#include "tools/orm-render/AudioFiles.h"

#include <cstdio>
#include <stdexcept>
#include <unistd.h>

namespace orm_render {

Audio readAudio(const std::string& path) {
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (!file) throw std::runtime_error("cannot read " + path + ": " + sf_strerror(nullptr));
    Audio audio;
    audio.rate = info.samplerate;
    audio.channels.assign(static_cast<size_t>(info.channels), std::vector<float>(static_cast<size_t>(info.frames)));
    std::vector<float> interleaved(static_cast<size_t>(info.frames) * static_cast<size_t>(info.channels));
    sf_count_t got = sf_readf_float(file, interleaved.data(), info.frames);
    sf_close(file);
    for (sf_count_t i = 0; i < got; ++i)
        for (int c = 0; c < info.channels; ++c)
            audio.channels[static_cast<size_t>(c)][static_cast<size_t>(i)] =
                interleaved[static_cast<size_t>(i) * static_cast<size_t>(info.channels) + static_cast<size_t>(c)];
    for (auto& channel : audio.channels) channel.resize(static_cast<size_t>(got));
    return audio;
}

WavOutput::WavOutput(const std::string& target, int channels, int rate)
    : path(target), temporary(target + ".part-" + std::to_string(getpid())) {
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = channels;
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    file = sf_open(temporary.c_str(), SFM_WRITE, &info);
    if (!file) throw std::runtime_error("cannot write " + path + ": " + sf_strerror(nullptr));
}

WavOutput::~WavOutput() {
    if (file) {
        sf_close(file);
        std::remove(temporary.c_str());
    }
}

void WavOutput::write(const std::vector<const float*>& channels, size_t frames) {
    interleaved.resize(frames * channels.size());
    for (size_t i = 0; i < frames; ++i)
        for (size_t c = 0; c < channels.size(); ++c)
            interleaved[i * channels.size() + c] = channels[c] ? channels[c][i] : 0.0f;
    if (sf_writef_float(file, interleaved.data(), static_cast<sf_count_t>(frames)) != static_cast<sf_count_t>(frames))
        throw std::runtime_error("cannot write " + path + ": " + sf_strerror(file));
}

void WavOutput::commit() {
    int status = sf_close(file);
    file = nullptr;
    if (status != 0 || std::rename(temporary.c_str(), path.c_str()) != 0) {
        std::remove(temporary.c_str());
        throw std::runtime_error("cannot write " + path);
    }
}

}  // namespace orm_render
