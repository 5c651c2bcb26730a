// orm-render as a user runs it: exit statuses, messages, and the audio it writes.

#include <gtest/gtest.h>

#include <sndfile.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

namespace fs = std::filesystem;

namespace {

struct Result {
    int status;
    std::string errors;
    std::string output;  // standard output
};

using Channels = std::vector<std::vector<float>>;

std::string contents(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

const std::string example = std::string(ORM_SOURCE_DIR) + "/examples/tube-stage.xml";
const std::string tubeStage = "--system " + example + " ";

class OrmRender : public ::testing::Test {
protected:
    void SetUp() override {
        directory = fs::temp_directory_path() / ("orm-render-test-" + std::to_string(::getpid()) + "-" +
                                                 ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::create_directories(directory);
    }
    void TearDown() override { fs::remove_all(directory); }

    // Runs the tool in the test's directory; PREFIX goes in front (a pipe into it, a timeout).
    Result run(const std::string& arguments, const std::string& prefix = "") {
        const std::string errors = path("stderr.txt"), output = path("stdout.txt");
        std::string command = "cd " + directory.string() + " && " + prefix + std::string(ORM_RENDER_PATH) + " " +
                              arguments + " 2>" + errors + " >" + output;
        int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, contents(errors), contents(output)};
    }

    std::string path(const std::string& name) const { return (directory / name).string(); }

    // Channels of an audio file in the test's directory, with its rate and format.
    Channels read(const std::string& file, SF_INFO* info = nullptr) {
        SF_INFO local{};
        if (!info) info = &local;
        *info = SF_INFO{};
        SNDFILE* handle = sf_open(path(file).c_str(), SFM_READ, info);
        EXPECT_NE(nullptr, handle) << file;
        if (!handle) return {};
        std::vector<float> interleaved(static_cast<size_t>(info->frames * info->channels));
        sf_readf_float(handle, interleaved.data(), info->frames);
        sf_close(handle);
        Channels channels(static_cast<size_t>(info->channels));
        for (size_t i = 0; i < interleaved.size(); ++i) channels[i % channels.size()].push_back(interleaved[i]);
        return channels;
    }

    // Renders into OUT and reads it back.
    Channels render(const std::string& arguments, const std::string& out, SF_INFO* info = nullptr) {
        Result result = run(arguments + " --out " + out);
        EXPECT_EQ(0, result.status) << arguments << "\n" << result.errors;
        return read(out, info);
    }

    // A mono WAV file of SAMPLES.
    void write(const std::string& name, int rate, int format, const std::vector<float>& samples) {
        SF_INFO info{};
        info.samplerate = rate;
        info.channels = 1;
        info.format = SF_FORMAT_WAV | format;
        SNDFILE* handle = sf_open(path(name).c_str(), SFM_WRITE, &info);
        ASSERT_NE(nullptr, handle);
        sf_writef_float(handle, samples.data(), sf_count_t(samples.size()));
        sf_close(handle);
    }

    fs::path directory;
};

// Amplitude of a sine of known frequency by projection over whole periods.
double amplitudeAt(const std::vector<float>& x, size_t from, size_t count, double frequency, double rate) {
    double c = 0, s = 0;
    for (size_t i = from; i < from + count; ++i) {
        c += x[i] * std::cos(2 * M_PI * frequency * i / rate);
        s += x[i] * std::sin(2 * M_PI * frequency * i / rate);
    }
    return 2 * std::sqrt(c * c + s * s) / static_cast<double>(count);
}

// Gain in dB of a 1 kHz sine of LEVEL dBFS at 48 kHz, measured from a quarter of a second in.
double gainAtOneKilohertz(const std::vector<float>& x, double level) {
    return 20 * std::log10(amplitudeAt(x, 12000, 4800, 1000, 48000)) - level;
}

}  // namespace

TEST_F(OrmRender, RendersTheExampleWithItsControlsSetBeforeTheFirstBlock) {
    // Clean path at level 0.5: the output is the input halved, exactly, on both outputs.
    SF_INFO info;
    const Channels clean = render(tubeStage + "--signal sine:440:-6 --rate 44100 --block 100 --seconds 0.1"
                                              " --set Tube=0 --set Level=0.5", "clean.wav", &info);
    EXPECT_EQ(SF_FORMAT_WAV | SF_FORMAT_FLOAT, info.format);
    EXPECT_EQ(44100, info.samplerate);
    ASSERT_EQ(2u, clean.size());
    ASSERT_EQ(4410u, clean[0].size());  // the last block is shorter
    EXPECT_EQ(clean[0], clean[1]);
    const double amplitude = std::pow(10.0, -6.0 / 20.0);
    for (size_t i = 0; i < clean[0].size(); i += 37)
        EXPECT_NEAR(0.5 * amplitude * std::sin(2 * M_PI * 440 * i / 44100.0), clean[0][i], 1e-6) << i;
}

TEST_F(OrmRender, ReadsInputFilesAtTheirRateOrConvertsThem) {
    // A mono file feeds every input, at its own rate; the clean path halves it.
    write("dc.wav", 32000, SF_FORMAT_PCM_16, std::vector<float>(1000, 0.25f));
    SF_INFO info;
    const Channels dc = render(tubeStage + "--in dc.wav --set Tube=0", "dc-out.wav", &info);
    EXPECT_EQ(32000, info.samplerate);
    ASSERT_EQ(1000u, dc.at(1).size());
    EXPECT_FLOAT_EQ(0.125f, dc[1][999]);

    // A 1 kHz sine at 44.1 kHz, converted to 48 kHz on the way in.
    std::vector<float> sine(44100);
    for (size_t i = 0; i < sine.size(); ++i) sine[i] = static_cast<float>(0.5 * std::sin(2 * M_PI * 1000 * i / 44100.0));
    write("sine.wav", 44100, SF_FORMAT_FLOAT, sine);
    const Channels converted = render(tubeStage + "--in sine.wav --rate 48000 --set Tube=0", "sine-out.wav", &info);
    EXPECT_EQ(48000, info.samplerate);
    ASSERT_EQ(48000u, converted.at(0).size());
    // Away from the ends the converter's pass band is flat to far below 0.01 dB.
    EXPECT_NEAR(0.25, amplitudeAt(converted[0], 12000, 24000, 1000, 48000), 0.25 * 0.001);
}

TEST_F(OrmRender, RefusalsSayWhyAndLeaveNoFileBehind) {
    std::ofstream(path("bad.xml")) << "<System><Graphs><Graph Name=\"A\" Type=\"DSP\"><Element Type=\"Valve\" Name=\"V\"/>"
                                      "</Graph></Graphs></System>";
    std::ofstream(path("broken.xml")) << "<System>\n  <Graphs>\n    <Graph Name=\"A\">\n  </Graphs>\n</System>\n";

    // Each command line, its exit status and all it writes to standard error after "orm-render: ";
    // a usage error (2) adds the pointer to --help, and a message ending in ": " goes on in a
    // library's words.
    const std::string impulse = "--signal impulse --seconds 0.05 ", amp = impulse + "--out x.wav ";
    const std::string stage = tubeStage + amp, riff = tubeStage + "--signal riff ";
    const std::string help = "\n(orm-render --help describes the options)\n";
    struct Case {
        std::string arguments;
        int status;
        std::string message;
    };
    const std::vector<Case> cases = {
        {amp + "--set Volume=12/10", 2, "--set Volume=12/10 is out of range: Volume takes 0/10 to 10/10, or a host value 0 to 1"},
        {stage + "--set Drive=1", 2, "unknown parameter Drive (parameters: 0 Tube, 1 Level; --list describes them)"},
        {impulse + "--out x.mp4", 2, "cannot tell the format of x.mp4 from its extension (.wav, .flac, .aif, .aiff, .ogg, .rf64)"},
        {riff, 2, "--out FILE is required"},
        {riff + "--block 0 --out x.wav", 2, "--block must be between 1 and 65536"},
        // Found wrong only when read, loaded or run.
        {tubeStage + "--in missing.wav --out x.wav", 1, "cannot read missing.wav: "},
        {"--system bad.xml " + amp, 1, "bad.xml: Unknown element type: Valve"},
        {"--system broken.xml " + amp, 1, "broken.xml:4:5: not well-formed XML: "},
        {"--plugin none.so " + amp, 1, "cannot load none.so: "},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.arguments);
        const Result result = run(c.arguments);
        EXPECT_EQ(c.status, result.status);
        const std::string said = "orm-render: " + c.message;
        if (c.message.back() == ' ') {
            EXPECT_EQ(0u, result.errors.find(said)) << result.errors;
        } else {
            EXPECT_EQ(said + (c.status == 2 ? help : "\n"), result.errors);
        }
        EXPECT_EQ("", result.output);
        // Nothing written, not even a temporary file: only the descriptions and the captured text.
        for (const auto& entry : fs::directory_iterator(directory)) {
            const fs::path kind = entry.path().extension();
            EXPECT_TRUE(kind == ".xml" || kind == ".txt") << entry.path();
        }
    }
}

TEST_F(OrmRender, RunsADcBlockAndACabinetFromAFile) {
    // A response of one sample, 0.5, as a 24-bit WAV file: at 1 kHz, where the DC block barely
    // acts, the chain is the response's -6.02 dB, within 0.1 dB.
    std::vector<float> response(64, 0.0f);
    response[0] = 0.5f;
    write("ir.wav", 48000, SF_FORMAT_PCM_24, response);
    std::ofstream(path("cabinet.xml"))
        << "<System><Graphs><Graph Name=\"Cab\" Type=\"DSP\"><NumberOfInputs>1</NumberOfInputs>"
           "<Inputs><Input Graph=\"System\" Node=\"0\"/></Inputs>"
           "<Element Type=\"FirstOrderIIR\" Name=\"DC\"><Properties A=\"-0.9995\" B=\"1|-1\"/>"
           "<Inputs><Input Port=\"in\" Element=\"Graph\" Output=\"0\"/></Inputs></Element>"
           "<Element Type=\"WaveConvolver\" Name=\"WV\"><Properties Location=\"File\" ImpulseResponses=\""
        << path("ir.wav") << "\" MaxIRSize=\"8192\" Gain=\"1\" Scale=\"false\"/>"
           "<Inputs><Input Port=\"in\" Element=\"DC\" Output=\"out\"/></Inputs></Element>"
           "<Output><Node Name=\"out\" Element=\"WV\" Port=\"out\"/></Output></Graph></Graphs>"
           "<Outputs><Output Graph=\"Cab\" Node=\"out\"/></Outputs></System>";
    const Channels out = render("--system cabinet.xml --signal sine:1000:-20 --seconds 0.5 --tail 0", "cabinet.wav");
    ASSERT_EQ(1u, out.size());
    ASSERT_EQ(24000u, out[0].size());
    EXPECT_NEAR(20 * std::log10(0.5), gainAtOneKilohertz(out[0], -20), 0.1);
}

TEST_F(OrmRender, OversamplingPathIsTransparentAtEveryFactor) {
    // A straight-line table between interpolator and decimator: unity gain at 1 kHz, whatever the
    // factor the control sets (the rates of the graphs follow it at the first block).
    const std::string system = "--system " + std::string(ORM_SOURCE_DIR) + "/examples/oversampling.xml";
    for (const char* factor : {"2", "4", "8"}) {
        const Channels out = render(system + " --signal sine:1000:-6 --seconds 0.5 --block 100 --tail 0 --set Factor=" +
                                    factor, "factor.wav");
        ASSERT_EQ(24000u, out.at(0).size()) << factor;
        EXPECT_NEAR(0.0, gainAtOneKilohertz(out[0], -6), 0.1) << "factor " << factor;
    }
}

TEST_F(OrmRender, FormatsFollowTheNameAndEqualRendersGiveEqualFiles) {
    // The same render in the telling formats: the format the name and --bits ask for, the float
    // render's samples within the depth's dither and rounding, and the same bytes twice.
    const std::string render = tubeStage + "--signal sine:1000:-6 --seconds 0.5 --quiet --out ";
    ASSERT_EQ(0, run(render + "float.wav").status);
    SF_INFO info;
    const Channels reference = read("float.wav");
    struct Format {
        std::string name, bits;
        int format;
        double tolerance;  // per sample
    };
    const std::vector<Format> formats = {
        {"a.wav", "16", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1.5 / 32768},
        {"b.wav", "24", SF_FORMAT_WAV | SF_FORMAT_PCM_24, 1.5 / 8388608},
        {"c.flac", "", SF_FORMAT_FLAC | SF_FORMAT_PCM_24, 1.5 / 8388608},
    };
    for (const Format& f : formats) {
        SCOPED_TRACE(f.name);
        const std::string bits = f.bits.empty() ? "" : " --bits " + f.bits;
        ASSERT_EQ(0, run(render + f.name + bits).status);
        const Channels channels = read(f.name, &info);
        EXPECT_EQ(f.format, info.format);
        ASSERT_EQ(reference.size(), channels.size());
        ASSERT_EQ(reference[0].size(), channels[0].size());
        double worst = 0, sum = 0;
        for (size_t i = 0; i < channels[0].size(); ++i) {
            const double error = std::fabs(channels[0][i] - reference[0][i]);
            worst = std::max(worst, error);
            sum += error * error;
        }
        EXPECT_LE(worst, f.tolerance);
        // TPDF dither of one step and rounding: 0.5 step RMS (rounding alone gives 0.29).
        EXPECT_NEAR(0.5, std::sqrt(sum / double(channels[0].size())) / (f.tolerance / 1.5), 0.05);
        ASSERT_EQ(0, run(render + "again-" + f.name + bits).status);
        EXPECT_EQ(contents(path(f.name)), contents(path("again-" + f.name)));
    }
    // Digital silence gets no dither.
    ASSERT_EQ(0, run(tubeStage + "--signal silence --seconds 0.1 --quiet --bits 16 --out silence.wav").status);
    EXPECT_EQ(std::vector<float>(4800, 0.0f), read("silence.wav").at(0));
}

TEST_F(OrmRender, WritesSafely) {
    const std::string render = tubeStage + "--signal sine:1000:-6 --seconds 0.2 --quiet --out ";
    ASSERT_EQ(0, run(render + "plain.wav").status);
    // A link is followed, not replaced.
    fs::create_directory(path("takes"));
    std::ofstream(path("takes/real.wav")) << "old";
    fs::create_symlink("takes/real.wav", path("link.wav"));
    ASSERT_EQ(0, run(render + "link.wav").status);
    EXPECT_TRUE(fs::is_symlink(path("link.wav")));
    EXPECT_EQ(contents(path("plain.wav")), contents(path("takes/real.wav")));
    // Standard output, and the same WAV read back from standard input.
    const Result piped = run(render + "-");
    ASSERT_EQ(0, piped.status);
    EXPECT_EQ(0u, piped.output.find("RIFF")) << piped.output.substr(0, 16);
    EXPECT_FALSE(fs::exists(path("-")));
    const Result through = run(tubeStage + "--set Tube=0 --set Level=1 --in - --quiet --tail 0 --out piped.wav",
                               ORM_RENDER_PATH + std::string(" ") + render + "- | ");
    ASSERT_EQ(0, through.status) << through.errors;
    EXPECT_EQ(read("plain.wav"), read("piped.wav"));
    // A device is written to, never replaced.
    EXPECT_EQ(0, run(render + "/dev/null").status);
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
    // An interrupted render leaves nothing behind: neither its file nor the temporary one.
    const Result interrupted = run(tubeStage + "--signal riff --seconds 3000 --out long.wav", "timeout -s INT 1 ");
    EXPECT_NE(0, interrupted.status);
    for (const auto& entry : fs::directory_iterator(directory))
        EXPECT_EQ(std::string::npos, entry.path().filename().string().find("long")) << entry.path();
}

TEST_F(OrmRender, EveryHostRateSoundsLikeFortyEightKilohertz) {
    // One guitar phrase at 48 kHz, through the amplifier at the ends and the middle of the rates a
    // host offers (converted on the way in): its level within a few dB of 48 kHz's.  Below 22 kHz the resamplers' corners
    // sit below the host's Nyquist frequency and take some of a distorted guitar's highs: 3 to 4 dB
    // at 8 kHz.
    ASSERT_EQ(0, run(tubeStage + "--set Tube=0 --set Level=1 --signal riff --seconds 1 --tail 0 --quiet --out riff.wav").status);
    std::map<int, double> levels;
    for (int rate : {48000, 8000, 22050, 44100, 96000, 384000}) {
        SCOPED_TRACE(rate);
        SF_INFO info;
        const Channels out = render("--in riff.wav --rate " + std::to_string(rate) + " --block 4096 --tail 0 --quiet",
                                    "rate.wav", &info);
        ASSERT_EQ(rate, info.samplerate);
        double sum = 0;
        const size_t from = static_cast<size_t>(rate / 4);
        for (size_t i = from; i < out.at(0).size(); ++i) sum += double(out[0][i]) * out[0][i];
        levels[rate] = 10 * std::log10(sum / double(out[0].size() - from) + 1e-30);
        EXPECT_NEAR(levels[48000], levels[rate], rate < 16000 ? 5.0 : 1.0);
    }
    EXPECT_GT(levels[48000], -40.0);
}

// The most resident memory of one render, in kilobytes.
long residentKilobytes(const std::vector<std::string>& arguments) {
    std::vector<char*> argv{const_cast<char*>(ORM_RENDER_PATH)};
    for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        execv(ORM_RENDER_PATH, argv.data());
        _exit(127);
    }
    int status = 0;
    struct rusage usage;
    if (child < 0 || wait4(child, &status, 0, &usage) != child || !WIFEXITED(status) || WEXITSTATUS(status) != 0) return -1;
    return usage.ru_maxrss;
}

TEST(OrmRenderStreaming, ALongRenderRunsInBoundedMemory) {
    // Ten minutes of audio (230 MB of float samples) streamed through a description take no more
    // memory than one minute: holding them would add 200 MB.  (A sanitizer's own overhead is
    // the same for both.)  A one-hour render through the amplifier is measured by hand (README).
    auto render = [](const std::string& seconds) {
        return residentKilobytes({"--system", example, "--signal", "noise", "--seconds", seconds, "--block", "1024",
                                  "--quiet", "--out", "/dev/null"});
    };
    const long minute = render("60"), tenMinutes = render("600");
    ASSERT_GT(minute, 0);
    ASSERT_GT(tenMinutes, 0);
    EXPECT_LT(tenMinutes - minute, 16L * 1024);
}
