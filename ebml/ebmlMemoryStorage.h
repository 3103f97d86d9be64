#pragma once
// Storages over a fixed, caller-owned byte area (for example the payload area of a
// shared-memory segment), and receipts over plain memory.

#include "ebml/ebmlIStorage.h"

#include <cstddef>

namespace Ebml {

// Read-only view of size bytes at data (not owned) with a position.
class ConstFileInMemory {
public:
    ConstFileInMemory(const uint8* data, uint64 size) : data_(data), size_(size), pos_(0) {}

    const uint8* data() const { return data_; }
    uint64 size() const { return size_; }
    uint64 position() const { return pos_; }

    // Fails (false, position unchanged) outside [0, size].
    bool seek(int64 offset, TPositionReference whence);
    // Copies what is available up to n bytes; returns the count.
    std::size_t peek(void* dst, std::size_t n) const;
    // All n bytes or false; on false the available bytes were copied and pos is unchanged.
    bool load(void* dst, std::size_t n);
    bool calcCrc32(uint64 addr, uint64 n, Crc32& crc) const;

protected:
    const uint8* data_;
    uint64 size_;
    uint64 pos_;
};

// Writable view over a caller-owned area of a given capacity.
class FileInMemory : public ConstFileInMemory {
public:
    FileInMemory(uint8* data, uint64 size) : ConstFileInMemory(data, size) {}
    uint8* writableData() const { return const_cast<uint8*>(data_); }
    // Writes all n bytes or nothing.
    bool save(const void* src, std::size_t n);
};

inline uint64 seekPosition(const ConstFileInMemory& file)
{
    return file.position();
}
inline bool seekAbsolute(ConstFileInMemory& file, uint64 position)
{
    return position <= file.size() && file.seek(int64(position), kAbsolutePosition);
}

// IStorage over a memory file; the area itself is not owned. The number of bytes written
// from the start is absolutePosition(). Receipts refer to this storage's file object and
// must be released before the storage is destroyed.
template <typename TFile>
class Storage : public IStorage {
public:
    class Receipt : public IReceipt {
    public:
        Receipt(TFile& file, uint64 addr, uint64 numBytes);
        uint64 position() const override { return addr_; }
        uint64 numBytes() const override { return numBytes_; }
        IReceipt& setNumBytes(uint64 numBytes) override;
        IReceipt& add(uint64 numBytes) override;
        bool save(const uint8* data, std::size_t numBytes) override;
        bool load(uint8* data) const override;
        bool calcCrc32(Crc32& crc, const TReceiptPtr& receiptSkip) const override;
        TReceiptPtr receipt(uint64 offset, uint64 size) const override;
        const uint8* contiguousBytes() const override
        {
            return addr_ + numBytes_ <= file_.size() ? file_.data() + addr_ : nullptr;
        }

    private:
        TFile& file_;
        uint64 addr_;
        uint64 numBytes_;
    };

    template <typename TByte>
    Storage(TByte* data, uint64 size) : file_(data, size)
    {
    }
    Storage(const Storage&) = delete;
    Storage& operator=(const Storage&) = delete;

    TFile& file() { return file_; }
    const TFile& file() const { return file_; }

    TReceiptPtr receipt() const override;
    TReceiptPtr save(const uint8* data, std::size_t numBytes) override;
    TReceiptPtr load(uint8* data, std::size_t numBytes) override;
    std::size_t peek(uint8* data, std::size_t numBytes) override;
    void seekTo(uint64 absolutePosition) override;
    uint64 skip(uint64 numBytes) override;

private:
    mutable TFile file_;
};

typedef Storage<FileInMemory> MemoryStorage;
typedef Storage<ConstFileInMemory> ConstMemoryStorage;

extern template class Storage<FileInMemory>;
extern template class Storage<ConstFileInMemory>;

// Receipt over caller memory (not copied, not owned); position() is the address.
class MemReceipt : public IReceipt {
public:
    MemReceipt(uint8* address, uint64 numBytes) : address_(address), numBytes_(numBytes) {}
    uint64 position() const override { return uint64(reinterpret_cast<std::uintptr_t>(address_)); }
    uint64 numBytes() const override { return numBytes_; }
    IReceipt& setNumBytes(uint64 numBytes) override;
    IReceipt& add(uint64 numBytes) override;
    bool save(const uint8* data, std::size_t numBytes) override;
    bool load(uint8* data) const override;
    bool calcCrc32(Crc32&, const TReceiptPtr&) const override { return false; }
    TReceiptPtr receipt(uint64 offset, uint64 size) const override;
    const uint8* contiguousBytes() const override { return address_; }

protected:
    uint8* address_;
    uint64 numBytes_;
};

// Read-only variant: save always fails.
class ConstMemReceipt : public MemReceipt {
public:
    ConstMemReceipt(const uint8* address, uint64 numBytes) : MemReceipt(const_cast<uint8*>(address), numBytes) {}
    bool save(const uint8*, std::size_t) override { return false; }
    TReceiptPtr receipt(uint64 offset, uint64 size) const override;
};

TReceiptPtr receiptForMemory(void* data, std::size_t numBytes);
TReceiptPtr receiptForConstMemory(const void* data, std::size_t numBytes);

}  // namespace Ebml
