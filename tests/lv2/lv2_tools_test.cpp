// The bundle through the LV2 project's own tools: the validator, lilv's lv2info and lv2apply,
// Ardour's headless tools, and jalv showing the UI.  A tool that is not installed skips its test
// with a message (scripts/setup.sh installs them all).

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "lv2/Lv2Host.h"
#include "support/XServer.h"

namespace fs = std::filesystem;

namespace {

using namespace lv2host;

const std::string kBundle = ORM_LV2_BUNDLE;
const std::string kUri = orm_lv2::kPluginUri;

// The bundle's folder first, then the system's specifications (lilv needs the core's classes).
std::string lv2Path() { return fs::path(kBundle).parent_path().string() + ":/usr/lib/lv2:/usr/local/lib/lv2"; }

bool haveTool(const std::string& name) { return std::system(("command -v " + name + " > /dev/null 2>&1").c_str()) == 0; }

#define REQUIRE_TOOL(name)                                                                               \
    if (!haveTool(name)) GTEST_SKIP() << name " is not installed (bash scripts/setup.sh installs it)"

// Tools outside the build cannot load a library built with the sanitizers.
#ifdef ORM_SANITIZED
#define REQUIRE_PLAIN_BUILD() GTEST_SKIP() << "the plug-in library is built with sanitizers; the Release run covers this"
#else
#define REQUIRE_PLAIN_BUILD() (void)0
#endif

struct Result {
    int status = -1;
    std::string output;
    bool has(const std::string& piece) const { return output.find(piece) != std::string::npos; }
};

// Runs a shell command line with LV2_PATH set to the bundle's folder; stdout and stderr together.
Result run(const std::string& command) {
    Result result;
    FILE* pipe = popen(("LV2_PATH='" + lv2Path() + "' " + command + " 2>&1").c_str(), "r");
    if (!pipe) return result;
    char buffer[4096];
    size_t length;
    while ((length = fread(buffer, 1, sizeof(buffer), pipe)) > 0) result.output.append(buffer, length);
    const int status = pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

fs::path workDirectory() {
    fs::path directory = fs::temp_directory_path() / ("orm-lv2-tools-" + std::to_string(getpid()));
    fs::create_directories(directory);
    return directory;
}

// `a` from frame `from` on sounds as `b`: the hosts here run other block lengths than the VST2
// module's 256, and the engine's output depends on them only where a gliding knob's network is
// recomputed, within float rounding.
void expectSameSound(const std::vector<float>& a, const std::vector<float>& b, size_t from = 0) {
    ASSERT_EQ(a.size(), from + b.size());
    const float loudest = peak(b);
    EXPECT_GT(loudest, 0.01f);
    EXPECT_LE(worstDifference(a, b, from), 1e-6f * loudest);
}

TEST(Lv2Tools, TheValidatorFindsNoErrorAndNoWarning) {
    REQUIRE_TOOL("lv2_validate");
    const Result result = run("lv2_validate '" + kBundle + "/manifest.ttl' '" + kBundle + "/orm.ttl'");
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_TRUE(result.has("Found 0 errors")) << result.output;
    // Every line is the summary or the validator's note about a vocabulary file of its own.
    std::istringstream lines(result.output);
    for (std::string line; std::getline(lines, line);) {
        const bool summary = line.rfind("Found 0 errors", 0) == 0;
        const bool ownNote = line.rfind("Skipping file /usr/", 0) == 0 && line.find(kBundle) == std::string::npos;
        EXPECT_TRUE(summary || ownNote) << line;
    }
}

TEST(Lv2Tools, Lv2infoReadsThePortTableFromTheDescription) {
    REQUIRE_TOOL("lv2info");
    // The hand-written description against the plug-in's port table: symbol, name, range (knobs
    // 0..10, the factor 2..8, toggles 0..1) and default of each control.
    const Result info = run("lv2info '" + kUri + "'");
    ASSERT_EQ(info.status, 0) << info.output;
    const double maxima[8] = {10, 10, 10, 8, 1, 1, 10, 1};
    for (size_t i = 0; i < 8; ++i) {
        const orm_lv2::ControlPort& control = orm_lv2::kControls[i];
        char port[256];
        std::snprintf(port, sizeof(port),
                      "Symbol:      %s\n\t\tName:        %s\n\t\tMinimum:     %f\n\t\tMaximum:     %f\n\t\tDefault:     %f\n",
                      control.symbol, control.name, i == 3 ? 2.0 : 0.0, maxima[i], double(control.defaultValue));
        EXPECT_TRUE(info.has(port)) << port;
    }
}

TEST(Lv2Tools, Lv2applyRendersTheCornersAsTheVst2ModuleDoes) {
    REQUIRE_TOOL("lv2apply");
    REQUIRE_PLAIN_BUILD();
    // The phrase in a file of two channels for the stereo plug-in, of one for the mono one; the
    // VST2 module plays it in orm-render, which feeds one channel to both inputs.
    const fs::path directory = workDirectory();
    const Stereo input = phrase(size_t(kRate));
    const std::string files[2] = {(directory / "phrase2.wav").string(), (directory / "phrase1.wav").string()};
    ASSERT_TRUE(writeWav(files[0], {input.left, input.right}));
    ASSERT_TRUE(writeWav(files[1], {input.left}));
    const std::string lv2 = (directory / "lv2.wav").string(), vst2 = (directory / "vst2.wav").string();
    for (const Setting& setting : settings) {
        SCOPED_TRACE(setting.what);
        const std::string& in = files[setting.mono];
        std::string apply = "lv2apply -i '" + in + "' -o '" + lv2 + "'";
        std::string render = std::string(ORM_RENDER_PATH) + " --quiet --tail 0 --in '" + in + "' --out '" + vst2 + "'";
        for (uint32_t i = 0; i < orm_lv2::kControlPorts; ++i) {
            apply += " -c " + std::string(orm_lv2::kControls[i].symbol) + " " + std::to_string(setting.ports[i]);
            render += " --set " + std::to_string(i) + "=" + std::to_string(vst2Value(i, setting.ports[i]));
        }
        apply += " '" + kUri + (setting.mono ? "#mono" : "") + "'";
        const Result applied = run(apply), rendered = run(render);
        ASSERT_EQ(applied.status, 0) << apply << "\n" << applied.output;
        ASSERT_EQ(rendered.status, 0) << render << "\n" << rendered.output;
        // lv2apply runs one frame at a time, orm-render blocks of 256.
        const auto a = readWav(lv2), b = readWav(vst2);
        ASSERT_EQ(a.size(), setting.mono ? 1u : 2u);
        ASSERT_EQ(b.size(), 2u);
        for (size_t channel = 0; channel < a.size(); ++channel) expectSameSound(a[channel], b[channel]);
    }
}

TEST(Lv2Tools, ArdourRendersATrackThroughThePlugInAsLv2applyDoes) {
    REQUIRE_TOOL("ardour7-lua");
    REQUIRE_TOOL("ardour7-export");
    REQUIRE_TOOL("lv2apply");
    REQUIRE_PLAIN_BUILD();
    const fs::path directory = workDirectory() / "render";  // the session is named as its folder
    fs::remove_all(directory);
    const std::string uri = kUri + "#mono";
    // Ardour records a take on its dummy back-end, puts the plug-in on the track and saves.
    const Result session = run("ORM_SESSION_DIR='" + directory.string() + "' ORM_SESSION_NAME=render ORM_PLUGIN_URI='" +
                               uri + "' timeout 300 ardour7-lua '" + ORM_SOURCE_DIR + "/tests/lv2/ardour_session.lua'");
    ASSERT_EQ(session.status, 0) << session.output;
    ASSERT_TRUE(session.has("plugin orm mono: volume 7.0, oversampling 8.0")) << session.output;
    const std::string exported = (directory / "export.wav").string();
    // ardour7-export of Ardour 7.3 ends now and then in a heap error or hangs, with or without this
    // plug-in in the session (seen on an empty track too): a few attempts.
    Result render;
    for (int attempt = 0; attempt < 6 && render.status != 0; ++attempt)
        render = run("timeout 120 ardour7-export -b float -o '" + exported + "' '" + directory.string() + "' render");
    ASSERT_EQ(render.status, 0) << render.output;
    fs::path take;
    for (const auto& entry : fs::directory_iterator(directory / "interchange" / "render" / "audiofiles"))
        if (entry.path().extension() == ".wav") take = entry.path();
    ASSERT_FALSE(take.empty()) << "no recorded take";
    // Ardour's export runs the plug-in through a pre-roll of silence before the take, in which the
    // tube stages drift to their operating points.  lv2apply gets the same: two seconds of silence
    // before the take, cut off again before the comparison.  Without them the cold start differs
    // for the first half second or more, as long as the amplifier takes to settle.
    auto recorded = readWav(take.string());
    ASSERT_EQ(recorded.size(), 1u);
    const size_t lead = 96000;
    recorded[0].insert(recorded[0].begin(), lead, 0.0f);
    const std::string padded = (directory / "take-after-silence.wav").string();
    const std::string applied = (directory / "lv2apply.wav").string();
    ASSERT_TRUE(writeWav(padded, recorded));
    const Result apply =
        run("lv2apply -i '" + padded + "' -o '" + applied + "' -c volume 7 -c oversampling 8 '" + uri + "'");
    ASSERT_EQ(apply.status, 0) << apply.output;
    const auto a = readWav(applied), b = readWav(exported);
    ASSERT_EQ(a.size(), 1u);
    ASSERT_GE(b.size(), 1u);
    ASSERT_GT(b[0].size(), 48000u);  // the dummy back-end runs in real time: the take is about as long as asked
    expectSameSound(a[0], b[0], lead);
}

// A child process with its output thrown away; ended by SIGTERM.
struct Child {
    pid_t pid = 0;
    explicit Child(std::vector<std::string> arguments) {
        std::vector<char*> argv;
        for (auto& a : arguments) argv.push_back(&a[0]);
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
        if (posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) pid = 0;
        posix_spawn_file_actions_destroy(&actions);
    }
    bool running() { return pid && waitpid(pid, nullptr, WNOHANG) == 0; }
    ~Child() {
        if (!pid) return;
        kill(pid, SIGTERM);
        for (int i = 0; i < 100 && waitpid(pid, nullptr, WNOHANG) == 0; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
};

// The first window of the given size in the tree under `window`.
Window findWindow(Display* display, Window window, int width, int height) {
    XWindowAttributes attributes;
    if (XGetWindowAttributes(display, window, &attributes) && attributes.width == width &&
        attributes.height == height && attributes.map_state == IsViewable)
        return window;
    Window root, parent, *children = nullptr;
    unsigned int count = 0;
    Window found = 0;
    if (XQueryTree(display, window, &root, &parent, &children, &count)) {
        for (unsigned int i = 0; i < count && !found; ++i) found = findWindow(display, children[i], width, height);
        if (children) XFree(children);
    }
    return found;
}

TEST(Lv2Tools, JalvShowsTheEditorInItsWindow) {
    REQUIRE_TOOL("jalv.gtk3");
    REQUIRE_TOOL("jackd");
    REQUIRE_PLAIN_BUILD();
    xtest::PrivateServer server;
    server.start();
    if (!server.display) GTEST_SKIP() << "no Xvfb with XTest";
    struct Stop {
        xtest::PrivateServer& server;
        ~Stop() { server.stop(); }
    } stop{server};
    // jalv makes and destroys windows while the tree is walked: a window gone in between is no
    // error of ours (Xlib's default handler would end the test program).
    XSetErrorHandler([](Display*, XErrorEvent*) { return 0; });

    const std::string jackName = "orm-lv2-" + std::to_string(getpid());
    setenv("JACK_DEFAULT_SERVER", jackName.c_str(), 1);
    setenv("LV2_PATH", lv2Path().c_str(), 1);
    Child jack({"jackd", "--no-realtime", "-n", jackName, "-d", "dummy", "-r", "48000", "-p", "256"});
    ASSERT_TRUE(jack.pid) << "jackd did not start";
    std::this_thread::sleep_for(std::chrono::seconds(1));
    ASSERT_TRUE(jack.running()) << "jackd ended at once";
    Child jalv({"jalv.gtk3", kUri});
    ASSERT_TRUE(jalv.pid);

    // The editor is a window of the panel's size inside jalv's.
    Window editor = 0;
    const Window root = DefaultRootWindow(server.display);
    for (int attempt = 0; attempt < 300 && !editor && jalv.running(); ++attempt) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        editor = findWindow(server.display, root, 1000, 400);
    }
    ASSERT_NE(editor, 0u) << "jalv showed no window of the panel's size";
    std::this_thread::sleep_for(std::chrono::milliseconds(500));  // a few of jalv's idle calls draw it
    xtest::Screenshot shot = xtest::grab(server.display, editor, 1000, 400);
    // At the controls' defaults the editor is, pixel for pixel, the VST2 editor's picture.
    const std::string picturePath = std::string(ORM_SOURCE_DIR) + "/docs/editor.png";
    cairo_surface_t* picture = cairo_image_surface_create_from_png(picturePath.c_str());
    ASSERT_EQ(cairo_image_surface_get_width(picture), 1000);
    const unsigned char* data = cairo_image_surface_get_data(picture);
    xtest::Screenshot expected = shot;
    for (int y = 0; y < 400; ++y)
        for (int x = 0; x < 1000; ++x)
            expected.pixels[size_t(y * 1000 + x)] =
                *reinterpret_cast<const uint32_t*>(data + y * cairo_image_surface_get_stride(picture) + x * 4) & 0xffffff;
    cairo_surface_destroy(picture);
    EXPECT_EQ(xtest::compare(shot, expected).count, 0);
}

}  // namespace
