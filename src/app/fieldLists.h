// The main form's lists that hold the company's custom field names: sort levels and weights.
#pragma once

#include <string>
#include <vector>

namespace pelmark {

struct App;

// The combo boxes whose choices come from the company file, so a saved choice may wait for
// them: read from the settings before QuickBooks answers, selected once the lists are filled.
bool IsCompanyListCombo(const std::string& name);

// Fills the sort level lists and the two weight field lists (blank first, to clear a choice)
// with `customFields`, selecting what the settings file named. When `known` (the names came
// from the company), a saved name the company does not have is reported once, in one message.
void FillCustomFieldLists(App& app, const std::vector<std::string>& customFields, bool known);

}  // namespace pelmark
