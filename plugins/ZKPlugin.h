// The host's record of one compressor that one loaded bundle offers, and the
// search over the collection's list of them.
#pragma once

#include <cstdint>

#include "support/Array_c.h"

template <class T>
struct ZKPlugin {
    int32_t m_bundleIndex = 0;    // index in the collection's loaded bundles
    uint32_t m_manufacturer = 0;  // four-character code as the bundle reports it
    uint32_t m_codec = 0;
    uint64_t m_info = 0;       // third reported value; kept, not interpreted
    T* m_prototype = nullptr;  // new compressors are made from it
};

// The first record, from index 0 upward, with a prototype whose codec matches
// and whose manufacturer matches (manufacturer 0 matches any); null if none.
template <class T>
const ZKPlugin<T>* FindPlugin(const Array_c<ZKPlugin<T>>& plugins, uint32_t manufacturer, uint32_t codec)
{
    for (int i = 0; i < plugins.GetSize(); ++i) {
        const ZKPlugin<T>* plugin = plugins[static_cast<unsigned long>(i)];
        if ((manufacturer == 0 || plugin->m_manufacturer == manufacturer) && plugin->m_codec == codec &&
            plugin->m_prototype != nullptr)
            return plugin;
    }
    return nullptr;
}
