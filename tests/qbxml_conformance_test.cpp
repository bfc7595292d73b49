// Checks every kind of request the program sends against Intuit's qbXML reference with the
// project's validator (tools/qbxml_validate.py in ../shared).
#include <gtest/gtest.h>

#include "fakes/qbFakes.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <set>

#include "qb/qbxml.h"

namespace pelmark::qb {
namespace {

namespace fs = std::filesystem;

const char* const kKinds[] = {"Invoice", "SalesOrder", "SalesReceipt", "Estimate"};

// A transaction line with every field its kind allows; of each OR group only the first branch.
void FillLine(Node& line) {
    line.Field("TxnLineID").SetValue(-1);
    line.Field("ItemRef/ListID").SetValue("80000001-1234567890");
    line.Field("ItemRef/FullName").SetValue("Parts:Widget");
    line.Field("Desc").SetValue("Widget, blue\nsecond line & <more> \xC3\xA9");
    line.Field("Quantity").SetValue(2.5);
    line.Field("UnitOfMeasure").SetValue("Each");
    line.Field("OverrideUOMSetRef/ListID").SetValue("80000002-1234567890");
    line.Field("OverrideUOMSetRef/FullName").SetValue("Count");
    line.Field("Rate").SetValue(12.75);
    line.Field("ClassRef/ListID").SetValue("80000003-1234567890");
    line.Field("ClassRef/FullName").SetValue("East");
    line.Field("Amount").SetValue(31.88);
    line.Field("SalesTaxCodeRef/ListID").SetValue("80000004-1234567890");
    line.Field("SalesTaxCodeRef/FullName").SetValue("Tax");
    line.Field("Other1").SetValue("o1");
    line.Field("Other2").SetValue("o2");
    if (line.Supports("ServiceDate")) line.Field("ServiceDate").SetValue("2024-03-01");
    if (line.Supports("OverrideItemAccountRef")) {
        line.Field("OverrideItemAccountRef/ListID").SetValue("80000005-1234567890");
        line.Field("OverrideItemAccountRef/FullName").SetValue("Income:Parts");
    }
    if (line.Supports("IsManuallyClosed")) line.Field("IsManuallyClosed").SetValue(false);
    if (line.Supports("MarkupRate")) line.Field("MarkupRate").SetValue(1.5);
}

// The line fields left unset: only the other branches of the OR groups.
std::set<std::string> UnsetFields(const Node& line) {
    std::set<std::string> unset;
    for (const std::string& name : line.ChildNames()) {
        if (line.Count(name) == 0) unset.insert(name);
    }
    return unset;
}

void FillQueryFilters(Node& q, int variant) {
    switch (variant) {
        case 0:
            q.Append("TxnID").SetValue("1A2B-1234567890");
            break;
        case 1:
            q.Append("RefNumber").SetValue("1001");
            break;
        case 2:
            q.Field("TxnDateRangeFilter/FromTxnDate").SetValue("2024-01-01");
            q.Field("TxnDateRangeFilter/ToTxnDate").SetValue("2024-12-31");
            q.Append("EntityFilter/FullName").SetValue("Acme:Job 1");
            q.Field("RefNumberRangeFilter/FromRefNumber").SetValue("1001");
            q.Field("RefNumberRangeFilter/ToRefNumber").SetValue("1001");
            break;
        default:
            q.Field("MaxReturned").SetValue(5);
            q.Field("ModifiedDateRangeFilter/FromModifiedDate").SetValue("2024-01-01T00:00:00");
            q.Field("EntityFilter/ListIDWithChildren").SetValue("80000006-1234567890");
            q.Field("RefNumberFilter/MatchCriterion").SetValue("StartsWith");
            q.Field("RefNumberFilter/RefNumber").SetValue("10");
    }
    q.Field("IncludeLineItems").SetValue(true);
    q.Append("OwnerID").SetValue("0");
}

void FillDataExt(Node& ext, const std::string& kind, bool line, bool withValue) {
    ext.Field("OwnerID").SetValue("0");
    ext.Field("DataExtName").SetValue("Colour");
    ext.Field("TxnDataExtType").SetValue(kind);
    ext.Field("TxnID").SetValue("1A2B-1234567890");
    if (line) ext.Field("TxnLineID").SetValue("1A2D-1234567890");
    if (withValue) ext.Field("DataExtValue").SetValue("Red");
}

// Every request the program builds, by file name; each in a message set of its own.
std::map<std::string, std::string> BuildRequests() {
    std::map<std::string, std::string> out;
    auto add = [&](const std::string& name, int major, const std::function<void(Node&)>& fill,
                   const char* request) {
        MsgSetRequest set("US", major, 0);
        fill(set.Append(request));
        out[name + ".xml"] = set.ToXMLString();
    };
    auto nothing = [](Node&) {};
    add("HostQueryRq_v1", 1, nothing, "HostQueryRq");
    add("HostQueryRq", 7, nothing, "HostQueryRq");
    add("CompanyQueryRq", 7, nothing, "CompanyQueryRq");
    add(
        "DataExtDefQueryRq", 7, [](Node& q) { q.Append("OwnerID").SetValue("0"); },
        "DataExtDefQueryRq");
    add("CustomerQueryRq", 7, nothing, "CustomerQueryRq");
    add(
        "CustomerQueryRq_FullName", 7, [](Node& q) { q.Append("FullName").SetValue("Acme:Job 1"); },
        "CustomerQueryRq");
    add(
        "ItemQueryRq", 7,
        [](Node& q) {
            for (const char* e :
                 {"Name", "FullName", "ListID", "EditSequence", "SalesPrice", "PurchaseCost", "PrefVendorRef",
          "ItemDesc", "SalesDesc", "PurchaseDesc", "IsActive", "DataExtRet", "SalesTaxCodeRef",
          "SalesOrPurchase", "SalesAndPurchase", "TaxRate", "DiscountRate", "DiscountRatePercent"}) {
                q.Append("IncludeRetElement").SetValue(e);
            }
            q.Append("OwnerID").SetValue("0");
        },
        "ItemQueryRq");
    add("SalesTaxCodeQueryRq", 7, nothing, "SalesTaxCodeQueryRq");
    add(
        "SalesTaxCodeQueryRq_limited", 7,
        [](Node& q) {
            for (const char* e : {"Name", "ListID", "EditSequence", "Desc", "IsActive"}) {
                q.Append("IncludeRetElement").SetValue(e);
            }
        },
        "SalesTaxCodeQueryRq");
    add("TemplateQueryRq", 7, nothing, "TemplateQueryRq");

    for (std::string kind : kKinds) {
        for (int variant = 0; variant < 4; ++variant) {
            add(
                kind + "QueryRq_" + std::to_string(variant), 7,
                [&](Node& q) { FillQueryFilters(q, variant); }, (kind + "QueryRq").c_str());
        }
        add(
            kind + "ModRq", 7,
            [&](Node& rq) {
                Node& mod = rq.Child(kind + "Mod");
                mod.Field("TxnID").SetValue("1A2B-1234567890");
                mod.Field("EditSequence").SetValue("1234567890");
                if (mod.Supports("ShipMethodRef"))
                    mod.Field("ShipMethodRef/FullName").SetValue("UPS");
                FillLine(mod.Append(kind + "LineMod"));
                Node& group = mod.Append(kind + "LineGroupMod");
                group.Field("TxnLineID").SetValue(-1);
                group.Field("ItemGroupRef/FullName").SetValue("Kit");
                group.Field("Quantity").SetValue(1);
                FillLine(group.Append(kind + "LineMod"));
                Node& last = mod.Append(kind + "LineMod");
                last.Field("TxnLineID").SetValue(-1);
                last.Field("Desc").SetValue("");  // a blank line
            },
            (kind + "ModRq").c_str());
        add(
            "TxnDisplayModRq_" + kind, 7,
            [&](Node& rq) {
                rq.Field("TxnDisplayModType").SetValue(kind);
                rq.Field("TxnID").SetValue("1A2B-1234567890");
            },
            "TxnDisplayModRq");
        for (bool line : {false, true}) {
            std::string suffix = "_" + kind + (line ? "_line" : "");
            add(
                "DataExtAddRq" + suffix, 7,
                [&](Node& rq) { FillDataExt(rq.Child("DataExtAdd"), kind, line, true); },
                "DataExtAddRq");
            add(
                "DataExtModRq" + suffix, 7,
                [&](Node& rq) { FillDataExt(rq.Child("DataExtMod"), kind, line, true); },
                "DataExtModRq");
            add(
                "DataExtDelRq" + suffix, 7,
                [&](Node& rq) { FillDataExt(rq.Child("DataExtDel"), kind, line, false); },
                "DataExtDelRq");
        }
    }
    return out;
}

TEST(QbxmlConformance, LinesCarryEveryFieldTheirKindAllows) {
    const std::map<std::string, std::set<std::string>> alternatives = {
        {"Invoice", {"RatePercent", "PriceLevelRef"}},
        {"SalesOrder", {"RatePercent", "PriceLevelRef"}},
        {"SalesReceipt", {"RatePercent", "PriceLevelRef"}},
        {"Estimate", {"RatePercent", "MarkupRatePercent", "PriceLevelRef"}},
    };
    for (std::string kind : kKinds) {
        MsgSetRequest set("US", 7, 0);
        Node& line = set.Append(kind + "ModRq").Append(kind + "Mod/" + kind + "LineMod");
        FillLine(line);
        EXPECT_EQ(UnsetFields(line), alternatives.at(kind)) << kind;
    }
}

TEST(QbxmlConformance, EveryRequestTheProgramSendsPassesTheValidator) {
    std::map<std::string, std::string> requests = BuildRequests();  // they build everywhere
    test::QbxmlValidation checked = test::ValidateQbxmlRequests(requests);
    if (!checked.skipped.empty()) GTEST_SKIP() << checked.skipped;
    for (const auto& [name, problem] : checked.problems) ADD_FAILURE() << name << "\n" << problem;
}

}  // namespace
}  // namespace pelmark::qb
