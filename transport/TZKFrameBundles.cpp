#include "transport/TZKFrameBundles.h"

void ZKImportFrameBundles(TZKDescriptorsElt& descriptorsElt, TZKDataPacketsElt& dataPacketsElt,
                          const IPacketBundle* descriptors, const IPacketBundle* dataPackets,
                          const CATime& offset)
{
    descriptorsElt->importBundle(descriptors, offset);
    dataPacketsElt->importBundle(dataPackets, offset);
}

TZKFrameBundles ZKExportFrameBundles(const TZKDescriptorsElt& descriptorsElt,
                                     const TZKDataPacketsElt& dataPacketsElt, const CATime& offset)
{
    TZKFrameBundles bundles;
    if (descriptorsElt.mustSave())
        bundles.descriptors.reset(descriptorsElt->exportBundle(offset));
    if (dataPacketsElt.mustSave())
        bundles.dataPackets.reset(dataPacketsElt->exportBundle(offset));
    return bundles;
}
