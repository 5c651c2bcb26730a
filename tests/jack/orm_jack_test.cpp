// orm-jack as a user runs it, on a private JACK server with the dummy back-end: the amplifier
// played by a test client of ours and recorded by another, compared with orm-render's render of
// the same input; the server's buffer size changed while it plays; Ctrl-C and the window's close
// ending it cleanly; settings remembered between runs.  Everything skips, saying why, where
// jackd cannot start (or, for the window, Xvfb).

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
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "editor/PanelComposition.h"
#include "support/AllocationCounter.h"
#include "support/XServer.h"
#include "tools/orm-jack/JackAmp.h"
#include "tools/orm-render/Signals.h"
#include "tools/orm-render/VstHost.h"

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

pid_t spawn(const std::vector<std::string>& arguments, const fs::path& out, const fs::path& err) {
    std::vector<std::string> copy = arguments;
    std::vector<char*> argv;
    for (auto& a : copy) argv.push_back(&a[0]);
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

// Sends the signal (0: none) and waits up to `seconds` for the exit; its status, or -1 after a
// forced end.
int finish(pid_t pid, int signal, double seconds) {
    if (signal) kill(pid, signal);
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
        const std::string name = "orm-test-" + std::to_string(getpid());
        setenv("JACK_DEFAULT_SERVER", name.c_str(), 1);
        setenv("JACK_NO_AUDIO_RESERVATION", "1", 1);
        pid = spawn({"jackd", "--no-realtime", "--sync", "--timeout", "20000", "-d", "dummy", "-r",
                     std::to_string(kRate), "-p", std::to_string(kPeriod)},
                    log.string() + ".out", log);
        if (!pid) {
            why = "jackd is not installed (Debian package jackd2)";
            return false;
        }
        bool up = waitFor(
            [&] {
                jack_client_t* probe = jack_client_open("orm-test-probe", JackNoStartServer, nullptr);
                if (probe) jack_client_close(probe);
                return probe != nullptr || waitpid(pid, nullptr, WNOHANG) == pid;
            },
            10);
        jack_client_t* probe = up ? jack_client_open("orm-test-probe", JackNoStartServer, nullptr) : nullptr;
        if (!probe) {
            why = "jackd -d dummy did not start: " + readText(log).substr(0, 400);
            stop();
            return false;
        }
        jack_client_close(probe);
        return true;
    }
    void stop() {
        if (pid) finish(pid, SIGTERM, 10);
        pid = 0;
    }
};

// A player (one port, "play") and a recorder (two ports, "rec_1" and "rec_2") in this process.
// The recorder writes into buffers made beforehand and logs each period's frame time, so that a
// sample's place on the server's time line is known.
class Clients {
public:
    enum Mode { kSilence, kRiff, kSine };

    explicit Clients(std::vector<float> riffSamples) : riff(std::move(riffSamples)) {
        left.resize(size_t(kRate) * 40);
        right.resize(left.size());
        periods.resize(40000);
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
    bool connected() const { return jack_port_connected(rec[0]) == 1 && jack_port_connected(rec[1]) == 1 && jack_port_connected(play) == 2; }
    bool ormGone() const { return !jack_port_by_name(player, "orm:in_1") && !connectedAtAll(); }
    bool connectedAtAll() const { return jack_port_connected(rec[0]) || jack_port_connected(rec[1]) || jack_port_connected(play); }

    void setMode(Mode m) { mode.store(m); }
    bool riffDone() const { return riffFinished.load(); }
    long riffStart() const { return riffStarted.load(); }
    size_t recorded() const { return length.load(); }
    // Waits until `frames` more have been recorded (the server's time, not the wall clock's).
    bool recordFor(size_t frames) {
        size_t until = recorded() + frames;
        return waitFor([&] { return recorded() >= until; }, 60);
    }
    jack_client_t* client() const { return player; }

    // Where the sample at server frame time t lies in the recording, or -1.
    long indexAt(long t) const {
        size_t count = periodCount.load();
        for (size_t i = 0; i < count; ++i) {
            const Period& p = periods[i];
            if (t >= long(p.time) && t < long(p.time) + long(p.frames)) return long(p.offset) + (t - long(p.time));
        }
        return -1;
    }

    std::vector<float> left, right;
    struct Period {
        jack_nframes_t time, frames;
        size_t offset;
    };
    std::vector<Period> periods;
    std::atomic<size_t> periodCount{0};

private:
    static int playing(jack_nframes_t frames, void* arg) {
        Clients* self = static_cast<Clients*>(arg);
        float* out = static_cast<float*>(jack_port_get_buffer(self->play, frames));
        const int m = self->mode.load();
        for (jack_nframes_t i = 0; i < frames; ++i) out[i] = 0;
        if (m == kRiff) {
            if (self->riffStarted.load() < 0) self->riffStarted.store(long(jack_last_frame_time(self->player)));
            for (jack_nframes_t i = 0; i < frames && self->position < self->riff.size(); ++i)
                out[i] = self->riff[self->position++];
            if (self->position >= self->riff.size()) self->riffFinished.store(true);
        } else if (m == kSine) {
            for (jack_nframes_t i = 0; i < frames; ++i)
                out[i] = float(0.25 * std::sin(2 * M_PI * 220.0 * double(self->sinePosition++ % kRate) / kRate));
        }
        return 0;
    }
    static int recording(jack_nframes_t frames, void* arg) {
        Clients* self = static_cast<Clients*>(arg);
        size_t at = self->length.load(), count = self->periodCount.load();
        if (at + frames > self->left.size() || count >= self->periods.size()) return 0;
        const float* a = static_cast<const float*>(jack_port_get_buffer(self->rec[0], frames));
        const float* b = static_cast<const float*>(jack_port_get_buffer(self->rec[1], frames));
        std::copy(a, a + frames, self->left.begin() + long(at));
        std::copy(b, b + frames, self->right.begin() + long(at));
        self->periods[count] = {jack_last_frame_time(self->recorder), frames, at};
        self->periodCount.store(count + 1);
        self->length.store(at + frames);
        return 0;
    }

    std::vector<float> riff;
    jack_client_t* player = nullptr;
    jack_client_t* recorder = nullptr;
    jack_port_t* play = nullptr;
    jack_port_t* rec[2] = {nullptr, nullptr};
    std::atomic<int> mode{kSilence};
    size_t position = 0;
    uint64_t sinePosition = 0;
    std::atomic<long> riffStarted{-1};
    std::atomic<bool> riffFinished{false};
    std::atomic<size_t> length{0};
};

Server server;
std::string serverProblem;

class OrmJack : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        fs::path log = fs::temp_directory_path() / ("orm-jack-server-" + std::to_string(getpid()) + ".log");
        if (!server.start(log)) serverProblem = server.why;
    }
    static void TearDownTestSuite() { server.stop(); }

    void SetUp() override {
        if (!serverProblem.empty()) GTEST_SKIP() << "JACK cannot start here, skipped: " << serverProblem;
        directory = fs::temp_directory_path() / ("orm-jack-test-" + std::to_string(getpid()) + "-" +
                                                 ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(directory);
        fs::create_directories(directory);
        // The settings go to a folder of the test's, never the user's.
        setenv("XDG_CONFIG_HOME", (directory / "config").c_str(), 1);
    }
    void TearDown() override {
        if (!directory.empty()) fs::remove_all(directory);
    }

    pid_t start(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), ORM_JACK_PATH);
        return spawn(arguments, directory / "stdout.txt", directory / "stderr.txt");
    }
    std::string out() const { return readText(directory / "stdout.txt"); }
    std::string err() const { return readText(directory / "stderr.txt"); }
    std::string settings() const { return readText(directory / "config" / "orm" / "orm-jack.conf"); }

    fs::path directory;
};

std::vector<float> riffSignal(size_t frames) { return orm_render::makeSignal("riff", kRate, frames); }

// Channels of a float WAV file.
std::vector<std::vector<float>> readWav(const fs::path& path) {
    SF_INFO info = {};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (!file) return {};
    std::vector<float> interleaved(size_t(info.frames * info.channels));
    sf_readf_float(file, interleaved.data(), info.frames);
    sf_close(file);
    std::vector<std::vector<float>> channels(size_t(info.channels));
    for (size_t i = 0; i < interleaved.size(); ++i) channels[i % channels.size()].push_back(interleaved[i]);
    return channels;
}

void writeWav(const fs::path& path, const std::vector<float>& samples) {
    SF_INFO info = {};
    info.samplerate = kRate;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr);
    sf_writef_float(file, samples.data(), sf_count_t(samples.size()));
    sf_close(file);
}

// The longest run of samples quieter than `floor` in [from, to).
size_t longestQuiet(const std::vector<float>& x, size_t from, size_t to, float floor) {
    size_t longest = 0, run = 0;
    for (size_t i = from; i < to; ++i) {
        run = std::fabs(x[i]) < floor ? run + 1 : 0;
        longest = std::max(longest, run);
    }
    return longest;
}

double rms(const std::vector<float>& x, size_t from, size_t to) {
    double sum = 0;
    for (size_t i = from; i < to; ++i) sum += double(x[i]) * x[i];
    return std::sqrt(sum / double(std::max<size_t>(to - from, 1)));
}

TEST_F(OrmJack, PlaysWhatOrmRenderRendersAndFollowsTheBufferSize) {
    const size_t riffFrames = size_t(kRate) * 3;
    Clients clients(riffSignal(riffFrames));
    ASSERT_TRUE(clients.ok());
    pid_t orm = start({"--no-gui", "--in", Clients::in(), "--out", Clients::out(), "--set", "Input=0.6"});
    ASSERT_NE(orm, 0);
    ASSERT_TRUE(waitFor([&] { return clients.connected(); }, 20)) << err();
    EXPECT_NE(out().find("playing at 48000 Hz, 256 frames per period"), std::string::npos) << out();

    // The amplifier settles from its start on silence (as orm-render's reference does on its
    // own lead-in of silence), then the riff starts at a period's start.
    ASSERT_TRUE(clients.recordFor(size_t(kRate) * 4));
    clients.setMode(Clients::kRiff);
    ASSERT_TRUE(waitFor([&] { return clients.riffDone(); }, 60));
    ASSERT_TRUE(clients.recordFor(kPeriod * 8));

    // Then a steady tone while the server's buffer size goes 256 -> 128 -> 512 -> 256.
    clients.setMode(Clients::kSine);
    ASSERT_TRUE(clients.recordFor(size_t(kRate)));
    const size_t toneFrom = clients.recorded();
    for (jack_nframes_t size : {128u, 512u, 256u}) {
        ASSERT_EQ(jack_set_buffer_size(clients.client(), size), 0);
        ASSERT_TRUE(waitFor([&] { return jack_get_buffer_size(clients.client()) == size; }, 20));
        ASSERT_TRUE(clients.recordFor(size_t(kRate) / 2));
    }
    const size_t toneTo = clients.recorded();

    // Ctrl-C: a clean end, the ports disconnected and the client gone.
    EXPECT_EQ(finish(orm, SIGINT, 20), 0) << err();
    EXPECT_TRUE(waitFor([&] { return clients.ormGone(); }, 10));
    EXPECT_NE(out().find(" xruns"), std::string::npos) << out();
    std::printf("orm-jack said: %s", out().c_str());

    // The reference: orm-render, same module, settings and block size, over the riff after a
    // lead-in of silence a whole number of blocks long.
    const size_t leadIn = 600 * kPeriod;
    std::vector<float> input(leadIn, 0.0f);
    std::vector<float> riff = riffSignal(riffFrames);
    input.insert(input.end(), riff.begin(), riff.end());
    writeWav(directory / "input.wav", input);
    std::string command = std::string(ORM_RENDER_PATH) + " --in " + (directory / "input.wav").string() + " --out " +
                          (directory / "reference.wav").string() + " --block 256 --set Input=0.6";
    ASSERT_EQ(std::system(command.c_str()), 0);
    auto reference = readWav(directory / "reference.wav");
    ASSERT_EQ(reference.size(), 2u);

    // Aligned by whole periods: the graph runs player, orm, recorder in one period, so the
    // expected offset is none; a later one would show up here.
    float bestWorst = 1e30f, peak = 0;
    int bestOffset = -1;
    for (int offset = 0; offset < 4; ++offset) {
        float worst = 0;
        bool complete = true;
        for (size_t n = 0; n < riffFrames && complete; ++n) {
            long at = clients.indexAt(clients.riffStart() + offset * long(kPeriod) + long(n));
            if (at < 0) {
                complete = false;
                break;
            }
            worst = std::max({worst, std::fabs(clients.left[size_t(at)] - reference[0][leadIn + n]),
                              std::fabs(clients.right[size_t(at)] - reference[1][leadIn + n])});
            if (offset == 0) peak = std::max(peak, std::fabs(reference[0][leadIn + n]));
        }
        if (complete && worst < bestWorst) {
            bestWorst = worst;
            bestOffset = offset;
        }
    }
    std::printf("against orm-render: worst sample difference %.3g (output peak %.3g), offset %d periods\n", bestWorst,
                peak, bestOffset);
    EXPECT_EQ(bestOffset, 0);
    EXPECT_GT(peak, 0.05f);
    // Float rounding of the output's size: the two runs differ only in how long the amplifier sat
    // in silence before the riff, a state that has decayed far below it.
    EXPECT_LE(bestWorst, 1e-6f * peak);

    // The tone carries on through every change: no quiet stretch as long as a period.
    const float level = float(rms(clients.left, toneFrom, toneFrom + size_t(kRate) / 2));
    ASSERT_GT(level, 0.01f);
    const size_t gap = std::max(longestQuiet(clients.left, toneFrom, toneTo, level * 0.01f),
                                longestQuiet(clients.right, toneFrom, toneTo, level * 0.01f));
    size_t jumps = 0;
    for (size_t i = 1; i < clients.periodCount.load(); ++i) {
        const auto& a = clients.periods[i - 1];
        const auto& b = clients.periods[i];
        if (b.offset >= toneFrom && b.offset < toneTo && b.time != a.time + a.frames) ++jumps;
    }
    std::printf("buffer size 256 -> 128 -> 512 -> 256 under a 220 Hz tone (rms %.3g): longest quiet stretch %zu "
                "samples, %zu breaks in the server's frame times\n",
                level, gap, jumps);
    EXPECT_LT(gap, size_t(128));
}

TEST_F(OrmJack, RemembersParametersAndConnectionsBetweenRuns) {
    Clients clients({});
    ASSERT_TRUE(clients.ok());
    // A first run changes a parameter and connects to our clients, then ends.
    pid_t orm = start({"--no-gui", "--in", Clients::in(), "--out", Clients::out(), "--set", "Output=0.25"});
    ASSERT_TRUE(waitFor([&] { return clients.connected(); }, 20)) << err();
    EXPECT_NE(err().find("starting with defaults"), std::string::npos) << err();  // no file yet
    ASSERT_EQ(finish(orm, SIGINT, 20), 0) << err();
    ASSERT_TRUE(waitFor([&] { return clients.ormGone(); }, 10));
    EXPECT_NE(settings().find("\nOutput=0.25\n"), std::string::npos) << settings();

    // The next, with no options, starts with both: it connects where the first was connected,
    // and what it remembers at its own exit is the value it started with.
    orm = start({"--no-gui"});
    ASSERT_TRUE(waitFor([&] { return clients.connected(); }, 20)) << err();
    EXPECT_EQ(err().find("orm-jack:"), std::string::npos) << err();
    ASSERT_EQ(finish(orm, SIGINT, 20), 0) << err();
    ASSERT_TRUE(waitFor([&] { return clients.ormGone(); }, 10));
    const std::string second = settings();
    EXPECT_NE(second.find("\nOutput=0.25\n"), std::string::npos) << second;
    EXPECT_NE(second.find("\nin_1=orm-test-player:play\n"), std::string::npos) << second;
    EXPECT_NE(second.find("\nout_2=orm-test-recorder:rec_2\n"), std::string::npos) << second;

    // A damaged file: one line of warning, the defaults, a clean run.
    {
        std::ofstream(directory / "config" / "orm" / "orm-jack.conf") << "Output=0.25\nOutput=eleven\n";
    }
    orm = start({"--no-gui", "--in", "none", "--out", "none"});
    ASSERT_TRUE(waitFor([&] { return out().find("playing") != std::string::npos; }, 20)) << err();
    ASSERT_EQ(finish(orm, SIGINT, 20), 0) << err();
    const std::string warning = err();
    EXPECT_NE(warning.find("damaged"), std::string::npos) << warning;
    EXPECT_EQ(std::count(warning.begin(), warning.end(), '\n'), 1) << warning;
    EXPECT_NE(settings().find("\nOutput=0.5\n"), std::string::npos) << settings();
}

// The panel in a window of its own under a private Xvfb, as a user sees it: titled "orm",
// showing the panel at the amplifier's values; a knob dragged with the mouse is heard in the
// output; closing the window ends the program cleanly and the new value is remembered.
TEST_F(OrmJack, WindowShowsThePanelAndItsKnobIsHeard) {
    xtest::PrivateServer x;
    x.start();
    if (!x.display) GTEST_SKIP() << "no X server (Xvfb) could be started";
    Display* display = x.display;
    // A window that goes away while the tree is read is no error of ours.
    XSetErrorHandler([](Display*, XErrorEvent*) { return 0; });
    Clients clients({});
    ASSERT_TRUE(clients.ok());
    clients.setMode(Clients::kSine);
    pid_t orm = start({"--in", Clients::in(), "--out", Clients::out()});
    ASSERT_TRUE(waitFor([&] { return clients.connected(); }, 20)) << err();

    Window window = 0;
    waitFor(
        [&] {
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
        },
        20);
    ASSERT_NE(window, 0u) << "no window titled orm";

    // The panel at the amplifier's initial values, pixel for pixel.
    const std::vector<float> initial = {0.5f, 1.0f, 0.5f, 0.5f, 1.0f, 0.0f, 0.5f, 0.0f};
    xtest::Screenshot shot;
    waitFor(
        [&] {
            shot = xtest::grab(display, window, 1000, 400);
            return xtest::compare(shot, compose(initial, 0)).count == 0;
        },
        20);
    EXPECT_EQ(xtest::compare(shot, compose(initial, 0)).count, 0);

    // Output, from 0.5 dragged 100 pixels up to 1: louder.
    ASSERT_TRUE(clients.recordFor(size_t(kRate) / 2));
    size_t from = clients.recorded() - size_t(kRate) / 4;
    const double before = rms(clients.left, from, from + size_t(kRate) / 4);
    const int knobX = 465 + 33, knobY = 272 + 33;
    XTestFakeMotionEvent(display, DefaultScreen(display), knobX, knobY, CurrentTime);
    XTestFakeButtonEvent(display, 1, True, CurrentTime);
    XSync(display, False);
    for (int step = 1; step <= 10; ++step) {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        XTestFakeMotionEvent(display, DefaultScreen(display), knobX, knobY - 10 * step, CurrentTime);
        XSync(display, False);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    XTestFakeButtonEvent(display, 1, False, CurrentTime);
    XSync(display, False);
    ASSERT_TRUE(clients.recordFor(size_t(kRate)));
    from = clients.recorded() - size_t(kRate) / 4;
    const double after = rms(clients.left, from, from + size_t(kRate) / 4);
    std::printf("Output knob dragged from 0.5 to 1: output rms %.4g -> %.4g (%+.1f dB)\n", before, after,
                20 * std::log10(after / before));
    EXPECT_GT(after, before * 1.5);
    // The window shows the knob where the mouse left it.
    std::vector<float> moved = initial;
    moved[2] = 1.0f;
    waitFor([&] { return xtest::compare(xtest::grab(display, window, 1000, 400), compose(moved, 0)).count == 0; }, 10);
    shot = xtest::grab(display, window, 1000, 400);
    EXPECT_EQ(xtest::compare(shot, compose(moved, 0)).count, 0);
    const std::string picture = xtest::screenshotPath("orm-jack.png");
    xtest::savePng(shot, picture);
    std::printf("screenshot after the drag: %s\n", picture.c_str());

    // Closed by the window manager's close: a clean end, the value remembered.
    XEvent close = {};
    close.xclient.type = ClientMessage;
    close.xclient.window = window;
    close.xclient.message_type = XInternAtom(display, "WM_PROTOCOLS", False);
    close.xclient.format = 32;
    close.xclient.data.l[0] = long(XInternAtom(display, "WM_DELETE_WINDOW", False));
    close.xclient.data.l[1] = CurrentTime;
    XSendEvent(display, window, False, NoEventMask, &close);
    XSync(display, False);
    EXPECT_EQ(finish(orm, 0, 20), 0) << err();
    EXPECT_TRUE(waitFor([&] { return clients.ormGone(); }, 10));
    EXPECT_NE(settings().find("\nOutput=1\n"), std::string::npos) << settings();
    x.stop();
}

// orm-jack's client in this process, so that the allocation counter sees the audio thread: in
// steady state nothing on any thread of the process allocates while it plays.
TEST_F(OrmJack, PlayingAllocatesNothing) {
    Clients clients({});
    ASSERT_TRUE(clients.ok());
    clients.setMode(Clients::kSine);
    orm_render::VstHost host(ORM_PLUGIN_PATH);
    {
        orm_jack::JackAmp amp(host, "orm-in-process");
        amp.activate();
        std::string error;
        ASSERT_TRUE(amp.connect("in_1", "orm-test-player:play", error)) << error;
        ASSERT_TRUE(amp.connect("out_1", "orm-test-recorder:rec_1", error)) << error;
        ASSERT_TRUE(amp.connect("out_2", "orm-test-recorder:rec_2", error)) << error;
        ASSERT_TRUE(clients.recordFor(size_t(kRate) / 2));
        const size_t from = clients.recorded();
        long allocations = 0;
        {
            allocation::Counter counter;
            for (int i = 0; i < 1000 && clients.recorded() < from + size_t(kRate); ++i)
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            allocations = counter.allocations();
        }
        ASSERT_GE(clients.recorded(), from + size_t(kRate));
        EXPECT_EQ(allocations, 0);
        EXPECT_GT(rms(clients.left, from, from + size_t(kRate)), 0.01);
        amp.close();
    }
    host.stop();
}

}  // namespace
