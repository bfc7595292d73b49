// qbsim's sales transactions: query filters, Mod line lists and amounts, refused Mods, Add,
// TxnDisplayMod, and the sample company's transactions they run on.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "fakes/fakes.h"
#include "qb/qbxml.h"
#include "qb/qbxmlResponse.h"
#include "sim/company.h"
#include "sim/processor.h"
#include "sim/simTransport.h"

namespace pelmark::sim {
namespace {

namespace fs = std::filesystem;

const std::string kSample = std::string(PELMARK_SOURCE_DIR) + "/samples/company.xml";
const std::string kClock = "2024-05-01T09:30:00-05:00";  // the sample's fixed clock
// Sample transactions (tools/gen_sample_transactions.py writes them).
const char* const kInv3001 = "1F0-1709557200";  // a payment applied, LinkedTxn
const char* const kInv3002 = "200-1710162000";  // 200 lines
const char* const kInv3003 = "2D0-1710766800";  // groups, blank and description-only lines
const char* const kInv3004 = "2F0-1711371600";  // number 3004, shared with 300-1712581200
const char* const kEst101 = "320-1709816400";   // subtotals, discounts, IDs out of order
const char* const kEst102 = "380-1710421200";   // Color and Lot on its lines
const char* const kSo501 = "3A0-1710939600";    // a line group
const char* const kSo501Seq = "1711029600";
const char* const kRcpt9002 = "3E0-1712926800";  // a percentage discount

std::string MsgSet(const std::string& requests, const char* onError = "stopOnError") {
    return "<?xml version=\"1.0\"?>\n<?qbxml version=\"7.0\"?>\n<QBXML>\n<QBXMLMsgsRq onError=\"" +
           std::string(onError) + "\">\n" + requests + "\n</QBXMLMsgsRq>\n</QBXML>\n";
}

std::string Query(const std::string& kind, const std::string& filter) {
    return "<" + kind + "QueryRq>" + filter + "</" + kind + "QueryRq>";
}

std::string ModRq(const std::string& kind, const std::string& txnID, const std::string& sequence,
                  const std::string& body) {
    return "<" + kind + "ModRq><" + kind + "Mod><TxnID>" + txnID + "</TxnID><EditSequence>" +
           sequence + "</EditSequence>" + body + "</" + kind + "Mod></" + kind + "ModRq>";
}

// One word per line of a returned transaction: the item, "desc", "blank", or the group with its
// lines' items.
std::vector<std::string> LineWords(const qb::View& ret, const std::string& kind) {
    std::vector<std::string> out;
    for (const qb::View& c : ret.Children()) {
        if (c.Name() == kind + "LineGroupRet") {
            std::string word = "group " + c.GetValue("ItemGroupRef/FullName") + ":";
            for (const qb::View& l : c.Children(kind + "LineRet"))
                word += " " + l.GetValue("ItemRef/FullName");
            out.push_back(word);
        } else if (c.Name() == kind + "LineRet") {
            out.push_back(c.Has("ItemRef") ? c.GetValue("ItemRef/FullName")
                          : c.Has("Desc")  ? "desc"
                                           : "blank");
        }
    }
    return out;
}

// Every answer is checked against Intuit's reference when the test ends (where it can be).
void Validate(const std::vector<std::string>& answers) {
#ifndef _WIN32
    fs::path validator =
        fs::path(PELMARK_SOURCE_DIR) / ".." / "shared" / "tools" / "qbxml_validate.py";
    if (answers.empty() || !fs::exists(validator) ||
        std::system("python3 -c pass >/dev/null 2>&1") != 0) {
        return;
    }
    test::TempDir dir;
    std::string command = "python3 '" + validator.string() + "' --responses";
    for (std::size_t i = 0; i < answers.size(); ++i) {
        dir.Write("rs" + std::to_string(i) + ".xml", answers[i]);
        command += " '" + dir.File("rs" + std::to_string(i) + ".xml") + "'";
    }
    std::string output;
    if (FILE* pipe = popen((command + " 2>&1").c_str(), "r")) {
        char buf[4096];
        while (std::size_t n = fread(buf, 1, sizeof buf, pipe)) output.append(buf, n);
        EXPECT_EQ(pclose(pipe), 0) << output;
    }
#else
    (void)answers;
#endif
}

class QbsimTxnTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(company.LoadFile(kSample).ok()); }
    void TearDown() override { Validate(answers_); }

    qb::ResponseList Ask(const std::string& messageSet) {
        ProcessResult r = ProcessRequest(company, messageSet);
        EXPECT_TRUE(r.ok) << r.message;
        answers_.push_back(r.response);
        changed = r.changed;
        qb::ResponseParseResult parsed = qb::ParseResponseSet(r.response);
        EXPECT_TRUE(parsed.ok()) << parsed.description << "\n" << r.response;
        return parsed.set.ResponseList();
    }
    qb::Response AskOne(const std::string& request) { return Ask(MsgSet(request)).GetAt(0); }
    // A transaction with its lines and custom fields, as the program asks for it.
    qb::View Get(const std::string& kind, const std::string& txnID) {
        return AskOne(Query(kind, "<TxnID>" + txnID +
                                      "</TxnID><IncludeLineItems>true</IncludeLineItems>"
                                      "<OwnerID>0</OwnerID>"))
            .Detail()
            .Child(kind + "Ret");
    }

    Company company;
    bool changed = false;

  private:
    std::vector<std::string> answers_;
};

// ---- Queries -----------------------------------------------------------------------------

using QbsimTxnQuery = QbsimTxnTest;

TEST_F(QbsimTxnQuery, FiltersSelectWhatQuickBooksWould) {
    const std::string both3004 = "3004 3004";
    struct Case {
        const char* kind;
        std::string filter;
        int status;
        std::string refs;  // RefNumbers returned, in order
    };
    const Case cases[] = {
        {"Invoice", "<RefNumber>3004</RefNumber>", 0, both3004},
        {"Invoice",
         "<EntityFilter><FullName>grant builders</FullName></EntityFilter><RefNumberRangeFilter>"
         "<FromRefNumber>3004</FromRefNumber><ToRefNumber>3004</ToRefNumber>"
         "</RefNumberRangeFilter>",
         0, both3004},
        {"Invoice", "<EntityFilter><FullName>Grant Builders</FullName></EntityFilter>", 0,
         both3004},
        {"Invoice",
         "<EntityFilter><FullNameWithChildren>Grant Builders</FullNameWithChildren>"
         "</EntityFilter>",
         0, "3003 " + both3004},
        {"Invoice",
         "<EntityFilter><ListIDWithChildren>8000000B-1609484400</ListIDWithChildren>"
         "</EntityFilter>",
         0, "3003 " + both3004},
        {"Invoice", "<EntityFilter><ListID>8000000C-1609484400</ListID></EntityFilter>", 0, "3003"},
        {"SalesOrder",
         "<EntityFilter><FullNameWithChildren>Grant Builders:Lakeview Remodel"
         "</FullNameWithChildren></EntityFilter>",
         0, "SO-503"},
        {"Invoice",
         "<ModifiedDateRangeFilter><FromModifiedDate>2024-04-01</FromModifiedDate>"
         "</ModifiedDateRangeFilter>",
         0, "3003 3004 3005"},
        {"Invoice",
         "<ModifiedDateRangeFilter><FromModifiedDate>2024-03-12T16:45:00-05:00"
         "</FromModifiedDate><ToModifiedDate>2024-03-25</ToModifiedDate>"
         "</ModifiedDateRangeFilter>",
         0, "3002 3004"},
        {"Invoice",
         "<TxnDateRangeFilter><FromTxnDate>2024-03-10</FromTxnDate><ToTxnDate>2024-03-20"
         "</ToTxnDate></TxnDateRangeFilter>",
         0, "3002 3003"},
        {"Invoice", "<MaxReturned>2</MaxReturned>", 0, "3001 3002"},
        {"Invoice",
         "<RefNumberRangeFilter><FromRefNumber>3002</FromRefNumber><ToRefNumber>3004"
         "</ToRefNumber></RefNumberRangeFilter>",
         0, "3002 3003 " + both3004},
        {"Estimate",
         "<RefNumberFilter><MatchCriterion>EndsWith</MatchCriterion><RefNumber>-102</RefNumber>"
         "</RefNumberFilter>",
         0, "E-102"},
        {"SalesReceipt",
         "<RefNumberFilter><MatchCriterion>StartsWith</MatchCriterion><RefNumber>r-900"
         "</RefNumber></RefNumberFilter>",
         0, "R-9001 R-9002 R-9003"},
        {"Invoice", "<PaidStatus>PaidOnly</PaidStatus>", 0, "3005"},
        {"Estimate", "<RefNumber>e-101</RefNumber>", 0, "E-101"},
        {"Estimate", "<RefNumberCaseSensitive>e-101</RefNumberCaseSensitive>", 1, ""},
        {"Invoice", "<RefNumber>9999</RefNumber>", 1, ""},
        {"Invoice",
         "<TxnID>" + std::string(kInv3004) + "</TxnID><TxnID>FFF-1</TxnID><TxnID>" + kInv3001 +
             "</TxnID>",
         500, "3004 3001"},
        {"Invoice", "<EntityFilter><FullName>Nobody</FullName></EntityFilter>", 500, ""},
        {"Invoice",
         "<TxnDateRangeFilter><FromTxnDate>2024-05-01</FromTxnDate><ToTxnDate>2024-04-01"
         "</ToTxnDate></TxnDateRangeFilter>",
         3030, ""},
        {"Invoice", "<TxnDateRangeFilter><DateMacro>ThisMonth</DateMacro></TxnDateRangeFilter>",
         531, "3001 3002 3003 3004 3004 3005"},
        {"Invoice", "<TxnID></TxnID>", 3000, ""},
    };
    for (const Case& c : cases) {
        qb::Response r = AskOne(Query(c.kind, c.filter));
        EXPECT_EQ(r.StatusCode(), c.status) << c.filter;
        std::string refs;
        for (const qb::View& ret : r.Element().Children())
            refs += (refs.empty() ? "" : " ") + ret.GetValue("RefNumber");
        EXPECT_EQ(refs, c.refs) << c.filter;
        if (c.status == 1) {
            EXPECT_EQ(r.StatusSeverity(), "Info");
            EXPECT_EQ(r.StatusMessage(),
                      "A query request did not find a matching object in QuickBooks");
        }
    }
    EXPECT_FALSE(changed);
}

TEST_F(QbsimTxnQuery, LinesGroupsAndCustomFieldsComeBackAsStored) {
    qb::View inv = Get("Invoice", kInv3003);
    EXPECT_EQ(LineWords(inv, "Invoice"),
              (std::vector<std::string>{"Design Review", "blank", "desc",
                                        "group Starter Kit: Widget Bracket 2in Bolt M6",
                                        "group Service Bundle: Installation Labor", "desc",
                                        "Subtotal", "10% Discount", "blank", "Cabinet Pull"}));
    std::vector<qb::View> lines = inv.Children("InvoiceLineRet");
    EXPECT_EQ(lines[1].Children().size(), 1u) << "a blank line holds only its TxnLineID";
    EXPECT_EQ(lines[3].GetValue("Desc"), "Crew: two installers\nSchedule: mornings only");
    EXPECT_EQ(Get("Invoice", kInv3002).Children("InvoiceLineRet").size(), 200u);

    // Lines come in display order; their IDs do not increase.
    std::vector<std::string> ids;
    for (const qb::View& l : Get("Estimate", kEst101).Children("EstimateLineRet"))
        ids.push_back(l.GetValue("TxnLineID"));
    EXPECT_EQ(std::vector<std::string>(ids.begin(), ids.begin() + 3),
              (std::vector<std::string>{"371-1709816400", "366-1709816400", "364-1709816400"}));

    // Custom fields only for the owner asked, on lines and header alike; lines only when asked.
    qb::View est = Get("Estimate", kEst102);
    qb::View first = est.Child("EstimateLineRet");
    ASSERT_EQ(first.Children("DataExtRet").size(), 2u);
    EXPECT_EQ(first.Children("DataExtRet")[1].GetValue("DataExtValue"), "L-2201");
    EXPECT_EQ(Get("Estimate", kEst101).GetValue("DataExtRet/DataExtValue"), "EC-2024-03");
    std::string bare =
        AskOne(Query("Estimate", "<IncludeLineItems>true</IncludeLineItems>")).ToXMLString();
    EXPECT_EQ(bare.find("DataExtRet"), std::string::npos);
    EXPECT_FALSE(AskOne(Query("Estimate", "<RefNumber>E-102</RefNumber><OwnerID>0</OwnerID>"))
                     .Element()
                     .Has("EstimateRet/EstimateLineRet"));

    qb::Response limited = AskOne(
        Query("Invoice",
              "<TxnID>" + std::string(kInv3001) +
                  "</TxnID><IncludeLineItems>true</IncludeLineItems><IncludeRetElement>"
                  "TxnID</IncludeRetElement><IncludeRetElement>RefNumber</IncludeRetElement>"));
    EXPECT_EQ(limited.Detail().Child("InvoiceRet").Children().size(), 2u);
    const std::string withLinks = "<TxnID>" + std::string(kInv3001) + "</TxnID>";
    EXPECT_FALSE(AskOne(Query("Invoice", withLinks)).Element().Has("InvoiceRet/LinkedTxn"));
    EXPECT_EQ(AskOne(Query("Invoice", withLinks + "<IncludeLinkedTxns>true</IncludeLinkedTxns>"))
                  .Element()
                  .GetValue("InvoiceRet/LinkedTxn/TxnType"),
              "ReceivePayment");
    qb::Response counted = AskOne("<EstimateQueryRq metaData=\"MetaDataOnly\"/>");
    EXPECT_EQ(counted.RetCount(), 3);
    EXPECT_TRUE(counted.Element().Children().empty());
}

// ---- Mod ---------------------------------------------------------------------------------

using QbsimTxnMod = QbsimTxnTest;

// Fills a line modify as the program does: a new line with the fields of a queried one.
void CopyLine(qb::Node& mod, const qb::View& line) {
    mod.Field("TxnLineID").SetValue("-1");
    for (const char* path : {"ItemRef/FullName", "Desc", "Quantity", "Rate", "RatePercent",
                             "Amount", "SalesTaxCodeRef/FullName", "Other1", "Other2"}) {
        if (line.Has(path)) mod.Field(path).SetValue(line.GetValue(path));
    }
    if (!line.Has("ItemRef") && !line.Has("Desc")) mod.Field("Desc").SetEmpty();
}

// The write-back of a sort: every line again as a new line, here in reverse order.
TEST_F(QbsimTxnMod, EveryLineReListedAsNewInAnotherOrder) {
    const std::pair<const char*, const char*> cases[] = {{"Invoice", kInv3003},
                                                         {"Invoice", kInv3002},
                                                         {"Estimate", kEst101},
                                                         {"SalesOrder", kSo501},
                                                         {"SalesReceipt", kRcpt9002}};
    for (const auto& [kind, txnID] : cases) {
        const std::string k = kind;
        qb::View before = Get(k, txnID);
        qb::MsgSetRequest set("US", 7, 0);
        qb::Node& mod = set.Append(k + "ModRq").Child(k + "Mod");
        mod.Field("TxnID").SetValue(txnID);
        mod.Field("EditSequence").SetValue(before.GetValue("EditSequence"));
        std::vector<qb::View> lines = before.Children();
        std::set<std::string> oldIDs;
        for (auto it = lines.rbegin(); it != lines.rend(); ++it) {
            oldIDs.insert(it->GetValue("TxnLineID"));
            if (it->Name() == k + "LineRet") {
                CopyLine(mod.Append(k + "LineMod"), *it);
            } else if (it->Name() == k + "LineGroupRet") {
                qb::Node& group = mod.Append(k + "LineGroupMod");
                group.Field("TxnLineID").SetValue("-1");
                group.Field("ItemGroupRef/FullName")
                    .SetValue(it->GetValue("ItemGroupRef/FullName"));
                group.Field("Quantity").SetValue(it->GetValue("Quantity"));
                for (const qb::View& member : it->Children(k + "LineRet"))
                    CopyLine(group.Append(k + "LineMod"), member);
            }
        }
        qb::Response r = Ask(set.ToXMLString()).GetAt(0);
        ASSERT_EQ(r.StatusCode(), 0) << k << ": " << r.StatusMessage();
        qb::View after = r.Detail();
        std::vector<std::string> words = LineWords(before, k), reversed = LineWords(after, k);
        std::reverse(words.begin(), words.end());
        EXPECT_EQ(reversed, words) << k;
        EXPECT_GT(std::stoll(after.GetValue("EditSequence")),
                  std::stoll(before.GetValue("EditSequence")));
        EXPECT_EQ(after.GetValue("TimeModified"), kClock);
        const std::string suffix = std::string(txnID).substr(std::string(txnID).find('-'));
        for (const qb::View& c : after.Children()) {
            if (!c.Has("TxnLineID")) continue;
            EXPECT_EQ(oldIDs.count(c.GetValue("TxnLineID")), 0u) << "a new line gets a new ID";
            EXPECT_TRUE(c.GetValue("TxnLineID").ends_with(suffix)) << c.GetValue("TxnLineID");
        }
        // Stored as answered; custom fields stay on the header and are gone from new lines.
        qb::View stored = Get(k, txnID);
        EXPECT_EQ(LineWords(stored, k), reversed);
        EXPECT_EQ(stored.GetValue("EditSequence"), after.GetValue("EditSequence"));
        for (const qb::View& c : stored.Children())
            EXPECT_FALSE(c.Has("DataExtRet") && c.Name() != "DataExtRet") << c.ToXMLString();
    }
    EXPECT_EQ(Get("Estimate", kEst101).GetValue("DataExtRet/DataExtValue"), "EC-2024-03");
}

TEST_F(QbsimTxnMod, AmountsAndTotalsAreWorkedOutAsQuickBooksDoes) {
    struct Line {
        std::string fields;
        std::string rate, amount;  // "" when the line has none
    };
    const Line lines[] = {
        {"<ItemRef><FullName>Widget</FullName></ItemRef><Quantity>3</Quantity>", "12.50", "37.50"},
        {"<ItemRef><FullName>Labor</FullName></ItemRef><Quantity>4</Quantity><Amount>100</Amount>",
         "25", "100.00"},
        {"<Desc>Setup</Desc><Amount>30</Amount>", "30", "30.00"},
        {"<ItemRef><FullName>Bolt M6</FullName></ItemRef><Quantity>3</Quantity>", "0.35", "1.05"},
        {"<ItemRef><FullName>Freight</FullName></ItemRef><Rate>2.675</Rate>", "2.675", "2.68"},
        {"<ItemRef><FullName>Subtotal</FullName></ItemRef>", "", "171.23"},
        {"<ItemRef><FullName>10% Discount</FullName></ItemRef>", "", "-17.12"},
        {"<Desc></Desc>", "", ""},
        {"<ItemRef><FullName>Gasket Kit</FullName></ItemRef><Quantity>2</Quantity>", "18.00",
         "36.00"},
        // The discount under the first subtotal is that subtotal's, not this one's.
        {"<ItemRef><FullName>Amount Subtotal</FullName></ItemRef>", "", "36.00"},
        {"<ItemRef><FullName>5% Discount</FullName></ItemRef>", "", "-1.80"},
        {"<ItemRef><FullName>Loyalty Credit</FullName></ItemRef>", "-25.00", "-25.00"},
    };
    std::string body;
    for (const Line& l : lines)
        body += "<InvoiceLineMod><TxnLineID>-1</TxnLineID>" + l.fields + "</InvoiceLineMod>";
    qb::Response r = AskOne(ModRq("Invoice", kInv3004, "1711384200", body));
    ASSERT_EQ(r.StatusCode(), 0) << r.StatusMessage();
    qb::View inv = r.Detail();
    std::vector<qb::View> got = inv.Children("InvoiceLineRet");
    ASSERT_EQ(got.size(), std::size(lines));
    for (std::size_t i = 0; i < got.size(); ++i) {
        EXPECT_EQ(got[i].GetValue("Rate"), lines[i].rate) << lines[i].fields;
        EXPECT_EQ(got[i].GetValue("Amount"), lines[i].amount) << lines[i].fields;
    }
    EXPECT_EQ(got[0].GetValue("Desc"), "Standard widget") << "filled in from the item";
    EXPECT_EQ(got[0].GetValue("SalesTaxCodeRef/FullName"), "Tax");
    EXPECT_EQ(got[6].GetValue("RatePercent"), "-10.00");
    // Taxable: 37.50 + 1.05 - 17.12 + 36.00 - 1.80 - 25.00 = 30.63, at 7.25% = 2.22.
    EXPECT_EQ(inv.GetValue("Subtotal"), "163.31");
    EXPECT_EQ(inv.GetValue("SalesTaxPercentage"), "7.25");
    EXPECT_EQ(inv.GetValue("SalesTaxTotal"), "2.22");
    EXPECT_EQ(inv.GetValue("BalanceRemaining"), "165.53");
    EXPECT_EQ(inv.GetValue("IsPaid"), "false");

    // A new group without lines of its own is its item group, times its quantity.
    qb::Response grouped = AskOne(
        ModRq("Invoice", kInv3004, inv.GetValue("EditSequence"),
              "<InvoiceLineGroupMod><TxnLineID>-1</TxnLineID><ItemGroupRef><FullName>Service Bundle"
              "</FullName></ItemGroupRef><Quantity>2</Quantity></InvoiceLineGroupMod>"));
    ASSERT_EQ(grouped.StatusCode(), 0) << grouped.StatusMessage();
    qb::View group = grouped.Detail().Child("InvoiceLineGroupRet");
    EXPECT_EQ(LineWords(grouped.Detail(), "Invoice"),
              (std::vector<std::string>{"group Service Bundle: Installation Labor"}));
    EXPECT_EQ(group.Children("InvoiceLineRet")[1].GetValue("Quantity"), "4");
    EXPECT_EQ(group.GetValue("TotalAmount"), "330.00");
    EXPECT_EQ(group.GetValue("IsPrintItemsInGroup"), "false");
    EXPECT_EQ(grouped.Detail().GetValue("SalesTaxTotal"), "0.00") << "labor is not taxable";
}

TEST_F(QbsimTxnMod, ListedLinesStayAndUnlistedLinesGo) {
    auto line = [](const std::string& id, const std::string& fields = "") {
        return "<EstimateLineMod><TxnLineID>" + id + "</TxnLineID>" + fields + "</EstimateLineMod>";
    };
    qb::Response r = AskOne(ModRq(
        "Estimate", kEst102, "1710446400",
        line("381-1710421200") +
            line("-1", "<ItemRef><FullName>Widget</FullName></ItemRef><Quantity>1</Quantity>") +
            line("383-1710421200", "<Quantity>10</Quantity>")));
    ASSERT_EQ(r.StatusCode(), 0) << r.StatusMessage();
    qb::View est = Get("Estimate", kEst102);
    std::vector<qb::View> lines = est.Children("EstimateLineRet");
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0].GetValue("TxnLineID"), "381-1710421200");
    EXPECT_EQ(lines[0].Children("DataExtRet").size(), 2u) << "a kept line keeps its fields";
    EXPECT_EQ(lines[1].GetValue("TxnLineID"), "80000100-1710421200");
    EXPECT_EQ(lines[2].GetValue("Amount"), "3.50") << "10 x 0.35";
    EXPECT_EQ(lines[2].GetValue("DataExtRet/DataExtValue"), "B-77");
    EXPECT_EQ(est.GetValue("Subtotal"), "175.00");

    // A group keeps its lines unless some are listed; then only those stay.
    auto soLine = [](const std::string& id, const std::string& inner = "") {
        return "<SalesOrderLineMod><TxnLineID>" + id + "</TxnLineID>" + inner +
               "</SalesOrderLineMod>";
    };
    auto group = [&](const std::string& inner) {
        return "<SalesOrderLineGroupMod><TxnLineID>3A1-1710939600</TxnLineID>" + inner +
               "</SalesOrderLineGroupMod>";
    };
    qb::Response whole = AskOne(ModRq("SalesOrder", kSo501, kSo501Seq, group("")));
    ASSERT_EQ(whole.StatusCode(), 0) << whole.StatusMessage();
    EXPECT_EQ(LineWords(whole.Detail(), "SalesOrder"),
              (std::vector<std::string>{"group Starter Kit: Widget Bracket 2in Bolt M6"}));
    qb::Response part = AskOne(ModRq("SalesOrder", kSo501, whole.Detail().GetValue("EditSequence"),
                                     group(soLine("3A2-1710939600") + soLine("3A4-1710939600"))));
    ASSERT_EQ(part.StatusCode(), 0) << part.StatusMessage();
    EXPECT_EQ(part.Detail().GetValue("SalesOrderLineGroupRet/TotalAmount"), "41.70");

    // Header fields alone leave the lines; an empty text field clears.
    const std::string seq = part.Detail().GetValue("EditSequence");
    qb::Response memo = AskOne(
        ModRq("SalesOrder", kSo501, seq, "<PONumber>PO-9</PONumber><Memo>Call first</Memo>"));
    EXPECT_EQ(memo.Detail().GetValue("Memo"), "Call first");
    EXPECT_EQ(memo.Detail().Children("SalesOrderLineGroupRet").size(), 1u);
    qb::Response cleared = AskOne(
        ModRq("SalesOrder", kSo501, memo.Detail().GetValue("EditSequence"), "<Memo></Memo>"));
    EXPECT_FALSE(cleared.Detail().Has("Memo"));
    EXPECT_EQ(cleared.Detail().GetValue("PONumber"), "PO-9");
}

TEST_F(QbsimTxnMod, RefusedModsChangeNothing) {
    auto line = [](const std::string& id, const std::string& inner = "") {
        return "<SalesOrderLineMod><TxnLineID>" + id + "</TxnLineID>" + inner +
               "</SalesOrderLineMod>";
    };
    const std::string widget = "<ItemRef><FullName>Widget</FullName></ItemRef>";
    struct Case {
        std::string txnID, sequence, body;
        int status;
        std::string message;
    };
    const Case cases[] = {
        {kSo501, "1", "", 3200, "The provided edit sequence \"1\" is out-of-date. "},
        {kSo501, kSo501Seq, line("3A6-1710939600") + line("3A5-1710939600"), 3290,
         "The item \"3A5-1710939600\" is placed in the request in incorrect order."},
        {kSo501, kSo501Seq, line("3A5-1710939600") + line("3A5-1710939600"), 3290, "3A5"},
        {kSo501, kSo501Seq, line("3A2-1710939600"), 3290, "3A2"},  // a group's line, outside it
        {kSo501, kSo501Seq, line("999-1"), 3120,
         "Object \"999-1\" specified in the request cannot be found."},
        {"999-1", "1", "", 3120, "\"999-1\""},
        {"", "1", "", 3000, "The given object ID \"\" in the field \"txn id\" is invalid."},
        {kSo501, kSo501Seq,
         line("-1", widget) + line("-1", "<ItemRef><FullName>Gizmo</FullName></ItemRef>"), 3140,
         "There is an invalid reference to QuickBooks Item \"Gizmo\" in the SalesOrder line.  "
         "QuickBooks error message: Invalid argument.  The specified record does not exist in "
         "the list."},
        {kSo501, kSo501Seq,
         "<SalesOrderLineGroupMod><TxnLineID>-1</TxnLineID></SalesOrderLineGroupMod>", 3140,
         "ItemGroup"},
        {kSo501, kSo501Seq, "<ShipMethodRef><FullName>Camel</FullName></ShipMethodRef>", 3140,
         "ShipMethod \"Camel\" in the SalesOrder."},
    };
    const std::string before = company.ToXml();
    for (const Case& c : cases) {
        qb::Response r = AskOne(ModRq("SalesOrder", c.txnID, c.sequence, c.body));
        EXPECT_EQ(r.StatusCode(), c.status) << c.body;
        EXPECT_EQ(r.StatusSeverity(), "Error");
        EXPECT_NE(r.StatusMessage().find(c.message), std::string::npos) << r.StatusMessage();
        EXPECT_EQ(r.Element().Has("SalesOrderRet"), c.status == 3200) << "only 3200 returns it";
        EXPECT_FALSE(changed) << c.body;
        EXPECT_EQ(company.ToXml(), before) << c.body;
    }
    EXPECT_EQ(AskOne(ModRq("SalesOrder", kSo501, "1", ""))
                  .Element()
                  .GetValue("SalesOrderRet/EditSequence"),
              kSo501Seq)
        << "3200 returns the transaction as it is now";

    // Under stopOnError the requests after a refused Mod are not processed.
    qb::ResponseList stop = Ask(MsgSet(ModRq("SalesOrder", kSo501, "1", "") +
                                       "<TxnDisplayModRq><TxnDisplayModType>SalesOrder"
                                       "</TxnDisplayModType><TxnID>" +
                                       kSo501 + "</TxnID></TxnDisplayModRq>"));
    EXPECT_EQ(stop.GetAt(1).StatusCode(), 3231);
    EXPECT_TRUE(company.DisplayRequests().empty());
}

TEST_F(QbsimTxnMod, LongAndMultiLineDescriptionsAreKeptAsSent) {
    const std::string longDesc(4095, 'x'), twoLines = "first line\nsecond line";
    auto mod = [&](const std::string& seq, const std::string& desc) {
        return MsgSet(ModRq("Invoice", kInv3001, seq,
                            "<InvoiceLineMod><TxnLineID>-1</TxnLineID><Desc>" + desc +
                                "</Desc></InvoiceLineMod><InvoiceLineMod><TxnLineID>-1"
                                "</TxnLineID><Desc>" +
                                twoLines + "</Desc></InvoiceLineMod>"));
    };
    qb::Response r = Ask(mod("1709651520", longDesc)).GetAt(0);
    ASSERT_EQ(r.StatusCode(), 0) << r.StatusMessage();
    ProcessResult tooLong =
        ProcessRequest(company, mod(r.Detail().GetValue("EditSequence"), longDesc + "x"));
    EXPECT_FALSE(tooLong.ok);
    EXPECT_EQ(tooLong.hresult, kHrParseError);

    test::TempDir dir;
    ASSERT_TRUE(company.SaveFile(dir.File("co.xml")).ok);
    ASSERT_TRUE(company.LoadFile(dir.File("co.xml")).ok());
    std::vector<qb::View> lines = Get("Invoice", kInv3001).Children("InvoiceLineRet");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].GetValue("Desc"), longDesc);
    EXPECT_EQ(lines[1].GetValue("Desc"), twoLines);
    EXPECT_FALSE(lines[1].Has("Amount")) << "a description-only line has no amount";
}

// Another program (or user) changes the transaction between the query and the Mod.
TEST(QbsimTxnTransport, AModAfterSomeoneElsesChangeIsStale) {
    test::TempDir dir;
    fs::copy_file(kSample, dir.File("co.xml"));
    SimTransport mine(dir.File("co.xml")), theirs(dir.File("co.xml"));
    std::string ticket, other, response;
    ASSERT_TRUE(mine.OpenConnection("", "Pelmark").ok);
    ASSERT_TRUE(mine.BeginSession("", qb::kOpenDoNotCare, &ticket).ok);
    ASSERT_TRUE(theirs.OpenConnection("", "Other").ok);
    ASSERT_TRUE(theirs.BeginSession("", qb::kOpenDoNotCare, &other).ok);

    ASSERT_TRUE(
        theirs
            .ProcessRequest(other,
                            MsgSet(ModRq("SalesOrder", kSo501, kSo501Seq, "<Memo>theirs</Memo>")),
                            &response)
            .ok);
    const std::string saved = dir.Read("co.xml");
    ASSERT_TRUE(mine.ProcessRequest(ticket,
                                    MsgSet(ModRq("SalesOrder", kSo501, kSo501Seq,
                                                 "<SalesOrderLineMod><TxnLineID>-1</TxnLineID>"
                                                 "<Desc>mine</Desc></SalesOrderLineMod>")),
                                    &response)
                    .ok);
    qb::Response r = qb::ParseResponseSet(response).set.ResponseList().GetAt(0);
    EXPECT_EQ(r.StatusCode(), 3200);
    EXPECT_EQ(r.Detail().GetValue("Memo"), "theirs") << "the transaction as it is now";
    EXPECT_NE(r.Detail().GetValue("EditSequence"), kSo501Seq);
    EXPECT_EQ(dir.Read("co.xml"), saved);
    Validate({response});
}

// ---- Add ---------------------------------------------------------------------------------

using QbsimTxnAdd = QbsimTxnTest;

TEST_F(QbsimTxnAdd, EachKindGetsNewIDsNumbersAndTotals) {
    struct Case {
        const char* kind;
        const char* refNumber;  // the next number of its kind
        const char* templateName;
        const char* total;  // TotalAmount, or an invoice's BalanceRemaining
    };
    const Case cases[] = {{"Invoice", "3006", "Intuit Product Invoice", "91.81"},
                          {"Estimate", "1", "Custom Estimate", "91.81"},
                          {"SalesOrder", "1", "Custom Sales Order", "91.81"},
                          {"SalesReceipt", "1", "Custom Sales Receipt", "91.81"}};
    int number = 116;  // the sample's transactions are numbered up to 115
    for (const Case& c : cases) {
        const std::string k = c.kind;
        qb::Response r = AskOne(
            "<" + k + "AddRq><" + k +
            "Add><CustomerRef><FullName>Baker Hardware</FullName></CustomerRef><ItemSalesTaxRef>"
            "<FullName>Combined Tax</FullName></ItemSalesTaxRef><" +
            k +
            "LineAdd><ItemRef><FullName>Widget</FullName></ItemRef><Quantity>2</Quantity>"
            "<DataExt><OwnerID>0</OwnerID><DataExtName>color</DataExtName><DataExtValue>Teal"
            "</DataExtValue></DataExt></" +
            k + "LineAdd><" + k + "LineAdd><ItemRef><FullName>Labor</FullName></ItemRef></" + k +
            "LineAdd></" + k + "Add></" + k + "AddRq>");
        ASSERT_EQ(r.StatusCode(), 0) << k << ": " << r.StatusMessage();
        qb::View ret = r.Detail();
        const std::string txnID = ret.GetValue("TxnID");
        EXPECT_TRUE(txnID.starts_with("80000") && txnID.ends_with("-1714573800")) << txnID;
        EXPECT_EQ(ret.GetValue("TxnNumber"), std::to_string(number++));
        EXPECT_EQ(ret.GetValue("RefNumber"), c.refNumber);
        EXPECT_EQ(ret.GetValue("TxnDate"), "2024-05-01");
        EXPECT_EQ(ret.GetValue("TemplateRef/FullName"), c.templateName);
        EXPECT_EQ(ret.GetValue("Subtotal"), "90.00");
        EXPECT_EQ(ret.GetValue("SalesTaxTotal"), "1.81") << "7.25% of the widgets' 25.00";
        EXPECT_EQ(ret.GetValue(k == "Invoice" ? "BalanceRemaining" : "TotalAmount"), c.total);
        EXPECT_FALSE(ret.Has(k + "LineRet/DataExtRet")) << "an Add answer names no owner";
        qb::View stored = Get(k, txnID);
        std::vector<qb::View> lines = stored.Children(k + "LineRet");
        ASSERT_EQ(lines.size(), 2u);
        EXPECT_EQ(lines[0].GetValue("DataExtRet/DataExtName"), "Color");
        EXPECT_EQ(lines[0].GetValue("DataExtRet/DataExtValue"), "Teal");
        EXPECT_TRUE(lines[1].GetValue("TxnLineID").ends_with("-1714573800"));
    }
    const std::string before = company.ToXml();
    EXPECT_EQ(AskOne("<InvoiceAddRq><InvoiceAdd><CustomerRef><FullName>Nobody</FullName>"
                     "</CustomerRef></InvoiceAdd></InvoiceAddRq>")
                  .StatusCode(),
              3140);
    EXPECT_EQ(AskOne("<InvoiceAddRq><InvoiceAdd><CustomerRef><FullName>Keller Farms</FullName>"
                     "</CustomerRef><InvoiceLineAdd><Desc>x</Desc><DataExt><OwnerID>0</OwnerID>"
                     "<DataExtName>Shoe Size</DataExtName><DataExtValue>9</DataExtValue>"
                     "</DataExt></InvoiceLineAdd></InvoiceAdd></InvoiceAddRq>")
                  .StatusCode(),
              3120);
    EXPECT_EQ(company.ToXml(), before);
}

// ---- Display -----------------------------------------------------------------------------

TEST_F(QbsimTxnTest, TxnDisplayModIsRecordedForTheDesktop) {
    auto display = [&](const std::string& kind, const std::string& txnID) {
        return AskOne("<TxnDisplayModRq><TxnDisplayModType>" + kind +
                      "</TxnDisplayModType><TxnID>" + txnID + "</TxnID></TxnDisplayModRq>")
            .StatusCode();
    };
    EXPECT_EQ(display("Invoice", kInv3003), 0);
    EXPECT_TRUE(changed);
    EXPECT_EQ(display("Estimate", kEst101), 0);
    EXPECT_EQ(display("Invoice", ""), 3000);
    EXPECT_EQ(display("Invoice", kEst101), 3120) << "an estimate's ID is no invoice";
    EXPECT_EQ(display("PurchaseOrder", "FFF-1"), 3120);
    std::vector<DisplayRequest> shown = company.DisplayRequests();
    ASSERT_EQ(shown.size(), 2u);
    EXPECT_EQ(shown[1].sequence, 2);
    EXPECT_EQ(shown[1].txnType, "Estimate");
    EXPECT_EQ(shown[1].txnID, kEst101);
    EXPECT_EQ(shown[1].time, kClock);

    for (int i = 0; i < 20; ++i) company.RecordDisplay("Invoice", kInv3001);
    shown = company.DisplayRequests();
    EXPECT_EQ(shown.size(), kDisplayHistory);
    EXPECT_EQ(shown.back().sequence, 22);
    Company again;
    ASSERT_TRUE(again.LoadText(company.ToXml()).ok()) << "the records pass the load checks";
    EXPECT_EQ(again.DisplayRequests().back().sequence, 22);
    std::string bad = company.ToXml();
    bad.replace(bad.find("sequence=\"22\""), 13, "sequence=\"x\"");
    EXPECT_NE(again.LoadText(bad).description.find("TxnDisplay"), std::string::npos);
}

// ---- The sample company ------------------------------------------------------------------

// The sample's stored amounts are those qbsim works out (a Mod that changes nothing recomputes
// them), and it holds what the sort needs to be tried on.
TEST_F(QbsimTxnTest, SampleTransactionsAreConsistentAndVaried) {
    std::size_t withGroups = 0, withBlanks = 0, withDescOnly = 0, withLineFields = 0;
    for (std::string_view kind : kTxnKinds) {
        const std::string k(kind);
        std::vector<pugi::xml_node> txns = company.Objects(k + "Ret");
        EXPECT_GE(txns.size(), 3u) << k;
        for (pugi::xml_node t : txns) {
            const std::string id = ChildText(t, "TxnID");
            qb::View before = Get(k, id);
            qb::Response r = AskOne(ModRq(k, id, before.GetValue("EditSequence"), ""));
            ASSERT_EQ(r.StatusCode(), 0) << id << ": " << r.StatusMessage();
            for (const char* total :
                 {"Subtotal", "SalesTaxTotal", "TotalAmount", "BalanceRemaining", "IsPaid"}) {
                EXPECT_EQ(r.Detail().GetValue(total), before.GetValue(total)) << id << " " << total;
            }
            auto lines = [&](const qb::View& ret) {
                std::vector<qb::View> out;
                for (const qb::View& c : ret.Children()) {
                    if (c.Name() == k + "LineRet" || c.Name() == k + "LineGroupRet")
                        out.push_back(c);
                }
                return out;
            };
            std::vector<qb::View> was = lines(before), now = lines(r.Detail());
            ASSERT_EQ(now.size(), was.size()) << id;
            for (std::size_t i = 0; i < now.size(); ++i) {
                EXPECT_EQ(now[i].GetValue("Amount"), was[i].GetValue("Amount")) << id;
                EXPECT_EQ(now[i].GetValue("TotalAmount"), was[i].GetValue("TotalAmount")) << id;
            }
            std::vector<std::string> words = LineWords(before, k);
            withGroups += std::count_if(words.begin(), words.end(), [](const std::string& w) {
                return w.starts_with("group");
            });
            withBlanks += std::count(words.begin(), words.end(), "blank");
            withDescOnly += std::count(words.begin(), words.end(), "desc");
            for (const qb::View& l : before.Children(k + "LineRet"))
                withLineFields += l.Children("DataExtRet").size();
        }
    }
    EXPECT_GE(withGroups, 2u);
    EXPECT_GE(withBlanks, 2u);
    EXPECT_GE(withDescOnly, 2u);
    EXPECT_GE(withLineFields, 4u);
}

}  // namespace
}  // namespace pelmark::sim
