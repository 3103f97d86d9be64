// A packet bundle as an EBML payload: first "PacketBundleInfoDesc" (0x83,
// the 40-byte bundle header and the bundle's descriptor), then the members in
// order, "DataPacket" (0x82) for a plain packet and "PacketBundle" (0x84) for
// a nested bundle. The frame elements carry it as "Descriptors" (0x89) and
// "DataPackets" (0x90).
#pragma once

#include "ebml/ebmlElt.h"
#include "ebml/ebmlMixedElements.h"
#include "ebml/ebmlPayload.h"
#include "media/CATime.h"

class IPacketBundle;
class TPacketBundle;
struct TZKBundleView;

struct TNamePacketBundleInfoDesc {
    static constexpr const char* kName = "PacketBundleInfoDesc";
};
struct TNamePacketBundle {
    static constexpr const char* kName = "PacketBundle";
};
struct TNameDescriptors {
    static constexpr const char* kName = "Descriptors";
};
struct TNameDataPackets {
    static constexpr const char* kName = "DataPackets";
};

typedef Ebml::TElt<Ebml::VBinary, 0x83, TNamePacketBundleInfoDesc> TZKPacketBundleInfoDescElt;

class TZKEbmlPacketBundle : public Ebml::EbmlMaster {
public:
    TZKEbmlPacketBundle();
    // Copies are deep: the member list copies every element.
    TZKEbmlPacketBundle(const TZKEbmlPacketBundle& other) = default;
    TZKEbmlPacketBundle& operator=(const TZKEbmlPacketBundle& other) = default;

    bool eval(Ebml::IElementCrawler& crawler) override;
    bool isDefault() const override;
    Ebml::uint64 calcSize() const override;
    Ebml::TReceiptPtr save(Ebml::IStorage& storage) const override;
    Ebml::uint64 load(Ebml::IStorage& storage, Ebml::uint64 bytesToRead, Ebml::IDelegateLoad* delegate) override;

    // Refers to the bundle's bytes and its members' bytes where they lie: the
    // bundle must outlive the save. A null bundle leaves the payload empty.
    void importBundle(const IPacketBundle* bundle, const CATime& offset);
    // A new TPacketBundle owned by the caller, members in stored order. Null
    // when the header child is missing or shorter than it announces; a member
    // that cannot be read is left out.
    IPacketBundle* exportBundle(const CATime& offset) const;

    const Ebml::MixedElements& members() const { return m_members; }

private:
    TZKPacketBundleInfoDescElt m_info;
    Ebml::MixedElements m_members;
};

typedef Ebml::TElt<TZKEbmlPacketBundle, 0x84, TNamePacketBundle> TZKEbmlPacketBundleElt;
typedef Ebml::TElt<TZKEbmlPacketBundle, 0x89, TNameDescriptors> TZKDescriptorsElt;
typedef Ebml::TElt<TZKEbmlPacketBundle, 0x90, TNameDataPackets> TZKDataPacketsElt;

// A new, empty bundle owned by the caller with the view's header (its time
// moved by offset) and descriptor.
TPacketBundle* ZKNewBundle(const TZKBundleView& view, const CATime& offset);
