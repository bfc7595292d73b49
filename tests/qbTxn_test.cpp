// The transaction queries, the modify with its re-listed lines and the display request, against
// a scripted QuickBooks, and their conformance to Intuit's qbXML reference.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "app/logs.h"
#include "app/text.h"
#include "fakes/qbFakes.h"
#include "qb/qbCommon.h"

namespace pelmark::qb {
namespace {

const TxnKind kSalesKinds[] = {TxnKind::Invoice, TxnKind::Estimate, TxnKind::SalesOrder,
                               TxnKind::SalesReceipt};

// Item line with every field the line table keeps, blank line, description-only line, and a
// group of two lines. LINE and GROUP stand for the kind's element names.
const char* const kMixedLines = R"(
<LINE><TxnLineID>L1</TxnLineID><ItemRef><ListID>80000001-1</ListID><FullName>Parts:Widget</FullName>
</ItemRef><Desc>Widget, blue</Desc><Quantity>2.5</Quantity><UnitOfMeasure>Each</UnitOfMeasure>
<OverrideUOMSetRef><ListID>80000002-1</ListID><FullName>Count</FullName></OverrideUOMSetRef>
<Rate>12.75</Rate><ClassRef><ListID>80000003-1</ListID><FullName>East</FullName></ClassRef>
<Amount>31.88</Amount><ServiceDate>2024-03-01</ServiceDate><SalesTaxCodeRef><ListID>80000004-1
</ListID><FullName>Tax</FullName></SalesTaxCodeRef><MarkupRate>1.5</MarkupRate>
<OverrideItemAccountRef><ListID>80000005-1</ListID><FullName>Income:Parts</FullName>
</OverrideItemAccountRef><Invoiced>1</Invoiced><IsManuallyClosed>false</IsManuallyClosed>
<Other1>o1</Other1><Other2>o2</Other2>
<DataExtRet><OwnerID>0</OwnerID><DataExtName>Colour</DataExtName><DataExtValue>Red</DataExtValue>
</DataExtRet><DataExtRet><DataExtName>SIZE</DataExtName><DataExtValue>L</DataExtValue></DataExtRet>
</LINE>
<LINE><TxnLineID>L2</TxnLineID></LINE>
<LINE><TxnLineID>L3</TxnLineID><Desc>Note</Desc></LINE>
<GROUP><TxnLineID>G1</TxnLineID><ItemGroupRef><ListID>80000009-1</ListID><FullName>Kit</FullName>
</ItemGroupRef><Desc>Kit of two</Desc><Quantity>2</Quantity>
<IsPrintItemsInGroup>true</IsPrintItemsInGroup><TotalAmount>40.00</TotalAmount>
<LINE><TxnLineID>M1</TxnLineID><ItemRef><FullName>Parts:Bolt</FullName></ItemRef>
<Quantity>4</Quantity><Rate>5.00</Rate><Amount>20.00</Amount></LINE>
<LINE><TxnLineID>M2</TxnLineID><ItemRef><FullName>Off</FullName></ItemRef>
<RatePercent>-10.0</RatePercent><Amount>-2.00</Amount></LINE></GROUP>)";

// A returned transaction of the kind holding `lines` (LINE and GROUP replaced).
std::string Ret(TxnKind kind, const std::string& lines, const std::string& id = "T1") {
    const TxnKindInfo& k = KindInfo(kind);
    const std::string body = ReplaceAll(ReplaceAll(lines, "GROUP", k.groupRet), "LINE", k.lineRet);
    return std::string("<") + k.retName + "><TxnID>" + id + "</TxnID><EditSequence>E" + id +
           "</EditSequence><RefNumber>1001</RefNumber>" + body + "</" + k.retName + ">";
}

std::string QueryRs(TxnKind kind) {
    std::string name = KindInfo(kind).queryRq;
    return name.replace(name.size() - 2, 2, "Rs");
}

struct QbTxnTest : ::testing::Test {
    test::QbTestApp t;
    std::size_t sentBefore = 0;
    void SetUp() override {
        ASSERT_TRUE(QBOpen(t.app));
        sentBefore = t.transport().requests.size();
    }
    void Answer(TxnKind kind, const std::string& rets) {
        t.company().Script(KindInfo(kind).queryRq, test::OkRs(QueryRs(kind), rets));
    }
    std::vector<std::string> Sent() const { return t.RequestsFrom(sentBefore); }
    const TxnState& Txn() const { return t.app.qb.txn; }
    // The request element `name` of the last request sent.
    View LastRequest(const std::string& name) {
        request_ = ParseXmlFragment(t.transport().requests.back());
        return request_.root.Child("QBXMLMsgsRq/" + name);
    }
    // Sends the modify being built, as the write-back does.
    bool SendMod() {
        DoRequestOptions send;
        send.callerLabel = "MOD";
        return DoRequest(t.app, send).ok;
    }
    void ExpectValid(const std::string& scenario) {
        std::map<std::string, std::string> documents;
        int n = 0;
        for (const std::string& rq : t.transport().requests)
            documents[scenario + "_" + std::to_string(n++) + ".xml"] = rq;
        test::QbxmlValidation v = test::ValidateQbxmlRequests(documents);
        for (const auto& [name, problem] : v.problems) ADD_FAILURE() << name << "\n" << problem;
    }

  private:
    ResponseParseResult request_;
};

TEST_F(QbTxnTest, TheFilterFollowsWhatTheCallerKnows) {
    const struct {
        const char* name;
        TxnQueryOptions o;
        std::vector<std::string> present, absent;
    } cases[] = {
        {"a TxnID is the only filter",
         {.refNumber = "1001", .customer = "Acme", .txnID = "T9", .modifiedFrom = "2024-01-01"},
         {"<TxnID>T9</TxnID>"},
         {"RefNumber", "EntityFilter", "ModifiedDateRangeFilter", "MaxReturned"}},
        {"the number alone",
         {.refNumber = "1001", .maxReturned = 3},
         {"<RefNumber>1001</RefNumber>"},
         {"EntityFilter", "TxnID", "MaxReturned"}},
        {"a TxnID found for the number",
         {.refNumber = "1001", .numberTxnID = "T8"},
         {"<TxnID>T8</TxnID>"},
         {"RefNumber"}},
        {"the number of one customer",
         {.refNumber = "1001", .customer = "Acme:Job 1", .maxReturned = 2},
         {"<FullName>Acme:Job 1</FullName>", "<FromRefNumber>1001</FromRefNumber>",
          "<ToRefNumber>1001</ToRefNumber>", "<MaxReturned>2</MaxReturned>"},
         {"<RefNumber>", "TxnID"}},
        {"modified dates, US form",
         {.modifiedFrom = "5/1/2024", .modifiedTo = "05/31/24"},
         {"<FromModifiedDate>2024-05-01</FromModifiedDate>",
          "<ToModifiedDate>2024-05-31</ToModifiedDate>"},
         {"RefNumber", "TxnDateRangeFilter"}},
        {"transaction dates of a customer",
         {.customer = "Acme", .txnDateFrom = "2024-01-01", .maxReturned = 5},
         {"<FromTxnDate>2024-01-01</FromTxnDate>", "<FullName>Acme</FullName>",
          "<MaxReturned>5</MaxReturned>"},
         {"ToTxnDate", "ModifiedDateRangeFilter"}},
        {"both ranges: the transaction dates are sent",
         {.modifiedFrom = "2024-01-01", .txnDateTo = "2024-02-01"},
         {"<ToTxnDate>2024-02-01</ToTxnDate>"},
         {"ModifiedDateRangeFilter"}},
        {"no lines asked for", {.refNumber = "7", .includeLineItems = false}, {}, {"IncludeLine"}},
    };
    for (const auto& c : cases) {
        EXPECT_FALSE(InvoiceQuerySub(t.app, c.o)) << c.name << ": nothing is found";
        const std::string rq = t.transport().requests.back();
        for (const std::string& s : c.present)
            EXPECT_NE(rq.find(s), std::string::npos) << c.name << ": " << s << "\n" << rq;
        for (const std::string& s : c.absent)
            EXPECT_EQ(rq.find(s), std::string::npos) << c.name << ": " << s << "\n" << rq;
        EXPECT_NE(rq.find("<OwnerID>0</OwnerID>"), std::string::npos) << c.name;
        EXPECT_NE(rq.find("onError=\"continueOnError\""), std::string::npos) << c.name;
        EXPECT_EQ(RequestSet(t.app)->attributes.onError, OnError::stopOnError) << "restored";
        EXPECT_EQ(rq.find("<IncludeLineItems>true</IncludeLineItems>") != std::string::npos,
                  c.o.includeLineItems)
            << c.name;
    }
    ExpectValid("filters");
}

TEST_F(QbTxnTest, AReversedRangeIsAskedAboutBeforeAnythingIsSent) {
    const struct {
        TxnQueryOptions o;
        const char* question;
        const char* kept;
        const char* dropped;
    } cases[] = {
        {{.modifiedFrom = "2024-05-01", .modifiedTo = "2024-04-01"},
         "Modified From Date (2024-05-01)> To Date (2024-04-01), only From Date used. Click YES "
         "to Continue NO to terminate. ",
         "<FromModifiedDate>2024-05-01</FromModifiedDate>",
         "ToModifiedDate"},
        {{.txnDateFrom = "5/1/2024", .txnDateTo = "4/1/2024"},
         "Txn From Date (5/1/2024)> To Date (4/1/2024), only From Date used. Click YES to "
         "Continue NO to terminate. ",
         "<FromTxnDate>2024-05-01</FromTxnDate>",
         "ToTxnDate"},
    };
    for (const auto& c : cases) {
        t.prompter.shown.clear();
        sentBefore = t.transport().requests.size();
        t.prompter.Answer(kAnsNo);
        EXPECT_THROW(EstimateQuerySub(t.app, c.o), ProgramEnd);
        ASSERT_EQ(t.prompter.shown.size(), 1u);
        EXPECT_EQ(t.prompter.shown[0].text, c.question);
        EXPECT_EQ(t.prompter.shown[0].title, "Pelmark");
        EXPECT_EQ(t.prompter.shown[0].style & kMbYesNo, kMbYesNo);
        EXPECT_TRUE(Sent().empty()) << "No ends the program before the query is sent";

        ASSERT_TRUE(QBOpen(t.app));
        sentBefore = t.transport().requests.size();
        t.prompter.Answer(kAnsYes);
        EstimateQuerySub(t.app, c.o);
        ASSERT_EQ(Sent().size(), 1u);
        EXPECT_NE(Sent()[0].find(c.kept), std::string::npos);
        EXPECT_EQ(Sent()[0].find(c.dropped), std::string::npos) << "the to-date is dropped";
    }
}

TEST_F(QbTxnTest, TwoMatchesAreBothKeptWithTheirOwnLines) {
    Answer(TxnKind::Invoice, Ret(TxnKind::Invoice, "<LINE><TxnLineID>A</TxnLineID></LINE>", "T1") +
                                 Ret(TxnKind::Invoice, "<LINE><Desc>B</Desc></LINE>", "T2"));
    ASSERT_TRUE(InvoiceQuerySub(t.app, {.refNumber = "1001"}));
    ASSERT_EQ(Txn().txns.size(), 2u);
    EXPECT_EQ(Txn().txns[1].firstLine, 1u);
    EXPECT_EQ(Txn().lines.at(1).txnIndex, 1u);
    EXPECT_EQ(t.app.qb.invoiceRet.GetValue("TxnID"), "T2");
}

TEST_F(QbTxnTest, TheRealEstimateIsReadWithEveryFieldAndCustomField) {
    std::ifstream in(PELMARK_SOURCE_DIR
                     "/../shared/qbxml/real/"
                     "EstimateRet_subtotal_pctdiscount_blank_lines_line_and_header_dataext.xml");
    if (!in) GTEST_SKIP() << "no ../shared";
    std::stringstream ret;
    ret << in.rdbuf();
    Answer(TxnKind::Estimate, ret.str());
    ASSERT_TRUE(EstimateQuerySub(t.app, {.refNumber = "Q23-0147-1"}));

    // id | type | item | quantity | rate | rate percent | amount | tax code | line custom field
    const char* const rows[] = {
        "DCEF1-1675796632|I|Y1002892|2|891||1782.00|TAX|Discount Code=N",
        "DE02C-1675796632|I|Amount Subtotal||||1782.00||",
        "DDFC1-1675796632|I|5% Discount|||-5.00|-89.10|TAX|",
        "DDFC2-1675796632|B|||||||",
        "DCEF2-1675796632|I|NR-303|2|589.00||1178.00|TAX|Discount Code=N",
        "DCEF3-1675796632|I|Tool Holding:91593|2|95.00||190.00|TAX|Discount Code=N",
        "DCEF4-1675796632|I|Amount Subtotal||||1368.00||",
        "DCEF5-1675796632|I|15% Discount|||-15.00|-205.20|TAX|",
        "DCEF6-1675796632|B|||||||",
        "DCEF7-1675796632|I|STerms1||||0.00|TAX|",
    };
    const std::vector<TxnLine>& lines = Txn().lines;
    ASSERT_EQ(lines.size(), std::size(rows));
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const TxnLine& l = lines[i];
        std::string ext;
        for (const TxnCustomField& f : l.customFields) ext += f.name + "=" + f.value;
        EXPECT_EQ(l.txnLineID + "|" + l.lineType + "|" + l.itemFullName + "|" + l.quantity + "|" +
                      l.rate + "|" + l.ratePercent + "|" + l.amount + "|" + l.salesTaxCodeFullName +
                      "|" + ext,
                  rows[i]);
    }
    EXPECT_EQ(lines[0].itemListID, "800016D0-1623185743");
    EXPECT_EQ(lines[0].salesTaxCodeListID, "80000001-1622403872");
    EXPECT_NE(lines[0].desc.find("Nakanishi\xC2\xAE Volvere"), std::string::npos);
    EXPECT_NE(lines[9].desc.find("30 days.\n"), std::string::npos);

    const TxnHeader& h = Txn().txns.at(0);
    EXPECT_EQ(h.txnID + "|" + h.editSequence + "|" + h.customerFullName + "|" + h.templateFullName +
                  "|" + h.txnDate + "|" + h.subtotal + "|" + h.salesTaxTotal + "|" + h.totalAmount,
              "DCEEF-1675796632|1698868818|FKN Systek Inc. (C)|ARTCO Quote2|2003-11-01|2855.70|"
              "0.00|2855.70");
    ASSERT_EQ(h.customFields.size(), 10u);
    EXPECT_EQ(h.customFields[9].name, "Contact");
    EXPECT_EQ(h.customFields[9].value, "Werner Christ");
    EXPECT_EQ(Txn().currentLineID, "-1") << "estimates keep no queried line id";

    // Written back: ten new lines, the blank ones blank, the long text unchanged.
    ASSERT_TRUE(EstimateModSub(t.app, {h.txnID, h.editSequence, "", h.templateFullName}));
    for (std::size_t i = 0; i < lines.size(); ++i)
        ASSERT_TRUE(AppendQueriedLine(t.app, TxnKind::Estimate, lines, i));
    ASSERT_TRUE(SendMod());
    View mod = LastRequest("EstimateModRq/EstimateMod");
    std::vector<View> sent = mod.Children("EstimateLineMod");
    ASSERT_EQ(sent.size(), 10u);
    for (const View& line : sent) EXPECT_EQ(line.GetValue("TxnLineID"), "-1");
    EXPECT_EQ(sent[3].ToXMLString(), sent[8].ToXMLString());
    EXPECT_EQ(sent[3].Children().size(), 2u) << "TxnLineID and an empty Desc";
    EXPECT_EQ(sent[2].GetValue("RatePercent"), "-5.00");
    EXPECT_EQ(sent[0].GetValue("ItemRef/ListID"), "800016D0-1623185743");
    EXPECT_EQ(sent[9].GetValue("Desc"), lines[9].desc);
    EXPECT_EQ(mod.GetValue("TemplateRef/FullName"), "ARTCO Quote2");
    ExpectValid("real_estimate");
}

TEST_F(QbTxnTest, StatusOneIsNotFoundAndOtherStatusesAreShown) {
    const struct {
        TxnKind kind;
        int code;
        const char* severity;
        const char* stored;  // the stored error text; "" when unchanged
        const char* shown;   // the message shown; "" when none
    } cases[] = {
        {TxnKind::Invoice, 1, "Info", "No invoices were found within  range", ""},
        {TxnKind::Estimate, 1, "Info", "No Estimates were found within  range", ""},
        {TxnKind::SalesOrder, 1, "Info", "No SalesOrders were found within  range", ""},
        {TxnKind::SalesReceipt, 1, "Info", "No SalesReceipts were found within  range", ""},
        {TxnKind::Invoice, 500, "Warn", "",
         "Error occured.  Status Code = 500, Status Message = m, Status Severity = Warn"},
        {TxnKind::SalesOrder, 3000, "Error", "",
         "Error occured.  Status Code = 3000, Status Message = m, Status Severity = Error"},
        {TxnKind::Estimate, 510, "warn", "", ""},
        {TxnKind::SalesOrder, 0, "Info", "", "Sales Order Query Sub Line Count <=0"},
    };
    for (const auto& c : cases) {
        t.prompter.shown.clear();
        t.app.qb.storedErrorText.clear();
        t.company().Script(KindInfo(c.kind).queryRq,
                           test::Rs(QueryRs(c.kind), c.code, c.severity, "m", Ret(c.kind, "")));
        EXPECT_EQ(TxnQuerySub(t.app, c.kind, {.refNumber = "1001"}), c.code == 0) << c.code;
        EXPECT_EQ(Txn().txns.size(), c.code == 0 ? 1u : 0u) << c.code;
        EXPECT_EQ(Txn().statusCode, c.code);
        EXPECT_EQ(t.app.qb.storedErrorText, c.stored);
        if (*c.stored) {
            EXPECT_TRUE(t.Traced(std::string(KindInfo(c.kind).queryLabel) + c.stored));
        }
        if (!*c.shown) {
            EXPECT_TRUE(t.prompter.shown.empty()) << t.Prompts();
            continue;
        }
        ASSERT_EQ(t.prompter.shown.size(), 1u);
        EXPECT_EQ(t.prompter.shown[0].text, c.shown);
        EXPECT_EQ(t.prompter.shown[0].title, c.code ? "Message from QuickBooks" : "Pelmark");
        EXPECT_EQ(t.prompter.shown[0].style, c.code ? kMbExclamation : kMbCritical);
    }
}

TEST_F(QbTxnTest, TheLineWalkStopsAfterItsRoundLimit) {
    std::string lines;
    for (int i = 0; i <= kLineWalkLimit; ++i)
        lines += "<SalesReceiptLineRet><TxnLineID>" + std::to_string(i) + "</TxnLineID>" +
                 "</SalesReceiptLineRet>";
    Answer(TxnKind::SalesReceipt,
           "<SalesReceiptRet><TxnID>T1</TxnID>" + lines + "</SalesReceiptRet>");
    EXPECT_FALSE(SalesReceiptQuerySub(t.app, {.refNumber = "1001"}));
    EXPECT_EQ(Txn().lines.size(), static_cast<std::size_t>(kLineWalkLimit));
    EXPECT_EQ(t.app.qb.storedErrorText, "SalesReceipt Query Sub Next Line Loop encountered");
    ASSERT_EQ(t.prompter.shown.size(), 1u);
    EXPECT_NE(t.prompter.shown[0].text.find("SalesReceipt Query Sub Next Line Loop encountered"),
              std::string::npos);
    EXPECT_NE(t.prompter.shown[0].text.find(kContinueOrTerminate), std::string::npos);
}

// What a re-listed line must hold: TxnLineID -1 and every field of the row that this line of
// the modify accepts, and nothing it does not.
void ExpectCopied(const View& sent, const TxnLine& row, const Node& probe, const std::string& at) {
    EXPECT_EQ(sent.GetValue("TxnLineID"), "-1") << at;
    for (const TxnLineField& f : TxnLineFields()) {
        const char* path = row.IsGroup() ? f.groupPath : f.linePath;
        if (!path || std::string_view(path) == "TxnLineID") continue;
        const std::string value = row.*f.member;
        if (!value.empty() && probe.Supports(Split(path, '/')[0])) {
            EXPECT_EQ(sent.GetValue(path), value) << at << " " << path;
        } else {
            EXPECT_FALSE(sent.Has(path)) << at << " " << path;
        }
    }
}

// Each kind's lines are read into the line table, then written back in another order.
TEST_F(QbTxnTest, LinesAreTypedAndReListedAsNewLinesWithTheirFields) {
    for (TxnKind kind : kSalesKinds) {
        const TxnKindInfo& k = KindInfo(kind);
        Answer(kind, Ret(kind, kMixedLines));
        ASSERT_TRUE(TxnQuerySub(t.app, kind, {.refNumber = "1001"})) << k.name;
        const std::vector<TxnLine>& rows = Txn().lines;
        std::vector<std::string> types;
        std::vector<std::size_t> groups;
        for (const TxnLine& row : rows) {
            types.push_back(row.lineType);
            groups.push_back(row.group);
        }
        EXPECT_EQ(types, (std::vector<std::string>{"I", "B", "DO", "G", "I", "I", kLineGroupEnd}));
        EXPECT_EQ(groups,
                  (std::vector<std::size_t>{kNoGroup, kNoGroup, kNoGroup, kNoGroup, 3, 3, 3}));
        EXPECT_EQ(rows[3].totalAmount, "40.00");
        EXPECT_EQ(rows[6].itemFullName, "Kit") << "the closing row carries the group's text";
        EXPECT_EQ(rows[6].desc, "Kit of two");
        ASSERT_EQ(rows[0].customFields.size(), 2u);
        EXPECT_EQ(rows[0].customFields[1].name, "SIZE");
        EXPECT_EQ(rows[0].customFields[1].value, "L");
        EXPECT_EQ(Txn().txns.at(0).lineCount, 7u);
        EXPECT_EQ(Txn().currentLineID, kind == TxnKind::Invoice ? "M2" : "-1");
        EXPECT_EQ((t.app.qb.*k.ret).GetValue("TxnID"), "T1");

        ASSERT_TRUE(TxnModSub(t.app, kind, {"T1", "ET1", "UPS", "Intuit Product Invoice"}));
        // The new order: the group first, the item line last, then a blank line.
        for (std::size_t row : {3u, 6u, 2u, 1u, 0u})
            ASSERT_TRUE(AppendQueriedLine(t.app, kind, rows, row)) << k.name << " " << row;
        ASSERT_TRUE(AppendBlankLine(t.app, kind));
        ASSERT_TRUE(SendMod()) << t.Prompts();

        View mod = LastRequest(std::string(k.modRq) + "/" + k.mod);
        EXPECT_EQ(mod.GetValue("TxnID"), "T1");
        EXPECT_EQ(mod.GetValue("EditSequence"), "ET1");
        EXPECT_EQ(mod.GetValue("TemplateRef/FullName"), "Intuit Product Invoice");
        EXPECT_EQ(mod.Has("ShipMethodRef"), kind != TxnKind::Estimate) << k.name;
        std::vector<std::string> names;
        std::vector<View> lines;
        for (const View& v : mod.Children()) {
            if (v.Name() != k.lineMod && v.Name() != k.groupMod) continue;
            names.push_back(v.Name());
            lines.push_back(v);
        }
        ASSERT_EQ(names, (std::vector<std::string>{k.groupMod, k.lineMod, k.lineMod, k.lineMod,
                                                   k.lineMod}));
        MsgSetRequest probeSet("US", 7, 0);
        Node& probeMod = probeSet.Append(k.modRq).Child(k.mod);
        const Node& lineProbe = probeMod.Append(k.lineMod);
        const Node& groupProbe = probeMod.Append(k.groupMod);

        ExpectCopied(lines[0], rows[3], groupProbe, std::string(k.name) + " group");
        std::vector<View> members = lines[0].Children(k.lineMod);
        ASSERT_EQ(members.size(), 2u);
        ExpectCopied(members[0], rows[4], lineProbe, std::string(k.name) + " member 1");
        ExpectCopied(members[1], rows[5], lineProbe, std::string(k.name) + " member 2");
        EXPECT_EQ(lines[0].GetValue("Quantity"), "2");
        EXPECT_FALSE(lines[0].Has("Desc")) << "a group modify has no description";
        ExpectCopied(lines[1], rows[2], lineProbe, std::string(k.name) + " description only");
        ExpectCopied(lines[3], rows[0], lineProbe, std::string(k.name) + " item line");
        const bool dated = kind == TxnKind::Invoice || kind == TxnKind::SalesReceipt;
        EXPECT_EQ(lines[3].GetValue("ServiceDate"), dated ? "2024-03-01" : "") << k.name;
        for (const View& blank : {lines[2], lines[4]}) {
            EXPECT_EQ(blank.Children().size(), 2u) << k.name;
            EXPECT_TRUE(blank.Has("Desc"));
            EXPECT_EQ(blank.GetValue("Desc"), "");
        }
    }
    EXPECT_TRUE(t.prompter.shown.empty()) << t.Prompts();
    ExpectValid("mod");
}

TEST_F(QbTxnTest, LongAndMultiLineTextIsCutAndKept) {
    ASSERT_TRUE(InvoiceModSub(t.app, {"T1", "E1"}));
    TxnLine row;
    row.lineType = kLineDescOnly;
    const struct {
        std::string desc;
        bool convert;
        std::string sent;
    } cases[] = {
        {std::string(5000, 'x'), false, std::string(4095, 'x')},
        {"A\nB", false, "A\nB"},
        {"A\nB", true, "A\\lB"},
    };
    for (const auto& c : cases) {
        row.desc = c.desc;
        row.other1 = std::string(40, 'o');
        Node* line = AppendLineObjects(t.app, TxnKind::Invoice);
        ASSERT_NE(line, nullptr);
        CopyLineFields(*line, row, {.convertLineFeeds = c.convert});
    }
    ASSERT_TRUE(SendMod());
    std::vector<View> lines = LastRequest("InvoiceModRq/InvoiceMod").Children("InvoiceLineMod");
    ASSERT_EQ(lines.size(), std::size(cases));
    for (std::size_t i = 0; i < lines.size(); ++i) {
        EXPECT_EQ(lines[i].GetValue("Desc"), cases[i].sent) << i;
        EXPECT_EQ(lines[i].GetValue("Other1"), std::string(29, 'o')) << i;
    }
    ExpectValid("long_text");
}

TEST_F(QbTxnTest, LinesGoOnlyToAModifyThatIsBeingBuilt) {
    EXPECT_FALSE(TxnModSub(t.app, TxnKind::PurchaseOrder, {"P1", "E1"}));
    EXPECT_EQ(AppendLineObjects(t.app, TxnKind::PurchaseOrder), nullptr);
    EXPECT_EQ(AppendLineObjects(t.app, TxnKind::Invoice), nullptr) << "none started";
    ASSERT_TRUE(EstimateModSub(t.app, {"T1", "E1"}));
    EXPECT_EQ(AppendLineObjects(t.app, TxnKind::Invoice), nullptr) << "another kind's";
    EXPECT_NE(AppendLineObjects(t.app, TxnKind::Estimate), nullptr);
    EXPECT_FALSE(InvoiceQuerySub(t.app, {.refNumber = "1"}));  // clears the request set
    EXPECT_EQ(AppendLineObjects(t.app, TxnKind::Estimate), nullptr) << "its set was cleared";
    const std::vector<std::string> shown = [&] {
        std::vector<std::string> texts;
        for (const auto& s : t.prompter.shown) texts.push_back(s.text);
        return texts;
    }();
    EXPECT_EQ(shown, (std::vector<std::string>{"Order Mod not supported  Purchase Orders",
                                               "Order Mod not supported  Purchase Orders",
                                               "Mod failed", "Mod failed", "Mod failed"}));
    for (const std::string& rq : Sent()) EXPECT_EQ(rq.find("ModRq"), std::string::npos);
}

TEST_F(QbTxnTest, TheDisplayRequestNamesTheKindAndTransaction) {
    const struct {
        TxnKind kind;
        const char* txnID;
        const char* type;  // nullptr: nothing is sent
    } cases[] = {
        {TxnKind::Invoice, "T1", "Invoice"},
        {TxnKind::SalesReceipt, "T2", "SalesReceipt"},
        {TxnKind::PurchaseOrder, "P1", "PurchaseOrder"},
        {TxnKind::None, "T1", nullptr},
        {TxnKind::Estimate, "", nullptr},
    };
    for (const auto& c : cases) {
        sentBefore = t.transport().requests.size();
        EXPECT_EQ(TxnDisplayModSub(t.app, c.kind, c.txnID), c.type != nullptr);
        if (!c.type) {
            EXPECT_TRUE(Sent().empty()) << c.txnID;
            continue;
        }
        ASSERT_EQ(Sent().size(), 1u);
        View rq = LastRequest("TxnDisplayModRq");
        EXPECT_EQ(rq.GetValue("TxnDisplayModType"), c.type);
        EXPECT_EQ(rq.GetValue("TxnID"), c.txnID);
    }
    EXPECT_TRUE(t.prompter.shown.empty());
    ExpectValid("display");

    t.company().Script("TxnDisplayModRq", test::Rs("TxnDisplayModRs", 3000, "Error",
                                                   "The given object ID is invalid"));
    EXPECT_FALSE(TxnDisplayModSub(t.app, TxnKind::Invoice, "T9"));
    const std::string failed =
        "Txn Display Mod Failed  Status: Code = 3000, Message = The given object ID is invalid, "
        "Severity = Error";
    EXPECT_EQ(t.app.qb.storedErrorText, failed);
    ASSERT_EQ(t.prompter.shown.size(), 1u);
    EXPECT_NE(t.prompter.shown[0].text.find(failed), std::string::npos);
    EXPECT_NE(t.prompter.shown[0].text.find(kContinueOrTerminate), std::string::npos);
    EXPECT_NE(t.prompter.shown[0].title.find("ERROR"), std::string::npos);
    ExpectValid("display");
}

}  // namespace
}  // namespace pelmark::qb
