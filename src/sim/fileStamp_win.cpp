// FileStamp on Windows: GetFileAttributesExW, which opens no handle (under Wine an open handle
// makes another process's replace of the file fail), and SetFileTime for the write time.
#include <windows.h>

#include <filesystem>

#include "sim/fileStamp.h"

namespace pelmark::sim {

namespace {

// FILETIME counts 100 ns from 1601; 11644473600 seconds lie between 1601 and 1970.
constexpr std::int64_t kEpochShift = 116444736000000000LL;

std::int64_t Nanoseconds(const FILETIME& t) {
    const std::int64_t ticks = static_cast<std::int64_t>(
        (static_cast<std::uint64_t>(t.dwHighDateTime) << 32) | t.dwLowDateTime);
    return (ticks - kEpochShift) * 100;
}

std::wstring Wide(const std::string& path) {
    return std::filesystem::path(path).wstring();
}

}  // namespace

FileStamp StampOf(const std::string& path) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!::GetFileAttributesExW(Wide(path).c_str(), GetFileExInfoStandard, &data)) return {};
    FileStamp stamp;
    stamp.ok = true;
    stamp.size = (static_cast<std::uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
    stamp.written = Nanoseconds(data.ftLastWriteTime);
    return stamp;
}

bool SetWriteTime(const std::string& path, std::int64_t nanoseconds) {
    HANDLE h = ::CreateFileW(Wide(path).c_str(), FILE_WRITE_ATTRIBUTES,
                             FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                             OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) return false;
    const auto ticks = static_cast<std::uint64_t>(nanoseconds / 100 + kEpochShift);
    FILETIME written{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
    const bool ok = ::SetFileTime(h, nullptr, nullptr, &written) != 0;
    ::CloseHandle(h);
    return ok;
}

bool ReadShared(const std::string& path, std::string& bytes) {
    HANDLE h = ::CreateFileW(Wide(path).c_str(), GENERIC_READ,
                             FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                             OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) return false;
    bytes.clear();
    char buffer[65536];
    DWORD got = 0;
    bool ok = true;
    while ((ok = ::ReadFile(h, buffer, sizeof buffer, &got, nullptr) != 0) && got > 0)
        bytes.append(buffer, got);
    ::CloseHandle(h);
    return ok;
}

std::int64_t FileClockNow() {
    FILETIME now{};
    ::GetSystemTimeAsFileTime(&now);
    return Nanoseconds(now);
}

}  // namespace pelmark::sim
