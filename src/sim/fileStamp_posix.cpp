// FileStamp on POSIX: stat, and utimensat for the write time.
#include <fcntl.h>
#include <sys/stat.h>

#include <ctime>
#include <fstream>
#include <iterator>

#include "sim/fileStamp.h"

namespace pelmark::sim {

namespace {

std::int64_t Nanoseconds(const timespec& t) {
    return static_cast<std::int64_t>(t.tv_sec) * 1000000000 + t.tv_nsec;
}

}  // namespace

FileStamp StampOf(const std::string& path) {
    struct stat s {};
    if (::stat(path.c_str(), &s) != 0) return {};
    FileStamp stamp;
    stamp.ok = true;
    stamp.id = (static_cast<std::uint64_t>(s.st_dev) << 40) ^ static_cast<std::uint64_t>(s.st_ino);
    stamp.size = static_cast<std::uint64_t>(s.st_size);
    stamp.written = Nanoseconds(s.st_mtim);
    stamp.changed = Nanoseconds(s.st_ctim);
    return stamp;
}

bool SetWriteTime(const std::string& path, std::int64_t nanoseconds) {
    timespec times[2];
    times[0].tv_sec = 0;
    times[0].tv_nsec = UTIME_OMIT;  // the access time stays
    times[1].tv_sec = static_cast<time_t>(nanoseconds / 1000000000);
    times[1].tv_nsec = static_cast<long>(nanoseconds % 1000000000);
    return ::utimensat(AT_FDCWD, path.c_str(), times, 0) == 0;
}

bool ReadShared(const std::string& path, std::string& bytes) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return !in.bad();
}

std::int64_t FileClockNow() {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return Nanoseconds(now);
}

}  // namespace pelmark::sim
