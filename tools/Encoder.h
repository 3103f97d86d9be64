// The encode itself: starts the service through the client library, sends
// the preset, then every picture of a source (the last one flagged as last),
// and hands what comes back to an output writer.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "evc/Client.h"
#include "tools/FrameSource.h"
#include "tools/Progress.h"

namespace evc {
namespace tools {

// Anything that stops an encode; the text is one line fit for the user.
class EncodeError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct EncodeJob {
    std::string presetPath;
    std::string outputPath;
    // Service location and the like; largestFrameBytes is set from the source.
    ClientOptions client;
};

struct EncodeResult {
    uint64_t frames = 0;    // pictures sent
    uint64_t pictures = 0;  // compressed pictures (packets) that came back
    uint64_t bytes = 0;
};

// Throws EncodeError, Y4mError (a bad picture in the input) or ServiceError.
EncodeResult Encode(FrameSource& source, const EncodeJob& job, Progress& progress);

// Status words as "0x800300EA".
std::string StatusText(uint32_t status);

}  // namespace tools
}  // namespace evc
