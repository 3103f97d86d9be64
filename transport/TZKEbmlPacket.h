// "DataPacket" (0x82): one IPacket as an EBML element. Its one child,
// "PacketInfoDescData" (0x81), holds the 40-byte packet header, then the
// descriptor bytes, then the data bytes.
#pragma once

#include "ebml/ebmlElt.h"
#include "ebml/ebmlPayload.h"
#include "media/CATime.h"

class IPacket;
class TQVAPIPacket;
struct TZKPacketHeader;

struct TNamePacketInfoDescData {
    static constexpr const char* kName = "PacketInfoDescData";
};
struct TNameDataPacket {
    static constexpr const char* kName = "DataPacket";
};

typedef Ebml::TElt<Ebml::VBinary, 0x81, TNamePacketInfoDescData> TZKPacketInfoDescDataElt;

class TZKEbmlPacket : public Ebml::EbmlMaster {
public:
    bool eval(Ebml::IElementCrawler& crawler) override;
    bool isDefault() const override;
    Ebml::uint64 calcSize() const override;
    Ebml::TReceiptPtr save(Ebml::IStorage& storage) const override;
    Ebml::uint64 load(Ebml::IStorage& storage, Ebml::uint64 bytesToRead, Ebml::IDelegateLoad* delegate) override;

    // Refers to the packet's descriptor and data where they lie: the packet
    // must outlive the save. A null packet leaves the element empty.
    void importPacket(const IPacket* packet, const CATime& offset);
    // A new TQVAPIPacket owned by the caller; null when the child is missing,
    // shorter than its header or than the sizes the header announces, or
    // gives the bundles' type.
    IPacket* exportPacket(const CATime& offset) const;

private:
    TZKPacketInfoDescDataElt m_info;
};

typedef Ebml::TElt<TZKEbmlPacket, 0x82, TNameDataPacket> TZKEbmlPacketElt;

// A new packet owned by the caller with the header's fields (its time moved by
// offset) and its descriptor and data sized, for the caller to fill.
TQVAPIPacket* ZKNewPacket(const TZKPacketHeader& header, const CATime& offset);
