#pragma once
// The byte stream every element reads and writes through, and the receipts that
// remember where bytes lie in it.

#include "ebml/ebmlStdInt.h"

#include <cstddef>
#include <stdexcept>
#include <type_traits>
#include <vector>

namespace Ebml {

// Origin of a seek on the file types under the storages (memory buffers, disk files).
enum TPositionReference {
    kAbsolutePosition = 0,  // offset from the start
    kRelativePosition = 1,  // offset from the current position
    kPositionFromEnd = 2    // offset counted back from the end
};

// Heap block shared by the copies of one TSharedPtr. ptr_ may be null.
template <typename T>
struct TRefCount {
    T* ptr_;
    uint64 count_;
};

// Non-atomic reference-counted pointer. Even a null TSharedPtr owns a block (whose
// pointer is null), so test the pointer (get(), operator bool), never the block.
// TBase is the class the block is typed on: a TSharedPtr<Derived, Base> converts to a
// TSharedPtr<Base, Base> sharing the same block.
template <typename T, typename TBase = T>
class TSharedPtr {
    template <typename U, typename UBase>
    friend class TSharedPtr;

public:
    TSharedPtr() : block_(new TRefCount<TBase>{nullptr, 1}) {}
    explicit TSharedPtr(T* ptr) : block_(new TRefCount<TBase>{ptr, 1}) {}
    TSharedPtr(const TSharedPtr& other) : block_(other.block_) { ++block_->count_; }
    template <typename U>
    TSharedPtr(const TSharedPtr<U, TBase>& other) : block_(other.block_)
    {
        static_assert(std::is_base_of<T, U>::value || std::is_same<T, U>::value, "only an upcast shares the block");
        ++block_->count_;
    }
    ~TSharedPtr() { release(); }

    TSharedPtr& operator=(const TSharedPtr& other)
    {
        if (block_ != other.block_) {
            ++other.block_->count_;
            release();
            block_ = other.block_;
        }
        return *this;
    }

    void reset(T* ptr = nullptr)
    {
        TRefCount<TBase>* fresh = new TRefCount<TBase>{ptr, 1};
        release();
        block_ = fresh;
    }

    T* get() const { return static_cast<T*>(block_->ptr_); }
    T* operator->() const { return get(); }
    T& operator*() const { return *get(); }
    explicit operator bool() const { return block_->ptr_ != nullptr; }
    uint64 useCount() const { return block_->count_; }

private:
    void release()
    {
        if (--block_->count_ == 0) {
            delete block_->ptr_;
            delete block_;
        }
    }

    TRefCount<TBase>* block_;
};

class IStorage {
public:
    class IReceipt;
    typedef TSharedPtr<IReceipt, IReceipt> TReceiptPtr;

    class IReceipt {
    public:
        virtual ~IReceipt() = default;
        virtual uint64 position() const = 0;
        virtual uint64 numBytes() const = 0;
        virtual IReceipt& setNumBytes(uint64 numBytes) = 0;
        virtual IReceipt& add(uint64 numBytes) = 0;
        // Overwrites bytes from position(); the storage position is left as it was.
        virtual bool save(const uint8* data, std::size_t numBytes) = 0;
        // Reads all numBytes() bytes; the storage position is left as it was.
        virtual bool load(uint8* data) const = 0;
        // Feeds this receipt's bytes to crc, leaving out the bytes of receiptSkip (may be null).
        virtual bool calcCrc32(Crc32& crc, const TReceiptPtr& receiptSkip) const = 0;
        // Assumes other starts where this receipt ends; a null other changes nothing.
        virtual IReceipt& operator+=(const TReceiptPtr& other);
        // The bytes [position() + offset, position() + offset + size) of the same storage.
        virtual TReceiptPtr receipt(uint64 offset, uint64 size) const = 0;
        // Copies the bytes into dst in chunks; returns the receipt of what dst received.
        virtual TReceiptPtr saveTo(IStorage& dst, std::size_t maxChunkSize) const;
        // The receipt's bytes where they lie in memory, or null when they are not
        // one contiguous run in this process (files, collections). Lets a copy
        // skip the staging buffer.
        virtual const uint8* contiguousBytes() const { return nullptr; }
    };

    virtual ~IStorage() = default;
    virtual bool isNullStorage() const { return false; }
    // A receipt at the current position holding 0 bytes.
    virtual TReceiptPtr receipt() const = 0;
    // Writes at the current position and advances; a null receipt on failure.
    virtual TReceiptPtr save(const uint8* data, std::size_t numBytes) = 0;
    // Reads at the current position and advances; a null receipt on failure.
    virtual TReceiptPtr load(uint8* data, std::size_t numBytes) = 0;
    // Copies bytes at the current position without moving; the count copied (0 = failure).
    virtual std::size_t peek(uint8* data, std::size_t numBytes) = 0;
    // Throws std::runtime_error when the storage cannot seek or the position is invalid.
    virtual void seekTo(uint64 absolutePosition);
    // Moves forward; the count skipped (0 = failure).
    virtual uint64 skip(uint64 numBytes) = 0;

    uint64 absolutePosition() const { return receipt()->position(); }
    TReceiptPtr skipWithReceipt(uint64 numBytes);
};

typedef IStorage::IReceipt IReceipt;
typedef IStorage::TReceiptPtr TReceiptPtr;

// A receipt that is a position and a count; setNumBytes and add change the count unchecked.
class RangeReceipt : public IReceipt {
public:
    RangeReceipt(uint64 position, uint64 numBytes) : position_(position), numBytes_(numBytes) {}
    uint64 position() const override { return position_; }
    uint64 numBytes() const override { return numBytes_; }
    IReceipt& setNumBytes(uint64 numBytes) override;
    IReceipt& add(uint64 numBytes) override;

protected:
    uint64 position_;
    uint64 numBytes_;
};

// Position hooks of the seek guard; other positioned types (files) add their own pair.
inline uint64 seekPosition(const IStorage& storage)
{
    return storage.absolutePosition();
}
inline bool seekAbsolute(IStorage& storage, uint64 position)
{
    storage.seekTo(position);
    return true;
}

// Seek guard: remembers the position at construction and returns there on
// destruction unless the owner clears seekBack_ to keep the new position.
template <typename T>
class Seek {
public:
    explicit Seek(T& storage) : seekBack_(true), storage_(storage), position_(seekPosition(storage)) {}
    Seek(T& storage, uint64 position) : Seek(storage) { seekTo(position); }
    ~Seek()
    {
        if (!seekBack_)
            return;
        try {
            if (seekPosition(storage_) != position_)
                seekAbsolute(storage_, position_);
        } catch (...) {
            // A destructor must not throw; the position was valid when recorded.
        }
    }
    Seek(const Seek&) = delete;
    Seek& operator=(const Seek&) = delete;

    void seekTo(uint64 position)
    {
        if (!seekAbsolute(storage_, position) || seekPosition(storage_) != position)
            throw std::runtime_error("failed to seek");
    }

    bool seekBack_;

private:
    T& storage_;
    uint64 position_;
};

// CRC-32 of the receipt [position, position + numBytes) leaving out receiptSkip, over any
// file type with a ranged calcCrc32(addr, numBytes, crc). Exceptions give false.
template <typename TFile>
bool calcCrc32(const TFile& file, uint64 position, uint64 numBytes, Crc32& crc, const TReceiptPtr& receiptSkip)
{
    try {
        const uint64 start = position;
        const uint64 end = start + numBytes;
        uint64 skipStart = start;
        uint64 skipEnd = start;
        if (receiptSkip) {
            skipStart = receiptSkip->position();
            skipEnd = skipStart + receiptSkip->numBytes();
        }
        const uint64 headStart = start < skipStart ? start : skipStart;
        if (!file.calcCrc32(headStart, skipStart - headStart, crc))
            return false;
        const uint64 tailStart = end < skipEnd ? end : skipEnd;
        return file.calcCrc32(tailStart, end - tailStart, crc);
    } catch (...) {
        return false;
    }
}

// Feeds the bytes [addr, addr + n) of a size-byte area to crc; false when they lie
// outside it.
inline bool calcCrc32(const uint8* data, uint64 size, uint64 addr, uint64 n, Crc32& crc)
{
    if (n == 0)
        return true;
    if (addr > size || n > size - addr)
        return false;
    crc.compute(data + addr, std::size_t(n));
    return true;
}

// A storage that writes nothing and only counts: it measures what a save would produce.
class NullStorage : public IStorage {
public:
    class Receipt : public RangeReceipt {
    public:
        using RangeReceipt::RangeReceipt;
        bool save(const uint8*, std::size_t) override { return false; }
        bool load(uint8*) const override { return false; }
        bool calcCrc32(Crc32&, const TReceiptPtr&) const override { return false; }
        TReceiptPtr receipt(uint64 offset, uint64 size) const override;
    };

    explicit NullStorage(uint64 position = 0) : position_(position) {}
    bool isNullStorage() const override { return true; }
    TReceiptPtr receipt() const override;
    TReceiptPtr save(const uint8* data, std::size_t numBytes) override;
    TReceiptPtr load(uint8*, std::size_t) override { return TReceiptPtr(); }
    std::size_t peek(uint8*, std::size_t) override { return 0; }
    uint64 skip(uint64 numBytes) override;

private:
    uint64 position_;
};

// Whole-vector helpers. An empty vector transfers nothing and yields storage.receipt().
TReceiptPtr save(IStorage& storage, const std::vector<uint8>& bytes);
TReceiptPtr load(IStorage& storage, std::vector<uint8>& bytes);
// Resizes bytes to the receipt's count and loads the receipt into it.
bool load(const IReceipt* receipt, std::vector<uint8>& bytes);

}  // namespace Ebml
