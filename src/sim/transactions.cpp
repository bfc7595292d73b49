// qbsim's sales transactions: queries, Mod and Add of invoices, estimates, sales orders and sales
// receipts, and the request to display one, answered the way QuickBooks answers them.
//
// The four kinds share every rule; they differ only in element names and element order, which
// the table kKindTexts holds. What QuickBooks does where Intuit's documentation is silent is
// written down where qbsim decides it ("qbsim assumes ...").
#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "sim/answer.h"

namespace pelmark::sim::detail {

namespace {

// ---- The four kinds ---------------------------------------------------------------------

// Element names and their position, from Intuit's qbXML references (7.0, and 13.0 for the line
// fields of later versions: InventorySiteRef 10.0, SerialNumber and LotNumber 11.0,
// InventorySiteLocationRef 12.0). Elements of the same rank are alternatives or repeat together
// (lines and line groups). Answers are put in their version's order again when they are sent.
using Order = std::map<std::string, int, std::less<>>;

struct KindText {
    const char* name;
    const char* header;   // the Ret's children; "*" is where the lines and line groups stand
    const char* line;     // the line Ret's children
    const char* newTxn;   // what QuickBooks writes on a new transaction: "Element=value ..."
    const char* newLine;  // ... and on a new line with an item
};

constexpr KindText kKindTexts[] = {
    {"Invoice",
     "TxnID TimeCreated TimeModified EditSequence TxnNumber CustomerRef ClassRef ARAccountRef "
     "TemplateRef TxnDate RefNumber BillAddress BillAddressBlock ShipAddress ShipAddressBlock "
     "IsPending IsFinanceCharge PONumber TermsRef DueDate SalesRepRef FOB ShipDate ShipMethodRef "
     "Subtotal ItemSalesTaxRef SalesTaxPercentage SalesTaxTotal AppliedAmount BalanceRemaining "
     "Memo IsPaid CustomerMsgRef IsToBePrinted IsToBeEmailed IsTaxIncluded "
     "CustomerSalesTaxCodeRef SuggestedDiscountAmount SuggestedDiscountDate Other LinkedTxn * "
     "DiscountLineRet SalesTaxLineRet ShippingLineRet DataExtRet",
     "TxnLineID ItemRef Desc Quantity UnitOfMeasure OverrideUOMSetRef Rate RatePercent ClassRef "
     "Amount InventorySiteRef InventorySiteLocationRef SerialNumber LotNumber ServiceDate "
     "SalesTaxCodeRef IsTaxable Other1 Other2 DataExtRet",
     "IsPending=false IsFinanceCharge=false AppliedAmount=0.00 IsPaid=false IsToBePrinted=false "
     "IsToBeEmailed=false",
     ""},
    {"Estimate",
     "TxnID TimeCreated TimeModified EditSequence TxnNumber CustomerRef ClassRef TemplateRef "
     "TxnDate RefNumber BillAddress BillAddressBlock ShipAddress ShipAddressBlock IsActive "
     "PONumber TermsRef DueDate SalesRepRef FOB Subtotal ItemSalesTaxRef SalesTaxPercentage "
     "SalesTaxTotal TotalAmount Memo CustomerMsgRef IsToBeEmailed IsTaxIncluded "
     "CustomerSalesTaxCodeRef Other LinkedTxn * DataExtRet",
     "TxnLineID ItemRef Desc Quantity UnitOfMeasure OverrideUOMSetRef Rate RatePercent ClassRef "
     "Amount InventorySiteRef InventorySiteLocationRef SalesTaxCodeRef MarkupRate "
     "MarkupRatePercent Other1 Other2 DataExtRet",
     "IsActive=true IsToBeEmailed=false", ""},
    {"SalesOrder",
     "TxnID TimeCreated TimeModified EditSequence TxnNumber CustomerRef ClassRef TemplateRef "
     "TxnDate RefNumber BillAddress BillAddressBlock ShipAddress ShipAddressBlock PONumber "
     "TermsRef DueDate SalesRepRef FOB ShipDate ShipMethodRef Subtotal ItemSalesTaxRef "
     "SalesTaxPercentage SalesTaxTotal TotalAmount IsManuallyClosed IsFullyInvoiced Memo "
     "CustomerMsgRef IsToBePrinted IsToBeEmailed IsTaxIncluded CustomerSalesTaxCodeRef Other "
     "LinkedTxn * DataExtRet",
     "TxnLineID ItemRef Desc Quantity UnitOfMeasure OverrideUOMSetRef Rate RatePercent ClassRef "
     "Amount InventorySiteRef InventorySiteLocationRef SerialNumber LotNumber SalesTaxCodeRef "
     "Invoiced IsManuallyClosed Other1 Other2 DataExtRet",
     "IsManuallyClosed=false IsFullyInvoiced=false IsToBePrinted=false IsToBeEmailed=false",
     "Invoiced=0 IsManuallyClosed=false"},
    {"SalesReceipt",
     "TxnID TimeCreated TimeModified EditSequence TxnNumber CustomerRef ClassRef TemplateRef "
     "TxnDate RefNumber BillAddress BillAddressBlock ShipAddress ShipAddressBlock IsPending "
     "CheckNumber PaymentMethodRef DueDate SalesRepRef ShipDate ShipMethodRef FOB Subtotal "
     "ItemSalesTaxRef SalesTaxPercentage SalesTaxTotal TotalAmount Memo CustomerMsgRef "
     "IsToBePrinted IsToBeEmailed IsTaxIncluded CustomerSalesTaxCodeRef DepositToAccountRef "
     "CreditCardTxnInfo Other * DiscountLineRet SalesTaxLineRet ShippingLineRet DataExtRet",
     "TxnLineID ItemRef Desc Quantity UnitOfMeasure OverrideUOMSetRef Rate RatePercent ClassRef "
     "Amount InventorySiteRef InventorySiteLocationRef SerialNumber LotNumber ServiceDate "
     "SalesTaxCodeRef IsTaxable Other1 Other2 CreditCardTxnInfo DataExtRet",
     "IsPending=false IsToBePrinted=false IsToBeEmailed=false", ""},
};

// Line groups look alike in all four kinds; "*" is where the group's lines stand.
constexpr const char* kGroupText =
    "TxnLineID ItemGroupRef Desc Quantity UnitOfMeasure OverrideUOMSetRef IsPrintItemsInGroup "
    "TotalAmount ServiceDate * DataExtRet";

struct Kind {
    std::string name;              // "Invoice"
    std::string ret, line, group;  // "InvoiceRet", "InvoiceLineRet", "InvoiceLineGroupRet"
    Order header, lineOrder, groupOrder;
    std::vector<std::pair<std::string, std::string>> newTxn, newLine;
};

std::vector<std::string> Words(std::string_view text) {
    std::vector<std::string> out;
    for (std::size_t at = 0; at < text.size();) {
        std::size_t end = text.find(' ', at);
        if (end == std::string_view::npos) end = text.size();
        if (end > at) out.emplace_back(text.substr(at, end - at));
        at = end + 1;
    }
    return out;
}

Order MakeOrder(std::string_view text, const std::vector<std::string>& atStar) {
    Order order;
    int rank = 0;
    for (const std::string& w : Words(text)) {
        ++rank;
        if (w == "*") {
            for (const std::string& s : atStar) order.emplace(s, rank);
        } else {
            order.emplace(w, rank);
        }
    }
    return order;
}

std::vector<std::pair<std::string, std::string>> Assignments(std::string_view text) {
    std::vector<std::pair<std::string, std::string>> out;
    for (const std::string& w : Words(text)) {
        auto eq = w.find('=');
        out.emplace_back(w.substr(0, eq), w.substr(eq + 1));
    }
    return out;
}

const std::vector<Kind>& Kinds() {
    static const std::vector<Kind> kinds = [] {
        std::vector<Kind> out;
        for (const KindText& t : kKindTexts) {
            Kind k;
            k.name = t.name;
            k.ret = k.name + "Ret";
            k.line = k.name + "LineRet";
            k.group = k.name + "LineGroupRet";
            k.header = MakeOrder(t.header, {k.line, k.group});
            k.lineOrder = MakeOrder(t.line, {});
            k.groupOrder = MakeOrder(kGroupText, {k.line});
            k.newTxn = Assignments(t.newTxn);
            k.newLine = Assignments(t.newLine);
            out.push_back(std::move(k));
        }
        return out;
    }();
    return kinds;
}

// ---- Statuses of transaction requests ---------------------------------------------------

// Only the form of QuickBooks' 3290 message is known; qbsim assumes it names the TxnLineID.
Status IncorrectOrder(const std::string& txnLineID) {
    return {
        3290, "The item \"" + txnLineID + "\" is placed in the request in incorrect order.", {}};
}
// `where` is the transaction kind, or the kind and " line" for a line's reference.
Status InvalidReference(std::string_view list, const std::string& name, const std::string& where) {
    return {3140,
            "There is an invalid reference to QuickBooks " + std::string(list) + " \"" + name +
                "\" in the " + where +
                ".  QuickBooks error message: Invalid argument.  The specified record does not "
                "exist in the list.",
            {}};
}
Status StaleEditSequence(const std::string& sequence) {
    // The trailing blank is QuickBooks' own.
    return {3200, "The provided edit sequence \"" + sequence + "\" is out-of-date. ", {}};
}
Status InvalidDateRange() {
    return {3030, "Invalid date range: From date is greater than To date.", {}};
}
Status UnsupportedEnum(const std::string& value, const std::string& field) {
    return {531,
            "The enum value \"" + value + "\" in the field \"" + field +
                "\" is not supported by this implementation.",
            {}};
}

// ---- Elements, money and numbers --------------------------------------------------------

bool Is(pugi::xml_node node, const std::string& name) {
    return name == node.name();
}

// The child `name` of `parent`, made where `order` puts it when absent. Elements `order` does not
// know (pasted from a newer QuickBooks) are stepped over.
pugi::xml_node Place(pugi::xml_node parent, const std::string& name, const Order& order) {
    if (pugi::xml_node c = parent.child(name.c_str())) return c;
    auto at = order.find(name);
    const int rank = at == order.end() ? INT_MAX : at->second;
    for (pugi::xml_node c : Elements(parent)) {
        auto r = order.find(std::string_view(c.name()));
        if (r != order.end() && r->second > rank)
            return parent.insert_child_before(name.c_str(), c);
    }
    return parent.append_child(name.c_str());
}

void SetText(pugi::xml_node parent, const std::string& name, const std::string& value,
             const Order& order) {
    Place(parent, name, order).text().set(value.c_str());
}

// The element before which lines go: the first that follows them in `order`.
pugi::xml_node LineAnchor(pugi::xml_node parent, const Order& order, const std::string& line) {
    const int rank = order.at(line);
    for (pugi::xml_node c : Elements(parent)) {
        auto r = order.find(std::string_view(c.name()));
        if (r != order.end() && r->second > rank) return c;
    }
    return {};
}

using Cents = long long;

double Number(std::string_view text) {
    return std::strtod(std::string(text).c_str(), nullptr);
}

// QuickBooks rounds half a cent away from zero; the nudge keeps products such as 2.675 x 1, which
// binary floating point holds as 2.67499..., on the side they are written on.
Cents RoundCents(double units) {
    return std::llround(units * 100.0 + (units < 0 ? -1e-7 : 1e-7));
}

Cents ParseCents(std::string_view text) {
    return RoundCents(Number(text));
}

std::string Money(Cents cents) {
    char text[32];
    const unsigned long long magnitude = cents < 0 ? 0ULL - static_cast<unsigned long long>(cents)
                                                   : static_cast<unsigned long long>(cents);
    std::snprintf(text, sizeof text, "%s%llu.%02llu", cents < 0 ? "-" : "", magnitude / 100,
                  magnitude % 100);
    return text;
}

// A computed rate or quantity: up to five decimals, without trailing zeros ("2.8"), as
// QuickBooks writes a rate it worked out.
std::string Decimal(double value) {
    char text[48];
    std::snprintf(text, sizeof text, "%.5f", value);
    std::string s = text;
    while (s.back() == '0') s.pop_back();
    if (s.back() == '.') s.pop_back();
    return s == "-0" ? "0" : s;
}

std::string Percent(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.2f", value);
    return text;
}

bool AllDigits(std::string_view s) {
    return !s.empty() &&
           std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// ---- References to list objects ---------------------------------------------------------

struct RefList {
    std::string_view ref;
    std::vector<std::string_view> rets;
    std::string_view listName;  // as QuickBooks' 3140 message names the list
    bool clearable;             // an empty reference clears it; otherwise it is left as it was
};

const std::vector<RefList>& RefLists() {
    static const std::vector<RefList> lists = {
        {"CustomerRef", {"CustomerRet"}, "Customer", false},
        {"ClassRef", {"ClassRet"}, "Class", true},
        {"ARAccountRef", {"AccountRet"}, "Account", false},
        {"DepositToAccountRef", {"AccountRet"}, "Account", false},
        {"TemplateRef", {"TemplateRet"}, "Template", false},
        {"TermsRef", {"StandardTermsRet", "DateDrivenTermsRet"}, "Terms", true},
        {"SalesRepRef", {"SalesRepRet"}, "SalesRep", true},
        {"ShipMethodRef", {"ShipMethodRet"}, "ShipMethod", true},
        {"ItemSalesTaxRef", {"ItemSalesTaxRet", "ItemSalesTaxGroupRet"}, "ItemSalesTax", true},
        {"CustomerMsgRef", {"CustomerMsgRet"}, "CustomerMsg", true},
        {"CustomerSalesTaxCodeRef", {"SalesTaxCodeRet"}, "SalesTaxCode", true},
        {"PaymentMethodRef", {"PaymentMethodRet"}, "PaymentMethod", true},
        {"OverrideUOMSetRef", {"UnitOfMeasureSetRet"}, "UnitOfMeasureSet", true},
        // Intuit: ItemRef, SalesTaxCodeRef and the other line amounts cannot be cleared once
        // sent; qbsim assumes QuickBooks keeps the value an empty reference would clear.
        {"SalesTaxCodeRef", {"SalesTaxCodeRet"}, "SalesTaxCode", false},
        {"ItemRef", {std::begin(kItemRets), std::end(kItemRets)}, "Item", false},
        {"ItemGroupRef", {"ItemGroupRet"}, "ItemGroup", false},
    };
    return lists;
}

const RefList* FindRefList(std::string_view ref) {
    for (const RefList& l : RefLists()) {
        if (l.ref == ref) return &l;
    }
    return nullptr;
}

// The object a reference names, by ListID or else by full name; a stored ListID that is not in
// the list (pasted from another company) falls back to the name.
pugi::xml_node Referenced(const Company& company, pugi::xml_node ref,
                          const std::vector<std::string_view>& rets) {
    if (!ref) return {};
    const std::string id = ChildText(ref, "ListID");
    pugi::xml_node found = id.empty() ? pugi::xml_node() : company.FindByListID(rets, id);
    if (!found) found = company.FindByFullName(rets, ChildText(ref, "FullName"));
    return found;
}

pugi::xml_node ItemOf(const Company& company, pugi::xml_node line) {
    static const std::vector<std::string_view> items(std::begin(kItemRets), std::end(kItemRets));
    return Referenced(company, line.child("ItemRef"), items);
}

bool IsSubtotal(pugi::xml_node item) {
    return std::string_view(item.name()) == "ItemSubtotalRet";
}

// Copies a reference of the request into `into`, filled in from the list: ListID and FullName as
// QuickBooks returns them. A reference to a list the company holds nothing of is taken as sent,
// since qbsim does not model every list.
std::optional<Status> SetRef(const Company& company, pugi::xml_node ref, pugi::xml_node into,
                             const Order& order, const std::string& where,
                             pugi::xml_node* object = nullptr) {
    const std::string name = ref.name();
    std::string id = ChildText(ref, "ListID"), fullName = ChildText(ref, "FullName");
    const RefList* list = FindRefList(name);
    if (id.empty() && fullName.empty()) {
        if (!list || list->clearable) into.remove_child(name.c_str());
        return std::nullopt;
    }
    pugi::xml_node found;
    if (list) {
        found = id.empty() ? company.FindByFullName(list->rets, fullName)
                           : company.FindByListID(list->rets, id);
        const bool modelled =
            found || std::any_of(list->rets.begin(), list->rets.end(),
                                 [&](std::string_view r) { return !company.Objects(r).empty(); });
        if (modelled && !found) {
            return InvalidReference(list->listName, id.empty() ? fullName : id, where);
        }
        if (found) {
            id = ChildText(found, "ListID");
            fullName = FullNameOf(found);
        }
    }
    pugi::xml_node out = Place(into, name, order);
    out.remove_children();
    if (!id.empty()) out.append_child("ListID").text().set(id.c_str());
    if (!fullName.empty()) out.append_child("FullName").text().set(fullName.c_str());
    if (object) *object = found;
    return std::nullopt;
}

// ---- Building a transaction -------------------------------------------------------------

// What a request said of one line, which decides what QuickBooks works out for it.
struct Given {
    bool fresh = false;  // a new line: whatever the request leaves out is filled in
    bool quantity = false, rate = false, amount = false;
};

// One Mod or Add while it is built on a copy of the transaction. Nothing in the company changes
// until the whole request has been checked, so a failed request leaves the transaction as it was.
struct Edit {
    Context& ctx;
    const Kind& kind;
    pugi::xml_node txn;     // the copy being built
    pugi::xml_node before;  // the stored transaction (Mod), or nothing (Add)
    std::map<const void*, Given> given;
    std::vector<pugi::xml_node> fresh;  // new lines and groups, to be numbered in this order

    Given& Of(pugi::xml_node n) { return given[n.internal_object()]; }
    Given Find(pugi::xml_node n) const {
        auto it = given.find(n.internal_object());
        return it == given.end() ? Given{} : it->second;
    }
};

std::string SalesDesc(pugi::xml_node item) {
    for (const char* path :
         {"SalesOrPurchase/Desc", "SalesAndPurchase/SalesDesc", "SalesDesc", "ItemDesc"}) {
        if (pugi::xml_node d = item.first_element_by_path(path)) return d.text().get();
    }
    return {};
}

std::string SalesPrice(pugi::xml_node item) {
    for (const char* path :
         {"SalesOrPurchase/Price", "SalesAndPurchase/SalesPrice", "SalesPrice"}) {
        if (pugi::xml_node p = item.first_element_by_path(path)) return p.text().get();
    }
    return {};
}

// What QuickBooks fills in on a new line from its item: the description, the tax code, the price
// (a discount item's rate, negative), and the kind's own line fields.
void FillFromItem(Edit& e, pugi::xml_node line, pugi::xml_node item, const Given& g) {
    if (!item) return;
    const Order& order = e.kind.lineOrder;
    if (!line.child("Desc")) {
        std::string desc = SalesDesc(item);
        if (!desc.empty()) SetText(line, "Desc", desc, order);
    }
    if (!line.child("SalesTaxCodeRef")) {
        if (pugi::xml_node code = item.child("SalesTaxCodeRef")) {
            Place(line, "SalesTaxCodeRef", order).remove_children();
            for (pugi::xml_node c : Elements(code)) line.child("SalesTaxCodeRef").append_copy(c);
        }
    }
    if (!g.rate && !g.amount && !IsSubtotal(item)) {
        if (pugi::xml_node pct = item.child("DiscountRatePercent")) {
            SetText(line, "RatePercent", Percent(-Number(pct.text().get())), order);
        } else if (pugi::xml_node rate = item.child("DiscountRate")) {
            SetText(line, "Rate", Percent(-Number(rate.text().get())), order);
        } else if (std::string price = SalesPrice(item); !price.empty()) {
            SetText(line, "Rate", price, order);
        }
    }
    for (const auto& [name, value] : e.kind.newLine) {
        if (!line.child(name.c_str())) SetText(line, name, value, order);
    }  // The item's custom-field values (OwnerID 0) come with it: "custom fields can be inherited
    // by transactions from the customer and the item" (Intuit's data-extension overview, QuickBooks
    // SDK Programmer's Guide). A value the request itself gave the line stays. DataExtRet is the
    // last element of a line.
    for (pugi::xml_node ext : item.children("DataExtRet")) {
        const std::string owner = ChildText(ext, "OwnerID");
        if (!owner.empty() && owner != "0") continue;
        const std::string name = ChildText(ext, "DataExtName");
        bool has = false;
        for (pugi::xml_node own : line.children("DataExtRet"))
            has |= Upper(ChildText(own, "DataExtName")) == Upper(name);
        if (!has) line.append_copy(ext);
    }
    OrderDataExts(e.ctx.company, line);
}

// Applies the fields a line (or group) request gives. An empty text field clears the field.
std::optional<Status> ApplyLine(Edit& e, pugi::xml_node req, pugi::xml_node line, bool group,
                                pugi::xml_node* item) {
    const Order& order = group ? e.kind.groupOrder : e.kind.lineOrder;
    Given& g = e.Of(line);
    for (pugi::xml_node field : Elements(req)) {
        const std::string name = field.name();
        // Request elements the Ret does not carry (PriceLevelRef, OverrideItemAccountRef,
        // LinkToTxn, a group's lines) are not stored; qbsim does not model price levels.
        if (name == "TxnLineID" || !order.count(name)) continue;
        if (name.size() > 3 && name.compare(name.size() - 3, 3, "Ref") == 0) {
            pugi::xml_node found;
            if (auto failed =
                    SetRef(e.ctx.company, field, line, order, e.kind.name + " line", &found)) {
                return failed;
            }
            if (name == "ItemRef" || name == "ItemGroupRef") *item = found;
            continue;
        }
        std::string value = field.text().get();
        if (value.empty()) {
            line.remove_child(name.c_str());
            continue;
        }
        if (name == "Amount") value = Money(ParseCents(value));
        SetText(line, name, value, order);
        // Rate and RatePercent (and the estimate's markups) are alternatives.
        for (auto [a, b] :
             {std::pair{"Rate", "RatePercent"}, {"MarkupRate", "MarkupRatePercent"}}) {
            if (name == a) line.remove_child(b);
            if (name == b) line.remove_child(a);
        }
        g.quantity |= name == "Quantity";
        g.rate |= name == "Rate" || name == "RatePercent";
        g.amount |= name == "Amount";
    }
    return std::nullopt;
}

// Custom fields on a new line (DataExt of a line Add): the definition must exist for the owner
// and apply to lines (assigned to items, or to the transaction kind).
std::optional<Status> AddDataExts(Edit& e, pugi::xml_node req, pugi::xml_node line) {
    for (pugi::xml_node ext : req.children("DataExt")) {
        const std::string owner = Upper(ChildText(ext, "OwnerID"));
        const std::string name = ChildText(ext, "DataExtName");
        pugi::xml_node def = FindDefinition(e.ctx.company, owner, name);
        bool applies = false;
        for (pugi::xml_node to : def.children("AssignToObject")) {
            std::string_view assigned = to.text().get();
            applies |= assigned == "Item" || assigned == e.kind.name;
        }
        if (!def || !applies) return ObjectNotFound(name);
        pugi::xml_node ret = line.append_child("DataExtRet");  // last in every line and group
        ret.append_child("OwnerID").text().set(owner.c_str());
        ret.append_child("DataExtName").text().set(ChildText(def, "DataExtName").c_str());
        ret.append_child("DataExtType").text().set(ChildText(def, "DataExtType").c_str());
        ret.append_child("DataExtValue").text().set(ChildText(ext, "DataExtValue").c_str());
    }
    OrderDataExts(e.ctx.company, line);
    return std::nullopt;
}

void RemoveLines(Edit& e, pugi::xml_node parent) {
    for (pugi::xml_node c : Elements(parent)) {
        if (Is(c, e.kind.line) || Is(c, e.kind.group)) parent.remove_child(c);
    }
}

std::optional<Status> BuildGroup(Edit& e, std::string_view verb, pugi::xml_node req,
                                 pugi::xml_node oldGroup, pugi::xml_node group,
                                 pugi::xml_node itemGroup);

// Makes the lines a request lists under `newParent` (the transaction, or a group), from the old
// lines of `oldParent`. TxnLineID -1 (or none, in an Add) is a new line; an old line keeps its
// fields unless the request changes them; an old line the request does not list is gone; old
// lines must be listed in the order they stand (3290).
std::optional<Status> BuildList(Edit& e, std::string_view verb, pugi::xml_node req,
                                pugi::xml_node oldParent, pugi::xml_node newParent, bool top) {
    const std::string lineReq = e.kind.name + "Line" + std::string(verb);
    const std::string groupReq = e.kind.name + "LineGroup" + std::string(verb);
    std::vector<pugi::xml_node> old;
    for (pugi::xml_node c : Elements(oldParent)) {
        if (Is(c, e.kind.line) || Is(c, e.kind.group)) old.push_back(c);
    }
    const pugi::xml_node anchor =
        LineAnchor(newParent, top ? e.kind.header : e.kind.groupOrder, e.kind.line);
    std::size_t next = 0;
    for (pugi::xml_node r : Elements(req)) {
        const bool isGroup = Is(r, groupReq);
        if (!isGroup && !Is(r, lineReq)) continue;
        const std::string& element = isGroup ? e.kind.group : e.kind.line;
        pugi::xml_node id = r.child("TxnLineID");
        pugi::xml_node node, oldNode;
        if (!id || std::string_view(id.text().get()) == "-1") {
            node = anchor ? newParent.insert_child_before(element.c_str(), anchor)
                          : newParent.append_child(element.c_str());
            node.append_child("TxnLineID");  // numbered once the whole request stands
            e.fresh.push_back(node);
            e.Of(node).fresh = true;
        } else {
            const std::string lineID = id.text().get();
            if (lineID.empty()) return InvalidObjectID(lineID, "txn line id");
            auto at = std::find_if(old.begin(), old.end(), [&](pugi::xml_node o) {
                return Is(o, element) && ChildText(o, "TxnLineID") == lineID;
            });
            if (at == old.end()) {
                // A line of the transaction listed in or out of a group it does not stand in
                // is moved, which QuickBooks refuses like any other move.
                if (Company::FindTxnLine(e.before, lineID)) return IncorrectOrder(lineID);
                return ObjectNotFound(lineID);
            }
            const auto k = static_cast<std::size_t>(at - old.begin());
            if (k < next) return IncorrectOrder(lineID);
            next = k + 1;
            oldNode = *at;
            node = anchor ? newParent.insert_copy_before(oldNode, anchor)
                          : newParent.append_copy(oldNode);
        }
        pugi::xml_node item;
        if (auto failed = ApplyLine(e, r, node, isGroup, &item)) return failed;
        if (auto failed = AddDataExts(e, r, node)) return failed;
        if (isGroup) {
            if (auto failed = BuildGroup(e, verb, r, oldNode, node, item)) return failed;
        } else if (e.Of(node).fresh) {
            FillFromItem(e, node, item, e.Of(node));
        }
    }
    return std::nullopt;
}

// A new group's lines are those the request lists or, when it lists none, the item group's own
// lines (qbsim assumes QuickBooks expands the item group as it does on an Add). An old group
// keeps its lines unless the request lists some; qbsim does not rescale an old group's lines when
// a Mod changes the group's Quantity.
std::optional<Status> BuildGroup(Edit& e, std::string_view verb, pugi::xml_node req,
                                 pugi::xml_node oldGroup, pugi::xml_node group,
                                 pugi::xml_node itemGroup) {
    const Order& order = e.kind.groupOrder;
    const bool listsLines =
        static_cast<bool>(req.child((e.kind.name + "Line" + std::string(verb)).c_str()));
    if (!e.Of(group).fresh) {
        if (!listsLines) return std::nullopt;
        RemoveLines(e, group);
        return BuildList(e, verb, req, oldGroup, group, false);
    }
    if (!group.child("ItemGroupRef"))
        return InvalidReference("ItemGroup", "", e.kind.name + " line");
    if (!itemGroup)
        itemGroup = Referenced(e.ctx.company, group.child("ItemGroupRef"), {"ItemGroupRet"});
    if (!group.child("Desc") && itemGroup.child("ItemDesc")) {
        SetText(group, "Desc", ChildText(itemGroup, "ItemDesc"), order);
    }
    // A group sent without Quantity is stored without it (Quantity is "opt" in every
    // ...LineGroupRet of Intuit's references); its item group is expanded once.
    std::string print = ChildText(itemGroup, "IsPrintItemsInGroup");
    SetText(group, "IsPrintItemsInGroup", print.empty() ? "false" : print, order);
    if (listsLines) return BuildList(e, verb, req, {}, group, false);

    const double times = group.child("Quantity") ? Number(ChildText(group, "Quantity")) : 1.0;
    const pugi::xml_node anchor = LineAnchor(group, order, e.kind.line);
    static const std::vector<std::string_view> items(std::begin(kItemRets), std::end(kItemRets));
    for (pugi::xml_node part : itemGroup.children("ItemGroupLine")) {
        pugi::xml_node item = Referenced(e.ctx.company, part.child("ItemRef"), items);
        if (!item) {
            return InvalidReference("Item", ChildText(part.child("ItemRef"), "FullName"),
                                    e.kind.name + " line");
        }
        pugi::xml_node line = anchor ? group.insert_child_before(e.kind.line.c_str(), anchor)
                                     : group.append_child(e.kind.line.c_str());
        line.append_child("TxnLineID");
        e.fresh.push_back(line);
        Given& g = e.Of(line);
        g.fresh = true;
        pugi::xml_node ref = line.append_child("ItemRef");
        ref.append_child("ListID").text().set(ChildText(item, "ListID").c_str());
        ref.append_child("FullName").text().set(FullNameOf(item).c_str());
        if (pugi::xml_node q = part.child("Quantity")) {
            SetText(line, "Quantity", Decimal(Number(q.text().get()) * times), e.kind.lineOrder);
        }
        FillFromItem(e, line, item, g);
    }
    return std::nullopt;
}

// Header fields of a Mod or Add: references filled in from their lists, addresses merged field
// by field, an empty text field cleared. Request elements the Ret does not carry
// (CreateChangeOrder, LinkToTxnID) are not stored, and qbsim does not rewrite the printed
// address blocks (BillAddressBlock, ShipAddressBlock) when an address changes.
std::optional<Status> ApplyHeader(Edit& e, pugi::xml_node body) {
    const Order& order = e.kind.header;
    for (pugi::xml_node field : Elements(body)) {
        const std::string name = field.name();
        if (name == "TxnID" || name == "EditSequence" || !order.count(name)) continue;
        if (name.size() > 3 && name.compare(name.size() - 3, 3, "Ref") == 0) {
            if (auto failed = SetRef(e.ctx.company, field, e.txn, order, e.kind.name))
                return failed;
        } else if (!Elements(field).empty()) {
            pugi::xml_node into = Place(e.txn, name, order);
            for (pugi::xml_node part : Elements(field)) {
                std::string value = part.text().get();
                if (value.empty()) {
                    into.remove_child(part.name());
                } else if (pugi::xml_node have = into.child(part.name())) {
                    have.text().set(value.c_str());
                } else {
                    into.append_copy(part);
                }
            }
        } else if (std::string value = field.text().get(); value.empty()) {
            e.txn.remove_child(name.c_str());
        } else {
            SetText(e.txn, name, value, order);
        }
    }
    return std::nullopt;
}

// ---- Amounts and totals -----------------------------------------------------------------

// A line that is neither a subtotal nor a percentage: quantity x rate when the amount is not
// given, the rate from amount / quantity when only the amount is, and the stored amount when the
// request did not touch the line.
Cents PlainAmount(Edit& e, pugi::xml_node line, pugi::xml_node item) {
    const Given g = e.Find(line);
    const Order& order = e.kind.lineOrder;
    pugi::xml_node quantity = line.child("Quantity"), rate = line.child("Rate"),
                   amount = line.child("Amount");
    if (!g.fresh && !g.quantity && !g.rate && !g.amount) return ParseCents(amount.text().get());
    const double q = quantity ? Number(quantity.text().get()) : 1.0;
    if (g.amount) {
        const Cents given = ParseCents(amount.text().get());
        // A rate is worked out only from a quantity the request gives: an Amount-only line stays
        // Amount-only, the shape real answers hold (a line with Amount and no Rate or Quantity).
        if (!g.rate && g.quantity && q != 0)
            SetText(line, "Rate", Decimal(given / 100.0 / q), order);
        return given;
    }
    if (rate) {
        const Cents c = RoundCents(q * Number(rate.text().get()));
        SetText(line, "Amount", Money(c), order);
        return c;
    }
    if (amount) return ParseCents(amount.text().get());
    // An item without a price comes to nothing; a description-only line has no amount at all.
    if (item) SetText(line, "Amount", Money(0), order);
    return 0;
}

// The amounts of one level of lines (the transaction's, or a group's) and their sum, subtotal
// lines left out. A subtotal sums the lines above it back to the previous subtotal; a line with
// RatePercent is that percentage of the line directly above it. A percentage directly below a
// subtotal belongs to that subtotal's block and does not count in the next subtotal, as a real
// estimate shows (subtotal 1782.00, -5% = -89.10, then lines of 1178.00 and 190.00 subtotal to
// 1368.00). Subtotal and percentage amounts are always worked out again, whatever Amount the
// request gives them, since they follow the lines above them.
Cents ComputeLines(Edit& e, pugi::xml_node parent) {
    Cents total = 0, block = 0, above = 0;
    bool afterSubtotal = false;
    for (pugi::xml_node node : Elements(parent)) {
        Cents amount = 0;
        bool subtotal = false, percent = false;
        if (Is(node, e.kind.group)) {
            amount = ComputeLines(e, node);
            SetText(node, "TotalAmount", Money(amount), e.kind.groupOrder);
        } else if (Is(node, e.kind.line)) {
            pugi::xml_node item = ItemOf(e.ctx.company, node);
            subtotal = IsSubtotal(item);
            pugi::xml_node pct = node.child("RatePercent");
            percent = !subtotal && pct;
            if (subtotal) {
                amount = block;
            } else if (percent) {
                amount = RoundCents(above / 100.0 * Number(pct.text().get()) / 100.0);
            } else {
                amount = PlainAmount(e, node, item);
            }
            if (subtotal || percent) SetText(node, "Amount", Money(amount), e.kind.lineOrder);
        } else {
            continue;
        }
        if (subtotal) {
            block = 0;
        } else {
            total += amount;
            if (!(percent && afterSubtotal)) block += amount;
        }
        afterSubtotal = subtotal;
        above = amount;
    }
    return total;
}

bool Taxable(const Company& company, pugi::xml_node codeRef) {
    pugi::xml_node code = Referenced(company, codeRef, {"SalesTaxCodeRet"});
    return std::string_view(code.child("IsTaxable").text().get()) == "true";
}

// The taxable lines' amounts, in groups too. A customer whose tax code is not taxable pays no
// tax on any line.
Cents TaxableAmount(Edit& e, pugi::xml_node parent) {
    Cents sum = 0;
    for (pugi::xml_node node : Elements(parent)) {
        if (Is(node, e.kind.group)) {
            sum += TaxableAmount(e, node);
        } else if (Is(node, e.kind.line) && !IsSubtotal(ItemOf(e.ctx.company, node)) &&
                   Taxable(e.ctx.company, node.child("SalesTaxCodeRef"))) {
            sum += ParseCents(ChildText(node, "Amount"));
        }
    }
    return sum;
}

// The rate of the transaction's sales tax item (a tax group adds up its members). qbsim models
// one rate per transaction, as QuickBooks Desktop US does; a tax item qbsim does not know keeps
// the rate stored with the transaction.
double TaxPercent(Edit& e) {
    pugi::xml_node ref = e.txn.child("ItemSalesTaxRef");
    if (!ref) return 0;
    pugi::xml_node tax =
        Referenced(e.ctx.company, ref, {"ItemSalesTaxRet", "ItemSalesTaxGroupRet"});
    if (!tax) return Number(ChildText(e.txn, "SalesTaxPercentage"));
    if (pugi::xml_node rate = tax.child("TaxRate")) return Number(rate.text().get());
    double sum = 0;
    for (pugi::xml_node member : tax.children("ItemSalesTaxRef")) {
        sum += Number(ChildText(Referenced(e.ctx.company, member, {"ItemSalesTaxRet"}), "TaxRate"));
    }
    return sum;
}

// What the lines could come to at most, groups and percentages included, tax added: a product
// of two numbers QuickBooks takes (quantity x rate) can still be beyond what it holds, and must
// be refused before a sum overflows.
std::optional<Status> TotalOutOfRange(Edit& e) {
    double bound = 0;
    auto walk = [&](auto& self, pugi::xml_node parent) -> void {
        for (pugi::xml_node node : Elements(parent)) {
            if (Is(node, e.kind.group)) {
                self(self, node);
            } else if (Is(node, e.kind.line)) {
                const double q = node.child("Quantity") ? Number(ChildText(node, "Quantity")) : 1;
                const double line = std::max(std::fabs(Number(ChildText(node, "Amount"))),
                                             std::fabs(q * Number(ChildText(node, "Rate"))));
                bound += line + std::fabs(Number(ChildText(node, "RatePercent"))) / 100 * bound;
            }
        }
    };
    walk(walk, e.txn);
    bound *= 1 + std::fabs(TaxPercent(e)) / 100;
    if (!(bound <= kLargestNumber)) {
        char text[64];
        std::snprintf(text, sizeof text, "%.2f", bound);
        return ConversionError("Amount", text);
    }
    return std::nullopt;
}

void ComputeTotals(Edit& e) {
    const Order& order = e.kind.header;
    const Cents subtotal = ComputeLines(e, e.txn);
    Cents taxable = TaxableAmount(e, e.txn);
    if (pugi::xml_node customerCode = e.txn.child("CustomerSalesTaxCodeRef")) {
        if (!Taxable(e.ctx.company, customerCode)) taxable = 0;
    }
    const double percent = TaxPercent(e);
    const Cents tax = RoundCents(taxable / 100.0 * percent / 100.0);
    SetText(e.txn, "Subtotal", Money(subtotal), order);
    SetText(e.txn, "SalesTaxPercentage", Percent(percent), order);
    SetText(e.txn, "SalesTaxTotal", Money(tax), order);
    // Estimates, sales orders and receipts carry a total; an invoice carries its balance.
    if (order.count("TotalAmount")) SetText(e.txn, "TotalAmount", Money(subtotal + tax), order);
    if (order.count("BalanceRemaining")) {
        const Cents balance = subtotal + tax + ParseCents(ChildText(e.txn, "AppliedAmount"));
        SetText(e.txn, "BalanceRemaining", Money(balance), order);
        SetText(e.txn, "IsPaid", balance <= 0 ? "true" : "false", order);
    }
}

// ---- Answers ----------------------------------------------------------------------------

// Every DataExtRet, at any depth, of an owner not named.
void DropDataExts(pugi::xml_node node, const std::vector<std::string>& owners) {
    for (pugi::xml_node c : Elements(node)) {
        if (Is(c, "DataExtRet")) {
            std::string owner = ChildText(c, "OwnerID");
            if (!Wanted(owners, owner.empty() ? "0" : owner)) node.remove_child(c);
        } else {
            DropDataExts(c, owners);
        }
    }
}

// A returned transaction as the request asked for it. A query returns lines only with
// IncludeLineItems, linked transactions only with IncludeLinkedTxns, and the custom fields of the
// owners it names, on the header, lines and groups alike. qbsim assumes Add and Mod answers,
// which cannot name an owner, carry no custom fields, and do carry LinkedTxn (their requests have
// no IncludeLinkedTxns). Elements newer than the request's qbXML version are not taken out.
void Shape(pugi::xml_node ret, const Kind& kind, pugi::xml_node rq, bool query) {
    const std::vector<std::string> owners =
        query ? Texts(rq, "OwnerID") : std::vector<std::string>{};
    const std::vector<std::string> include = Texts(rq, "IncludeRetElement");
    DropDataExts(ret, owners);
    if (query) {
        const bool lines = rq.child("IncludeLineItems").text().as_bool();
        const bool linked = rq.child("IncludeLinkedTxns").text().as_bool();
        for (pugi::xml_node c : Elements(ret)) {
            if ((!lines && (Is(c, kind.line) || Is(c, kind.group))) ||
                (!linked && Is(c, "LinkedTxn"))) {
                ret.remove_child(c);
            }
        }
    }
    Trim(ret, owners, !include.empty(), include);
}

// Whether a reference number lies in a range. qbsim assumes numbers compare as numbers when both
// sides are all digits (so 9 comes before 10) and as text without regard to case otherwise.
int CompareRefNumbers(const std::string& a, const std::string& b) {
    if (AllDigits(a) && AllDigits(b)) {
        std::string x = a.substr(std::min(a.find_first_not_of('0'), a.size()));
        std::string y = b.substr(std::min(b.find_first_not_of('0'), b.size()));
        if (x.size() != y.size()) return x.size() < y.size() ? -1 : 1;
        return x.compare(y);
    }
    return Upper(a).compare(Upper(b));
}

// The filters of a query that names no TxnID or RefNumber.
struct TxnFilter {
    std::string fromModified, toModified, fromDate, toDate;
    bool entity = false;
    std::vector<std::string> entityIDs, entityNames, withChildren;  // names in capitals
    pugi::xml_node refFilter, refRange;
    std::string paid;
    std::optional<long> max;
    std::string unsupportedMacro;

    bool Matches(pugi::xml_node txn) const {
        std::string modified = ComparableTime(ChildText(txn, "TimeModified"), false);
        if (!fromModified.empty() && modified < ComparableTime(fromModified, false)) return false;
        if (!toModified.empty() && modified > ComparableTime(toModified, true)) return false;
        std::string date = ChildText(txn, "TxnDate");
        if (!fromDate.empty() && date < fromDate) return false;
        if (!toDate.empty() && date > toDate) return false;
        if (entity && !EntityMatches(txn.child("CustomerRef"))) return false;
        const std::string ref = ChildText(txn, "RefNumber");
        if (refFilter && !CriterionMatches(refFilter, "RefNumber", ref)) return false;
        if (refRange) {
            std::string from = ChildText(refRange, "FromRefNumber");
            std::string to = ChildText(refRange, "ToRefNumber");
            if (!from.empty() && CompareRefNumbers(ref, from) < 0) return false;
            if (!to.empty() && CompareRefNumbers(ref, to) > 0) return false;
        }
        const bool isPaid = std::string_view(txn.child("IsPaid").text().get()) == "true";
        if (paid == "PaidOnly" && !isPaid) return false;
        if (paid == "NotPaidOnly" && isPaid) return false;
        return true;
    }

    bool EntityMatches(pugi::xml_node customer) const {
        const std::string id = ChildText(customer, "ListID");
        const std::string name = Upper(ChildText(customer, "FullName"));
        if (!id.empty() && std::find(entityIDs.begin(), entityIDs.end(), id) != entityIDs.end())
            return true;
        if (std::find(entityNames.begin(), entityNames.end(), name) != entityNames.end())
            return true;
        return std::any_of(withChildren.begin(), withChildren.end(), [&](const std::string& p) {
            return name == p || name.rfind(p + ":", 0) == 0;
        });
    }
};

// Reads the filters; `missing` gets the first customer the entity filter names that is not in
// the company. Transactions are those of customers and their jobs; FullNameWithChildren takes the
// customer and every job below it.
std::optional<Status> ReadFilter(const Company& company, pugi::xml_node rq, TxnFilter* f,
                                 std::string* missing) {
    if (pugi::xml_node m = rq.child("MaxReturned")) f->max = m.text().as_int();
    if (pugi::xml_node r = rq.child("ModifiedDateRangeFilter")) {
        f->fromModified = ChildText(r, "FromModifiedDate");
        f->toModified = ChildText(r, "ToModifiedDate");
        if (!f->fromModified.empty() && !f->toModified.empty() &&
            ComparableTime(f->fromModified, false) > ComparableTime(f->toModified, true)) {
            return InvalidDateRange();
        }
    }
    if (pugi::xml_node r = rq.child("TxnDateRangeFilter")) {
        f->fromDate = ChildText(r, "FromTxnDate");
        f->toDate = ChildText(r, "ToTxnDate");
        if (!f->fromDate.empty() && !f->toDate.empty() && f->fromDate > f->toDate) {
            return InvalidDateRange();
        }
        // qbsim works out no relative dates: a macro other than All is answered with QuickBooks'
        // warning for an enum value it does not support, and the objects unfiltered by date.
        std::string macro = ChildText(r, "DateMacro");
        if (!macro.empty() && macro != "All") f->unsupportedMacro = macro;
    }
    if (pugi::xml_node entity = rq.child("EntityFilter")) {
        f->entity = true;
        for (pugi::xml_node c : Elements(entity)) {
            const std::string name = c.name(), value = c.text().get();
            const bool byID = name == "ListID" || name == "ListIDWithChildren";
            pugi::xml_node customer = byID ? company.FindByListID({"CustomerRet"}, value)
                                           : company.FindByFullName({"CustomerRet"}, value);
            if (byID && value.empty()) return InvalidObjectID(value, "list id");
            if (!customer) {
                if (missing->empty()) *missing = value;
                continue;
            }
            const std::string full = Upper(FullNameOf(customer));
            if (name == "ListIDWithChildren" || name == "FullNameWithChildren") {
                f->withChildren.push_back(full);
            } else {
                f->entityIDs.push_back(ChildText(customer, "ListID"));
                f->entityNames.push_back(full);
            }
        }
    }
    // AccountFilter is accepted and not applied: qbsim keeps no accounts.
    f->refFilter = rq.child("RefNumberFilter");
    f->refRange = rq.child("RefNumberRangeFilter");
    f->paid = ChildText(rq, "PaidStatus");
    return std::nullopt;
}

// Transactions come in the order of the company file, except those asked for by TxnID, which come
// in the order asked. A RefNumber matches without regard to case (RefNumberCaseSensitive with
// it), and every transaction with the number comes back: QuickBooks lets numbers repeat. qbsim
// assumes a TxnID that is not there is reported as QuickBooks reports a missing ListID (500, the
// others still returned), while a number nothing has is simply no match.
Status Query(Context& ctx, const Kind& kind, pugi::xml_node rq, pugi::xml_node rs) {
    const Company& company = ctx.company;
    std::vector<pugi::xml_node> found;
    std::string missing;
    TxnFilter filter;
    if (rq.child("TxnID")) {
        for (const std::string& id : Texts(rq, "TxnID")) {
            if (id.empty()) return InvalidObjectID(id, "txn id");
            if (pugi::xml_node t = company.FindTxn(kind.name, id)) {
                found.push_back(t);
            } else if (missing.empty()) {
                missing = id;
            }
        }
    } else if (rq.child("RefNumber") || rq.child("RefNumberCaseSensitive")) {
        const std::vector<std::string> numbers = Texts(rq, "RefNumber");
        const std::vector<std::string> exact = Texts(rq, "RefNumberCaseSensitive");
        for (pugi::xml_node t : company.Objects(kind.ret)) {
            const std::string ref = ChildText(t, "RefNumber");
            if (std::any_of(numbers.begin(), numbers.end(),
                            [&](const std::string& n) { return SameText(n, ref); }) ||
                std::find(exact.begin(), exact.end(), ref) != exact.end()) {
                found.push_back(t);
            }
        }
    } else {
        if (auto failed = ReadFilter(company, rq, &filter, &missing)) return *failed;
        for (pugi::xml_node t : company.Objects(kind.ret)) {
            if (filter.max && static_cast<long>(found.size()) >= *filter.max) break;
            if (filter.Matches(t)) found.push_back(t);
        }
    }
    Status status = AnswerObjects(
        found, rq.attribute("metaData").value(),
        [&](pugi::xml_node ret) { Shape(ret, kind, rq, true); }, rs);
    std::optional<int> count = status.retCount;
    if (!missing.empty()) status = PartlyFound(missing);
    if (!filter.unsupportedMacro.empty())
        status = UnsupportedEnum(filter.unsupportedMacro, "DateMacro");
    status.retCount = count;
    return status;
}

bool ListsLines(const Kind& kind, pugi::xml_node body, std::string_view verb) {
    return body.child((kind.name + "Line" + std::string(verb)).c_str()) ||
           body.child((kind.name + "LineGroup" + std::string(verb)).c_str());
}

// Numbers the new lines and groups in the order they stand, as QuickBooks does.
void NumberLines(Edit& e, const std::string& txnID) {
    for (pugi::xml_node n : e.fresh) {
        n.child("TxnLineID").text().set(e.ctx.company.NewTxnLineID(txnID).c_str());
    }
}

// A Mod: the EditSequence must be the stored one (3200 returns the transaction as it is now);
// header fields given change the header; when the request lists lines, they become the lines.
Status Mod(Context& ctx, const Kind& kind, pugi::xml_node rq, pugi::xml_node rs) {
    pugi::xml_node body = rq.child((kind.name + "Mod").c_str());
    const std::string txnID = ChildText(body, "TxnID");
    if (txnID.empty()) return InvalidObjectID(txnID, "txn id");
    pugi::xml_node stored = ctx.company.FindTxn(kind.name, txnID);
    if (!stored) return ObjectNotFound(txnID);
    const std::string sequence = ChildText(body, "EditSequence");
    if (sequence != ChildText(stored, "EditSequence")) {
        Shape(rs.append_copy(stored), kind, rq, false);
        return StaleEditSequence(sequence);
    }
    pugi::xml_document scratch;
    Edit e{ctx, kind, scratch.append_copy(stored), stored, {}, {}};
    if (auto failed = ApplyHeader(e, body)) return *failed;
    if (ListsLines(kind, body, "Mod")) {
        RemoveLines(e, e.txn);
        if (auto failed = BuildList(e, "Mod", body, stored, e.txn, true)) return *failed;
    }
    if (auto failed = TotalOutOfRange(e)) return *failed;
    ComputeTotals(e);

    // The request stands: now the company changes.
    NumberLines(e, txnID);
    pugi::xml_node saved = ctx.company.Replace(stored, e.txn);
    ctx.company.Touch(saved);
    Shape(rs.append_copy(saved), kind, rq, false);
    return StatusOk();
}

std::string NextTxnNumber(const Company& company) {
    long long highest = 0;
    for (std::string_view kind : kTxnKinds) {
        for (pugi::xml_node t : company.Objects(std::string(kind) + "Ret")) {
            highest = std::max(highest, t.child("TxnNumber").text().as_llong());
        }
    }
    return std::to_string(highest + 1);
}

// qbsim assumes QuickBooks numbers a transaction that names no RefNumber one above the highest
// all-digit number of its kind.
std::string NextRefNumber(const Company& company, const Kind& kind) {
    long long highest = 0;
    for (pugi::xml_node t : company.Objects(kind.ret)) {
        std::string ref = ChildText(t, "RefNumber");
        if (AllDigits(ref) && ref.size() < 12) highest = std::max(highest, std::stoll(ref));
    }
    return std::to_string(highest + 1);
}

// What QuickBooks fills in on a new transaction the request leaves open: today's date, the next
// number, the kind's first template, the customer's address and tax settings.
void FillNewTxn(Edit& e) {
    const Company& company = e.ctx.company;
    const Order& order = e.kind.header;
    if (!e.txn.child("TxnDate")) SetText(e.txn, "TxnDate", company.Now().substr(0, 10), order);
    if (!e.txn.child("RefNumber"))
        SetText(e.txn, "RefNumber", NextRefNumber(company, e.kind), order);
    if (!e.txn.child("TemplateRef")) {
        for (pugi::xml_node t : company.Objects("TemplateRet")) {
            if (ChildText(t, "TemplateType") != e.kind.name) continue;
            pugi::xml_node ref = Place(e.txn, "TemplateRef", order);
            ref.append_child("ListID").text().set(ChildText(t, "ListID").c_str());
            ref.append_child("FullName").text().set(ChildText(t, "Name").c_str());
            break;
        }
    }
    pugi::xml_node customer = Referenced(company, e.txn.child("CustomerRef"), {"CustomerRet"});
    const std::pair<const char*, const char*> fromCustomer[] = {
        {"BillAddress", "BillAddress"},
        {"SalesTaxCodeRef", "CustomerSalesTaxCodeRef"},
        {"ItemSalesTaxRef", "ItemSalesTaxRef"}};
    for (auto [have, want] : fromCustomer) {
        pugi::xml_node value = customer.child(have);
        if (!value || e.txn.child(want)) continue;
        pugi::xml_node into = Place(e.txn, want, order);
        for (pugi::xml_node c : Elements(value)) into.append_copy(c);
    }
    for (const auto& [name, value] : e.kind.newTxn) {
        if (!e.txn.child(name.c_str())) SetText(e.txn, name, value, order);
    }
}

// An Add: a new transaction with a new TxnID and TxnLineIDs sharing its time part, the
// remaining fields filled in, amounts and totals worked out.
Status Add(Context& ctx, const Kind& kind, pugi::xml_node rq, pugi::xml_node rs) {
    pugi::xml_node body = rq.child((kind.name + "Add").c_str());
    pugi::xml_document scratch;
    Edit e{ctx, kind, scratch.append_child(kind.ret.c_str()), {}, {}, {}};
    const Order& order = kind.header;
    for (const char* name : {"TxnID", "TimeCreated", "TimeModified", "EditSequence"}) {
        Place(e.txn, name, order);
    }
    SetText(e.txn, "TxnNumber", NextTxnNumber(ctx.company), order);
    if (auto failed = ApplyHeader(e, body)) return *failed;
    FillNewTxn(e);
    if (auto failed = BuildList(e, "Add", body, {}, e.txn, true)) return *failed;
    if (auto failed = TotalOutOfRange(e)) return *failed;
    ComputeTotals(e);

    const std::string txnID = ctx.company.NewTxnID();
    e.txn.child("TxnID").text().set(txnID.c_str());
    e.txn.child("TimeCreated").text().set(ctx.company.Now().c_str());
    NumberLines(e, txnID);
    pugi::xml_node saved = ctx.company.Append(e.txn);
    ctx.company.Touch(saved);
    Shape(rs.append_copy(saved), kind, rq, false);
    return StatusOk();
}

// TxnDisplayModRq: QuickBooks opens the transaction's window. qbsim records the request in the
// company file (Company::RecordDisplay), where the simulated desktop picks it up.
Status DisplayTxn(Context& ctx, pugi::xml_node rq, pugi::xml_node) {
    const std::string type = ChildText(rq, "TxnDisplayModType");
    const std::string txnID = ChildText(rq, "TxnID");
    if (txnID.empty()) return InvalidObjectID(txnID, "txn id");
    if (!ctx.company.FindTxn(type, txnID)) return ObjectNotFound(txnID);
    ctx.company.RecordDisplay(type, txnID);
    return StatusOk();
}

}  // namespace

std::vector<std::pair<std::string, Handler>> TransactionHandlers() {
    std::vector<std::pair<std::string, Handler>> out;
    using Answer = Status (*)(Context&, const Kind&, pugi::xml_node, pugi::xml_node);
    const std::pair<const char*, Answer> verbs[] = {
        {"QueryRq", Query}, {"ModRq", Mod}, {"AddRq", Add}};
    for (const Kind& kind : Kinds()) {
        for (auto [suffix, answer] : verbs) {
            out.emplace_back(
                kind.name + suffix,
                [&kind, answer = answer](Context& c, pugi::xml_node q, pugi::xml_node s) {
                    return answer(c, kind, q, s);
                });
        }
    }
    out.emplace_back("TxnDisplayModRq", DisplayTxn);
    return out;
}

}  // namespace pelmark::sim::detail
