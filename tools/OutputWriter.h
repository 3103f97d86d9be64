// Where evc-encode puts what the service returns, chosen by the output's
// extension: ".h264" an Annex-B elementary stream, ".evcseg" an intermediate
// segment file holding the returned frame elements.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include "evc/Client.h"
#include "tools/FrameSource.h"

namespace evc {
namespace tools {

class OutputWriter {
public:
    // A writer that is destroyed without a successful close() removes its
    // file, so a failed run leaves no half-written output behind.
    virtual ~OutputWriter() = default;
    // One CompressFrame result; outputs without packets are skipped. Throws
    // std::runtime_error when the file cannot be written.
    virtual void write(const EncodedFrame& frame) = 0;
    // Completes the file. Throws std::runtime_error.
    virtual void close() = 0;
    // Compressed bytes written so far (packet and header data).
    virtual uint64_t bytesWritten() const = 0;
};

// Throws std::invalid_argument for an unknown extension and
// std::runtime_error when the file cannot be created.
std::unique_ptr<OutputWriter> MakeOutputWriter(const std::string& path, const VideoFormat& format);

}  // namespace tools
}  // namespace evc
