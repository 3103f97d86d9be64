#pragma once
// A run of children of several registered element types, in any order.

#include "ebml/ebmlElt.h"

#include <list>
#include <map>

namespace Ebml {

class MixedElements {
public:
    typedef IElement* (*TCreate)();
    typedef IElement* (*TCopy)(const IElement*);
    // Default cap on the elements one load keeps, so untrusted data cannot exhaust memory.
    static constexpr uint64 kDefaultMaxCount = 65536;

    MixedElements() = default;
    MixedElements(const MixedElements& other);
    MixedElements& operator=(const MixedElements& other);
    ~MixedElements() { clear(); }

    // Registers TElement (a TElt) by its id; registering an id twice is fatal.
    template <typename TElement>
    bool addType()
    {
        EBML_ASSERT(create_.find(TElement::kId) == create_.end());
        create_[TElement::kId] = &TElement::create;
        copy_[TElement::kId] = &TElement::createCopy;
        return true;
    }
    bool isRegistered(uint64 id) const { return create_.find(id) != create_.end(); }

    // Appends a copy of e; its id must be registered.
    bool push_back(const IElement& e);
    template <typename TElement>
    TElement& back()
    {
        EBML_ASSERT(!elts_.empty());
        IElement* e = elts_.back();
        EBML_ASSERT(e->getId() == TElement::kId);
        return *static_cast<TElement*>(e);
    }
    uint64 getCount() const { return elts_.size(); }
    const std::list<IElement*>& elts() const { return elts_; }
    void clear();
    void setMaxCount(uint64 maxCount) { maxCount_ = maxCount; }

    bool mustSave() const;
    uint64 calcSize() const;
    bool eval(IElementCrawler& crawler);
    TReceiptPtr save(IStorage& storage) const;
    // Loads the next element if its id is registered; elt is null when none loaded.
    uint64 loadOneElement(IElement*& elt, IStorage& storage, uint64 bytesToRead, IDelegateLoad* delegate);
    // Loads elements until an id is not registered or does not load; returns the bytes consumed.
    uint64 load(IStorage& storage, uint64 bytesToRead, IDelegateLoad* delegate);

private:
    std::map<uint64, TCreate> create_;
    std::map<uint64, TCopy> copy_;
    std::list<IElement*> elts_;
    uint64 maxCount_ = kDefaultMaxCount;
};

// The element at the front of a list whose storage receipt starts at position, or null.
IElement* eltsFind(const std::list<IElement*>& elts, uint64 position);

}  // namespace Ebml
