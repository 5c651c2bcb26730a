// orm-render as a user runs it: exit statuses, messages, and the audio it writes.

#include <gtest/gtest.h>

#include <sndfile.h>
#include <sys/wait.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace {

struct Result {
    int status;
    std::string errors;
};

class OrmRender : public ::testing::Test {
protected:
    void SetUp() override {
        directory = fs::temp_directory_path() / ("orm-render-test-" + std::to_string(::getpid()) + "-" +
                                                 ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::create_directories(directory);
    }
    void TearDown() override { fs::remove_all(directory); }

    Result run(const std::string& arguments) {
        std::string errors = (directory / "stderr.txt").string();
        std::string command = std::string(ORM_RENDER_PATH) + " " + arguments + " 2>" + errors + " >/dev/null";
        int status = std::system(command.c_str());
        std::ifstream file(errors);
        std::stringstream text;
        text << file.rdbuf();
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text.str()};
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
    EXPECT_EQ(2, run("--system " + example() + " --in " + path("in.wav") + " --rate 48000 --out " + path("x.wav")).status);
}

TEST_F(OrmRender, FaultyDescriptionsFailWithTheSystemsMessageAndNoFile) {
    std::ofstream(path("bad.xml")) << "<System><Graphs><Graph Name=\"A\" Type=\"DSP\"><Element Type=\"Valve\" Name=\"V\"/>"
                                      "</Graph></Graphs></System>";
    Result result = run("--system " + path("bad.xml") + " --signal impulse --out " + path("bad.wav"));
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("orm-render: Unknown element type: Valve\n", result.errors);
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
    result = run("--system " + example() + " --signal impulse --set Drive=1 --out " + path("m.wav"));
    EXPECT_EQ("orm-render: unknown control Drive (controls: Tube, Level)\n", result.errors);
}

TEST_F(OrmRender, UsageErrorsExitWithTwo) {
    const std::string system = "--system " + example() + " ";
    for (const std::string& arguments :
         {system + "--signal riff", system + "--out x.wav", system + "--signal riff --in a.wav --out x.wav",
          system + "--signal riff --block 0 --out x.wav", system + "--signal riff --rate fast --out x.wav",
          system + "--signal riff --frobnicate --out x.wav", system + "--signal chirp --out x.wav",
          system + "--signal sine:30000 --out x.wav", system + "--signal riff --set Tube --out x.wav"}) {
        Result result = run(arguments);
        EXPECT_EQ(2, result.status) << arguments;
        EXPECT_EQ(0u, result.errors.find("orm-render: ")) << result.errors;
    }
}

TEST_F(OrmRender, HostsTheBuiltInAmplifierAndOtherModules) {
    // The default source is the orm module beside the tool, driven through its VST2 interface.
    Result quiet = run("--signal sine:1000:-6 --seconds 0.5 --out " + path("a.wav"));
    ASSERT_EQ(0, quiet.status) << quiet.errors;
    Result loud = run("--signal sine:1000:-6 --seconds 0.5 --set Output=1 --out " + path("b.wav"));
    ASSERT_EQ(0, loud.status) << loud.errors;
    Result driven = run("--signal sine:1000:-6 --seconds 0.5 --set Output=1 --set 0=1 --out " + path("g.wav"));
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

    // Names as the host sees them (a long name matches on its first eight letters) or indices.
    EXPECT_EQ(0, run("--signal impulse --seconds 0.1 --set Oversampling=1 --set 7=1 --out " + path("c.wav")).status);
    Result unknown = run("--signal impulse --seconds 0.1 --set Drive=1 --out " + path("d.wav"));
    EXPECT_EQ(1, unknown.status);
    EXPECT_EQ(0u, unknown.errors.find("orm-render: unknown parameter Drive (parameters: 0 Volume, 1 Feedback"))
        << unknown.errors;
    Result missing = run("--plugin " + path("none.so") + " --signal impulse --out " + path("e.wav"));
    EXPECT_EQ(1, missing.status);
    EXPECT_NE(std::string::npos, missing.errors.find("cannot load")) << missing.errors;
    EXPECT_FALSE(fs::exists(path("e.wav")));

    Result bench = run("--signal riff --seconds 0.5 --bench --out " + path("f.wav"));
    EXPECT_EQ(0, bench.status) << bench.errors;
}

namespace {

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
    Result result = run("--system " + path("chain.xml") + " --signal sine:1000:-20 --seconds 0.5 --out " + path("chain.wav"));
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

    Result result = run("--system " + path("triode.xml") + " --signal sine:1000:-6 --seconds 0.2 --out " + path("triode.wav"));
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
        Result result = run("--system " + system + " --signal sine:1000:-6 --seconds 0.5 --block 100 --set Factor=" +
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
    EXPECT_EQ("orm-render: singular matrix: node mid has no DC path to ground in Circuit C\n", out);

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
