#include "tools/orm-render/AudioFiles.h"

#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "tools/orm-render/Options.h"

namespace orm_render {

namespace {

// ---- input ----

class FileSource : public Source {
public:
    FileSource(const std::string& path, double seconds) {
        file = path == "-" ? sf_open_fd(STDIN_FILENO, SFM_READ, &info, SF_FALSE) : sf_open(path.c_str(), SFM_READ, &info);
        const std::string name = path == "-" ? "standard input" : path;
        if (!file) throw std::runtime_error("cannot read " + name + ": " + sf_strerror(nullptr));
        if (info.channels < 1) throw std::runtime_error(name + " has no channels");
        known = info.seekable && info.frames >= 0 && info.frames != SF_COUNT_MAX;
        limit = seconds > 0 ? std::llround(seconds * info.samplerate) : 0;
    }
    ~FileSource() override { sf_close(file); }
    int channels() const override { return info.channels; }
    double rate() const override { return info.samplerate; }
    int64_t frames() const override {
        if (!known) return -1;
        return limit > 0 ? std::min<int64_t>(limit, info.frames) : info.frames;
    }
    size_t read(float* out, size_t n) override {
        if (limit > 0) n = static_cast<size_t>(std::min<int64_t>(static_cast<int64_t>(n), limit - done));
        if (n == 0) return 0;
        const sf_count_t got = sf_readf_float(file, out, static_cast<sf_count_t>(n));
        done += got;
        return got > 0 ? static_cast<size_t>(got) : 0;
    }

private:
    SF_INFO info{};
    SNDFILE* file = nullptr;
    bool known = false;
    int64_t limit = 0;  // frames; 0: all
    int64_t done = 0;
};

class SignalSource : public Source {
public:
    SignalSource(const std::string& name, double signalRate, uint64_t frames)
        : generator(name, signalRate, frames), signalRate(signalRate) {}
    int channels() const override { return 1; }
    double rate() const override { return signalRate; }
    int64_t frames() const override { return static_cast<int64_t>(generator.frames()); }
    size_t read(float* out, size_t n) override { return generator.generate(out, n); }

private:
    SignalGenerator generator;
    double signalRate;
};

class ConvertedSource : public Source {
public:
    ConvertedSource(std::unique_ptr<Source> from, double toRate) : inner(std::move(from)), outRate(toRate) {
        // The quality the cabinet's response gets: linear phase, a 2 % transition band.
        soxr_quality_spec_t quality = soxr_quality_spec(SOXR_VHQ, SOXR_LINEAR_PHASE);
        quality.passband_end = 0.98;
        soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
        soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
        soxr_error_t error = nullptr;
        converter = soxr_create(inner->rate(), outRate, static_cast<unsigned>(inner->channels()), &error, &io,
                                &quality, &runtime);
        if (error || !converter) {
            if (converter) soxr_delete(converter);
            throw std::runtime_error(std::string("cannot convert the rate: ") + (error ? error : "unknown error"));
        }
        pending.resize(kChunk * static_cast<size_t>(inner->channels()));
    }
    ~ConvertedSource() override { soxr_delete(converter); }
    int channels() const override { return inner->channels(); }
    double rate() const override { return outRate; }
    int64_t frames() const override {
        const int64_t in = inner->frames();
        return in < 0 ? -1 : static_cast<int64_t>(std::llround(static_cast<double>(in) * outRate / inner->rate()));
    }
    size_t read(float* out, size_t n) override {
        const size_t width = static_cast<size_t>(inner->channels());
        size_t produced = 0;
        while (produced < n) {
            if (!ended && offset == available) {
                available = inner->read(pending.data(), kChunk);
                offset = 0;
                if (available == 0) ended = true;
            }
            size_t used = 0, made = 0;
            // At the end, a null input flushes what the converter still holds.
            const soxr_error_t error =
                soxr_process(converter, ended ? nullptr : pending.data() + offset * width, ended ? 0 : available - offset,
                             &used, out + produced * width, n - produced, &made);
            if (error) throw std::runtime_error(std::string("cannot convert the rate: ") + error);
            offset += used;
            produced += made;
            if (ended && made == 0) break;
        }
        return produced;
    }

private:
    static const size_t kChunk = 4096;
    std::unique_ptr<Source> inner;
    double outRate;
    soxr_t converter = nullptr;
    std::vector<float> pending;
    size_t available = 0, offset = 0;
    bool ended = false;
};

// ---- output ----

// The temporary file an interrupted render removes: written before the handler can see it.
char gTemporary[PATH_MAX + 64];
volatile sig_atomic_t gArmed = 0;

extern "C" void removeTemporaryAndDie(int signalNumber) {
    if (gArmed) unlink(gTemporary);
    signal(signalNumber, SIG_DFL);
    raise(signalNumber);
}

void arm(const std::string& path) {
    gArmed = 0;
    std::snprintf(gTemporary, sizeof(gTemporary), "%s", path.c_str());
    gArmed = !path.empty();
    static bool installed = false;
    if (installed) return;
    installed = true;
    for (int signalNumber : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action;
        std::memset(&action, 0, sizeof(action));
        action.sa_handler = removeTemporaryAndDie;
        sigemptyset(&action.sa_mask);
        sigaction(signalNumber, &action, nullptr);
    }
}

std::string extensionOf(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    const size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    std::string extension = path.substr(dot + 1);
    for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return extension;
}

bool isRegularOrAbsent(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode);
}

bool isSpecial(const std::string& path) {
    bool special = false;
    AudioOutput::target(path, &special);
    return special;
}

void putLittle(std::vector<uint8_t>& out, uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

}  // namespace

std::unique_ptr<Source> openFile(const std::string& path, double seconds) {
    return std::make_unique<FileSource>(path, seconds);
}

std::unique_ptr<Source> openSignal(const std::string& name, double rate, uint64_t frames) {
    return std::make_unique<SignalSource>(name, rate, frames);
}

std::unique_ptr<Source> convertRate(std::unique_ptr<Source> source, double rate) {
    return std::make_unique<ConvertedSource>(std::move(source), rate);
}

OutputFormat outputFormat(const std::string& path, const std::string& bits) {
    const std::string extension = extensionOf(path);
    OutputFormat format;
    int major = 0;
    std::string kind;
    bool floatDefault = true;
    if (extension == "wav") major = SF_FORMAT_WAV, kind = "WAV";
    else if (extension == "flac") major = SF_FORMAT_FLAC, kind = "FLAC", floatDefault = false;
    else if (extension == "aif" || extension == "aiff") major = SF_FORMAT_AIFF, kind = "AIFF";
    else if (extension == "rf64") major = SF_FORMAT_RF64, kind = "RF64";
    else if (extension == "ogg" || extension == "oga") major = SF_FORMAT_OGG, kind = "Ogg Vorbis";
    else if (path == "-" || !isRegularOrAbsent(path) || isSpecial(path)) major = SF_FORMAT_WAV, kind = "WAV";
    else
        throw UsageError{"cannot tell the format of " + path + " from its extension (.wav, .flac, .aif, .aiff, .ogg, .rf64)"};

    if (major == SF_FORMAT_OGG) {
        if (!bits.empty()) throw UsageError{"--bits does not apply to Ogg Vorbis, a lossy format"};
        format.format = SF_FORMAT_OGG | SF_FORMAT_VORBIS;
        format.bits = 32;
        format.name = kind;
        return format;
    }
    format.bits = bits == "16" ? 16 : bits == "24" ? 24 : bits == "32f" ? 32 : floatDefault ? 32 : 24;
    if (major == SF_FORMAT_FLAC && format.bits == 32) throw UsageError{"FLAC holds 16 or 24 bits, not 32f"};
    format.format = major | (format.bits == 16 ? SF_FORMAT_PCM_16 : format.bits == 24 ? SF_FORMAT_PCM_24 : SF_FORMAT_FLOAT);
    format.name = (format.bits == 32 ? std::string("32-bit float ") : std::to_string(format.bits) + "-bit ") + kind;
    return format;
}

std::string AudioOutput::target(const std::string& path, bool* special) {
    std::string current = path;
    for (int hops = 0; hops < 40; ++hops) {
        // /dev/stdout and the like lead through /proc to whatever the shell opened.
        if (special && (current.compare(0, 5, "/dev/") == 0 || current.compare(0, 6, "/proc/") == 0)) *special = true;
        struct stat status;
        if (lstat(current.c_str(), &status) != 0 || !S_ISLNK(status.st_mode)) return current;
        char link[PATH_MAX];
        const ssize_t length = readlink(current.c_str(), link, sizeof(link) - 1);
        if (length <= 0) return current;
        std::string next(link, static_cast<size_t>(length));
        if (next[0] != '/') {
            const size_t slash = current.find_last_of('/');
            if (slash != std::string::npos) next = current.substr(0, slash + 1) + next;
        }
        current = next;
    }
    throw std::runtime_error("cannot write " + path + ": too many levels of symbolic links");
}

AudioOutput::AudioOutput(const std::string& out, const OutputFormat& outputFormat, int channels, int rate)
    : path(out), format(outputFormat), channelCount(channels) {
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = channels;
    info.format = format.format;
    int descriptor = -1;
    bool special = path == "-";
    const std::string real = path == "-" ? path : target(path, &special);
    if (special || !isRegularOrAbsent(path)) {
        // Standard output, a device or a pipe: never replaced, written as it is.
        if (path == "-" && isatty(STDOUT_FILENO))
            throw std::runtime_error("standard output is a terminal: send it to a file or a player (--out - | aplay)");
        descriptor = path == "-" ? STDOUT_FILENO : open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
        if (descriptor < 0) throw std::runtime_error("cannot write " + path + ": " + std::strerror(errno));
        if (lseek(descriptor, 0, SEEK_CUR) < 0 && (format.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_WAV) {
            // libsndfile writes no WAV to a pipe: the header says "length unknown", as streams do.
            stream = descriptor;
            const int bytesPerSample = format.bits / 8;
            std::vector<uint8_t> header;
            for (char c : std::string("RIFF")) header.push_back(static_cast<uint8_t>(c));
            putLittle(header, 0xffffffffu, 4);
            for (char c : std::string("WAVEfmt ")) header.push_back(static_cast<uint8_t>(c));
            putLittle(header, format.bits == 32 ? 18 : 16, 4);
            putLittle(header, format.bits == 32 ? 3 : 1, 2);  // IEEE float or PCM
            putLittle(header, static_cast<uint32_t>(channels), 2);
            putLittle(header, static_cast<uint32_t>(rate), 4);
            putLittle(header, static_cast<uint32_t>(rate * channels * bytesPerSample), 4);
            putLittle(header, static_cast<uint32_t>(channels * bytesPerSample), 2);
            putLittle(header, static_cast<uint32_t>(format.bits), 2);
            if (format.bits == 32) putLittle(header, 0, 2);
            for (char c : std::string("data")) header.push_back(static_cast<uint8_t>(c));
            putLittle(header, 0xffffffffu, 4);
            put(header.data(), header.size());
            return;
        }
    } else {
        // Beside the real target, so that the rename stays on one file system.
        const size_t slash = real.find_last_of('/');
        const std::string directory = slash == std::string::npos ? "" : real.substr(0, slash + 1);
        const std::string base = slash == std::string::npos ? real : real.substr(slash + 1);
        const std::string pattern = directory + "." + base + ".orm-render-XXXXXX";
        std::vector<char> name(pattern.begin(), pattern.end());
        name.push_back('\0');
        descriptor = mkstemp(name.data());
        if (descriptor < 0) throw std::runtime_error("cannot write " + path + ": " + std::strerror(errno));
        temporary = name.data();
        arm(temporary);
        // The permissions a new file gets, or those of the file it replaces.
        struct stat existing;
        mode_t mask = umask(0);
        umask(mask);
        fchmod(descriptor, stat(real.c_str(), &existing) == 0 ? existing.st_mode & 07777 : 0666 & ~mask);
        path = real;
    }
    file = sf_open_fd(descriptor, SFM_WRITE, &info, descriptor != STDOUT_FILENO ? SF_TRUE : SF_FALSE);
    if (!file) {
        const std::string reason = sf_strerror(nullptr);
        if (descriptor != STDOUT_FILENO) close(descriptor);
        if (!temporary.empty()) unlink(temporary.c_str());
        arm("");
        throw std::runtime_error("cannot write " + out + " as " + format.name + ": " + reason);
    }
    // No PEAK chunk: it carries a time stamp, and equal renders must give equal files.
    sf_command(file, SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
}

AudioOutput::~AudioOutput() {
    if (file) sf_close(file);
    if (stream >= 0 && stream != STDOUT_FILENO) close(stream);
    if (!temporary.empty()) {
        unlink(temporary.c_str());
        arm("");
    }
}

void AudioOutput::put(const void* data, size_t count) {
    const char* at = static_cast<const char*>(data);
    while (count > 0) {
        const ssize_t written = ::write(stream, at, count);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) throw std::runtime_error("cannot write " + path + ": " + std::strerror(errno));
        at += written;
        count -= static_cast<size_t>(written);
    }
}

void AudioOutput::write(const std::vector<const float*>& channels, size_t frames) {
    const size_t width = channels.size(), values = frames * width;
    interleaved.resize(values);
    for (size_t i = 0; i < frames; ++i)
        for (size_t c = 0; c < width; ++c) interleaved[i * width + c] = channels[c] ? channels[c][i] : 0.0f;
    sf_count_t written = static_cast<sf_count_t>(frames);
    if (format.bits == 32) {
        if (stream >= 0)
            put(interleaved.data(), values * sizeof(float));
        else
            written = sf_writef_float(file, interleaved.data(), static_cast<sf_count_t>(frames));
    } else {
        // TPDF dither of one step, then rounding and clipping to the depth.  Digital silence
        // stays silent.
        const double scale = format.bits == 16 ? 32768.0 : 8388608.0;
        integers.resize(values);
        for (size_t i = 0; i < values; ++i) {
            if (interleaved[i] == 0.0f) {
                integers[i] = 0;
                continue;
            }
            auto uniform = [this]() {
                dither ^= dither << 13;
                dither ^= dither >> 17;
                dither ^= dither << 5;
                return dither / 4294967296.0;
            };
            const double triangular = uniform() - uniform();
            const double level = std::floor(static_cast<double>(interleaved[i]) * scale + triangular + 0.5);
            integers[i] = static_cast<int>(std::clamp(level, -scale, scale - 1));
        }
        if (stream >= 0) {
            bytes.clear();
            for (int sample : integers) putLittle(bytes, static_cast<uint32_t>(sample), format.bits / 8);
            put(bytes.data(), bytes.size());
        } else {
            // libsndfile takes integers left-aligned in 32 bits.
            for (int& sample : integers) sample = static_cast<int>(static_cast<uint32_t>(sample) << (32 - format.bits));
            written = sf_writef_int(file, integers.data(), static_cast<sf_count_t>(frames));
        }
    }
    if (written != static_cast<sf_count_t>(frames))
        throw std::runtime_error("cannot write " + path + ": " + sf_strerror(file));
}

void AudioOutput::commit() {
    int status = 0;
    if (file) status = sf_close(file);
    file = nullptr;
    if (status != 0) throw std::runtime_error("cannot write " + path + ": " + sf_error_number(status));
    if (temporary.empty()) return;
    if (std::rename(temporary.c_str(), path.c_str()) != 0)
        throw std::runtime_error("cannot write " + path + ": " + std::strerror(errno));
    temporary.clear();
    arm("");
}

}  // namespace orm_render
