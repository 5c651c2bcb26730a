// orm-render as a user runs it: exit statuses, messages, and the audio it writes.

#include <gtest/gtest.h>

#include <sndfile.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

namespace fs = std::filesystem;

namespace {

struct Result {
    int status;
    std::string errors;
    std::string output;  // standard output
};

std::string contents(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

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
        const std::string errors = (directory / "stderr.txt").string(), output = (directory / "stdout.txt").string();
        std::string command = "cd " + directory.string() + " && " + prefix + std::string(ORM_RENDER_PATH) + " " +
                              arguments + " 2>" + errors + " >" + output;
        int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, contents(errors), contents(output)};
    }

    std::string path(const std::string& name) const { return (directory / name).string(); }
    static std::string example() { return std::string(ORM_SOURCE_DIR) + "/examples/tube-stage.xml"; }

    // Channels of a WAV file, with its rate and format.
    std::vector<std::vector<float>> read(const std::string& file, SF_INFO& info) {
        info = SF_INFO{};
        SNDFILE* handle = sf_open(file.c_str(), SFM_READ, &info);
        EXPECT_NE(nullptr, handle) << file;
        if (!handle) return {};
        std::vector<float> interleaved(static_cast<size_t>(info.frames * info.channels));
        sf_readf_float(handle, interleaved.data(), info.frames);
        sf_close(handle);
        std::vector<std::vector<float>> channels(static_cast<size_t>(info.channels));
        for (size_t i = 0; i < interleaved.size(); ++i) channels[i % channels.size()].push_back(interleaved[i]);
        return channels;
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

}  // namespace

TEST_F(OrmRender, RendersTheExampleAsFloatWav) {
    Result result = run("--system " + example() + " --signal riff --seconds 2 --out " + path("riff.wav"));
    ASSERT_EQ(0, result.status) << result.errors;
    SF_INFO info;
    auto channels = read(path("riff.wav"), info);
    EXPECT_EQ(SF_FORMAT_WAV | SF_FORMAT_FLOAT, info.format);
    EXPECT_EQ(48000, info.samplerate);
    ASSERT_EQ(2u, channels.size());
    EXPECT_EQ(96000u, channels[0].size());
    float peak = 0;
    for (float sample : channels[0]) peak = std::max(peak, std::fabs(sample));
    EXPECT_GT(peak, 0.1f);
    EXPECT_LE(peak, 0.5f);  // the tube curve saturates at 1, the level is 0.5
    EXPECT_EQ(channels[0], channels[1]);
}

TEST_F(OrmRender, ControlsAreSetByNameBeforeTheFirstBlock) {
    // Clean path at level 0.5: the output is the input halved, exactly.
    Result result = run("--system " + example() + " --signal sine:440:-6 --rate 44100 --block 100 --seconds 0.1"
                        " --set Tube=0 --set Level=0.5 --out " + path("clean.wav"));
    ASSERT_EQ(0, result.status) << result.errors;
    SF_INFO info;
    auto channels = read(path("clean.wav"), info);
    EXPECT_EQ(44100, info.samplerate);
    ASSERT_EQ(4410u, channels[0].size());  // the last block is shorter
    const double amplitude = std::pow(10.0, -6.0 / 20.0);
    for (size_t i = 0; i < channels[0].size(); i += 37)
        EXPECT_NEAR(0.5 * amplitude * std::sin(2 * M_PI * 440 * i / 44100.0), channels[0][i], 1e-6) << i;
}

TEST_F(OrmRender, ReadsAudioFilesAtTheirOwnRate) {
    SF_INFO info{};
    info.samplerate = 32000;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* handle = sf_open(path("in.wav").c_str(), SFM_WRITE, &info);
    ASSERT_NE(nullptr, handle);
    std::vector<float> samples(1000, 0.25f);
    sf_writef_float(handle, samples.data(), 1000);
    sf_close(handle);

    Result result = run("--system " + example() + " --in " + path("in.wav") + " --set Tube=0 --out " + path("out.wav"));
    ASSERT_EQ(0, result.status) << result.errors;
    SF_INFO outInfo;
    auto channels = read(path("out.wav"), outInfo);
    EXPECT_EQ(32000, outInfo.samplerate);
    ASSERT_EQ(1000u, channels[0].size());
    EXPECT_FLOAT_EQ(0.125f, channels[1][999]);  // a mono file feeds every input
}

TEST_F(OrmRender, RateConvertsTheInputWithItsLevelAndPitch) {
    // A 1 kHz sine at 44.1 kHz, converted to 48 kHz on the way in; the clean path halves it.
    SF_INFO info{};
    info.samplerate = 44100;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    SNDFILE* handle = sf_open(path("in.wav").c_str(), SFM_WRITE, &info);
    ASSERT_NE(nullptr, handle);
    std::vector<float> samples(44100);
    for (size_t i = 0; i < samples.size(); ++i) samples[i] = static_cast<float>(0.5 * std::sin(2 * M_PI * 1000 * i / 44100.0));
    sf_writef_float(handle, samples.data(), 44100);
    sf_close(handle);

    Result result = run("--system " + example() + " --in in.wav --rate 48000 --set Tube=0 --out out.wav");
    ASSERT_EQ(0, result.status) << result.errors;
    SF_INFO outInfo;
    auto channels = read(path("out.wav"), outInfo);
    EXPECT_EQ(48000, outInfo.samplerate);
    ASSERT_EQ(48000u, channels[0].size());
    // Away from the ends the converter's pass band is flat to far below 0.01 dB.
    EXPECT_NEAR(0.25, amplitudeAt(channels[0], 12000, 24000, 1000, 48000), 0.25 * 0.001);
}

TEST_F(OrmRender, FaultyDescriptionsFailWithTheSystemsMessageAndNoFile) {
    std::ofstream(path("bad.xml")) << "<System><Graphs><Graph Name=\"A\" Type=\"DSP\"><Element Type=\"Valve\" Name=\"V\"/>"
                                      "</Graph></Graphs></System>";
    Result result = run("--system " + path("bad.xml") + " --signal impulse --out " + path("bad.wav"));
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("orm-render: " + path("bad.xml") + ": Unknown element type: Valve\n", result.errors);
    EXPECT_FALSE(fs::exists(path("bad.wav")));

    // A failure in the middle of rendering (a table that never arrives) leaves no half file either.
    std::ofstream(path("late.xml"))
        << "<System><Graphs><Graph Name=\"A\" Type=\"DSP\"><NumberOfInputs>1</NumberOfInputs>"
           "<Inputs><Input Graph=\"System\" Node=\"0\"/></Inputs><Element Type=\"LookupTableFilter\" Name=\"T\">"
           "<Inputs><Input Port=\"in\" Element=\"Graph\" Output=\"0\"/></Inputs></Element>"
           "<Output><Node Name=\"out\" Element=\"T\" Port=\"out\"/></Output></Graph></Graphs>"
           "<Outputs><Output Graph=\"A\" Node=\"out\"/></Outputs></System>";
    result = run("--system " + path("late.xml") + " --signal noise --out " + path("late.wav"));
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("orm-render: LookupTableFilter: T lookup data is not defined.\n", result.errors);
    EXPECT_FALSE(fs::exists(path("late.wav")));
    for (const auto& entry : fs::directory_iterator(directory))
        EXPECT_EQ(std::string::npos, entry.path().filename().string().find(".wav")) << entry.path();

    result = run("--system " + path("missing.xml") + " --signal impulse --out " + path("m.wav"));
    EXPECT_EQ(1, result.status);
    EXPECT_NE(std::string::npos, result.errors.find("orm-render: cannot read")) << result.errors;
    // XML that does not parse: the file, the line and the column.
    std::ofstream(path("broken.xml")) << "<System>\n  <Graphs>\n    <Graph Name=\"A\">\n  </Graphs>\n</System>\n";
    result = run("--system broken.xml --signal impulse --out b.wav");
    EXPECT_EQ(1, result.status);
    EXPECT_EQ(0u, result.errors.find("orm-render: broken.xml:4:5: not well-formed XML: ")) << result.errors;
}

TEST_F(OrmRender, CommandLinesExitAndSayWhatTheyShould) {
    // Each command line, its exit status, and words its standard output (o) or error (e) must hold;
    // "e!" means standard error stays empty.
    const std::string system = "--system " + example() + " ";
    const std::string amp = "--signal impulse --seconds 0.05 ";
    struct Case {
        std::string arguments;
        int status;
        std::vector<std::string> words;
    };
    const std::vector<Case> cases = {
        {"--help", 0, {"o:usage: orm-render", "o:--rate HZ", "o:--bits 16|24|32f", "o:--tail SECONDS", "o:--out-dir DIR",
                       "o:--list", "o:--quiet", "o:default 256", "o:Examples", "e!"}},
        {"--version", 0, {"o:orm-render 1.", "e!"}},
        {"--list", 0, {"o:index", "o:3      Oversamp  2x | 4x | 8x   4x", "o:4      Cabinet   off | on       on",
                       "o:0      Volume    0/10 to 10/10  5/10", "o:drive", "e!"}},
        {system + "--list", 0, {"o:1      Level  0 to 1  0.5       sets Gain of Output/Level"}},
        {"--system " + std::string(ORM_SOURCE_DIR) + "/examples/oversampling.xml --list", 0, {"o:Factor  any number  2 "}},
        // A render says where it wrote what, and warns of samples over full scale.
        {amp + "--out x.wav", 0, {"e:orm-render: wrote x.wav: ", "e:48000 Hz, 2 channels, 32-bit float WAV, peak -",
                                  "e:no sample over full scale"}},
        {"--signal riff --seconds 1 --set Volume=10/10 --set Output=10/10 --out x.wav", 0,
         {"e:peak +", "e:WARNING: ", "e:samples over full scale"}},
        {amp + "--quiet --out x.wav", 0, {"e!"}},
        {amp + "--set Oversampling=8x --set Cabinet=off --set Volume=7.5/10 --set cpu=HIGH --out x.wav", 0, {}},
        {amp + "--set 0=1 --set Oversampling=1 --set 7=1 --out x.wav", 0, {}},
        // Out of range: the parameter and its range, in both modes.
        {amp + "--set Volume=12/10 --out x.wav", 2, {"e:Volume=12/10 is out of range: Volume takes 0/10 to 10/10"}},
        {amp + "--set Oversampling=16x --out x.wav", 2, {"e:Oversampling takes 2x | 4x | 8x, or a host value 0 to 1"}},
        {amp + "--set Output=2 --out x.wav", 2, {"e:Output=2 is out of range: Output takes 0/10 to 10/10"}},
        {system + amp + "--set Level=100 --out x.wav", 2, {"e:Level=100 is out of range: Level takes 0 to 1"}},
        {system + amp + "--set Drive=1 --out x.wav", 2, {"e:unknown parameter Drive (parameters: 0 Tube, 1 Level;"}},
        {amp + "--set Drive=1 --out x.wav", 2, {"e:unknown parameter Drive (parameters: 0 Volume, 1 Feedback"}},
        // Formats.
        {amp + "--out x.mp4", 2, {"e:cannot tell the format of x.mp4"}},
        {amp + "--out x.flac --bits 32f", 2, {"e:FLAC holds 16 or 24 bits"}},
        {amp + "--out x.ogg --bits 16", 2, {"e:--bits does not apply to Ogg Vorbis"}},
        {amp + "--out x.wav --bits 12", 2, {"e:--bits takes 16, 24 or 32f"}},
        // Everything else a command line can get wrong.
        {system + "--signal riff", 2, {"e:--out FILE is required", "e:--help"}},
        {system + "--out x.wav", 2, {"e:give one of --in FILE or --signal NAME"}},
        {system + "--signal riff --in a.wav --out x.wav", 2, {"e:give one of"}},
        {system + "--signal riff --block 0 --out x.wav", 2, {"e:--block must be"}},
        {system + "--signal riff --rate fast --out x.wav", 2, {"e:--rate needs a number"}},
        {system + "--signal riff --frobnicate --out x.wav", 2, {"e:unknown option --frobnicate"}},
        {system + "--signal chirp --out x.wav", 2, {"e:unknown signal 'chirp'"}},
        {system + "--signal sine:30000 --out x.wav", 2, {"e:sine needs a frequency"}},
        {system + "--signal riff --set Tube --out x.wav", 2, {"e:--set needs NAME=VALUE"}},
        {system + "--signal riff --tail -1 --out x.wav", 2, {"e:--tail must be"}},
        {system + "--in a.wav --in b.wav --out x.wav", 2, {"e:several --in files need --out-dir"}},
        {system + "--signal riff --out-dir d", 2, {"e:--out-dir takes its names from --in files"}},
        {system + "--in missing.wav --out x.wav", 1, {"e:orm-render: cannot read missing.wav"}},
    };
    for (const Case& c : cases) {
        Result result = run(c.arguments);
        EXPECT_EQ(c.status, result.status) << c.arguments << "\n" << result.errors;
        for (const std::string& word : c.words) {
            if (word == "e!") {
                EXPECT_EQ("", result.errors) << c.arguments;
                continue;
            }
            const std::string& text = word[0] == 'o' ? result.output : result.errors;
            EXPECT_NE(std::string::npos, text.find(word.substr(2))) << c.arguments << "\nwants: " << word << "\ngot: " << text;
        }
    }
}

TEST_F(OrmRender, HelpAndReadmeAgree) {
    // Every option --help names is in the README's section on the tool, and the other way round.
    const std::string help = run("--help").output;
    const std::string readme = contents(std::string(ORM_SOURCE_DIR) + "/README.md");
    const size_t begin = readme.find("## orm-render"), end = readme.find("\n## ", begin + 1);
    ASSERT_NE(std::string::npos, begin);
    const std::string section = readme.substr(begin, end - begin);
    auto options = [](const std::string& text) {
        std::set<std::string> found;
        for (size_t at = text.find("--"); at != std::string::npos; at = text.find("--", at + 2)) {
            if (at + 2 >= text.size() || !std::islower(static_cast<unsigned char>(text[at + 2]))) continue;
            size_t stop = at + 2;
            while (stop < text.size() && (std::islower(static_cast<unsigned char>(text[stop])) || text[stop] == '-')) ++stop;
            if (stop > at + 2) found.insert(text.substr(at, stop - at));
        }
        return found;
    };
    EXPECT_EQ(options(help), options(section));
}

TEST_F(OrmRender, HostsTheBuiltInAmplifierAndOtherModules) {
    // The default source is the orm module beside the tool, driven through its VST2 interface.
    Result quiet = run("--signal sine:1000:-6 --seconds 0.5 --tail 0 --out " + path("a.wav"));
    ASSERT_EQ(0, quiet.status) << quiet.errors;
    Result loud = run("--signal sine:1000:-6 --seconds 0.5 --tail 0 --set Output=1 --out " + path("b.wav"));
    ASSERT_EQ(0, loud.status) << loud.errors;
    Result driven = run("--signal sine:1000:-6 --seconds 0.5 --tail 0 --set Output=1 --set 0=1 --out " + path("g.wav"));
    ASSERT_EQ(0, driven.status) << driven.errors;
    SF_INFO info;
    auto a = read(path("a.wav"), info);
    ASSERT_EQ(2u, a.size());
    EXPECT_EQ(a[0], a[1]);  // Stereo off: output 0 on both sides
    auto b = read(path("b.wav"), info);
    ASSERT_EQ(2u, b.size());
    // Output 0.5 -> 1 doubles the level: it acts after every nonlinear stage.
    size_t loudest = 0;
    for (size_t i = 0; i < a[0].size(); ++i)
        if (std::fabs(a[0][i]) > std::fabs(a[0][loudest])) loudest = i;
    ASSERT_GT(std::fabs(a[0][loudest]), 0.0f);
    EXPECT_NEAR(b[0][loudest] / a[0][loudest], 2.0, 2.0 * 1e-5);
    // Volume 0.5 -> 1 takes the wiper from 0.1 to 1: louder, but the stages compress it well
    // below the tenfold of a linear path.
    auto g = read(path("g.wav"), info);
    ASSERT_EQ(2u, g.size());
    double plain = 0, drive = 0;
    for (size_t i = g[0].size() / 2; i < g[0].size(); ++i) {
        plain += double(b[0][i]) * b[0][i];
        drive += double(g[0][i]) * g[0][i];
    }
    EXPECT_GT(std::sqrt(drive / plain), 1.0);
    EXPECT_LT(std::sqrt(drive / plain), 10.0);

    Result missing = run("--plugin " + path("none.so") + " --signal impulse --out " + path("e.wav"));
    EXPECT_EQ(1, missing.status);
    EXPECT_NE(std::string::npos, missing.errors.find("cannot load")) << missing.errors;
    EXPECT_FALSE(fs::exists(path("e.wav")));

    Result bench = run("--signal riff --seconds 0.5 --bench --out " + path("f.wav"));
    EXPECT_EQ(0, bench.status) << bench.errors;
}


TEST_F(OrmRender, RunsAnOversampledChainWithACabinetFromAFile) {
    // A response of one sample, 0.5, as a 24-bit WAV file.
    SF_INFO info{};
    info.samplerate = 48000;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_24;
    SNDFILE* handle = sf_open(path("ir.wav").c_str(), SFM_WRITE, &info);
    ASSERT_NE(nullptr, handle);
    std::vector<float> ir(64, 0.0f);
    ir[0] = 0.5f;
    sf_writef_float(handle, ir.data(), 64);
    sf_close(handle);

    // Input gain, ×4 interpolation, an identity table, decimation, a DC block and the cabinet:
    // in the pass band the chain is transparent apart from the response's 0.5.
    auto element = [](const std::string& type, const std::string& name, const std::string& properties,
                      const std::string& source) {
        return "<Element Type=\"" + type + "\" Name=\"" + name + "\"><Properties " + properties + "/><Inputs>"
               "<Input Port=\"in\" Element=\"" + source + "\" Output=\"" + (source == "Graph" ? "0" : "out") +
               "\"/></Inputs></Element>";
    };
    auto graph = [](const std::string& name, const std::string& source, const std::string& attributes,
                    const std::string& elements, const std::string& last) {
        return "<Graph Name=\"" + name + "\" Type=\"DSP\" " + attributes + "><NumberOfInputs>1</NumberOfInputs><Inputs>"
               "<Input Graph=\"" + source + "\" Node=\"" + (source == "System" ? "0" : "out") + "\"/></Inputs>" + elements +
               "<Output><Node Name=\"out\" Element=\"" + last + "\" Port=\"out\"/></Output></Graph>";
    };
    const std::string resampler = "Factor=\"4\" Order=\"2\" Cascade=\"4\" Type=\"Butterworth\"";
    std::ofstream(path("chain.xml"))
        << "<System><Graphs>"
        << graph("Up", "System", "Multiplier=\"4\"",
                 element("Gain", "In", "Gain=\"1\"", "Graph") +
                     element("IirInterpolator", "1", "CornerFrequency=\"15000\" " + resampler, "In"), "1")
        << graph("Tube", "Up", "", element("LookupTableFilter", "T", "VinMin=\"-2\" VinMax=\"2\" DeltaV=\"1\" Vout=\"-2|-1|0|1|2\"", "Graph"), "T")
        << graph("Down", "Tube", "Multiplier=\"0.25\"",
                 element("IirDecimator", "1", "CornerFrequency=\"20000\" " + resampler, "Graph"), "1")
        << graph("Cab", "Down", "",
                 element("FirstOrderIIR", "DC", "A=\"-0.9995\" B=\"1|-1\"", "Graph") +
                     element("WaveConvolver", "WV", "Location=\"File\" ImpulseResponses=\"" + path("ir.wav") +
                                                        "\" MaxIRSize=\"8192\" Gain=\"1\" Scale=\"false\"", "DC"),
                 "WV")
        << "</Graphs><Outputs><Output Graph=\"Cab\" Node=\"out\"/></Outputs></System>";
    Result result = run("--system " + path("chain.xml") + " --signal sine:1000:-20 --seconds 0.5 --tail 0 --out " + path("chain.wav"));
    ASSERT_EQ(0, result.status) << result.errors;
    SF_INFO outInfo;
    auto channels = read(path("chain.wav"), outInfo);
    ASSERT_EQ(1u, channels.size());
    ASSERT_EQ(24000u, channels[0].size());
    for (float sample : channels[0]) ASSERT_TRUE(std::isfinite(sample));
    const double gain = amplitudeAt(channels[0], 12000, 4800, 1000, 48000) / std::pow(10.0, -20.0 / 20.0);
    EXPECT_NEAR(0.5, gain, 0.5 * 0.012);  // within 0.1 dB: resamplers and DC block barely touch 1 kHz
}

TEST_F(OrmRender, RunsACircuitBetweenTwoFilterGraphs) {
    // The worked example of docs/circuits.md: a gain, a 12AX7 stage as a netlist, a gain.
    std::ifstream doc(std::string(ORM_SOURCE_DIR) + "/docs/circuits.md");
    std::stringstream text;
    text << doc.rdbuf();
    const std::string document = text.str();
    size_t start = document.find("```xml\n<System>");
    ASSERT_NE(std::string::npos, start);
    start += 7;
    std::ofstream(path("triode.xml")) << document.substr(start, document.find("```", start) - start);

    Result result = run("--system " + path("triode.xml") + " --signal sine:1000:-6 --seconds 0.2 --tail 0 --out " + path("triode.wav"));
    ASSERT_EQ(0, result.status) << result.errors;
    SF_INFO info;
    auto channels = read(path("triode.wav"), info);
    ASSERT_FALSE(channels.empty());
    ASSERT_EQ(9600u, channels[0].size());
    float peak = 0;
    for (float sample : channels[0]) {
        ASSERT_TRUE(std::isfinite(sample));
        peak = std::max(peak, std::fabs(sample));
    }
    EXPECT_GT(peak, 0.01f);  // the stage amplifies the signal it gets
}

TEST_F(OrmRender, OversamplingPathIsTransparentAtEveryFactor) {
    // A straight-line table between interpolator and decimator: unity gain at 1 kHz, whatever the
    // factor the control sets (the rates of the graphs follow it at the first block).
    const std::string system = std::string(ORM_SOURCE_DIR) + "/examples/oversampling.xml";
    for (int factor : {2, 4, 8}) {
        const std::string out = path("factor" + std::to_string(factor) + ".wav");
        Result result = run("--system " + system + " --signal sine:1000:-6 --seconds 0.5 --block 100 --tail 0 --set Factor=" +
                            std::to_string(factor) + " --out " + out);
        ASSERT_EQ(0, result.status) << result.errors;
        SF_INFO info;
        auto channels = read(out, info);
        ASSERT_EQ(24000u, channels.at(0).size());
        for (float sample : channels[0]) ASSERT_TRUE(std::isfinite(sample));
        const double gainDb = 20 * std::log10(amplitudeAt(channels[0], 12000, 4800, 1000, 48000) / std::pow(10.0, -6.0 / 20.0));
        EXPECT_NEAR(0.0, gainDb, 0.1) << "factor " << factor;
    }
}

TEST_F(OrmRender, CheckDescribesOrRefusesAndFailedSamplesAreCounted) {
    auto check = [&](const std::string& file, std::string& out) {
        std::string command = std::string(ORM_RENDER_PATH) + " --check " + file + " >" + path("out.txt") + " 2>&1";
        int status = std::system(command.c_str());
        std::stringstream text;
        text << std::ifstream(path("out.txt")).rdbuf();
        out = text.str();
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    };
    std::string out;
    EXPECT_EQ(0, check(example(), out));
    for (const char* words : {"Preamp: DSP, x1 (48000 Hz), 1 input, 1 output", "system: 1 input, 2 outputs", "Level"})
        EXPECT_NE(std::string::npos, out.find(words)) << out;
    EXPECT_FALSE(fs::exists(path("x.wav")));

    // A netlist: a source, a resistor, and two capacitors in series to ground.
    const std::string netlist =
        "<System><Graphs><Graph Name=\"C\" Type=\"MNA\"><NumberOfInputs>1</NumberOfInputs>"
        "<Inputs><Input Graph=\"System\" Node=\"0\"/></Inputs>"
        "<Element Type=\"VoltageInputSource\" Name=\"Vin\"><Properties InputNumber=\"0\"/><Node Name=\"in\"/><Node Name=\"GND\"/></Element>"
        "<Element Type=\"Resistor\" Name=\"R1\"><Properties Resistance=\"1000\"/><Node Name=\"in\"/><Node Name=\"out\"/></Element>"
        "<Element Type=\"Capacitor\" Name=\"C1\"><Properties Capacitance=\"1e-6\"/><Node Name=\"out\"/><Node Name=\"mid\"/></Element>"
        "<Element Type=\"Capacitor\" Name=\"C2\"><Properties Capacitance=\"1e-6\"/><Node Name=\"mid\"/><Node Name=\"GND\"/></Element>"
        "<Output><Node Name=\"out\"/></Output><Analysis Type=\"DC\"><Solver Type=\"Linear\"/></Analysis></Graph></Graphs>"
        "<Outputs><Output Graph=\"C\" Node=\"out\"/></Outputs></System>";
    std::ofstream(path("floating.xml")) << netlist;
    EXPECT_EQ(1, check(path("floating.xml"), out));
    EXPECT_EQ("orm-render: " + path("floating.xml") + ": singular matrix: node mid has no DC path to ground in Circuit C\n",
              out);

    // A cathode driven above a grounded screen: the pentode's current is not a number from the
    // first negative input on.  The render completes and says how many samples repeated.
    std::string pentode = netlist;
    pentode.replace(pentode.find("<Element Type=\"Resistor\""), pentode.find("<Output>") - pentode.find("<Element Type=\"Resistor\""),
                    "<Element Type=\"IdealAmplifier\" Name=\"A1\"><Properties Gain=\"-1\"/><Node Name=\"in\"/><Node Name=\"k\"/></Element>"
                    "<Element Type=\"Pentode\" Name=\"V1\"><Properties Type=\"KT66\"/><Node Name=\"p\"/><Node Name=\"GND\"/><Node Name=\"g\"/><Node Name=\"k\"/></Element>"
                    "<Element Type=\"Resistor\" Name=\"Rp\"><Properties Resistance=\"1000\"/><Node Name=\"p\"/><Node Name=\"GND\"/></Element>"
                    "<Element Type=\"Resistor\" Name=\"Rg\"><Properties Resistance=\"1000\"/><Node Name=\"g\"/><Node Name=\"GND\"/></Element>"
                    "<Element Type=\"Resistor\" Name=\"Ro\"><Properties Resistance=\"1000\"/><Node Name=\"in\"/><Node Name=\"out\"/></Element>"
                    "<Element Type=\"Resistor\" Name=\"Rl\"><Properties Resistance=\"1000\"/><Node Name=\"out\"/><Node Name=\"GND\"/></Element>");
    pentode.replace(pentode.find("<Solver Type=\"Linear\"/>"), 23,
                    "<Solver Type=\"NewtonRaphson\"><Properties RelativeTollerance=\"1e-6\" AbsoluteTollerance=\"1e-6\" MaxIterations=\"10\"/></Solver>");
    std::ofstream(path("pentode.xml")) << pentode;
    Result result = run("--system " + path("pentode.xml") + " --signal sine:1000 --seconds 0.01 --out " + path("p.wav"));
    EXPECT_EQ(0, result.status) << result.errors;
    EXPECT_NE(std::string::npos, result.errors.find("samples of a circuit failed to solve; each repeats the previous sample"))
        << result.errors;
}

TEST_F(OrmRender, FormatsFollowTheNameAndEqualRendersGiveEqualFiles) {
    // The same render in every format: the format the name and --bits ask for, the float
    // render's samples within the depth's dither and rounding, and the same bytes twice.
    const std::string render = "--system " + example() + " --signal sine:1000:-6 --seconds 0.5 --quiet --out ";
    ASSERT_EQ(0, run(render + "float.wav").status);
    SF_INFO info;
    const auto reference = read(path("float.wav"), info);
    struct Format {
        std::string name, bits;
        int format;
        double tolerance;  // per sample; the lossy format is checked by its level
    };
    const std::vector<Format> formats = {
        {"a.wav", "16", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1.5 / 32768},
        {"b.wav", "24", SF_FORMAT_WAV | SF_FORMAT_PCM_24, 1.5 / 8388608},
        {"c.flac", "", SF_FORMAT_FLAC | SF_FORMAT_PCM_24, 1.5 / 8388608},
        {"d.flac", "16", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 1.5 / 32768},
        {"e.aiff", "", SF_FORMAT_AIFF | SF_FORMAT_FLOAT, 0},
        {"f.aif", "24", SF_FORMAT_AIFF | SF_FORMAT_PCM_24, 1.5 / 8388608},
        {"g.ogg", "", SF_FORMAT_OGG | SF_FORMAT_VORBIS, -1},
    };
    for (const Format& f : formats) {
        const std::string bits = f.bits.empty() ? "" : " --bits " + f.bits;
        ASSERT_EQ(0, run(render + f.name + bits).status) << f.name;
        const auto channels = read(path(f.name), info);
        EXPECT_EQ(f.format, info.format) << f.name;
        ASSERT_EQ(reference.size(), channels.size()) << f.name;
        if (f.tolerance >= 0) {
            ASSERT_EQ(reference[0].size(), channels[0].size()) << f.name;
            double worst = 0, sum = 0;
            for (size_t i = 0; i < channels[0].size(); ++i) {
                const double error = std::fabs(channels[0][i] - reference[0][i]);
                worst = std::max(worst, error);
                sum += error * error;
            }
            EXPECT_LE(worst, f.tolerance) << f.name;
            // TPDF dither of one step and rounding: 0.5 step RMS (rounding alone gives 0.29).
            const double rms = std::sqrt(sum / double(channels[0].size())) / (f.tolerance / 1.5);
            if (f.tolerance > 0) {
                EXPECT_NEAR(0.5, rms, 0.05) << f.name;
            }
        } else {
            const double level = amplitudeAt(channels[0], 4800, 14400, 1000, 48000) / amplitudeAt(reference[0], 4800, 14400, 1000, 48000);
            EXPECT_NEAR(1.0, level, 0.06) << f.name;  // within half a dB
        }
        if (f.format == (SF_FORMAT_OGG | SF_FORMAT_VORBIS)) continue;  // libsndfile draws Ogg's stream number at random
        ASSERT_EQ(0, run(render + "again-" + f.name + bits).status);
        EXPECT_EQ(contents(path(f.name)), contents(path("again-" + f.name))) << f.name;
    }
    ASSERT_EQ(0, run(render + "again.wav").status);
    EXPECT_EQ(contents(path("float.wav")), contents(path("again.wav")));
    // Digital silence gets no dither.
    ASSERT_EQ(0, run("--system " + example() + " --signal silence --seconds 0.1 --quiet --bits 16 --out silence.wav").status);
    EXPECT_EQ(std::vector<float>(4800, 0.0f), read(path("silence.wav"), info).at(0));
}

TEST_F(OrmRender, WritesSafely) {
    const std::string render = "--system " + example() + " --signal sine:1000:-6 --seconds 0.2 --quiet --out ";
    ASSERT_EQ(0, run(render + "plain.wav").status);
    // A link is followed, not replaced.
    fs::create_directory(path("takes"));
    std::ofstream(path("takes/real.wav")) << "old";
    fs::create_symlink("takes/real.wav", path("link.wav"));
    ASSERT_EQ(0, run(render + "link.wav").status);
    EXPECT_TRUE(fs::is_symlink(path("link.wav")));
    EXPECT_EQ(contents(path("plain.wav")), contents(path("takes/real.wav")));
    // Standard output, and the same WAV read back from standard input.
    Result piped = run(render + "-");
    ASSERT_EQ(0, piped.status);
    EXPECT_EQ(0u, piped.output.find("RIFF")) << piped.output.substr(0, 16);
    EXPECT_FALSE(fs::exists(path("-")));
    Result through = run("--system " + example() + " --set Tube=0 --set Level=1 --in - --quiet --tail 0 --out piped.wav",
                         ORM_RENDER_PATH + std::string(" ") + render + "- | ");
    ASSERT_EQ(0, through.status) << through.errors;
    SF_INFO info;
    EXPECT_EQ(read(path("plain.wav"), info), read(path("piped.wav"), info));
    // A device is written to, never replaced.
    EXPECT_EQ(0, run(render + "/dev/null").status);
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
    // An interrupted render leaves nothing behind: neither its file nor the temporary one.
    Result interrupted = run("--system " + example() + " --signal riff --seconds 3000 --out long.wav", "timeout -s INT 1 ");
    EXPECT_NE(0, interrupted.status);
    for (const auto& entry : fs::directory_iterator(directory))
        EXPECT_EQ(std::string::npos, entry.path().filename().string().find("long")) << entry.path();
}

TEST_F(OrmRender, TheTailLetsTheCabinetRingOut) {
    // An impulse of 0.1 s through the amplifier: the cabinet rings on past it.
    ASSERT_EQ(0, run("--signal impulse --seconds 0.1 --quiet --out ring.wav").status);
    ASSERT_EQ(0, run("--signal impulse --seconds 0.1 --quiet --tail 0 --out cut.wav").status);
    ASSERT_EQ(0, run("--signal impulse --seconds 0.1 --quiet --tail 0.02 --out short.wav").status);
    SF_INFO info;
    const auto ring = read(path("ring.wav"), info), cut = read(path("cut.wav"), info), shortTail = read(path("short.wav"), info);
    EXPECT_EQ(4800u, cut[0].size());
    EXPECT_EQ(4800u + 960u, shortTail[0].size());  // still loud at its end: the whole 0.02 s
    ASSERT_GT(ring[0].size(), 4800u + 960u);
    EXPECT_LT(ring[0].size(), 4800u + 96000u);
    // The render ends at the last sample above -90 dBFS.
    const float level = std::pow(10.0f, -90.0f / 20.0f);
    EXPECT_GT(std::max(std::fabs(ring[0].back()), std::fabs(ring[1].back())), level);
    for (size_t i = 0; i < 4800; ++i) ASSERT_EQ(cut[0][i], ring[0][i]) << i;
}

TEST_F(OrmRender, RendersSeveralFilesIntoADirectory) {
    const std::string system = "--system " + example() + " --quiet ";
    ASSERT_EQ(0, run(system + "--signal sine:500 --seconds 0.1 --out one.wav").status);
    ASSERT_EQ(0, run(system + "--signal sine:700 --seconds 0.2 --out two.flac").status);
    fs::create_directory(path("out"));
    Result batch = run("--system " + example() + " --in one.wav --in two.flac --out-dir out");
    ASSERT_EQ(0, batch.status) << batch.errors;
    EXPECT_NE(std::string::npos, batch.errors.find("wrote out/one.wav")) << batch.errors;
    EXPECT_NE(std::string::npos, batch.errors.find("wrote out/two.flac")) << batch.errors;
    SF_INFO info;
    EXPECT_EQ(4800u, read(path("out/one.wav"), info)[0].size());
    EXPECT_EQ(9600u, read(path("out/two.flac"), info)[0].size());
    // An output that would be its own input is refused, and the other files still render.
    Result self = run("--system " + example() + " --in one.wav --in out/two.flac --out-dir out");
    EXPECT_EQ(1, self.status);
    EXPECT_NE(std::string::npos, self.errors.find("out/two.flac is the input itself")) << self.errors;
    EXPECT_EQ(9600u, read(path("out/two.flac"), info)[0].size());
}

TEST_F(OrmRender, EveryHostRateSoundsLikeFortyEightKilohertz) {
    // One guitar phrase at 48 kHz, through the amplifier at every rate a host offers (converted on
    // the way in): its level within a few dB of 48 kHz's.  Below 22 kHz the resamplers' corners
    // sit below the host's Nyquist frequency and take some of a distorted guitar's highs: 3 to 4 dB
    // at 8 kHz.
    ASSERT_EQ(0, run("--system " + example() + " --set Tube=0 --set Level=1 --signal riff --seconds 1 --tail 0 --quiet --out riff.wav").status);
    std::map<int, double> levels;
    for (int rate : {48000, 8000, 11025, 16000, 22050, 32000, 44100, 88200, 96000, 176400, 192000, 352800, 384000}) {
        const std::string out = "r" + std::to_string(rate) + ".wav";
        Result result = run("--in riff.wav --rate " + std::to_string(rate) + " --block 4096 --tail 0 --quiet --out " + out);
        ASSERT_EQ(0, result.status) << rate << result.errors;
        SF_INFO info;
        const auto channels = read(path(out), info);
        ASSERT_EQ(rate, info.samplerate);
        double sum = 0;
        const size_t from = static_cast<size_t>(rate / 4);
        for (size_t i = from; i < channels[0].size(); ++i) {
            ASSERT_TRUE(std::isfinite(channels[0][i])) << rate;
            sum += double(channels[0][i]) * channels[0][i];
        }
        levels[rate] = 10 * std::log10(sum / double(channels[0].size() - from) + 1e-30);
        std::printf("[ figures  ] %6d Hz: %.2f dBFS RMS (%+.2f dB against 48 kHz)\n", rate, levels[rate], levels[rate] - levels[48000]);
        EXPECT_NEAR(levels[48000], levels[rate], rate < 16000 ? 5.0 : 1.0) << rate;
    }
    EXPECT_GT(levels[48000], -40.0);
}

namespace {

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

}  // namespace

TEST_F(OrmRender, ALongRenderRunsInBoundedMemory) {
    // Ten minutes of audio (230 MB of float samples) streamed through a description take no more
    // memory than one minute: holding them would add 200 MB.  (A sanitizer's own overhead is
    // the same for both.)  A one-hour render through the amplifier is measured by hand (README).
    auto render = [](const std::string& seconds) {
        return residentKilobytes({"--system", std::string(ORM_SOURCE_DIR) + "/examples/tube-stage.xml", "--signal", "noise",
                                  "--seconds", seconds, "--block", "1024", "--quiet", "--out", "/dev/null"});
    };
    const long minute = render("60"), tenMinutes = render("600");
    ASSERT_GT(minute, 0);
    ASSERT_GT(tenMinutes, 0);
    std::printf("[ figures  ] resident at most: %ld MB for 60 s, %ld MB for 600 s\n", minute / 1024, tenMinutes / 1024);
    EXPECT_LT(tenMinutes - minute, 16L * 1024);
}
