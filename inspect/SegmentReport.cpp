// Reads the file with the transport layer's segment reader and prints each
// element's exported record: a frame the reader cannot rebuild is a fault.
#include "inspect/SegmentReport.h"

#include <cstdio>
#include <memory>

#include "evc/IPacket.h"
#include "media/CAAudioFrame.h"
#include "media/CAImageFrame.h"
#include "transport/TZKEncAudio.h"
#include "transport/TZKEncImage.h"
#include "transport/TZKIntermediateSegment.h"

namespace evc {

namespace {

std::string Time(uint64_t time, uint64_t scale)
{
    std::string text = std::to_string(time) + "/" + std::to_string(scale);
    if (scale != 0) {
        char seconds[32];
        snprintf(seconds, sizeof seconds, " (%.3f s)", double(time) / double(scale));
        text += seconds;
    }
    return text;
}

void ReportPackets(const IPacketBundle* bundle, const char* what, const std::string& indent, std::ostream& out)
{
    if (bundle == nullptr)
        return;
    out << indent << what << ": " << bundle->size() << "\n";
    for (uint32_t i = 0; i < bundle->size(); ++i) {
        const IPacket* packet = bundle->get(i);
        if (packet == nullptr)
            continue;
        if (packet->getType() == IPacketBundle::kBundleType) {
            ReportPackets(static_cast<const IPacketBundle*>(packet), "bundle", indent + "  ", out);
            continue;
        }
        out << indent << "  packet " << i << ": type " << packet->getType() << ", track " << packet->getTrack()
            << ", time " << Time(packet->getTime(), packet->getTimeBase()) << ", duration " << packet->getDuration()
            << ", " << packet->getDataSize() << " bytes";
        if (packet->getDescriptorSize() != 0)
            out << ", descriptor " << packet->getDescriptorSize() << " bytes";
        out << "\n";
    }
}

}  // namespace

std::string ReportSegment(const std::string& path, std::ostream& out)
{
    TZKIntermediateSegment segment;
    if (!segment.open(path))
        return "cannot be read, or is shorter than the 24-byte segment header";
    const CATime& start = segment.getStart();
    out << "+ segment header\n"
        << "|  start " << Time(start.GetTime(), start.GetTimeScale()) << "\n"
        << "|  duration " << Time(segment.getDuration().GetTime(), segment.getDuration().GetTimeScale()) << "\n"
        << "|  " << segment.getPayloadSize() << " bytes of elements\n";
    for (unsigned index = 0; segment.getBytesLeft() != 0; ++index) {
        const uint64_t offset = 24 + segment.getPayloadSize() - segment.getBytesLeft();
        std::unique_ptr<Ebml::IElement> element(segment.readNext());
        const std::string where = "element " + std::to_string(index) + " at byte " + std::to_string(offset);
        if (!element)
            return where + " is not a whole frame element";
        if (element->getId() == TZKEncImageElt::kId) {
            const auto& image = static_cast<const TZKEncImageElt&>(*element).payload();
            TZKImageFramePtr frame = image.exportFrame(CATime(0, 1), TZKIntermediateSegment::kMaxFrameBytes);
            if (!frame)
                return where + " holds a picture whose description or pixels are malformed";
            const ZKEncImage_t record = frame->GetZKEncImage();
            out << "+ " << index << ": picture at byte " << offset << "\n"
                << "|  time " << Time(record.image.time, record.image.timeScale) << ", " << record.image.width << "x"
                << record.image.height << ", colour format " << record.image.colorFormat << ", "
                << record.image.dataSize << " bytes of pixels\n";
            ReportPackets(record.descriptors, "descriptors", "|  ", out);
            ReportPackets(record.image.dataPackets, "packets", "|  ", out);
        } else {
            const auto& audio = static_cast<const TZKEncAudioElt&>(*element).payload();
            TZKAudioFramePtr frame = audio.exportFrame(CATime(0, 1), TZKIntermediateSegment::kMaxFrameBytes);
            if (!frame)
                return where + " holds an audio block whose description or samples are malformed";
            const ZKEncAudio_t record = frame->GetZKEncAudio();
            out << "+ " << index << ": audio at byte " << offset << "\n"
                << "|  time " << Time(record.audio.time, record.audio.timeScale) << ", " << record.audio.numberSamples
                << " samples, " << record.audio.channels << " channels at " << record.audio.sampleRate << " Hz\n";
            ReportPackets(record.descriptors, "descriptors", "|  ", out);
            ReportPackets(record.dataPackets, "packets", "|  ", out);
        }
    }
    return "";
}

}  // namespace evc
