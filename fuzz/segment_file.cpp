// Intermediate segment files from disk, as evc-inspect reports them and evc-encode --join reads
// them (chunk trailer, frame elements, packets, the raw stream written from them): any bytes.
// Each input is written to one file in a scratch folder of its own under TMPDIR; the join's
// output goes there too, and the folder is removed when the run ends.
#include <stdlib.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <string>

#include "inspect/SegmentReport.h"
#include "media/CABufferPool.h"
#include "tools/ChunkJoin.h"

namespace {

class ScratchFolder {
public:
    ScratchFolder()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "fuzz-segment-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr)
            abort();
        m_path = pattern;
    }
    ~ScratchFolder() { std::filesystem::remove_all(m_path); }
    std::string File(const char* name) const { return (m_path / name).string(); }

private:
    std::filesystem::path m_path;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const ScratchFolder scratch;
    static const std::string input = scratch.File("input.evcseg");
    std::ofstream(input, std::ios::binary | std::ios::trunc).write(reinterpret_cast<const char*>(data), size);

    std::ostream discard(nullptr);
    evc::ReportSegment(input, discard);
    evc::tools::OutputPlan plan;
    plan.path = scratch.File("joined.h264");
    plan.format = "h264";
    plan.overwrite = true;
    try {
        evc::tools::JoinChunks({input}, plan, nullptr);
    } catch (const std::exception&) {
        // A damaged or foreign file is refused; that is the expected answer.
    }
    // The pool keeps every size it handed out; a run sees thousands of sizes up to the cap.
    CABufferPool::GetBufferPool()->ReleaseBuffers();
    return 0;
}
