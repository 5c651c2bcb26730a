// A header that promises more data than the file holds: the caller's buffer stays the size of
// the data present (and one frame more), and the read still fails with the reader's message.

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include <unistd.h>

#include "engine/Exceptions.h"
#include "filters/AudioFileRead.h"
#include "support/WavBytes.h"

using namespace wavbytes;

TEST(AudioFileRead, BufferFramesAreBoundedByTheDataPresent) {
    struct Case {
        uint32_t declaredBytes;
        size_t presentBytes;
        uint16_t channels;
        uint32_t fileSize, bufferFrames;
        const char* failure;  // of read with that buffer; "" when it reads
    } const cases[] = {
        {64, 64, 2, 16, 16, ""},  // complete
        {62, 64, 2, 8, 8, ""},    // the frame count's integer rule: 62 / 16 / 2 * 8
        {0xFFFFFFF0u, 4, 2, 0x3FFFFFF8u, 2, "AudioFileRead 786 Error while trying to read from the stream."},
        {0x7FFFFFF0u, 0, 1, 0x3FFFFFF8u, 1, "AudioFileRead 786 Error while trying to read from the stream."},
    };
    for (const Case& c : cases) {
        Bytes fmt;
        putText(fmt, "fmt ");
        put32(fmt, 16);
        put16(fmt, 1);
        put16(fmt, c.channels);
        put32(fmt, 44100);
        put32(fmt, 44100u * 2u * c.channels);
        put16(fmt, static_cast<uint16_t>(2 * c.channels));
        put16(fmt, 16);
        Bytes body;
        putText(body, "WAVE");
        append(body, fmt);
        putText(body, "data");
        put32(body, c.declaredBytes);
        append(body, Bytes(c.presentBytes, 0));
        Bytes file;
        putText(file, "RIFF");
        put32(file, static_cast<uint32_t>(body.size()));
        append(file, body);
        const std::string path = ::testing::TempDir() + "orm_buffer_frames_" + std::to_string(getpid()) + ".wav";
        writeFile(path, file);

        stk::AudioFileRead reader(path);
        reader.openFile();
        EXPECT_EQ(c.fileSize, reader.getFileSize()) << c.declaredBytes;
        EXPECT_EQ(c.bufferFrames, reader.getBufferFrames()) << c.declaredBytes;
        std::string failure;
        try {
            stk::StkFrames frames(reader.getBufferFrames(), reader.getChannels());
            reader.read(frames);
        } catch (const vrn::VRNException& e) {
            failure = e.getMessage();
        }
        EXPECT_EQ(c.failure, failure) << c.declaredBytes;
        std::remove(path.c_str());
    }
}
