// orm-render: runs the built-in amplifier, any VST2 module or any system description over audio
// files or generated signals, block by block, and writes the result in the format its name asks.

#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <memory>
#include <stdexcept>

#include "engine/Exceptions.h"
#include "tools/orm-render/AudioFiles.h"
#include "tools/orm-render/Check.h"
#include "tools/orm-render/Options.h"
#include "tools/orm-render/Parameters.h"
#include "tools/orm-render/SystemRenderer.h"
#include "tools/orm-render/VstHost.h"

using namespace orm_render;

namespace {

// After the input, the render goes on until the output stays below this level for kQuietHold.
const double kTailLevel = 3.1622776601683795e-05;  // -90 dBFS
const double kQuietHold = 0.1;                      // seconds

std::unique_ptr<Renderer> makeRenderer(const Options& options) {
    if (!options.system.empty()) return std::make_unique<SystemRenderer>(options.system);
    return std::make_unique<VstHost>(options.plugin.empty() ? VstHost::defaultModulePath() : options.plugin);
}

double seconds(clockid_t clock) {
    timespec now;
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

std::string clockText(double value) {
    char text[32];
    const long whole = static_cast<long>(value);
    std::snprintf(text, sizeof(text), "%ld:%02ld", whole / 60, whole % 60);
    return text;
}

// A bar on standard error while a render takes long, when standard error is a terminal.
class Progress {
public:
    explicit Progress(bool wanted) : enabled(wanted && isatty(STDERR_FILENO)), start(seconds(CLOCK_MONOTONIC)) {}
    void update(double done, double total, bool tail) {
        if (!enabled) return;
        const double now = seconds(CLOCK_MONOTONIC);
        if (now - start < 1.0 || now - last < 0.1) return;  // short renders show nothing
        last = now;
        shown = true;
        if (total > 0) {
            const int width = 30, filled = static_cast<int>(width * std::min(1.0, done / total));
            std::fprintf(stderr, "\r[%s%s] %3d%%  %s of %s%s", std::string(static_cast<size_t>(filled), '#').c_str(),
                         std::string(static_cast<size_t>(width - filled), '.').c_str(),
                         static_cast<int>(100 * std::min(1.0, done / total)), clockText(done).c_str(),
                         clockText(total).c_str(), tail ? ", tail" : "");
        } else {
            std::fprintf(stderr, "\r%s rendered%s", clockText(done).c_str(), tail ? ", tail" : "");
        }
        std::fflush(stderr);
    }
    void finish() {
        if (shown) std::fputs("\r\033[K", stderr);
        shown = false;
    }
    ~Progress() { finish(); }

private:
    bool enabled;
    bool shown = false;
    double start, last = 0;
};

struct Statistics {
    uint64_t frames = 0;
    float peak = 0;
    uint64_t over = 0;
    void add(const std::vector<const float*>& channels, size_t count) {
        for (const float* channel : channels)
            for (size_t i = 0; i < count; ++i) {
                const float magnitude = std::fabs(channel[i]);
                peak = std::max(peak, magnitude);
                if (magnitude > 1.0f) ++over;
            }
        frames += count;
    }
};

void list(const Options& options) {
    std::unique_ptr<Renderer> renderer = makeRenderer(options);
    std::fputs(listText(renderer->parameters()).c_str(), stdout);
}

void render(const Options& options, const std::string& input, const std::string& output) {
    std::unique_ptr<Renderer> renderer = makeRenderer(options);
    const std::vector<Parameter> parameters = renderer->parameters();
    for (const auto& setting : options.settings) {
        const auto resolved = resolveSetting(parameters, setting.first, setting.second);
        renderer->set(resolved.first, resolved.second);
    }
    const size_t outputs = renderer->numberOfOutputs();
    if (outputs == 0) throw std::runtime_error("the system has no outputs");
    const OutputFormat format = outputFormat(output, options.bits);

    std::unique_ptr<Source> source;
    if (!input.empty()) {
        source = openFile(input, options.seconds);
        if (options.rate > 0 && options.rate != source->rate()) source = convertRate(std::move(source), options.rate);
    } else {
        const double rate = options.rate > 0 ? options.rate : 48000;
        const double length = options.seconds > 0 ? options.seconds : 4.0;
        source = openSignal(options.signal, rate, static_cast<uint64_t>(length * rate));
    }
    const double rate = source->rate();
    const size_t width = static_cast<size_t>(source->channels());
    const size_t block = static_cast<size_t>(options.block);

    // Channel i feeds input i; a mono source feeds every input; missing channels are silence.
    std::vector<float> interleaved(block * width);
    std::vector<std::vector<float>> planes(std::max(width, static_cast<size_t>(1)), std::vector<float>(block, 0.0f));
    std::vector<float> silence(block, 0.0f);
    std::vector<float*> inputs(std::max<size_t>(renderer->numberOfInputs(), 1));
    for (size_t i = 0; i < inputs.size(); ++i)
        inputs[i] = width == 1 ? planes[0].data() : i < width ? planes[i].data() : silence.data();
    const std::vector<float*> starts = inputs;

    AudioOutput file(output, format, static_cast<int>(outputs), static_cast<int>(std::lround(rate)));
    renderer->start(rate, options.block);
    std::vector<const float*> results(outputs);
    Statistics statistics;
    Progress progress(!options.quiet);
    const double total = source->frames() >= 0 ? static_cast<double>(source->frames()) / rate : -1;
    double processing = 0;
    uint64_t processed = 0;
    auto run = [&](size_t count) -> const std::vector<float*>& {
        inputs = starts;
        const double before = seconds(CLOCK_THREAD_CPUTIME_ID);
        const std::vector<float*>& produced = renderer->process(inputs, count);
        processing += seconds(CLOCK_THREAD_CPUTIME_ID) - before;
        processed += count;
        return produced;
    };

    // The input, block by block.
    for (;;) {
        size_t count = 0;
        while (count < block) {
            const size_t got = source->read(interleaved.data() + count * width, block - count);
            if (got == 0) break;
            count += got;
        }
        if (count == 0) break;
        for (size_t i = 0; i < count; ++i)
            for (size_t c = 0; c < width; ++c) planes[c][i] = interleaved[i * width + c];
        const std::vector<float*>& produced = run(count);
        std::copy(produced.begin(), produced.end(), results.begin());
        file.write(results, count);
        statistics.add(results, count);
        progress.update(static_cast<double>(statistics.frames) / rate, total, false);
        if (count < block) break;
    }

    // The tail: silence in until the output has decayed, held back until its end is known.
    const uint64_t longest = static_cast<uint64_t>(options.tail * rate);
    const uint64_t hold = static_cast<uint64_t>(kQuietHold * rate);
    if (longest > 0) {
        for (auto& plane : planes) std::fill(plane.begin(), plane.end(), 0.0f);
        std::vector<std::vector<float>> tail(outputs);
        uint64_t length = 0, audible = 0;  // audible: frames up to the last one above the level
        while (length < longest && length - audible < hold) {
            const size_t count = static_cast<size_t>(std::min<uint64_t>(block, longest - length));
            const std::vector<float*>& produced = run(count);
            for (size_t c = 0; c < outputs; ++c) {
                tail[c].insert(tail[c].end(), produced[c], produced[c] + count);
                for (size_t i = 0; i < count; ++i)
                    if (std::fabs(produced[c][i]) > kTailLevel) audible = std::max<uint64_t>(audible, length + i + 1);
            }
            length += count;
            progress.update(static_cast<double>(statistics.frames + length) / rate, total, true);
        }
        for (size_t c = 0; c < outputs; ++c) results[c] = tail[c].data();
        file.write(results, static_cast<size_t>(audible));
        statistics.add(results, static_cast<size_t>(audible));
    }
    renderer->stop();
    progress.finish();
    file.commit();
    if (const unsigned long long failed = renderer->failedSamples())
        std::fprintf(stderr, "orm-render: %llu samples of a circuit failed to solve; each repeats the previous sample\n",
                     failed);

    if (!options.quiet) {
        const double peakDb = statistics.peak > 0 ? 20 * std::log10(statistics.peak) : -INFINITY;
        char peak[32];
        if (statistics.peak > 0)
            std::snprintf(peak, sizeof(peak), "%+.1f dBFS", peakDb);
        else
            std::snprintf(peak, sizeof(peak), "-inf dBFS (silence)");
        std::fprintf(stderr, "orm-render: wrote %s: %.2f s, %.0f Hz, %zu channel%s, %s, peak %s", output == "-" ? "standard output" : output.c_str(),
                     static_cast<double>(statistics.frames) / rate, rate, outputs, outputs == 1 ? "" : "s", format.name.c_str(), peak);
        if (statistics.over > 0)
            std::fprintf(stderr, ", WARNING: %llu samples over full scale (%s; lower the output level)\n",
                         static_cast<unsigned long long>(statistics.over),
                         format.bits == 32 ? "kept in the file, they clip when played or converted" : "clipped in the file");
        else
            std::fputs(", no sample over full scale\n", stderr);
    }
    if (options.bench) {
        const double audioSeconds = static_cast<double>(processed) / rate;
        std::fprintf(output == "-" ? stderr : stdout,
                     "rate %.0f Hz, block %d: realtime factor %.1f, %.1f ns per sample (%.3f s CPU for %.3f s audio)\n",
                     rate, options.block, processing > 0 ? audioSeconds / processing : 0.0,
                     processed ? processing * 1e9 / static_cast<double>(processed) : 0.0, processing, audioSeconds);
    }
}

// DIR/NAME for an input NAME; an output that is its own input is refused.
std::string outputFor(const Options& options, const std::string& input) {
    if (options.outputDirectory.empty()) return options.output;
    const size_t slash = input.find_last_of('/');
    std::string directory = options.outputDirectory;
    if (directory.back() != '/') directory += '/';
    return directory + (slash == std::string::npos ? input : input.substr(slash + 1));
}

void checkNotInput(const std::string& input, const std::string& output) {
    struct stat in, out;
    if (input.empty() || input == "-" || output == "-") return;
    if (stat(input.c_str(), &in) == 0 && stat(output.c_str(), &out) == 0 && in.st_dev == out.st_dev && in.st_ino == out.st_ino)
        throw std::runtime_error(output + " is the input itself; it is left as it is");
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    try {
        options = parseOptions(argc, argv);
        if (!options.check.empty()) return checkDescription(options.check);
    } catch (const UsageError& error) {
        std::fprintf(stderr, "orm-render: %s\n(orm-render --help describes the options)\n", error.message.c_str());
        return 2;
    }
    if (options.help) {
        std::fputs(usageText(), stdout);
        return 0;
    }
    if (options.version) {
        std::fputs(versionText(), stdout);
        return 0;
    }
    std::vector<std::string> inputs = options.inputs;
    if (inputs.empty()) inputs.push_back("");  // a signal
    int status = 0;
    for (const std::string& input : inputs) {
        try {
            if (options.list) {
                list(options);
                return 0;
            }
            const std::string output = outputFor(options, input);
            checkNotInput(input, output);
            render(options, input, output);
        } catch (const UsageError& error) {
            std::fprintf(stderr, "orm-render: %s\n(orm-render --help describes the options)\n", error.message.c_str());
            return 2;
        } catch (const vrn::VRNException& error) {
            std::fprintf(stderr, "orm-render: %s\n", error.getMessage().c_str());
            status = 1;
        } catch (const std::exception& error) {
            std::fprintf(stderr, "orm-render: %s\n", error.what());
            status = 1;
        }
    }
    return status;
}
