#include "transport/TZKSegmentWriter.h"

#include "ebml/ebmlMemoryStorage.h"
#include "transport/TZKEncAudio.h"
#include "transport/TZKEncImage.h"
#include "transport/TZKSegmentHeader.h"

#include <vector>

namespace {

const CATime kNoOffset(0, 0);

}  // namespace

TZKSegmentWriter::~TZKSegmentWriter()
{
    close();
}

bool TZKSegmentWriter::open(const std::string& path, const CATime& start)
{
    close();
    if (start.GetTimeScale() == 0)
        return false;
    m_file.reset(std::fopen(path.c_str(), "wb"));
    if (!m_file)
        return false;
    m_start = start;
    m_durationUnits = 0;
    m_failed = false;
    TZKSegmentHeader header;
    header.start = start.GetTime();
    header.timeScale = start.GetTimeScale();
    uint8_t bytes[TZKSegmentHeader::kSize];
    header.encode(bytes);
    if (std::fwrite(bytes, 1, sizeof bytes, m_file.get()) != sizeof bytes)
        m_failed = true;
    return !m_failed;
}

bool TZKSegmentWriter::writeImage(const ZKEncImage_t* record, const CATime& frameDuration)
{
    if (!isOpen() || record == nullptr)
        return false;
    TZKEncImageElt element;
    element->importFrame(record, kNoOffset);
    if (!writeElement(element))
        return false;
    extendTo(record->image.time, record->image.timeScale, frameDuration);
    return true;
}

bool TZKSegmentWriter::writeAudio(const ZKEncAudio_t* record)
{
    if (!isOpen() || record == nullptr)
        return false;
    TZKEncAudioElt element;
    element->importFrame(record, kNoOffset);
    if (!writeElement(element))
        return false;
    extendTo(record->audio.time, record->audio.timeScale, CATime(record->audio.duration, record->audio.timeScale));
    return true;
}

bool TZKSegmentWriter::writeElement(const Ebml::IElement& element)
{
    std::vector<uint8_t> bytes(element.calcSize());
    Ebml::MemoryStorage storage(bytes.data(), bytes.size());
    const Ebml::TReceiptPtr written = element.save(storage);
    if (!written || written->numBytes() != bytes.size() ||
        std::fwrite(bytes.data(), 1, bytes.size(), m_file.get()) != bytes.size()) {
        m_failed = true;
        return false;
    }
    return true;
}

void TZKSegmentWriter::extendTo(uint64_t time, uint64_t timeScale, const CATime& duration)
{
    if (timeScale == 0)
        return;
    const uint64_t scale = m_start.GetTimeScale();
    uint64_t end = CATime(time, timeScale).GetTime(scale);
    if (duration.GetTimeScale() != 0)
        end += duration.GetTime(scale);
    if (end > m_start.GetTime() && end - m_start.GetTime() > m_durationUnits)
        m_durationUnits = end - m_start.GetTime();
}

bool TZKSegmentWriter::close()
{
    if (!m_file)
        return !m_failed;
    uint8_t bytes[TZKSegmentHeader::kSize];
    TZKSegmentHeader header;
    header.start = m_start.GetTime();
    header.duration = m_durationUnits;
    header.timeScale = m_start.GetTimeScale();
    header.encode(bytes);
    if (std::fseek(m_file.get(), TZKSegmentHeader::kDurationOffset, SEEK_SET) != 0 ||
        std::fwrite(bytes + TZKSegmentHeader::kDurationOffset, 1, 8, m_file.get()) != 8)
        m_failed = true;
    if (std::fclose(m_file.release()) != 0)
        m_failed = true;
    return !m_failed;
}
