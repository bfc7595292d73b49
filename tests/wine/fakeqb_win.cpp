// Starts the fake QuickBooks program (fakeqb.exe) for a test and ends it when the test ends.
#include "wine/fakeqb_win.h"

#include <cstdlib>
#include <string>
#include <vector>

namespace pelmark::test {

FakeQbProgram::FakeQbProgram(const std::vector<std::string>& args) {
    wchar_t temp[MAX_PATH] = {}, file[MAX_PATH] = {};
    GetTempPathW(MAX_PATH, temp);
    GetTempFileNameW(temp, L"fqb", 0, file);
    countFile_ = file;

    std::vector<std::string> all = {"--count-file"};
    int n = WideCharToMultiByte(CP_UTF8, 0, file, -1, nullptr, 0, nullptr, nullptr);
    std::string countFile(static_cast<size_t>(n > 0 ? n - 1 : 0), '\0');
    WideCharToMultiByte(CP_UTF8, 0, file, -1, countFile.data(), n, nullptr, nullptr);
    all.push_back(countFile);
    all.insert(all.end(), args.begin(), args.end());
    program_ = std::make_unique<TestProgram>(PELMARK_FAKEQB_EXE, all);
    // The first program started in a Wine prefix can take seconds.
    for (int waited = 0; waited < 30000 && !main_; waited += 50) {
        if (program_->Ended(0)) return;
        main_ = program_->FindWindowOfClass(L"MauiFrame");
        if (!main_) Sleep(50);
    }
    if (main_) program_->WaitForIdle(5000);
}

FakeQbProgram::~FakeQbProgram() {
    program_.reset();
    DeleteFileW(countFile_.c_str());
}

int FakeQbProgram::SaveCount() const {
    HANDLE h = CreateFileW(countFile_.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                           nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) return -1;
    char text[16] = {};
    DWORD got = 0;
    BOOL ok = ReadFile(h, text, sizeof text - 1, &got, nullptr);
    CloseHandle(h);
    if (!ok || got == 0) return -1;
    return std::atoi(text);
}

}  // namespace pelmark::test
