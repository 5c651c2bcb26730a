#pragma once
// The command line of orm-render.

#include <string>
#include <utility>
#include <vector>

namespace orm_render {

struct Options {
    std::string plugin;               // a VST2 module; empty: the orm module built beside the tool
    std::string system;               // a system description, run directly through the Driver
    std::vector<std::string> inputs;  // audio files ("-": standard input) …
    std::string signal;               // … or a generated signal
    std::string output;               // "-": WAV on standard output
    std::string outputDirectory;      // several inputs: each output named after its input
    double rate = 0;  // 0: the input file's rate, else 48000; otherwise the input is converted
    int block = 256;
    double seconds = 0;  // 0: the whole input file, or 4 s of a signal
    std::vector<std::pair<std::string, std::string>> settings;
    std::string bits;   // "16", "24", "32f"; empty: the format's default
    double tail = 2;    // the longest tail in seconds; 0: none
    bool bench = false;
    bool quiet = false;
    bool list = false;
    bool help = false;
    bool version = false;
    std::string check;  // --check FILE.xml: load and describe, render nothing
};

// A wrong command line: printed with a pointer to --help, exit status 2.
struct UsageError {
    std::string message;
};

Options parseOptions(int argc, char** argv);
const char* usageText();  // the --help text
const char* versionText();

}  // namespace orm_render
