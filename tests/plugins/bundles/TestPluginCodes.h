// Codes, names and switches of the test plug-in bundles, shared by the
// plug-ins and the tests that drive them.
#pragma once

#include <cstdint>

#include "evc/H264Codec.h"
#include "evc/ZKResult.h"

namespace evctest {

using evc::h264::FourCC;

constexpr uint32_t kTestManufacturer = FourCC("EvcT");
constexpr uint32_t kOtherManufacturer = FourCC("EvcU");

// test_echo.qv64 offers, by index: (EvcT, echo, 1), an empty slot,
// (EvcU, twin, 2), (EvcT, dual, 5).
// test_faulty.qv64 offers: (EvcT, faul, 3), (EvcT, twin, 4), (EvcT, dual, 6), (EvcT, fh26, 8): the
// last is the h264 bundle's compressor behind the fault switch (see FaultyPlugin.cpp).
// test_empty.qv64 offers: an empty slot, then (0, 0, 7).
constexpr uint32_t kEchoCodec = FourCC("echo");
constexpr uint32_t kFaultyCodec = FourCC("faul");
constexpr uint32_t kTwinCodec = FourCC("twin");
constexpr uint32_t kDualCodec = FourCC("dual");
constexpr uint32_t kFaultyH264Codec = FourCC("fh26");
// Presets spell the codes in decimal.
static_assert(kTestManufacturer == 1165386580u && kOtherManufacturer == 1165386581u, "manufacturers in decimal");
static_assert(kEchoCodec == 1701013615u && kFaultyCodec == 1717663084u, "codecs in decimal");

// The faulty plug-in's switch, "Operation:action[:condition...]" (see FaultyPlugin.cpp); Begin and
// CompressFrame answer kFaultyStatus for the action "fail".
constexpr char kFaultEnvironment[] = "EVC_FAULTY_PLUGIN";
constexpr uint32_t kFaultyStatus = kZKErrGeneral;

// Packet types in the echo compressor's output.
constexpr uint32_t kEchoReportPacket = 1;  // text lines "name=value"
constexpr uint32_t kEchoPixelsPacket = 2;  // the input frame's plane bytes
constexpr uint32_t kEchoBeginPacket = 3;   // descriptors: the Begin record
constexpr char kEchoDescriptor[] = "EVCECHO";

}  // namespace evctest
