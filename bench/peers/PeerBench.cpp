// orm-peer-bench: the amplifier's speed and aliasing beside other open amplifiers, timed the same
// way (CPU time of the processing calls only, one thread).  orm runs through its VST2 interface
// with orm-render's host code; the peers are LV2 plug-ins, run as binaries through lilv.
//
//   orm-peer-bench [--seconds S] [--module PATH]
//
// Prints three tables: orm's realtime factors across block sizes, settings and rates; the peers'
// beside orm's at the same blocks, with the ratios; the largest non-harmonic component of a
// 3100 Hz sine at half scale under heavy drive, in dB below the fundamental.

#include <dlfcn.h>
#include <time.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <fftw3.h>
#include <lilv/lilv.h>
#include <lv2/atom/atom.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/options/options.h>
#include <lv2/urid/urid.h>
#include <lv2/worker/worker.h>

#include "tools/orm-render/Signals.h"
#include "tools/orm-render/VstHost.h"

namespace {

double threadSeconds() {
    timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

// Something that turns blocks of a mono input into blocks of output, channel 0 kept.
struct Processor {
    virtual ~Processor() = default;
    // Runs frames samples; returns the first output channel.
    virtual const float* run(const float* in, size_t frames) = 0;
};

struct Timing {
    double realtimeFactor = 0;
    double nsPerSample = 0;
};

// Plays the input through in blocks; CPU time counts the processing calls alone.
Timing timeBlocks(Processor& p, const std::vector<float>& input, size_t block, double rate,
                  std::vector<float>* output = nullptr) {
    double cpu = 0;
    for (size_t pos = 0; pos < input.size(); pos += block) {
        const size_t n = std::min(block, input.size() - pos);
        const double start = threadSeconds();
        const float* out = p.run(input.data() + pos, n);
        cpu += threadSeconds() - start;
        if (output) output->insert(output->end(), out, out + n);
    }
    Timing t;
    t.realtimeFactor = static_cast<double>(input.size()) / rate / cpu;
    t.nsPerSample = 1e9 * cpu / static_cast<double>(input.size());
    return t;
}

// orm through its VST2 interface, both inputs fed the same signal.
struct OrmProcessor : Processor {
    OrmProcessor(const std::string& module, double rate, size_t block, const std::map<std::string, double>& settings)
        : host(module) {
        for (const auto& [name, value] : settings) host.set(name, value);
        host.start(rate, static_cast<int>(block));
        inputs.assign(host.numberOfInputs(), nullptr);
    }
    ~OrmProcessor() override { host.stop(); }
    const float* run(const float* in, size_t frames) override {
        for (auto& pointer : inputs) pointer = const_cast<float*>(in);
        return host.process(inputs, frames)[0];
    }
    orm_render::VstHost host;
    std::vector<float*> inputs;
};

// The LV2 features a demanding plug-in asks for: URIDs, a worker run at once (an offline host may),
// options with bounded block lengths.
struct Lv2Host {
    static LV2_URID map(LV2_URID_Map_Handle handle, const char* uri) {
        auto* uris = static_cast<std::vector<std::string>*>(handle);
        for (size_t i = 0; i < uris->size(); ++i)
            if ((*uris)[i] == uri) return static_cast<LV2_URID>(i + 1);
        uris->push_back(uri);
        return static_cast<LV2_URID>(uris->size());
    }
    std::vector<std::string> uris;
    LV2_URID_Map urid{&uris, &Lv2Host::map};
    LV2_Feature uridFeature{LV2_URID__map, &urid};
    LV2_Feature bounded{LV2_BUF_SIZE__boundedBlockLength, nullptr};
};

struct Lv2Processor : Processor {
    Lv2Processor(LilvWorld* world, const LilvPlugin* plugin, double rate, size_t block,
                 const std::map<std::string, double>& settings)
        : maxBlock(static_cast<int32_t>(block)) {
        host.reset(new Lv2Host);
        const LV2_URID intType = host->urid.map(host->urid.handle, LV2_ATOM__Int);
        options[0] = {LV2_OPTIONS_INSTANCE, 0, host->urid.map(host->urid.handle, LV2_BUF_SIZE__minBlockLength),
                      sizeof(int32_t), intType, &minBlock};
        options[1] = {LV2_OPTIONS_INSTANCE, 0, host->urid.map(host->urid.handle, LV2_BUF_SIZE__maxBlockLength),
                      sizeof(int32_t), intType, &maxBlock};
        options[2] = {LV2_OPTIONS_INSTANCE, 0, 0, 0, 0, nullptr};
        optionsFeature = {LV2_OPTIONS__options, options};
        schedule = {this, &Lv2Processor::scheduleWork};
        scheduleFeature = {LV2_WORKER__schedule, &schedule};
        const LV2_Feature* features[] = {&host->uridFeature, &host->bounded, &optionsFeature, &scheduleFeature, nullptr};
        instance = lilv_plugin_instantiate(plugin, rate, features);
        if (!instance) throw std::runtime_error("cannot instantiate " + std::string(lilv_node_as_uri(lilv_plugin_get_uri(plugin))));
        worker = static_cast<const LV2_Worker_Interface*>(lilv_instance_get_extension_data(instance, LV2_WORKER__interface));

        const uint32_t ports = lilv_plugin_get_num_ports(plugin);
        std::vector<float> minimum(ports), maximum(ports), defaults(ports);
        lilv_plugin_get_port_ranges_float(plugin, minimum.data(), maximum.data(), defaults.data());
        controls.assign(ports, 0.0f);
        LilvNode* audio = lilv_new_uri(world, LV2_CORE__AudioPort);
        LilvNode* control = lilv_new_uri(world, LV2_CORE__ControlPort);
        LilvNode* input = lilv_new_uri(world, LV2_CORE__InputPort);
        LilvNode* atom = lilv_new_uri(world, LV2_ATOM__AtomPort);
        emptySequence.atom.size = sizeof(LV2_Atom_Sequence_Body);
        emptySequence.atom.type = host->urid.map(host->urid.handle, LV2_ATOM__Sequence);
        outputs.assign(ports, std::vector<float>(block, 0.0f));
        for (uint32_t i = 0; i < ports; ++i) {
            const LilvPort* port = lilv_plugin_get_port_by_index(plugin, i);
            const bool isInput = lilv_port_is_a(plugin, port, input);
            if (lilv_port_is_a(plugin, port, control)) {
                const std::string symbol = lilv_node_as_string(lilv_port_get_symbol(plugin, port));
                auto found = settings.find(symbol);
                controls[i] = found != settings.end() ? static_cast<float>(found->second)
                                                       : (std::isnan(defaults[i]) ? 0.0f : defaults[i]);
                lilv_instance_connect_port(instance, i, &controls[i]);
            } else if (lilv_port_is_a(plugin, port, audio)) {
                if (isInput)
                    audioInputs.push_back(i);
                else {
                    if (firstOutput < 0) firstOutput = static_cast<int>(i);
                    lilv_instance_connect_port(instance, i, outputs[i].data());
                }
            } else if (lilv_port_is_a(plugin, port, atom)) {
                lilv_instance_connect_port(instance, i, &emptySequence);
            } else {
                lilv_instance_connect_port(instance, i, nullptr);
            }
        }
        lilv_node_free(audio);
        lilv_node_free(control);
        lilv_node_free(input);
        lilv_node_free(atom);
        if (firstOutput < 0 || audioInputs.empty()) throw std::runtime_error("no audio ports");
        lilv_instance_activate(instance);
    }
    ~Lv2Processor() override {
        lilv_instance_deactivate(instance);
        lilv_instance_free(instance);
    }
    static LV2_Worker_Status respond(LV2_Worker_Respond_Handle handle, uint32_t size, const void* data) {
        auto* self = static_cast<Lv2Processor*>(handle);
        const auto* bytes = static_cast<const uint8_t*>(data);
        self->responses.emplace_back(bytes, bytes + size);
        return LV2_WORKER_SUCCESS;
    }
    static LV2_Worker_Status scheduleWork(LV2_Worker_Schedule_Handle handle, uint32_t size, const void* data) {
        auto* self = static_cast<Lv2Processor*>(handle);
        if (!self->worker) return LV2_WORKER_ERR_UNKNOWN;
        return self->worker->work(lilv_instance_get_handle(self->instance), &Lv2Processor::respond, self, size, data);
    }
    const float* run(const float* in, size_t frames) override {
        for (uint32_t port : audioInputs) lilv_instance_connect_port(instance, port, const_cast<float*>(in));
        lilv_instance_run(instance, static_cast<uint32_t>(frames));
        if (worker) {
            for (auto& r : responses)
                worker->work_response(lilv_instance_get_handle(instance), static_cast<uint32_t>(r.size()), r.data());
            responses.clear();
            if (worker->end_run) worker->end_run(lilv_instance_get_handle(instance));
        }
        return outputs[static_cast<size_t>(firstOutput)].data();
    }

    std::unique_ptr<Lv2Host> host;
    int32_t minBlock = 1;
    int32_t maxBlock;
    LV2_Options_Option options[3];
    LV2_Feature optionsFeature;
    LV2_Worker_Schedule schedule;
    LV2_Feature scheduleFeature;
    LilvInstance* instance = nullptr;
    const LV2_Worker_Interface* worker = nullptr;
    std::vector<float> controls;
    std::vector<std::vector<float>> outputs;
    std::vector<uint32_t> audioInputs;
    int firstOutput = -1;
    LV2_Atom_Sequence emptySequence{};
    std::vector<std::vector<uint8_t>> responses;
};

// The largest component off the harmonic series of f, in dB below the fundamental: one second of
// steady output, a Blackman-Harris window (side lobes below -92 dB), harmonics and DC masked.
struct Alias {
    double db, hz;
};

Alias aliasing(const std::vector<float>& signal, double rate, double f) {
    const size_t n = static_cast<size_t>(rate);
    const float* x = signal.data() + (signal.size() - n);
    std::vector<double> in(n);
    for (size_t i = 0; i < n; ++i) {
        const double w = 2 * M_PI * static_cast<double>(i) / static_cast<double>(n);
        const double window = 0.35875 - 0.48829 * std::cos(w) + 0.14128 * std::cos(2 * w) - 0.01168 * std::cos(3 * w);
        in[i] = x[i] * window;
    }
    std::vector<std::complex<double>> spectrum(n / 2 + 1);
    fftw_plan plan = fftw_plan_dft_r2c_1d(static_cast<int>(n), in.data(),
                                          reinterpret_cast<fftw_complex*>(spectrum.data()), FFTW_ESTIMATE);
    fftw_execute(plan);
    fftw_destroy_plan(plan);
    const double binHz = rate / static_cast<double>(n);
    const int guard = 6;
    std::vector<bool> masked(spectrum.size(), false);
    for (double h = 0; h < rate / 2; h += f) {
        const long centre = std::lround(h / binHz);
        for (long k = centre - guard; k <= centre + guard; ++k)
            if (k >= 0 && k < static_cast<long>(masked.size())) masked[static_cast<size_t>(k)] = true;
    }
    // Below 20 Hz is left out: the amplifiers' own DC settling is not aliasing.
    for (size_t k = 0; k < masked.size() && static_cast<double>(k) * binHz < 20; ++k) masked[k] = true;
    const double fundamental = std::abs(spectrum[static_cast<size_t>(std::lround(f / binHz))]);
    double worst = 0;
    size_t where = 0;
    for (size_t k = 0; k < spectrum.size(); ++k)
        if (!masked[k] && std::abs(spectrum[k]) > worst) {
            worst = std::abs(spectrum[k]);
            where = k;
        }
    return {20 * std::log10(worst / fundamental), static_cast<double>(where) * binHz};
}

}  // namespace

int main(int argc, char** argv) {
    double seconds = 120;
    std::string module = orm_render::VstHost::defaultModulePath();
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--seconds") == 0) seconds = std::atof(argv[i + 1]);
        else if (std::strcmp(argv[i], "--module") == 0) module = argv[i + 1];
    }
    try {
        std::map<double, std::vector<float>> riffs;
        auto riff = [&](double rate) -> const std::vector<float>& {
            auto& r = riffs[rate];
            if (r.empty()) r = orm_render::makeSignal("riff", rate, static_cast<size_t>(seconds * rate));
            return r;
        };
        auto orm = [&](double rate, size_t block, const std::map<std::string, double>& settings,
                       const std::vector<float>* input = nullptr) {
            OrmProcessor p(module, rate, block, settings);
            return timeBlocks(p, input ? *input : riff(rate), block, rate);
        };
        auto row = [](const std::string& what, const Timing& t) {
            std::printf("%-44s %9.1fx %9.1f ns\n", what.c_str(), t.realtimeFactor, t.nsPerSample);
        };

        std::printf("orm, %.0f s of the riff, CPU time of the processing calls (realtime factor, ns a sample)\n", seconds);
        std::map<size_t, Timing> ours;
        for (size_t block : {32u, 64u, 256u, 1024u}) {
            ours[block] = orm(48000, block, {});
            row("defaults (4x), 48 kHz, block " + std::to_string(block), ours[block]);
        }
        const std::pair<const char*, std::map<std::string, double>> settings[] = {
            {"8x oversampling", {{"Oversamp", 1.0}}},
            {"high CPU", {{"CPU", 1.0}}},
            {"stereo", {{"Stereo", 1.0}}},
            {"8x + high CPU + stereo", {{"Oversamp", 1.0}, {"CPU", 1.0}, {"Stereo", 1.0}}},
            {"2x oversampling", {{"Oversamp", 0.0}}}};
        for (const auto& [name, values] : settings) row(std::string(name) + ", 48 kHz, block 256", orm(48000, 256, values));
        for (double rate : {44100.0, 96000.0}) row("defaults, " + std::to_string(int(rate)) + " Hz, block 256", orm(rate, 256, {}));
        const std::vector<float> silence(static_cast<size_t>(seconds * 48000), 0.0f);
        row("defaults, silence, block 256", orm(48000, 256, {}, &silence));

        // The peers, by URI, with the settings of the aliasing measure.
        LilvWorld* world = lilv_world_new();
        lilv_world_load_all(world);
        const LilvPlugins* plugins = lilv_world_get_all_plugins(world);
        struct Peer {
            const char* name;
            const char* uri;
            std::map<std::string, double> heavy;
        };
        const Peer peers[] = {{"gx_amp", "http://guitarix.sourceforge.net/plugins/gx_amp#GUITARIX",
                               {{"PreGain", 20}, {"Drive", 1}, {"Distortion", 100}}},
                              {"ZamTube", "urn:zamaudio:ZamTube", {}}};
        std::printf("\npeers through lilv, 48 kHz, the same riff and timing (ratio: orm's factor / the peer's)\n");
        const LilvPlugin* gx = nullptr;
        for (const auto& peer : peers) {
            LilvNode* uri = lilv_new_uri(world, peer.uri);
            const LilvPlugin* plugin = lilv_plugins_get_by_uri(plugins, uri);
            lilv_node_free(uri);
            if (!plugin) {
                std::printf("%-10s not installed (apt-get install guitarix-lv2 zam-plugins)\n", peer.name);
                continue;
            }
            if (std::strcmp(peer.name, "gx_amp") == 0) gx = plugin;
            for (size_t block : {64u, 256u}) {
                Lv2Processor p(world, plugin, 48000, block, {});
                const Timing t = timeBlocks(p, riff(48000), block, 48000);
                std::printf("%-10s block %4zu %9.1fx %9.1f ns   orm/peer %.2f\n", peer.name, block, t.realtimeFactor,
                            t.nsPerSample, ours[block].realtimeFactor / t.realtimeFactor);
            }
        }

        std::printf("\naliasing: 3100 Hz at half scale, heavy drive (orm: Input 1); largest non-harmonic component\n");
        const double rate = 48000, f = 3100;
        const std::vector<float> sine = orm_render::makeSignal("sine:3100:-6.0206", rate, static_cast<size_t>(3 * rate));
        for (const auto& [name, factor] : {std::pair<const char*, double>{"orm 2x", 0.0}, {"orm 4x", 0.5}, {"orm 8x", 1.0}}) {
            OrmProcessor p(module, rate, 256, {{"Oversamp", factor}, {"Input", 1.0}});
            std::vector<float> out;
            timeBlocks(p, sine, 256, rate, &out);
            const Alias a = aliasing(out, rate, f);
            std::printf("%-10s %7.1f dB at %5.0f Hz\n", name, a.db, a.hz);
        }
        if (gx) {
            Lv2Processor p(world, gx, rate, 256, peers[0].heavy);
            std::vector<float> out;
            timeBlocks(p, sine, 256, rate, &out);
            const Alias a = aliasing(out, rate, f);
            std::printf("%-10s %7.1f dB at %5.0f Hz (PreGain 20, Drive 1, Distortion 100)\n", "gx_amp", a.db, a.hz);
        }
        lilv_world_free(world);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "orm-peer-bench: %s\n", e.what());
        return 1;
    }
    return 0;
}
