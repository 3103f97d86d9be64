// Byte strings as packets and bundles keep them: an empty vector stands for
// "none", which the interfaces report as a null pointer.
#pragma once

#include <cstdint>
#include <vector>

inline void ZKAssignPacketBytes(std::vector<uint8_t>& target, const uint8_t* bytes, uint64_t size)
{
    if (bytes == nullptr || size == 0)
        target.clear();
    else
        target.assign(bytes, bytes + size);
}

inline const uint8_t* ZKPacketBytesOrNull(const std::vector<uint8_t>& bytes)
{
    return bytes.empty() ? nullptr : bytes.data();
}
