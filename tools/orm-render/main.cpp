// orm-render: runs the built-in amplifier or any system description over an audio file or a
// generated signal and writes a 32-bit float WAV file.

#include <time.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <memory>
#include <stdexcept>

#include "engine/Exceptions.h"
#include "tools/orm-render/AudioFiles.h"
#include "tools/orm-render/Check.h"
#include "tools/orm-render/Options.h"
#include "tools/orm-render/Signals.h"
#include "tools/orm-render/SystemRenderer.h"
#include "tools/orm-render/VstHost.h"

using namespace orm_render;

namespace {

std::unique_ptr<Renderer> makeRenderer(const Options& options) {
    if (!options.system.empty()) return std::make_unique<SystemRenderer>(options.system);
    return std::make_unique<VstHost>(options.plugin.empty() ? VstHost::defaultModulePath() : options.plugin);
}

// CPU time of the calling thread: the processing thread's own work, whatever else the machine does.
double threadSeconds() {
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

void render(const Options& options) {
    std::unique_ptr<Renderer> renderer = makeRenderer(options);

    Audio input;
    if (!options.input.empty()) {
        input = readAudio(options.input);
        if (options.rate > 0 && options.rate != input.rate)
            throw UsageError{"--rate differs from the rate of " + options.input + "; the file's rate is used"};
        if (options.seconds > 0)
            for (auto& channel : input.channels)
                channel.resize(std::min(channel.size(), static_cast<size_t>(options.seconds * input.rate)));
    } else {
        input.rate = options.rate > 0 ? options.rate : 48000;
        double seconds = options.seconds > 0 ? options.seconds : 4.0;
        input.channels.push_back(makeSignal(options.signal, input.rate, static_cast<size_t>(seconds * input.rate)));
    }
    if (input.channels.empty()) throw std::runtime_error(options.input + " has no channels");

    for (const auto& setting : options.settings) renderer->set(setting.first, setting.second);
    const size_t outputs = renderer->numberOfOutputs();
    if (outputs == 0) throw std::runtime_error("the system has no outputs");

    // Channel i feeds input i; a mono source feeds every input.
    const size_t frames = input.channels[0].size();
    std::vector<float*> inputs(std::max<size_t>(renderer->numberOfInputs(), 1));
    std::vector<std::vector<float>> silence;
    for (size_t i = 0; i < inputs.size(); ++i) {
        if (input.channels.size() == 1)
            inputs[i] = input.channels[0].data();
        else if (i < input.channels.size())
            inputs[i] = input.channels[i].data();
        else {
            silence.emplace_back(frames);
            inputs[i] = silence.back().data();
        }
    }
    const std::vector<float*> starts = inputs;

    WavOutput output(options.output, static_cast<int>(outputs), static_cast<int>(input.rate));
    renderer->start(input.rate, options.block);
    std::vector<const float*> results(outputs);
    double processing = 0;
    for (size_t done = 0; done < frames;) {
        size_t count = std::min(frames - done, static_cast<size_t>(options.block));
        for (size_t i = 0; i < inputs.size(); ++i) inputs[i] = starts[i] + done;
        const double before = threadSeconds();
        const std::vector<float*>& produced = renderer->process(inputs, count);
        processing += threadSeconds() - before;
        std::copy(produced.begin(), produced.end(), results.begin());
        output.write(results, count);
        done += count;
    }
    renderer->stop();
    output.commit();
    if (const unsigned long long failed = renderer->failedSamples())
        std::fprintf(stderr, "orm-render: %llu samples of a circuit failed to solve; each repeats the previous sample\n",
                     failed);
    if (options.bench) {
        const double audioSeconds = static_cast<double>(frames) / input.rate;
        std::printf("rate %.0f Hz, block %d: realtime factor %.1f, %.1f ns per sample (%.3f s CPU for %.3f s audio)\n",
                    input.rate, options.block, processing > 0 ? audioSeconds / processing : 0.0,
                    frames ? processing * 1e9 / static_cast<double>(frames) : 0.0, processing, audioSeconds);
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        Options options = parseOptions(argc, argv);
        if (!options.check.empty()) return checkDescription(options.check);
        render(options);
        return 0;
    } catch (const UsageError& error) {
        if (!error.message.empty()) std::fprintf(stderr, "orm-render: %s\n", error.message.c_str());
        std::fputs(usageText(), stderr);
        return error.message.empty() ? 0 : 2;
    } catch (const vrn::VRNException& error) {
        std::fprintf(stderr, "orm-render: %s\n", error.getMessage().c_str());
    } catch (const std::exception& error) {
        std::fprintf(stderr, "orm-render: %s\n", error.what());
    }
    return 1;
}
