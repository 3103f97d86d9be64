#pragma once
// A disk file with its own logical position and size whose reads and writes all go
// through a line cache. A File is a handle: copies share one SharedFile (position,
// size, cache); the last handle closes the file.

#include "ebml/ebmlCache.h"
#include "ebml/ebmlIStorage.h"

#include <cstdio>
#include <memory>
#include <string>

namespace Ebml {

class SharedFile;

class File {
public:
    enum AccessMode {
        kReadOnly = 0,  // an existing file
        kReadWrite = 1  // created when missing
    };

    File();  // closed
    File(const std::string& path, AccessMode mode);
    File(const File& other);
    File& operator=(const File& other);
    ~File();

    // Closes first; false leaves the file closed.
    bool open(const std::string& path, AccessMode mode);
    // False when cached data could not be written back.
    bool close();
    bool isOpen() const;
    bool isWritable() const;  // open in read-write mode
    const std::string& filename() const;
    TCache* cache() const;

    uint64 absolutePosition() const;
    // Whence 0 from the start, 1 from the position, 2 to the end (offset unused).
    // Seeking past the end grows the logical size; a negative position is refused.
    bool seek(int64 offset, TPositionReference whence);
    // Reads at the position and advances by what was read; true only when all of it was.
    bool load(void* dst, std::size_t numBytes);
    // The count read, without moving.
    std::size_t peek(void* dst, std::size_t numBytes) const;
    // Writes at the position (refused on a read-only file); true when all of it was written.
    bool save(const void* src, std::size_t numBytes);

    uint64 size() const;  // the logical size, 0 when closed
    // Truncates or extends the file on disk and clamps the position.
    bool setSize(int64 numBytes);
    // Feeds the bytes [addr, addr + numBytes) to crc; the position does not move.
    bool calcCrc32(uint64 addr, uint64 numBytes, Crc32& crc) const;

    static bool remove(const char* path);

private:
    struct TPrivate;
    std::unique_ptr<TPrivate> private_;
};

// Null for a null or empty path.
std::FILE* fopen_utf8(const char* path, const char* mode);

// Seek guard hooks for files.
inline uint64 seekPosition(const File& file)
{
    return file.absolutePosition();
}
inline bool seekAbsolute(File& file, uint64 position)
{
    return file.seek(static_cast<int64>(position), kAbsolutePosition);
}

// The state shared by every copy of a File; the cache reads and writes the disk
// through it.
class SharedFile : public ICacheDataProvider {
public:
    SharedFile() = default;
    ~SharedFile() override;
    SharedFile(const SharedFile&) = delete;
    SharedFile& operator=(const SharedFile&) = delete;

    bool open(const std::string& path, File::AccessMode mode);
    bool close();
    bool isOpen() const { return file_ != nullptr; }

    // ICacheDataProvider: the disk side of the cache.
    bool load(uint64 addr, std::size_t* numBytes, uint8* dst) override;
    bool save(uint64 addr, std::size_t numBytes, const uint8* src) override;

    // Makes the disk file numBytes long.
    bool truncateDisk(uint64 numBytes);

    std::string filename_;
    File::AccessMode mode_ = File::kReadOnly;
    std::FILE* file_ = nullptr;
    uint64 pos_ = 0;
    uint64 end_ = 0;
    std::unique_ptr<TCache> cache_;
};

}  // namespace Ebml
