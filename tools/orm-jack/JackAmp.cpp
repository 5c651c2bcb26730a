#include "tools/orm-jack/JackAmp.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace orm_jack {

namespace {

const char* const kPortNames[4] = {"in_1", "in_2", "out_1", "out_2"};

}  // namespace

JackAmp::JackAmp(orm_render::VstHost& hostToRun, const std::string& clientName)
    : host(hostToRun), effect(hostToRun.record()) {
    if (effect->numInputs > 2 || effect->numOutputs > 2 || effect->numOutputs < 1)
        throw std::runtime_error("the module has " + std::to_string(effect->numInputs) + " inputs and " +
                                 std::to_string(effect->numOutputs) + " outputs; orm-jack plays up to two of each");
    jack_status_t status;
    client = jack_client_open(clientName.c_str(), JackNoStartServer, &status);
    if (!client)
        throw std::runtime_error("cannot reach a JACK server (start jackd, or run under PipeWire's JACK layer: pw-jack orm-jack)");
    for (int i = 0; i < 2; ++i) {
        inputs[i] = jack_port_register(client, kPortNames[i], JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput, 0);
        outputs[i] = jack_port_register(client, kPortNames[2 + i], JACK_DEFAULT_AUDIO_TYPE, JackPortIsOutput, 0);
        if (!inputs[i] || !outputs[i]) {
            jack_client_close(client);
            throw std::runtime_error("the JACK server refused our ports");
        }
    }
    currentRate = jack_get_sample_rate(client);
    currentSize = jack_get_buffer_size(client);
    host.start(currentRate, int(currentSize));
    maxFrames.store(currentSize);
    gate.store(kIdle);
    // Started first: the server may call the rate callback at once, with the rate just read.
    jack_set_process_callback(client, process, this);
    jack_set_buffer_size_callback(client, bufferSizeChanged, this);
    jack_set_sample_rate_callback(client, sampleRateChanged, this);
    jack_set_xrun_callback(client, xrun, this);
    jack_on_shutdown(client, shutdown, this);
}

JackAmp::~JackAmp() { close(); }

void JackAmp::activate() {
    if (jack_activate(client) != 0) throw std::runtime_error("the JACK server would not activate us");
    active = true;
}

void JackAmp::close() {
    if (!client) return;
    // After a shutdown the server is gone and only the close is left to do.
    if (active && !gone.load()) jack_deactivate(client);
    active = false;
    jack_client_close(client);
    client = nullptr;
}

int JackAmp::process(jack_nframes_t frames, void* arg) {
    // Real time: buffers from the server, one try at the gate, the effect's own block; no
    // allocation, no lock that waits, no system call.
    JackAmp* self = static_cast<JackAmp*>(arg);
    float* in[2];
    float* out[2];
    for (int i = 0; i < 2; ++i) {
        in[i] = static_cast<float*>(jack_port_get_buffer(self->inputs[i], frames));
        out[i] = static_cast<float*>(jack_port_get_buffer(self->outputs[i], frames));
    }
    int expected = kIdle;
    if (frames > self->maxFrames.load(std::memory_order_relaxed) ||
        !self->gate.compare_exchange_strong(expected, kProcessing, std::memory_order_acquire)) {
        for (float* buffer : out) std::memset(buffer, 0, sizeof(float) * frames);
        return 0;
    }
    self->effect->processReplacing(self->effect, in, out, int32_t(frames));
    self->gate.store(kIdle, std::memory_order_release);
    return 0;
}

void JackAmp::reconfigure(double rate, jack_nframes_t size) {
    std::lock_guard<std::mutex> lock(dispatching);
    if (rate == currentRate && size == currentSize) return;
    // A block in flight finishes first; the server's notifications may come from another thread.
    int expected = kIdle;
    while (!gate.compare_exchange_weak(expected, kChanging, std::memory_order_acquire)) {
        expected = kIdle;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    // The host's sequence: suspend, rate, block size, resume.
    host.suspend();
    host.start(rate, int(size));
    currentRate = rate;
    currentSize = size;
    maxFrames.store(size);
    gate.store(kIdle, std::memory_order_release);
}

int JackAmp::bufferSizeChanged(jack_nframes_t frames, void* arg) {
    JackAmp* self = static_cast<JackAmp*>(arg);
    self->reconfigure(self->currentRate, frames);
    return 0;
}

int JackAmp::sampleRateChanged(jack_nframes_t rate, void* arg) {
    JackAmp* self = static_cast<JackAmp*>(arg);
    self->reconfigure(double(rate), self->currentSize);
    return 0;
}

int JackAmp::xrun(void* arg) {
    static_cast<JackAmp*>(arg)->xrunCount.fetch_add(1);
    return 0;
}

void JackAmp::shutdown(void* arg) { static_cast<JackAmp*>(arg)->gone.store(true); }

jack_port_t* JackAmp::port(const std::string& name) const {
    for (int i = 0; i < 2; ++i) {
        if (name == kPortNames[i]) return inputs[i];
        if (name == kPortNames[2 + i]) return outputs[i];
    }
    return nullptr;
}

bool JackAmp::connect(const std::string& ours, const std::string& theirs, std::string& error) {
    jack_port_t* mine = port(ours);
    if (!mine) {
        error = "no port " + ours;
        return false;
    }
    if (!jack_port_by_name(client, theirs.c_str())) {
        error = "no port " + theirs;
        return false;
    }
    const bool input = jack_port_flags(mine) & JackPortIsInput;
    const std::string full = jack_port_name(mine);
    int result = input ? jack_connect(client, theirs.c_str(), full.c_str())
                       : jack_connect(client, full.c_str(), theirs.c_str());
    if (result != 0 && result != EEXIST) {
        error = "cannot connect " + (input ? theirs + " to " + full : full + " to " + theirs);
        return false;
    }
    return true;
}

std::vector<std::string> JackAmp::physicalPorts(bool capture) const {
    std::vector<std::string> names;
    // Capture ports are outputs of the server's own client, seen from here.
    const char** ports = jack_get_ports(client, nullptr, JACK_DEFAULT_AUDIO_TYPE,
                                        JackPortIsPhysical | (capture ? JackPortIsOutput : JackPortIsInput));
    for (size_t i = 0; ports && ports[i] && names.size() < (capture ? 1u : 2u); ++i) names.push_back(ports[i]);
    if (ports) jack_free(ports);
    return names;
}

std::vector<std::pair<std::string, std::string>> JackAmp::connections() const {
    std::vector<std::pair<std::string, std::string>> result;
    for (const char* name : kPortNames) {
        const char** others = jack_port_get_connections(port(name));
        for (size_t i = 0; others && others[i]; ++i) result.emplace_back(name, others[i]);
        if (others) jack_free(others);
    }
    return result;
}

}  // namespace orm_jack
