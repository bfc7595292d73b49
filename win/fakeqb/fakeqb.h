// What the Windows tests read of fakeqb.exe's transaction windows: their class and the control
// ids of the line grid.
#pragma once

namespace pelmark::fakeqb {

inline constexpr const wchar_t* kFormClass = L"FakeQbTxnForm";
// The grid's columns: item, description, quantity, rate, amount.
inline constexpr int kLineColumns = 5;
constexpr int LineCellId(int row, int column) {
    return 2000 + row * 10 + column;
}

}  // namespace pelmark::fakeqb
