#include "filters/AudioFileRead.h"

#include <algorithm>
#include <cstring>

#include "engine/Exceptions.h"
#include "filters/ResourceReaders.h"

namespace stk {

using vrn::toString;
using vrn::VRNException;

std::string Stk::rawwavepath = "../../rawwaves/";

StkFrames::StkFrames(unsigned int frameCount, unsigned int channelCount)
    : nFrames(frameCount), nChannels(channelCount), nValues(static_cast<size_t>(frameCount) * channelCount) {
    if (nValues) {
        storage.reset(new scalar[nValues]());
        data = storage.get();
    }
}

size_t ByteStream::read(void* out, size_t n) {
    size_t available = position < count ? static_cast<size_t>(count - position) : 0;
    size_t copied = std::min(n, available);
    if (copied) std::memcpy(out, bytes + position, copied);
    position += copied;
    return copied;
}

bool ByteStream::seek(int64_t offset, bool relative) {
    int64_t target = relative ? static_cast<int64_t>(position) + offset : offset;
    if (target < 0 || static_cast<uint64_t>(target) > count) return false;
    position = static_cast<uint64_t>(target);
    return true;
}

namespace {

// The numbers are fixed markers of the place in the reader where a read or a seek failed.
[[noreturn]] void seekFailed(int marker) {
    throw VRNException("AudioFileRead: " + toString(marker) + " Error while trying to set position.");
}
[[noreturn]] void readFailed(int marker) {
    throw VRNException("AudioFileRead " + toString(marker) + " Error while trying to read from the stream.");
}
[[noreturn]] void fieldFailed(const char* field) {
    throw VRNException(std::string("AudioFileRead::getWavInfo Error while trying to read ") + field + ".");
}

// WAV fields are little-endian whatever the processor.
uint16_t little16(const unsigned char* b) { return static_cast<uint16_t>(b[0] | (b[1] << 8)); }
uint32_t little32(const unsigned char* b) {
    return static_cast<uint32_t>(b[0]) | (static_cast<uint32_t>(b[1]) << 8) | (static_cast<uint32_t>(b[2]) << 16) |
           (static_cast<uint32_t>(b[3]) << 24);
}

bool readId(ByteStream& stream, char* id) { return stream.read(id, 4) == 4; }

uint16_t read16(ByteStream& stream, const char* field) {
    unsigned char b[2];
    if (stream.read(b, 2) != 2) fieldFailed(field);
    return little16(b);
}

uint32_t read32(ByteStream& stream, const char* field) {
    unsigned char b[4];
    if (stream.read(b, 4) != 4) fieldFailed(field);
    return little32(b);
}

void seekOrFail(ByteStream& stream, int64_t offset, bool relative, int marker) {
    if (!stream.seek(offset, relative)) seekFailed(marker);
}

}  // namespace

void AudioFileRead::openFile() {
    vrn::FileReader reader(fileName);
    open(reader.getData());
}

void AudioFileRead::openResource() {
    vrn::DllResourceReader reader(fileName);
    open(reader.getData());
}

void AudioFileRead::open(const std::shared_ptr<std::vector<char>>& bytes) {
    data = bytes;
    stream.reset(new ByteStream(data->data(), data->size()));
    char header[12];
    size_t got = stream->read(header, 12);
    if (got < 12) throw VRNException("AudioFileRead: Error while reading header. " + toString(got));
    if (std::memcmp(header, "RIFF", 4) != 0 || std::memcmp(header + 8, "WAVE", 4) != 0)
        throw VRNException("AudioFileRead: File is not a wav file.");
    if (!getWavInfo()) throw VRNException("AudioFileRead::init File error.");
}

bool AudioFileRead::getWavInfo() {
    ByteStream& in = *stream;
    char id[4];
    // Chunks before "fmt " are skipped by their size alone, with no pad byte.
    if (!readId(in, id)) readFailed(150);
    while (std::memcmp(id, "fmt ", 4) != 0) {
        uint32_t size = read32(in, "chunkSize");
        seekOrFail(in, size, true, 154);
        if (!readId(in, id)) fieldFailed("id");
    }

    uint32_t chunkSize = read32(in, "chunkSize");
    unsigned char tagBytes[2];
    if (in.read(tagBytes, 2) != 2) readFailed(159);
    uint16_t formatTag = little16(tagBytes);

    if (formatTag == 65534) {
        // WAVE_FORMAT_EXTENSIBLE: the real tag is the first word of the sub-format GUID.
        int64_t mark = static_cast<int64_t>(in.tell());
        seekOrFail(in, 14, true, 185);
        uint16_t extSize = read16(in, "extSize");
        if (extSize == 0) throw VRNException("AudioFileRead::getWavInfo Invalid extSize 0");
        seekOrFail(in, 6, true, 200);
        formatTag = read16(in, "format_tag");
        seekOrFail(in, mark, false, 211);
    }
    if (formatTag != 1 && formatTag != 3)
        throw VRNException("Unsupported data format type: " + toString(static_cast<int>(formatTag)));

    channels = read16(in, "temp");
    // With no channels there is no frame size to count frames by.
    if (channels == 0) throw VRNException("AudioFileRead::getWavInfo Invalid number of channels 0");
    fileRate = static_cast<scalar>(read32(in, "srate"));
    seekOrFail(in, 6, true, 248);
    uint16_t bits = read16(in, "temp");

    dataType = 0;
    if (formatTag == 1) {
        if (bits == 8) dataType = STK_SINT8;
        else if (bits == 16) dataType = STK_SINT16;
        else if (bits == 24) dataType = STK_SINT24;
        else if (bits == 32) dataType = STK_SINT32;
    } else {
        if (bits == 32) dataType = STK_FLOAT32;
        else if (bits == 64) dataType = STK_FLOAT64;
    }
    if (dataType == 0)
        throw VRNException("AudioFileRead: " + toString(static_cast<int>(bits)) + " bits per sample with data format " +
                           toString(static_cast<int>(formatTag)) + " are not supported.");
    seekOrFail(in, static_cast<int64_t>(chunkSize) - 16, true, 281);

    // Chunks between "fmt " and "data" are word-aligned: odd sizes carry a pad byte.
    if (!readId(in, id)) fieldFailed("id");
    while (std::memcmp(id, "data", 4) != 0) {
        uint32_t size = read32(in, "chunkSize");
        seekOrFail(in, static_cast<int64_t>(size) + (size & 1), true, 303);
        if (!readId(in, id)) fieldFailed("id");
    }
    uint32_t bytes = read32(in, "bytes");
    fileSize = bytes / bits / channels * 8;
    dataOffset = static_cast<int64_t>(in.tell());
    byteSwap = false;
    wavFile = true;
    return true;
}

uint32_t AudioFileRead::getBufferFrames() const {
    size_t width = 0;
    switch (dataType) {
        case STK_SINT8: width = 1; break;
        case STK_SINT16: width = 2; break;
        case STK_SINT24: width = 3; break;
        case STK_SINT32: case STK_FLOAT32: width = 4; break;
        case STK_FLOAT64: width = 8; break;
        default: return fileSize;
    }
    const uint64_t offset = static_cast<uint64_t>(std::max<int64_t>(dataOffset, 0));
    const uint64_t present = data && data->size() > offset ? (data->size() - offset) / (width * channels) : 0;
    return static_cast<uint32_t>(std::min<uint64_t>(fileSize, present + 1));
}

void AudioFileRead::read(StkFrames& frames) {
    if (frames.frames() == 0) throw VRNException("AudioFileRead::read: StkFrames buffer size is zero ... no data read!");
    if (frames.channels() != channels)
        throw VRNException("AudioFileRead::read: StkFrames argument has incompatible number of channels!");
    size_t n = static_cast<size_t>(channels) * std::min<uint32_t>(frames.frames(), fileSize);
    scalar* out = frames.getData();
    ByteStream& in = *stream;

    auto readBlock = [&](size_t width, int seekMarker, int readMarker) {
        seekOrFail(in, dataOffset, false, seekMarker);
        std::vector<unsigned char> raw(n * width);
        if (in.read(raw.data(), raw.size()) != raw.size()) readFailed(readMarker);
        return raw;
    };

    switch (dataType) {
        case STK_SINT8: {
            auto raw = readBlock(1, 862, 881);
            for (size_t i = 0; i < n; ++i) out[i] = static_cast<scalar>(static_cast<int>(raw[i]) - 128) * 0.0078125f;
            break;
        }
        case STK_SINT16: {
            auto raw = readBlock(2, 784, 786);
            for (size_t i = 0; i < n; ++i)
                out[i] = static_cast<scalar>(static_cast<int16_t>(little16(&raw[2 * i]))) * 3.0517578e-5f;
            break;
        }
        case STK_SINT24: {
            // Three bytes a sample, read one sample at a time into the high bytes of an int32.
            seekOrFail(in, dataOffset, false, 903);
            for (size_t i = 0; i < n; ++i) {
                unsigned char b[3];
                if (in.read(b, 3) != 3) readFailed(i == 0 ? 908 : 914);
                uint32_t word = (static_cast<uint32_t>(b[0]) << 8) | (static_cast<uint32_t>(b[1]) << 16) |
                                (static_cast<uint32_t>(b[2]) << 24);
                out[i] = static_cast<scalar>(static_cast<int32_t>(word)) * 4.656613e-10f;
            }
            break;
        }
        case STK_SINT32: {
            auto raw = readBlock(4, 807, 809);
            for (size_t i = 0; i < n; ++i)
                out[i] = static_cast<scalar>(static_cast<int32_t>(little32(&raw[4 * i]))) * 4.656613e-10f;
            break;
        }
        case STK_FLOAT32: {
            auto raw = readBlock(4, 830, 832);
            for (size_t i = 0; i < n; ++i) {
                uint32_t word = little32(&raw[4 * i]);
                float value;
                std::memcpy(&value, &word, 4);
                out[i] = value;
            }
            break;
        }
        case STK_FLOAT64: {
            auto raw = readBlock(8, 846, 848);
            for (size_t i = 0; i < n; ++i) {
                uint64_t word = static_cast<uint64_t>(little32(&raw[8 * i])) |
                                (static_cast<uint64_t>(little32(&raw[8 * i + 4])) << 32);
                double value;
                std::memcpy(&value, &word, 8);
                out[i] = static_cast<scalar>(value);
            }
            break;
        }
        default:
            break;
    }
    frames.setDataRate(fileRate);
}

}  // namespace stk
