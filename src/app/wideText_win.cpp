// Conversions between the program's UTF-8 text and the UTF-16 of the Windows W functions.
#include <windows.h>

#include "app/wideText.h"

namespace pelmark {

std::wstring WideFromUtf8(const std::string& text) {
    if (text.empty()) return {};
    UINT cp = CP_UTF8;
    int size = static_cast<int>(text.size());
    int n = MultiByteToWideChar(cp, MB_ERR_INVALID_CHARS, text.data(), size, nullptr, 0);
    if (n == 0) {
        cp = CP_ACP;
        n = MultiByteToWideChar(cp, 0, text.data(), size, nullptr, 0);
    }
    std::wstring w(static_cast<size_t>(n), L'\0');
    MultiByteToWideChar(cp, 0, text.data(), size, w.data(), n);
    return w;
}

std::string Utf8FromWide(const wchar_t* text, std::size_t length) {
    if (!text || length == 0) return {};
    int len = static_cast<int>(length);
    int bytes = WideCharToMultiByte(CP_UTF8, 0, text, len, nullptr, 0, nullptr, nullptr);
    std::string s(static_cast<size_t>(bytes), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, len, s.data(), bytes, nullptr, nullptr);
    return s;
}

}  // namespace pelmark
