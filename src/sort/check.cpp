// The check after the modify: the transaction that comes back must hold every line that was
// sent, field for field, once and in the order sent, with the totals it had before.
#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "app/context.h"
#include "app/text.h"
#include "qb/qbCommon.h"
#include "sort/engine.h"

namespace pelmark::sort {

namespace {

// A number when the whole text is one: QuickBooks may write 10 as "10.00".
bool AsNumber(const std::string& text, double& value) {
    if (text.empty()) return false;
    char* end = nullptr;
    value = std::strtod(text.c_str(), &end);
    return end && *end == '\0';
}

bool SameValue(const std::string& a, const std::string& b) {
    if (a == b) return true;
    double x = 0, y = 0;
    return AsNumber(a, x) && AsNumber(b, y) && std::fabs(x - y) < 0.005;
}

std::string Shown(const std::string& text) {
    return text.size() > 60 ? "\"" + text.substr(0, 57) + "...\"" : "\"" + text + "\"";
}

// What a row is, as the check tells rows apart.
std::string RowWord(const qb::TxnLine& row) {
    if (row.IsGroup()) return "group";
    if (row.lineType == qb::kLineBlank) return "blank line";
    return row.group == qb::kNoGroup ? "line" : "group line";
}

std::vector<const qb::TxnLine*> WithoutClosingRows(const std::vector<qb::TxnLine>& rows) {
    std::vector<const qb::TxnLine*> out;
    for (const qb::TxnLine& row : rows)
        if (!row.IsGroupEnd()) out.push_back(&row);
    return out;
}

const std::string* CustomValue(const std::vector<qb::TxnCustomField>& fields,
                               const std::string& name) {
    for (const qb::TxnCustomField& f : fields)
        if (f.name == name) return &f.value;
    return nullptr;
}

}  // namespace

std::vector<qb::TxnLine> ExpectedLines(const std::vector<qb::TxnLine>& table,
                                       const SortPlan& plan) {
    std::vector<qb::TxnLine> rows;
    for (const PlanStep& step : plan.steps) {
        if (step.kind == PlanStep::Kind::Blank) {
            qb::TxnLine blank;
            blank.lineType = qb::kLineBlank;
            rows.push_back(std::move(blank));
            continue;
        }
        qb::TxnLine row = table[step.row];
        row.group = qb::kNoGroup;
        const std::size_t groupRow = rows.size();
        rows.push_back(std::move(row));
        if (!table[step.row].IsGroup()) continue;
        for (std::size_t i = step.row + 1; i < table.size() && table[i].group == step.row; ++i) {
            if (table[i].IsGroupEnd()) break;
            qb::TxnLine member = table[i];
            member.group = groupRow;
            rows.push_back(std::move(member));
        }
    }
    return rows;
}

std::vector<std::string> CompareLines(const std::vector<qb::TxnLine>& expected,
                                      const std::vector<qb::TxnLine>& actualRows,
                                      const CheckOptions& options) {
    std::vector<std::string> problems;
    const std::vector<const qb::TxnLine*> actual = WithoutClosingRows(actualRows);
    if (actual.size() != expected.size())
        problems.push_back("the transaction came back with " + std::to_string(actual.size()) +
                           " lines where " + std::to_string(expected.size()) + " were sent");
    const std::size_t n = std::min(actual.size(), expected.size());
    for (std::size_t i = 0; i < n; ++i) {
        const qb::TxnLine& want = expected[i];
        const qb::TxnLine& got = *actual[i];
        const std::string where = "line " + std::to_string(i + 1) + ": ";
        if (RowWord(want) != RowWord(got)) {
            problems.push_back(where + "a " + RowWord(got) + " came back where a " + RowWord(want) +
                               " was sent");
            continue;
        }
        for (const qb::TxnLineField* f : options.fields) {
            // A group's own fields are those of its group path; a line's those of its line path.
            if (!(want.IsGroup() ? f->groupPath : f->linePath)) continue;
            const std::string& a = want.*f->member;
            const std::string& b = got.*f->member;
            if (!SameValue(a, b))
                problems.push_back(where + (want.IsGroup() ? f->groupPath : f->linePath) + " " +
                                   Shown(a) + " came back as " + Shown(b));
        }
        if (!options.customFields) continue;
        std::vector<qb::TxnCustomField> fields = want.customFields;
        if (i < options.extraFields.size())
            for (const qb::TxnCustomField& extra : options.extraFields[i]) {
                bool replaced = false;
                for (qb::TxnCustomField& f : fields)
                    if (f.name == extra.name) f.value = extra.value, replaced = true;
                if (!replaced) fields.push_back(extra);
            }
        for (const qb::TxnCustomField& f : fields) {
            if (f.value.empty()) continue;
            const std::string* value = CustomValue(got.customFields, f.name);
            if (!value)
                problems.push_back(where + "custom field " + f.name + " " + Shown(f.value) +
                                   " is missing");
            else if (!SameValue(*value, f.value))
                problems.push_back(where + "custom field " + f.name + " " + Shown(f.value) +
                                   " came back as " + Shown(*value));
        }
        // A value the line did not have: one its item gave the re-created line.
        for (const qb::TxnCustomField& g : got.customFields) {
            const std::string* value = CustomValue(fields, g.name);
            if (!g.value.empty() && (!value || value->empty()))
                problems.push_back(where + "custom field " + g.name + " " + Shown(g.value) +
                                   " was not on the line");
        }
    }
    return problems;
}

std::vector<std::string> CompareTotals(const qb::TxnHeader& before, const qb::TxnHeader& after) {
    struct Total {
        const char* name;
        std::string qb::TxnHeader::*member;
    };
    static constexpr Total kTotals[] = {{"Subtotal", &qb::TxnHeader::subtotal},
                                        {"SalesTaxTotal", &qb::TxnHeader::salesTaxTotal},
                                        {"TotalAmount", &qb::TxnHeader::totalAmount},
                                        {"BalanceRemaining", &qb::TxnHeader::balanceRemaining}};
    std::vector<std::string> problems;
    for (const Total& t : kTotals)
        if (!SameValue(before.*t.member, after.*t.member))
            problems.push_back(std::string(t.name) + " was " + Shown(before.*t.member) +
                               " and is now " + Shown(after.*t.member));
    return problems;
}

std::vector<const qb::TxnLineField*> ModifiableLineFields(App& app, qb::TxnKind kind) {
    const qb::TxnKindInfo& k = qb::KindInfo(kind);
    std::vector<const qb::TxnLineField*> fields;
    if (!k.modRq) return fields;
    // A scratch modify of the session's version says which children its lines take.
    const qb::MsgSetRequest* set = qb::RequestSet(app);
    qb::MsgSetRequest scratch("US", set ? set->MajorVersion() : 7, set ? set->MinorVersion() : 0);
    qb::Node& mod = scratch.Append(k.modRq).Child(k.mod);
    qb::Node& line = mod.Append(k.lineMod);
    qb::Node& group = mod.Append(k.groupMod);
    auto takes = [](const qb::Node& node, const char* path) {
        if (!path) return false;
        const std::string_view p(path);
        return node.Supports(p.substr(0, p.find('/')));
    };
    for (const qb::TxnLineField& f : qb::TxnLineFields())
        if (f.Copied() && (takes(line, f.linePath) || takes(group, f.groupPath)))
            fields.push_back(&f);
    return fields;
}

std::vector<std::string> UnwritableFields(App& app, qb::TxnKind kind,
                                          const std::vector<qb::TxnLine>& table, std::size_t first,
                                          std::size_t count) {
    const qb::TxnKindInfo& k = qb::KindInfo(kind);
    const std::vector<const qb::TxnLineField*> writable = ModifiableLineFields(app, kind);
    auto head = [](const char* path) {
        return path ? std::string_view(path).substr(0, std::string_view(path).find('/'))
                    : std::string_view();
    };
    std::vector<std::string> problems;
    std::size_t shown = 0;
    for (std::size_t i = first; i < first + count && i < table.size(); ++i) {
        const qb::TxnLine& row = table[i];
        if (row.IsGroupEnd()) continue;
        ++shown;
        for (const qb::View& child : row.ret.Children()) {
            const std::string name = child.Name();
            if (name == "TxnLineID" || name == "DataExtRet" || name == k.lineRet) continue;
            const qb::TxnLineField* field = nullptr;
            for (const qb::TxnLineField& f : qb::TxnLineFields())
                if (head(row.IsGroup() ? f.groupPath : f.linePath) == name) field = &f;
            const bool takes =
                field && std::find(writable.begin(), writable.end(), field) != writable.end();
            // A group's description, print flag and total come from its group item and its
            // lines when QuickBooks makes it again; nothing invoiced yet links nothing.
            const std::string value = child.GetValue();
            const bool fromItem = row.IsGroup() && (name == "TotalAmount" || name == "Desc" ||
                                                    name == "IsPrintItemsInGroup");
            if (takes || fromItem || (name == "Invoiced" && LeadingNumber(value) == 0)) continue;
            problems.push_back(
                "line " + std::to_string(shown) + " (" +
                (row.itemFullName.empty() ? std::string("no item") : row.itemFullName) +
                "): " + name + (value.empty() ? "" : " " + value));
        }
    }
    return problems;
}

}  // namespace pelmark::sort
