#pragma once
// Number codecs of the EBML library: variable-size integers ("vsize") for ids and
// sizes, plain big-endian integers and floats for payloads, CRC-32, unique ids and
// two small diagnostics helpers.

#include <boost/crc.hpp>

#include <cstddef>
#include <cstdint>
#include <ostream>

// Broken internal invariants are fatal in every build type: the message carries the
// failed expression's text.
#define EBML_ASSERT(expr) ((expr) ? static_cast<void>(0) : ::Ebml::assertionFailed(#expr, __FILE__, __LINE__))

namespace Ebml {

[[noreturn]] void assertionFailed(const char* expression, const char* file, int line);

typedef std::uint8_t uint8;
typedef std::uint32_t uint32;
typedef std::uint64_t uint64;
typedef std::int64_t int64;

class IStorage;
class HodgePodgeConstIter;

// Indexed by a byte count 0..8.
extern const uint64 uintMax[9];         // 2^(8n) - 1
extern const uint64 vsizeUnknown[9];    // 2^(7n) - 1, the all-ones vsize of n bytes
extern const uint64 vsizeRange[9];      // 2^(7n) - 2, the largest value an n-byte vsize carries
extern const uint64 vsizeHalfRange[9];  // 2^(7n-1) - 1, the bias of the signed vsize

// Unsigned vsize. A decoded all-ones value means "unknown size" and reads as uintMax[8].
uint64 vsizeNumBytes(uint64 vsize);
uint64 vsizeEncode(uint64 vsize, uint8* out);
uint64 vsizeEncode(uint64 vsize, uint8* out, uint64 numBytes);
// A first byte 0x00 has no width: the result is then 0 with numBytes 0, and only the
// first byte is read.
uint64 vsizeDecode(const uint8* in, uint64& numBytes);
uint64 vsizeDecode(const HodgePodgeConstIter& in, uint64& numBytes);
// Reads at most 8 bytes; on failure numBytes is 0 and the result uintMax[8].
uint64 vsizeDecode(IStorage& storage, uint64& numBytes);

// Signed vsize: the unsigned vsize of v + vsizeHalfRange[n].
uint64 vsizeSignedNumBytes(int64 vsize);
uint64 vsizeSignedEncode(int64 vsize, uint8* out);
int64 vsizeSignedDecode(const uint8* in, uint64& numBytes);
int64 vsizeSignedDecode(const HodgePodgeConstIter& in, uint64& numBytes);

// Reads the raw bytes of one vsize of at most maxBytes bytes into buf; returns the
// count consumed, 0 (nothing consumed) when no such vsize is there.
uint64 vsizeLoad(uint8* buf, IStorage& storage, unsigned maxBytes);
// The id bytes (marker included) as one big-endian number; 0 when none could be read.
uint64 loadEbmlId(IStorage& storage);

// Plain big-endian integers and IEEE 754 floats.
uint64 uintNumBytes(uint64 v);
uint64 uintEncode(uint64 v, uint8* out);
void uintEncode(uint64 v, uint8* out, uint64 numBytes);
uint64 uintDecode(const uint8* in, uint64 numBytes);
uint64 intNumBytes(int64 v);
uint64 floatEncode(float v, uint8* out);
float floatDecode(const uint8* in);
uint64 doubleEncode(double v, uint8* out);
double doubleDecode(const uint8* in);

// CRC-32 of IEEE 802.3 / zlib (check value over "123456789" is 0xCBF43926).
class Crc32 {
public:
    Crc32() = default;
    Crc32(const Crc32&) = delete;
    Crc32& operator=(const Crc32&) = delete;

    void compute(const void* bytes, std::size_t numBytes) { crc_.process_bytes(bytes, numBytes); }
    uint32 checksum() const { return crc_.checksum(); }

private:
    boost::crc_32_type crc_;
};

// Random bytes from the process-wide rand() generator, seeded once.
void createUID(uint8* out, std::size_t numBytes);
// A random 57-bit number.
uint64 createUID();

// Upper-case hexadecimal dump without separators.
std::ostream& serialize(std::ostream& os, const uint8* bytes, std::size_t numBytes);

struct Indent {
    static unsigned depth_;

    // Scope guard: one more level of indentation while it lives.
    class More {
    public:
        explicit More(unsigned& counter = Indent::depth_) : counter_(counter) { ++counter_; }
        ~More() { --counter_; }
        More(const More&) = delete;
        More& operator=(const More&) = delete;

    private:
        unsigned& counter_;
    };
};

// Stream manipulator printing the current indentation plus extra spaces.
class indent {
public:
    explicit indent(unsigned extra = 0) : numSpaces_(Indent::depth_ + extra) {}
    unsigned numSpaces() const { return numSpaces_; }

private:
    unsigned numSpaces_;
};

std::ostream& operator<<(std::ostream& os, const indent& ind);

}  // namespace Ebml
