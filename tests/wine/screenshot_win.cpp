// Screenshots from the Windows tests through the xwd watcher of the test script.
#include "wine/screenshot_win.h"

#include <windows.h>

#include <string>

namespace pelmark::test {

std::string ArtifactDir() {
    std::string dir = PELMARK_ARTIFACT_DIR;
    if (!dir.empty() && dir[0] == '/') dir = "Z:" + dir;
    for (char& c : dir)
        if (c == '/') c = '\\';
    if (dir.back() != '\\') dir += '\\';
    CreateDirectoryA(dir.c_str(), nullptr);
    return dir;
}

bool TakeScreenshot(const std::string& name, int timeoutMs) {
    std::string dir = ArtifactDir();
    std::string png = dir + name + ".png";
    DeleteFileA(png.c_str());
    // Give the window time to paint before the picture is taken.
    for (int i = 0; i < 10; ++i) {
        MSG msg;
        while (PeekMessageA(&msg, nullptr, 0, 0, PM_REMOVE)) DispatchMessageA(&msg);
        Sleep(30);
    }
    std::string request = dir + name + ".request";
    HANDLE h = CreateFileA(request.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                           FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) return false;
    CloseHandle(h);
    for (int waited = 0; waited < timeoutMs; waited += 100) {
        if (GetFileAttributesA(png.c_str()) != INVALID_FILE_ATTRIBUTES) return true;
        MSG msg;
        while (PeekMessageA(&msg, nullptr, 0, 0, PM_REMOVE)) DispatchMessageA(&msg);
        Sleep(100);
    }
    DeleteFileA(request.c_str());
    return false;
}

}  // namespace pelmark::test
