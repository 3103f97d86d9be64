// The two bundle children every frame element carries, "Descriptors" and
// "DataPackets", moved in and out together.
#pragma once

#include "transport/PacketHolder.h"
#include "transport/TZKEbmlPacketBundle.h"

struct TZKFrameBundles {
    TPacketBundlePtr descriptors;
    TPacketBundlePtr dataPackets;
};

// A null bundle empties its child.
void ZKImportFrameBundles(TZKDescriptorsElt& descriptorsElt, TZKDataPacketsElt& dataPacketsElt,
                          const IPacketBundle* descriptors, const IPacketBundle* dataPackets,
                          const CATime& offset);
// A child that was not loaded (or cannot be read) gives a null bundle.
TZKFrameBundles ZKExportFrameBundles(const TZKDescriptorsElt& descriptorsElt,
                                     const TZKDataPacketsElt& dataPacketsElt, const CATime& offset);

// Hands both bundles to a frame (CAImageFrame or CAAudioFrame) that has none.
template <class TFrame>
void ZKAttachFrameBundles(TFrame& frame, TZKFrameBundles bundles)
{
    IPacketBundle* descriptors = bundles.descriptors.release();
    IPacketBundle* dataPackets = bundles.dataPackets.release();
    frame.ExchangeDescriptorsWith(descriptors);
    frame.ExchangeDataPacketsWith(dataPackets);
    // Whatever the frame held comes back to us: release it.
    ZKDestroyPacket(descriptors);
    ZKDestroyPacket(dataPackets);
}
