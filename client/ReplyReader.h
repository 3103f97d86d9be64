// The client's reading of what the service writes back: the reply to
// CompressFrame in the payload area and the listing of --list-codecs. A
// compromised service writes both, so every size is checked against the area
// it lies in and nothing the bytes say is trusted further.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "evc/Client.h"
#include "evc/CodecList.h"

namespace evc {

// Reads the reply of replyBytes at the start of the payload area (capacity
// bytes) after a CompressFrame answered status. Returns "" when the reply is
// one the protocol allows, else what is wrong with it; out receives the
// packets of a successful answer and is left alone otherwise.
std::string ReadCompressReply(uint8_t* payload, uint64_t capacity, int32_t replyBytes, uint32_t status,
                              EncodedFrame& out);

// The compressors and settings of `evc-service --list-codecs` output; lines
// it does not know are skipped.
std::vector<CodecInfo> ParseListing(const std::string& text);

}  // namespace evc
