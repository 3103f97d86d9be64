#include "transport/TZKEbmlPacketBundle.h"

#include "ebml/ebmlMemoryStorage.h"
#include "evc/IPacket.h"
#include "transport/PacketHolder.h"
#include "transport/TPacketBundle.h"
#include "transport/TZKEbmlPacket.h"
#include "transport/HeaderBytes.h"
#include "transport/TZKPacketHeaders.h"
#include "transport/TimeOffset.h"

#include <vector>

TZKEbmlPacketBundle::TZKEbmlPacketBundle()
{
    m_members.addType<TZKEbmlPacketElt>();
    m_members.addType<TZKEbmlPacketBundleElt>();
}

bool TZKEbmlPacketBundle::eval(Ebml::IElementCrawler& crawler)
{
    return evalChildren(crawler, {&m_info}) || m_members.eval(crawler);
}

bool TZKEbmlPacketBundle::isDefault() const
{
    return !m_info.mustSave() && !m_members.mustSave();
}

Ebml::uint64 TZKEbmlPacketBundle::calcSize() const
{
    return m_info.calcSize() + m_members.calcSize();
}

Ebml::TReceiptPtr TZKEbmlPacketBundle::save(Ebml::IStorage& storage) const
{
    Ebml::TReceiptPtr result = storage.receipt();
    *result += m_info.save(storage);
    *result += m_members.save(storage);
    return result;
}

Ebml::uint64 TZKEbmlPacketBundle::load(Ebml::IStorage& storage, Ebml::uint64 bytesToRead, Ebml::IDelegateLoad* delegate)
{
    Ebml::uint64 consumed = m_info.load(storage, bytesToRead, delegate);
    consumed += m_members.load(storage, bytesToRead - consumed, delegate);
    return consumed;
}

void TZKEbmlPacketBundle::importBundle(const IPacketBundle* bundle, const CATime& offset)
{
    Ebml::HodgePodge& bytes = m_info->data();
    bytes.clear();
    m_members.clear();
    if (bundle == nullptr)
        return;
    ZKAddHeaderAndDescriptor(bytes, TZKBundleHeader::of(*bundle), bundle->getDescriptor(), offset);

    for (uint32_t i = 0; i < bundle->size(); ++i) {
        const IPacket* member = bundle->get(i);
        if (member == nullptr)
            continue;
        // Type 28 is reserved for bundles by the packet contract.
        if (member->getType() == IPacketBundle::kBundleType) {
            m_members.push_back(TZKEbmlPacketBundleElt());
            m_members.back<TZKEbmlPacketBundleElt>()->importBundle(static_cast<const IPacketBundle*>(member), offset);
        } else {
            m_members.push_back(TZKEbmlPacketElt());
            m_members.back<TZKEbmlPacketElt>()->importPacket(member, offset);
        }
    }
}

IPacketBundle* TZKEbmlPacketBundle::exportBundle(const CATime& offset) const
{
    std::vector<uint8_t> bytes;
    m_info->get(bytes);
    TZKBundleView view;
    if (!view.parse(bytes.data(), bytes.size()))
        return nullptr;
    TPacketHolder<TPacketBundle> bundle(ZKNewBundle(view, offset));
    for (const Ebml::IElement* element : m_members.elts()) {
        IPacket* member = nullptr;
        if (element->getId() == TZKEbmlPacketBundleElt::kId)
            member = static_cast<const TZKEbmlPacketBundleElt*>(element)->payload().exportBundle(offset);
        else if (element->getId() == TZKEbmlPacketElt::kId)
            member = static_cast<const TZKEbmlPacketElt*>(element)->payload().exportPacket(offset);
        else
            continue;  // not a member: skipped
        // A member whose sizes contradict its element spoils the whole bundle.
        if (member == nullptr)
            return nullptr;
        bundle->append(member);
    }
    return bundle.release();
}

TPacketBundle* ZKNewBundle(const TZKBundleView& view, const CATime& offset)
{
    auto* bundle = new TPacketBundle;
    bundle->setTrack(view.header.track);
    bundle->setTime(ZKAddTimeOffset(view.header.time, view.header.timeBase, offset));
    bundle->setTimeBase(view.header.timeBase);
    bundle->setDuration(view.header.duration);
    bundle->setDescriptor(view.descriptor, view.header.descriptorSize);
    return bundle;
}
