#include "filters/Mixer.h"

#include <cmath>
#include <locale>
#include <sstream>

namespace vrn {

void Mixer::init(const std::string& filterName, const Properties& filterProperties,
                 std::shared_ptr<DSPContext>& filterContext) {
    name = filterName;
    context = filterContext.get();
    properties = filterProperties;
    std::string text;
    getProperty(properties, "Faders", text, toText, InvalidArgumentException("Faders is not defined. Mixer name=" + name));
    faders = std::make_shared<std::vector<scalar>>();
    parseScalars(text, "|", faders);
    if (faders->size() < 2)
        throw InvalidArgumentException("Number of Faders must be at least 2. Number of Faders: " + text +
                                       " Mixer name=" + name);
    for (scalar fader : *faders) {
        if (fader < 0 || fader > 1) {
            std::ostringstream message;
            message.imbue(std::locale::classic());
            message << "Invalid fader value: " << fader;
            throw InvalidArgumentException(message.str());
        }
    }
    sizePorts();
}

void Mixer::propertyChanged(const std::string& propertyName, scalar value) {
    int index = toInt(propertyName);
    if (index < 0 || static_cast<size_t>(index) >= faders->size())
        throw InvalidArgumentException("Mixer: Invalid fader index " + propertyName);
    (*faders)[static_cast<size_t>(index)] = value;
}

void Mixer::process(const std::vector<scalar*>& inputs, std::vector<scalar*>& filterOutputs, size_t framesPerBuffer) {
    scalar* out = filterOutputs[0];
    const std::vector<scalar>& gains = *faders;
    if (!inputs.empty()) (void)gains.at(inputs.size() - 1);  // more inputs than faders fail
    for (size_t i = 0; i < framesPerBuffer; ++i) {
        out[i] = 0.0f;
        for (size_t j = 0; j < inputs.size(); ++j)
            if (inputs[j]) out[i] = inputs[j][i] * gains[j] + out[i];
    }
}

void Mixer::process(const std::shared_ptr<std::vector<scalar>>& inputs, size_t, int) {
    // The sum is not reset between passes: a Mixer is not meant for an iterated graph.
    for (size_t j = 0; j < faders->size(); ++j) iterationResults[0] = inputs->at(j) * (*faders)[j] + iterationResults[0];
}

}  // namespace vrn
