// The item table that the IIF reader and the QuickBooks item query fill, and ReadItemsIIF.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace pelmark {

struct App;

// Item kind numbers (the IIF INVITEMTYPE codes map onto them).
enum ItemKind : int {
    kItemUnset = -1, kItemService = 0, kItemNonInventory = 1, kItemOtherCharge = 2,
    kItemInventory = 3, kItemAssembly = 4, kItemFixedAsset = 5, kItemSubtotal = 6,
    kItemDiscount = 7, kItemPayment = 8, kItemSalesTaxGroup = 9, kItemSalesTax = 10, kItemGroup = 11
};

struct ItemRec {
    std::string name;      // own name: the last piece of the full name
    std::string fullName;  // parents joined by ":"
    int depth = 0;         // pieces in the full name
    int kind = kItemUnset;
    std::string desc;
    std::string price;  // as written; a sales tax item's rate may end in "%"
    std::string cost;
    std::string salesTaxCode;
    std::string listID, editSequence;
    std::vector<std::pair<std::string, std::string>> customFields;  // name, value
};

struct NoCaseLess {
    bool operator()(const std::string& a, const std::string& b) const;
};

struct ItemTable {
    std::vector<ItemRec> items;
    size_t upperBound = 0;  // slots allotted; GrowItemTable raises it
    // Keyed by full name, without regard to case: index into items.
    std::map<std::string, size_t, NoCaseLess> salesTaxItems;
    std::map<std::string, size_t, NoCaseLess> salesTaxGroups;
    size_t count() const { return items.size(); }
    void Clear();
};

// Raises the table's upper bound: to `first` slots when smaller, else by `step` more.
void GrowItemTable(ItemTable& table, size_t first, size_t step);
// Stores an item, growing the table with the steps 1000 and 2000 when it is full.
ItemRec& AddItem(ItemTable& table, ItemRec item);

// Reads data folder + Items.iif into the item table; a missing file leaves it unchanged.
void ReadItemsIIF(App& app);

}  // namespace pelmark
