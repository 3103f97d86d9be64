#include "ebml/ebmlStdInt.h"

#include "ebml/ebmlHodgePodge.h"
#include "ebml/ebmlIStorage.h"

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iomanip>
#include <iostream>

namespace Ebml {

const uint64 uintMax[9] = {0,
                           0xFF,
                           0xFFFF,
                           0xFFFFFF,
                           0xFFFFFFFF,
                           0xFFFFFFFFFFULL,
                           0xFFFFFFFFFFFFULL,
                           0xFFFFFFFFFFFFFFULL,
                           0xFFFFFFFFFFFFFFFFULL};

const uint64 vsizeUnknown[9] = {
    0, 0x7F, 0x3FFF, 0x1FFFFF, 0xFFFFFFF, 0x7FFFFFFFFULL, 0x3FFFFFFFFFFULL, 0x1FFFFFFFFFFFFULL, 0xFFFFFFFFFFFFFFULL};

const uint64 vsizeRange[9] = {
    0, 0x7E, 0x3FFE, 0x1FFFFE, 0xFFFFFFE, 0x7FFFFFFFEULL, 0x3FFFFFFFFFEULL, 0x1FFFFFFFFFFFEULL, 0xFFFFFFFFFFFFFEULL};

const uint64 vsizeHalfRange[9] = {
    0, 0x3F, 0x1FFF, 0xFFFFF, 0x7FFFFFF, 0x3FFFFFFFFULL, 0x1FFFFFFFFFFULL, 0xFFFFFFFFFFFFULL, 0x7FFFFFFFFFFFFFULL};

unsigned Indent::depth_ = 0;

void assertionFailed(const char* expression, const char* file, int line)
{
    std::cerr << file << ":" << line << ": assertion failed: " << expression << std::endl;
    std::abort();
}

namespace {

// Width from the first byte; 0 for 0x00, which no vsize of at most 8 bytes starts with.
inline uint64 vsizeWidth(uint8 b0)
{
    if (b0 & 0x80)
        return 1;
    if (b0 & 0x40)
        return 2;
    if (b0 & 0x20)
        return 3;
    if (b0 & 0x10)
        return 4;
    if (b0 & 0x08)
        return 5;
    if (b0 & 0x04)
        return 6;
    if (b0 & 0x02)
        return 7;
    if (b0 & 0x01)
        return 8;
    return 0;
}

// The smallest n in 1..7 with v <= limits[n], else 8.
inline uint64 smallestWidth(uint64 v, const uint64 (&limits)[9])
{
    for (uint64 n = 1; n < 8; ++n)
        if (v <= limits[n])
            return n;
    return 8;
}

// One branch per width: this runs for every element header.
template <typename TBytes>
uint64 vsizeDecodeBytes(const TBytes& in, uint64& numBytes)
{
    const uint8 b0 = in[0];
    const uint64 n = vsizeWidth(b0);
    numBytes = n;
    uint64 v;
    switch (n) {
    case 1:
        v = b0 & 0x7F;
        break;
    case 2:
        v = (uint64(b0 & 0x3F) << 8) | uint8(in[1]);
        break;
    case 3:
        v = (uint64(b0 & 0x1F) << 16) | (uint64(uint8(in[1])) << 8) | uint8(in[2]);
        break;
    case 4:
        v = (uint64(b0 & 0x0F) << 24) | (uint64(uint8(in[1])) << 16) | (uint64(uint8(in[2])) << 8) | uint8(in[3]);
        break;
    case 5:
        v = (uint64(b0 & 0x07) << 32) | (uint64(uint8(in[1])) << 24) | (uint64(uint8(in[2])) << 16) |
            (uint64(uint8(in[3])) << 8) | uint8(in[4]);
        break;
    case 6:
        v = (uint64(b0 & 0x03) << 40) | (uint64(uint8(in[1])) << 32) | (uint64(uint8(in[2])) << 24) |
            (uint64(uint8(in[3])) << 16) | (uint64(uint8(in[4])) << 8) | uint8(in[5]);
        break;
    case 7:
        v = (uint64(b0 & 0x01) << 48) | (uint64(uint8(in[1])) << 40) | (uint64(uint8(in[2])) << 32) |
            (uint64(uint8(in[3])) << 24) | (uint64(uint8(in[4])) << 16) | (uint64(uint8(in[5])) << 8) | uint8(in[6]);
        break;
    case 8:
        v = (uint64(uint8(in[1])) << 48) | (uint64(uint8(in[2])) << 40) | (uint64(uint8(in[3])) << 32) |
            (uint64(uint8(in[4])) << 24) | (uint64(uint8(in[5])) << 16) | (uint64(uint8(in[6])) << 8) | uint8(in[7]);
        break;
    default:
        return 0;
    }
    return v == vsizeUnknown[n] ? uintMax[8] : v;
}

}  // namespace

uint64 vsizeNumBytes(uint64 vsize)
{
    EBML_ASSERT(vsize <= vsizeRange[8]);
    return smallestWidth(vsize, vsizeRange);
}

uint64 vsizeEncode(uint64 vsize, uint8* out)
{
    const uint64 n = vsizeNumBytes(vsize);
    vsizeEncode(vsize, out, n);
    return n;
}

uint64 vsizeEncode(uint64 vsize, uint8* out, uint64 numBytes)
{
    EBML_ASSERT(numBytes >= 1 && numBytes <= 8);
    uintEncode(vsize, out, numBytes);
    out[0] |= uint8(1u << (8 - numBytes));
    return numBytes;
}

uint64 vsizeDecode(const uint8* in, uint64& numBytes)
{
    return vsizeDecodeBytes(in, numBytes);
}

uint64 vsizeDecode(const HodgePodgeConstIter& in, uint64& numBytes)
{
    return vsizeDecodeBytes(in, numBytes);
}

uint64 vsizeDecode(IStorage& storage, uint64& numBytes)
{
    uint8 buf[8];
    numBytes = vsizeLoad(buf, storage, 8);
    if (numBytes == 0)
        return uintMax[8];
    return vsizeDecodeBytes(buf, numBytes);
}

uint64 vsizeSignedNumBytes(int64 vsize)
{
    EBML_ASSERT(vsize >= -int64(vsizeHalfRange[8]) && vsize <= int64(vsizeHalfRange[8]));
    for (uint64 n = 1; n < 8; ++n)
        if (vsize >= -int64(vsizeHalfRange[n]) && vsize <= int64(vsizeHalfRange[n]))
            return n;
    return 8;
}

uint64 vsizeSignedEncode(int64 vsize, uint8* out)
{
    const uint64 n = vsizeSignedNumBytes(vsize);
    return vsizeEncode(uint64(vsize + int64(vsizeHalfRange[n])), out, n);
}

int64 vsizeSignedDecode(const uint8* in, uint64& numBytes)
{
    const uint64 v = vsizeDecode(in, numBytes);
    return int64(v - vsizeHalfRange[numBytes]);
}

int64 vsizeSignedDecode(const HodgePodgeConstIter& in, uint64& numBytes)
{
    const uint64 v = vsizeDecode(in, numBytes);
    return int64(v - vsizeHalfRange[numBytes]);
}

uint64 vsizeLoad(uint8* buf, IStorage& storage, unsigned maxBytes)
{
    if (storage.peek(buf, 1) != 1)
        return 0;
    unsigned zeros = 0;
    for (uint8 mask = 0x80; zeros < maxBytes && mask != 0 && !(buf[0] & mask); mask >>= 1)
        ++zeros;
    if (zeros + 1 > maxBytes)
        return 0;
    if (zeros > 0 && storage.peek(buf, zeros + 1) != zeros + 1)
        return 0;
    return storage.skip(zeros + 1);
}

uint64 loadEbmlId(IStorage& storage)
{
    uint8 buf[4];
    const uint64 n = vsizeLoad(buf, storage, 4);
    if (n == 0)
        return 0;
    return uintDecode(buf, n);
}

uint64 uintNumBytes(uint64 v)
{
    return smallestWidth(v, uintMax);
}

uint64 uintEncode(uint64 v, uint8* out)
{
    const uint64 n = uintNumBytes(v);
    uintEncode(v, out, n);
    return n;
}

void uintEncode(uint64 v, uint8* out, uint64 numBytes)
{
    for (uint64 i = numBytes; i > 0; --i) {
        out[i - 1] = uint8(v);
        v >>= 8;
    }
}

uint64 uintDecode(const uint8* in, uint64 numBytes)
{
    uint64 v = 0;
    for (uint64 i = 0; i < numBytes; ++i)
        v = (v << 8) | in[i];
    return v;
}

uint64 intNumBytes(int64 v)
{
    for (uint64 n = 1; n < 8; ++n) {
        const int64 half = int64(1) << (8 * n - 1);
        if (v >= -half && v < half)
            return n;
    }
    return 8;
}

uint64 floatEncode(float v, uint8* out)
{
    uint32 bits;
    std::memcpy(&bits, &v, sizeof bits);
    uintEncode(bits, out, 4);
    return 4;
}

float floatDecode(const uint8* in)
{
    const uint32 bits = uint32(uintDecode(in, 4));
    float v;
    std::memcpy(&v, &bits, sizeof v);
    return v;
}

uint64 doubleEncode(double v, uint8* out)
{
    uint64 bits;
    std::memcpy(&bits, &v, sizeof bits);
    uintEncode(bits, out, 8);
    return 8;
}

double doubleDecode(const uint8* in)
{
    const uint64 bits = uintDecode(in, 8);
    double v;
    std::memcpy(&v, &bits, sizeof v);
    return v;
}

void createUID(uint8* out, std::size_t numBytes)
{
    static bool seeded = false;
    if (!seeded) {
        // Seconds since 2001-01-01 00:00:00 UTC.
        const int64 now = int64(std::time(nullptr)) - 978307200;
        std::srand(unsigned(uint64(now) % 4294967295ULL));
        seeded = true;
    }
    for (std::size_t i = 0; i < numBytes; ++i)
        out[i] = uint8(std::rand() / 2147483647.0 * 255.0);
}

uint64 createUID()
{
    uint8 bytes[8];
    createUID(bytes, sizeof bytes);
    return uintDecode(bytes, 8) >> 7;
}

std::ostream& serialize(std::ostream& os, const uint8* bytes, std::size_t numBytes)
{
    os << std::hex << std::uppercase;
    for (std::size_t i = 0; i < numBytes; ++i)
        os << std::setw(2) << std::setfill('0') << unsigned(bytes[i]);
    return os << std::dec;
}

std::ostream& operator<<(std::ostream& os, const indent& ind)
{
    static const char kEight[] = "        ";
    const unsigned d = ind.numSpaces();
    for (unsigned i = 0; i < d / 8; ++i)
        os << kEight;
    for (unsigned i = 0; i < d % 8; ++i)
        os << ' ';
    return os;
}

}  // namespace Ebml
