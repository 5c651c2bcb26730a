// orm-validate: a validation battery for a VST2 module, driven through its binary interface only
// (dlopen, the entry, the effect record, the dispatcher), as a strict host would drive it.
//
//   orm-validate [MODULE] [--soak SECONDS] [--seed N] [--only NAME]
//
// Without --soak it runs the short battery (well under a minute in a Release build); --soak adds
// random automation and settings for the given time.  Prints a table of results; exits 1 if
// any check failed.

#include <dlfcn.h>
#include <unistd.h>
#include <xmmintrin.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <memory>
#include <stdexcept>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "plugin/vst2/aeffect.h"

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
// The sanitizers keep freed memory in quarantine: resident memory says nothing about leaks
// there (LeakSanitizer checks them at exit instead).
constexpr bool kMemoryIsMeaningful = false;
#else
constexpr bool kMemoryIsMeaningful = true;
#endif

// Output of the amplifier stays far below this whatever the settings; anything above is a fault.
constexpr float kBound = 16.0f;
constexpr int32_t kUniqueIdQuery = vstFourCC('q', '7', 'v', 't');
constexpr intptr_t kFailedBlocks = vstFourCC('f', 'a', 'i', 'l');

typedef AEffect* (*EntryPoint)(audioMasterCallback);

intptr_t hostCallback(AEffect*, int32_t opcode, int32_t, intptr_t, void*, float) {
    switch (opcode) {
        case audioMasterVersion:
            return 2400;
        case audioMasterGetSampleRate:
            return 48000;
        case audioMasterGetBlockSize:
            return 512;
        default:
            return 0;
    }
}

long residentBytes() {
    std::ifstream statm("/proc/self/statm");
    long size = 0, resident = 0;
    statm >> size >> resident;
    return resident * sysconf(_SC_PAGESIZE);
}

int threadCount() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.compare(0, 8, "Threads:") == 0) return std::atoi(line.c_str() + 8);
    return -1;
}

// A watchdog: a step that takes longer than the limit is a hang, reported before the process
// ends, so that the table shows where.
class Watchdog {
public:
    explicit Watchdog(int seconds) : limit(seconds) {
        thread = std::thread([this] {
            while (!stopping.load()) {
                std::this_thread::sleep_for(std::chrono::milliseconds(200));
                if (++ticks > limit * 5) {
                    std::fprintf(stderr, "orm-validate: HANG in \"%s\" (no progress for %d s)\n", step.load(), limit);
                    std::fflush(stderr);
                    std::_Exit(3);
                }
            }
        });
    }
    ~Watchdog() {
        stopping = true;
        thread.join();
    }
    void alive(const char* name) {
        step = name;
        ticks = 0;
    }

private:
    int limit;
    std::atomic<int> ticks{0};
    std::atomic<const char*> step{"start"};
    std::atomic<bool> stopping{false};
    std::thread thread;
};

Watchdog* watchdog = nullptr;
void alive(const char* step) {
    if (watchdog) watchdog->alive(step);
}

class Plugin {
public:
    explicit Plugin(EntryPoint entry) : effect(entry(hostCallback)) {
        if (!effect) throw std::runtime_error("the entry returned no effect");
        callerMode = _mm_getcsr();
    }
    ~Plugin() { close(); }
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    intptr_t dispatch(int32_t opcode, int32_t index = 0, intptr_t value = 0, void* ptr = nullptr, float opt = 0.0f) {
        return effect->dispatcher(effect, opcode, index, value, ptr, opt);
    }
    void start(float rate, int block) {
        dispatch(effOpen);
        dispatch(effSetSampleRate, 0, 0, nullptr, rate);
        dispatch(effSetBlockSize, 0, block);
        dispatch(effMainsChanged, 0, 1);
    }
    void restart(float rate, int block) {
        dispatch(effMainsChanged, 0, 0);
        dispatch(effSetSampleRate, 0, 0, nullptr, rate);
        dispatch(effSetBlockSize, 0, block);
        dispatch(effMainsChanged, 0, 1);
    }
    void process(float** in, float** out, int32_t frames) { effect->processReplacing(effect, in, out, frames); }
    void set(int32_t index, float value) { effect->setParameter(effect, index, value); }
    float get(int32_t index) { return effect->getParameter(effect, index); }
    long failedBlocks() { return static_cast<long>(dispatch(effVendorSpecific, kUniqueIdQuery, kFailedBlocks)); }
    void close() {
        if (!effect) return;
        dispatch(effMainsChanged, 0, 0);
        dispatch(effClose);
        effect = nullptr;
    }

    AEffect* effect;
    uint32_t callerMode;
};

// Buffers for one stereo block, with checks on what came out.
struct Buffers {
    explicit Buffers(size_t frames) : in0(frames), in1(frames), out0(frames), out1(frames) {}
    float* ins[2] = {nullptr, nullptr};
    float* outs[2] = {nullptr, nullptr};
    std::vector<float> in0, in1, out0, out1;
    void run(Plugin& plugin, size_t frames) {
        ins[0] = in0.data(), ins[1] = in1.data(), outs[0] = out0.data(), outs[1] = out1.data();
        plugin.process(ins, outs, static_cast<int32_t>(frames));
    }
    // Empty when every sample written is finite and within the bound.
    std::string fault(size_t frames) const {
        for (size_t i = 0; i < frames; ++i)
            for (float v : {out0[i], out1[i]})
                if (!std::isfinite(v) || std::fabs(v) >= kBound) {
                    std::ostringstream text;
                    text << "sample " << i << " = " << v;
                    return text.str();
                }
        return "";
    }
    double rms(size_t frames) const {
        double sum = 0;
        for (size_t i = 0; i < frames; ++i) sum += double(out0[i]) * out0[i];
        return frames ? std::sqrt(sum / double(frames)) : 0.0;
    }
};

void fillTone(std::vector<float>& x, size_t frames, double& phase, double step, float amplitude) {
    for (size_t i = 0; i < frames; ++i) {
        x[i] = amplitude * static_cast<float>(std::sin(phase));
        phase += step;
    }
    phase = std::fmod(phase, 2 * M_PI);
}

struct Result {
    std::string name;
    bool passed;
    std::string detail;
};

class Battery {
public:
    Battery(EntryPoint entryPoint, unsigned seed) : entry(entryPoint), random(seed) {}

    std::vector<Result> results;

    void check(const std::string& name, const std::function<std::string()>& body) {
        alive(name.c_str());
        std::string failure;
        std::string detail;
        try {
            detail = body();
        } catch (const std::exception& error) {
            failure = std::string("exception: ") + error.what();
        } catch (...) {
            failure = "unknown exception";
        }
        const bool passed = failure.empty() && detail.compare(0, 5, "FAIL ") != 0;
        if (!passed && failure.empty()) failure = detail.substr(5);
        results.push_back({name, passed, passed ? detail : failure});
        std::printf("  %-46s %s  %s\n", name.c_str(), passed ? "pass" : "FAIL", results.back().detail.c_str());
        std::fflush(stdout);
    }

    // 50 open/close cycles, each with blocks, and four instances alive at once; resident memory
    // between the 10th and the 50th cycle.
    std::string openClose(int cycles) {
        long at10 = 0;
        const long atStart = residentBytes();
        Buffers io(512);
        double phase = 0;
        for (int cycle = 1; cycle <= cycles; ++cycle) {
            alive("open/close");
            Plugin plugin(entry);
            plugin.start(48000.0f, 512);
            for (int b = 0; b < 8; ++b) {
                fillTone(io.in0, 512, phase, 0.06, 0.5f);
                io.in1 = io.in0;
                io.run(plugin, 512);
                std::string bad = io.fault(512);
                if (!bad.empty()) return "FAIL cycle " + std::to_string(cycle) + ": " + bad;
            }
            plugin.close();
            if (cycle == 10) at10 = residentBytes();
        }
        const long atEnd = residentBytes();
        const long growth = atEnd - at10;
        char text[200];
        std::snprintf(text, sizeof(text), "resident %.1f MB before, %.1f MB after %d cycles; %+.2f MB from cycle 10%s",
                      double(atStart) / 1e6, double(atEnd) / 1e6, cycles, double(growth) / 1e6,
                      kMemoryIsMeaningful ? "" : " (sanitizer heap: not judged)");
        if (kMemoryIsMeaningful && growth > 8 * 1000 * 1000) return std::string("FAIL ") + text;
        return text;
    }

    std::string fourAtOnce() {
        // Two pairs of twins with different settings, interleaved: each pair must agree to the bit.
        std::vector<std::unique_ptr<Plugin>> plugins;
        for (int i = 0; i < 4; ++i) {
            plugins.emplace_back(new Plugin(entry));
            plugins.back()->start(i < 2 ? 44100.0f : 96000.0f, 256);
            plugins.back()->set(2, i < 2 ? 0.3f : 0.9f);
        }
        std::vector<Buffers> io(4, Buffers(256));
        double phase = 0;
        for (int b = 0; b < 40; ++b) {
            fillTone(io[0].in0, 256, phase, 0.05, 0.4f);
            for (int i = 0; i < 4; ++i) {
                io[static_cast<size_t>(i)].in0 = io[0].in0;
                io[static_cast<size_t>(i)].in1 = io[0].in0;
                io[static_cast<size_t>(i)].run(*plugins[static_cast<size_t>(i)], 256);
            }
            if (io[0].out0 != io[1].out0 || io[2].out0 != io[3].out0)
                return "FAIL twins differ at block " + std::to_string(b);
        }
        if (io[0].out0 == io[2].out0) return "FAIL different settings gave the same output";
        plugins.clear();
        return "two pairs of twins agree to the bit";
    }

    std::string ratesAndBlockSizes(bool everySize) {
        const float rates[] = {22050, 32000, 44100, 48000, 88200, 96000, 176400, 192000};
        std::vector<int> sizes = {1, 2, 3, 7, 64, 100, 128, 511, 512, 1000, 1024, 2048, 4096};
        if (everySize) {
            sizes.clear();
            for (int s = 1; s <= 4096; ++s) sizes.push_back(s);
        }
        long blocks = 0, setups = 0;
        Buffers io(4096);
        double phase = 0;
        Plugin plugin(entry);
        plugin.start(48000.0f, 512);
        for (float rate : rates) {
            for (int size : sizes) {
                alive("rates and block sizes");
                plugin.restart(rate, size);
                ++setups;
                // A second of audio at most, in blocks of the announced size and shorter ones.
                const size_t total = std::min<size_t>(static_cast<size_t>(rate) / (everySize ? 40 : 8), 48000);
                size_t done = 0;
                while (done < total) {
                    std::uniform_int_distribution<int> length(0, size);
                    size_t n = static_cast<size_t>(blocks % 3 == 0 ? size : length(random));
                    fillTone(io.in0, n, phase, 2 * M_PI * 440.0 / rate, 0.5f);
                    io.in1 = io.in0;
                    io.run(plugin, n);
                    std::string bad = io.fault(n);
                    if (!bad.empty()) return "FAIL at " + std::to_string(int(rate)) + " Hz, size " + std::to_string(size) + ": " + bad;
                    done += std::max<size_t>(n, 1);
                    ++blocks;
                }
            }
        }
        if (plugin.failedBlocks() != 0) return "FAIL " + std::to_string(plugin.failedBlocks()) + " blocks failed";
        return std::to_string(setups) + " settings, " + std::to_string(blocks) + " blocks";
    }

    // Random automation of every parameter from the audio thread between blocks and from a
    // second thread at once, with settings changes; then suspend and close must return.
    std::string automation(double seconds) {
        Plugin plugin(entry);
        plugin.start(48000.0f, 256);
        std::atomic<bool> done{false};
        std::atomic<long> writes{0};
        std::thread editor([&] {
            std::mt19937 own(random());
            std::uniform_real_distribution<float> value(0.0f, 1.0f);
            while (!done.load()) {
                plugin.set(static_cast<int32_t>(own() % 8), value(own));
                (void)plugin.get(static_cast<int32_t>(own() % 8));
                ++writes;
                if (own() % 64 == 0) std::this_thread::sleep_for(std::chrono::microseconds(200));
            }
        });
        Buffers io(256);
        std::uniform_real_distribution<float> value(0.0f, 1.0f);
        std::uniform_int_distribution<int> length(1, 256);
        double phase = 0;
        long blocks = 0;
        std::string failure;
        const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
        while (std::chrono::steady_clock::now() < end) {
            alive("automation");
            if (random() % 4 == 0) plugin.set(static_cast<int32_t>(random() % 8), value(random));
            const size_t n = static_cast<size_t>(length(random));
            fillTone(io.in0, n, phase, 0.03, 0.7f);
            fillTone(io.in1, n, phase, 0.02, 0.7f);
            io.run(plugin, n);
            failure = io.fault(n);
            if (!failure.empty()) break;
            ++blocks;
        }
        done = true;
        editor.join();
        alive("automation: suspend and close");
        const long failed = plugin.failedBlocks();
        plugin.close();
        if (!failure.empty()) return "FAIL " + failure;
        if (failed) return "FAIL " + std::to_string(failed) + " blocks failed";
        return std::to_string(blocks) + " blocks, " + std::to_string(writes.load()) + " writes from a second thread";
    }

    std::string sweep() {
        Plugin plugin(entry);
        plugin.start(48000.0f, 64);
        Buffers io(64);
        double phase = 0;
        for (int p = 0; p < plugin.effect->numParams; ++p) {
            const float before = plugin.get(p);
            for (int step = 0; step <= 1000; ++step) {
                alive("sweep");
                plugin.set(p, float(step) / 1000.0f);
                fillTone(io.in0, 64, phase, 0.04, 0.5f);
                io.in1 = io.in0;
                io.run(plugin, 64);
                std::string bad = io.fault(64);
                if (!bad.empty()) return "FAIL parameter " + std::to_string(p) + " at step " + std::to_string(step) + ": " + bad;
            }
            plugin.set(p, before);
        }
        if (plugin.failedBlocks()) return "FAIL " + std::to_string(plugin.failedBlocks()) + " blocks failed";
        return std::to_string(plugin.effect->numParams) + " parameters x 1001 values";
    }

    // Bad input for a tenth of a second, then half a second of music: the output stays finite
    // throughout and plays again at the end.
    std::string badInputs() {
        struct Input {
            const char* name;
            std::function<float(size_t)> sample;
        };
        const float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
        const Input inputs[] = {
            {"NaN", [=](size_t) { return nan; }},
            {"+Inf", [=](size_t) { return inf; }},
            {"-Inf", [=](size_t) { return -inf; }},
            {"NaN every 5th", [=](size_t i) { return i % 5 ? 0.3f : nan; }},
            {"denormals", [](size_t i) { return (i % 2 ? 1.0f : -1.0f) * 1e-40f; }},
            {"DC +1", [](size_t) { return 1.0f; }},
            {"DC -1", [](size_t) { return -1.0f; }},
            {"square 1", [](size_t i) { return (i / 50) % 2 ? 1.0f : -1.0f; }},
            {"3e38 square", [](size_t i) { return (i / 8) % 2 ? 3e38f : -3e38f; }},
        };
        std::string report;
        for (const Input& input : inputs) {
            alive("bad inputs");
            Plugin plugin(entry);
            plugin.start(48000.0f, 480);
            plugin.set(7, 1.0f);
            Buffers io(480);
            for (int b = 0; b < 10; ++b) {
                for (size_t i = 0; i < 480; ++i) io.in0[i] = io.in1[i] = input.sample(i + size_t(b) * 480);
                io.run(plugin, 480);
                std::string bad = io.fault(480);
                if (!bad.empty()) return std::string("FAIL ") + input.name + ": " + bad;
            }
            double phase = 0, level = 0;
            for (int b = 0; b < 50; ++b) {
                fillTone(io.in0, 480, phase, 0.05, 0.5f);
                io.in1 = io.in0;
                io.run(plugin, 480);
                std::string bad = io.fault(480);
                if (!bad.empty()) return std::string("FAIL ") + input.name + " then music: " + bad;
                level = io.rms(480);
            }
            if (!(level > 1e-3)) return std::string("FAIL ") + input.name + ": silent afterwards";
            if (plugin.failedBlocks()) return std::string("FAIL ") + input.name + ": blocks failed";
        }
        // Silence after loud: the output dies away.
        Plugin plugin(entry);
        plugin.start(48000.0f, 480);
        plugin.set(6, 1.0f);
        plugin.set(0, 1.0f);
        Buffers io(480);
        double phase = 0;
        for (int b = 0; b < 100; ++b) {
            fillTone(io.in0, 480, phase, 0.02, 1.0f);
            io.in1 = io.in0;
            io.run(plugin, 480);
        }
        std::fill(io.in0.begin(), io.in0.end(), 0.0f);
        io.in1 = io.in0;
        double level = 0;
        for (int b = 0; b < 200; ++b) {
            io.run(plugin, 480);
            level = io.rms(480);
        }
        if (!(level < 1e-4)) return "FAIL silence after loud: still at rms " + std::to_string(level) + " after 2 s";
        char text[120];
        std::snprintf(text, sizeof(text), "9 kinds, each then music; silence after loud: %.0f dBFS after 2 s",
                      level > 0 ? 20 * std::log10(level) : -999.0);
        return text;
    }

    // Every opcode with null pointers and with indices and values out of range, then a block;
    // the caller's floating-point mode must come back from every call.
    std::string dispatcher() {
        Plugin plugin(entry);
        plugin.start(48000.0f, 128);
        const int32_t indices[] = {0, -1, 8, 1000, INT_MAX, INT_MIN};
        const intptr_t values[] = {0, -1, 1, 1 << 20, INTPTR_MAX};
        const float opts[] = {0.0f, -1.0f, 1e30f, std::numeric_limits<float>::quiet_NaN()};
        long calls = 0;
        std::vector<char> scratch(1024, 0);
        for (int32_t opcode = -2; opcode < 90; ++opcode) {
            if (opcode == effClose || opcode == effEditOpen) continue;  // the window has suites of its own
            alive("dispatcher");
            for (int32_t index : indices)
                for (intptr_t value : values)
                    for (float opt : opts) {
                        // Opcodes whose value is a pointer get null there, not a number.
                        const bool valueIsPointer = opcode == effSetSpeakerArrangement ||
                                                    opcode == effGetSpeakerArrangement;
                        const intptr_t v = valueIsPointer ? 0 : value;
                        for (void* ptr : {static_cast<void*>(nullptr), static_cast<void*>(scratch.data())}) {
                            if (ptr && (opcode == effSetChunk || opcode == effProcessEvents ||
                                        opcode == effSetSpeakerArrangement || opcode == effOfflineNotify ||
                                        opcode == effOfflinePrepare || opcode == effOfflineRun ||
                                        opcode == effProcessVarIo || opcode == effVendorSpecific))
                                continue;  // records the host fills in: a real one or none
                            std::fill(scratch.begin(), scratch.end(), 0);
                            const uint32_t mode = 0x1f80u;
                            _mm_setcsr(mode);
                            plugin.dispatch(opcode, index, v, ptr, opt);
                            if ((_mm_getcsr() & ~0x3fu) != mode)
                                return "FAIL opcode " + std::to_string(opcode) + " changed the caller's MXCSR";
                            ++calls;
                        }
                    }
            // The instance may have been suspended or given odd settings: set it up again.
            plugin.restart(48000.0f, 128);
        }
        Buffers io(128);
        double phase = 0;
        for (int b = 0; b < 20; ++b) {
            fillTone(io.in0, 128, phase, 0.05, 0.5f);
            io.in1 = io.in0;
            io.run(plugin, 128);
            std::string bad = io.fault(128);
            if (!bad.empty()) return "FAIL afterwards: " + bad;
        }
        return std::to_string(calls) + " calls, the instance plays afterwards";
    }

    // Random settings, blocks and automation for a given time: no NaN, no crash, no growth.
    std::string soak(double seconds) {
        std::uniform_real_distribution<float> value(0.0f, 1.0f);
        const float rates[] = {22050, 32000, 44100, 48000, 88200, 96000, 176400, 192000};
        Buffers io(4096);
        double phase = 0;
        long blocks = 0, restarts = 0, reopens = 0, firstResident = 0, lastResident = 0;
        const auto begin = std::chrono::steady_clock::now();
        const auto end = begin + std::chrono::duration<double>(seconds);
        auto nextSample = begin + std::chrono::seconds(60);
        std::atomic<bool> done{false};
        std::unique_ptr<Plugin> plugin;
        std::atomic<Plugin*> shared{nullptr};
        std::atomic<bool> pause{false};
        std::atomic<bool> paused{false};
        std::thread editor([&] {
            std::mt19937 own(random());
            while (!done.load()) {
                if (pause.load()) {
                    paused = true;
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                    continue;
                }
                paused = false;
                Plugin* p = shared.load();
                if (p) p->set(static_cast<int32_t>(own() % 8), value(own));
                std::this_thread::sleep_for(std::chrono::microseconds(own() % 500));
            }
        });
        auto holdEditor = [&](bool hold) {
            pause = hold;
            while (hold && !paused.load()) std::this_thread::yield();
        };
        std::string failure;
        float rate = 48000;
        int size = 512;
        while (std::chrono::steady_clock::now() < end && failure.empty()) {
            alive("soak");
            if (!plugin || random() % 20000 == 0) {
                holdEditor(true);
                shared = nullptr;
                if (plugin) plugin->close();
                plugin.reset(new Plugin(entry));
                plugin->start(rate, size);
                shared = plugin.get();
                holdEditor(false);
                ++reopens;
            }
            if (random() % 2000 == 0) {
                rate = rates[random() % 8];
                size = 1 + static_cast<int>(random() % 4096);
                plugin->restart(rate, size);
                ++restarts;
            }
            if (random() % 8 == 0) plugin->set(static_cast<int32_t>(random() % 8), value(random));
            const size_t n = static_cast<size_t>(random() % 4 == 0 ? size : random() % (size_t(size) + 1));
            const unsigned kind = static_cast<unsigned>(random() % 1000);
            if (kind < 2) {
                std::fill(io.in0.begin(), io.in0.begin() + long(n), std::numeric_limits<float>::quiet_NaN());
            } else if (kind < 100) {
                std::fill(io.in0.begin(), io.in0.begin() + long(n), 0.0f);
            } else if (kind < 400) {
                for (size_t i = 0; i < n; ++i) io.in0[i] = value(random) * 2 - 1;
            } else {
                fillTone(io.in0, n, phase, 2 * M_PI * 220 / rate, 0.8f);
            }
            std::copy(io.in0.begin(), io.in0.begin() + long(n), io.in1.begin());
            io.run(*plugin, n);
            failure = io.fault(n);
            ++blocks;
            if (std::chrono::steady_clock::now() >= nextSample) {
                lastResident = residentBytes();
                if (!firstResident) firstResident = lastResident;
                nextSample += std::chrono::seconds(60);
            }
        }
        done = true;
        editor.join();
        const long failed = plugin ? plugin->failedBlocks() : 0;
        if (plugin) plugin->close();
        const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
        char text[240];
        std::snprintf(text, sizeof(text),
                      "%.0f s, %ld blocks, %ld rate/size changes, %ld reopenings; resident %+.2f MB from minute 1 "
                      "to the last",
                      elapsed, blocks, restarts, reopens, double(lastResident - firstResident) / 1e6);
        if (!failure.empty()) return std::string("FAIL ") + failure + " (" + text + ")";
        if (failed) return "FAIL " + std::to_string(failed) + " blocks failed";
        if (kMemoryIsMeaningful && lastResident - firstResident > 16 * 1000 * 1000) return std::string("FAIL ") + text;
        return text;
    }

private:
    EntryPoint entry;
    std::mt19937 random;
};

std::string besideThisProgram(const std::string& name) {
    char self[4096];
    ssize_t length = readlink("/proc/self/exe", self, sizeof(self) - 1);
    if (length <= 0) return name;
    std::string path(self, static_cast<size_t>(length));
    return path.substr(0, path.find_last_of('/') + 1) + name;
}

}  // namespace

int main(int argc, char** argv) {
    std::string modulePath;
    double soakSeconds = 0;
    unsigned seed = 1;
    std::string only;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--soak" && i + 1 < argc)
            soakSeconds = std::atof(argv[++i]);
        else if (arg == "--seed" && i + 1 < argc)
            seed = static_cast<unsigned>(std::strtoul(argv[++i], nullptr, 10));
        else if (arg == "--only" && i + 1 < argc)
            only = argv[++i];
        else if (!arg.empty() && arg[0] != '-' && modulePath.empty())
            modulePath = arg;
        else {
            std::fprintf(stderr, "usage: orm-validate [MODULE] [--soak SECONDS] [--seed N] [--only NAME]\n");
            return 2;
        }
    }
    if (modulePath.empty()) modulePath = besideThisProgram("orm.so");

    void* module = dlopen(modulePath.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!module) {
        std::fprintf(stderr, "orm-validate: %s\n", dlerror());
        return 1;
    }
    auto entry = reinterpret_cast<EntryPoint>(dlsym(module, "VSTPluginMain"));
    if (!entry) {
        std::fprintf(stderr, "orm-validate: %s exports no VSTPluginMain\n", modulePath.c_str());
        return 1;
    }

    Watchdog dog(120);
    watchdog = &dog;
    const int threadsBefore = threadCount();
    std::printf("orm-validate %s (seed %u)\n", modulePath.c_str(), seed);
    std::printf("  %-46s %s  %s\n", "check", "    ", "detail");
    Battery battery(entry, seed);
    auto wanted = [&](const char* name) { return only.empty() || only == name; };
    if (wanted("openclose")) battery.check("open/close, 50 cycles", [&] { return battery.openClose(50); });
    if (wanted("four")) battery.check("four instances alive at once", [&] { return battery.fourAtOnce(); });
    if (wanted("rates"))
        battery.check(soakSeconds > 0 ? "rates 22050..192000 x block sizes 1..4096" : "rates 22050..192000 x 13 block sizes",
                      [&] { return battery.ratesAndBlockSizes(soakSeconds > 0); });
    if (wanted("automation"))
        battery.check("automation from two threads", [&] { return battery.automation(soakSeconds > 0 ? 30.0 : 3.0); });
    if (wanted("sweep")) battery.check("every parameter in 1000 steps", [&] { return battery.sweep(); });
    if (wanted("inputs")) battery.check("bad inputs", [&] { return battery.badInputs(); });
    if (wanted("dispatcher")) battery.check("dispatcher: null pointers, odd indices", [&] { return battery.dispatcher(); });
    if (soakSeconds > 0 && wanted("soak")) battery.check("soak", [&] { return battery.soak(soakSeconds); });
    const int threadsAfter = threadCount();
    battery.check("threads before and after", [&] {
        const std::string text = std::to_string(threadsBefore) + " before, " + std::to_string(threadsAfter) + " after";
        return threadsBefore == threadsAfter ? text : "FAIL " + text;
    });
    watchdog = nullptr;

    int failures = 0;
    for (const Result& result : battery.results) failures += result.passed ? 0 : 1;
    std::printf("%d of %zu checks passed\n", int(battery.results.size()) - failures, battery.results.size());
    return failures ? 1 : 0;
}
