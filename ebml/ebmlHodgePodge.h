#pragma once
// HodgePodge: one logical byte string made of receipts that may lie in different
// storages. It is the data of binary payloads, which therefore load without copying.

#include "ebml/ebmlIStorage.h"

#include <cstddef>
#include <deque>
#include <vector>

namespace Ebml {

class HodgePodge {
public:
    typedef std::deque<TReceiptPtr> TReceipts;

    // Receipts with no bytes are never kept.
    void add(const TReceiptPtr& receipt);
    // Copies the bytes into storage first; a failed save adds nothing.
    void add(const uint8* data, std::size_t numBytes, IStorage& storage);
    void add(const std::vector<uint8>& bytes, IStorage& storage);
    void set(const TReceiptPtr& receipt);
    void set(const uint8* data, std::size_t numBytes, IStorage& storage);
    void set(const std::vector<uint8>& bytes, IStorage& storage);
    void clear() { receipts_.clear(); }

    uint64 numBytes() const;
    bool empty() const { return receipts_.empty(); }
    const TReceipts& receipts() const { return receipts_; }

    // All bytes in order; false when there are none.
    bool get(uint8* dst) const;
    bool get(std::vector<uint8>& bytes) const;
    // numBytes bytes from byte offset; false when the range is not inside or a load fails.
    bool getRange(uint64 offset, std::size_t numBytes, uint8* dst) const;
    // Overwrites numBytes bytes from byte offset in place, through the receipts.
    bool putRange(uint64 offset, std::size_t numBytes, const uint8* src);
    // Keeps only the first numBytes bytes.
    void truncate(uint64 numBytes);

    bool operator==(const HodgePodge& other) const;
    bool operator!=(const HodgePodge& other) const { return !(*this == other); }

    // Writes the bytes contiguously into storage (a NullStorage only counts them); a null
    // receipt when the storage cannot take them.
    TReceiptPtr save(IStorage& storage) const;
    // Keeps a receipt of the next numBytes bytes of storage; 0 when they are not there.
    uint64 load(IStorage& storage, uint64 numBytes);

private:
    TReceipts receipts_;
};

// Read-only random-access iterator over the bytes of a HodgePodge. A window of at most
// 128 bytes, aligned to 128 from the start of the collection, is cached. Bytes outside
// the collection read as 0.
class HodgePodgeConstIter {
public:
    static constexpr std::size_t kWindow = 128;

    HodgePodgeConstIter() : podge_(nullptr), pos_(0), windowStart_(0), windowSize_(0) {}
    explicit HodgePodgeConstIter(const HodgePodge& podge, uint64 position = 0)
        : podge_(&podge), pos_(position), windowStart_(0), windowSize_(0)
    {
    }

    uint64 position() const { return pos_; }
    uint8 operator*() const { return byteAt(pos_); }
    uint8 operator[](int64 i) const { return byteAt(pos_ + uint64(i)); }
    HodgePodgeConstIter& operator++()
    {
        ++pos_;
        return *this;
    }
    HodgePodgeConstIter& operator+=(int64 n)
    {
        pos_ += uint64(n);
        return *this;
    }
    HodgePodgeConstIter operator+(int64 n) const
    {
        HodgePodgeConstIter r(*this);
        r += n;
        return r;
    }
    int64 operator-(const HodgePodgeConstIter& o) const { return int64(pos_ - o.pos_); }
    bool operator==(const HodgePodgeConstIter& o) const { return podge_ == o.podge_ && pos_ == o.pos_; }
    bool operator!=(const HodgePodgeConstIter& o) const { return !(*this == o); }

private:
    uint8 byteAt(uint64 position) const;

    const HodgePodge* podge_;
    uint64 pos_;
    mutable uint64 windowStart_;
    mutable uint64 windowSize_;
    mutable uint8 window_[kWindow] = {};
};

// Receipt over the byte range [position, position + count) of a HodgePodge (the
// collection is shared, not copied). It cannot save or checksum.
class HodgePodgeSubReceipt : public RangeReceipt {
public:
    HodgePodgeSubReceipt(const HodgePodge& podge, uint64 position, uint64 numBytes)
        : RangeReceipt(position, numBytes), podge_(podge)
    {
    }
    bool save(const uint8*, std::size_t) override { return false; }
    bool load(uint8* data) const override;
    bool calcCrc32(Crc32&, const TReceiptPtr&) const override { return false; }
    TReceiptPtr receipt(uint64 offset, uint64 size) const override;

private:
    HodgePodge podge_;
};

// Storage that copies every saved block into a new reference-counted byte vector; it
// cannot be read back through the storage, only through the receipts it hands out.
class HodgePodgeStorage : public IStorage {
public:
    typedef TSharedPtr<std::vector<uint8>> TBytesPtr;

    // Receipt over part of one saved block.
    class Receipt : public IReceipt {
    public:
        Receipt(const TBytesPtr& bytesPtr, uint64 position, uint64 numBytes);
        uint64 position() const override { return position_; }
        uint64 numBytes() const override { return numBytes_; }
        IReceipt& setNumBytes(uint64 numBytes) override;
        IReceipt& add(uint64 numBytes) override;
        bool save(const uint8* data, std::size_t numBytes) override;
        bool load(uint8* data) const override;
        bool calcCrc32(Crc32& crc, const TReceiptPtr& receiptSkip) const override;
        TReceiptPtr receipt(uint64 offset, uint64 size) const override;
        bool calcCrc32(uint64 addr, uint64 n, Crc32& crc) const;

    private:
        TBytesPtr bytesPtr_;
        uint64 position_;
        uint64 numBytes_;
    };

    static HodgePodgeStorage Instance;

    TReceiptPtr receipt() const override;
    TReceiptPtr save(const uint8* data, std::size_t numBytes) override;
    TReceiptPtr load(uint8*, std::size_t) override;
    std::size_t peek(uint8*, std::size_t) override;
    uint64 skip(uint64) override;
};

// Receipt collecting the receipts added to it with +=, so blocks that are not
// contiguous still form one receipt.
class HodgePodgeStorageReceipt : public IReceipt {
public:
    HodgePodgeStorageReceipt() = default;
    explicit HodgePodgeStorageReceipt(const TReceiptPtr& first) { podge_.add(first); }

    const HodgePodge& podge() const { return podge_; }
    uint64 position() const override { return 0; }
    uint64 numBytes() const override { return podge_.numBytes(); }
    IReceipt& setNumBytes(uint64 numBytes) override;
    // Only 0 can be added: the bytes come with the receipts added by +=.
    IReceipt& add(uint64 numBytes) override;
    // Overwrites the first numBytes bytes across the collected receipts.
    bool save(const uint8* data, std::size_t numBytes) override;
    bool load(uint8* data) const override;
    bool calcCrc32(Crc32& crc, const TReceiptPtr& receiptSkip) const override;
    IReceipt& operator+=(const TReceiptPtr& other) override;
    TReceiptPtr receipt(uint64 offset, uint64 size) const override;

private:
    HodgePodge podge_;
};

}  // namespace Ebml
