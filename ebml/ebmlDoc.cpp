#include "ebml/ebmlDoc.h"

namespace Ebml {

EbmlHead::EbmlHead()
{
    ebmlVersion_->setDefault(1);
    ebmlReadVersion_->setDefault(1);
    ebmlMaxIdLength_->setDefault(4);
    ebmlMaxSizeLength_->setDefault(8);
    ebmlVersion_.alwaysSave();
    ebmlReadVersion_.alwaysSave();
    ebmlMaxIdLength_.alwaysSave();
    ebmlMaxSizeLength_.alwaysSave();
    docType_.alwaysSave();
    docTypeVersion_.alwaysSave();
    docTypeReadVersion_.alwaysSave();
}

bool EbmlHead::eval(IElementCrawler& crawler)
{
    return evalElements(crawler, children<IElement>(*this));
}

uint64 EbmlHead::calcSize() const
{
    return calcElementsSize(children<const IElement>(*this));
}

TReceiptPtr EbmlHead::save(IStorage& storage) const
{
    return saveElements(storage, children<const IElement>(*this));
}

uint64 EbmlHead::load(IStorage& storage, uint64 bytesToRead, IDelegateLoad* delegate)
{
    return loadElements(storage, bytesToRead, delegate, children<IElement>(*this));
}

EbmlDoc::EbmlDoc(const char* docType, uint64 docTypeVersion, uint64 docTypeReadVersion)
{
    EbmlHead& head = head_.payload();
    head.docType_->set(docType);
    head.docTypeVersion_->set(docTypeVersion);
    head.docTypeReadVersion_->set(docTypeReadVersion);
}

bool EbmlDoc::eval(IElementCrawler& crawler)
{
    return crawler.eval(head_);
}

uint64 EbmlDoc::load(IStorage& storage, uint64 bytesToRead, IDelegateLoad* delegate)
{
    for (uint64 remaining = bytesToRead; remaining > 0; --remaining) {
        const uint64 n = head_.load(storage, remaining, delegate);
        if (n > 0)
            return n;
        uint8 discarded;
        if (!storage.load(&discarded, 1))
            return 0;  // the storage ended: no header can follow
    }
    return 0;
}

}  // namespace Ebml
