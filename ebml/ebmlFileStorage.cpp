#include "ebml/ebmlFileStorage.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <stdexcept>

namespace Ebml {

// ---- FileStorage::Receipt

bool FileStorage::Receipt::save(const uint8* data, std::size_t numBytes)
{
    try {
        Seek<File> guard(file_, position_);
        if (!file_.save(data, numBytes))
            return false;
        numBytes_ = std::max<uint64>(numBytes_, numBytes);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

bool FileStorage::Receipt::load(uint8* data) const
{
    if (numBytes_ > std::numeric_limits<std::size_t>::max())
        return false;
    try {
        Seek<File> guard(file_, position_);
        return file_.load(data, static_cast<std::size_t>(numBytes_));
    } catch (const std::exception&) {
        return false;
    }
}

bool FileStorage::Receipt::calcCrc32(Crc32& crc, const TReceiptPtr& receiptSkip) const
{
    return Ebml::calcCrc32(file_, position_, numBytes_, crc, receiptSkip);
}

TReceiptPtr FileStorage::Receipt::receipt(uint64 offset, uint64 size) const
{
    EBML_ASSERT(offset <= numBytes_ && size <= numBytes_ - offset);
    return TReceiptPtr(new Receipt(file_, position_ + offset, size));
}

// ---- FileStorage

FileStorage::FileStorage(const std::string& path, File::AccessMode mode) : file_(path, mode) {}

TReceiptPtr FileStorage::receipt() const
{
    return TReceiptPtr(new Receipt(file_, file_.absolutePosition(), 0));
}

TReceiptPtr FileStorage::save(const uint8* data, std::size_t numBytes)
{
    TReceiptPtr result = receipt();
    if (!file_.save(data, numBytes))
        return TReceiptPtr();
    result->add(numBytes);
    return result;
}

TReceiptPtr FileStorage::load(uint8* data, std::size_t numBytes)
{
    TReceiptPtr result = receipt();
    if (!file_.load(data, numBytes))
        return TReceiptPtr();
    result->add(numBytes);
    return result;
}

std::size_t FileStorage::peek(uint8* data, std::size_t numBytes)
{
    return file_.peek(data, numBytes);
}

bool FileStorage::reaches(uint64 absolutePosition) const
{
    // A read-only file cannot grow: a position past its end only comes from a size
    // field that lies.
    return absolutePosition <= static_cast<uint64>(std::numeric_limits<int64>::max()) &&
           (file_.isWritable() || absolutePosition <= file_.size());
}

void FileStorage::seekTo(uint64 absolutePosition)
{
    if (!reaches(absolutePosition) || !file_.seek(static_cast<int64>(absolutePosition), kAbsolutePosition))
        throw std::runtime_error("FileStorage::seekTo(" + std::to_string(absolutePosition) + ") failed");
    EBML_ASSERT(absolutePosition == receipt()->position());
}

uint64 FileStorage::skip(uint64 numBytes)
{
    const uint64 position = file_.absolutePosition();
    if (numBytes > std::numeric_limits<uint64>::max() - position || !reaches(position + numBytes) ||
        !file_.seek(static_cast<int64>(numBytes), kRelativePosition))
        return 0;
    return numBytes;
}

}  // namespace Ebml
