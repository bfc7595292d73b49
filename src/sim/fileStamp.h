// FileStamp: what the file system says about a company file without reading it, so that a
// request can tell in constant time whether another process saved the company since.
#pragma once

#include <cstdint>
#include <string>

namespace pelmark::sim {

// Times are nanoseconds since 1970 (UTC) on every platform; Windows keeps them to 100 ns.
struct FileStamp {
    bool ok = false;       // false when the file could not be examined
    std::uint64_t id = 0;  // device and inode on POSIX; 0 on Windows (no handle is opened)
    std::uint64_t size = 0;
    std::int64_t written = 0;  // last write time
    std::int64_t changed = 0;  // inode change time on POSIX; 0 on Windows
    bool operator==(const FileStamp&) const = default;
};

// How far apart two writes may be and still get one write time: FAT keeps 2 s, NTFS and Linux's
// file systems the clock tick of the moment (1 to 16 ms), whatever fraction they store.
inline constexpr std::int64_t kStampGrain = 2'000'000'000;

FileStamp StampOf(const std::string& path);
// Sets a closed file's last write time; false when the file system refuses.
bool SetWriteTime(const std::string& path, std::int64_t nanoseconds);
// The whole file, read without keeping another process from replacing or deleting it (Windows
// and Wine refuse a rename over, or a deletion of, a file opened without FILE_SHARE_DELETE).
bool ReadShared(const std::string& path, std::string& bytes);
// The wall clock the file system stamps writes with.
std::int64_t FileClockNow();

}  // namespace pelmark::sim
