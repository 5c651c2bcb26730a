#include "tools/orm-render/Options.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

namespace orm_render {

namespace {

double number(const std::string& option, const std::string& text) {
    // The tool never sets a locale, so strtod reads the "C" form.
    char* end = nullptr;
    double value = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !std::isfinite(value))
        throw UsageError{option + " needs a number, got '" + text + "'"};
    return value;
}

}  // namespace

// The build gives the project's version; programs that borrow this file for its parser may not.
#ifndef ORM_VERSION
#define ORM_VERSION "(version unknown)"
#endif

const char* versionText() { return "orm-render " ORM_VERSION "\n"; }

const char* usageText() {
    return "usage: orm-render [--plugin MODULE | --system FILE.xml] (--in FILE | --signal NAME) --out FILE [options]\n"
           "       orm-render [--plugin MODULE | --system FILE.xml] --in FILE... --out-dir DIR [options]\n"
           "       orm-render [--plugin MODULE | --system FILE.xml] --list\n"
           "       orm-render --check FILE.xml\n"
           "Runs the orm amplifier (or any VST2 module, or a system description) over audio and writes the result.\n"
           "\n"
           "Source of the sound (default: the orm module built beside this program, hosted as a VST2 host does)\n"
           "  --plugin MODULE     another VST2 module (.so)\n"
           "  --system FILE.xml   a system description, run directly through the engine\n"
           "Input\n"
           "  --in FILE           any audio file libsndfile reads; '-' reads standard input. Channel i feeds input i;\n"
           "                      a mono file feeds every input. Repeat --in with --out-dir to render several files\n"
           "  --signal NAME       riff, sine:FREQ[:DBFS] (level default -6), impulse, sweep, noise or silence\n"
           "  --seconds S         length of a signal (default 4), or the part of the file to render (default: all)\n"
           "  --rate HZ           processing and output rate (default: the file's rate, or 48000 for a signal);\n"
           "                      a file at another rate is converted first (soxr, linear phase)\n"
           "Output\n"
           "  --out FILE          the format follows the extension: .wav, .flac, .aif/.aiff, .ogg (Vorbis), .rf64;\n"
           "                      '-' writes WAV to standard output. Written beside FILE and renamed when complete\n"
           "  --out-dir DIR       with one or more --in: DIR/NAME for each input NAME, each by a fresh instance\n"
           "  --bits 16|24|32f    sample format (default: 32f for WAV, AIFF and RF64, 24 for FLAC); 16 and 24 bits\n"
           "                      are dithered (TPDF, fixed seed: equal renders give equal files)\n"
           "  --tail SECONDS      after the input ends, go on until the sound has decayed below -90 dBFS, for at\n"
           "                      most SECONDS (default 2); --tail 0 keeps the input's length\n"
           "Controls\n"
           "  --set NAME=VALUE    before the first block; repeatable. NAME as --list shows it, or its index. VALUE as\n"
           "                      the panel shows it (Volume=7.5/10, Oversampling=8x, Cabinet=off) or a host value 0..1\n"
           "  --list              prints the parameters: index, name, positions or range, default, what each does\n"
           "  --check FILE.xml    loads a description and prints what it found (graphs, rates, inputs, outputs,\n"
           "                      controls) or its error; renders nothing; exit 0 or 1\n"
           "Running\n"
           "  --block N           frames per block (default 256; the last block may be shorter, as hosts do)\n"
           "  --quiet             no progress bar and no summary line\n"
           "  --bench             prints the realtime factor and the nanoseconds per sample frame\n"
           "  --help, --version\n"
           "\n"
           "A progress bar shows on standard error when it is a terminal and the render takes a while; at the end\n"
           "one line gives the output's path, length, rate, channels and peak, and warns of samples over full scale.\n"
           "Errors print 'orm-render: MESSAGE' and exit 1; a wrong command line exits 2.\n"
           "\n"
           "Examples\n"
           "  orm-render --in guitar.wav --out amp.flac --set Volume=7.5/10 --set Oversampling=8x\n"
           "  orm-render --in guitar.wav --out - | aplay\n"
           "  orm-render --in take1.wav --in take2.wav --out-dir rendered\n"
           "  orm-render --signal riff --seconds 8 --rate 96000 --bits 24 --out riff.wav\n"
           "  orm-render --system examples/tube-stage.xml --list\n";
}

Options parseOptions(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        std::string option = argv[i];
        auto value = [&]() -> std::string {
            if (i + 1 >= argc) throw UsageError{option + " needs a value"};
            return argv[++i];
        };
        if (option == "--plugin") options.plugin = value();
        else if (option == "--system") options.system = value();
        else if (option == "--in") options.inputs.push_back(value());
        else if (option == "--signal") options.signal = value();
        else if (option == "--out") options.output = value();
        else if (option == "--out-dir") options.outputDirectory = value();
        else if (option == "--rate") options.rate = number(option, value());
        else if (option == "--block") options.block = static_cast<int>(number(option, value()));
        else if (option == "--seconds") options.seconds = number(option, value());
        else if (option == "--bits") options.bits = value();
        else if (option == "--tail") options.tail = number(option, value());
        else if (option == "--bench") options.bench = true;
        else if (option == "--check") options.check = value();
        else if (option == "--quiet" || option == "-q") options.quiet = true;
        else if (option == "--list") options.list = true;
        else if (option == "--help" || option == "-h") options.help = true;
        else if (option == "--version") options.version = true;
        else if (option == "--set") {
            std::string setting = value();
            size_t equals = setting.find('=');
            if (equals == std::string::npos || equals == 0)
                throw UsageError{"--set needs NAME=VALUE, got '" + setting + "'"};
            options.settings.emplace_back(setting.substr(0, equals), setting.substr(equals + 1));
        } else {
            throw UsageError{"unknown option " + option};
        }
    }
    if (!options.check.empty()) {
        if (argc != 3) throw UsageError{"--check FILE.xml takes no other option"};
        return options;
    }
    if (options.help || options.version) return options;
    if (!options.plugin.empty() && !options.system.empty()) throw UsageError{"--plugin and --system exclude each other"};
    if (options.list) return options;
    if (options.inputs.empty() == options.signal.empty()) throw UsageError{"give one of --in FILE or --signal NAME"};
    if (options.outputDirectory.empty()) {
        if (options.output.empty()) throw UsageError{"--out FILE is required"};
        if (options.inputs.size() > 1) throw UsageError{"several --in files need --out-dir DIR instead of --out"};
    } else {
        if (!options.output.empty()) throw UsageError{"--out and --out-dir exclude each other"};
        if (options.inputs.empty()) throw UsageError{"--out-dir takes its names from --in files"};
        for (const std::string& input : options.inputs)
            if (input == "-") throw UsageError{"--out-dir needs named --in files, not standard input"};
    }
    if (options.rate < 0 || (options.rate > 0 && options.rate < 1000) || options.rate > 1536000)
        throw UsageError{"--rate must be between 1000 and 1536000 Hz"};
    if (options.block < 1 || options.block > 65536) throw UsageError{"--block must be between 1 and 65536"};
    if (options.seconds < 0 || options.seconds > 86400) throw UsageError{"--seconds must be between 0 and 86400"};
    if (!options.bits.empty() && options.bits != "16" && options.bits != "24" && options.bits != "32f")
        throw UsageError{"--bits takes 16, 24 or 32f, got '" + options.bits + "'"};
    if (options.tail < 0 || options.tail > 60)
        throw UsageError{"--tail must be between 0 and 60 seconds"};
    return options;
}

}  // namespace orm_render
