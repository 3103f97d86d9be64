#pragma once
// Payloads: what an element carries between its size field and its end.

#include "ebml/ebmlHodgePodge.h"
#include "ebml/ebmlIStorage.h"

#include <ctime>
#include <initializer_list>
#include <list>
#include <string>
#include <vector>

namespace Ebml {

class IElement;
class IElementCrawler;
class IDelegateLoad;
class VVoid;
template <typename TPayload, uint64 kId, typename TName>
class TElt;

struct TNameVoid {
    static constexpr const char* kName = "Void";
};

class IPayload {
public:
    static constexpr uint64 kIdVoid = 0xEC;
    typedef TElt<VVoid, kIdVoid, TNameVoid> TVoidElt;

    IPayload();
    IPayload(const IPayload& other);
    IPayload& operator=(const IPayload& other);
    virtual ~IPayload();

    // Offers the children to the crawler; true stops the crawl.
    virtual bool eval(IElementCrawler& crawler) = 0;
    virtual bool isDefault() const = 0;
    // Payload bytes only.
    virtual uint64 calcSize() const = 0;
    virtual TReceiptPtr save(IStorage& storage) const = 0;
    // Returns the bytes consumed, at most bytesToRead.
    virtual uint64 load(IStorage& storage, uint64 bytesToRead, IDelegateLoad* delegate) = 0;
    virtual bool isComposite() const { return false; }
    // Appends a Void element of payloadBytes zero bytes, saved right after the owner.
    virtual void addVoid(uint64 payloadBytes);
    virtual bool hasVoid() const { return !voids_.empty(); }

    std::list<TVoidElt> voids_;
};

// Scalar payload: data_ is saved unless it equals default_; size_ is a minimum width.
template <typename T>
class VPayload : public IPayload {
public:
    typedef T TData;

    explicit VPayload(const T& value = T(), uint64 size = 0) : size_(size), default_(value), data_(value) {}

    bool eval(IElementCrawler&) override { return false; }
    bool isDefault() const override { return data_ == default_; }

    const T& get() const { return data_; }
    void set(const T& value) { data_ = value; }
    const T& getDefault() const { return default_; }
    // Sets the default and the current value.
    void setDefault(const T& value) { default_ = data_ = value; }
    uint64 getSize() const { return size_; }
    void setSize(uint64 size) { size_ = size; }

protected:
    uint64 size_;
    T default_;
    T data_;
};

// Scalar loads longer than 8 bytes consume nothing: the enclosing element then skips
// them, so a malformed size cannot stop the process.
class VUInt : public VPayload<uint64> {
public:
    explicit VUInt(uint64 value = 0) : VPayload<uint64>(value) {}
    uint64 calcSize() const override;
    TReceiptPtr save(IStorage& storage) const override;
    uint64 load(IStorage& storage, uint64 bytesToRead, IDelegateLoad*) override;
};

class VInt : public VPayload<int64> {
public:
    explicit VInt(int64 value = 0) : VPayload<int64>(value) {}
    uint64 calcSize() const override;
    TReceiptPtr save(IStorage& storage) const override;
    uint64 load(IStorage& storage, uint64 bytesToRead, IDelegateLoad*) override;
};

// Saved as single precision while size_ < 5, else as double precision.
class VFloat : public VPayload<double> {
public:
    explicit VFloat(double value = 0.0) : VPayload<double>(value, 4) {}
    uint64 calcSize() const override;
    TReceiptPtr save(IStorage& storage) const override;
    // 4 bytes read as single, 8 as double precision; other lengths give 0.
    uint64 load(IStorage& storage, uint64 bytesToRead, IDelegateLoad*) override;
};

// Nanoseconds since 2001-01-01 00:00:00 UTC; a new date holds the current time.
class VDate : public VPayload<int64> {
public:
    static constexpr int64 kEpochOffset = 978307200;  // 2001-01-01 in Unix time

    VDate();
    void setTime(std::time_t t) { data_ = int64(t) * 1000000000 - kEpochOffset * 1000000000; }
    std::time_t getTime() const { return std::time_t(data_ / 1000000000 + kEpochOffset); }
    uint64 calcSize() const override { return 8; }
    TReceiptPtr save(IStorage& storage) const override;
    uint64 load(IStorage& storage, uint64 bytesToRead, IDelegateLoad*) override;
};

class VString : public VPayload<std::string> {
public:
    explicit VString(uint64 size = 0) : VPayload<std::string>(std::string(), size) {}
    using VPayload<std::string>::set;
    // A null pointer sets the empty string.
    void set(const char* text) { data_ = text ? text : ""; }
    uint64 calcSize() const override;
    TReceiptPtr save(IStorage& storage) const override;
    // Reads exactly bytesToRead bytes (zero bytes kept); 0 when they are not all there.
    uint64 load(IStorage& storage, uint64 bytesToRead, IDelegateLoad*) override;
};

// Binary payload: loading keeps a receipt into the source storage instead of copying.
class VBinary : public IPayload {
public:
    bool eval(IElementCrawler&) override { return false; }
    bool isDefault() const override { return data_ == default_; }
    uint64 calcSize() const override { return data_.numBytes(); }
    TReceiptPtr save(IStorage& storage) const override { return data_.save(storage); }
    uint64 load(IStorage& storage, uint64 bytesToRead, IDelegateLoad*) override
    {
        return data_.load(storage, bytesToRead);
    }

    void set(const TReceiptPtr& receipt) { data_.set(receipt); }
    void set(const std::vector<uint8>& bytes, IStorage& storage) { data_.set(bytes, storage); }
    void set(const uint8* data, std::size_t numBytes, IStorage& storage) { data_.set(data, numBytes, storage); }
    void setDefault(const TReceiptPtr& receipt)
    {
        default_.set(receipt);
        data_ = default_;
    }
    void setDefault(const std::vector<uint8>& bytes, IStorage& storage)
    {
        default_.set(bytes, storage);
        data_ = default_;
    }
    void setDefault(const uint8* data, std::size_t numBytes, IStorage& storage)
    {
        default_.set(data, numBytes, storage);
        data_ = default_;
    }
    bool get(std::vector<uint8>& bytes) const { return data_.get(bytes); }
    const HodgePodge& data() const { return data_; }
    HodgePodge& data() { return data_; }

private:
    HodgePodge default_;
    HodgePodge data_;
};

// size_ zero bytes; always saved.
class VVoid : public IPayload {
public:
    explicit VVoid(uint64 size = 0) : size_(size) {}
    bool eval(IElementCrawler&) override { return false; }
    bool isDefault() const override { return false; }
    uint64 calcSize() const override { return size_; }
    TReceiptPtr save(IStorage& storage) const override;
    uint64 load(IStorage& storage, uint64 bytesToRead, IDelegateLoad*) override;
    void set(uint64 size) { size_ = size; }
    uint64 get() const { return size_; }

private:
    uint64 size_;
};

// The position of a target element relative to the payload of an origin element, in a
// reserved width so that it can be rewritten once the target has been saved.
class VEltPosition : public IPayload {
public:
    VEltPosition() = default;
    bool eval(IElementCrawler&) override { return false; }
    bool isDefault() const override { return false; }
    uint64 calcSize() const override;
    TReceiptPtr save(IStorage& storage) const override;
    uint64 load(IStorage& storage, uint64 bytesToRead, IDelegateLoad*) override;

    void setMaxSize(uint64 numBytes);
    uint64 maxSize() const { return maxSize_; }
    void setOrigin(const IElement* origin) { origin_ = origin; }
    void setElt(const IElement* elt) { elt_ = elt; }
    const IElement* getOrigin() const { return origin_; }
    const IElement* getElt() const { return elt_; }
    void setPosition(uint64 position)
    {
        position_ = position;
        hasPosition_ = true;
    }
    bool hasPosition() const { return hasPosition_; }
    uint64 position() const;
    // Writes the current position again over the bytes saved last time.
    bool rewrite() const;
    void discardReceipt() { receipt_.reset(); }

private:
    const IElement* origin_ = nullptr;
    const IElement* elt_ = nullptr;
    uint64 maxSize_ = 0;
    uint64 position_ = 0;
    bool hasPosition_ = false;
    mutable TReceiptPtr receipt_;
};

// Base of composite payloads. The helpers implement the usual fixed-order composite:
// crawl, size, save and load the listed children in order. A child whose save fails
// (the storage is full) makes saveChildren return a null receipt.
class EbmlMaster : public IPayload {
public:
    bool isComposite() const override { return true; }

protected:
    static bool evalChildren(IElementCrawler& crawler, std::initializer_list<IElement*> children);
    static uint64 calcChildrenSize(std::initializer_list<const IElement*> children);
    static TReceiptPtr saveChildren(IStorage& storage, std::initializer_list<const IElement*> children);
    static uint64 loadChildren(IStorage& storage, uint64 bytesToRead, IDelegateLoad* delegate,
                               std::initializer_list<IElement*> children);
};

}  // namespace Ebml
