// orm-win-host: a Windows host of our own that loads orm.dll through LoadLibrary and
// GetProcAddress, as Windows hosts do, and checks it.  Cross-built with the module and run under
// Wine by scripts/windows-test.sh, all in one Wine session:
//
//   orm-win-host MODULE PANEL.png [LINUX.wav OVERSAMP CPU]...
//
// checks the module's exports, imports and identity; renders the riff at each OVERSAMP and CPU
// (parameter values) and compares it with LINUX.wav, the Linux module's render of the same; opens
// the editor, compares it with PANEL.png and drags a knob with the mouse.  Exits 1 with
// "FAILED: ..." lines when a check fails, 2 on a usage error.

#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#include <windows.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#define STB_IMAGE_STATIC
#define STB_IMAGE_IMPLEMENTATION
#define STBI_ONLY_PNG
#include <stb/stb_image.h>

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

[[noreturn]] void fail(const std::string& what) {
    std::printf("FAILED: %s\n", what.c_str());
    std::exit(1);
}

// --- the host side of the interface ------------------------------------------------------------

struct HostEvent {
    int32_t opcode, index;
    float value;
};
std::vector<HostEvent> heard;

intptr_t hostCallback(AEffect*, int32_t opcode, int32_t index, intptr_t, void*, float opt) {
    switch (opcode) {
        case audioMasterVersion:
            return 2400;
        case audioMasterAutomate:
        case audioMasterBeginEdit:
        case audioMasterEndEdit:
            heard.push_back({opcode, index, opt});
            return 1;
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

    explicit Instance(const Module& module) : effect(module.entry(hostCallback)) {
        if (!effect || effect->magic != kEffectMagic) fail("VSTPluginMain made no effect");
        dispatch(effOpen);
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
};

// --- check: exports, imports, identity ----------------------------------------------------------

// The parameters' ranges and defaults and the stereo rule are the same code as on Linux, where the
// plugin suite checks them; here what the Windows build decides, and that the module answers.
void checkModule(const Module& module) {
    check(module.alias == module.entry, "\"main\" is not the same function as VSTPluginMain");
    // What the module's PE image exports, and which DLLs it needs (it exports VSTPluginMain, and
    // imports at least the system's: both directories are there).
    const auto* base = reinterpret_cast<const unsigned char*>(module.handle);
    const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS64*>(
        base + reinterpret_cast<const IMAGE_DOS_HEADER*>(base)->e_lfanew);
    const IMAGE_DATA_DIRECTORY* directories = nt->OptionalHeader.DataDirectory;
    const auto* exports =
        reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(base + directories[IMAGE_DIRECTORY_ENTRY_EXPORT].VirtualAddress);
    const auto* nameTable = reinterpret_cast<const DWORD*>(base + exports->AddressOfNames);
    std::vector<std::string> names;
    for (DWORD i = 0; i < exports->NumberOfNames; ++i) names.emplace_back(reinterpret_cast<const char*>(base + nameTable[i]));
    std::sort(names.begin(), names.end());
    check(names == std::vector<std::string>({"VSTPluginMain", "main"}), "exports are not exactly VSTPluginMain and main");
    // Only Windows' own DLLs: the compiler's run-time libraries are inside the module.
    for (const auto* entry = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(
             base + directories[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress);
         entry->Name; ++entry) {
        std::string name = reinterpret_cast<const char*>(base + entry->Name);
        for (char& c : name) c = char(std::tolower(static_cast<unsigned char>(c)));
        for (const char* runtime : {"libstdc++", "libgcc", "winpthread"})
            check(name.find(runtime) == std::string::npos, "the module needs " + name);
    }

    Instance plugin(module);
    const AEffect& e = *plugin.effect;
    char vendor[64] = {0};
    plugin.dispatch(effGetVendorString, 0, 0, vendor);
    check(e.uniqueID == 0x71377674 && std::string(vendor) == "Tarnvale", "unique id and vendor");
    check(e.numInputs == 2 && e.numOutputs == 2 && e.numParams == 8, "two inputs, two outputs, eight parameters");
    check(plugin.dispatch(effGetVendorVersion) == 1100 && plugin.dispatch(effGetVstVersion) == 2400, "versions");
    std::string parameters;
    for (int32_t i = 0; i < e.numParams; ++i) {
        char text[64] = {0};
        plugin.dispatch(effGetParamName, i, 0, text);
        parameters += std::string(text) + " ";
    }
    check(parameters == "Volume Feedback Output Oversamp Cabinet CPU Input Stereo ", "parameter names: " + parameters);
    // The editor's size, from the panel picture the module carries as a resource.
    ERect* rect = nullptr;
    plugin.dispatch(effEditGetRect, 0, 0, &rect);
    check(rect && rect->right - rect->left == 1000 && rect->bottom - rect->top == 400,
          "the editor is not 1000 by 400 (its picture not found among the module's resources?)");
}

// --- render: the riff through the module against the Linux module's render ----------------------

// The samples of orm-render's stereo 32-bit float WAV, interleaved: its data chunk, found among
// the other chunks libsndfile writes.
std::vector<float> readWav(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    const std::string b((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    for (size_t at = 12; at + 8 <= b.size();) {
        uint32_t size = 0;
        std::memcpy(&size, &b[at + 4], 4);
        if (b.compare(at, 4, "data") == 0) {
            std::vector<float> samples(std::min<size_t>(size, b.size() - at - 8) / 4);
            std::memcpy(samples.data(), &b[at + 8], samples.size() * 4);
            return samples;
        }
        at += 8 + size + (size & 1);
    }
    return {};
}

// The riff, as long as the reference, feeds both inputs as orm-render feeds a mono source to
// every input.  Rounding in the C libraries' maths may differ between systems, far below what a
// listener or any test of the sound could notice.
void checkRender(const Module& module, const std::string& reference, float oversampling, float cpu) {
    const std::vector<float> expected = readWav(reference);
    const size_t frames = expected.size() / 2;
    std::vector<float> input = orm_render::makeSignal("riff", kRate, frames);
    std::vector<std::vector<float>> out(2, std::vector<float>(frames));
    Instance plugin(module);
    plugin.effect->setParameter(plugin.effect, 3, oversampling);
    plugin.effect->setParameter(plugin.effect, 5, cpu);
    plugin.start();
    for (size_t done = 0; done < frames; done += size_t(kBlock)) {
        float* in[2] = {input.data() + done, input.data() + done};
        float* outs[2] = {out[0].data() + done, out[1].data() + done};
        plugin.effect->processReplacing(plugin.effect, in, outs, int32_t(std::min(frames - done, size_t(kBlock))));
    }
    double worst = 0, peak = 0;
    for (size_t i = 0; i < 2 * frames; ++i) {
        const double difference = std::fabs(double(out[i % 2][i / 2]) - expected[i]);
        if (!(difference <= worst)) worst = difference;  // a NaN sticks, and fails below
        peak = std::max(peak, double(std::fabs(expected[i])));
    }
    check(frames > kRate && peak > 0.01 && worst <= 1e-4,
          "the render differs from " + reference + " by " + std::to_string(worst) + " at most");
}

// --- editor: a window of ours, the plug-in's child in it, the mouse moved by SendInput -----------

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

// Points on a 10-pixel grid of the window whose colour differs from `picture` (RGB rows as wide
// as the window) by more than `tolerance` in a channel.
int differingPixels(HWND window, const unsigned char* picture, int width, int height, int tolerance) {
    HDC dc = GetDC(window);
    int count = 0;
    for (int y = 0; y < height; y += 10)
        for (int x = 0; x < width; x += 10) {
            const COLORREF colour = GetPixel(dc, x, y);
            const unsigned char* expected = picture + 3 * (size_t(y) * size_t(width) + size_t(x));
            count += std::abs(GetRValue(colour) - expected[0]) > tolerance ||
                     std::abs(GetGValue(colour) - expected[1]) > tolerance ||
                     std::abs(GetBValue(colour) - expected[2]) > tolerance;
        }
    ReleaseDC(window, dc);
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

void checkEditor(const Module& module, const std::string& referencePath) {
    Instance plugin(module);
    plugin.start();
    ERect* rect = nullptr;
    plugin.dispatch(effEditGetRect, 0, 0, &rect);
    if (!rect) fail("no editor rectangle");
    const int width = rect->right - rect->left, height = rect->bottom - rect->top;

    WNDCLASSEXW windowClass{};
    windowClass.cbSize = sizeof(windowClass);
    windowClass.lpfnWndProc = DefWindowProcW;
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

    // The panel as on Linux (its picture: the Linux editor's screenshot), but for rounding.
    int pictureWidth = 0, pictureHeight = 0, channels = 0;
    unsigned char* picture = stbi_load(referencePath.c_str(), &pictureWidth, &pictureHeight, &channels, 3);
    if (!picture || pictureWidth != width || pictureHeight != height) fail("cannot read " + referencePath);
    check(differingPixels(child, picture, width, height, 16) == 0, "the panel does not look like the Linux one");

    // The Volume knob (parameter 0, 66 pixels square at 281, 272) dragged 60 pixels up: a linear
    // knob sweeps its range in 200 pixels, so 0.5 becomes 0.8.
    const float volumeBefore = plugin.get(0);
    const float volume = gesture(drag(plugin, child, 281 + 33, 272 + 33, -60), 0, "the Volume drag");
    check(std::fabs(volume - (volumeBefore + 0.3f)) <= 0.011f, "the knob did not send about 0.8");
    check(plugin.get(0) == volume, "the effect's Volume is not what the host heard");
    check(differingPixels(child, picture, width, height, 16) > 0, "the window did not redraw the moved knob");
    stbi_image_free(picture);

    plugin.dispatch(effEditClose);
    pump(plugin, 50);
    check(GetWindow(top, GW_CHILD) == nullptr, "the editor's window outlived effEditClose");
    DestroyWindow(top);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3 || (argc - 3) % 3 != 0) {
        std::printf("usage: orm-win-host MODULE PANEL.png [LINUX.wav OVERSAMP CPU]...\n");
        return 2;
    }
    const Module module(argv[1]);
    checkModule(module);
    for (int i = 3; i < argc; i += 3)
        checkRender(module, argv[i], float(std::atof(argv[i + 1])), float(std::atof(argv[i + 2])));
    checkEditor(module, argv[2]);
    std::printf("orm-win-host: %s\n", failures ? "FAILED" : "passed");
    return failures ? 1 : 0;
}
