// Finding a sales transaction in a company file by its number, and its lines as a text table.
#include "sim/show.h"

#include <algorithm>
#include <cctype>
#include <vector>

namespace pelmark::sim {

namespace {

std::string Squeezed(std::string_view text) {
    std::string out;
    for (char c : text)
        if (c != ' ') out += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

// Characters, not bytes, so that names with accents keep the columns straight.
std::size_t Width(const std::string& s) {
    return static_cast<std::size_t>(
        std::count_if(s.begin(), s.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

// The text on one line, cut to `width` characters with "..." at the cut.
std::string Cell(std::string text, std::size_t width) {
    for (char& c : text)
        if (c == '\n' || c == '\r' || c == '\t') c = ' ';
    --width;  // one blank between the columns
    if (Width(text) > width) {
        std::string cut;
        std::size_t n = 0;
        for (char c : text) {
            if ((c & 0xC0) != 0x80 && ++n > width - 3) break;
            cut += c;
        }
        text = cut + "...";
    }
    return text + std::string(width > Width(text) ? width - Width(text) : 0, ' ');
}

struct Row {
    std::string no, item, desc, qty, rate, amount, cls, tax, custom;
};

Row LineRow(pugi::xml_node line, const std::string& no, bool inGroup) {
    Row r;
    r.no = no;
    const std::string indent = inGroup ? "  " : "";
    const bool group = std::string_view(line.name()).find("Group") != std::string_view::npos;
    r.item = indent + FullNameOf(line.child(group ? "ItemGroupRef" : "ItemRef"));
    if (group) r.item = "[" + r.item + "]";
    r.desc = ChildText(line, "Desc");
    r.qty = ChildText(line, "Quantity");
    r.rate = ChildText(line, "Rate");
    if (r.rate.empty() && line.child("RatePercent")) r.rate = ChildText(line, "RatePercent") + "%";
    r.amount = ChildText(line, group ? "TotalAmount" : "Amount");
    r.cls = FullNameOf(line.child("ClassRef"));
    r.tax = FullNameOf(line.child("SalesTaxCodeRef"));
    for (pugi::xml_node ext : line.children("DataExtRet")) {
        if (!r.custom.empty()) r.custom += "; ";
        r.custom += ChildText(ext, "DataExtName") + "=" + ChildText(ext, "DataExtValue");
    }
    return r;
}

}  // namespace

std::string SalesKindName(std::string_view text) {
    const std::string want = Squeezed(text);
    for (std::string_view kind : kTxnKinds)
        if (Squeezed(kind) == want) return std::string(kind);
    return {};
}

std::optional<TxnRef> FindSalesTxn(const Company& company, std::string_view ref,
                                   std::string_view kind) {
    const std::string only = kind.empty() ? "" : SalesKindName(kind);
    if (!kind.empty() && only.empty()) return std::nullopt;
    for (std::string_view k : kTxnKinds) {
        if (!only.empty() && only != k) continue;
        for (pugi::xml_node txn : company.Objects(std::string(k) + "Ret")) {
            const std::string number = ChildText(txn, "RefNumber");
            if (ref.empty() || number == ref)
                return TxnRef{std::string(k), ChildText(txn, "TxnID"), number};
        }
    }
    return std::nullopt;
}

std::string TxnTable(const Company& company, const TxnRef& ref) {
    pugi::xml_node txn = company.FindTxn(ref.kind, ref.txnID);
    if (!txn) return ref.kind + " " + ref.refNumber + ": not in the company file\n";
    const std::string lineRet = ref.kind + "LineRet", groupRet = ref.kind + "LineGroupRet";
    std::vector<Row> rows;
    int n = 0;
    for (pugi::xml_node line : txn.children()) {
        const std::string name = line.name();
        if (name != lineRet && name != groupRet) continue;
        rows.push_back(LineRow(line, std::to_string(++n), false));
        if (name != groupRet) continue;
        int m = 0;
        for (pugi::xml_node member : line.children(lineRet.c_str()))
            rows.push_back(LineRow(member, std::to_string(n) + "." + std::to_string(++m), true));
    }
    std::string out = ref.kind + " " + ChildText(txn, "RefNumber") + "  " +
                      FullNameOf(txn.child("CustomerRef")) + "  " + ChildText(txn, "TxnDate") +
                      "\n";
    const Row head{"#", "Item", "Description", "Qty", "Rate", "Amount", "Class", "Tax", "Custom"};
    auto line = [&](const Row& r) {
        out += Cell(r.no, 5) + Cell(r.item, 24) + Cell(r.desc, 32) + Cell(r.qty, 7) +
               Cell(r.rate, 9) + Cell(r.amount, 10) + Cell(r.cls, 10) + Cell(r.tax, 5) + r.custom;
        while (!out.empty() && out.back() == ' ') out.pop_back();
        out += "\n";
    };
    line(head);
    for (const Row& r : rows) line(r);
    const std::string subtotal = ChildText(txn, "Subtotal"), tax = ChildText(txn, "SalesTaxTotal");
    const std::string total = ChildText(txn, "TotalAmount");
    out +=
        "Subtotal " + subtotal + "  Tax " + tax + (total.empty() ? "" : "  Total " + total) + "\n";
    return out;
}

}  // namespace pelmark::sim
