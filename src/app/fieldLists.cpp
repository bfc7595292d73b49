// Fills the custom-field lists of the main form after QuickBooks has named the fields, so that
// sort levels and weight fields saved by name are selected rather than reported missing.
#include "app/fieldLists.h"

#include "app/context.h"
#include "app/logs.h"
#include "app/text.h"
#include "ui/frmMain.h"

namespace pelmark {

namespace {
const char* const kWeightCombos[] = {"cboCFNetWeight", "cboCFItemNetWeightTotal"};
}

bool IsCompanyListCombo(const std::string& name) {
    if (EqualsNoCase(name, "cboTotalsItem") || EqualsNoCase(name, "cboSortField")) return true;
    for (const char* combo : kWeightCombos)
        if (EqualsNoCase(name, combo)) return true;
    return false;
}

void FillCustomFieldLists(App& app, const std::vector<std::string>& customFields, bool known) {
    const std::vector<std::string> levels = ui::SortFieldVocabulary(customFields);
    std::vector<std::string> weights = {""};
    weights.insert(weights.end(), customFields.begin(), customFields.end());
    std::vector<std::string> missing;
    for (ui::Control& c : app.frmMain.controls()) {
        bool weight = false;
        for (const char* combo : kWeightCombos) weight |= c.name == combo;
        if (c.name != "cboSortField" && !weight) continue;
        ui::Form::SetList(c, weight ? weights : levels);
        if (c.listIndex < 0 && !Trim(c.text).empty())
            missing.push_back(c.name + (weight ? "" : "(" + std::to_string(c.index) + ")") + "(" +
                              c.text + ")");
    }
    if (!known || missing.empty()) return;
    std::string text =
        "These custom fields are not in this company file; they sort and weigh "
        "nothing until chosen again:";
    for (const std::string& m : missing) text += kCrLf + m;
    DebugLog(app, text, 1);
    ShowMessage(app, text, kMbInformation);
}

}  // namespace pelmark
