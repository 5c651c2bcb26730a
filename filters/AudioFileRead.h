#pragma once
// The engine's WAV reader: parses RIFF/WAVE data from memory (a file or a module resource) and
// converts the samples of any supported format to scalar.  Load time only.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "engine/Types.h"

namespace stk {

using vrn::scalar;

class Stk {
public:
    virtual ~Stk() {}

    // Sample formats, as dataType codes.
    static const int32_t STK_SINT8 = 1;
    static const int32_t STK_SINT16 = 2;
    static const int32_t STK_SINT24 = 4;
    static const int32_t STK_SINT32 = 8;
    static const int32_t STK_FLOAT32 = 16;
    static const int32_t STK_FLOAT64 = 32;

    // Where raw wave files would be found; nothing here uses it.
    static std::string rawwavepath;
};

// The caller's buffer: frames × channels interleaved samples.
class StkFrames {
public:
    StkFrames(unsigned int nFrames = 0, unsigned int nChannels = 1);
    StkFrames(const StkFrames&) = delete;
    StkFrames& operator=(const StkFrames&) = delete;

    scalar& operator[](size_t index) { return data[index]; }
    scalar operator[](size_t index) const { return data[index]; }
    scalar& operator()(size_t frame, unsigned int channel) { return data[frame * nChannels + channel]; }
    scalar* getData() { return data; }
    unsigned int frames() const { return nFrames; }
    unsigned int channels() const { return nChannels; }
    size_t size() const { return nValues; }
    scalar dataRate() const { return rate; }
    void setDataRate(scalar value) { rate = value; }

private:
    std::unique_ptr<scalar[]> storage;
    scalar* data = nullptr;
    scalar rate = 44100.0f;
    unsigned int nFrames = 0;
    unsigned int nChannels = 0;
    size_t nValues = 0;
};

// A read-only, seekable stream over bytes held elsewhere.
class ByteStream {
public:
    ByteStream(const char* bytes, uint64_t count) : bytes(bytes), count(count) {}
    // Copies up to n bytes; returns how many it copied.
    size_t read(void* out, size_t n);
    // Absolute or relative; a target outside [0, size] fails and leaves the position.
    bool seek(int64_t offset, bool relative);
    uint64_t tell() const { return position; }

private:
    const char* bytes;
    uint64_t count;
    uint64_t position = 0;
};

class AudioFileRead : public Stk {
public:
    // name: a path for openFile, "TYPE|NAME" for openResource.
    explicit AudioFileRead(const std::string& name) : fileName(name) {}

    // Fetch the bytes and parse the WAV header; VRNException on any fault.
    void openFile();
    void openResource();
    // Fills frames from the start of the data: min(frames, fileSize) frames, interleaved; sets
    // the buffer's dataRate to the file's rate.  The rest of the buffer is left as it was.
    void read(StkFrames& frames);

    bool isWavFile() const { return wavFile; }
    uint32_t getFileSize() const { return fileSize; }
    // The frames a caller's buffer for read needs: fileSize, but no more than the data present
    // and one frame beyond it.  A header may promise gigabytes that the file does not hold; such
    // a file still fails in read with the reader's own message, without the memory first.
    uint32_t getBufferFrames() const;
    uint32_t getChannels() const { return channels; }
    int32_t getDataType() const { return dataType; }
    scalar getFileRate() const { return fileRate; }
    int64_t getDataOffset() const { return dataOffset; }

private:
    void open(const std::shared_ptr<std::vector<char>>& bytes);
    bool getWavInfo();

    std::string fileName;
    std::shared_ptr<std::vector<char>> data;
    bool byteSwap = false;
    bool wavFile = false;
    uint32_t fileSize = 0;
    int64_t dataOffset = 0;
    uint32_t channels = 0;
    int32_t dataType = 0;
    scalar fileRate = 0.0f;
    std::unique_ptr<ByteStream> stream;
};

}  // namespace stk
