// qbsim, the QuickBooks stand-in: its answers to each request kind, custom-field writes, message
// set rules, the company file (load checks, atomic save) and the transport and CLI around them.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>
#ifndef _WIN32
#include <sys/wait.h>
#endif

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
const char* const kPrivateOwner =
    "{6b063959-81b0-4622-85d6-f548c8ccb517}";  // lower case on purpose

// A small company with one invoice: two lines, a line group with a line inside it.
const char* const kSmallCompany = R"(<?xml version="1.0"?>
<QBSimCompany>
  <QBSimSettings clock="2024-05-01T09:30:00-05:00"/>
  <HostRet><ProductName>QuickBooks Pro 2014</ProductName><MajorVersion>24</MajorVersion>
    <MinorVersion>0</MinorVersion><SupportedQBXMLVersion>7.0</SupportedQBXMLVersion></HostRet>
  <CompanyRet><IsSampleCompany>false</IsSampleCompany><CompanyName>Small Co</CompanyName></CompanyRet>
  <DataExtDefRet><OwnerID>0</OwnerID><DataExtName>Color</DataExtName><DataExtType>STR255TYPE</DataExtType>
    <AssignToObject>Item</AssignToObject></DataExtDefRet>
  <DataExtDefRet><OwnerID>0</OwnerID><DataExtName>PO Ref</DataExtName><DataExtType>STR255TYPE</DataExtType>
    <AssignToObject>Invoice</AssignToObject></DataExtDefRet>
  <InvoiceRet><TxnID>1A2B-1700000000</TxnID><TimeCreated>2023-11-14T17:13:20-05:00</TimeCreated>
    <TimeModified>2023-11-14T17:13:20-05:00</TimeModified><EditSequence>1700000000</EditSequence>
    <InvoiceLineRet><TxnLineID>1A2D-1700000000</TxnLineID><Desc>first</Desc>
      <DataExtRet><OwnerID>0</OwnerID><DataExtName>Color</DataExtName><DataExtType>STR255TYPE</DataExtType>
        <DataExtValue>Red</DataExtValue></DataExtRet></InvoiceLineRet>
    <InvoiceLineGroupRet><TxnLineID>1A2E-1700000000</TxnLineID>
      <InvoiceLineRet><TxnLineID>1A2F-1700000000</TxnLineID></InvoiceLineRet></InvoiceLineGroupRet>
    <InvoiceLineRet><TxnLineID>1A2C-1700000000</TxnLineID></InvoiceLineRet>
  </InvoiceRet>
</QBSimCompany>
)";

std::string MsgSet(const std::string& requests, const char* onError = "stopOnError",
                   const char* version = "7.0") {
    return std::string("<?xml version=\"1.0\"?>\n<?qbxml version=\"") + version +
           "\"?>\n<QBXML>\n<QBXMLMsgsRq onError=\"" + onError + "\">\n" + requests +
           "\n</QBXMLMsgsRq>\n</QBXML>\n";
}

// A DataExt request; `target` is the OR branch naming the object.
std::string Ext(const std::string& op, const std::string& target, const std::string& name,
                const char* value = nullptr, const char* owner = "0") {
    std::string body = "<OwnerID>" + std::string(owner) + "</OwnerID><DataExtName>" + name +
                       "</DataExtName>" + target;
    if (value) body += "<DataExtValue>" + std::string(value) + "</DataExtValue>";
    return "<" + op + "Rq><" + op + ">" + body + "</" + op + "></" + op + "Rq>";
}
std::string Item(const std::string& name) {
    return "<ListDataExtType>Item</ListDataExtType><ListObjRef><FullName>" + name +
           "</FullName></ListObjRef>";
}
std::string Line(const std::string& kind, const std::string& txnID, const std::string& lineID) {
    return "<TxnDataExtType>" + kind + "</TxnDataExtType><TxnID>" + txnID + "</TxnID>" +
           (lineID.empty() ? "" : "<TxnLineID>" + lineID + "</TxnLineID>");
}

std::vector<std::string> Values(const qb::Response& r, const char* path) {
    std::vector<std::string> out;
    for (const qb::View& ret : r.Element().Children()) out.push_back(ret.GetValue(path));
    return out;
}

// Asks the processor and reads the answer with the program's own response parser. Every answer
// is kept and checked against Intuit's reference when the test ends.
class QbsimTest : public ::testing::Test {
  protected:
    void SetUp() override {
        LoadResult loaded = company.LoadFile(kSample);
        ASSERT_TRUE(loaded.ok()) << loaded.ToString();
    }

    void TearDown() override {
#ifndef _WIN32
        fs::path validator =
            fs::path(PELMARK_SOURCE_DIR) / ".." / "shared" / "tools" / "qbxml_validate.py";
        if (answers_.empty() || !fs::exists(validator) ||
            std::system("python3 -c pass >/dev/null 2>&1") != 0) {
            return;  // no validator here: the answers were still checked above
        }
        test::TempDir dir;
        std::string command = "python3 '" + validator.string() + "' --responses";
        for (std::size_t i = 0; i < answers_.size(); ++i) {
            dir.Write("rs" + std::to_string(i) + ".xml", answers_[i]);
            command += " '" + dir.File("rs" + std::to_string(i) + ".xml") + "'";
        }
        std::string output;
        if (FILE* pipe = popen((command + " 2>&1").c_str(), "r")) {
            char buf[4096];
            while (std::size_t n = fread(buf, 1, sizeof buf, pipe)) output.append(buf, n);
            EXPECT_EQ(pclose(pipe), 0) << output;
        }
#endif
    }

    qb::ResponseList Ask(const std::string& messageSet) {
        ProcessResult r = ProcessRequest(company, messageSet);
        EXPECT_TRUE(r.ok) << r.message << "\n" << messageSet;
        answers_.push_back(r.response);
        changed = r.changed;
        qb::ResponseParseResult parsed = qb::ParseResponseSet(r.response);
        EXPECT_TRUE(parsed.ok()) << parsed.description << "\n" << r.response;
        return parsed.set.ResponseList();
    }
    qb::Response AskOne(const std::string& request) {
        return Ask(MsgSet(request)).GetAt(0);
    }

    Company company;
    bool changed = false;

  private:
    std::vector<std::string> answers_;
};

// ---- Queries -----------------------------------------------------------------------------

using QbsimQuery = QbsimTest;

TEST_F(QbsimQuery, HostCompanyAndCustomFieldDefinitions) {
    qb::Response host =
        Ask(MsgSet("<HostQueryRq requestID=\"0\"/>", "stopOnError", "1.0")).GetAt(0);
    EXPECT_EQ(host.StatusCode(), 0);
    EXPECT_EQ(host.StatusSeverity(), "Info");
    EXPECT_EQ(host.StatusMessage(), "Status OK");
    EXPECT_EQ(host.RequestID(), "0");
    qb::View ret = host.Element().Child("HostRet");
    EXPECT_EQ(ret.Children("SupportedQBXMLVersion").size(), 15u);
    EXPECT_EQ(ret.Children("SupportedQBXMLVersion").back().GetValue(), "13.0");
    EXPECT_FALSE(ret.Has("QBFileMode")) << "a qbXML 1.0 HostRet has no 3.0 elements";
    EXPECT_TRUE(AskOne("<HostQueryRq/>").Element().Has("HostRet/QBFileMode"));

    EXPECT_FALSE(AskOne("<CompanyQueryRq/>").Element().Has("CompanyRet/DataExtRet"));
    qb::Response priv = AskOne("<CompanyQueryRq><OwnerID>" + std::string(kPrivateOwner) +
                               "</OwnerID></CompanyQueryRq>");
    EXPECT_EQ(priv.Element().GetValue("CompanyRet/DataExtRet/DataExtName"), "FileID");

    // Without an owner only the custom fields, never another application's private data.
    EXPECT_EQ(Values(AskOne("<DataExtDefQueryRq/>"), "DataExtName"),
              (std::vector<std::string>{"Net Weight", "Color", "Lot", "PO Ref", "Region"}));
    EXPECT_EQ(Values(AskOne("<DataExtDefQueryRq><OwnerID>" + std::string(kPrivateOwner) +
                            "</OwnerID></DataExtDefQueryRq>"),
                     "DataExtName"),
              (std::vector<std::string>{"FileID"}));
    EXPECT_EQ(Values(AskOne("<DataExtDefQueryRq><AssignToObject>Customer</AssignToObject>"
                            "</DataExtDefQueryRq>"),
                     "DataExtName"),
              (std::vector<std::string>{"Region"}));
}

TEST_F(QbsimQuery, CustomerFilters) {
    struct Case {
        const char* filter;
        int status;
        std::vector<std::string> names;  // empty: only the count matters
        std::size_t count;
    };
    const Case cases[] = {
        {"", 0, {}, 13},  // Juniper School is inactive
        {"<ActiveStatus>All</ActiveStatus>", 0, {}, 14},
        {"<ActiveStatus>InactiveOnly</ActiveStatus>", 0, {"Juniper School"}, 1},
        {"<FullName>baker hardware:STORE 12</FullName>", 0, {"Baker Hardware:Store 12"}, 1},
        {"<FullName>Juniper School</FullName>", 0, {"Juniper School"}, 1},
        {"<FullName>Keller Farms</FullName><FullName>Nobody</FullName>", 500, {"Keller Farms"}, 1},
        {"<ListID>80000099-1</ListID>", 500, {}, 0},
        {"<MaxReturned>2</MaxReturned>", 0, {"Baker Hardware", "Baker Hardware:Store 12"}, 2},
        {"<NameFilter><MatchCriterion>StartsWith</MatchCriterion><Name>grant</Name></NameFilter>",
         0,
         {"Grant Builders", "Grant Builders:Lakeview Remodel",
          "Grant Builders:Lakeview Remodel:Phase 2"},
         3},
        {"<NameFilter><MatchCriterion>Contains</MatchCriterion><Name>caf</Name></NameFilter>",
         0,
         {"Hollis Caf\xC3\xA9"},
         1},
        {"<NameFilter><MatchCriterion>EndsWith</MatchCriterion><Name>FARMS</Name></NameFilter>",
         0,
         {"Keller Farms"},
         1},
        {"<NameRangeFilter><FromName>D</FromName><ToName>F</ToName></NameRangeFilter>",
         0,
         {"Delgado, Maria", "Eastside Clinic"},
         2},
        {"<TotalBalanceFilter><Operator>GreaterThan</Operator><Amount>1000</Amount>"
         "</TotalBalanceFilter>",
         0,
         {"Baker Hardware", "Cole Dental Lab", "Grant Builders", "Grant Builders:Lakeview Remodel",
          "Grant Builders:Lakeview Remodel:Phase 2"},
         5},
        {"<FromModifiedDate>2024-01-01</FromModifiedDate>", 1, {}, 0},
        {"<NameFilter><MatchCriterion>StartsWith</MatchCriterion><Name>zz</Name></NameFilter>",
         1,
         {},
         0},
    };
    for (const Case& c : cases) {
        qb::Response r = AskOne(std::string("<CustomerQueryRq>") + c.filter + "</CustomerQueryRq>");
        EXPECT_EQ(r.StatusCode(), c.status) << c.filter;
        std::vector<std::string> names = Values(r, "FullName");
        EXPECT_EQ(names.size(), c.count) << c.filter;
        if (!c.names.empty()) {
            EXPECT_EQ(names, c.names) << c.filter;
        }
        if (c.status == 1) {
            EXPECT_EQ(r.StatusSeverity(), "Info");
            EXPECT_EQ(r.StatusMessage(),
                      "A query request did not find a matching object in QuickBooks");
        }
        if (c.status == 500) {
            EXPECT_EQ(r.StatusSeverity(), "Warn");
            EXPECT_NE(r.StatusMessage().find("could not be found in QuickBooks"),
                      std::string::npos);
        }
    }
}

// Items built the way the program builds them: through the qbXML request model.
TEST_F(QbsimQuery, ItemsOfEveryKindCustomFieldsAndTrimming) {
    qb::MsgSetRequest set("US", 7, 0);
    set.Append("ItemQueryRq").Append("OwnerID").SetValue("0");
    qb::Node& limited = set.Append("ItemQueryRq");
    for (const char* e : {"Name", "FullName", "DataExtRetList"})
        limited.Append("IncludeRetElement").SetValue(e);
    limited.Append("OwnerID").SetValue("0");
    qb::Node& withExt = set.Append("ItemQueryRq");
    withExt.Append("FullName").SetValue("Widget:Blue");
    withExt.Append("FullName").SetValue("starter kit");
    for (const char* e : {"Name", "DataExtRet"}) withExt.Append("IncludeRetElement").SetValue(e);
    withExt.Append("OwnerID").SetValue("0");
    set.Append("ItemQueryRq");  // no OwnerID: no custom fields
    qb::ResponseList rs = Ask(set.ToXMLString());

    std::set<std::string> kinds;
    std::size_t count = 0;
    for (const qb::View& ret : rs.GetAt(0).Element().Children()) {
        kinds.insert(ret.Name());
        ++count;
        if (ret.GetValue("FullName") == "Widget") {
            EXPECT_EQ(ret.GetValue("DataExtRet/DataExtValue"), "0.45 lb");
        }
    }
    EXPECT_EQ(kinds.size(), std::size(kItemRets));
    EXPECT_GE(count, 30u);

    // Only the elements asked for; "DataExtRetList" is no element name and selects nothing.
    for (const qb::View& ret : rs.GetAt(1).Element().Children()) {
        for (const qb::View& field : ret.Children()) {
            EXPECT_TRUE(field.Name() == "Name" || field.Name() == "FullName") << field.Name();
        }
    }
    std::vector<qb::View> two = rs.GetAt(2).Element().Children();
    ASSERT_EQ(two.size(), 2u);
    EXPECT_EQ(two[0].GetValue("DataExtRet/DataExtName"), "Net Weight");
    EXPECT_EQ(two[1].Name(), "ItemGroupRet");  // found by Name: groups have no FullName
    EXPECT_FALSE(two[1].Has("ItemDesc"));
    for (const qb::View& ret : rs.GetAt(3).Element().Children())
        EXPECT_FALSE(ret.Has("DataExtRet"));
}

TEST_F(QbsimQuery, RestrictedUserGets3260UntilTheQueryIsLimited) {
    company.Root().child(kSettingsName).attribute("restrictedUser").set_value("true");
    for (const char* query : {"ItemQueryRq", "SalesTaxCodeQueryRq"}) {
        qb::Response denied = AskOne("<" + std::string(query) + "/>");
        EXPECT_EQ(denied.StatusCode(), 3260) << query;
        EXPECT_EQ(denied.StatusSeverity(), "Error");
        EXPECT_EQ(denied.StatusMessage(), "Insufficient permission level to perform this action.");
        EXPECT_TRUE(denied.Element().Children().empty());
    }
    std::string retry = "<ItemQueryRq>";
    for (const char* e :
         {"Name", "FullName", "ListID", "Price", "Cost", "EditSequence", "PreferedVendor", "Desc",
          "SalesDesc", "PurchaseDesc", "IsActive", "DataExtRetList", "SalesTaxCodeRef",
          "SalesOrPurchase", "SalesAndPurchase", "AccountRef"}) {
        retry += "<IncludeRetElement>" + std::string(e) + "</IncludeRetElement>";
    }
    qb::Response items = AskOne(retry + "<OwnerID>0</OwnerID></ItemQueryRq>");
    EXPECT_EQ(items.StatusCode(), 0);
    EXPECT_GE(items.Element().Children().size(), 30u);
    EXPECT_EQ(AskOne("<SalesTaxCodeQueryRq><IncludeRetElement>Name</IncludeRetElement>"
                     "</SalesTaxCodeQueryRq>")
                  .StatusCode(),
              0);
    EXPECT_EQ(AskOne("<CustomerQueryRq/>").StatusCode(), 0) << "customers are not restricted";
}

TEST_F(QbsimQuery, TemplatesTaxCodesAndCounts) {
    qb::Response templates = AskOne("<TemplateQueryRq/>");
    EXPECT_EQ(Values(templates, "TemplateType"),
              (std::vector<std::string>{"Invoice", "Invoice", "Estimate", "SalesOrder",
                                        "SalesReceipt", "CreditMemo", "PurchaseOrder"}));
    EXPECT_EQ(Values(AskOne("<SalesTaxCodeQueryRq/>"), "Name"),
              (std::vector<std::string>{"Tax", "Non"}));  // "Out" is inactive
    qb::Response counted = AskOne("<CustomerQueryRq metaData=\"MetaDataOnly\"/>");
    EXPECT_EQ(counted.RetCount(), 13);
    EXPECT_TRUE(counted.Element().Children().empty());
    EXPECT_EQ(AskOne("<PreferencesQueryRq/>").StatusCode(), 1030) << "known, but not answered";
}

// ---- Custom-field values -----------------------------------------------------------------

using QbsimDataExt = QbsimTest;

TEST_F(QbsimDataExt, AddModifyDeleteOnAnItemAndTheCompany) {
    std::string before =
        company.FindByFullName({"ItemServiceRet"}, "Labor").child("EditSequence").text().get();
    qb::Response add = AskOne(Ext("DataExtAdd", Item("labor"), "net weight", "1 lb"));
    EXPECT_EQ(add.StatusCode(), 0);
    EXPECT_TRUE(changed);
    EXPECT_EQ(add.Element().GetValue("DataExtRet/DataExtName"), "Net Weight");
    EXPECT_EQ(add.Element().GetValue("DataExtRet/DataExtType"), "STR255TYPE");
    pugi::xml_node labor = company.FindByFullName({"ItemServiceRet"}, "Labor");
    EXPECT_NE(before, labor.child("EditSequence").text().get());
    EXPECT_STREQ(labor.child("TimeModified").text().get(), "2024-05-01T09:30:00-05:00");

    EXPECT_EQ(AskOne(Ext("DataExtMod", Item("Labor"), "Net Weight", "2 lb")).StatusCode(), 0);
    EXPECT_EQ(company.FindByFullName({"ItemServiceRet"}, "Labor")
                  .child("DataExtRet")
                  .child("DataExtValue")
                  .text()
                  .as_string(),
              std::string("2 lb"));
    qb::Response del = AskOne(Ext("DataExtDel", Item("Labor"), "Net Weight"));
    EXPECT_EQ(del.StatusCode(), 0);
    EXPECT_EQ(del.Element().GetValue("DataExtDelRet/ListObjRef/FullName"), "Labor");
    EXPECT_TRUE(del.Element().Has("DataExtDelRet/TimeDeleted"));
    EXPECT_FALSE(company.FindByFullName({"ItemServiceRet"}, "Labor").child("DataExtRet"));

    // Private data on the company itself; CompanyRet has no EditSequence to change.
    const std::string owner = kPrivateOwner;
    EXPECT_EQ(AskOne(Ext("DataExtMod", "<OtherDataExtType>Company</OtherDataExtType>", "FileID",
                         "{00000000-0000-0000-0000-000000000001}", kPrivateOwner))
                  .StatusCode(),
              0);
    EXPECT_TRUE(changed);
    qb::Response info = AskOne("<CompanyQueryRq><OwnerID>" + owner + "</OwnerID></CompanyQueryRq>");
    EXPECT_EQ(info.Element().GetValue("CompanyRet/DataExtRet/DataExtValue"),
              "{00000000-0000-0000-0000-000000000001}");
    EXPECT_FALSE(info.Element().Has("CompanyRet/EditSequence"));
}

TEST_F(QbsimDataExt, FailuresSayWhatQuickBooksSays) {
    const char* const kAttribute = "Attribute with specified name cannot be found.";
    struct Case {
        std::string request;
        int status;
        std::string inMessage;
    };
    const Case cases[] = {
        {Ext("DataExtAdd", Item("Widget"), "Net Weight", "1 lb"), 3100,
         "The name \"Net Weight\" of the list element is already in use."},
        {Ext("DataExtMod", Item("Labor"), "Net Weight", "1 lb"), 3120, kAttribute},
        {Ext("DataExtDel", Item("Labor"), "Net Weight"), 3120, kAttribute},
        {Ext("DataExtAdd", Item("No Such Item"), "Net Weight", "1"), 3120,
         "Object \"No Such Item\" specified in the request cannot be found."},
        {Ext("DataExtAdd", Item("Labor"), "Shoe Size", "9"), 3120, "\"Shoe Size\""},
        {Ext("DataExtAdd",
             "<ListDataExtType>Customer</ListDataExtType><ListObjRef><FullName>Keller Farms"
             "</FullName></ListObjRef>",
             "Net Weight", "1"),
         3120, "\"Net Weight\""},  // an item field, not a customer field
        {Ext("DataExtAdd", Item("Labor"), "Net Weight", ""), 3180, "Net Weight"},
    };
    for (const Case& c : cases) {
        qb::Response r = AskOne(c.request);
        EXPECT_EQ(r.StatusCode(), c.status) << c.request;
        EXPECT_EQ(r.StatusSeverity(), "Error");
        EXPECT_NE(r.StatusMessage().find(c.inMessage), std::string::npos) << r.StatusMessage();
        if (c.inMessage != kAttribute) {
            EXPECT_EQ(r.StatusMessage().find(kAttribute), std::string::npos)
                << "only a missing value may send the program from modify to add";
        }
        EXPECT_FALSE(changed) << c.request;
    }
}

// The program's fallback: a modify of a field without a value fails with 3120 and the
// attribute message, and the add that follows succeeds.
TEST_F(QbsimDataExt, ModifyThenAddFallbackOnATransactionLine) {
    ASSERT_TRUE(company.LoadText(kSmallCompany).ok());
    const std::string target = Line("Invoice", "1A2B-1700000000", "1A2F-1700000000");
    qb::Response mod = AskOne(Ext("DataExtMod", target, "Color", "Blue"));
    EXPECT_EQ(mod.StatusCode(), 3120);
    EXPECT_NE(mod.StatusMessage().find("Attribute with specified name cannot be found."),
              std::string::npos);
    EXPECT_EQ(AskOne(Ext("DataExtAdd", target, "Color", "Blue")).StatusCode(), 0);

    pugi::xml_node invoice = company.FindTxn("Invoice", "1A2B-1700000000");
    pugi::xml_node line = Company::FindTxnLine(invoice, "1A2F-1700000000");
    ASSERT_TRUE(line);
    EXPECT_STREQ(line.parent().name(), "InvoiceLineGroupRet");
    EXPECT_STREQ(line.last_child().name(), "DataExtRet");
    EXPECT_STREQ(line.last_child().child("DataExtValue").text().get(), "Blue");
    EXPECT_STREQ(invoice.child("EditSequence").text().get(), "1714573800");
    EXPECT_STREQ(invoice.child("TimeModified").text().get(), "2024-05-01T09:30:00-05:00");
}

TEST_F(QbsimDataExt, TransactionTargets) {
    ASSERT_TRUE(company.LoadText(kSmallCompany).ok());
    const std::string txn = "1A2B-1700000000";
    struct Case {
        std::string request;
        int status;
    };
    const Case cases[] = {
        {Ext("DataExtMod", Line("Invoice", txn, "1A2D-1700000000"), "Color", "Green"), 0},
        {Ext("DataExtAdd", Line("Invoice", txn, ""), "PO Ref", "PO-7"), 0},
        {Ext("DataExtAdd", Line("Invoice", txn, ""), "Color", "Red"), 3120},     // a line field
        {Ext("DataExtAdd", Line("Estimate", txn, ""), "PO Ref", "PO-7"), 3120},  // wrong kind
        {Ext("DataExtAdd", Line("Invoice", txn, "FFFF-1"), "Color", "Red"), 3120},
        {Ext("DataExtDel", Line("Invoice", txn, "1A2D-1700000000"), "Color"), 0},
    };
    for (const Case& c : cases) EXPECT_EQ(AskOne(c.request).StatusCode(), c.status) << c.request;
    pugi::xml_node invoice = company.FindTxn("Invoice", txn);
    EXPECT_STREQ(invoice.last_child().child("DataExtValue").text().get(), "PO-7")
        << "the header's custom fields come after its lines";
    EXPECT_FALSE(Company::FindTxnLine(invoice, "1A2D-1700000000").child("DataExtRet"));
}

// ---- Message sets ------------------------------------------------------------------------

using QbsimMessageSet = QbsimTest;

TEST_F(QbsimMessageSet, StopOnErrorSkipsTheRestAndKeepsWhatWasDone) {
    const std::string requests = Ext("DataExtAdd", Item("Labor"), "Color", "Red") +
                                 Ext("DataExtMod", Item("Consulting"), "Color", "Red") +
                                 "<CustomerQueryRq requestID=\"q\"><MaxReturned>1</MaxReturned>"
                                 "</CustomerQueryRq>";
    qb::ResponseList stop = Ask(MsgSet(requests, "stopOnError"));
    ASSERT_EQ(stop.Count(), 3u);
    EXPECT_EQ(stop.GetAt(0).StatusCode(), 0);
    EXPECT_EQ(stop.GetAt(1).StatusCode(), 3120);
    EXPECT_EQ(stop.GetAt(2).StatusCode(), 3231);
    EXPECT_EQ(stop.GetAt(2).StatusSeverity(), "Error");
    EXPECT_EQ(stop.GetAt(2).StatusMessage(), "The request has not been processed.");
    EXPECT_EQ(stop.GetAt(2).RequestID(), "q");
    EXPECT_FALSE(stop.GetAt(0).HasRequestID());
    EXPECT_TRUE(changed) << "no rollback: the first request stands";
    EXPECT_TRUE(company.FindByFullName({"ItemServiceRet"}, "Labor").child("DataExtRet"));

    qb::ResponseList go = Ask(MsgSet(Ext("DataExtMod", Item("Consulting"), "Color", "Red") +
                                         "<CustomerQueryRq><MaxReturned>1</MaxReturned>"
                                         "</CustomerQueryRq>",
                                     "continueOnError"));
    EXPECT_EQ(go.GetAt(0).StatusCode(), 3120);
    EXPECT_EQ(go.GetAt(1).StatusCode(), 0);
    EXPECT_EQ(Values(go.GetAt(1), "FullName").size(), 1u);
}

TEST(QbsimRefused, MessageSetsQuickBooksCannotParse) {
    Company company;
    ASSERT_TRUE(company.LoadFile(kSample).ok());
    const std::string before = company.ToXml();
    const std::string ok = "<CustomerQueryRq/>";
    struct Case {
        std::string text;
        const char* inMessage;
    };
    const Case cases[] = {
        {"", "empty"},
        {"<QBXML><QBXMLMsgsRq", "not well-formed"},
        {"<QBXML><QBXMLMsgsRq onError=\"stopOnError\"/></QBXML>", "qbxml version"},
        {MsgSet(ok, "stopOnError", "14.0"), "14.0"},
        {MsgSet(ok, "rollbackOnError"), "onError"},
        {"<?qbxml version=\"7.0\"?><QBXMLMsgsRq onError=\"stopOnError\"/>", "<QBXML>"},
        {MsgSet("<CustomerFetchRq/>"), "CustomerFetchRq"},
        {MsgSet("<CustomerQueryRq><Colour>x</Colour></CustomerQueryRq>"), "Colour"},
        {MsgSet("<CustomerQueryRq><OwnerID>0</OwnerID><MaxReturned>1</MaxReturned>"
                "</CustomerQueryRq>"),
         "must come before"},
        {MsgSet("<CustomerQueryRq><MaxReturned>many</MaxReturned></CustomerQueryRq>"), "many"},
        {MsgSet("<CustomerQueryRq><ListID>1</ListID><MaxReturned>1</MaxReturned>"
                "</CustomerQueryRq>"),
         "alternative"},
        {MsgSet("<CustomerQueryRq><ActiveStatus>Some</ActiveStatus></CustomerQueryRq>"), "Some"},
        {MsgSet("<DataExtAddRq><DataExtAdd><OwnerID>0</OwnerID></DataExtAdd></DataExtAddRq>"),
         "missing required"},
        {MsgSet("<ItemQueryRq><IncludeRetElement>Name</IncludeRetElement></ItemQueryRq>",
                "stopOnError", "2.0"),
         "4.0"},
        {MsgSet(ok + "\n<CustomerQueryRq badAttribute=\"1\"/>"), "line 6"},
    };
    for (const Case& c : cases) {
        ProcessResult r = ProcessRequest(company, c.text);
        EXPECT_FALSE(r.ok) << c.text;
        EXPECT_EQ(r.hresult, kHrParseError) << c.text;
        EXPECT_EQ(r.message.rfind(kParseErrorText, 0), 0u) << r.message;
        EXPECT_NE(r.message.find(c.inMessage), std::string::npos) << r.message;
        EXPECT_TRUE(r.response.empty());
    }
    EXPECT_EQ(company.ToXml(), before);
}

// ---- The company file --------------------------------------------------------------------

TEST(QbsimCompanyFile, MalformedCompaniesAreRefusedWithTheirLine) {
    const std::string host =
        "<HostRet><ProductName>P</ProductName><MajorVersion>1</MajorVersion><MinorVersion>0"
        "</MinorVersion><SupportedQBXMLVersion>7.0</SupportedQBXMLVersion></HostRet>\n";
    const std::string co = "<CompanyRet><CompanyName>C</CompanyName></CompanyRet>\n";
    auto wrap = [&](const std::string& body) {
        return "<QBSimCompany>\n" + host + co + body + "</QBSimCompany>\n";
    };
    const std::string item =
        "<ItemServiceRet><ListID>1-1</ListID><Name>A</Name><FullName>A"
        "</FullName></ItemServiceRet>\n";
    struct Case {
        std::string text;
        int line;
        const char* inMessage;
    };
    const Case cases[] = {
        {"<QBSimCompany>\n<HostRet>\n</QBSimCompany>", 3, "not well-formed"},
        {"<Company/>", 1, "root element"},
        {"<QBSimCompany>\n" + host + "</QBSimCompany>", 1, "CompanyRet"},
        {wrap(host), 1, "exactly one <HostRet>"},
        {wrap("<Notes/>\n"), 4, "<Notes>"},
        {wrap(item + "<ItemGroupRet><ListID>1-1</ListID><Name>B</Name></ItemGroupRet>\n"), 5,
         "ListID 1-1"},
        {wrap(item + "<ItemInventoryRet><ListID>2-1</ListID><Name>a</Name><FullName>a</FullName>"
                     "</ItemInventoryRet>\n"),
         5, "\"a\""},
        {wrap("<CustomerRet><ListID>1-1</ListID><Name>A</Name></CustomerRet>\n"), 4, "FullName"},
        {wrap("<InvoiceRet><TxnID>1-1</TxnID>\n<InvoiceLineRet><Desc>x</Desc></InvoiceLineRet>"
              "</InvoiceRet>\n"),
         5, "TxnLineID"},
        {wrap("<InvoiceRet><TxnID>1-1</TxnID>\n<InvoiceLineRet><TxnLineID>2-1</TxnLineID>"
              "</InvoiceLineRet>\n<InvoiceLineGroupRet><TxnLineID>3-1</TxnLineID>\n<InvoiceLineRet>"
              "<TxnLineID>2-1</TxnLineID></InvoiceLineRet></InvoiceLineGroupRet></InvoiceRet>\n"),
         7, "2-1"},
        {wrap("<QBSimSettings restrictedUser=\"yes\"/>\n"), 4, "restrictedUser"},
        {wrap("<QBSimSettings colour=\"red\"/>\n"), 4, "colour"},
        {wrap(item.substr(0, item.size() - 18) + "<DataExtRet><DataExtName>N</DataExtName>"
                                                 "</DataExtRet></ItemServiceRet>\n"),
         4, "DataExtValue"},
    };
    test::TempDir dir;
    for (const Case& c : cases) {
        Company company;
        ASSERT_TRUE(company.LoadText(kSmallCompany).ok());
        LoadResult r = company.LoadText(c.text);
        EXPECT_EQ(r.status, LoadStatus::Malformed) << c.text;
        EXPECT_EQ(r.line, c.line) << r.ToString();
        EXPECT_NE(r.description.find(c.inMessage), std::string::npos) << r.ToString();
        EXPECT_TRUE(company.FindTxn("Invoice", "1A2B-1700000000")) << "the old company stays";
    }
    dir.Write("bad.xml", cases[0].text);
    Company company;
    EXPECT_EQ(company.LoadFile(dir.File("bad.xml")).status, LoadStatus::Malformed);
    EXPECT_EQ(dir.Read("bad.xml"), cases[0].text);
    EXPECT_EQ(company.LoadFile(dir.File("none.xml")).status, LoadStatus::NotFound);
}

TEST(QbsimCompanyFile, SavesAtomicallyAndKeepsTheOldFileOnFailure) {
    test::TempDir dir;
    Company company;
    ASSERT_TRUE(company.LoadText(kSmallCompany).ok());
    ASSERT_TRUE(company.SaveFile(dir.File("co.xml")).ok);
    EXPECT_FALSE(fs::exists(dir.File("co.xml.tmp"))) << "the temporary file does not linger";
    Company again;
    ASSERT_TRUE(again.LoadFile(dir.File("co.xml")).ok());
    EXPECT_EQ(again.ToXml(), company.ToXml());

    // Something in the way of the temporary file: the save fails and the old file stays whole.
    const std::string old = dir.Read("co.xml");
    fs::create_directory(dir.File("co.xml.tmp"));
    company.Touch(company.FindTxn("Invoice", "1A2B-1700000000"));
    SaveResult failed = company.SaveFile(dir.File("co.xml"));
    EXPECT_FALSE(failed.ok);
    EXPECT_NE(failed.description.find("co.xml.tmp"), std::string::npos) << failed.description;
    EXPECT_EQ(dir.Read("co.xml"), old);
}

TEST(QbsimCompanyFile, NewIDsFollowQuickBooksStyle) {
    Company company;
    ASSERT_TRUE(company.LoadText(kSmallCompany).ok());
    // No counter stored: new IDs continue above every ID in the file, and the counter is kept.
    EXPECT_EQ(company.NewTxnID(), "80000000-1714573800");
    EXPECT_EQ(company.NewTxnLineID("1A2B-1700000000"), "80000001-1700000000");
    EXPECT_STREQ(company.Root().child(kSettingsName).attribute("nextID").value(), "80000002");
    EXPECT_TRUE(company.Modified());

    Company sample;
    ASSERT_TRUE(sample.LoadFile(kSample).ok());
    EXPECT_EQ(sample.NewListID().substr(0, 9), "80000100-");
    EXPECT_EQ(sample.NewListID().substr(0, 9), "80000101-");
}

// ---- Transport and command line ----------------------------------------------------------

TEST(QbsimTransport, SessionsAndCallOrder) {
    test::TempDir dir;
    dir.Write("co.xml", kSmallCompany);
    dir.Write("bad.xml", "<QBSimCompany>");
    std::string ticket, response, name;

    SimTransport missing(dir.File("none.xml")), bad(dir.File("bad.xml"));
    for (SimTransport* t : {&missing, &bad}) ASSERT_TRUE(t->OpenConnection("", "Pelmark").ok);
    EXPECT_EQ(missing.BeginSession("", qb::kOpenDoNotCare, &ticket).hresult, kHrCouldNotStart);
    qb::TransportResult refused = bad.BeginSession("", qb::kOpenDoNotCare, &ticket);
    EXPECT_EQ(refused.hresult, kHrCannotOpenFile);
    EXPECT_NE(refused.message.find("line 1"), std::string::npos) << refused.message;

    SimTransport sim(dir.File("co.xml"));
    EXPECT_EQ(sim.BeginSession("", qb::kOpenDoNotCare, &ticket).hresult, kHrUnexpected);
    EXPECT_EQ(sim.CloseConnection().hresult, kHrUnexpected);
    ASSERT_TRUE(sim.OpenConnection("", "Pelmark").ok);
    EXPECT_EQ(sim.BeginSession(dir.File("other.xml"), qb::kOpenDoNotCare, &ticket).hresult,
              kHrOtherFileOpen);
    EXPECT_EQ(sim.ProcessRequest("nope", MsgSet("<HostQueryRq/>"), &response).hresult,
              kHrUnexpected);
    ASSERT_TRUE(sim.BeginSession(dir.File("co.xml"), qb::kOpenDoNotCare, &ticket).ok);
    EXPECT_EQ(sim.ProcessRequest(ticket + "x", MsgSet("<HostQueryRq/>"), &response).hresult,
              kHrUnexpected);
    ASSERT_TRUE(sim.GetCurrentCompanyFileName(ticket, &name).ok);
    EXPECT_TRUE(fs::path(name).is_absolute());
    EXPECT_TRUE(fs::equivalent(name, dir.File("co.xml")));

    qb::TransportResult parse = sim.ProcessRequest(ticket, "<QBXML/>", &response);
    EXPECT_EQ(parse.hresult, kHrParseError);
    EXPECT_NE(parse.message.find("parsing the provided XML"), std::string::npos);

    // A query leaves the file alone; a change is saved at once.
    ASSERT_TRUE(sim.ProcessRequest(ticket, MsgSet("<HostQueryRq/>"), &response).ok);
    EXPECT_EQ(dir.Read("co.xml"), kSmallCompany);
    const std::string add =
        Ext("DataExtAdd", Line("Invoice", "1A2B-1700000000", ""), "PO Ref", "PO-9");
    ASSERT_TRUE(sim.ProcessRequest(ticket, MsgSet(add), &response).ok);
    EXPECT_NE(dir.Read("co.xml").find("PO-9"), std::string::npos);
    EXPECT_FALSE(fs::exists(dir.File("co.xml.tmp")));

    ASSERT_TRUE(sim.ProcessRequest(ticket, MsgSet(add), &response).ok);
    EXPECT_NE(response.find("already in use"), std::string::npos) << response;
    // Changed on disk behind qbsim's back (the value is gone): the next request sees the file.
    dir.Write("co.xml", kSmallCompany);
    ASSERT_TRUE(sim.ProcessRequest(ticket, MsgSet(add), &response).ok);
    EXPECT_NE(response.find("statusCode=\"0\""), std::string::npos) << response;

    ASSERT_TRUE(sim.EndSession(ticket).ok);
    EXPECT_EQ(sim.ProcessRequest(ticket, MsgSet("<HostQueryRq/>"), &response).hresult,
              kHrUnexpected);
    EXPECT_EQ(sim.EndSession(ticket).hresult, kHrUnexpected);
    EXPECT_TRUE(sim.CloseConnection().ok);
}

#ifndef _WIN32
TEST(QbsimCli, RequestFromStandardInput) {
    const fs::path qbsim = fs::path(PELMARK_ARTIFACT_DIR).parent_path() / "qbsim";
    if (!fs::exists(qbsim)) GTEST_SKIP() << "no " << qbsim;
    test::TempDir dir;
    dir.Write("co.xml", kSmallCompany);
    dir.Write("bad.xml", "<QBSimCompany>\n<HostRet>");
    dir.Write("add.xml",
              MsgSet(Ext("DataExtAdd", Line("Invoice", "1A2B-1700000000", ""), "PO Ref", "PO-1")));
    dir.Write("junk.xml", "junk");
    auto run = [&](const std::string& company, const std::string& input) {
        std::string command = "'" + qbsim.string() + "' request '" + dir.File(company) + "' < '" +
                              dir.File(input) + "' > '" + dir.File("out.txt") + "' 2> '" +
                              dir.File("err.txt") + "'";
        int status = std::system(command.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    };
    EXPECT_EQ(run("bad.xml", "add.xml"), 2);
    EXPECT_NE(dir.Read("err.txt").find("line 2"), std::string::npos) << dir.Read("err.txt");
    EXPECT_EQ(run("co.xml", "junk.xml"), 3);
    EXPECT_NE(dir.Read("err.txt").find("0x80040400"), std::string::npos) << dir.Read("err.txt");
    EXPECT_EQ(dir.Read("co.xml"), kSmallCompany);
    EXPECT_EQ(run("co.xml", "add.xml"), 0);
    EXPECT_NE(dir.Read("out.txt").find("<DataExtAddRs statusCode=\"0\""), std::string::npos);
    EXPECT_NE(dir.Read("co.xml").find("PO-1"), std::string::npos);
}
#endif

}  // namespace
}  // namespace pelmark::sim
