// orm-jack as a user runs it, on a private JACK server with the dummy back-end: the amplifier
// played by a test client of ours and recorded by another, compared with orm-render's render of
// the same input; Ctrl-C ending it cleanly; settings remembered between runs and written whole,
// a damaged file kept aside and replaced by the defaults; its window showing the panel, a knob
// dragged with the mouse reaching the amplifier, the window manager's close ending it cleanly.
// It skips, saying why, where jackd or Xvfb cannot start.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <jack/jack.h>
#include <signal.h>
#include <sndfile.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "editor/PanelComposition.h"
#include "support/XServer.h"
#include "tools/orm-render/Signals.h"

extern char** environ;

namespace fs = std::filesystem;

namespace {

const int kRate = 48000;
const jack_nframes_t kPeriod = 256;

std::string readText(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

pid_t spawn(std::vector<std::string> arguments, const fs::path& out, const fs::path& err) {
    std::vector<char*> argv;
    for (auto& a : arguments) argv.push_back(&a[0]);
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    pid_t pid = 0;
    if (posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) pid = 0;
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

// Sends the signal and waits up to `seconds` for the exit; its status, or -1 after a forced end.
int finish(pid_t pid, int signal, double seconds) {
    if (pid <= 0) return -1;
    kill(pid, signal);
    int status = 0;
    for (int i = 0; i < int(seconds * 100); ++i) {
        if (waitpid(pid, &status, WNOHANG) == pid) return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
    return -1;
}

bool waitFor(const std::function<bool()>& done, double seconds) {
    for (int i = 0; i < int(seconds * 100); ++i) {
        if (done()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return done();
}

bool probe() {
    jack_client_t* client = jack_client_open("orm-test-probe", JackNoStartServer, nullptr);
    if (client) jack_client_close(client);
    return client != nullptr;
}

// jackd on the dummy back-end under a name of its own, so parallel runs and a user's server
// stay apart.  Synchronous mode: every period runs the whole graph, however loaded the machine,
// so that the recording is complete; no realtime scheduling, which a test user may not have.
struct Server {
    pid_t pid = 0;
    std::string why;  // why it could not start

    bool start(const fs::path& log) {
        // The probes below fail until the server listens; libjack would say so at length.
        jack_set_error_function([](const char*) {});
        jack_set_info_function([](const char*) {});
        setenv("JACK_DEFAULT_SERVER", ("orm-test-" + std::to_string(getpid())).c_str(), 1);
        setenv("JACK_NO_AUDIO_RESERVATION", "1", 1);
        pid = spawn({"jackd", "--no-realtime", "--sync", "--timeout", "20000", "-d", "dummy", "-r",
                     std::to_string(kRate), "-p", std::to_string(kPeriod)},
                    log.string() + ".out", log);
        if (!pid) why = "jackd is not installed (Debian package jackd2)";
        else if (!waitFor([&] { return probe() || waitpid(pid, nullptr, WNOHANG) == pid; }, 10) || !probe())
            why = "jackd -d dummy did not start: " + readText(log).substr(0, 400);
        if (!why.empty()) stop();
        return why.empty();
    }
    void stop() {
        if (pid) finish(pid, SIGTERM, 10);
        pid = 0;
    }
};

// A player (one port, "play") and a recorder (two ports, "rec_1" and "rec_2") in this process.
// The recorder writes into buffers made beforehand and notes where the riff's first period lands
// in them: the player's and the recorder's periods of one cycle have the same frame time.
class Clients {
public:
    explicit Clients(std::vector<float> riffSamples = {})
        : left(size_t(kRate) * 40), right(left.size()), riff(std::move(riffSamples)) {
        player = jack_client_open("orm-test-player", JackNoStartServer, nullptr);
        recorder = jack_client_open("orm-test-recorder", JackNoStartServer, nullptr);
        if (!player || !recorder) return;
        play = jack_port_register(player, "play", JACK_DEFAULT_AUDIO_TYPE, JackPortIsOutput, 0);
        rec[0] = jack_port_register(recorder, "rec_1", JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput, 0);
        rec[1] = jack_port_register(recorder, "rec_2", JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput, 0);
        jack_set_process_callback(player, playing, this);
        jack_set_process_callback(recorder, recording, this);
        jack_activate(player);
        jack_activate(recorder);
    }
    ~Clients() {
        for (jack_client_t* c : {player, recorder})
            if (c) {
                jack_deactivate(c);
                jack_client_close(c);
            }
    }
    bool ok() const { return player && recorder && play && rec[0] && rec[1]; }

    // What orm-jack's options name.
    static std::string in() { return "orm-test-player:play"; }
    static std::string out() { return "orm-test-recorder:rec_1,orm-test-recorder:rec_2"; }
    bool connected() const {
        return jack_port_connected(rec[0]) == 1 && jack_port_connected(rec[1]) == 1 && jack_port_connected(play) == 2;
    }
    bool ormGone() const {
        return !jack_port_by_name(player, "orm:in_1") && !jack_port_connected(rec[0]) && !jack_port_connected(rec[1]) &&
               !jack_port_connected(play);
    }

    void playRiff() { riffOn.store(true); }
    bool riffDone() const { return riffFinished.load(); }
    size_t recorded() const { return length.load(); }
    // Waits until `frames` more have been recorded (the server's time, not the wall clock's).
    bool recordFor(size_t frames) {
        const size_t until = recorded() + frames;
        return waitFor([&] { return recorded() >= until; }, 60);
    }

    std::vector<float> left, right;
    std::atomic<long> riffIndex{-1};  // where the riff's first sample lies in the recording

private:
    static int playing(jack_nframes_t frames, void* arg) {
        Clients* self = static_cast<Clients*>(arg);
        float* out = static_cast<float*>(jack_port_get_buffer(self->play, frames));
        std::fill(out, out + frames, 0.0f);
        if (self->riffOn.load()) {
            if (self->riffStarted.load() < 0) self->riffStarted.store(long(jack_last_frame_time(self->player)));
            for (jack_nframes_t i = 0; i < frames && self->position < self->riff.size(); ++i)
                out[i] = self->riff[self->position++];
            if (self->position >= self->riff.size()) self->riffFinished.store(true);
        }
        return 0;
    }
    static int recording(jack_nframes_t frames, void* arg) {
        Clients* self = static_cast<Clients*>(arg);
        const size_t at = self->length.load();
        if (at + frames > self->left.size()) return 0;
        const float* a = static_cast<const float*>(jack_port_get_buffer(self->rec[0], frames));
        const float* b = static_cast<const float*>(jack_port_get_buffer(self->rec[1], frames));
        std::copy(a, a + frames, self->left.begin() + long(at));
        std::copy(b, b + frames, self->right.begin() + long(at));
        if (self->riffIndex.load() < 0 && long(jack_last_frame_time(self->recorder)) == self->riffStarted.load())
            self->riffIndex.store(long(at));
        self->length.store(at + frames);
        return 0;
    }

    std::vector<float> riff;
    jack_client_t* player = nullptr;
    jack_client_t* recorder = nullptr;
    jack_port_t* play = nullptr;
    jack_port_t* rec[2] = {nullptr, nullptr};
    std::atomic<bool> riffOn{false};
    size_t position = 0;
    std::atomic<long> riffStarted{-1};
    std::atomic<bool> riffFinished{false};
    std::atomic<size_t> length{0};
};

class OrmJack : public ::testing::Test {
protected:
    void SetUp() override {
        directory = fs::temp_directory_path() / ("orm-jack-test-" + std::to_string(getpid()));
        fs::remove_all(directory);
        fs::create_directories(directory);
        if (!server.start(directory / "jackd.log")) GTEST_SKIP() << "JACK cannot start here, skipped: " << server.why;
        // The settings go to a folder of the test's, never the user's.
        setenv("XDG_CONFIG_HOME", (directory / "config").c_str(), 1);
    }
    void TearDown() override {
        server.stop();
        fs::remove_all(directory);
    }

    // orm-jack with the arguments, once it plays: connected to `clients`, or as `ready` says.
    pid_t start(std::vector<std::string> arguments, Clients& clients, std::function<bool()> ready = nullptr) {
        arguments.insert(arguments.begin(), ORM_JACK_PATH);
        const pid_t pid = spawn(arguments, directory / "stdout.txt", directory / "stderr.txt");
        EXPECT_TRUE(waitFor(ready ? ready : [&] { return clients.connected(); }, 20)) << err();
        return pid;
    }
    // Ctrl-C: a clean exit, its ports gone.
    void stop(pid_t orm, Clients& clients) {
        EXPECT_EQ(finish(orm, SIGINT, 20), 0) << err();
        EXPECT_TRUE(waitFor([&] { return clients.ormGone(); }, 10));
    }
    std::string out() const { return readText(directory / "stdout.txt"); }
    std::string err() const { return readText(directory / "stderr.txt"); }
    std::string settings() const { return readText(directory / "config" / "orm" / "orm-jack.conf"); }

    Server server;
    fs::path directory;
};

TEST_F(OrmJack, PlaysWhatOrmRenderRendersAndRemembersItsSettings) {
    const size_t riffFrames = size_t(kRate) * 3;
    const std::vector<float> riff = orm_render::makeSignal("riff", kRate, riffFrames);
    Clients clients(riff);
    ASSERT_TRUE(clients.ok());
    pid_t orm = start({"--no-gui", "--in", Clients::in(), "--out", Clients::out(), "--set", "Input=0.6"}, clients);
    EXPECT_NE(out().find("playing at 48000 Hz, 256 frames per period"), std::string::npos) << out();
    EXPECT_NE(err().find("starting with defaults"), std::string::npos) << err();  // no settings file yet

    // The amplifier settles from its start on silence (as orm-render's reference does on its
    // own lead-in of silence), then the riff starts at a period's start.
    ASSERT_TRUE(clients.recordFor(size_t(kRate) * 4));
    clients.playRiff();
    ASSERT_TRUE(waitFor([&] { return clients.riffDone(); }, 60));
    ASSERT_TRUE(clients.recordFor(kPeriod * 8));

    stop(orm, clients);

    // The reference: orm-render, same module, settings and block size, over the riff after a
    // lead-in of silence a whole number of blocks long.
    const size_t leadIn = 600 * kPeriod;
    std::vector<float> input(leadIn, 0.0f);
    input.insert(input.end(), riff.begin(), riff.end());
    SF_INFO info = {};
    info.samplerate = kRate;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    SNDFILE* file = sf_open((directory / "input.wav").c_str(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr);
    sf_writef_float(file, input.data(), sf_count_t(input.size()));
    sf_close(file);
    const std::string command = std::string(ORM_RENDER_PATH) + " --in " + (directory / "input.wav").string() +
                                " --out " + (directory / "reference.wav").string() + " --quiet --block 256 --set Input=0.6";
    ASSERT_EQ(std::system(command.c_str()), 0);
    info = {};
    file = sf_open((directory / "reference.wav").c_str(), SFM_READ, &info);
    ASSERT_NE(file, nullptr);
    ASSERT_EQ(info.channels, 2);
    std::vector<float> reference(size_t(info.frames) * 2);
    sf_readf_float(file, reference.data(), info.frames);
    sf_close(file);

    // The graph runs player, orm and recorder in one period, so the riff comes out in the period
    // it went in; float rounding of the output's size: the two runs differ only in how long the
    // amplifier sat in silence before the riff, a state that has decayed far below it.
    const long at = clients.riffIndex.load();
    ASSERT_GE(at, 0);
    ASSERT_LE(size_t(at) + riffFrames, clients.recorded());
    float worst = 0, peak = 0;
    for (size_t n = 0; n < riffFrames; ++n) {
        const float* expected = &reference[2 * (leadIn + n)];
        worst = std::max({worst, std::fabs(clients.left[size_t(at) + n] - expected[0]),
                          std::fabs(clients.right[size_t(at) + n] - expected[1])});
        peak = std::max(peak, std::fabs(expected[0]));
    }
    EXPECT_GT(peak, 0.05f);
    EXPECT_LE(worst, 1e-6f * peak);

    // The next run, with no options, connects where the first was connected and keeps Input.
    EXPECT_NE(settings().find("\nInput=0.6"), std::string::npos) << settings();
    orm = start({"--no-gui"}, clients);
    EXPECT_EQ(err().find("orm-jack:"), std::string::npos) << err();
    stop(orm, clients);
    const std::string second = settings();
    for (const char* line : {"\nInput=0.6", "\nin_1=orm-test-player:play\n", "\nout_2=orm-test-recorder:rec_2\n"})
        EXPECT_NE(second.find(line), std::string::npos) << line << " in\n" << second;
    // Written whole or not at all: a file of its own renamed over the old one, nothing left beside.
    const fs::path folder = directory / "config" / "orm";
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), fs::directory_iterator()), 1);

    // A damaged file: one line of warning, the defaults, a clean run; the file kept aside.
    const std::string damaged = "Output=0.25\nOutput=eleven\n";
    std::ofstream(folder / "orm-jack.conf") << damaged;
    orm = start({"--no-gui", "--in", "none", "--out", "none"}, clients,
                [&] { return out().find("playing") != std::string::npos; });
    ASSERT_EQ(finish(orm, SIGINT, 20), 0) << err();
    const std::string warning = err();
    EXPECT_NE(warning.find("damaged"), std::string::npos) << warning;
    EXPECT_EQ(std::count(warning.begin(), warning.end(), '\n'), 1) << warning;
    EXPECT_NE(settings().find("\nOutput=0.5\n"), std::string::npos) << settings();
    EXPECT_EQ(readText(folder / "orm-jack.conf.damaged"), damaged);
}

// The panel's window at the amplifier's values; a knob dragged with the mouse reaches the
// amplifier (the remembered settings say so); the window manager's close is a clean end.
TEST_F(OrmJack, WindowShowsThePanelAndItsKnobReachesTheAmplifier) {
    xtest::PrivateServer x;
    x.start();
    if (!x.display) GTEST_SKIP() << "no X server (Xvfb) could be started";
    Display* display = x.display;
    XSetErrorHandler([](Display*, XErrorEvent*) { return 0; });  // a window gone meanwhile is no error of ours
    Clients clients;
    ASSERT_TRUE(clients.ok());
    const pid_t orm = start({"--in", Clients::in(), "--out", Clients::out()}, clients);
    Window window = 0;
    waitFor([&] {
        Window root, parent, *children = nullptr;
        unsigned count = 0;
        XQueryTree(display, DefaultRootWindow(display), &root, &parent, &children, &count);
        for (unsigned i = 0; i < count && !window; ++i) {
            char* name = nullptr;
            if (XFetchName(display, children[i], &name) && name) {
                if (std::string(name) == "orm") window = children[i];
                XFree(name);
            }
        }
        if (children) XFree(children);
        return window != 0;
    }, 20);
    ASSERT_NE(window, 0u) << "no window titled orm";
    const auto shows = [&](const std::vector<float>& values) {
        const auto same = [&] { return xtest::compare(xtest::grab(display, window, 1000, 400), compose(values, 0)); };
        return waitFor([&] { return same().count == 0; }, 20);
    };
    std::vector<float> values = initialValues();
    EXPECT_TRUE(shows(values));

    // Output, from 0.5 dragged 100 pixels up: 1.
    const int knobX = 465 + 33, knobY = 272 + 33;
    XTestFakeMotionEvent(display, DefaultScreen(display), knobX, knobY, CurrentTime);
    XTestFakeButtonEvent(display, 1, True, CurrentTime);
    for (int step = 1; step <= 10; ++step) {
        XSync(display, False);
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        XTestFakeMotionEvent(display, DefaultScreen(display), knobX, knobY - 10 * step, CurrentTime);
    }
    XTestFakeButtonEvent(display, 1, False, CurrentTime);
    XSync(display, False);
    values[2] = 1.0f;
    EXPECT_TRUE(shows(values));

    XEvent close = {};
    close.xclient.type = ClientMessage;
    close.xclient.window = window;
    close.xclient.message_type = XInternAtom(display, "WM_PROTOCOLS", False);
    close.xclient.format = 32;
    close.xclient.data.l[0] = long(XInternAtom(display, "WM_DELETE_WINDOW", False));
    XSendEvent(display, window, False, NoEventMask, &close);
    XSync(display, False);
    EXPECT_EQ(finish(orm, 0, 20), 0) << err();
    EXPECT_NE(settings().find("\nOutput=1\n"), std::string::npos) << settings();
    x.stop();
}

}  // namespace
