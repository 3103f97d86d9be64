#include "ebml/ebmlMixedElements.h"

namespace Ebml {

MixedElements::MixedElements(const MixedElements& other)
    : create_(other.create_), copy_(other.copy_), maxCount_(other.maxCount_)
{
    for (const IElement* e : other.elts_)
        push_back(*e);
}

MixedElements& MixedElements::operator=(const MixedElements& other)
{
    if (this != &other) {
        clear();
        create_ = other.create_;
        copy_ = other.copy_;
        maxCount_ = other.maxCount_;
        for (const IElement* e : other.elts_)
            push_back(*e);
    }
    return *this;
}

bool MixedElements::push_back(const IElement& e)
{
    auto it = copy_.find(e.getId());
    EBML_ASSERT(it != copy_.end());
    elts_.push_back(it->second(&e));
    return true;
}

void MixedElements::clear()
{
    for (IElement* e : elts_)
        delete e;
    elts_.clear();
}

bool MixedElements::mustSave() const
{
    for (const IElement* e : elts_)
        if (e->mustSave())
            return true;
    return false;
}

uint64 MixedElements::calcSize() const
{
    return calcElementsSize(elts_);
}

bool MixedElements::eval(IElementCrawler& crawler)
{
    return evalElements(crawler, elts_);
}

TReceiptPtr MixedElements::save(IStorage& storage) const
{
    return saveElements(storage, elts_);
}

uint64 MixedElements::loadOneElement(IElement*& elt, IStorage& storage, uint64 bytesToRead, IDelegateLoad* delegate)
{
    elt = nullptr;
    if (bytesToRead == 0)
        return 0;
    uint64 id = 0;
    {
        Seek<IStorage> peekId(storage);
        id = loadEbmlId(storage);
    }
    auto it = create_.find(id);
    if (it == create_.end())
        return 0;
    IElement* candidate = it->second();
    const uint64 consumed = candidate->load(storage, bytesToRead, delegate);
    if (consumed == 0) {
        delete candidate;
        return 0;
    }
    elt = candidate;
    return consumed;
}

uint64 MixedElements::load(IStorage& storage, uint64 bytesToRead, IDelegateLoad* delegate)
{
    uint64 total = 0;
    while (total < bytesToRead && elts_.size() < maxCount_) {
        IElement* elt = nullptr;
        const uint64 consumed = loadOneElement(elt, storage, bytesToRead - total, delegate);
        if (!elt)
            break;
        elts_.push_back(elt);
        total += consumed;
    }
    return total;
}

IElement* eltsFind(const std::list<IElement*>& elts, uint64 position)
{
    for (IElement* e : elts) {
        TReceiptPtr r = e->storageReceipt();
        if (r && r->position() == position)
            return e;
    }
    return nullptr;
}

}  // namespace Ebml
