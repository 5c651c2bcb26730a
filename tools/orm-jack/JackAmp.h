#pragma once
// The amplifier as a JACK client: two inputs, two outputs, the hosted effect run in the process
// callback, and the host's suspend, rate, block size and resume sequence whenever the server
// changes its rate or buffer size.

#include <jack/jack.h>

#include <atomic>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "tools/orm-render/VstHost.h"

namespace orm_jack {

class JackAmp {
public:
    // Opens the client and starts the effect at the server's rate and buffer size.  Throws
    // std::runtime_error when no server answers.
    JackAmp(orm_render::VstHost& host, const std::string& clientName);
    ~JackAmp();
    JackAmp(const JackAmp&) = delete;
    JackAmp& operator=(const JackAmp&) = delete;

    void activate();
    // Connects our port ("in_1" .. "out_2") with another client's port; false, with a message in
    // error, when the server refuses.
    bool connect(const std::string& ours, const std::string& theirs, std::string& error);
    // The first physical capture port, or the first two physical playback ports.
    std::vector<std::string> physicalPorts(bool capture) const;
    // Every connection of our ports, as (our port, their port).
    std::vector<std::pair<std::string, std::string>> connections() const;
    // Stops processing (connections go with it) and closes the client; the effect stays open.
    void close();

    bool serverGone() const { return gone.load(); }
    long xruns() const { return xrunCount.load(); }
    double rate() const { return currentRate; }
    jack_nframes_t bufferSize() const { return currentSize; }

    // Held by every thread that calls the effect's dispatcher (the window's idle calls, the
    // server's notifications), never by the audio thread.
    std::mutex& dispatchLock() { return dispatching; }

private:
    static int process(jack_nframes_t frames, void* self);
    static int bufferSizeChanged(jack_nframes_t frames, void* self);
    static int sampleRateChanged(jack_nframes_t rate, void* self);
    static int xrun(void* self);
    static void shutdown(void* self);
    void reconfigure(double rate, jack_nframes_t size);
    jack_port_t* port(const std::string& name) const;

    orm_render::VstHost& host;
    AEffect* effect;
    jack_client_t* client = nullptr;
    jack_port_t* inputs[2] = {nullptr, nullptr};
    jack_port_t* outputs[2] = {nullptr, nullptr};
    bool active = false;
    double currentRate = 0;
    jack_nframes_t currentSize = 0;

    // The audio thread takes the gate without waiting (kIdle -> kProcessing) or plays silence
    // for that period; a reconfiguration waits for it (kIdle -> kChanging).
    enum { kIdle, kProcessing, kChanging };
    std::atomic<int> gate{kChanging};
    std::atomic<jack_nframes_t> maxFrames{0};
    std::atomic<long> xrunCount{0};
    std::atomic<bool> gone{false};
    std::mutex dispatching;
};

}  // namespace orm_jack
