#include "ebml/ebmlHodgePodge.h"

#include <algorithm>
#include <cstring>

namespace Ebml {

void HodgePodge::add(const TReceiptPtr& receipt)
{
    if (receipt && receipt->numBytes() > 0)
        receipts_.push_back(receipt);
}

void HodgePodge::add(const uint8* data, std::size_t numBytes, IStorage& storage)
{
    if (numBytes > 0)
        add(storage.save(data, numBytes));
}

void HodgePodge::add(const std::vector<uint8>& bytes, IStorage& storage)
{
    add(bytes.data(), bytes.size(), storage);
}

void HodgePodge::set(const TReceiptPtr& receipt)
{
    clear();
    add(receipt);
}

void HodgePodge::set(const uint8* data, std::size_t numBytes, IStorage& storage)
{
    clear();
    add(data, numBytes, storage);
}

void HodgePodge::set(const std::vector<uint8>& bytes, IStorage& storage)
{
    clear();
    add(bytes, storage);
}

uint64 HodgePodge::numBytes() const
{
    uint64 total = 0;
    for (const TReceiptPtr& r : receipts_)
        total += r->numBytes();
    return total;
}

bool HodgePodge::get(uint8* dst) const
{
    if (receipts_.empty())
        return false;
    for (const TReceiptPtr& r : receipts_) {
        const bool ok = r->load(dst);
        EBML_ASSERT(ok);
        dst += r->numBytes();
    }
    return true;
}

bool HodgePodge::get(std::vector<uint8>& bytes) const
{
    bytes.assign(std::size_t(numBytes()), 0);
    return bytes.empty() || get(bytes.data());
}

namespace {

// Calls f(receipt, offset inside it, count, offset in the range) for every receipt part
// overlapping [offset, offset + numBytes); false when the range is not covered.
template <typename TFunction>
bool forRange(const HodgePodge::TReceipts& receipts, uint64 offset, uint64 numBytes, TFunction f)
{
    uint64 start = 0;
    uint64 done = 0;
    for (const TReceiptPtr& r : receipts) {
        if (done == numBytes)
            break;
        const uint64 count = r->numBytes();
        const uint64 end = start + count;
        const uint64 from = offset + done;
        if (from < end) {
            const uint64 inside = from - start;
            const uint64 n = std::min(count - inside, numBytes - done);
            if (!f(r, inside, n, done))
                return false;
            done += n;
        }
        start = end;
    }
    return done == numBytes;
}

}  // namespace

bool HodgePodge::getRange(uint64 offset, std::size_t numBytes, uint8* dst) const
{
    return forRange(receipts_, offset, numBytes, [dst](const TReceiptPtr& r, uint64 inside, uint64 n, uint64 at) {
        TReceiptPtr part = r->receipt(inside, n);
        return part && part->load(dst + at);
    });
}

bool HodgePodge::putRange(uint64 offset, std::size_t numBytes, const uint8* src)
{
    return forRange(receipts_, offset, numBytes, [src](const TReceiptPtr& r, uint64 inside, uint64 n, uint64 at) {
        TReceiptPtr part = r->receipt(inside, n);
        return part && part->save(src + at, std::size_t(n));
    });
}

void HodgePodge::truncate(uint64 numBytes)
{
    TReceipts kept;
    forRange(receipts_, 0, std::min(numBytes, this->numBytes()),
             [&kept](const TReceiptPtr& r, uint64 inside, uint64 n, uint64) {
                 kept.push_back(n == r->numBytes() ? r : r->receipt(inside, n));
                 return true;
             });
    receipts_.swap(kept);
}

bool HodgePodge::operator==(const HodgePodge& other) const
{
    if (numBytes() != other.numBytes())
        return false;
    std::vector<uint8> mine, theirs;
    get(mine);
    other.get(theirs);
    return mine == theirs;
}

TReceiptPtr HodgePodge::save(IStorage& storage) const
{
    TReceiptPtr result = storage.receipt();
    for (const TReceiptPtr& r : receipts_) {
        TReceiptPtr dst;
        if (storage.isNullStorage()) {
            dst = storage.skipWithReceipt(r->numBytes());
        } else if (const uint8* direct = r->contiguousBytes()) {
            // Pixels referred to in memory go straight to the target, no staging copy.
            dst = storage.save(direct, std::size_t(r->numBytes()));
        } else {
            std::vector<uint8> bytes;
            const bool ok = Ebml::load(r.get(), bytes);
            EBML_ASSERT(ok);
            dst = Ebml::save(storage, bytes);
        }
        // A full target (a frame larger than the area) is a reported failure, not a crash.
        if (!dst)
            return dst;
        *result += dst;
    }
    return result;
}

uint64 HodgePodge::load(IStorage& storage, uint64 numBytes)
{
    TReceiptPtr r = storage.skipWithReceipt(numBytes);
    if (!r)
        return 0;
    set(r);
    return numBytes;
}

uint8 HodgePodgeConstIter::byteAt(uint64 position) const
{
    if (!podge_)
        return 0;
    if (position < windowStart_ || position - windowStart_ >= windowSize_) {
        const uint64 total = podge_->numBytes();
        if (position >= total)
            return 0;
        const uint64 start = position - position % kWindow;
        const uint64 size = std::min<uint64>(kWindow, total - start);
        if (!podge_->getRange(start, std::size_t(size), window_)) {
            windowSize_ = 0;
            return 0;
        }
        windowStart_ = start;
        windowSize_ = size;
    }
    return window_[position - windowStart_];
}

bool HodgePodgeSubReceipt::load(uint8* data) const
{
    HodgePodgeConstIter it(podge_, position_);
    for (uint64 i = 0; i < numBytes_; ++i)
        data[i] = it[int64(i)];
    return position_ + numBytes_ <= podge_.numBytes();
}

TReceiptPtr HodgePodgeSubReceipt::receipt(uint64 offset, uint64 size) const
{
    EBML_ASSERT(offset + size <= numBytes_);
    return TReceiptPtr(new HodgePodgeSubReceipt(podge_, position_ + offset, size));
}

HodgePodgeStorage HodgePodgeStorage::Instance;

HodgePodgeStorage::Receipt::Receipt(const TBytesPtr& bytesPtr, uint64 position, uint64 numBytes)
    : bytesPtr_(bytesPtr), position_(position), numBytes_(numBytes)
{
    EBML_ASSERT(position_ + numBytes_ <= bytesPtr_->size());
}

IReceipt& HodgePodgeStorage::Receipt::setNumBytes(uint64 numBytes)
{
    EBML_ASSERT(position_ + numBytes <= bytesPtr_->size());
    numBytes_ = numBytes;
    return *this;
}

IReceipt& HodgePodgeStorage::Receipt::add(uint64 numBytes)
{
    EBML_ASSERT(position_ + numBytes_ + numBytes <= bytesPtr_->size());
    numBytes_ += numBytes;
    return *this;
}

bool HodgePodgeStorage::Receipt::save(const uint8* data, std::size_t numBytes)
{
    if (numBytes > numBytes_)
        return false;
    std::copy(data, data + numBytes, bytesPtr_->begin() + std::ptrdiff_t(position_));
    return true;
}

bool HodgePodgeStorage::Receipt::load(uint8* data) const
{
    const uint64 capacity = bytesPtr_->size();
    EBML_ASSERT(position_ + numBytes_ <= capacity);
    std::copy(bytesPtr_->begin() + std::ptrdiff_t(position_),
              bytesPtr_->begin() + std::ptrdiff_t(position_ + numBytes_), data);
    return true;
}

bool HodgePodgeStorage::Receipt::calcCrc32(uint64 addr, uint64 n, Crc32& crc) const
{
    return Ebml::calcCrc32(bytesPtr_->data(), bytesPtr_->size(), addr, n, crc);
}

bool HodgePodgeStorage::Receipt::calcCrc32(Crc32& crc, const TReceiptPtr& receiptSkip) const
{
    return Ebml::calcCrc32(*this, position_, numBytes_, crc, receiptSkip);
}

TReceiptPtr HodgePodgeStorage::Receipt::receipt(uint64 offset, uint64 size) const
{
    const uint64 position = position_ + offset;
    EBML_ASSERT(position <= bytesPtr_->size());
    return TReceiptPtr(new Receipt(bytesPtr_, position, size));
}

TReceiptPtr HodgePodgeStorage::receipt() const
{
    return TReceiptPtr(new HodgePodgeStorageReceipt());
}

TReceiptPtr HodgePodgeStorage::save(const uint8* data, std::size_t numBytes)
{
    TBytesPtr bytes(new std::vector<uint8>(data, data + numBytes));
    TReceiptPtr block(new Receipt(bytes, 0, numBytes));
    return TReceiptPtr(new HodgePodgeStorageReceipt(block));
}

TReceiptPtr HodgePodgeStorage::load(uint8*, std::size_t)
{
    EBML_ASSERT(!"HodgePodgeStorage::load not supported");
    return TReceiptPtr();
}

std::size_t HodgePodgeStorage::peek(uint8*, std::size_t)
{
    EBML_ASSERT(!"HodgePodgeStorage::peek not supported");
    return 0;
}

uint64 HodgePodgeStorage::skip(uint64)
{
    EBML_ASSERT(!"HodgePodgeStorage::skip not supported");
    return 0;
}

IReceipt& HodgePodgeStorageReceipt::setNumBytes(uint64 numBytes)
{
    EBML_ASSERT(numBytes <= podge_.numBytes());
    podge_.truncate(numBytes);
    return *this;
}

IReceipt& HodgePodgeStorageReceipt::add(uint64 numBytes)
{
    EBML_ASSERT(numBytes == 0);
    return *this;
}

bool HodgePodgeStorageReceipt::save(const uint8* data, std::size_t numBytes)
{
    return podge_.putRange(0, numBytes, data);
}

bool HodgePodgeStorageReceipt::load(uint8* data) const
{
    return podge_.empty() || podge_.get(data);
}

bool HodgePodgeStorageReceipt::calcCrc32(Crc32& crc, const TReceiptPtr& receiptSkip) const
{
    if (receiptSkip)
        return false;  // positions of different blocks are not comparable
    std::vector<uint8> bytes;
    podge_.get(bytes);
    crc.compute(bytes.data(), bytes.size());
    return true;
}

IReceipt& HodgePodgeStorageReceipt::operator+=(const TReceiptPtr& other)
{
    if (!other)
        return *this;
    if (const HodgePodgeStorageReceipt* collected = dynamic_cast<HodgePodgeStorageReceipt*>(other.get()))
        for (const TReceiptPtr& r : collected->podge_.receipts())
            podge_.add(r);
    else
        podge_.add(other);
    return *this;
}

TReceiptPtr HodgePodgeStorageReceipt::receipt(uint64 offset, uint64 size) const
{
    EBML_ASSERT(offset + size <= podge_.numBytes());
    return TReceiptPtr(new HodgePodgeSubReceipt(podge_, offset, size));
}

}  // namespace Ebml
