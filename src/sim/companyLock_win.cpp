// CompanyLock on Windows: LockFileEx on the lock file, released when the handle is closed.
#include <windows.h>

#include <filesystem>

#include "sim/companyLock.h"

namespace pelmark::sim {

CompanyLock::CompanyLock(const std::string& companyPath) {
    const std::wstring lockPath = std::filesystem::path(companyPath + ".lock").wstring();
    HANDLE h = ::CreateFileW(lockPath.c_str(), GENERIC_READ | GENERIC_WRITE,
                             FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                             OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) return;
    handle_ = reinterpret_cast<std::intptr_t>(h);
    OVERLAPPED at{};
    held_ = ::LockFileEx(h, LOCKFILE_EXCLUSIVE_LOCK, 0, 1, 0, &at) != 0;
}

CompanyLock::~CompanyLock() {
    if (handle_ != -1) ::CloseHandle(reinterpret_cast<HANDLE>(handle_));
}

}  // namespace pelmark::sim
