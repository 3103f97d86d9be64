#pragma once
// Element types shaped like the frame transport's: binary children, unsigned ints, a
// nested master and a mixed list.

#include "ebml/ebmlMixedElements.h"

namespace EbmlTest {

using namespace Ebml;

struct TNameCount {
    static constexpr const char* kName = "Count";
};
struct TNameData {
    static constexpr const char* kName = "Data";
};
struct TNameGroup {
    static constexpr const char* kName = "Group";
};
struct TNameItem {
    static constexpr const char* kName = "Item";
};
struct TNameList {
    static constexpr const char* kName = "List";
};

typedef TElt<VUInt, 0x82, TNameCount> TCount;
typedef TElt<VBinary, 0x83, TNameData> TData;

// A master with two fixed children.
class TGroupPayload : public EbmlMaster {
public:
    bool eval(IElementCrawler& crawler) override { return evalChildren(crawler, {&count_, &data_}); }
    bool isDefault() const override { return !count_.mustSave() && !data_.mustSave(); }
    uint64 calcSize() const override { return calcChildrenSize({&count_, &data_}); }
    TReceiptPtr save(IStorage& storage) const override { return saveChildren(storage, {&count_, &data_}); }
    uint64 load(IStorage& storage, uint64 bytesToRead, IDelegateLoad* delegate) override
    {
        return loadChildren(storage, bytesToRead, delegate, {&count_, &data_});
    }

    TCount count_;
    TData data_;
};
typedef TElt<TGroupPayload, 0x90, TNameGroup> TGroup;
typedef TElt<TGroupPayload, 0x84, TNameItem> TItem;

// A master holding a run of items and groups in any order.
class TListPayload : public EbmlMaster {
public:
    TListPayload()
    {
        items_.addType<TItem>();
        items_.addType<TGroup>();
    }
    bool eval(IElementCrawler& crawler) override { return items_.eval(crawler); }
    bool isDefault() const override { return !items_.mustSave(); }
    uint64 calcSize() const override { return items_.calcSize(); }
    TReceiptPtr save(IStorage& storage) const override { return items_.save(storage); }
    uint64 load(IStorage& storage, uint64 bytesToRead, IDelegateLoad* delegate) override
    {
        return items_.load(storage, bytesToRead, delegate);
    }

    MixedElements items_;
};
typedef TElt<TListPayload, 0x91, TNameList> TList;

}  // namespace EbmlTest
