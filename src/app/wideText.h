// Conversions between the program's UTF-8 text and the UTF-16 of the Windows W functions.
#pragma once

#include <cstddef>
#include <string>

namespace pelmark {

// Text that is not valid UTF-8 came from an ANSI source (a file, another program's window)
// and is read in the ANSI code page.
std::wstring WideFromUtf8(const std::string& text);
std::string Utf8FromWide(const wchar_t* text, std::size_t length);

}  // namespace pelmark
