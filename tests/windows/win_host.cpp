// orm-win-host: a Windows host of our own that loads orm.dll through LoadLibrary and
// GetProcAddress, as Windows hosts do, and checks it.  Cross-built with the module and run under
// Wine by scripts/windows-test.sh.
//
//   orm-win-host check MODULE
//   orm-win-host render MODULE --out FILE.wav [--seconds S] [--rate HZ] [--block N] [--set NAME=VALUE]...
//                [--bench] [--reference FILE.wav --max-difference X]
//   orm-win-host editor MODULE --screenshot FILE.png [--reference FILE.png]
//
// Prints what it finds; exits 1 with "FAILED: ..." lines when a check fails, 2 on a usage error.

#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#include <windows.h>
#include <xmmintrin.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#define STB_IMAGE_STATIC
#define STB_IMAGE_IMPLEMENTATION
#define STBI_ONLY_PNG
#include <stb/stb_image.h>
#define STB_IMAGE_WRITE_STATIC
#define STB_IMAGE_WRITE_IMPLEMENTATION
#include <stb/stb_image_write.h>

#include "plugin/vst2/aeffect.h"
#include "tools/orm-render/Options.h"
#include "tools/orm-render/Signals.h"

namespace {

int failures = 0;

void check(bool condition, const std::string& what) {
    if (condition) return;
    std::printf("FAILED: %s\n", what.c_str());
    ++failures;
}

// --- the host side of the interface ------------------------------------------------------------

struct HostEvent {
    int32_t opcode;
    int32_t index;
    float value;
};
std::vector<HostEvent> heard;
int versionQueries = 0;

intptr_t hostCallback(AEffect*, int32_t opcode, int32_t index, intptr_t, void* ptr, float opt) {
    switch (opcode) {
        case audioMasterVersion:
            ++versionQueries;
            return 2400;
        case audioMasterAutomate:
        case audioMasterBeginEdit:
        case audioMasterEndEdit:
            heard.push_back({opcode, index, opt});
            return 1;
        case audioMasterGetVendorString:
            if (ptr) std::strcpy(static_cast<char*>(ptr), "orm-win-host");
            return 1;
        case audioMasterGetCurrentProcessLevel:
            return 4;  // offline
        default:
            return 0;
    }
}

typedef AEffect* (*EntryPoint)(audioMasterCallback);

struct Module {
    HMODULE handle = nullptr;
    EntryPoint entry = nullptr;
    EntryPoint alias = nullptr;

    explicit Module(const std::string& path) {
        handle = LoadLibraryA(path.c_str());
        if (!handle) {
            std::printf("FAILED: cannot load %s (error %lu)\n", path.c_str(), GetLastError());
            std::exit(1);
        }
        entry = reinterpret_cast<EntryPoint>(reinterpret_cast<void*>(GetProcAddress(handle, "VSTPluginMain")));
        alias = reinterpret_cast<EntryPoint>(reinterpret_cast<void*>(GetProcAddress(handle, "main")));
        if (!entry) {
            std::printf("FAILED: %s exports no VSTPluginMain\n", path.c_str());
            std::exit(1);
        }
    }
};

struct Instance {
    AEffect* effect;
    std::vector<std::string> names;

    explicit Instance(const Module& module) : effect(module.entry(hostCallback)) {
        if (!effect || effect->magic != kEffectMagic) {
            std::printf("FAILED: VSTPluginMain made no effect\n");
            std::exit(1);
        }
        dispatch(effOpen);
        for (int32_t i = 0; i < effect->numParams; ++i) {
            char text[64] = {0};
            dispatch(effGetParamName, i, 0, text);
            names.emplace_back(text, strnlen(text, 8));
        }
    }
    ~Instance() {
        dispatch(effMainsChanged, 0, 0);
        dispatch(effClose);
    }
    intptr_t dispatch(int32_t opcode, int32_t index = 0, intptr_t value = 0, void* ptr = nullptr, float opt = 0) {
        return effect->dispatcher(effect, opcode, index, value, ptr, opt);
    }
    void start(float rate, int32_t block) {
        dispatch(effSetSampleRate, 0, 0, nullptr, rate);
        dispatch(effSetBlockSize, 0, block);
        dispatch(effMainsChanged, 0, 1);
    }
    void set(const std::string& name, float value) {
        for (size_t i = 0; i < names.size(); ++i)
            if (names[i] == name || (names[i].size() == 8 && name.compare(0, 8, names[i]) == 0)) {
                effect->setParameter(effect, int32_t(i), value);
                return;
            }
        std::printf("FAILED: no parameter %s\n", name.c_str());
        std::exit(2);
    }
    void process(float** in, float** out, int32_t frames) { effect->processReplacing(effect, in, out, frames); }
};

// --- the module's PE image: what it exports and which DLLs it needs ------------------------------

struct ImageTables {
    std::vector<std::string> exports;
    std::vector<std::string> imports;
};

ImageTables readImageTables(HMODULE module) {
    ImageTables tables;
    const auto* base = reinterpret_cast<const unsigned char*>(module);
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
    const IMAGE_DATA_DIRECTORY& exportDirectory = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
    if (exportDirectory.Size) {
        const auto* table = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(base + exportDirectory.VirtualAddress);
        const auto* names = reinterpret_cast<const DWORD*>(base + table->AddressOfNames);
        for (DWORD i = 0; i < table->NumberOfNames; ++i)
            tables.exports.emplace_back(reinterpret_cast<const char*>(base + names[i]));
    }
    const IMAGE_DATA_DIRECTORY& importDirectory = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    if (importDirectory.Size) {
        for (const auto* entry = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + importDirectory.VirtualAddress);
             entry->Name; ++entry)
            tables.imports.emplace_back(reinterpret_cast<const char*>(base + entry->Name));
    }
    return tables;
}

std::string lower(std::string text) {
    for (char& c : text) c = char(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// --- WAV files: 32-bit float, written and read here ---------------------------------------------

void put32(std::string& b, uint32_t v) {
    for (int i = 0; i < 4; ++i) b.push_back(char((v >> (8 * i)) & 0xff));
}
void put16(std::string& b, uint32_t v) {
    for (int i = 0; i < 2; ++i) b.push_back(char((v >> (8 * i)) & 0xff));
}

bool writeWav(const std::string& path, const std::vector<std::vector<float>>& channels, uint32_t rate) {
    const uint32_t frames = uint32_t(channels[0].size()), count = uint32_t(channels.size());
    std::string b = "RIFF";
    put32(b, 36 + frames * count * 4);
    b += "WAVEfmt ";
    put32(b, 16);
    put16(b, 3);  // IEEE float
    put16(b, count);
    put32(b, rate);
    put32(b, rate * count * 4);
    put16(b, count * 4);
    put16(b, 32);
    b += "data";
    put32(b, frames * count * 4);
    for (uint32_t i = 0; i < frames; ++i)
        for (uint32_t c = 0; c < count; ++c) b.append(reinterpret_cast<const char*>(&channels[c][i]), 4);
    std::ofstream out(path, std::ios::binary);
    out.write(b.data(), std::streamsize(b.size()));
    return bool(out);
}

uint32_t get32(const std::string& b, size_t at) {
    uint32_t v = 0;
    for (int i = 3; i >= 0; --i) v = (v << 8) | static_cast<unsigned char>(b[at + size_t(i)]);
    return v;
}

// A 32-bit float WAV as channels; empty when the file is anything else.
std::vector<std::vector<float>> readWav(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::string b((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::vector<std::vector<float>> channels;
    if (b.size() < 12 || b.compare(0, 4, "RIFF") != 0 || b.compare(8, 4, "WAVE") != 0) return channels;
    uint32_t count = 0, bits = 0, format = 0;
    for (size_t at = 12; at + 8 <= b.size();) {
        const std::string id = b.substr(at, 4);
        const uint32_t size = get32(b, at + 4);
        if (at + 8 + size > b.size()) break;
        if (id == "fmt " && size >= 16) {
            format = get32(b, at + 8) & 0xffff;
            count = get32(b, at + 10) & 0xffff;
            bits = get32(b, at + 22) & 0xffff;
            if (format == 0xfffe && size >= 26) format = get32(b, at + 32) & 0xffff;  // extensible
        } else if (id == "data" && format == 3 && bits == 32 && count > 0) {
            const size_t frames = size / (4 * count);
            channels.assign(count, std::vector<float>(frames));
            for (size_t i = 0; i < frames; ++i)
                for (uint32_t c = 0; c < count; ++c) std::memcpy(&channels[c][i], &b[at + 8 + (i * count + c) * 4], 4);
            return channels;
        }
        at += 8 + size + (size & 1);
    }
    return channels;
}

double rmsDb(const std::vector<float>& x) {
    double sum = 0;
    for (float v : x) sum += double(v) * v;
    return 10.0 * std::log10(std::max(sum / double(std::max<size_t>(x.size(), 1)), 1e-30));
}

// Seconds of CPU the calling thread has used.
double threadSeconds() {
    FILETIME created, exited, kernel, user;
    GetThreadTimes(GetCurrentThread(), &created, &exited, &kernel, &user);
    auto value = [](const FILETIME& t) { return double((uint64_t(t.dwHighDateTime) << 32) | t.dwLowDateTime) * 1e-7; };
    return value(kernel) + value(user);
}

double wallSeconds() {
    LARGE_INTEGER now, frequency;
    QueryPerformanceCounter(&now);
    QueryPerformanceFrequency(&frequency);
    return double(now.QuadPart) / double(frequency.QuadPart);
}

// --- check: identity, parameters, exports, the stereo rule -------------------------------------

int runCheck(const std::string& path) {
    Module module(path);
    check(module.alias == module.entry, "\"main\" is not the same function as VSTPluginMain");
    const ImageTables tables = readImageTables(module.handle);
    std::string exports, imports;
    for (const auto& name : tables.exports) exports += " " + name;
    for (const auto& name : tables.imports) imports += " " + name;
    std::printf("exports:%s\nimports:%s\n", exports.c_str(), imports.c_str());
    std::vector<std::string> sorted = tables.exports;
    std::sort(sorted.begin(), sorted.end());
    check(sorted == std::vector<std::string>({"VSTPluginMain", "main"}), "exports are not exactly VSTPluginMain and main");
    // Only Windows' own DLLs: the compiler's run-time libraries are inside the module.
    for (const auto& name : tables.imports) {
        const std::string n = lower(name);
        check(n.find("libstdc++") == std::string::npos && n.find("libgcc") == std::string::npos &&
                  n.find("winpthread") == std::string::npos,
              "the module needs " + name);
    }

    // Creation gives the host's thread its floating-point mode back as it was.
    const unsigned denormalBits = (1u << 15) | (1u << 6);
    _mm_setcsr(_mm_getcsr() & ~denormalBits);
    const unsigned callersMode = _mm_getcsr();
    Instance plugin(module);
    AEffect& e = *plugin.effect;
    check(_mm_getcsr() == callersMode, "VSTPluginMain changed the caller's MXCSR");
    check(versionQueries == 1, "VSTPluginMain did not ask the host's version once");
    char vendor[64] = {0};
    plugin.dispatch(effGetVendorString, 0, 0, vendor);
    std::printf("identity: unique id 0x%08x, version %d, vendor \"%s\", vendor version %d, VST %d, "
                "%d in, %d out, %d parameters, %d program, flags 0x%x\n",
                unsigned(e.uniqueID), int(e.version), vendor, int(plugin.dispatch(effGetVendorVersion)),
                int(plugin.dispatch(effGetVstVersion)), int(e.numInputs), int(e.numOutputs), int(e.numParams),
                int(e.numPrograms), unsigned(e.flags));
    check(e.uniqueID == 0x71377674, "unique id");
    check(e.numInputs == 2 && e.numOutputs == 2, "two inputs and two outputs");
    check(e.numParams == 8 && e.numPrograms == 1, "eight parameters and one program");
    check(std::string(vendor) == "Tarnvale", "vendor");
    check(plugin.dispatch(effGetVendorVersion) == 1100 && plugin.dispatch(effGetVstVersion) == 2400, "versions");
    check((e.flags & effFlagsCanReplacing) && (e.flags & effFlagsHasEditor) && !(e.flags & effFlagsProgramChunks),
          "flags");
    check(plugin.dispatch(effIdentify) == 0x4E764566, "effIdentify");

    const char* expected[8] = {"Volume", "Feedback", "Output", "Oversamp", "Cabinet", "CPU", "Input", "Stereo"};
    const float defaults[8] = {0.5f, 1.0f, 0.5f, 0.5f, 1.0f, 0.0f, 0.5f, 0.0f};
    std::printf("parameters:");
    for (int i = 0; i < 8 && i < e.numParams; ++i) {
        std::printf(" %d %s=%g%s", i, plugin.names[size_t(i)].c_str(), double(e.getParameter(&e, i)), i < 7 ? "," : "\n");
        check(plugin.names[size_t(i)] == expected[i], std::string("parameter name ") + expected[i]);
        check(e.getParameter(&e, i) == defaults[i], std::string("default of ") + expected[i]);
    }

    // The editor's size, from the panel picture the module carries as a resource.
    ERect* rect = nullptr;
    plugin.dispatch(effEditGetRect, 0, 0, &rect);
    check(rect && rect->right - rect->left == 1000 && rect->bottom - rect->top == 400,
          "the editor is not 1000 by 400 (its picture not found among the module's resources?)");

    // The stereo rule: with Stereo off both outputs carry the first channel's result; on, each
    // side its own, and equal inputs give equal outputs.
    const int32_t block = 256;
    plugin.start(48000.0f, block);
    std::vector<float> left(block), right(block), outLeft(block), outRight(block);
    float* in[2] = {left.data(), right.data()};
    float* out[2] = {outLeft.data(), outRight.data()};
    auto run = [&](Instance& instance, int blocks, bool equalInputs) {
        double difference = 0, level = 0;
        for (int b = 0; b < blocks; ++b) {
            for (int i = 0; i < block; ++i) {
                const double t = double(b * block + i) / 48000.0;
                left[size_t(i)] = float(0.3 * std::sin(2 * 3.14159265358979 * 220 * t));
                right[size_t(i)] = equalInputs ? left[size_t(i)] : float(0.2 * std::sin(2 * 3.14159265358979 * 330 * t));
            }
            instance.process(in, out, block);
            for (int i = 0; i < block; ++i) {
                difference = std::max(difference, double(std::fabs(outLeft[size_t(i)] - outRight[size_t(i)])));
                level = std::max(level, double(std::fabs(outLeft[size_t(i)])));
            }
        }
        return std::make_pair(difference, level);
    };
    // Stereo on from the start, equal inputs: the two chains are the same amplifier.
    {
        Instance stereo(module);
        stereo.set("Stereo", 1.0f);
        stereo.start(48000.0f, block);
        auto same = run(stereo, 40, true);
        check(same.second > 1e-3 && same.first == 0, "Stereo on, equal inputs: the outputs differ");
    }
    auto off = run(plugin, 40, false);
    check(off.second > 1e-3 && off.first == 0, "Stereo off: the outputs are not both the first channel's");
    plugin.set("Stereo", 1.0f);
    auto on = run(plugin, 40, false);
    check(on.first > 1e-3, "Stereo on: different inputs give equal outputs");
    std::printf("stereo rule: Stereo off, different inputs: outputs differ by %g (peak %g); Stereo on: by %g\n",
                off.first, off.second, on.first);
    return failures ? 1 : 0;
}

// --- render: a signal through the module, to a file, against a reference ------------------------

int runRender(const std::string& path, int argc, char** argv) {
    std::string out, reference, signal = "riff";
    double seconds = 4, rate = 48000, maxDifference = -1;
    int block = 256;
    bool bench = false;
    std::vector<std::pair<std::string, float>> settings;
    for (int i = 0; i < argc; ++i) {
        const std::string option = argv[i];
        auto value = [&]() -> std::string {
            if (i + 1 >= argc) {
                std::printf("%s needs a value\n", option.c_str());
                std::exit(2);
            }
            return argv[++i];
        };
        if (option == "--out") out = value();
        else if (option == "--signal") signal = value();
        else if (option == "--seconds") seconds = std::atof(value().c_str());
        else if (option == "--rate") rate = std::atof(value().c_str());
        else if (option == "--block") block = std::atoi(value().c_str());
        else if (option == "--bench") bench = true;
        else if (option == "--reference") reference = value();
        else if (option == "--max-difference") maxDifference = std::atof(value().c_str());
        else if (option == "--set") {
            const std::string setting = value();
            const size_t equals = setting.find('=');
            if (equals == std::string::npos) {
                std::printf("--set needs NAME=VALUE\n");
                return 2;
            }
            settings.emplace_back(setting.substr(0, equals), float(std::atof(setting.c_str() + equals + 1)));
        } else {
            std::printf("unknown option %s\n", option.c_str());
            return 2;
        }
    }
    if (out.empty() || block < 1) {
        std::printf("render needs --out FILE\n");
        return 2;
    }

    Module module(path);
    Instance plugin(module);
    std::vector<float> input;
    try {
        input = orm_render::makeSignal(signal, rate, size_t(seconds * rate));
    } catch (const orm_render::UsageError& error) {
        std::printf("%s\n", error.message.c_str());
        return 2;
    }
    for (const auto& setting : settings) plugin.set(setting.first, setting.second);
    // The source feeds both inputs, as orm-render feeds a mono source to every input.
    const size_t frames = input.size();
    std::vector<std::vector<float>> result(2, std::vector<float>(frames));
    plugin.start(float(rate), block);
    const double cpuBefore = threadSeconds(), wallBefore = wallSeconds();
    for (size_t done = 0; done < frames;) {
        const size_t count = std::min(frames - done, size_t(block));
        float* in[2] = {input.data() + done, input.data() + done};
        float* outs[2] = {result[0].data() + done, result[1].data() + done};
        plugin.process(in, outs, int32_t(count));
        done += count;
    }
    const double cpu = threadSeconds() - cpuBefore, wall = wallSeconds() - wallBefore;
    if (!writeWav(out, result, uint32_t(rate))) {
        check(false, "cannot write " + out);
        return 1;
    }
    std::printf("rendered %s: %zu frames, level %.2f dBFS RMS\n", out.c_str(), frames, rmsDb(result[0]));
    if (bench) {
        const double audio = double(frames) / rate;
        std::printf("rate %.0f Hz, block %d: realtime factor %.1f, %.1f ns per sample (%.3f s CPU for %.3f s audio); "
                    "by the wall clock %.1f\n",
                    rate, block, cpu > 0 ? audio / cpu : 0.0, frames ? cpu * 1e9 / double(frames) : 0.0, cpu, audio,
                    wall > 0 ? audio / wall : 0.0);
    }
    for (size_t i = 0; i < frames; ++i)
        if (!std::isfinite(result[0][i]) || !std::isfinite(result[1][i])) {
            check(false, "the output holds a sample that is not finite");
            break;
        }

    if (!reference.empty()) {
        const auto expected = readWav(reference);
        check(expected.size() == 2 && expected[0].size() == frames, "the reference is not a stereo float WAV as long");
        if (!failures) {
            double worst = 0, peak = 0;
            for (size_t c = 0; c < 2; ++c)
                for (size_t i = 0; i < frames; ++i) {
                    worst = std::max(worst, double(std::fabs(result[c][i] - expected[c][i])));
                    peak = std::max(peak, double(std::fabs(expected[c][i])));
                }
            const double levelDifference = rmsDb(result[0]) - rmsDb(expected[0]);
            std::printf("against %s: worst sample difference %.3g (peak %.3g, %.1f dB below it), level difference "
                        "%.2g dB\n",
                        reference.c_str(), worst, peak, worst > 0 ? 20 * std::log10(peak / worst) : INFINITY,
                        levelDifference);
            if (maxDifference >= 0) check(worst <= maxDifference, "the render differs from the reference");
        }
    }
    return failures ? 1 : 0;
}

// --- editor: a window of ours, the plug-in's child in it, the mouse moved by SendInput -----------

struct Screenshot {
    int width = 0, height = 0;
    std::vector<unsigned char> rgb;
};

void pump(Instance& plugin, int milliseconds) {
    const DWORD end = GetTickCount() + DWORD(milliseconds);
    do {
        MSG message;
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
            TranslateMessage(&message);
            DispatchMessageW(&message);
        }
        plugin.dispatch(effEditIdle);
        Sleep(10);
    } while (GetTickCount() < end);
}

Screenshot shoot(HWND window, int width, int height) {
    Screenshot shot;
    shot.width = width;
    shot.height = height;
    HDC source = GetDC(window);
    HDC memory = CreateCompatibleDC(source);
    BITMAPINFO info{};
    info.bmiHeader.biSize = sizeof(info.bmiHeader);
    info.bmiHeader.biWidth = width;
    info.bmiHeader.biHeight = -height;
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    info.bmiHeader.biCompression = BI_RGB;
    void* bits = nullptr;
    HBITMAP dib = CreateDIBSection(memory, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
    HGDIOBJ previous = SelectObject(memory, dib);
    BitBlt(memory, 0, 0, width, height, source, 0, 0, SRCCOPY);
    GdiFlush();
    const auto* pixels = static_cast<const uint32_t*>(bits);
    shot.rgb.resize(size_t(width) * size_t(height) * 3);
    for (size_t i = 0; i < size_t(width) * size_t(height); ++i) {
        shot.rgb[3 * i] = (pixels[i] >> 16) & 0xff;
        shot.rgb[3 * i + 1] = (pixels[i] >> 8) & 0xff;
        shot.rgb[3 * i + 2] = pixels[i] & 0xff;
    }
    SelectObject(memory, previous);
    DeleteObject(dib);
    DeleteDC(memory);
    ReleaseDC(window, source);
    return shot;
}

// Pixels whose colour differs by more than `tolerance` in a channel.
size_t differingPixels(const Screenshot& a, const Screenshot& b, int tolerance) {
    size_t count = 0;
    for (size_t i = 0; i + 2 < a.rgb.size() && i + 2 < b.rgb.size(); i += 3)
        for (size_t c = 0; c < 3; ++c)
            if (std::abs(int(a.rgb[i + c]) - int(b.rgb[i + c])) > tolerance) {
                ++count;
                break;
            }
    return count;
}

void moveMouse(int x, int y) {
    // Absolute coordinates in 1/65536 of the screen, rounded so that they land on pixel (x, y).
    const int width = GetSystemMetrics(SM_CXSCREEN), height = GetSystemMetrics(SM_CYSCREEN);
    INPUT input{};
    input.type = INPUT_MOUSE;
    input.mi.dx = LONG((int64_t(x) * 65536 + width - 1) / width);
    input.mi.dy = LONG((int64_t(y) * 65536 + height - 1) / height);
    input.mi.dwFlags = MOUSEEVENTF_MOVE | MOUSEEVENTF_ABSOLUTE;
    SendInput(1, &input, sizeof(input));
}

void pressMouse(bool down) {
    INPUT input{};
    input.type = INPUT_MOUSE;
    input.mi.dwFlags = down ? MOUSEEVENTF_LEFTDOWN : MOUSEEVENTF_LEFTUP;
    SendInput(1, &input, sizeof(input));
}

// Press at the window's (x, y), move by dy in ten steps, release: what the host heard.
std::vector<HostEvent> drag(Instance& plugin, HWND window, int x, int y, int dy) {
    POINT at = {x, y};
    ClientToScreen(window, &at);
    heard.clear();
    moveMouse(at.x, at.y);
    pump(plugin, 60);
    pressMouse(true);
    pump(plugin, 60);
    for (int step = 1; step <= 10 && dy; ++step) {
        moveMouse(at.x, at.y + dy * step / 10);
        pump(plugin, 30);
    }
    pressMouse(false);
    pump(plugin, 100);
    return heard;
}

LRESULT CALLBACK topProcedure(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_CLOSE) return 0;
    return DefWindowProcW(hwnd, message, wParam, lParam);
}

void report(const char* what, const std::vector<HostEvent>& events) {
    std::printf("%s: host heard", what);
    int automates = 0;
    float last = -1;
    for (const auto& event : events) {
        if (event.opcode == audioMasterAutomate) {
            ++automates;
            last = event.value;
        }
    }
    if (!events.empty())
        std::printf(" %s", events.front().opcode == audioMasterBeginEdit ? "beginEdit," : "(no beginEdit),");
    std::printf(" %d automate calls, last value %g%s\n", automates, double(last),
                !events.empty() && events.back().opcode == audioMasterEndEdit ? ", endEdit" : "");
}

int runEditor(const std::string& path, int argc, char** argv) {
    std::string screenshotPath, referencePath;
    for (int i = 0; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--screenshot") == 0) screenshotPath = argv[i + 1];
        else if (std::strcmp(argv[i], "--reference") == 0) referencePath = argv[i + 1];
    }
    Module module(path);
    Instance plugin(module);
    plugin.start(48000.0f, 256);
    ERect* rect = nullptr;
    plugin.dispatch(effEditGetRect, 0, 0, &rect);
    if (!rect) {
        std::printf("FAILED: no editor rectangle\n");
        return 1;
    }
    const int width = rect->right - rect->left, height = rect->bottom - rect->top;

    WNDCLASSEXW windowClass{};
    windowClass.cbSize = sizeof(windowClass);
    windowClass.lpfnWndProc = topProcedure;
    windowClass.hInstance = GetModuleHandleW(nullptr);
    windowClass.lpszClassName = L"ormWinHost";
    RegisterClassExW(&windowClass);
    RECT frame = {0, 0, width, height};
    AdjustWindowRect(&frame, WS_OVERLAPPEDWINDOW, FALSE);
    HWND top = CreateWindowExW(0, L"ormWinHost", L"orm-win-host", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0,
                               frame.right - frame.left, frame.bottom - frame.top, nullptr, nullptr,
                               GetModuleHandleW(nullptr), nullptr);
    check(top != nullptr, "no window of the host's own");
    if (!top) return 1;
    SetForegroundWindow(top);
    check(plugin.dispatch(effEditOpen, 0, 0, top) == 1, "effEditOpen did not open the editor");
    pump(plugin, 500);
    HWND child = GetWindow(top, GW_CHILD);
    check(child != nullptr, "the editor made no child window in the host's window");
    if (!child) return 1;
    RECT childRect;
    GetClientRect(child, &childRect);
    std::printf("editor: child window %dx%d in the host's window\n", int(childRect.right), int(childRect.bottom));

    const Screenshot opened = shoot(child, width, height);
    if (!screenshotPath.empty()) {
        stbi_write_png(screenshotPath.c_str(), width, height, 3, opened.rgb.data(), width * 3);
        std::printf("editor: screenshot %s\n", screenshotPath.c_str());
    }
    if (!referencePath.empty()) {
        Screenshot reference;
        int channels = 0;
        unsigned char* pixels = stbi_load(referencePath.c_str(), &reference.width, &reference.height, &channels, 3);
        check(pixels && reference.width == width && reference.height == height, "cannot read " + referencePath);
        if (pixels) {
            reference.rgb.assign(pixels, pixels + size_t(reference.width) * size_t(reference.height) * 3);
            stbi_image_free(pixels);
            const size_t off = differingPixels(opened, reference, 2), distant = differingPixels(opened, reference, 16);
            std::printf("editor: against %s, %zu pixels differ by more than 2 levels, %zu by more than 16\n",
                        referencePath.c_str(), off, distant);
            check(distant == 0 && off < size_t(width) * size_t(height) / 100, "the panel does not look like the Linux one");
        }
    }

    // The Volume knob (parameter 0, 66 pixels square at 281, 272) dragged 60 pixels up: a linear
    // knob sweeps its range in 200 pixels, so 0.5 becomes 0.8.
    const float volumeBefore = plugin.effect->getParameter(plugin.effect, 0);
    std::vector<HostEvent> events = drag(plugin, child, 281 + 33, 272 + 33, -60);
    report("Volume knob dragged 60 px up", events);
    float last = -1;
    for (const auto& event : events) {
        check(event.index == 0, "an event for another parameter than Volume");
        if (event.opcode == audioMasterAutomate) last = event.value;
    }
    check(!events.empty() && events.front().opcode == audioMasterBeginEdit && events.back().opcode == audioMasterEndEdit,
          "the drag was not one edit (begin, automate, end)");
    check(std::fabs(last - (volumeBefore + 0.3f)) <= 0.011f, "the knob did not send about 0.8");
    check(plugin.effect->getParameter(plugin.effect, 0) == last, "the effect's Volume is not what the host heard");

    // The Stereo switch (parameter 7, 20 by 40 at 778, 304): a click on its lower half turns it on.
    events = drag(plugin, child, 778 + 10, 304 + 30, 0);
    report("Stereo switch clicked", events);
    last = -1;
    for (const auto& event : events)
        if (event.opcode == audioMasterAutomate && event.index == 7) last = event.value;
    check(last == 1.0f, "the Stereo switch did not send 1");
    check(plugin.effect->getParameter(plugin.effect, 7) == 1.0f, "the effect's Stereo is not on");

    const Screenshot moved = shoot(child, width, height);
    check(differingPixels(opened, moved, 16) > 100, "the window did not redraw the moved controls");
    std::printf("editor: parameters after the gestures: Volume %g, Stereo %g\n",
                double(plugin.effect->getParameter(plugin.effect, 0)), double(plugin.effect->getParameter(plugin.effect, 7)));

    plugin.dispatch(effEditClose);
    pump(plugin, 50);
    check(GetWindow(top, GW_CHILD) == nullptr, "the editor's window outlived effEditClose");

    // Opened again: a new window showing the values of now.  Then the host destroys its window
    // first, as some do, and closes the editor after.
    check(plugin.dispatch(effEditOpen, 0, 0, top) == 1, "effEditOpen did not open the editor a second time");
    pump(plugin, 200);
    child = GetWindow(top, GW_CHILD);
    check(child != nullptr && differingPixels(shoot(child, width, height), moved, 2) == 0,
          "the editor opened again does not show the current values");
    DestroyWindow(top);
    pump(plugin, 50);
    plugin.dispatch(effEditClose);
    pump(plugin, 50);
    std::printf("editor: closed, opened again at the current values, closed after the host's window went\n");
    return failures ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::printf("usage: orm-win-host check|render|editor MODULE [options]\n");
        return 2;
    }
    const std::string command = argv[1], module = argv[2];
    int result = 2;
    if (command == "check") result = runCheck(module);
    else if (command == "render") result = runRender(module, argc - 3, argv + 3);
    else if (command == "editor") result = runEditor(module, argc - 3, argv + 3);
    else std::printf("unknown command %s\n", command.c_str());
    if (result == 1) std::printf("orm-win-host %s: %d check(s) failed\n", command.c_str(), failures);
    std::fflush(stdout);
    return result;
}
