// CompanyLock on POSIX: flock on the lock file, released when the descriptor is closed.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "sim/companyLock.h"

namespace pelmark::sim {

CompanyLock::CompanyLock(const std::string& companyPath) {
    const std::string lockPath = companyPath + ".lock";
    int fd = ::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0) return;
    handle_ = fd;
    int r;
    do {
        r = ::flock(fd, LOCK_EX);
    } while (r != 0 && errno == EINTR);
    held_ = r == 0;
}

CompanyLock::~CompanyLock() {
    if (handle_ >= 0) ::close(static_cast<int>(handle_));
}

}  // namespace pelmark::sim
