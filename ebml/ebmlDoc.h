#pragma once
// The EBML header element that starts every EBML document, and the document payload.

#include "ebml/ebmlElt.h"

#include <array>

namespace Ebml {

struct TNameEBMLVersion {
    static constexpr const char* kName = "EBMLVersion";
};
struct TNameEBMLReadVersion {
    static constexpr const char* kName = "EBMLReadVersion";
};
struct TNameEBMLMaxIDLength {
    static constexpr const char* kName = "EBMLMaxIDLength";
};
struct TNameEBMLMaxSizeLength {
    static constexpr const char* kName = "EBMLMaxSizeLength";
};
struct TNameDocType {
    static constexpr const char* kName = "DocType";
};
struct TNameDocTypeVersion {
    static constexpr const char* kName = "DocTypeVersion";
};
struct TNameDocTypeReadVersion {
    static constexpr const char* kName = "DocTypeReadVersion";
};
struct TNameEBML {
    static constexpr const char* kName = "EBML";
};

class EbmlHead : public EbmlMaster {
public:
    typedef TElt<VUInt, 0x4286, TNameEBMLVersion> TEBMLVersion;
    typedef TElt<VUInt, 0x42F7, TNameEBMLReadVersion> TEBMLReadVersion;
    typedef TElt<VUInt, 0x42F2, TNameEBMLMaxIDLength> TEBMLMaxIDLength;
    typedef TElt<VUInt, 0x42F3, TNameEBMLMaxSizeLength> TEBMLMaxSizeLength;
    typedef TElt<VString, 0x4282, TNameDocType> TDocType;
    typedef TElt<VUInt, 0x4287, TNameDocTypeVersion> TDocTypeVersion;
    typedef TElt<VUInt, 0x4285, TNameDocTypeReadVersion> TDocTypeReadVersion;

    EbmlHead();

    bool eval(IElementCrawler& crawler) override;
    bool isDefault() const override { return false; }
    uint64 calcSize() const override;
    TReceiptPtr save(IStorage& storage) const override;
    uint64 load(IStorage& storage, uint64 bytesToRead, IDelegateLoad* delegate) override;

    TEBMLVersion ebmlVersion_;
    TEBMLReadVersion ebmlReadVersion_;
    TEBMLMaxIDLength ebmlMaxIdLength_;
    TEBMLMaxSizeLength ebmlMaxSizeLength_;
    TDocType docType_;
    TDocTypeVersion docTypeVersion_;
    TDocTypeReadVersion docTypeReadVersion_;

private:
    // The children in their saved order.
    template <typename TElement, typename THead>
    static std::array<TElement*, 7> children(THead& head)
    {
        return {{&head.ebmlVersion_, &head.ebmlReadVersion_, &head.ebmlMaxIdLength_, &head.ebmlMaxSizeLength_,
                 &head.docType_, &head.docTypeVersion_, &head.docTypeReadVersion_}};
    }
};

class EbmlDoc : public EbmlMaster {
public:
    typedef TElt<EbmlHead, 0x1A45DFA3, TNameEBML> THead;

    EbmlDoc(const char* docType, uint64 docTypeVersion, uint64 docTypeReadVersion);

    bool eval(IElementCrawler& crawler) override;
    bool isDefault() const override { return false; }
    uint64 calcSize() const override { return head_.calcSize(); }
    TReceiptPtr save(IStorage& storage) const override { return head_.save(storage, 0); }
    // Searches byte by byte for the header; bytes skipped before it are not counted, and
    // the storage stays after the skipped bytes when no header is found.
    uint64 load(IStorage& storage, uint64 bytesToRead, IDelegateLoad* delegate) override;

    THead head_;
};

}  // namespace Ebml
