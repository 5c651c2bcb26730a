#pragma once
// The command line of orm-render.

#include <string>
#include <utility>
#include <vector>

namespace orm_render {

struct Options {
    std::string plugin;  // a VST2 module; empty: the orm module built beside the tool
    std::string system;  // a system description, run directly through the Driver
    std::string input;   // an audio file …
    std::string signal;  // … or a generated signal
    std::string output;
    double rate = 0;  // 0: the input file's rate, else 48000
    int block = 256;
    double seconds = 0;  // 0: the whole input file, or 4 s of a signal
    std::vector<std::pair<std::string, double>> settings;
    bool bench = false;
    std::string check;  // --check FILE.xml: load and describe, render nothing
};

// A wrong command line: printed with the usage text, exit status 2.
struct UsageError {
    std::string message;
};

Options parseOptions(int argc, char** argv);
const char* usageText();

}  // namespace orm_render
