#pragma once
// The storage over a disk file: elements read and write a File through it, and its
// receipts reach back into the same file.

#include "ebml/ebmlFile.h"
#include "ebml/ebmlIStorage.h"

#include <string>

namespace Ebml {

class FileStorage : public IStorage {
public:
    // Shares the storage's file, so it stays usable while any handle of the file lives.
    class Receipt : public RangeReceipt {
    public:
        Receipt(const File& file, uint64 addr, uint64 numBytes) : RangeReceipt(addr, numBytes), file_(file) {}

        // Both leave the file position where it was.
        bool save(const uint8* data, std::size_t numBytes) override;
        bool load(uint8* data) const override;
        bool calcCrc32(Crc32& crc, const TReceiptPtr& receiptSkip) const override;
        TReceiptPtr receipt(uint64 offset, uint64 size) const override;

    private:
        // A handle: reading through it moves the shared position, which the seek guard restores.
        mutable File file_;
    };

    FileStorage(const std::string& path, File::AccessMode mode);

    File& file() { return file_; }
    const File& file() const { return file_; }
    bool isOpen() const { return file_.isOpen(); }

    TReceiptPtr receipt() const override;
    TReceiptPtr save(const uint8* data, std::size_t numBytes) override;
    TReceiptPtr load(uint8* data, std::size_t numBytes) override;
    std::size_t peek(uint8* data, std::size_t numBytes) override;
    // Throws std::runtime_error("FileStorage::seekTo(<pos>) failed"). Past the end of
    // a writable file the logical size grows; a read-only file refuses.
    void seekTo(uint64 absolutePosition) override;
    // The same rule as seekTo; 0 when refused.
    uint64 skip(uint64 numBytes) override;

private:
    bool reaches(uint64 absolutePosition) const;

    File file_;
};

}  // namespace Ebml
