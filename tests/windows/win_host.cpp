// orm-win-host: a Windows host of our own that loads orm.dll through LoadLibrary and
// GetProcAddress, as Windows hosts do, and checks it.  Cross-built with the module and run under
// Wine by scripts/windows-test.sh.
//
//   orm-win-host check MODULE
//   orm-win-host render MODULE --out FILE.wav [--seconds S] [--set NAME=VALUE]...
//                [--reference FILE.wav --max-difference X]
//   orm-win-host editor MODULE --screenshot FILE.png [--reference FILE.png]
//
// Exits 1 with "FAILED: ..." lines when a check fails, 2 on a usage error.

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
#include <string>
#include <utility>
#include <vector>

#define STB_IMAGE_STATIC
#define STB_IMAGE_IMPLEMENTATION
#define STBI_ONLY_PNG
#include <stb/stb_image.h>
#define STB_IMAGE_WRITE_STATIC
#define STB_IMAGE_WRITE_IMPLEMENTATION
#include <stb/stb_image_write.h>

#include "plugin/vst2/aeffect.h"
#include "tools/orm-render/Signals.h"

namespace {

const double kRate = 48000;  // orm-render's rate and block, for the Linux references
const int32_t kBlock = 256;
int failures = 0;

void check(bool condition, const std::string& what) {
    if (condition) return;
    std::printf("FAILED: %s\n", what.c_str());
    ++failures;
}

[[noreturn]] void fail(const std::string& what, int status = 1) {
    std::printf("FAILED: %s\n", what.c_str());
    std::exit(status);
}

// `--name value` pairs, each name one of `known`; anything else is a usage error.
std::vector<std::pair<std::string, std::string>> options(int argc, char** argv, const std::vector<std::string>& known) {
    std::vector<std::pair<std::string, std::string>> result;
    for (int i = 0; i < argc; i += 2) {
        if (i + 1 >= argc || std::find(known.begin(), known.end(), argv[i]) == known.end()) {
            std::printf("unknown option, or no value: %s\n", argv[i]);
            std::exit(2);
        }
        result.emplace_back(argv[i], argv[i + 1]);
    }
    return result;
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
    HMODULE handle;
    EntryPoint entry = nullptr, alias = nullptr;

    explicit Module(const std::string& path) : handle(LoadLibraryA(path.c_str())) {
        if (!handle) fail("cannot load " + path + " (error " + std::to_string(GetLastError()) + ")");
        entry = reinterpret_cast<EntryPoint>(reinterpret_cast<void*>(GetProcAddress(handle, "VSTPluginMain")));
        alias = reinterpret_cast<EntryPoint>(reinterpret_cast<void*>(GetProcAddress(handle, "main")));
        if (!entry) fail(path + " exports no VSTPluginMain");
    }
};

struct Instance {
    AEffect* effect;
    std::vector<std::string> names;

    explicit Instance(const Module& module) : effect(module.entry(hostCallback)) {
        if (!effect || effect->magic != kEffectMagic) fail("VSTPluginMain made no effect");
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
    float get(int32_t index) { return effect->getParameter(effect, index); }
    void start() {
        dispatch(effSetSampleRate, 0, 0, nullptr, float(kRate));
        dispatch(effSetBlockSize, 0, kBlock);
        dispatch(effMainsChanged, 0, 1);
    }
    // By the parameter's name, or by its first eight letters (as long as a name may be).
    void set(const std::string& name, float value) {
        for (size_t i = 0; i < names.size(); ++i)
            if (names[i] == name || (names[i].size() == 8 && name.compare(0, 8, names[i]) == 0))
                return effect->setParameter(effect, int32_t(i), value);
        fail("no parameter " + name, 2);
    }
    void process(float** in, float** out, int32_t frames) { effect->processReplacing(effect, in, out, frames); }
};

// Starts the instance and runs the two inputs through it in blocks; the two outputs.
std::vector<std::vector<float>> play(Instance& plugin, std::vector<float> left, std::vector<float> right) {
    std::vector<std::vector<float>> out(2, std::vector<float>(left.size()));
    plugin.start();
    for (size_t done = 0; done < left.size(); done += size_t(kBlock)) {
        float* in[2] = {left.data() + done, right.data() + done};
        float* outs[2] = {out[0].data() + done, out[1].data() + done};
        plugin.process(in, outs, int32_t(std::min(left.size() - done, size_t(kBlock))));
    }
    return out;
}

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

// --- WAV files: 32-bit float, written and read here ---------------------------------------------

// The header as this host writes it (little-endian, as Windows is; no padding between fields).
struct WavHeader {
    char riff[4] = {'R', 'I', 'F', 'F'};
    uint32_t riffSize = 0;
    char wave[8] = {'W', 'A', 'V', 'E', 'f', 'm', 't', ' '};
    uint32_t fmtSize = 16;
    uint16_t format = 3, channels = 0;  // IEEE float
    uint32_t rate = 0, bytesPerSecond = 0;
    uint16_t blockAlign = 0, bits = 32;
    char data[4] = {'d', 'a', 't', 'a'};
    uint32_t dataSize = 0;
};
static_assert(sizeof(WavHeader) == 44, "the header has no padding");

bool writeWav(const std::string& path, const std::vector<std::vector<float>>& channels) {
    WavHeader header;
    header.channels = uint16_t(channels.size());
    header.rate = uint32_t(kRate);
    header.blockAlign = uint16_t(header.channels * 4);
    header.bytesPerSecond = header.rate * header.blockAlign;
    header.dataSize = uint32_t(channels[0].size()) * header.blockAlign;
    header.riffSize = 36 + header.dataSize;
    std::vector<float> interleaved;
    for (size_t i = 0; i < channels[0].size(); ++i)
        for (const auto& channel : channels) interleaved.push_back(channel[i]);
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(&header), sizeof(header));
    out.write(reinterpret_cast<const char*>(interleaved.data()), std::streamsize(header.dataSize));
    return bool(out);
}

// A 32-bit float WAV (as libsndfile writes it: other chunks around) as channels; empty when the
// file is anything else.
std::vector<std::vector<float>> readWav(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    const std::string b((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    auto get = [&](size_t at, size_t bytes) {
        uint32_t value = 0;
        std::memcpy(&value, &b[at], bytes);
        return value;
    };
    std::vector<std::vector<float>> channels;
    if (b.size() < 12 || b.compare(0, 4, "RIFF") != 0 || b.compare(8, 4, "WAVE") != 0) return channels;
    uint32_t count = 0, bits = 0, format = 0;
    for (size_t at = 12; at + 8 <= b.size();) {
        const std::string id = b.substr(at, 4);
        const uint32_t size = get(at + 4, 4);
        if (at + 8 + size > b.size()) break;
        if (id == "fmt " && size >= 16) {
            format = get(at + 8, 2);
            count = get(at + 10, 2);
            bits = get(at + 22, 2);
            if (format == 0xfffe && size >= 26) format = get(at + 32, 2);  // extensible
        } else if (id == "data" && format == 3 && bits == 32 && count > 0) {
            channels.assign(count, std::vector<float>(size / (4 * count)));
            for (size_t i = 0; i < channels[0].size(); ++i)
                for (uint32_t c = 0; c < count; ++c) std::memcpy(&channels[c][i], &b[at + 8 + (i * count + c) * 4], 4);
            return channels;
        }
        at += 8 + size + (size & 1);
    }
    return channels;
}

// --- check: identity, parameters, exports, the stereo rule -------------------------------------

int runCheck(const std::string& path) {
    Module module(path);
    check(module.alias == module.entry, "\"main\" is not the same function as VSTPluginMain");
    const ImageTables tables = readImageTables(module.handle);
    std::vector<std::string> sorted = tables.exports;
    std::sort(sorted.begin(), sorted.end());
    check(sorted == std::vector<std::string>({"VSTPluginMain", "main"}), "exports are not exactly VSTPluginMain and main");
    // Only Windows' own DLLs: the compiler's run-time libraries are inside the module.
    for (std::string name : tables.imports) {
        for (char& c : name) c = char(std::tolower(static_cast<unsigned char>(c)));
        for (const char* runtime : {"libstdc++", "libgcc", "winpthread"})
            check(name.find(runtime) == std::string::npos, "the module needs " + name);
    }

    // Creation gives the host's thread its floating-point mode back as it was.
    const unsigned denormalBits = (1u << 15) | (1u << 6);
    _mm_setcsr(_mm_getcsr() & ~denormalBits);
    const unsigned callersMode = _mm_getcsr();
    Instance plugin(module);
    const AEffect& e = *plugin.effect;
    check(_mm_getcsr() == callersMode, "VSTPluginMain changed the caller's MXCSR");
    check(versionQueries == 1, "VSTPluginMain did not ask the host's version once");
    char vendor[64] = {0};
    plugin.dispatch(effGetVendorString, 0, 0, vendor);
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
    for (int i = 0; i < 8 && i < e.numParams; ++i) {
        check(plugin.names[size_t(i)] == expected[i], std::string("parameter name ") + expected[i]);
        check(plugin.get(i) == defaults[i], std::string("default of ") + expected[i]);
    }
    // The editor's size, from the panel picture the module carries as a resource.
    ERect* rect = nullptr;
    plugin.dispatch(effEditGetRect, 0, 0, &rect);
    check(rect && rect->right - rect->left == 1000 && rect->bottom - rect->top == 400,
          "the editor is not 1000 by 400 (its picture not found among the module's resources?)");

    // The stereo rule: with Stereo off both outputs carry the first channel's result; on, each
    // side its own (the right input silent here).
    for (float stereo : {0.0f, 1.0f}) {
        Instance instance(module);
        instance.set("Stereo", stereo);
        const auto out = play(instance, orm_render::makeSignal("riff", kRate, 8192), std::vector<float>(8192));
        check(*std::max_element(out[0].begin(), out[0].end()) > 1e-3, "the first output is silent");
        check((out[0] == out[1]) == (stereo == 0.0f), stereo ? "Stereo on: the outputs are equal"
                                                             : "Stereo off: the outputs are not both the first channel's");
    }
    return failures ? 1 : 0;
}

// --- render: the riff through the module, to a file, against a reference -----------------------

int runRender(const std::string& path, int argc, char** argv) {
    std::string out, reference;
    double seconds = 4, maxDifference = -1;
    std::vector<std::pair<std::string, float>> settings;
    const std::vector<std::string> known = {"--out", "--seconds", "--set", "--reference", "--max-difference"};
    for (const auto& [option, value] : options(argc, argv, known)) {
        const size_t equals = value.find('=');
        if (option == "--out") out = value;
        else if (option == "--seconds") seconds = std::atof(value.c_str());
        else if (option == "--reference") reference = value;
        else if (option == "--max-difference") maxDifference = std::atof(value.c_str());
        else if (equals != std::string::npos)
            settings.emplace_back(value.substr(0, equals), float(std::atof(&value[equals + 1])));
        else fail("--set needs NAME=VALUE", 2);
    }
    if (out.empty()) fail("render needs --out FILE", 2);

    Module module(path);
    Instance plugin(module);
    for (const auto& setting : settings) plugin.set(setting.first, setting.second);
    // The riff feeds both inputs, as orm-render feeds a mono source to every input.
    const std::vector<float> input = orm_render::makeSignal("riff", kRate, size_t(seconds * kRate));
    const size_t frames = input.size();
    const std::vector<std::vector<float>> result = play(plugin, input, input);
    check(writeWav(out, result), "cannot write " + out);
    for (const auto& channel : result)
        check(std::all_of(channel.begin(), channel.end(), [](float x) { return std::isfinite(x); }),
              "the output holds a sample that is not finite");
    if (reference.empty() || failures) return failures ? 1 : 0;

    const auto expected = readWav(reference);
    check(expected.size() == 2 && expected[0].size() == frames, "the reference is not a stereo float WAV as long");
    if (failures) return 1;
    double worst = 0, peak = 0;
    for (size_t c = 0; c < 2; ++c)
        for (size_t i = 0; i < frames; ++i) {
            worst = std::max(worst, double(std::fabs(result[c][i] - expected[c][i])));
            peak = std::max(peak, double(std::fabs(expected[c][i])));
        }
    std::printf("%s against %s: worst sample difference %.3g at peak %.3g\n", out.c_str(), reference.c_str(), worst, peak);
    if (maxDifference >= 0) check(worst <= maxDifference, "the render differs from the reference");
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
    for (size_t i = 0; i < size_t(width) * size_t(height); ++i)
        for (size_t c = 0; c < 3; ++c) shot.rgb[3 * i + c] = (pixels[i] >> (16 - 8 * c)) & 0xff;
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

void mouse(DWORD flags, int x = 0, int y = 0) {
    // Absolute coordinates in 1/65536 of the screen, rounded so that they land on pixel (x, y).
    const int width = GetSystemMetrics(SM_CXSCREEN), height = GetSystemMetrics(SM_CYSCREEN);
    INPUT input{};
    input.type = INPUT_MOUSE;
    input.mi.dx = LONG((int64_t(x) * 65536 + width - 1) / width);
    input.mi.dy = LONG((int64_t(y) * 65536 + height - 1) / height);
    input.mi.dwFlags = flags;
    SendInput(1, &input, sizeof(input));
}

// Press at the window's (x, y), move by dy in ten steps, release: what the host heard.
std::vector<HostEvent> drag(Instance& plugin, HWND window, int x, int y, int dy) {
    POINT at = {x, y};
    ClientToScreen(window, &at);
    heard.clear();
    const DWORD move = MOUSEEVENTF_MOVE | MOUSEEVENTF_ABSOLUTE;
    mouse(move, at.x, at.y);
    pump(plugin, 60);
    mouse(MOUSEEVENTF_LEFTDOWN);
    pump(plugin, 60);
    for (int step = 1; step <= 10 && dy; ++step) {
        mouse(move, at.x, at.y + dy * step / 10);
        pump(plugin, 30);
    }
    mouse(MOUSEEVENTF_LEFTUP);
    pump(plugin, 100);
    return heard;
}

// The last value automated for `index` (-1: none), each event checked to be for that parameter,
// and the gesture one edit: begin, automate, end.
float gesture(const std::vector<HostEvent>& events, int32_t index, const std::string& what) {
    float last = -1;
    for (const auto& event : events) {
        check(event.index == index, what + ": an event for another parameter");
        if (event.opcode == audioMasterAutomate) last = event.value;
    }
    check(!events.empty() && events.front().opcode == audioMasterBeginEdit && events.back().opcode == audioMasterEndEdit,
          what + " was not one edit (begin, automate, end)");
    return last;
}

LRESULT CALLBACK topProcedure(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_CLOSE) return 0;
    return DefWindowProcW(hwnd, message, wParam, lParam);
}

int runEditor(const std::string& path, int argc, char** argv) {
    std::string screenshotPath, referencePath;
    for (const auto& [option, value] : options(argc, argv, {"--screenshot", "--reference"}))
        (option == "--screenshot" ? screenshotPath : referencePath) = value;
    Module module(path);
    Instance plugin(module);
    plugin.start();
    ERect* rect = nullptr;
    plugin.dispatch(effEditGetRect, 0, 0, &rect);
    if (!rect) fail("no editor rectangle");
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
    if (!top) fail("no window of the host's own");
    SetForegroundWindow(top);
    check(plugin.dispatch(effEditOpen, 0, 0, top) == 1, "effEditOpen did not open the editor");
    pump(plugin, 500);
    HWND child = GetWindow(top, GW_CHILD);
    if (!child) fail("the editor made no child window in the host's window");

    const Screenshot opened = shoot(child, width, height);
    if (!screenshotPath.empty()) stbi_write_png(screenshotPath.c_str(), width, height, 3, opened.rgb.data(), width * 3);
    if (!referencePath.empty()) {
        Screenshot reference;
        int channels = 0;
        unsigned char* pixels = stbi_load(referencePath.c_str(), &reference.width, &reference.height, &channels, 3);
        check(pixels && reference.width == width && reference.height == height, "cannot read " + referencePath);
        if (pixels) {
            reference.rgb.assign(pixels, pixels + size_t(reference.width) * size_t(reference.height) * 3);
            stbi_image_free(pixels);
            check(differingPixels(opened, reference, 16) == 0 &&
                      differingPixels(opened, reference, 2) < size_t(width) * size_t(height) / 100,
                  "the panel does not look like the Linux one");
        }
    }

    // The Volume knob (parameter 0, 66 pixels square at 281, 272) dragged 60 pixels up: a linear
    // knob sweeps its range in 200 pixels, so 0.5 becomes 0.8.
    const float volumeBefore = plugin.get(0);
    const float volume = gesture(drag(plugin, child, 281 + 33, 272 + 33, -60), 0, "the Volume drag");
    check(std::fabs(volume - (volumeBefore + 0.3f)) <= 0.011f, "the knob did not send about 0.8");
    check(plugin.get(0) == volume, "the effect's Volume is not what the host heard");
    // The Stereo switch (parameter 7, 20 by 40 at 778, 304): a click on its lower half turns it on.
    check(gesture(drag(plugin, child, 778 + 10, 304 + 30, 0), 7, "the Stereo click") == 1.0f,
          "the Stereo switch did not send 1");
    check(plugin.get(7) == 1.0f, "the effect's Stereo is not on");
    const Screenshot moved = shoot(child, width, height);
    check(differingPixels(opened, moved, 16) > 100, "the window did not redraw the moved controls");

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
    if (result != 2) std::printf("orm-win-host %s: %s\n", command.c_str(), failures ? "FAILED" : "passed");
    std::fflush(stdout);
    return result;
}
