// Owning holders for packets and bundles: they release with destroy, as the
// ownership rule of the packet interfaces demands.
#pragma once

#include "evc/IPacket.h"

#include <memory>

struct ZKPacketDestroyer {
    void operator()(IPacket* packet) const { ZKDestroyPacket(packet); }
};

template <class T>
using TPacketHolder = std::unique_ptr<T, ZKPacketDestroyer>;

using TPacketPtr = TPacketHolder<IPacket>;
using TPacketBundlePtr = TPacketHolder<IPacketBundle>;
