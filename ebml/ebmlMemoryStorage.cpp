#include "ebml/ebmlMemoryStorage.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace Ebml {

bool ConstFileInMemory::seek(int64 offset, TPositionReference whence)
{
    // Target computed in signed 128-bit-free form: reject before it can overflow.
    int64 base;
    switch (whence) {
    case kAbsolutePosition:
        base = 0;
        break;
    case kRelativePosition:
        base = int64(pos_);
        break;
    case kPositionFromEnd:
        if (offset == INT64_MIN)
            return false;
        base = int64(size_);
        offset = -offset;
        break;
    default:
        return false;
    }
    if (offset > 0 && base > INT64_MAX - offset)
        return false;
    const int64 target = base + offset;
    if (target < 0 || uint64(target) > size_)
        return false;
    pos_ = uint64(target);
    return true;
}

std::size_t ConstFileInMemory::peek(void* dst, std::size_t n) const
{
    const std::size_t count = std::size_t(std::min<uint64>(n, size_ - pos_));
    if (count > 0)
        std::memcpy(dst, data_ + pos_, count);
    return count;
}

bool ConstFileInMemory::load(void* dst, std::size_t n)
{
    if (n <= size_ - pos_) {
        if (n > 0)
            std::memcpy(dst, data_ + pos_, n);
        pos_ += n;
        return true;
    }
    peek(dst, n);
    return false;
}

bool ConstFileInMemory::calcCrc32(uint64 addr, uint64 n, Crc32& crc) const
{
    return Ebml::calcCrc32(data_, size_, addr, n, crc);
}

bool FileInMemory::save(const void* src, std::size_t n)
{
    if (n > size_ - pos_)
        return false;
    if (n > 0)
        std::memcpy(writableData() + pos_, src, n);
    pos_ += n;
    return true;
}

namespace {

inline bool fileSave(FileInMemory& file, const uint8* data, std::size_t n)
{
    return file.save(data, n);
}
inline bool fileSave(ConstFileInMemory&, const uint8*, std::size_t)
{
    return false;
}

}  // namespace

template <typename TFile>
Storage<TFile>::Receipt::Receipt(TFile& file, uint64 addr, uint64 numBytes)
    : file_(file), addr_(addr), numBytes_(numBytes)
{
    EBML_ASSERT(addr_ <= file_.size() && numBytes_ <= file_.size() - addr_);
}

template <typename TFile>
IReceipt& Storage<TFile>::Receipt::setNumBytes(uint64 numBytes)
{
    EBML_ASSERT(numBytes <= file_.size() - addr_);
    numBytes_ = numBytes;
    return *this;
}

template <typename TFile>
IReceipt& Storage<TFile>::Receipt::add(uint64 numBytes)
{
    EBML_ASSERT(numBytes <= file_.size() - addr_ - numBytes_);
    numBytes_ += numBytes;
    return *this;
}

template <typename TFile>
bool Storage<TFile>::Receipt::save(const uint8* data, std::size_t numBytes)
{
    Seek<ConstFileInMemory> guard(file_, addr_);
    return fileSave(file_, data, numBytes);
}

template <typename TFile>
bool Storage<TFile>::Receipt::load(uint8* data) const
{
    Seek<ConstFileInMemory> guard(file_, addr_);
    return file_.load(data, std::size_t(numBytes_));
}

template <typename TFile>
bool Storage<TFile>::Receipt::calcCrc32(Crc32& crc, const TReceiptPtr& receiptSkip) const
{
    return Ebml::calcCrc32(file_, addr_, numBytes_, crc, receiptSkip);
}

template <typename TFile>
TReceiptPtr Storage<TFile>::Receipt::receipt(uint64 offset, uint64 size) const
{
    EBML_ASSERT(offset <= numBytes_ && size <= numBytes_ - offset);
    return TReceiptPtr(new Receipt(file_, addr_ + offset, size));
}

template <typename TFile>
TReceiptPtr Storage<TFile>::receipt() const
{
    return TReceiptPtr(new Receipt(file_, file_.position(), 0));
}

template <typename TFile>
TReceiptPtr Storage<TFile>::save(const uint8* data, std::size_t numBytes)
{
    const uint64 at = file_.position();
    if (!fileSave(file_, data, numBytes))
        return TReceiptPtr();
    return TReceiptPtr(new Receipt(file_, at, numBytes));
}

template <typename TFile>
TReceiptPtr Storage<TFile>::load(uint8* data, std::size_t numBytes)
{
    const uint64 at = file_.position();
    if (!file_.load(data, numBytes))
        return TReceiptPtr();
    return TReceiptPtr(new Receipt(file_, at, numBytes));
}

template <typename TFile>
std::size_t Storage<TFile>::peek(uint8* data, std::size_t numBytes)
{
    return file_.peek(data, numBytes);
}

template <typename TFile>
void Storage<TFile>::seekTo(uint64 absolutePosition)
{
    if (absolutePosition > file_.size() || !file_.seek(int64(absolutePosition), kAbsolutePosition))
        throw std::runtime_error("ConstMemoryStorage::seekTo(" + std::to_string(absolutePosition) + ") failed");
    EBML_ASSERT(absolutePosition == receipt()->position());
}

template <typename TFile>
uint64 Storage<TFile>::skip(uint64 numBytes)
{
    if (numBytes > file_.size() - file_.position())
        return 0;
    return file_.seek(int64(numBytes), kRelativePosition) ? numBytes : 0;
}

template class Storage<FileInMemory>;
template class Storage<ConstFileInMemory>;

IReceipt& MemReceipt::setNumBytes(uint64 numBytes)
{
    numBytes_ = numBytes;
    return *this;
}

IReceipt& MemReceipt::add(uint64 numBytes)
{
    numBytes_ += numBytes;
    return *this;
}

bool MemReceipt::save(const uint8* data, std::size_t numBytes)
{
    if (numBytes > numBytes_)
        return false;
    if (numBytes > 0)
        std::memcpy(address_, data, numBytes);
    return true;
}

bool MemReceipt::load(uint8* data) const
{
    if (numBytes_ > 0)
        std::memcpy(data, address_, std::size_t(numBytes_));
    return true;
}

TReceiptPtr MemReceipt::receipt(uint64 offset, uint64 size) const
{
    EBML_ASSERT(offset + size <= numBytes_);
    return TReceiptPtr(new MemReceipt(address_ + offset, size));
}

TReceiptPtr ConstMemReceipt::receipt(uint64 offset, uint64 size) const
{
    EBML_ASSERT(offset + size <= numBytes_);
    return TReceiptPtr(new ConstMemReceipt(address_ + offset, size));
}

TReceiptPtr receiptForMemory(void* data, std::size_t numBytes)
{
    return TReceiptPtr(new MemReceipt(static_cast<uint8*>(data), numBytes));
}

TReceiptPtr receiptForConstMemory(const void* data, std::size_t numBytes)
{
    return TReceiptPtr(new ConstMemReceipt(static_cast<const uint8*>(data), numBytes));
}

}  // namespace Ebml
