#include "transport/TZKSegmentHeader.h"

#include "transport/LittleEndian.h"

void TZKSegmentHeader::encode(uint8_t (&out)[kSize]) const
{
    ZKPutLE<8>(out + kStartOffset, start);
    ZKPutLE<8>(out + kDurationOffset, duration);
    ZKPutLE<8>(out + kTimeScaleOffset, timeScale);
}

TZKSegmentHeader TZKSegmentHeader::decode(const uint8_t (&in)[kSize])
{
    TZKSegmentHeader header;
    header.start = ZKGetLE<8>(in + kStartOffset);
    header.duration = ZKGetLE<8>(in + kDurationOffset);
    header.timeScale = ZKGetLE<8>(in + kTimeScaleOffset);
    return header;
}
