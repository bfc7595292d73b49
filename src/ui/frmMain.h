// The main form: its full control set as a form model (the Win32 window binds to it).
#pragma once

#include "ui/form.h"

namespace pelmark::ui {

inline constexpr int kSortLevels = 5;

// Every control of the main form with its caption, tip, array index, option group and default.
Form MakeMainFormModel();

// The sort-field vocabulary of every level list, empty entry first; custom field names follow.
std::vector<std::string> SortFieldVocabulary(const std::vector<std::string>& customFields);

}  // namespace pelmark::ui
