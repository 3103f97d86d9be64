#include "transport/TZKIntermediateSegment.h"

#include "transport/TZKEncAudio.h"
#include "transport/TZKEncImage.h"
#include "transport/TZKSegmentHeader.h"

#include <algorithm>

TZKIntermediateSegment::TZKIntermediateSegment() : Ebml::FileStorage(std::string(), Ebml::File::kReadOnly)
{
    m_elements.addType<TZKEncImageElt>();
    m_elements.addType<TZKEncAudioElt>();
}

TZKIntermediateSegment::~TZKIntermediateSegment()
{
    close();
}

bool TZKIntermediateSegment::open(const std::string& path)
{
    close();
    if (!file().open(path, Ebml::File::kReadOnly))
        return false;
    uint8_t bytes[TZKSegmentHeader::kSize];
    if (file().size() < TZKSegmentHeader::kSize || !load(bytes, sizeof bytes)) {
        close();
        return false;
    }
    const TZKSegmentHeader header = TZKSegmentHeader::decode(bytes);
    m_start = CATime(header.start, header.timeScale);
    m_duration = CATime(header.duration, header.timeScale);
    m_payloadSize = m_bytesLeft = file().size() - TZKSegmentHeader::kSize;
    return true;
}

Ebml::IElement* TZKIntermediateSegment::readNext()
{
    if (!isOpen() || m_bytesLeft == 0)
        return nullptr;
    Ebml::IElement* element = nullptr;
    try {
        const Ebml::uint64 consumed = m_elements.loadOneElement(element, *this, m_bytesLeft, nullptr);
        m_bytesLeft -= std::min(consumed, m_bytesLeft);
    } catch (...) {
        delete element;
        return nullptr;
    }
    return element;
}

void TZKIntermediateSegment::rewind()
{
    if (!isOpen())
        return;
    seekTo(TZKSegmentHeader::kSize);
    m_bytesLeft = m_payloadSize;
}

Ebml::uint64 TZKIntermediateSegment::readPosition() const
{
    const Ebml::uint64 position = absolutePosition();
    return position > TZKSegmentHeader::kSize ? position - TZKSegmentHeader::kSize : 0;
}

bool TZKIntermediateSegment::isEOF() const
{
    return !isOpen() || readPosition() >= m_payloadSize;
}

void TZKIntermediateSegment::close()
{
    file().close();
    m_payloadSize = 0;
    m_bytesLeft = 0;
}

double TZKIntermediateSegment::getProgress() const
{
    if (m_payloadSize == 0)
        return 1.0;
    return double(readPosition()) / double(m_payloadSize);
}
