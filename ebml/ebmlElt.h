#pragma once
// Elements: an id, a size and a payload, with the save (size patching, Void padding)
// and the soft load (Void attachment, CRC-32 check) shared by every element type.

#include "ebml/ebmlIStorage.h"
#include "ebml/ebmlPayload.h"

namespace Ebml {

// Bytes of a CRC-32 child: id 0xBF, size 0x84, four checksum bytes.
constexpr uint64 kCrc32EltSize = 6;
constexpr uint64 kIdCrc32 = 0xBF;

class IElement {
public:
    static constexpr uint64 kUndefinedOffset = 0xFFFFFFFFFFFFFFFFULL;
    // Loading deeper than this many nested elements refuses the element (0 consumed).
    static constexpr unsigned kMaxLoadDepth = 64;

    enum : uint8 { kFlagAlwaysSave = 1, kFlagCrc32 = 2 };

    IElement() = default;
    IElement(const IElement&) = default;
    IElement& operator=(const IElement&) = default;
    virtual ~IElement() = default;

    virtual uint64 getId() const = 0;
    virtual const char* getName() const = 0;
    virtual const IPayload& getPayload() const = 0;
    virtual IPayload& getPayload() = 0;
    virtual bool mustSave() const;
    virtual IElement& alwaysSave();
    // Takes effect only for a composite payload.
    virtual IElement& setCrc32(bool enable);
    virtual uint64 calcSize() const;
    virtual void setFixedSize(uint64 totalSize) { fixedSize_ = totalSize; }
    // Writes the element in exactly totalSize bytes, padding with one Void element;
    // uintMax[8] writes an unknown size. A null receipt when it cannot fit.
    virtual TReceiptPtr savePaddedUpToSize(IStorage& storage, uint64 totalSize) const;
    // vsizeBytes forces the width of the size field (0: the smallest that fits).
    virtual TReceiptPtr save(IStorage& storage, uint64 vsizeBytes = 0) const;
    // Returns the bytes consumed; 0 when this element is not next in the storage (the
    // storage is then back where it was).
    virtual uint64 load(IStorage& storage, uint64 bytesToRead, IDelegateLoad* delegate = nullptr);
    virtual TReceiptPtr storageReceipt() const { return storageReceipt_; }
    virtual TReceiptPtr payloadReceipt() const;
    virtual TReceiptPtr crc32Receipt() const;
    virtual void discardReceipts();

    bool shouldComputeCrc32() const { return (flags_ & kFlagCrc32) && getPayload().isComposite(); }
    uint64 loadCrc32(IStorage& storage, uint64 bytesToRead);

    uint8 flags() const { return flags_; }
    uint32 loadedChecksum() const { return loadedCrc32_; }
    uint32 computedChecksum() const { return computedCrc32_; }
    uint64 fixedSize() const { return fixedSize_; }
    uint64 offsetToPayload() const { return offsetToPayload_; }
    uint64 offsetToCrc32() const { return offsetToCrc32_; }

private:
    uint64 payloadSizeWithCrc32() const;
    // Writes the id and a size field of sizeWidth bytes, making storageReceipt_ hold
    // both; returns the size field's receipt, null when the storage is full.
    TReceiptPtr saveHeader(IStorage& storage, uint64 payloadSize, uint64 sizeWidth) const;
    // Rewrites the size field when the payload saved fewer bytes than it announced.
    static void patchSize(IReceipt& sizeField, uint64 sizeWidth, uint64 announced, uint64 saved);
    void attachVoid(const IPayload::TVoidElt& voidElt, bool afterChild);
    void checkCrc32(const TReceiptPtr& payloadReceipt);

    uint8 flags_ = 0;
    uint32 loadedCrc32_ = 0;
    uint32 computedCrc32_ = 0;
    mutable TReceiptPtr storageReceipt_;
    mutable uint64 offsetToPayload_ = kUndefinedOffset;
    mutable uint64 offsetToCrc32_ = kUndefinedOffset;
    uint64 fixedSize_ = 0;
};

// An element type: TName is a type with `static constexpr const char * kName`.
template <typename TPayload, uint64 id, typename TName>
class TElt : public IElement {
public:
    static constexpr uint64 kId = id;
    typedef TPayload TPayloadType;

    TElt() = default;
    explicit TElt(const TPayload& payload) : payload_(payload) {}

    uint64 getId() const override { return kId; }
    const char* getName() const override { return TName::kName; }
    const IPayload& getPayload() const override { return payload_; }
    IPayload& getPayload() override { return payload_; }
    TElt& alwaysSave() override
    {
        IElement::alwaysSave();
        return *this;
    }

    const TPayload& payload() const { return payload_; }
    TPayload& payload() { return payload_; }
    const TPayload* operator->() const { return &payload_; }
    TPayload* operator->() { return &payload_; }

    static IElement* create() { return new TElt(); }
    static IElement* createCopy(const IElement* e)
    {
        const TElt* same = dynamic_cast<const TElt*>(e);
        EBML_ASSERT(same != nullptr && e->getId() == kId);
        return new TElt(*same);
    }

private:
    TPayload payload_;
};

template <typename TElements>
uint64 calcElementsSize(const TElements& elts)
{
    uint64 total = 0;
    for (const IElement* e : elts)
        total += e->calcSize();
    return total;
}

// Saves the elements in order; a null receipt as soon as one does not fit.
template <typename TElements>
TReceiptPtr saveElements(IStorage& storage, const TElements& elts)
{
    TReceiptPtr result = storage.receipt();
    for (const IElement* e : elts) {
        TReceiptPtr saved = e->save(storage, 0);
        if (!saved)
            return saved;
        *result += saved;
    }
    return result;
}

// Loads the elements in order from what is left; returns the bytes consumed.
template <typename TElements>
uint64 loadElements(IStorage& storage, uint64 bytesToRead, IDelegateLoad* delegate, const TElements& elts)
{
    uint64 consumed = 0;
    for (IElement* e : elts)
        consumed += e->load(storage, bytesToRead - consumed, delegate);
    return consumed;
}

// Visits elements; returning true stops the crawl. The default descends into payloads.
class IElementCrawler {
public:
    virtual ~IElementCrawler() = default;
    virtual bool eval(IElement& elt) { return evalPayload(elt.getPayload()); }
    virtual bool evalPayload(IPayload& payload) { return payload.eval(*this); }
};

// Offers the elements to the crawler in order; true as soon as one stops the crawl.
template <typename TElements>
bool evalElements(IElementCrawler& crawler, const TElements& elts)
{
    for (IElement* e : elts)
        if (crawler.eval(*e))
            return true;
    return false;
}

// Finds the element whose storage receipt holds a given byte position.
class FindElement : public IElementCrawler {
public:
    explicit FindElement(uint64 position) : position_(position) {}
    bool eval(IElement& elt) override;

    uint64 position_;
    IElement* eltFound_ = nullptr;
};

// Optional observer of every load; nothing in the frame transport passes one.
class IDelegateLoad {
public:
    virtual ~IDelegateLoad() = default;
    // Payload bytes consumed by the delegate itself: 0 lets the payload load,
    // uintMax[8] rejects the element.
    virtual uint64 load(IStorage& storage, uint64 bytesToRead, uint64 eltId, IPayload& payload) = 0;
    virtual void loaded(IElement& elt) = 0;
};

}  // namespace Ebml
