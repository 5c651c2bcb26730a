#pragma once
// The sample type, the property map and the four text conversions shared by every element.

#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace vrn {

// Every sample, coefficient and property value of the engine.
typedef float scalar;

// Attributes of an element's Properties tag, uninterpreted.  Built with 8 buckets, load factor 1.
class Properties : public std::unordered_map<std::string, std::string> {
public:
    Properties() : std::unordered_map<std::string, std::string>(8) { max_load_factor(1.0f); }
};

// Text conversions, made once when the module loads.  Numbers are read in the "C" locale
// whatever the host has set, so a decimal-comma host gets the same system.
extern const std::function<scalar(const std::string&)> toScalar;
extern const std::function<int(const std::string&)> toInt;
extern const std::function<bool(const std::string&)> toBool;
extern const std::function<std::string(const std::string&)> toText;

// Locale-independent forms of atof and strtol(…, 10).
double parseDouble(const std::string& text);
long parseLong(const std::string& text);
long parseLong(const char* text);

// Looks key up; a missing key throws the prepared failure, a present one is converted into result.
template <typename T, typename Failure>
void getProperty(const Properties& properties, const std::string& key, T& result,
                 const std::function<T(const std::string&)>& converter, const Failure& failure) {
    auto it = properties.find(key);
    if (it == properties.end()) throw failure;
    result = converter(it->second);
}

// Cuts text at any of the delimiter characters, empty pieces dropped; values is cleared first.
void parseScalars(const std::string& text, const std::string& delimiters,
                  const std::shared_ptr<std::vector<scalar>>& values);
void parseWords(const std::string& text, const std::string& delimiters,
                const std::shared_ptr<std::vector<std::string>>& words);

// Decimal text of a number as messages show it (plain digits for integers, %g-like for floats).
std::string toString(int value);
std::string toString(long value);
std::string toString(size_t value);
std::string toString(double value);

}  // namespace vrn
