// The WAV reader: every sample format read back exactly from files written here byte by byte,
// the chunk walking rules, and the failure of each check from a crafted file.

#include <gtest/gtest.h>

#include <cstring>
#include <cstdio>
#include <initializer_list>
#include <utility>
#include <random>
#include <stdexcept>

#include <unistd.h>

#include "engine/Exceptions.h"
#include "filters/AudioFileRead.h"
#include "filters/ResourceReaders.h"
#include "support/TestSupport.h"
#include "support/WavBytes.h"

using namespace wavbytes;
using stk::AudioFileRead;
using stk::StkFrames;

namespace {

std::string tempPath(const std::string& name) {
    return ::testing::TempDir() + "orm_readers_" + std::to_string(getpid()) + "_" + name;
}

std::string writeTemp(const std::string& name, const Bytes& bytes) {
    std::string path = tempPath(name);
    writeFile(path, bytes);
    return path;
}

using orm_test::messageOf;

// The message that opening and reading the file throws.
std::string failureOf(const Bytes& bytes) {
    std::string path = writeTemp("crafted.wav", bytes);
    std::string message = messageOf([&] {
        AudioFileRead reader(path);
        reader.openFile();
        StkFrames frames(64, 1);
        reader.read(frames);
    });
    std::remove(path.c_str());
    return message;
}

Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes b;
    for (const Bytes& part : parts) append(b, part);
    return b;
}
Bytes text(const char* t) {
    Bytes b;
    putText(b, t);
    return b;
}
Bytes word(uint32_t v) {
    Bytes b;
    put32(b, v);
    return b;
}

Bytes header(const char* riffId = "RIFF", const char* waveId = "WAVE") {
    Bytes b;
    putText(b, riffId);
    put32(b, 0);
    putText(b, waveId);
    return b;
}

// A mono or stereo file whose data chunk declares `declared` bytes and holds `present`.
Bytes promising(uint16_t tag, uint16_t channels, uint16_t bits, uint32_t declared, size_t present) {
    return riff(cat({chunk("fmt ", formatBody(tag, channels, 44100, bits)), text("data"), word(declared), Bytes(present, 0)}));
}

}  // namespace

TEST(AudioFileRead, EveryFormatReadsBackExactly) {
    std::mt19937 random(7);
    const unsigned int channels = 2, frames = 40;  // a multiple of 8 frames: the frame count is exact
    const struct {
        const char* label;
        uint16_t tag, bits;
        bool extensible;
        int32_t dataType;
    } cases[] = {
        {"8-bit", 1, 8, false, stk::Stk::STK_SINT8},     {"16-bit", 1, 16, false, stk::Stk::STK_SINT16},
        {"24-bit", 1, 24, false, stk::Stk::STK_SINT24},  {"32-bit", 1, 32, false, stk::Stk::STK_SINT32},
        {"float", 3, 32, false, stk::Stk::STK_FLOAT32},  {"double", 3, 64, false, stk::Stk::STK_FLOAT64},
        {"extensible 24-bit", 1, 24, true, stk::Stk::STK_SINT24},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        Bytes samples;
        std::vector<float> expected;
        for (size_t i = 0; i < channels * frames; ++i) {
            if (c.tag == 3) {  // floats as they are; doubles narrowed
                double v = std::uniform_real_distribution<double>(-1.5, 1.5)(random);
                float single = static_cast<float>(v);
                uint64_t bits = 0;
                std::memcpy(&bits, c.bits == 32 ? static_cast<void*>(&single) : static_cast<void*>(&v), c.bits / 8);
                c.bits == 32 ? put32(samples, static_cast<uint32_t>(bits)) : put64(samples, bits);
                expected.push_back(single);
                continue;
            }
            // Integers of full scale 2^(bits−1), the extremes first; 8-bit ones are offset by 128,
            // 32-bit ones keep 24 significant bits so that the value is exact as a float.
            const int64_t full = int64_t(1) << (c.bits - 1);
            int64_t v = i == 0 ? -full : i == 1 ? full - 1 : static_cast<int64_t>(random() % (2 * full)) - full;
            if (c.bits == 32) v = v / 256 * 256;
            const uint64_t word = static_cast<uint64_t>(c.bits == 8 ? v + 128 : v);
            for (int k = 0; k < c.bits / 8; ++k) samples.push_back(static_cast<unsigned char>(word >> (8 * k)));
            expected.push_back(static_cast<float>(static_cast<double>(v) / static_cast<double>(full)));
        }
        Bytes format = c.extensible ? extensibleBody(c.tag, channels, 96000, c.bits)
                                    : formatBody(c.tag, channels, 96000, c.bits);
        std::string path = writeTemp("format.wav", wav(format, samples));
        AudioFileRead reader(path);
        reader.openFile();
        EXPECT_EQ(reader.getDataType(), c.dataType);
        EXPECT_EQ(reader.getFileSize(), frames);
        StkFrames buffer(frames, channels);
        reader.read(buffer);
        EXPECT_EQ(buffer.dataRate(), 96000.0f);
        size_t mismatches = 0;
        for (size_t i = 0; i < expected.size(); ++i) mismatches += buffer[i] != expected[i];
        EXPECT_EQ(mismatches, 0u);
        std::remove(path.c_str());
    }
}

TEST(AudioFileRead, ChunkWalkingAndReadLengths) {
    Bytes samples;
    for (int i = 0; i < 16; ++i) put16(samples, static_cast<uint32_t>(i * 1000));
    // An even chunk in front of "fmt " and an odd one, with its pad byte, in front of "data".
    Bytes chunks = cat({chunk("JUNK", Bytes(6, 0xee)), chunk("fmt ", formatBody(1, 1, 48000, 16)),
                        chunk("LIST", Bytes(5, 0xdd), true), chunk("data", samples)});
    std::string path = writeTemp("chunks.wav", riff(chunks));
    AudioFileRead reader(path);
    reader.openFile();
    EXPECT_EQ(reader.getDataOffset(), 12 + 14 + 24 + 14 + 8);
    EXPECT_EQ(reader.getFileSize(), 16u);
    // Longer than the file: reading stops at the file's end, the rest of the buffer stays.
    StkFrames frames(20, 1);
    for (size_t i = 0; i < 20; ++i) frames[i] = 7.0f;
    reader.read(frames);
    EXPECT_EQ(frames[15], 15000.0f / 32768.0f);
    EXPECT_EQ(frames[16], 7.0f);
    // Shorter than the file: only what fits, from the start again.
    StkFrames few(3, 1);
    reader.read(few);
    EXPECT_EQ(few[2], 2000.0f / 32768.0f);
    std::remove(path.c_str());
}

// The frame count divides bytes by bits, then by channels, then multiplies by 8, each in integers.
// A buffer sized by getBufferFrames holds the data present and one frame more, however much the
// header promises, and a read past the data fails with the reader's message.
TEST(AudioFileRead, FrameCountsAndBufferFrames) {
    const char* kShort = "AudioFileRead 786 Error while trying to read from the stream.";
    const struct {
        uint32_t declaredBytes;
        size_t presentBytes;
        uint16_t channels;
        uint32_t fileSize, bufferFrames;
        const char* failure;
    } cases[] = {
        {64, 64, 2, 16, 16, ""},
        {34, 34, 2, 8, 8, ""},  // 34 / 16 / 2 * 8: 8 frames, not 8.5
        {62, 64, 2, 8, 8, ""},
        {0xFFFFFFF0u, 4, 2, 0x3FFFFFF8u, 2, kShort},
        {0x7FFFFFF0u, 0, 1, 0x3FFFFFF8u, 1, kShort},
    };
    for (const auto& c : cases) {
        std::string path = writeTemp("frames.wav", promising(1, c.channels, 16, c.declaredBytes, c.presentBytes));
        AudioFileRead reader(path);
        reader.openFile();
        EXPECT_EQ(c.fileSize, reader.getFileSize()) << c.declaredBytes;
        EXPECT_EQ(c.bufferFrames, reader.getBufferFrames()) << c.declaredBytes;
        StkFrames frames(reader.getBufferFrames(), reader.getChannels());
        EXPECT_EQ(c.failure, messageOf([&] { reader.read(frames); })) << c.declaredBytes;
        std::remove(path.c_str());
    }
}

TEST(AudioFileRead, FailureMessagesFromCraftedFiles) {
    auto withFmt = [](const Bytes& tail) { return cat({header(), chunk("fmt ", formatBody(1, 1, 44100, 16)), tail}); };
    auto fmtHead = [](uint32_t size, const Bytes& body) { return cat({header(), text("fmt "), word(size), body}); };
    const std::pair<Bytes, const char*> cases[] = {
        {Bytes{'R', 'I', 'F', 'F', 0}, "AudioFileRead: Error while reading header. 5"},
        {header("RIFX"), "AudioFileRead: File is not a wav file."},
        {header("RIFF", "AVI "), "AudioFileRead: File is not a wav file."},
        {cat({header(), text("JUNK"), word(100)}), "AudioFileRead: 154 Error while trying to set position."},
        {fmtHead(16, Bytes{1}), "AudioFileRead 159 Error while trying to read from the stream."},
        {fmtHead(40, extensibleBody(1, 1, 44100, 16, 0)), "AudioFileRead::getWavInfo Invalid extSize 0"},
        {wav(extensibleBody(2, 1, 44100, 16), {}), "Unsupported data format type: 2"},
        {wav(formatBody(6, 1, 44100, 8), {}), "Unsupported data format type: 6"},
        {wav(formatBody(1, 1, 44100, 12), {}), "AudioFileRead: 12 bits per sample with data format 1 are not supported."},
        {wav(formatBody(3, 1, 44100, 16), {}), "AudioFileRead: 16 bits per sample with data format 3 are not supported."},
        {wav(formatBody(1, 0, 44100, 16), {}), "AudioFileRead::getWavInfo Invalid number of channels 0"},
        {withFmt(cat({text("LIST"), word(9)})), "AudioFileRead: 303 Error while trying to set position."},
        {withFmt(cat({text("data"), Bytes{0}})), "AudioFileRead::getWavInfo Error while trying to read bytes."},
        // The data chunk promises 64 frames and holds fewer: the sample read fails with the marker
        // of its format (24-bit samples: of the first sample, or of a later one).
        {promising(1, 1, 8, 64, 3), "AudioFileRead 881 Error while trying to read from the stream."},
        {promising(1, 1, 24, 192, 2), "AudioFileRead 908 Error while trying to read from the stream."},
        {promising(1, 1, 24, 192, 4), "AudioFileRead 914 Error while trying to read from the stream."},
    };
    for (const auto& [bytes, message] : cases) EXPECT_EQ(failureOf(bytes), message);
}

TEST(ResourceReaders, FilesAndTheirFailures) {
    auto fileFailure = [](const std::string& path) { return messageOf([&] { vrn::FileReader reader(path); }); };
    const std::string missing = tempPath("missing.wav"), empty = writeTemp("empty.wav", {});
    // Files of /proc, and folders, have no length that a seek could tell.
    const std::pair<std::string, std::string> cases[] = {
        {missing, "Cannot find file with name: " + missing},
        {empty, "FileReader: Empty file " + empty},
        {"/proc/self/status", "FileReader: Cannot determine length of the file /proc/self/status"},
        {"/", "FileReader: Cannot determine length of the file /"},
    };
    for (const auto& [path, message] : cases) EXPECT_EQ(fileFailure(path), message);
    std::remove(empty.c_str());
}

TEST(ResourceReaders, ModuleResources) {
    // "TYPE|NAME", compared without regard to case as module resources are.
    vrn::DllResourceReader reader("WAV|STEPS");
    EXPECT_EQ(reader.getSize(), 60u);
    vrn::DllResourceReader lower("wav|steps");
    EXPECT_EQ(*lower.getData(), *reader.getData());

    AudioFileRead wav("WAV|STEPS");
    wav.openResource();
    EXPECT_EQ(wav.getFileRate(), 22050.0f);
    StkFrames frames(8, 1);
    wav.read(frames);
    const float expected[8] = {0, 32767, -32768, 1, -1, 16384, -16384, 100};
    for (size_t i = 0; i < 8; ++i) EXPECT_EQ(frames[i], expected[i] / 32768.0f) << i;

    // Name and type in front of the separator leave the name empty.
    const std::pair<const char*, const char*> failures[] = {{"WAV|NOSUCH", "Could not locate Resource File NOSUCH"},
                                                            {"PNG|STEPS", "Could not locate Resource File STEPS"},
                                                            {"STEPSWAV|", "Could not locate Resource File "},
                                                            {"STEPS", "invalid vector<T> subscript"}};
    for (const auto& [location, message] : failures)
        EXPECT_EQ(messageOf([&] { vrn::DllResourceReader failing(location); }), message) << location;
}
