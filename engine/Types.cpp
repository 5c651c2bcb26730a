#include "engine/Types.h"

#include <boost/tokenizer.hpp>
#include <clocale>
#include <cstdlib>
#include <locale>
#include <sstream>

#include <locale.h>

namespace vrn {

namespace {

#ifdef _WIN32
typedef _locale_t CLocaleHandle;
CLocaleHandle cLocale() {
    static CLocaleHandle handle = _create_locale(LC_NUMERIC, "C");
    return handle;
}
#else
typedef locale_t CLocaleHandle;
CLocaleHandle cLocale() {
    static CLocaleHandle handle = newlocale(LC_NUMERIC_MASK, "C", static_cast<locale_t>(0));
    return handle;
}
#endif

template <typename Token>
void split(const std::string& text, const std::string& delimiters, Token&& onToken) {
    boost::char_separator<char> separator(delimiters.c_str());  // empty tokens dropped
    boost::tokenizer<boost::char_separator<char>> tokens(text, separator);
    for (const auto& token : tokens) onToken(token);
}

}  // namespace

double parseDouble(const std::string& text) {
#ifdef _WIN32
    return _strtod_l(text.c_str(), nullptr, cLocale());
#else
    return strtod_l(text.c_str(), nullptr, cLocale());
#endif
}

long parseLong(const char* text) {
#ifdef _WIN32
    return _strtol_l(text, nullptr, 10, cLocale());
#else
    return strtol_l(text, nullptr, 10, cLocale());
#endif
}

long parseLong(const std::string& text) { return parseLong(text.c_str()); }

const std::function<scalar(const std::string&)> toScalar = [](const std::string& text) {
    return static_cast<scalar>(parseDouble(text));
};
const std::function<int(const std::string&)> toInt = [](const std::string& text) {
    return static_cast<int>(parseLong(text));
};
const std::function<bool(const std::string&)> toBool = [](const std::string& text) {
    return text == "true";
};
const std::function<std::string(const std::string&)> toText = [](const std::string& text) {
    return text;
};

void parseScalars(const std::string& text, const std::string& delimiters,
                  const std::shared_ptr<std::vector<scalar>>& values) {
    values->clear();
    split(text, delimiters, [&](const std::string& token) { values->push_back(toScalar(token)); });
}

void parseWords(const std::string& text, const std::string& delimiters,
                const std::shared_ptr<std::vector<std::string>>& words) {
    words->clear();
    split(text, delimiters, [&](const std::string& token) { words->push_back(token); });
}

std::string toString(int value) { return std::to_string(value); }
std::string toString(long value) { return std::to_string(value); }
std::string toString(size_t value) { return std::to_string(value); }

std::string toString(double value) {
    std::ostringstream stream;
    stream.imbue(std::locale::classic());
    stream << value;
    return stream.str();
}

}  // namespace vrn
