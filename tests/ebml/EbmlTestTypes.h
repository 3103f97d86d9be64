// Element types shaped like the frame transport's (unsigned ints, binary children, a nested
// master and a mixed list) and the save helper the element tests share.
#pragma once

#include "common/Golden.h"
#include "ebml/ebmlMemoryStorage.h"
#include "ebml/ebmlMixedElements.h"

#include <list>

namespace EbmlTest {

using namespace Ebml;
using evctest::Bytes;
using evctest::Cat;
using evctest::Hex;

#define EBML_TEST_NAME(Type, text)                                                                                     \
    struct Type {                                                                                                      \
        static constexpr const char* kName = text;                                                                     \
    }
EBML_TEST_NAME(TNameCount, "Count");
EBML_TEST_NAME(TNameData, "Data");
EBML_TEST_NAME(TNameGroup, "Group");
EBML_TEST_NAME(TNameItem, "Item");
EBML_TEST_NAME(TNameList, "List");

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

// Saves e into a fresh area and returns the bytes written.
inline Bytes SaveBytes(const IElement& e, uint64 vsizeBytes = 0)
{
    Bytes area(4096);
    MemoryStorage storage(area.data(), area.size());
    EXPECT_TRUE(e.save(storage, vsizeBytes));
    area.resize(std::size_t(storage.absolutePosition()));
    return area;
}

// Loads e from exactly these bytes and returns the count it reports. The bytes and their storage
// are kept for the life of the program, so that receipts of what loaded stay valid.
inline uint64 LoadBytes(IElement& e, const Bytes& bytes)
{
    struct Source {
        explicit Source(const Bytes& b) : bytes(b), storage(bytes.data(), bytes.size()) {}
        Bytes bytes;
        ConstMemoryStorage storage;
    };
    static std::list<Source> sources;
    Source& source = sources.emplace_back(bytes);
    return e.load(source.storage, bytes.size());
}

}  // namespace EbmlTest
