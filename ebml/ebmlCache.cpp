#include "ebml/ebmlCache.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace Ebml {

namespace {

// Keeps addr + numBytes representable.
size_t clampToAddressSpace(uint64 addr, size_t numBytes)
{
    const uint64 room = std::numeric_limits<uint64>::max() - addr;
    return numBytes > room ? static_cast<size_t>(room) : numBytes;
}

}  // namespace

TCache::TCache(ICacheDataProvider* provider, size_t maxLines, size_t lineSize)
    : provider_(provider), lineSize_(std::max<size_t>(lineSize, 1)), lines_(std::max<size_t>(maxLines, 1))
{
}

TCache::~TCache()
{
    clear();
}

TCache::TLine* TCache::lookup(uint64 addr)
{
    const uint64 head = lineHead(addr);
    for (size_t i = 0; i < numLines_; ++i) {
        TLine* line = lines_[i].get();
        if (line->head_ == head) {
            line->age_ = ++age_;
            return line;
        }
    }
    return nullptr;
}

TCache::TLine* TCache::getLine(uint64 addr)
{
    TLine* line = lookup(addr);
    if (!line)
        line = addLine(addr);
    if (line && !line->ready_)
        fill(line);
    return line;
}

TCache::TLine* TCache::addLine(uint64 addr)
{
    TLine* line = nullptr;
    if (numLines_ == lines_.size()) {
        line = lines_[0].get();
        for (size_t i = 1; i < numLines_; ++i)
            if (lines_[i]->age_ < line->age_)
                line = lines_[i].get();
        // A line that cannot be written back keeps its slot: its bytes exist nowhere else.
        if (!flush(line))
            return nullptr;
    } else {
        lines_[numLines_].reset(new TLine(lineSize_));
        line = lines_[numLines_++].get();
    }
    line->age_ = ++age_;
    line->head_ = line->tail_ = lineHead(addr);
    line->ready_ = line->dirty_ = false;
    return line;
}

bool TCache::flush(TLine* line)
{
    if (!line->dirty_)
        return true;
    bool saved = true;
    if (provider_ && line->tail_ > line->head_)
        saved = provider_->save(line->head_, static_cast<size_t>(line->tail_ - line->head_), line->data.data());
    line->dirty_ = !saved;
    return saved;
}

bool TCache::clear()
{
    bool ok = true;
    for (size_t i = 0; i < numLines_; ++i)
        ok = flush(lines_[i].get()) && ok;
    for (auto& line : lines_)
        line.reset();
    numLines_ = 0;
    age_ = 0;
    return ok;
}

bool TCache::resize(size_t maxLines, size_t lineSize)
{
    maxLines = std::max<size_t>(maxLines, 1);
    lineSize = std::max<size_t>(lineSize, 1);
    if (maxLines == lines_.size() && lineSize == lineSize_)
        return true;
    const bool ok = clear();
    lines_.clear();
    lines_.resize(maxLines);
    lineSize_ = lineSize;
    return ok;
}

bool TCache::adjustLineSize(size_t numBytes)
{
    const size_t numLineSizes = std::max<size_t>((numBytes + lineSize_ - 1) / lineSize_, 1);
    return resize(lines_.size(), numLineSizes * lineSize_);
}

void TCache::truncate(uint64 addr)
{
    const uint64 head = lineHead(addr);
    for (size_t i = numLines_; i-- > 0;) {
        TLine* line = lines_[i].get();
        if (line->head_ > head) {
            removeLine(i);
        } else if (line->head_ == head) {
            if (!line->ready_) {
                removeLine(i);
                continue;
            }
            // Growing the file: the disk reads zeros there, so must the line.
            if (addr > line->tail_)
                std::fill(line->data.begin() + (line->tail_ - head), line->data.begin() + (addr - head), 0);
            line->tail_ = addr;
        }
    }
}

size_t TCache::save(uint64 addr, size_t numBytes, const uint8* src)
{
    numBytes = clampToAddressSpace(addr, numBytes);
    if (!growFor(numBytes))
        return 0;
    const uint64 end = addr + numBytes;
    size_t done = 0;
    for (uint64 head = lineHead(addr); done < numBytes && head < end; head += lineSize_) {
        TLine* line = getLine(head);
        if (!line || !line->ready_)
            break;
        EBML_ASSERT(head == line->head_);
        const uint64 from = std::max(addr, head);
        const uint64 to = std::min(end, head + lineSize_);
        // Writing past the valid bytes leaves a hole that reads as zeros, as on disk.
        if (from > line->tail_)
            std::fill(line->data.begin() + (line->tail_ - head), line->data.begin() + (from - head), 0);
        std::memcpy(line->data.data() + (from - head), src + (from - addr), to - from);
        line->tail_ = std::max(line->tail_, to);
        line->ready_ = line->dirty_ = true;
        done += to - from;
    }
    return done;
}

size_t TCache::load(uint64 addr, size_t numBytes, uint8* dst)
{
    numBytes = clampToAddressSpace(addr, numBytes);
    if (!growFor(numBytes))
        return 0;
    const uint64 end = addr + numBytes;
    size_t done = 0;
    for (uint64 head = lineHead(addr); done < numBytes; head += lineSize_) {
        TLine* line = getLine(head);
        if (!line || !line->ready_)
            break;
        EBML_ASSERT(head == line->head_);
        const uint64 lineEnd = head + lineSize_;
        if (line->tail_ < std::min(end, lineEnd))
            extendShortLine(line);
        const uint64 from = std::max(addr, head);
        const uint64 to = std::min(end, line->tail_);
        if (to > from) {
            std::memcpy(dst + (from - addr), line->data.data() + (from - head), to - from);
            done += to - from;
        }
        // A line that is not full marks the end of the data.
        if (line->tail_ < lineEnd)
            break;
    }
    return done;
}

bool TCache::fill(TLine* line)
{
    size_t numBytes = 0;
    line->ready_ = true;
    if (provider_) {
        numBytes = lineSize_;
        line->ready_ = provider_->load(line->head_, &numBytes, line->data.data());
    }
    line->tail_ = line->head_ + (line->ready_ ? std::min(numBytes, lineSize_) : 0);
    return line->ready_;
}

void TCache::extendShortLine(TLine* line)
{
    const uint64 lineEnd = line->head_ + lineSize_;
    // The disk may have grown since the line was read (another line written back).
    if (provider_) {
        size_t numBytes = static_cast<size_t>(lineEnd - line->tail_);
        if (provider_->load(line->tail_, &numBytes, line->data.data() + (line->tail_ - line->head_)))
            line->tail_ += std::min<uint64>(numBytes, lineEnd - line->tail_);
    }
    // Data cached further on means the rest of this line is a hole still to be written.
    if (line->tail_ < lineEnd && hasDataAfter(line->head_)) {
        std::fill(line->data.begin() + (line->tail_ - line->head_), line->data.end(), 0);
        line->tail_ = lineEnd;
    }
}

bool TCache::hasDataAfter(uint64 head) const
{
    for (size_t i = 0; i < numLines_; ++i)
        if (lines_[i]->head_ > head && lines_[i]->tail_ > lines_[i]->head_)
            return true;
    return false;
}

bool TCache::growFor(size_t numBytes)
{
    if (numBytes > lineSize_ && numBytes <= kMaxLineSize)
        return adjustLineSize(numBytes);
    return true;
}

void TCache::removeLine(size_t index)
{
    lines_[index] = std::move(lines_[numLines_ - 1]);
    --numLines_;
}

}  // namespace Ebml
