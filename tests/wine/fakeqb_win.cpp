// Starts the fake QuickBooks program (fakeqb.exe) for a test and ends it when the test ends.
#include "wine/fakeqb_win.h"

#include <algorithm>
#include <cwchar>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "app/wideText.h"
#include "fakeqb/fakeqb.h"

namespace pelmark::test {

std::string TextOf(HWND wnd) {
    DWORD_PTR length = 0, got = 0;
    SendMessageTimeoutW(wnd, WM_GETTEXTLENGTH, 0, 0, SMTO_ABORTIFHUNG, 2000, &length);
    std::wstring text(length + 1, L'\0');
    SendMessageTimeoutW(wnd, WM_GETTEXT, length + 1, reinterpret_cast<LPARAM>(text.data()),
                        SMTO_ABORTIFHUNG, 2000, &got);
    return Utf8FromWide(text.data(), std::min<std::size_t>(got, length));
}

bool WaitUntil(const std::function<bool()>& done, int timeoutMs) {
    for (int waited = 0;; waited += 50) {
        if (done()) return true;
        if (waited >= timeoutMs) return false;
        MSG msg;
        while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&msg);
        Sleep(50);
    }
}

FakeQbProgram::FakeQbProgram(const std::vector<std::string>& args) {
    wchar_t temp[MAX_PATH] = {}, file[MAX_PATH] = {};
    GetTempPathW(MAX_PATH, temp);
    GetTempFileNameW(temp, L"fqb", 0, file);
    countFile_ = file;

    std::vector<std::string> all = {"--count-file", Utf8FromWide(file, wcslen(file))};
    all.insert(all.end(), args.begin(), args.end());
    program_ = std::make_unique<TestProgram>(PELMARK_FAKEQB_EXE, all);
    std::wstring cls = L"MauiFrame";
    for (size_t i = 0; i + 1 < args.size(); ++i)
        if (args[i] == "--class") cls = WideFromUtf8(args[i + 1]);
    // The first program started in a Wine prefix can take seconds.
    for (int waited = 0; waited < 30000 && !main_; waited += 50) {
        if (program_->Ended(0)) return;
        main_ = program_->FindWindowOfClass(cls.c_str());
        if (!main_) Sleep(50);
    }
    if (main_) program_->WaitForIdle(5000);
}

FakeQbProgram::~FakeQbProgram() {
    program_.reset();
    DeleteFileW(countFile_.c_str());
}

int FakeQbProgram::SaveCount() const {
    int count = -1;
    std::ifstream in{std::filesystem::path(countFile_)};
    return in >> count ? count : -1;
}

HWND FakeQbProgram::TrnsWindow(const std::string& title) const {
    HWND client = main_ ? FindWindowExW(main_, nullptr, L"MDIClient", nullptr) : nullptr;
    for (HWND w = client ? GetWindow(client, GW_CHILD) : nullptr; w;
         w = GetWindow(w, GW_HWNDNEXT)) {
        if (TextOf(w).rfind(title, 0) == 0) return w;
    }
    return nullptr;
}

std::vector<std::string> FakeQbProgram::ShownItems(HWND trnsWnd) {
    std::vector<std::string> items;
    for (int row = 0;; ++row) {
        HWND cell = trnsWnd ? GetDlgItem(trnsWnd, fakeqb::LineCellId(row, 0)) : nullptr;
        if (!cell) break;
        items.push_back(TextOf(cell));
    }
    while (!items.empty() && items.back().empty()) items.pop_back();
    return items;
}

}  // namespace pelmark::test
