// The list queries: items (into the item table), customers, sales tax codes and templates.
#include "app/context.h"
#include "app/logs.h"
#include "app/text.h"
#include "qb/qbCommon.h"

namespace pelmark::qb {

namespace {

// What one list query says in its status line and its report, and what it asks for again
// when the QuickBooks user may not see every field.
struct ListQuery {
    const char* label;                         // the error handler's label
    const char* statusHead;                    // "Item Query Status: Code = "
    std::string failure;                       // "Item  could not be retried from QuickBooks"
    std::vector<std::string> limitedElements;  // empty: no retry under 3260
};

// Sends the query (once more, limited, under 3260) and judges its status. Codes 0, 1 and 500
// give the response to read; anything else is reported and gives nothing.
std::optional<Response> RunListQuery(App& app, MsgSetRequest& set, Node& query,
                                     const ListQuery& list) {
    bool retried = false;
    for (;;) {
        SendResult sent = DoRequests(app, set);
        if (!sent.ok) {
            ReportError(app, "INFO", list.label, sent.error, sent.description);
            return std::nullopt;
        }
        Response response = sent.responseSet.ResponseList().GetAt(0);
        if (response.IsNull()) {
            ReportError(app, "INFO", list.label, kErrBadResponse,
                        "QuickBooks answered none of the 1 requests sent");
            return std::nullopt;
        }
        const int code = response.StatusCode();
        const std::string message =
            response.HasStatus() ? response.StatusMessage()
                                 : "<" + response.TypeName() + "> came back without a status";
        DebugLog(app,
                 list.statusHead + std::to_string(code) + ", Message = " + message +
                     ", Severity = " + response.StatusSeverity() + kCrLf,
                 5);
        if (code == kStatusOK || code == kStatusNoMatch || code == kStatusPartial) return response;
        if (code == kStatusNoPermission && !retried && !list.limitedElements.empty() &&
            query.Supports("IncludeRetElement")) {
            ShowStatus(app, "Retrying for permissions");
            for (const std::string& element : list.limitedElements)
                query.Append("IncludeRetElement").SetValue(element);
            retried = true;
            continue;
        }
        ContinueOrTerminate(app, "INFO\t" + list.failure + kCrLf +
                                     "Error = " + std::to_string(code) + " " + message);
        return std::nullopt;
    }
}

// The returned objects of a query's answer ("" name: all of them).
std::vector<View> Returned(const Response& response, std::string_view name = {}) {
    View detail = response.Detail();
    if (detail.IsNull()) return {};
    if (detail.Name() != response.TypeName()) return {detail};  // a single object
    return detail.Children(name);
}

bool IsActive(const View& ret) {
    return ret.GetBool("IsActive").value_or(true);
}

// How the reader files each kind of item: its trace, where its full name comes from, its kind.
enum class NameFrom { FullName, Name, FullNameElseName };
struct ItemKindInfo {
    const char* ret;
    const char* trace;  // nullptr: none
    NameFrom nameFrom;
    int kind;
};
const ItemKindInfo kItemKinds[] = {
    {"ItemServiceRet", "PIIIX, I S ", NameFrom::FullName, kItemService},
    {"ItemOtherChargeRet", "PIIIX, I OC ", NameFrom::FullName, kItemOtherCharge},
    {"ItemInventoryRet", "PIIIX, I I ", NameFrom::FullName, kItemInventory},
    {"ItemNonInventoryRet", "PIIIX, I NI ", NameFrom::FullName, kItemNonInventory},
    {"ItemInventoryAssemblyRet", "PIIIX, I iA ", NameFrom::FullName, kItemAssembly},
    {"ItemGroupRet", "PIIIX, I G ", NameFrom::Name, kItemGroup},
    {"ItemSalesTaxRet", "PIIIX, I STax ", NameFrom::Name, kItemSalesTax},
    {"ItemSubtotalRet", "PIIIX, I SubT ", NameFrom::Name, kItemSubtotal},
    {"ItemDiscountRet", "PIIIX, I Disc ", NameFrom::FullNameElseName, kItemDiscount},
    {"ItemSalesTaxGroupRet", "PIIIX, I St Grp ", NameFrom::Name, kItemSalesTaxGroup},
    {"ItemFixedAssetRet", nullptr, NameFrom::Name, kItemFixedAsset},
    {"ItemPaymentRet", nullptr, NameFrom::Name, kItemPayment},
};

// Description, price and cost: from the sales-or-purchase block when the kind has one,
// else from the fields the kind carries itself.
void ReadSalesFields(const View& ret, ItemRec& item) {
    if (View sp = ret.Child("SalesOrPurchase"); !sp.IsNull()) {
        item.desc = sp.GetValue("Desc");
        item.price =
            sp.Has("PricePercent") ? sp.GetValue("PricePercent") + "%" : sp.GetValue("Price");
        return;
    }
    if (View sp = ret.Child("SalesAndPurchase"); !sp.IsNull()) {
        item.desc = sp.GetValue("SalesDesc");
        item.price = sp.GetValue("SalesPrice");
        item.cost = sp.GetValue("PurchaseCost");
        return;
    }
    if (ret.Has("Desc")) {
        item.desc = ret.GetValue("Desc");
    } else if (ret.Has("ItemDesc")) {
        item.desc = ret.GetValue("ItemDesc");
    } else {
        item.desc = ret.GetValue("SalesDesc");  // inventory and assembly items
    }
    if (ret.Has("SalesPrice")) item.price = ret.GetValue("SalesPrice");
    if (ret.Has("PurchaseCost")) item.cost = ret.GetValue("PurchaseCost");
    if (ret.Has("TaxRate")) item.price = ret.GetValue("TaxRate") + "%";
    if (ret.Has("DiscountRate")) item.price = ret.GetValue("DiscountRate");
    if (ret.Has("DiscountRatePercent")) item.price = ret.GetValue("DiscountRatePercent") + "%";
}

}  // namespace

bool ParseItemRet(App& app, const View& itemRet) {
    DebugLog(app, "PIIIX, Init ", 5);
    const std::string type = itemRet.Name();
    const ItemKindInfo* info = nullptr;
    for (const ItemKindInfo& k : kItemKinds)
        if (type == k.ret) info = &k;
    if (!info) {
        DebugLog(app, "Unknown Item Type " + type, 1);
        WriteErr(app, "ERROR\tUnknown Item Type " + type);
        return false;
    }
    if (info->trace) DebugLog(app, info->trace, 5);

    ItemRec item;
    item.name = GetFieldString(itemRet, "Name");
    switch (info->nameFrom) {
        case NameFrom::FullName:
            item.fullName = GetFieldString(itemRet, "FullName");
            break;
        case NameFrom::Name:
            item.fullName = item.name;
            break;
        case NameFrom::FullNameElseName:
            item.fullName =
                itemRet.Has("FullName") ? GetFieldString(itemRet, "FullName") : item.name;
            break;
    }
    if (item.fullName.empty()) item.fullName = item.name;
    item.depth = static_cast<int>(Split(item.fullName, ':').size());
    item.kind = info->kind;
    item.listID = GetFieldString(itemRet, "ListID");
    item.editSequence = GetFieldString(itemRet, "EditSequence");
    item.salesTaxCode = GetRefFullName(itemRet.Child("SalesTaxCodeRef"));
    ReadSalesFields(itemRet, item);
    for (const View& ext : itemRet.Children("DataExtRet"))
        item.customFields.emplace_back(ext.GetValue("DataExtName"), ext.GetValue("DataExtValue"));

    switch (info->kind) {
        case kItemService:
            DebugLog(app,
                     "ItemServiceRet: FullName = " + item.fullName +
                         ", SalesTaxCodeRef = " + item.salesTaxCode,
                     5);
            break;
        case kItemOtherCharge:
            DebugLog(app, "ItemotherchargeRet: FullName = " + item.fullName, 5);
            break;
        case kItemInventory:
            DebugLog(app,
                     "ItemInventoryRet: FullName = " + item.fullName +
                         ", QuantityOnHand = " + GetFieldString(itemRet, "QuantityOnHand"),
                     5);
            break;
        case kItemNonInventory:
            DebugLog(app, "ItemNonInventoryRet: FullName = " + item.fullName, 5);
            break;
        default:
            break;
    }

    ItemTable& table = app.items;
    const std::size_t index = table.items.size();
    if (item.kind == kItemSalesTaxGroup) table.salesTaxGroups.emplace(item.fullName, index);
    if (item.kind == kItemSalesTax) table.salesTaxItems.emplace(item.fullName, index);
    app.qb.itemsByFullName.emplace(item.fullName, index);
    AddItem(table, std::move(item));
    return true;
}

bool ItemQuerySub(App& app, bool fullLoad, const std::string& name) {
    DebugLog(app, "Item QuerySub entered ", 5);
    if (fullLoad) {
        app.items.Clear();
        app.qb.itemsByFullName.clear();
    }
    if (!QBOpen(app)) return false;
    MsgSetRequest& set = *RequestSet(app);
    set.ClearRequests();
    Node& query = set.Append("ItemQueryRq");
    AddIfNotEmpty(query, "FullName", name);
    if (query.Supports("OwnerID")) query.Append("OwnerID").SetValue(kOwnerUser);

    ListQuery list{"Item Query Sub",
                   "Item Query Status: Code = ",
                   "Item " + name + " could not be retried from QuickBooks",
                   {}};
    list.limitedElements = app.qb.itemFieldNames;
    // Everything ReadSalesFields and ParseItemRet read, top-level names only; custom fields
    // come back under 3260 only when DataExtRet is named beside the OwnerID.
    for (const char* more :
         {"ItemDesc", "SalesDesc", "PurchaseDesc", "IsActive", "DataExtRet", "SalesTaxCodeRef",
          "SalesOrPurchase", "SalesAndPurchase", "TaxRate", "DiscountRate", "DiscountRatePercent"})
        list.limitedElements.push_back(more);
    std::optional<Response> response = RunListQuery(app, set, query, list);
    set.ClearRequests();
    if (!response) return false;
    for (const View& item : Returned(*response)) ParseItemRet(app, item);
    DebugLog(app, "Item Query Sub Exit", 5);
    return true;
}

std::optional<std::vector<ItemRec>> ItemsByListID(App& app, const std::vector<std::string>& ids) {
    if (ids.empty()) return std::vector<ItemRec>{};
    if (!QBOpen(app)) return std::nullopt;
    MsgSetRequest& set = *RequestSet(app);
    set.ClearRequests();
    Node& query = set.Append("ItemQueryRq");
    for (const std::string& id : ids) query.Append("ListID").SetValue(id);
    if (query.Supports("OwnerID")) query.Append("OwnerID").SetValue(kOwnerUser);
    ListQuery list{"Item Query Sub",
                   "Item Query Status: Code = ",
                   "The items of the transaction could not be retrieved from QuickBooks",
                   {}};
    std::optional<Response> response = RunListQuery(app, set, query, list);
    set.ClearRequests();
    if (!response) return std::nullopt;
    // Read by the start-up's own reader into a table of their own.
    ItemTable items;
    std::map<std::string, std::size_t, NoCaseLess> index;
    std::swap(items, app.items);
    std::swap(index, app.qb.itemsByFullName);
    for (const View& item : Returned(*response)) ParseItemRet(app, item);
    std::swap(items, app.items);
    std::swap(index, app.qb.itemsByFullName);
    return std::move(items.items);
}

bool CustomerQuerySub(App& app, const std::string& fullName) {
    DebugLog(app, "Customer Query Sub " + fullName, 5);
    QbState& qb = app.qb;
    if (!QBOpen(app)) return false;
    MsgSetRequest& set = *RequestSet(app);
    set.ClearRequests();
    Node& query = set.Append("CustomerQueryRq");
    AddIfNotEmpty(query, "FullName", fullName);

    ListQuery list{"Customer Query Sub",
                   "Custome Query Status: Code = ",
                   "Customer " + fullName + " could not be retried from QuickBooks",
                   {}};
    std::optional<Response> response = RunListQuery(app, set, query, list);
    set.ClearRequests();
    if (!response) return false;
    if (fullName.empty()) qb.customers.clear();
    std::vector<View> rets = Returned(*response, "CustomerRet");
    if (rets.empty()) DebugLog(app, "Customer Query Sub no customer ret list ", 5);
    for (const View& ret : rets) {
        CustomerRec c;
        c.name = GetFieldString(ret, "Name");
        c.fullName = GetFieldString(ret, "FullName");
        c.listID = GetFieldString(ret, "ListID");
        c.editSequence = GetFieldString(ret, "EditSequence");
        c.isActive = IsActive(ret);
        // A single customer asked for again replaces what the list held for it.
        bool replaced = false;
        for (CustomerRec& known : qb.customers) {
            if (!fullName.empty() && known.listID == c.listID) {
                known = c;
                replaced = true;
            }
        }
        if (!replaced) qb.customers.push_back(std::move(c));
    }
    DebugLog(app, "Customer Query Sub Exit", 5);
    return true;
}

bool TemplateQuerySub(App& app, const std::string& hostMajorVersion) {
    DebugLog(app, "Template Query Sub Entered " + hostMajorVersion, 5);
    QbState& qb = app.qb;
    if (!QBOpen(app)) return false;
    MsgSetRequest& set = *RequestSet(app);
    if (!set.Supports("TemplateQueryRq")) {
        // Templates can be asked for from qbXML 3.0 on; the screen reading does without them.
        DebugLog(app, "Template Query Sub not in qbXML " + set.Version(), 3);
        return true;
    }
    set.ClearRequests();
    Node& query = set.Append("TemplateQueryRq");
    ListQuery list{"Template Query Sub",
                   "Template Query Status: Code = ",
                   "Template could not be retried from QuickBooks",
                   {}};
    std::optional<Response> response = RunListQuery(app, set, query, list);
    set.ClearRequests();
    if (!response) return false;
    qb.templates.clear();
    for (const View& ret : Returned(*response, "TemplateRet")) {
        TemplateRec t;
        t.name = GetFieldString(ret, "Name");
        t.listID = GetFieldString(ret, "ListID");
        t.templateType = GetFieldString(ret, "TemplateType");
        t.isActive = IsActive(ret);
        qb.templates.push_back(std::move(t));
    }
    DebugLog(app, "Template Query Sub Exit", 5);
    return true;
}

void IndexItems(App& app) {
    auto& index = app.qb.itemsByFullName;
    index.clear();
    const auto& items = app.items.items;
    for (std::size_t i = 0; i < items.size(); ++i) index.emplace(items[i].fullName, i);
}

const ItemRec* FindItem(const App& app, const std::string& fullName) {
    const auto& items = app.items.items;
    const auto& index = app.qb.itemsByFullName;
    if (auto it = index.find(fullName); it != index.end() && it->second < items.size() &&
                                        EqualsNoCase(items[it->second].fullName, fullName))
        return &items[it->second];
    // The table was filled without the index (or changed since): look through it.
    for (const ItemRec& item : items)
        if (EqualsNoCase(item.fullName, fullName)) return &item;
    return nullptr;
}

}  // namespace pelmark::qb
