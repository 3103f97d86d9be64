#include "ebml/ebmlFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <limits>
#include <stdexcept>
#include <vector>

namespace Ebml {

namespace {

const std::size_t kCacheLines = 1;
const std::size_t kCacheLineSize = 4096;
const std::size_t kCrcChunkSize = 4096;

bool isRegularFile(std::FILE* file)
{
    struct stat info;
    return fstat(fileno(file), &info) == 0 && S_ISREG(info.st_mode);
}

bool fitsOffset(uint64 value)
{
    return value <= static_cast<uint64>(std::numeric_limits<off_t>::max());
}

}  // namespace

std::FILE* fopen_utf8(const char* path, const char* mode)
{
    if (!path || !*path)
        return nullptr;
    return std::fopen(path, mode);
}

// ---- SharedFile

SharedFile::~SharedFile()
{
    close();
}

bool SharedFile::open(const std::string& path, File::AccessMode mode)
{
    close();
    filename_ = path;
    mode_ = mode;
    if (path.empty())
        return false;

    file_ = fopen_utf8(path.c_str(), mode == File::kReadWrite ? "rb+" : "rb");
    if (!file_ && mode == File::kReadWrite)
        file_ = fopen_utf8(path.c_str(), "wb+");
    if (!file_)
        return false;

    // A directory opens read-only but has no bytes to give.
    off_t start = -1;
    off_t end = -1;
    if (isRegularFile(file_)) {
        start = ftello(file_);
        if (start >= 0 && fseeko(file_, 0, SEEK_END) == 0)
            end = ftello(file_);
        if (end < 0 || fseeko(file_, start, SEEK_SET) != 0)
            end = -1;
    }
    if (start < 0 || end < 0) {
        std::fclose(file_);
        file_ = nullptr;
        return false;
    }
    pos_ = static_cast<uint64>(start);
    end_ = static_cast<uint64>(end);

    EBML_ASSERT(!cache_);
    cache_.reset(new TCache(this, kCacheLines, kCacheLineSize));
    return true;
}

bool SharedFile::close()
{
    bool ok = true;
    if (cache_) {
        ok = cache_->clear();
        cache_.reset();
    }
    if (file_) {
        ok = std::fclose(file_) == 0 && ok;
        file_ = nullptr;
    }
    pos_ = 0;
    end_ = 0;
    return ok;
}

bool SharedFile::load(uint64 addr, std::size_t* numBytes, uint8* dst)
{
    const std::size_t wanted = *numBytes;
    *numBytes = 0;
    if (!file_ || !fitsOffset(addr) || fseeko(file_, static_cast<off_t>(addr), SEEK_SET) != 0)
        return false;
    *numBytes = std::fread(dst, 1, wanted, file_);
    if (std::ferror(file_)) {
        std::clearerr(file_);
        return false;
    }
    return true;
}

bool SharedFile::save(uint64 addr, std::size_t numBytes, const uint8* src)
{
    if (!file_ || mode_ != File::kReadWrite || !fitsOffset(addr) ||
        fseeko(file_, static_cast<off_t>(addr), SEEK_SET) != 0)
        return false;
    const bool ok = std::fwrite(src, 1, numBytes, file_) == numBytes;
    if (!ok)
        std::clearerr(file_);
    return ok;
}

bool SharedFile::truncateDisk(uint64 numBytes)
{
    return file_ && fitsOffset(numBytes) && std::fflush(file_) == 0 &&
           ftruncate(fileno(file_), static_cast<off_t>(numBytes)) == 0;
}

// ---- File

struct File::TPrivate {
    TSharedPtr<SharedFile> shared_;
};

File::File() : private_(new TPrivate{TSharedPtr<SharedFile>(new SharedFile)}) {}

File::File(const std::string& path, AccessMode mode) : File()
{
    open(path, mode);
}

File::File(const File& other) : private_(new TPrivate(*other.private_)) {}

File& File::operator=(const File& other)
{
    private_->shared_ = other.private_->shared_;
    return *this;
}

File::~File() = default;

bool File::open(const std::string& path, AccessMode mode)
{
    return private_->shared_->open(path, mode);
}

bool File::close()
{
    return private_->shared_->close();
}

bool File::isOpen() const
{
    return private_->shared_->isOpen();
}

bool File::isWritable() const
{
    return isOpen() && private_->shared_->mode_ == kReadWrite;
}

const std::string& File::filename() const
{
    return private_->shared_->filename_;
}

TCache* File::cache() const
{
    return private_->shared_->cache_.get();
}

uint64 File::absolutePosition() const
{
    return private_->shared_->pos_;
}

bool File::seek(int64 offset, TPositionReference whence)
{
    SharedFile& f = *private_->shared_;
    if (!f.isOpen())
        return false;
    uint64 pos = 0;
    switch (whence) {
    case kAbsolutePosition:
        if (offset < 0)
            return false;
        pos = static_cast<uint64>(offset);
        break;
    case kRelativePosition:
        if (offset < 0 ? f.pos_ < 0 - static_cast<uint64>(offset)
                       : static_cast<uint64>(offset) > std::numeric_limits<uint64>::max() - f.pos_)
            return false;
        pos = f.pos_ + static_cast<uint64>(offset);
        break;
    case kPositionFromEnd:
        f.pos_ = f.end_;
        return true;
    default:
        return false;
    }
    f.pos_ = pos;
    f.end_ = std::max(f.end_, pos);
    return true;
}

bool File::load(void* dst, std::size_t numBytes)
{
    SharedFile& f = *private_->shared_;
    const std::size_t got = peek(dst, numBytes);
    f.pos_ += got;
    EBML_ASSERT(f.pos_ <= f.end_);
    return got == numBytes;
}

std::size_t File::peek(void* dst, std::size_t numBytes) const
{
    SharedFile& f = *private_->shared_;
    if (!f.isOpen() || numBytes == 0)
        return 0;
    // Never beyond the logical size, even if the disk holds more.
    const uint64 available = f.end_ - std::min(f.pos_, f.end_);
    const std::size_t wanted = static_cast<std::size_t>(std::min<uint64>(numBytes, available));
    return f.cache_->load(f.pos_, wanted, static_cast<uint8*>(dst));
}

bool File::save(const void* src, std::size_t numBytes)
{
    SharedFile& f = *private_->shared_;
    if (!isWritable())
        return false;
    const std::size_t done = f.cache_->save(f.pos_, numBytes, static_cast<const uint8*>(src));
    f.pos_ += done;
    f.end_ = std::max(f.end_, f.pos_);
    return done == numBytes;
}

uint64 File::size() const
{
    return private_->shared_->end_;
}

bool File::setSize(int64 numBytes)
{
    SharedFile& f = *private_->shared_;
    if (!isWritable() || numBytes < 0)
        return false;
    const uint64 n = static_cast<uint64>(numBytes);
    if (!f.truncateDisk(n))
        return false;
    f.cache_->truncate(n);
    f.pos_ = std::min(f.pos_, n);
    f.end_ = n;
    return true;
}

bool File::calcCrc32(uint64 addr, uint64 numBytes, Crc32& crc) const
{
    if (numBytes == 0)
        return true;
    // Checked first: seeking past the end would grow the logical size.
    if (!isOpen() || addr > size() || numBytes > size() - addr)
        return false;
    File file(*this);
    try {
        Seek<File> guard(file, addr);
        std::vector<uint8> chunk(static_cast<std::size_t>(std::min<uint64>(numBytes, kCrcChunkSize)));
        for (uint64 done = 0; done < numBytes;) {
            const std::size_t n = static_cast<std::size_t>(std::min<uint64>(numBytes - done, chunk.size()));
            if (!file.load(chunk.data(), n))
                return false;
            crc.compute(chunk.data(), n);
            done += n;
        }
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

bool File::remove(const char* path)
{
    return path && *path && std::remove(path) == 0;
}

}  // namespace Ebml
