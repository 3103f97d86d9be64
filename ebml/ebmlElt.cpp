#include "ebml/ebmlElt.h"

#include <iostream>

namespace Ebml {

namespace {

// Nesting depth of the loads in progress on this thread.
thread_local unsigned tLoadDepth = 0;
// Set when a child's size ran past its parent; every enclosing load then refuses
// its element, so that a contradiction is never repaired by skipping the child.
thread_local bool tChildOverrun = false;

class LoadDepth {
public:
    LoadDepth()
    {
        if (++tLoadDepth == 1)
            tChildOverrun = false;
    }
    ~LoadDepth()
    {
        if (--tLoadDepth == 0)
            tChildOverrun = false;
    }
    bool outermost() const { return tLoadDepth == 1; }
    bool tooDeep() const { return tLoadDepth > IElement::kMaxLoadDepth; }
};

// Voids kept per element load; further ones are skipped so that a buffer full of
// two-byte Voids cannot exhaust memory.
constexpr unsigned kMaxVoidsPerLoad = 1024;

}  // namespace

bool IElement::mustSave() const
{
    if (fixedSize_ != 0 || (flags_ & kFlagAlwaysSave) || !getPayload().isDefault())
        return true;
    return getPayload().isComposite() && getPayload().hasVoid();
}

IElement& IElement::alwaysSave()
{
    flags_ |= kFlagAlwaysSave;
    return *this;
}

IElement& IElement::setCrc32(bool enable)
{
    if (enable && getPayload().isComposite())
        flags_ |= kFlagCrc32;
    else
        flags_ &= uint8(~kFlagCrc32);
    return *this;
}

uint64 IElement::calcSize() const
{
    if (!mustSave())
        return 0;
    const uint64 payloadSize = payloadSizeWithCrc32();
    uint64 size = uintNumBytes(getId()) + vsizeNumBytes(payloadSize) + payloadSize;
    for (const IPayload::TVoidElt& v : getPayload().voids_)
        size += v.calcSize();
    return size;
}

uint64 IElement::payloadSizeWithCrc32() const
{
    return getPayload().calcSize() + (shouldComputeCrc32() ? kCrc32EltSize : 0);
}

TReceiptPtr IElement::saveHeader(IStorage& storage, uint64 payloadSize, uint64 sizeWidth) const
{
    uint8 buf[8];
    storageReceipt_ = storage.save(buf, std::size_t(uintEncode(getId(), buf)));
    if (!storageReceipt_)
        return storageReceipt_;
    vsizeEncode(payloadSize, buf, sizeWidth);
    TReceiptPtr sizeReceipt = storage.save(buf, std::size_t(sizeWidth));
    if (!sizeReceipt)
        return sizeReceipt;
    *storageReceipt_ += sizeReceipt;
    offsetToPayload_ = storageReceipt_->numBytes();  // id and size bytes
    offsetToCrc32_ = kUndefinedOffset;
    return sizeReceipt;
}

void IElement::patchSize(IReceipt& sizeField, uint64 sizeWidth, uint64 announced, uint64 saved)
{
    if (saved >= announced)
        return;
    uint8 buf[8];
    vsizeEncode(saved, buf, sizeWidth);
    sizeField.save(buf, std::size_t(sizeWidth));
}

TReceiptPtr IElement::save(IStorage& storage, uint64 vsizeBytes) const
{
    if (fixedSize_ != 0)
        return savePaddedUpToSize(storage, fixedSize_);
    if (!mustSave())
        return storage.receipt();

    const IPayload& payload = getPayload();
    const uint64 payloadSize = payloadSizeWithCrc32();
    vsizeBytes = std::max(vsizeBytes, vsizeNumBytes(payloadSize));
    TReceiptPtr sizeReceipt = saveHeader(storage, payloadSize, vsizeBytes);
    if (!sizeReceipt)
        return sizeReceipt;

    if (shouldComputeCrc32()) {
        static const uint8 kPlaceholder[kCrc32EltSize] = {0xBF, 0x84, 0, 0, 0, 0};
        TReceiptPtr crc = storage.save(kPlaceholder, sizeof kPlaceholder);
        if (!crc)
            return crc;
        *storageReceipt_ += crc;
        offsetToCrc32_ = offsetToPayload_;
    }

    TReceiptPtr payloadSaved = payload.save(storage);
    if (!payloadSaved)
        return payloadSaved;
    *storageReceipt_ += payloadSaved;

    const uint64 payloadBytesSaved = storageReceipt_->numBytes() - offsetToPayload_;
    EBML_ASSERT(payloadBytesSaved <= payloadSize);
    patchSize(*sizeReceipt, vsizeBytes, payloadSize, payloadBytesSaved);

    for (const IPayload::TVoidElt& v : payload.voids_)
        *storageReceipt_ += v.save(storage, 0);
    return storageReceipt_;
}

TReceiptPtr IElement::savePaddedUpToSize(IStorage& storage, uint64 totalSize) const
{
    const IPayload& payload = getPayload();
    const bool unknownSize = totalSize == uintMax[8];
    const uint64 idBytes = uintNumBytes(getId());
    const uint64 payloadSize = payload.calcSize();
    const uint64 sizeBytes = vsizeNumBytes(payloadSize);
    const uint64 natural = idBytes + sizeBytes + payloadSize;
    // One spare byte cannot be filled: the smallest Void element is two bytes.
    if (!unknownSize && natural != totalSize && natural + 2 > totalSize)
        return TReceiptPtr();

    TReceiptPtr sizeReceipt =
        unknownSize ? saveHeader(storage, vsizeUnknown[8], 8) : saveHeader(storage, payloadSize, sizeBytes);
    if (!sizeReceipt)
        return sizeReceipt;

    TReceiptPtr payloadSaved = payload.save(storage);
    if (!payloadSaved)
        return payloadSaved;
    *storageReceipt_ += payloadSaved;
    if (unknownSize)
        return storageReceipt_;

    const uint64 saved = payloadSaved->numBytes();
    EBML_ASSERT(saved <= payloadSize);
    patchSize(*sizeReceipt, sizeBytes, payloadSize, saved);
    EBML_ASSERT(payload.voids_.empty());

    const uint64 padding = totalSize - (sizeBytes + idBytes) - saved;
    if (padding > 1) {
        const uint64 w = vsizeNumBytes(padding - 1);
        IPayload::TVoidElt filler(VVoid(padding - 1 - w));
        *storageReceipt_ += filler.save(storage, w);
    }
    return storageReceipt_;
}

uint64 IElement::load(IStorage& storage, uint64 bytesToRead, IDelegateLoad* delegate)
{
    if (bytesToRead == 0)
        return 0;
    LoadDepth depth;
    if (depth.tooDeep())
        return 0;

    TReceiptPtr receipt = storage.receipt();
    const uint64 start = receipt->position();
    // Seeks back on every refusal below; cleared once the element is loaded.
    Seek<IStorage> guard(storage);
    const uint64 id = loadEbmlId(storage);
    if (id == 0 || id != getId())
        return 0;

    uint64 vsizeBytes = 0;
    const uint64 payloadSize = vsizeDecode(storage, vsizeBytes);
    const uint64 headerBytes = uintNumBytes(id) + vsizeBytes;
    // A size field that cannot be read, or an element larger than what the caller has
    // left, is not this element.
    if (vsizeBytes == 0 || headerBytes > bytesToRead)
        return 0;
    const uint64 available = bytesToRead - headerBytes;
    const bool unknownSize = payloadSize == uintMax[8];
    if (!unknownSize && payloadSize > available) {
        // Inside a parent, the bytes given are the parent's: this child contradicts it.
        if (!depth.outermost())
            tChildOverrun = true;
        return 0;
    }

    IPayload& payload = getPayload();
    storageReceipt_ = receipt;
    storageReceipt_->add(headerBytes);
    setCrc32(false);
    loadedCrc32_ = computedCrc32_ = 0;
    TReceiptPtr payloadReceipt = storage.receipt();
    offsetToPayload_ = payloadReceipt->position() - start;
    offsetToCrc32_ = kUndefinedOffset;
    payload.voids_.clear();

    // An unknown size reaches to the end of what the caller has left.
    uint64 remaining = unknownSize ? available : payloadSize;
    uint64 payloadRead = 0;
    unsigned voidsKept = 0;
    while (remaining > 0) {
        uint64 consumed = 0;
        if (delegate) {
            consumed = delegate->load(storage, remaining, id, payload);
            if (consumed == uintMax[8]) {
                storage.seekTo(start);
                delegate->loaded(*this);
                discardReceipts();
                return 0;
            }
        }
        if (consumed == 0)
            consumed = payload.load(storage, remaining, delegate);
        if (tChildOverrun)
            break;
        EBML_ASSERT(consumed <= remaining);
        uint64 left = remaining - consumed;

        IPayload::TVoidElt voidElt;
        const uint64 voidBytes = voidElt.load(storage, left);
        if (voidBytes > 0) {
            left -= voidBytes;
            if (voidsKept < kMaxVoidsPerLoad) {
                ++voidsKept;
                attachVoid(voidElt, consumed > 0);
            }
        }
        left -= loadCrc32(storage, left);

        const uint64 progress = remaining - left;
        payloadRead += progress;
        if (progress == 0)
            break;
        remaining = left;
    }

    // A child that ran past this element refuses it (and its parents); unknown children
    // and trailing garbage are skipped, but a size that runs past the end of the storage
    // refuses the element instead.
    if (tChildOverrun) {
        discardReceipts();
        return 0;
    }
    if (!unknownSize && payloadRead < payloadSize) {
        const uint64 rest = payloadSize - payloadRead;
        if (storage.skip(rest) != rest) {
            discardReceipts();
            return 0;
        }
        payloadRead = payloadSize;
    }

    payloadReceipt->add(payloadRead);
    *storageReceipt_ += payloadReceipt;
    if (shouldComputeCrc32())
        checkCrc32(payloadReceipt);

    guard.seekBack_ = false;
    if (delegate && storageReceipt_->numBytes() > 0)
        delegate->loaded(*this);
    return storageReceipt_->numBytes();
}

void IElement::attachVoid(const IPayload::TVoidElt& voidElt, bool afterChild)
{
    IPayload& payload = getPayload();
    if (afterChild) {
        // The child that ends where the Void starts keeps it, so it is written again there.
        FindElement crawler(voidElt.storageReceipt()->position() - 2);
        payload.eval(crawler);
        if (crawler.eltFound_) {
            crawler.eltFound_->getPayload().voids_.push_back(voidElt);
            return;
        }
    }
    payload.voids_.push_back(voidElt);
}

void IElement::checkCrc32(const TReceiptPtr& payloadReceipt)
{
    Crc32 crc;
    if (!payloadReceipt->calcCrc32(crc, crc32Receipt()))
        return;
    computedCrc32_ = crc.checksum();
    if (computedCrc32_ == loadedCrc32_)
        return;

    uint8 idBytes[8];
    const uint64 idNumBytes = uintEncode(getId(), idBytes);
    std::ostream& os = std::cerr;
    os << indent() << "WARNING: " << getName() << " 0x";
    serialize(os, idBytes, std::size_t(idNumBytes));
    os << std::hex << std::uppercase << " -- checksum mismatch, loaded " << loadedCrc32_ << ", computed "
       << computedCrc32_ << ", CRC-32 @ 0x" << crc32Receipt()->position() << ", payload @ 0x"
       << payloadReceipt->position() << ":" << payloadReceipt->numBytes() << std::dec << std::endl;
}

uint64 IElement::loadCrc32(IStorage& storage, uint64 bytesToRead)
{
    if (bytesToRead < kCrc32EltSize)
        return 0;
    Seek<IStorage> guard(storage);
    TReceiptPtr receipt = storage.receipt();
    if (loadEbmlId(storage) != kIdCrc32)
        return 0;
    uint64 vsizeBytes = 0;
    // Only the one-byte size field 0x84 makes a CRC-32 child of kCrc32EltSize bytes.
    if (vsizeDecode(storage, vsizeBytes) != 4 || vsizeBytes != 1)
        return 0;
    uint8 bytes[4];
    if (!storage.load(bytes, sizeof bytes))
        return 0;
    receipt->add(kCrc32EltSize);
    guard.seekBack_ = false;
    // A second CRC-32 child is skipped: the first one is the element's checksum.
    if (offsetToCrc32_ != kUndefinedOffset)
        return kCrc32EltSize;
    setCrc32(true);
    loadedCrc32_ = uint32(bytes[0]) | uint32(bytes[1]) << 8 | uint32(bytes[2]) << 16 | uint32(bytes[3]) << 24;
    offsetToCrc32_ = receipt->position() - storageReceipt_->position();
    return kCrc32EltSize;
}

TReceiptPtr IElement::payloadReceipt() const
{
    if (offsetToPayload_ == kUndefinedOffset || !storageReceipt_ || offsetToPayload_ > storageReceipt_->numBytes())
        return TReceiptPtr();
    return storageReceipt_->receipt(offsetToPayload_, storageReceipt_->numBytes() - offsetToPayload_);
}

TReceiptPtr IElement::crc32Receipt() const
{
    if (offsetToCrc32_ == kUndefinedOffset || !storageReceipt_ ||
        offsetToCrc32_ + kCrc32EltSize > storageReceipt_->numBytes())
        return TReceiptPtr();
    return storageReceipt_->receipt(offsetToCrc32_, kCrc32EltSize);
}

void IElement::discardReceipts()
{
    storageReceipt_.reset();
    offsetToPayload_ = kUndefinedOffset;
    offsetToCrc32_ = kUndefinedOffset;
}

bool FindElement::eval(IElement& elt)
{
    TReceiptPtr r = elt.storageReceipt();
    if (r && r->position() <= position_ && position_ - r->position() < r->numBytes()) {
        eltFound_ = &elt;
        return true;
    }
    return false;
}

}  // namespace Ebml
