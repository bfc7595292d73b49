// The list queries: every item kind the reader knows, the statuses that are not errors, and the
// customer and template lists (the permission retry runs against qbsim in
// qbIntegration_test).
#include <gtest/gtest.h>

#include "app/text.h"
#include "fakes/qbFakes.h"
#include "qb/qbCommon.h"
#include "qb/qbxmlResponse.h"

namespace pelmark::qb {
namespace {

using test::OkRs;
using test::Rs;

const char* const kNoPermission = "Insufficient permission level to perform this action.";

using QbListsTest = test::OpenQbTest;

// Each kind filed by its rules (tests/data/qb/item-kinds.txt: own name, full name, depth, kind,
// description, price, cost, tax code, ListID, EditSequence, custom fields); the query asks for
// the custom fields, and a kind the reader does not know is skipped with an error line.
TEST_F(QbListsTest, EveryItemKindIsFiledByItsRulesAndUnknownKindsAreSkipped) {
    t.company().Script("ItemQueryRq",
                       OkRs("ItemQueryRs", test::SourceFile("tests/data/qb/every-item-kind.xml")));
    ASSERT_TRUE(ItemQuerySub(t.app));
    std::string table;
    for (const ItemRec& item : t.app.items.items) {
        table += test::ShowItem(item) + "|" + item.listID + "|" + item.editSequence;
        for (const auto& [name, value] : item.customFields)
            table += " [" + name + "=" + value + "]";
        table += "\n";
    }
    test::ExpectRecorded("item-kinds", table + t.TakeTranscript());
    EXPECT_EQ(FindItem(t.app, "LABOR:INSTALL"), &t.app.items.items[0]);
    EXPECT_EQ(t.app.items.salesTaxItems.count("ca tax"), 1u);
    EXPECT_EQ(t.app.items.salesTaxGroups.count("Bay Area"), 1u);
    EXPECT_TRUE(t.Logged("PIIIX, I St Grp "));
    const auto err = t.ErrLines();
    EXPECT_NE(std::find(err.begin(), err.end(), "ERROR\tUnknown Item Type ItemFutureRet"),
              err.end());
}

// Status 1 (none) and warnings are traced, not errors; other codes and a second refusal for
// permissions are reported once.
TEST_F(QbListsTest, StatusesThatAreNotErrorsAndThoseThatAre) {
    const std::string labor =
        "<ItemServiceRet><Name>Labor</Name><FullName>Labor</FullName></ItemServiceRet>";
    const std::string denied = Rs("ItemQueryRs", 3260, "Error", kNoPermission);
    const struct {
        std::vector<std::string> answers;
        std::size_t items;     // none when the query failed
        const char* reported;  // in the trace when it did not fail, else in the one prompt
    } cases[] = {
        {{Rs("ItemQueryRs", 1, "Info", "m")}, 0, "Item Query Status: Code = 1, Message = m"},
        {{Rs("ItemQueryRs", 500, "Warn", "m", labor)}, 1, "Item Query Status: Code = 500, "},
        {{Rs("ItemQueryRs", 3250, "Error", "Feature not enabled")},
         0,
         "Item  could not be retried from QuickBooks\r\nError = 3250 Feature not enabled"},
        {{denied, denied}, 0, "Error = 3260 Insufficient permission level"},
    };
    for (const auto& c : cases) {
        t.prompter.shown.clear();
        sentBefore = t.transport().requests.size();
        for (const std::string& a : c.answers) t.company().Script("ItemQueryRq", a);
        const bool ok = std::string(c.reported).starts_with("Item Query");
        EXPECT_EQ(ItemQuerySub(t.app), ok);
        EXPECT_EQ(Sent().size(), c.answers.size());
        EXPECT_EQ(t.app.items.count(), c.items);
        EXPECT_EQ(t.prompter.shown.size(), ok ? 0u : 1u);
        if (ok) {
            EXPECT_TRUE(t.Logged(c.reported)) << c.reported;
        } else {
            EXPECT_NE(t.Prompts().find(c.reported), std::string::npos) << t.Prompts();
            EXPECT_NE(t.Prompts().find(kContinueOrTerminate), std::string::npos);
        }
    }
}

TEST_F(QbListsTest, ATransportFailureInAListQueryIsReported) {
    t.transport().FailNext("ProcessRequest", 0x800706BE);
    EXPECT_FALSE(CustomerQuerySub(t.app));
    EXPECT_NE(t.Prompts().find("Customer Query Sub Err=0x800706BE "), std::string::npos);
    ASSERT_TRUE(QBOpen(t.app));  // the failure ended the session; this opens it again
    t.transport().Queue("<QBXML><QBXMLMsgsRs></QBXMLMsgsRs></QBXML>");
    EXPECT_FALSE(TemplateQuerySub(t.app));
    EXPECT_NE(t.Prompts().find("Template Query Sub Err=0x80040202 "), std::string::npos);
}

// The two lists as read (tests/data/qb/lists.txt); a second customer query replaces the list,
// and one that finds nothing (the default answer) says so.
TEST_F(QbListsTest, CustomersAndTemplates) {
    // tests/data/qb/lists-answers.xml: one answer for each of the two queries.
    const ResponseParseResult answers =
        ParseResponseSet(test::SourceFile("tests/data/qb/lists-answers.xml"));
    for (std::size_t i = 0; i < answers.set.ResponseList().Count(); ++i) {
        const Response rs = answers.set.ResponseList().GetAt(i);
        t.company().Script(ReplaceAll(rs.TypeName(), "QueryRs", "QueryRq"), rs.ToXMLString());
    }
    ASSERT_TRUE(CustomerQuerySub(t.app) && TemplateQuerySub(t.app));
    std::string lists;
    for (const CustomerRec& c : t.app.qb.customers)
        lists += c.name + "|" + c.fullName + "|" + c.listID + "|" + c.editSequence + "|" +
                 std::to_string(c.isActive) + "\n";
    for (const TemplateRec& c : t.app.qb.templates)
        lists += c.name + "|" + c.listID + "|" + c.templateType + "|" + std::to_string(c.isActive) +
                 "\n";
    ASSERT_TRUE(CustomerQuerySub(t.app));
    EXPECT_TRUE(t.app.qb.customers.empty());
    EXPECT_TRUE(t.Logged("Customer Query Sub no customer ret list "));
    test::ExpectRecorded("lists", lists);
}

}  // namespace
}  // namespace pelmark::qb
