// What "EncImage" and "EncAudio" share: four children in this fixed order,
// each left out when it has nothing to save: the information block, the
// frame's bytes, "Descriptors" (0x89) and "DataPackets" (0x90).
#pragma once

#include "ebml/ebmlElt.h"
#include "ebml/ebmlMemoryStorage.h"
#include "ebml/ebmlPayload.h"
#include "media/CATime.h"
#include "transport/PacketHolder.h"
#include "transport/TZKEbmlPacketBundle.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>

// Hands both bundles to a frame that has none; whatever the frame held comes
// back and is released.
template <class TFrame>
void ZKAttachBundles(TFrame& frame, TPacketBundlePtr& descriptors, TPacketBundlePtr& dataPackets)
{
    IPacketBundle* frameDescriptors = descriptors.release();
    IPacketBundle* frameDataPackets = dataPackets.release();
    frame.ExchangeDescriptorsWith(frameDescriptors);
    frame.ExchangeDataPacketsWith(frameDataPackets);
    ZKDestroyPacket(frameDescriptors);
    ZKDestroyPacket(frameDataPackets);
}

// Info is the decoded block (TZKVideoInfo, TZKAudioInfo) with encode, decode,
// kSize and kShortSize; InfoElt and BytesElt are the binary children.
template <class Info, class InfoElt, class BytesElt>
class TZKFrameElement : public Ebml::EbmlMaster {
public:
    bool eval(Ebml::IElementCrawler& crawler) override
    {
        return Ebml::evalElements(crawler, children<Ebml::IElement>(*this));
    }
    bool isDefault() const override
    {
        const auto all = children<const Ebml::IElement>(*this);
        return std::none_of(all.begin(), all.end(), [](const Ebml::IElement* child) { return child->mustSave(); });
    }
    Ebml::uint64 calcSize() const override { return Ebml::calcElementsSize(children<const Ebml::IElement>(*this)); }
    Ebml::TReceiptPtr save(Ebml::IStorage& storage) const override
    {
        return Ebml::saveElements(storage, children<const Ebml::IElement>(*this));
    }
    Ebml::uint64 load(Ebml::IStorage& storage, Ebml::uint64 bytesToRead, Ebml::IDelegateLoad* delegate) override
    {
        return Ebml::loadElements(storage, bytesToRead, delegate, children<Ebml::IElement>(*this));
    }

protected:
    // Empties the information block and the bytes. Without a record the
    // bundles are emptied too and the import is over: false.
    bool beginImport(const void* record, const CATime& offset)
    {
        m_info->data().clear();
        m_bytes->data().clear();
        if (record == nullptr)
            importBundles(nullptr, nullptr, offset);
        return record != nullptr;
    }

    // Copied into a block of its own, so that copies of the element stay valid.
    void setInfo(const Info& info)
    {
        uint8_t block[Info::kSize];
        info.encode(block);
        m_info->set(block, sizeof block, Ebml::HodgePodgeStorage::Instance);
    }

    // False when the block is missing or has a size other than the two known ones.
    bool getInfo(Info& info) const
    {
        const Ebml::HodgePodge& bytes = m_info->data();
        const Ebml::uint64 size = bytes.numBytes();
        if (size != Info::kSize && size != Info::kShortSize)
            return false;
        uint8_t block[Info::kSize];
        return bytes.get(block) && info.decode(block, size);
    }

    // The frame's bytes are referred to where they lie: they must outlive the save.
    void setBytes(const uint8_t* bytes, uint32_t size)
    {
        if (bytes != nullptr && size != 0)
            m_bytes->set(Ebml::receiptForConstMemory(bytes, size));
    }

    // False when the bytes are too many for the 32-bit size of a frame record.
    bool bytesSize(uint32_t& size) const
    {
        const Ebml::uint64 count = m_bytes->data().numBytes();
        if (count > std::numeric_limits<uint32_t>::max())
            return false;
        size = static_cast<uint32_t>(count);
        return true;
    }

    const Ebml::HodgePodge& bytes() const { return m_bytes->data(); }

    // A null bundle empties its child.
    void importBundles(const IPacketBundle* descriptors, const IPacketBundle* dataPackets, const CATime& offset)
    {
        m_descriptors->importBundle(descriptors, offset);
        m_dataPackets->importBundle(dataPackets, offset);
    }

    // Both bundles, exported: a child that was not loaded gives none. False
    // when a loaded child cannot be read (a bundle that contradicts itself is
    // refused, not attached in part).
    bool exportBundles(TPacketBundlePtr& descriptors, TPacketBundlePtr& dataPackets, const CATime& offset) const
    {
        if (m_descriptors.mustSave())
            descriptors.reset(m_descriptors->exportBundle(offset));
        if (m_dataPackets.mustSave())
            dataPackets.reset(m_dataPackets->exportBundle(offset));
        return !((m_descriptors.mustSave() && !descriptors) || (m_dataPackets.mustSave() && !dataPackets));
    }

    // Hands both bundles to a frame (CAImageFrame or CAAudioFrame) that has
    // none. False, with nothing handed over, when a loaded child cannot be read.
    template <class TFrame>
    bool attachBundles(TFrame& frame, const CATime& offset) const
    {
        TPacketBundlePtr descriptors;
        TPacketBundlePtr dataPackets;
        if (!exportBundles(descriptors, dataPackets, offset))
            return false;
        ZKAttachBundles(frame, descriptors, dataPackets);
        return true;
    }

    // The children in their saved order; every operation above walks this one list.
    template <class TElement, class TSelf>
    static std::array<TElement*, 4> children(TSelf& self)
    {
        return {{&self.m_info, &self.m_bytes, &self.m_descriptors, &self.m_dataPackets}};
    }

    InfoElt m_info;
    BytesElt m_bytes;
    TZKDescriptorsElt m_descriptors;
    TZKDataPacketsElt m_dataPackets;
};
