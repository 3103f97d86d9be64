// The 40-byte headers at the start of the binary children of packet elements
// ("PacketInfoDescData") and bundle elements ("PacketBundleInfoDesc"), and the
// checked parsing of those children: the bytes come from the other process.
#pragma once

#include <cstddef>
#include <cstdint>

class IPacket;

// type 4, track 4, time 8, time base 8, duration 8, descriptor size 4, data size 4.
struct TZKPacketHeader {
    static constexpr size_t kSize = 40;

    uint32_t type = 0;
    uint32_t track = 0;
    uint64_t time = 0;
    uint64_t timeBase = 1000;
    uint64_t duration = 0;
    uint32_t descriptorSize = 0;
    uint32_t dataSize = 0;

    // The header of packet, sizes cut to their 32-bit fields.
    static TZKPacketHeader of(const IPacket& packet);
    void encode(uint8_t* out) const;
    static TZKPacketHeader decode(const uint8_t* in);
};

// track 4, reserved 4, time 8, time base 8, duration 8, descriptor size 4, reserved 4.
struct TZKBundleHeader {
    static constexpr size_t kSize = 40;

    uint32_t track = 0;
    uint64_t time = 0;
    uint64_t timeBase = 1000;
    uint64_t duration = 0;
    uint32_t descriptorSize = 0;

    static TZKBundleHeader of(const IPacket& bundle);
    void encode(uint8_t* out) const;
    static TZKBundleHeader decode(const uint8_t* in);
};

// A packet child split into its parts. parse refuses (false) a child shorter
// than its header or than the header plus the sizes it announces; the parts
// then point into bytes and never past size.
struct TZKPacketView {
    TZKPacketHeader header;
    const uint8_t* descriptor = nullptr;
    const uint8_t* data = nullptr;

    bool parse(const uint8_t* bytes, size_t size);
};

struct TZKBundleView {
    TZKBundleHeader header;
    const uint8_t* descriptor = nullptr;

    bool parse(const uint8_t* bytes, size_t size);
};
