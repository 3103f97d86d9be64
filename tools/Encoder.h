// The encode itself: a reader thread decodes the input into a small queue
// while the loop starts the service through the client library, sends the
// preset, then every picture (the last one flagged as last) and hands what
// comes back, and the input's audio, to an output writer. A first Ctrl-C
// ends the input early and the file is finished; a second abandons it.
#pragma once

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>

#include "evc/Client.h"
#include "tools/FrameSource.h"
#include "tools/OutputWriter.h"
#include "tools/Progress.h"

namespace evc {
namespace tools {

// Anything that stops an encode; the text is one line fit for the user and
// names the file concerned.
class EncodeError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A first Ctrl-C came before the first picture was read: nothing to finish.
class InterruptedBeforeStart : public EncodeError {
public:
    using EncodeError::EncodeError;
};

// The encode was abandoned at a second Ctrl-C, or a first one left nothing
// to write; the text says which.
class EncodeAbandoned : public std::runtime_error {
public:
    explicit EncodeAbandoned(const std::string& what = "interrupted") : std::runtime_error(what) {}
};

struct EncodeJob {
    std::string presetXml;
    std::string presetName;  // in messages
    OutputPlan output;
    // Service location and the like; largestFrameBytes is set from the source.
    ClientOptions client;
    // Restarts of a failed service before the encode fails (0: at once).
    int maxRestarts = 3;
    // Called with what progress is given, when set (encodes side by side
    // add theirs up).
    std::function<void(uint64_t frames, uint64_t picturesBack, uint64_t bytes)> onProgress;
};

struct EncodeResult {
    uint64_t frames = 0;    // pictures sent
    uint64_t pictures = 0;  // compressed pictures (packets) that came back
    uint64_t bytes = 0;
    bool interrupted = false;  // a first Ctrl-C ended the input early
};

// Throws EncodeError, EncodeAbandoned or ServiceError.
EncodeResult Encode(FrameSource& source, const EncodeJob& job, Progress& progress);

// Status words as "0x800300EA".
std::string StatusText(uint32_t status);

}  // namespace tools
}  // namespace evc
