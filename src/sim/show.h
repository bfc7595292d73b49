// Finding a sales transaction in a company file by its number, and its lines as a text table.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "sim/company.h"

namespace pelmark::sim {

struct TxnRef {
    std::string kind;  // "Invoice", "Estimate", "SalesOrder", "SalesReceipt"
    std::string txnID, refNumber;
};

// The first sales transaction whose RefNumber is `ref` (of `kind` when given; kinds compare
// without regard to case, blanks ignored: "sales order" is SalesOrder). With an empty ref, the
// first sales transaction of the company. Unset when there is none.
std::optional<TxnRef> FindSalesTxn(const Company& company, std::string_view ref,
                                   std::string_view kind = {});
// The kind name of a kind text ("sales receipt", "SALESRECEIPT"), or "" when it names none.
std::string SalesKindName(std::string_view text);

// The transaction's header and its lines as a table: line, item, description, quantity, rate,
// amount, class, tax code and custom fields; group lines indented under their group.
std::string TxnTable(const Company& company, const TxnRef& txn);

}  // namespace pelmark::sim
