// The item table, and the reader that fills it from a QuickBooks IIF export (Items.iif).
#include "app/items.h"

#include <algorithm>
#include <cctype>
#include <optional>

#include "app/context.h"
#include "app/logs.h"
#include "app/text.h"

namespace pelmark {
namespace {

struct KindCode {
    const char* code;
    int kind;
};
constexpr KindCode kKinds[] = {
    {"SERV", kItemService},        {"PART", kItemNonInventory}, {"OTHC", kItemOtherCharge},
    {"INVENTORY", kItemInventory}, {"ASSEMBLY", kItemAssembly}, {"SUBT", kItemSubtotal},
    {"DISC", kItemDiscount},       {"PMT", kItemPayment},       {"COMPTAX", kItemSalesTaxGroup},
    {"STAX", kItemSalesTax},       {"GRP", kItemGroup}};

int KindOf(const std::string& code) {
    std::string upper = Upper(code);
    for (const KindCode& k : kKinds)
        if (upper == k.code) return k.kind;
    return kItemUnset;
}

// One cell: trimmed, and unquoted when QuickBooks wrapped it in double quotes (it does so for
// cells that hold commas or quotes, writing a quote inside as two).
std::string Cell(std::string_view raw) {
    std::string cell = TrimWs(raw);
    if (cell.size() < 2 || cell.front() != '"' || cell.back() != '"') return cell;
    return ReplaceAll(cell.substr(1, cell.size() - 2), "\"\"", "\"");
}

std::vector<std::string> Cells(std::string_view line) {
    std::vector<std::string> cells;
    size_t start = 0;
    for (;;) {
        size_t tab = line.find('\t', start);
        cells.push_back(
            Cell(line.substr(start, tab == std::string_view::npos ? tab : tab - start)));
        if (tab == std::string_view::npos) return cells;
        start = tab + 1;
    }
}

// Column positions named by the latest !INVITEM header.
struct Columns {
    std::optional<size_t> name, type, desc, price, cost, taxCode;
    bool usable() const { return name && type; }
};

Columns ReadHeader(const std::vector<std::string>& cells) {
    Columns c;
    // QuickBooks repeats some column names (QNTY); the first of a name counts.
    auto find = [&](const char* wanted) -> std::optional<size_t> {
        for (size_t i = 1; i < cells.size(); ++i)
            if (EqualsNoCase(cells[i], wanted)) return i;
        return std::nullopt;
    };
    c.type = find("INVITEMTYPE");
    c.name = find("NAME");
    c.desc = find("DESC");
    c.price = find("PRICE");
    c.cost = find("COST");
    c.taxCode = find("SALESTAXCODE");
    return c;
}

// A row shorter than its header reads its missing cells as empty.
std::string At(const std::vector<std::string>& cells, const std::optional<size_t>& column) {
    return column && *column < cells.size() ? cells[*column] : std::string();
}

}  // namespace

bool NoCaseLess::operator()(const std::string& a, const std::string& b) const {
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return std::toupper(static_cast<unsigned char>(x)) <
               std::toupper(static_cast<unsigned char>(y));
    });
}

void ItemTable::Clear() {
    items.clear();
    upperBound = 0;
    salesTaxItems.clear();
    salesTaxGroups.clear();
}

void GrowItemTable(ItemTable& table, size_t first, size_t step) {
    table.upperBound = table.upperBound < first ? first : table.upperBound + step;
    // The bound grows by a fixed step; the storage itself grows at least geometrically, so
    // that filling a very large table does not copy it over and over.
    if (table.items.capacity() < table.upperBound)
        table.items.reserve(std::max(table.upperBound, table.items.capacity() * 2));
}

ItemRec& AddItem(ItemTable& table, ItemRec item) {
    if (table.items.size() >= table.upperBound) GrowItemTable(table, 1000, 2000);
    table.items.push_back(std::move(item));
    return table.items.back();
}

void ReadItemsIIF(App& app) {
    DebugLog(app, "Read Items IIF Entered ", 5);
    std::string path = app.folders.data + "Items.iif";
    FileSystem& fs = *app.sys.files;
    if (!fs.Exists(path)) {
        DebugLog(app, "File not found " + path, 3);
        return;
    }
    std::optional<std::string> text = fs.ReadAll(path);
    if (!text) {
        DebugLog(app, "Read Items IIF cannot read " + path, 1);
        return;
    }

    ItemTable& table = app.items;
    table.Clear();
    std::optional<Columns> columns;  // none until the first !INVITEM header
    size_t skipped = 0;
    bool reportedMissing = false;
    std::vector<std::string> lines = SplitLines(*text);
    text.reset();
    for (size_t n = 0; n < lines.size(); ++n) {
        const std::string& line = lines[n];
        // Only item rows and their headers matter; other lists are passed over unsplit.
        size_t firstEnd = line.find('\t');
        std::string first = Upper(Cell(std::string_view(line).substr(0, firstEnd)));
        if (first == "!INVITEM") {
            columns = ReadHeader(Cells(line));
            std::string missing;
            for (auto [found, name] : {std::pair{columns->name.has_value(), "NAME"},
                                       {columns->type.has_value(), "INVITEMTYPE"},
                                       {columns->desc.has_value(), "DESC"},
                                       {columns->price.has_value(), "PRICE"}}) {
                if (!found) missing += (missing.empty() ? "" : ", ") + std::string(name);
            }
            // Asked once per file: a second header with the same gap adds nothing.
            if (!missing.empty() && !reportedMissing) {
                reportedMissing = true;
                DoErrorsNoReturn(app,
                                 "INFO\tCould not find all iif fields: the header on line " +
                                     std::to_string(n + 1) + " of " + path + " has no " + missing +
                                     " column",
                                 kContinueOrTerminate);
            }
            continue;
        }
        if (first != "INVITEM") continue;
        if (!columns) {
            DebugLog(app, "Read Items IIF item before any header, line " + std::to_string(n + 1),
                     3);
            continue;
        }
        if (!columns->usable()) {
            ++skipped;
            continue;
        }
        std::vector<std::string> cells = Cells(line);
        ItemRec item;
        item.fullName = At(cells, columns->name);
        if (item.fullName.empty()) {
            ++skipped;
            continue;
        }
        std::vector<std::string> pieces = Split(item.fullName, ':');
        item.name = pieces.back();
        item.depth = static_cast<int>(pieces.size());
        std::string code = At(cells, columns->type);
        item.kind = KindOf(code);
        item.desc = At(cells, columns->desc);
        item.price = At(cells, columns->price);
        item.cost = At(cells, columns->cost);
        item.salesTaxCode = At(cells, columns->taxCode);
        size_t index = table.items.size();
        if (item.kind == kItemSalesTaxGroup) table.salesTaxGroups.emplace(item.fullName, index);
        if (item.kind == kItemSalesTax) table.salesTaxItems.emplace(item.fullName, index);
        AddItem(table, std::move(item));
    }
    if (skipped > 0)
        DebugLog(app, "Read Items IIF skipped " + std::to_string(skipped) + " items", 3);
    DebugLog(app, "Read Items IIF Exit " + std::to_string(table.count()), 5);
}

}  // namespace pelmark
