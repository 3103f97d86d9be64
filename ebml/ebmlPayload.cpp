#include "ebml/ebmlPayload.h"

#include "ebml/ebmlElt.h"

#include <algorithm>
#include <chrono>

namespace Ebml {

IPayload::IPayload() = default;
IPayload::IPayload(const IPayload& other) = default;
IPayload& IPayload::operator=(const IPayload& other) = default;
IPayload::~IPayload() = default;

void IPayload::addVoid(uint64 payloadBytes)
{
    voids_.emplace_back(VVoid(payloadBytes));
}

namespace {

// Writes value big-endian in numBytes bytes (at most 8).
TReceiptPtr saveUInt(IStorage& storage, uint64 value, uint64 numBytes)
{
    uint8 buf[8];
    uintEncode(value, buf, numBytes);
    return storage.save(buf, std::size_t(numBytes));
}

// Reads n <= 8 bytes big-endian into value; false when not all are there.
bool loadUInt(IStorage& storage, uint64 n, uint64& value)
{
    uint8 buf[8] = {};
    if (n > 8 || (n > 0 && !storage.load(buf, std::size_t(n))))
        return false;
    value = uintDecode(buf, n);
    return true;
}

// Reads n <= 8 bytes as a two's complement big-endian number.
bool loadInt(IStorage& storage, uint64 n, int64& value)
{
    uint64 bits = 0;
    if (!loadUInt(storage, n, bits))
        return false;
    if (n > 0 && n < 8 && bits > uintMax[n] / 2)
        bits -= uintMax[n] + 1;
    value = int64(bits);
    return true;
}

}  // namespace

uint64 VUInt::calcSize() const
{
    return std::max(size_, uintNumBytes(data_));
}

TReceiptPtr VUInt::save(IStorage& storage) const
{
    return saveUInt(storage, data_, std::min<uint64>(calcSize(), 8));
}

uint64 VUInt::load(IStorage& storage, uint64 bytesToRead, IDelegateLoad*)
{
    return loadUInt(storage, bytesToRead, data_) ? bytesToRead : 0;
}

uint64 VInt::calcSize() const
{
    return std::max(size_, intNumBytes(data_));
}

TReceiptPtr VInt::save(IStorage& storage) const
{
    return saveUInt(storage, uint64(data_), std::min<uint64>(calcSize(), 8));
}

uint64 VInt::load(IStorage& storage, uint64 bytesToRead, IDelegateLoad*)
{
    return loadInt(storage, bytesToRead, data_) ? bytesToRead : 0;
}

uint64 VFloat::calcSize() const
{
    return size_ < 5 ? 4 : 8;
}

TReceiptPtr VFloat::save(IStorage& storage) const
{
    uint8 buf[8];
    const uint64 n = calcSize() == 4 ? floatEncode(float(data_), buf) : doubleEncode(data_, buf);
    return storage.save(buf, std::size_t(n));
}

uint64 VFloat::load(IStorage& storage, uint64 bytesToRead, IDelegateLoad*)
{
    uint8 buf[8];
    if (bytesToRead > 8 || (bytesToRead > 0 && !storage.load(buf, std::size_t(bytesToRead))))
        return 0;
    if (bytesToRead < 5) {
        size_ = 4;
        data_ = bytesToRead == 4 ? double(floatDecode(buf)) : 0.0;
    } else {
        size_ = 8;
        data_ = bytesToRead == 8 ? doubleDecode(buf) : 0.0;
    }
    return bytesToRead;
}

VDate::VDate() : VPayload<int64>(0, 8)
{
    using namespace std::chrono;
    const int64 ns = duration_cast<nanoseconds>(system_clock::now().time_since_epoch()).count();
    default_ = data_ = ns - kEpochOffset * 1000000000;
}

TReceiptPtr VDate::save(IStorage& storage) const
{
    return saveUInt(storage, uint64(data_), 8);
}

uint64 VDate::load(IStorage& storage, uint64 bytesToRead, IDelegateLoad*)
{
    return loadInt(storage, bytesToRead, data_) ? bytesToRead : 0;
}

uint64 VString::calcSize() const
{
    return std::max<uint64>(size_, data_.size());
}

TReceiptPtr VString::save(IStorage& storage) const
{
    std::vector<uint8> bytes(std::size_t(calcSize()), 0);
    std::copy(data_.begin(), data_.end(), bytes.begin());
    return Ebml::save(storage, bytes);
}

uint64 VString::load(IStorage& storage, uint64 bytesToRead, IDelegateLoad*)
{
    // Grow in chunks as the bytes prove to be there: a size field is untrusted.
    static const uint64 kChunk = 65536;
    std::string text;
    TReceiptPtr start = storage.receipt();
    for (uint64 done = 0; done < bytesToRead;) {
        const std::size_t n = std::size_t(std::min(kChunk, bytesToRead - done));
        const std::size_t at = text.size();
        text.resize(at + n);
        if (!storage.load(reinterpret_cast<uint8*>(&text[at]), n)) {
            if (done > 0)
                storage.seekTo(start->position());
            return 0;
        }
        done += n;
    }
    data_.swap(text);
    return bytesToRead;
}

TReceiptPtr VVoid::save(IStorage& storage) const
{
    static const uint8 kZeros[1024] = {};
    TReceiptPtr result = storage.receipt();
    for (uint64 left = size_; left > 0;) {
        const std::size_t n = std::size_t(std::min<uint64>(sizeof kZeros, left));
        TReceiptPtr block = storage.save(kZeros, n);
        if (!block)
            return block;
        *result += block;
        left -= n;
    }
    return result;
}

uint64 VVoid::load(IStorage& storage, uint64 bytesToRead, IDelegateLoad*)
{
    if (bytesToRead > 0 && storage.skip(bytesToRead) != bytesToRead) {
        size_ = 0;
        return 0;
    }
    size_ = bytesToRead;
    return bytesToRead;
}

void VEltPosition::setMaxSize(uint64 numBytes)
{
    EBML_ASSERT(numBytes <= 8);
    maxSize_ = numBytes;
}

uint64 VEltPosition::position() const
{
    if (elt_ && origin_) {
        TReceiptPtr target = elt_->storageReceipt();
        TReceiptPtr originPayload = origin_->payloadReceipt();
        if (target && originPayload && target->position() >= originPayload->position())
            return target->position() - originPayload->position();
    }
    return position_;
}

uint64 VEltPosition::calcSize() const
{
    return std::max(maxSize_, uintNumBytes(position()));
}

TReceiptPtr VEltPosition::save(IStorage& storage) const
{
    receipt_ = saveUInt(storage, position(), std::min<uint64>(calcSize(), 8));
    return receipt_;
}

uint64 VEltPosition::load(IStorage& storage, uint64 bytesToRead, IDelegateLoad*)
{
    uint64 value = 0;
    if (!loadUInt(storage, bytesToRead, value))
        return 0;
    setPosition(value);
    return bytesToRead;
}

bool VEltPosition::rewrite() const
{
    if (!receipt_)
        return false;
    const uint64 n = receipt_->numBytes();
    const uint64 value = position();
    if (n == 0 || n > 8 || uintNumBytes(value) > n)
        return false;
    uint8 buf[8];
    uintEncode(value, buf, n);
    return receipt_->save(buf, std::size_t(n));
}

bool EbmlMaster::evalChildren(IElementCrawler& crawler, std::initializer_list<IElement*> children)
{
    return evalElements(crawler, children);
}

uint64 EbmlMaster::calcChildrenSize(std::initializer_list<const IElement*> children)
{
    return calcElementsSize(children);
}

TReceiptPtr EbmlMaster::saveChildren(IStorage& storage, std::initializer_list<const IElement*> children)
{
    return saveElements(storage, children);
}

uint64 EbmlMaster::loadChildren(IStorage& storage, uint64 bytesToRead, IDelegateLoad* delegate,
                                std::initializer_list<IElement*> children)
{
    return loadElements(storage, bytesToRead, delegate, children);
}

}  // namespace Ebml
