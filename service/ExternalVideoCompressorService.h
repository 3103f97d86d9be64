// The service side of the conversation with the host application: attaches to
// the host's segment, announces that it is ready, then runs one command at a
// time against the compressor the host configured. The whole life of the
// service runs inside the constructor.
#pragma once

#include <cstdint>
#include <string>

#include "evc/IVideoCompressor.h"
#include "ipc/CAExternalEncodeProxyMPI.h"
#include "transport/ExternalVideoProxy.h"

// How long the loop waits for each command, and for the record at start-up.
constexpr int kServiceCommandTimeoutSeconds = 300;
constexpr unsigned int kServiceAttachTimeoutMs = 300000;

class ExternalVideoCompressorService : public CAExternalEncodeProxyMPI {
public:
    // Serves until the quit command, or until no command arrives within
    // commandTimeoutSeconds (test programs pass a short one).
    ExternalVideoCompressorService(unsigned long long clientProcessId, const std::string& clientApplicationName,
                                   const std::string& clientShmKey,
                                   int commandTimeoutSeconds = kServiceCommandTimeoutSeconds);
    ~ExternalVideoCompressorService() override;

    ExternalVideoCompressorService(const ExternalVideoCompressorService&) = delete;
    ExternalVideoCompressorService& operator=(const ExternalVideoCompressorService&) = delete;

    // Returns when the quit command arrives.
    void ServiceLoop();

    void ServiceBegin();
    void ServiceEnd();
    void ServiceCompressFrame();
    void ServiceIsLastPassEncodingReady();
    void ServiceSetOutput();
    void ServiceSetInputColorFormat();
    void ServiceSetFileFormatHint();
    void ServiceSetStreamModeHint();

private:
    void Run(unsigned long long clientProcessId, const std::string& clientApplicationName);
    void Dispatch(TCommand command);
    void Answer(uint32_t status);
    // True when positive request lengths fit the payload area together.
    bool LengthsFit(int32_t a, int32_t b = 0, int32_t c = 0) const;

    IVideoCompressor* m_compressor = nullptr;
    ExternalVideoProxy m_videoProxy;
    int m_commandTimeoutSeconds;
};
