// A stand-in for evc-service that breaks the protocol in the way its third
// argument names, so tests can see the client blame the service for it:
//   unprompted      posts a response of its own right after the ready one
//   negative-size   reply size -5 with status 0
//   huge-size       reply size beyond the payload area
//   garbage         a reply of 64 bytes that are no frame element
//   empty-success   status 0 with no reply at all
#include <cstring>
#include <string>

#include "ipc/CAExternalEncodeProxyMPI.h"

int main(int argc, char* argv[])
{
    if (argc != 4)
        return 1;
    CAExternalEncodeProxyMPI channel(argv[1], 5000);
    const std::string mode = argv[3];
    channel.PostResponse();
    if (mode == "unprompted")
        channel.PostResponse();
    while (channel.TimedWaitForCommand(10)) {
        if (channel.GetCommand() == CAExternalVideoProxySharedData::kQuit)
            return 0;
        CAExternalVideoProxySharedData& record = *channel.sharedData();
        if (mode == "negative-size")
            record.m_payloadSize0 = -5;
        else if (mode == "huge-size")
            record.m_payloadSize0 = static_cast<int32_t>(std::min<size_t>(channel.payloadCapacity() + 1, INT32_MAX));
        else if (mode == "garbage")
            std::memset(channel.payload(), 0xEE, record.m_payloadSize0 = 64);
        else if (mode == "empty-success")
            record.m_payloadSize0 = 0;
        channel.SetStatus(0);
        channel.PostResponse();
    }
    return 0;
}
