#include "service/ExternalVideoCompressorService.h"

#include <cstdlib>
#include <iostream>
#include <stdexcept>

#include "service/MainThreadScheduling.h"

ExternalVideoCompressorService::ExternalVideoCompressorService(unsigned long long clientProcessId,
                                                               const std::string& clientApplicationName,
                                                               const std::string& clientShmKey,
                                                               int commandTimeoutSeconds)
    : CAExternalEncodeProxyMPI(clientShmKey, kServiceAttachTimeoutMs), m_commandTimeoutSeconds(commandTimeoutSeconds)
{
    Run(clientProcessId, clientApplicationName);
}

ExternalVideoCompressorService::~ExternalVideoCompressorService() = default;

void ExternalVideoCompressorService::Run(unsigned long long clientProcessId, const std::string& clientApplicationName)
{
    setExternalProcessInfo(static_cast<long long>(clientProcessId), clientApplicationName);
    // The first response tells the client that the service is attached.
    PostResponse();
    ServiceLoop();
}

void ExternalVideoCompressorService::ServiceLoop()
{
    for (;;) {
        TCommand command;
        try {
            if (!TimedWaitForCommand(m_commandTimeoutSeconds))
                throw std::runtime_error("serviceLoop ExternalVideoCompressorService timed out: ");
            command = GetCommand();
        } catch (const std::exception& e) {
            std::cerr << "serviceLoop ExternalVideoCompressorService.mpi.readClient exception:\n"
                      << e.what() << std::endl;
            std::exit(0);
        } catch (...) {
            std::cerr << "serviceLoop ExternalVideoCompressorService.mpi.readClient unknown exception" << std::endl;
            std::exit(0);
        }
        if (command == CAExternalVideoProxySharedData::kQuit)
            return;
        MainThreadBeforeCommand(command);
        Dispatch(command);
        MainThreadAfterCommand(command);
    }
}

void ExternalVideoCompressorService::Dispatch(TCommand command)
{
    switch (command) {
    case CAExternalVideoProxySharedData::kBegin:
        return ServiceBegin();
    case CAExternalVideoProxySharedData::kEnd:
        return ServiceEnd();
    case CAExternalVideoProxySharedData::kCompressFrame:
        return ServiceCompressFrame();
    case CAExternalVideoProxySharedData::kIsLastPassEncodingReady:
        return ServiceIsLastPassEncodingReady();
    case CAExternalVideoProxySharedData::kSetOutput:
        return ServiceSetOutput();
    case CAExternalVideoProxySharedData::kSetInputColorFormat:
        return ServiceSetInputColorFormat();
    case CAExternalVideoProxySharedData::kSetFileFormatHint:
        return ServiceSetFileFormatHint();
    case CAExternalVideoProxySharedData::kSetStreamModeHint:
        return ServiceSetStreamModeHint();
    default:
        throw std::runtime_error("unsupported request: " + std::to_string(static_cast<int32_t>(command)));
    }
}

void ExternalVideoCompressorService::Answer(uint32_t status)
{
    SetStatus(status);
    PostResponse();
}

bool ExternalVideoCompressorService::LengthsFit(int32_t a, int32_t b, int32_t c) const
{
    uint64_t total = 0;
    for (int32_t length : {a, b, c})
        total += length > 0 ? static_cast<uint64_t>(length) : 0;
    return total <= payloadCapacity();
}
