// Reader of intermediate segment files: a 24-byte header (start, duration,
// time scale) followed by "EncImage" and "EncAudio" elements back to back.
#pragma once

#include "ebml/ebmlFileStorage.h"
#include "ebml/ebmlMixedElements.h"
#include "media/CATime.h"

#include <string>

class TZKIntermediateSegment : public Ebml::FileStorage {
public:
    TZKIntermediateSegment();
    ~TZKIntermediateSegment() override;
    TZKIntermediateSegment(const TZKIntermediateSegment&) = delete;
    TZKIntermediateSegment& operator=(const TZKIntermediateSegment&) = delete;

    // The most one frame of a segment file may take once exported and laid
    // out: the largest picture evc carries (16384x16384, 4:4:4, 16-bit
    // samples). Readers pass it to exportFrame, so that a few bytes of
    // description in a file cannot buy more.
    static constexpr uint64_t kMaxFrameBytes = uint64_t(16384) * 16384 * 3 * 2;

    // False when the file cannot be opened or is shorter than its header.
    bool open(const std::string& path);
    // The next frame element (TZKEncImageElt or TZKEncAudioElt; tell them
    // apart by getId()), owned by the caller; null at the end or when the next
    // bytes are not a frame element. A null result does not move the reader.
    Ebml::IElement* readNext();
    // Back to the first element.
    void rewind();
    bool isOpen() const { return file().isOpen(); }
    bool isEOF() const;
    void close();
    // Share of the elements read, in [0, 1]; an empty segment is complete (1).
    double getProgress() const;

    const CATime& getStart() const { return m_start; }
    const CATime& getDuration() const { return m_duration; }
    Ebml::uint64 getPayloadSize() const { return m_payloadSize; }
    Ebml::uint64 getBytesLeft() const { return m_bytesLeft; }

private:
    Ebml::uint64 readPosition() const;

    Ebml::uint64 m_payloadSize = 0;
    Ebml::uint64 m_bytesLeft = 0;
    Ebml::MixedElements m_elements;
    CATime m_start;
    CATime m_duration;
};

// The plain description of one segment file.
struct TZKSegmentInfo {
    TZKSegmentInfo(const std::string& path, const CATime& start, const CATime& duration)
        : path(path), start(start), duration(duration)
    {
    }

    std::string path;
    CATime start;
    CATime duration;
};
