#include "ebml/ebmlIStorage.h"

#include <algorithm>

namespace Ebml {

IReceipt& IReceipt::operator+=(const TReceiptPtr& other)
{
    if (other)
        add(other->numBytes());
    return *this;
}

TReceiptPtr IReceipt::saveTo(IStorage& dst, std::size_t maxChunkSize) const
{
    TReceiptPtr result = dst.receipt();
    std::vector<uint8> buffer(maxChunkSize);
    const uint64 total = numBytes();
    for (uint64 offset = 0; offset < total;) {
        const std::size_t chunk = static_cast<std::size_t>(std::min<uint64>(maxChunkSize, total - offset));
        TReceiptPtr src = receipt(offset, chunk);
        EBML_ASSERT(src);
        const bool ok = src->load(buffer.data());
        EBML_ASSERT(ok);
        TReceiptPtr written = dst.save(buffer.data(), chunk);
        EBML_ASSERT(written);
        *result += written;
        offset += chunk;
    }
    return result;
}

void IStorage::seekTo(uint64)
{
    throw std::runtime_error("IStorage::seekTo not supported");
}

TReceiptPtr IStorage::skipWithReceipt(uint64 numBytes)
{
    TReceiptPtr r = receipt();
    if (skip(numBytes) == 0 && numBytes != 0)
        return TReceiptPtr();
    r->add(numBytes);
    return r;
}

IReceipt& RangeReceipt::setNumBytes(uint64 numBytes)
{
    numBytes_ = numBytes;
    return *this;
}

IReceipt& RangeReceipt::add(uint64 numBytes)
{
    numBytes_ += numBytes;
    return *this;
}

TReceiptPtr NullStorage::Receipt::receipt(uint64 offset, uint64 size) const
{
    EBML_ASSERT(offset + size <= numBytes_);
    return TReceiptPtr(new Receipt(position_ + offset, size));
}

TReceiptPtr NullStorage::receipt() const
{
    return TReceiptPtr(new Receipt(position_, 0));
}

TReceiptPtr NullStorage::save(const uint8*, std::size_t numBytes)
{
    TReceiptPtr r(new Receipt(position_, numBytes));
    position_ += numBytes;
    return r;
}

uint64 NullStorage::skip(uint64 numBytes)
{
    position_ += numBytes;
    return numBytes;
}

TReceiptPtr save(IStorage& storage, const std::vector<uint8>& bytes)
{
    if (bytes.empty())
        return storage.receipt();
    return storage.save(bytes.data(), bytes.size());
}

TReceiptPtr load(IStorage& storage, std::vector<uint8>& bytes)
{
    if (bytes.empty())
        return storage.receipt();
    return storage.load(bytes.data(), bytes.size());
}

bool load(const IReceipt* receipt, std::vector<uint8>& bytes)
{
    if (!receipt)
        return false;
    bytes.resize(static_cast<std::size_t>(receipt->numBytes()));
    return bytes.empty() || receipt->load(bytes.data());
}

}  // namespace Ebml
