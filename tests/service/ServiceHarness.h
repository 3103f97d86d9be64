// Drives a real evc-service child over a segment the test creates, at the level of the shared
// record, so that tests can send what a careless client would. Everything it makes (child,
// backing file, named lock) is gone when it is destroyed, also after a failed assertion.
#pragma once

#include "client/ServiceProcess.h"
#include "common/Process.h"
#include "common/Scratch.h"
#include "evc/Client.h"
#include "evc/ZKImage.h"
#include "ipc/CAExternalEncodeProxyMPI.h"

#include <memory>
#include <string>
#include <vector>

namespace evctest {

// A 4:2:0 picture whose bytes are a function of (position, seed).
struct TestImage {
    TestImage(int width, int height, uint64_t time, uint64_t timeScale, uint8_t seed = 0);
    std::vector<uint8_t> bytes;
    ZKEncImage_t record{};
};

class ServiceHarness {
public:
    // Creates a segment of segmentBytes and starts program with its key.
    explicit ServiceHarness(size_t segmentBytes = 8u << 20, const std::string& program = "bin/evc-service");
    ~ServiceHarness();

    // Waits for one response; false when none came within ms or the child ended.
    bool WaitResponse(int ms = 10000);
    // Sets the command, posts it and waits; the status, or ~0u without answer.
    uint32_t Send(int32_t command, int ms = 10000);
    // Command 5 with build/, the test host bundle and the preset.
    uint32_t SetOutput(const std::string& preset);
    // Writes a frame element at offset in the payload; its length (0 when it does not fit).
    uint32_t WriteFrame(size_t offset, const ZKEncImage_t& record);
    // Command 3 with the input and an output description after it.
    uint32_t Compress(const TestImage& input, bool key, bool last);
    // The reply of command 3: the echo report text, or "" when none.
    std::string ReplyReport();
    // Waits for the child to end; its exit status (128 + signal when killed), -1 when it did not.
    int WaitExit(int ms = 10000);

    CAExternalVideoProxySharedData& record() { return *m_channel->sharedData(); }
    CAExternalEncodeProxyMPI& channel() { return *m_channel; }
    evc::ServiceProcess& process() { return *m_process; }
    const std::string& key() const { return m_key; }

private:
    std::unique_ptr<CAExternalEncodeProxyMPI> m_channel;
    std::unique_ptr<evc::ServiceProcess> m_process;
    std::string m_key;
};

// A preset naming the echo compressor (or the test compressor of that four-character code), with
// the given settings XML inside "VideoCompressor".
std::string EchoPreset(const std::string& settings = "", const char* codec = "echo");
// A preset that makes the faulty compressor misbehave as fault says ("Operation:action").
std::string FaultPreset(const std::string& fault);
// Options for a client of the build: the given service program, the build's plug-ins, frames up
// to 64 x 64 and a short command time-out.
evc::ClientOptions TestClientOptions(const std::string& program = "bin/evc-service", int timeoutMs = 3000);
// An output description of the input's geometry without pixels.
ZKEncImage_t Description(const ZKEncImage_t& input);

}  // namespace evctest
