// Writer of intermediate segment files: the 24-byte header, then one frame
// element per written frame. The header's duration is rewritten on close to
// span from the start to the end of the latest frame.
#pragma once

#include "evc/ZKImage.h"
#include "media/CATime.h"

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace Ebml {
class IElement;
}

class TZKSegmentWriter {
public:
    TZKSegmentWriter() = default;
    // Closes (and so completes the header) when still open.
    ~TZKSegmentWriter();
    TZKSegmentWriter(const TZKSegmentWriter&) = delete;
    TZKSegmentWriter& operator=(const TZKSegmentWriter&) = delete;

    // Creates or truncates path and writes the header; times are kept in the
    // start's time scale, which must not be 0.
    bool open(const std::string& path, const CATime& start);
    bool isOpen() const { return m_file != nullptr; }
    // Appends an "EncImage" element. A picture record carries no duration:
    // the caller may give one so that the segment's duration covers it.
    bool writeImage(const ZKEncImage_t* record, const CATime& frameDuration = CATime());
    // Appends an "EncAudio" element; the block's duration counts.
    bool writeAudio(const ZKEncAudio_t* record);
    // Completes the header and closes; false when any write failed.
    bool close();

    const CATime& getStart() const { return m_start; }
    // The duration so far, in the start's time scale.
    CATime getDuration() const { return CATime(m_durationUnits, m_start.GetTimeScale()); }

private:
    struct FileCloser {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    bool writeElement(const Ebml::IElement& element);
    void extendTo(uint64_t time, uint64_t timeScale, const CATime& duration);

    std::unique_ptr<std::FILE, FileCloser> m_file;
    CATime m_start;
    uint64_t m_durationUnits = 0;
    bool m_failed = false;
};
