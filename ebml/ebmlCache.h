#pragma once

// A small least-recently-used cache of file lines with deferred write-back.
// Element parsing reads ids and sizes a few bytes at a time; going through
// whole lines turns that into one disk read per line.

#include "ebml/ebmlStdInt.h"

#include <cstddef>
#include <memory>
#include <vector>

namespace Ebml {

// Where the cache's lines come from and go back to.
class ICacheDataProvider {
public:
    virtual ~ICacheDataProvider() {}
    // Reads up to *numBytes bytes at addr; stores the count actually read
    // (short at the end of the data) in *numBytes.
    virtual bool load(uint64 addr, size_t* numBytes, uint8* dst) = 0;
    virtual bool save(uint64 addr, size_t numBytes, const uint8* src) = 0;
};

class TCache {
public:
    struct TLine {
        explicit TLine(size_t lineSize) : data(lineSize) {}

        std::vector<uint8> data;
        uint64 head_ = 0;  // address of data[0], a multiple of the line size
        uint64 tail_ = 0;  // just past the last valid byte
        uint64 age_ = 0;   // cache counter at the last use
        bool ready_ = false;
        bool dirty_ = false;
    };

    // Requests larger than this are split over lines instead of growing them.
    static constexpr size_t kMaxLineSize = 0x1000000;

    // The provider is not owned; it may be null for a cache that only lives in memory.
    TCache(ICacheDataProvider* provider, size_t maxLines, size_t lineSize);
    ~TCache();  // writes back dirty lines

    TCache(const TCache&) = delete;
    TCache& operator=(const TCache&) = delete;

    // The cached line holding addr, stamped as used; null when not cached.
    TLine* lookup(uint64 addr);
    // The line holding addr, filled from the provider when needed; null only
    // when a dirty line could not be written back to make room.
    TLine* getLine(uint64 addr);
    // A fresh, not yet filled line for addr (evicting the least recently used).
    TLine* addLine(uint64 addr);
    // Writes a dirty line back; false when the provider refused it.
    bool flush(TLine* line);
    // Writes back and drops every line; false when a write-back failed.
    bool clear();
    bool resize(size_t maxLines, size_t lineSize);
    bool adjustLineSize(size_t numBytes);
    // Drops what lies at or beyond addr.
    void truncate(uint64 addr);

    // Both return the number of bytes transferred.
    size_t save(uint64 addr, size_t numBytes, const uint8* src);
    size_t load(uint64 addr, size_t numBytes, uint8* dst);

    size_t lineSize() const { return lineSize_; }
    size_t maxLines() const { return lines_.size(); }
    size_t numLines() const { return numLines_; }

private:
    uint64 lineHead(uint64 addr) const { return addr - addr % lineSize_; }
    bool fill(TLine* line);
    void extendShortLine(TLine* line);
    bool hasDataAfter(uint64 head) const;
    bool growFor(size_t numBytes);
    void removeLine(size_t index);

    ICacheDataProvider* provider_;
    size_t lineSize_;
    size_t numLines_ = 0;
    // Slots [0, numLines_) hold lines; the vector's size is the line limit.
    std::vector<std::unique_ptr<TLine>> lines_;
    uint64 age_ = 0;
};

}  // namespace Ebml
