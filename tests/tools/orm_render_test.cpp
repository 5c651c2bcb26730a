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
    // Hosting modules and benchmarking are not part of this form of the tool yet, and say so.
    Result plugin = run("--signal riff --out " + path("p.wav"));
    EXPECT_EQ(2, plugin.status);
    EXPECT_NE(std::string::npos, plugin.errors.find("not available yet")) << plugin.errors;
    Result bench = run(system + "--signal riff --bench --out " + path("p.wav"));
    EXPECT_EQ(2, bench.status);
    EXPECT_NE(std::string::npos, bench.errors.find("not available yet")) << bench.errors;
}
