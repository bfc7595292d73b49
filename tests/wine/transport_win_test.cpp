// The COM transport: plain words when no request processor is registered, and every call against
// qbcom, the request processor answered by qbsim from a company file.
#include <gtest/gtest.h>

#include <string>

#include "fakes/fakes.h"
#include "qb/transport.h"
#include "wine/qbcom_win.h"

namespace pelmark::qb {
namespace {

TEST(ComTransportTest, NoRequestProcessorIsReportedNotThrown) {
    ASSERT_TRUE(test::UnregisterQbCom());
    auto t = MakeComTransport();
    TransportResult open = t->OpenConnection("", "Corvalt's Pelmark");
    ASSERT_FALSE(open.ok);
    EXPECT_EQ(open.hresult, 0x800401F3u) << open.message;
    EXPECT_NE(open.message.find("QBXMLRP2.RequestProcessor) is not installed on this computer"),
              std::string::npos)
        << open.message;

    // The calls after a failed connection fail the same way instead of crashing.
    std::string ticket;
    TransportResult begin = t->BeginSession("", kOpenDoNotCare, &ticket);
    EXPECT_FALSE(begin.ok);
    EXPECT_NE(begin.message.find("BeginSession failed"), std::string::npos) << begin.message;
    std::string response;
    EXPECT_FALSE(t->ProcessRequest(ticket, "<?xml version=\"1.0\"?>", &response).ok);
    EXPECT_TRUE(response.empty());
}

TEST(ComTransportTest, TheRegisteredServerAnswersFromItsCompanyFile) {
    test::TempDir dir;
    const std::string company = test::CopySampleCompany(dir.path());
    test::QbComRegistration server(company);
    ASSERT_TRUE(server.ok());

    auto t = MakeComTransport();
    TransportResult r = t->OpenConnection("", "Corvalt's Pelmark");
    ASSERT_TRUE(r.ok) << r.message;
    std::string ticket;
    r = t->BeginSession("", kOpenDoNotCare, &ticket);
    ASSERT_TRUE(r.ok) << r.message;
    EXPECT_EQ(ticket.front(), '{') << ticket;
    std::string file;
    ASSERT_TRUE(t->GetCurrentCompanyFileName(ticket, &file).ok);
    EXPECT_EQ(file, company);

    std::string response;
    r = t->ProcessRequest(ticket,
                          test::QbxmlRequest("<InvoiceQueryRq><RefNumber>3001</RefNumber>"
                                             "<IncludeLineItems>true</IncludeLineItems>"
                                             "</InvoiceQueryRq>"),
                          &response);
    ASSERT_TRUE(r.ok) << r.message;
    // The answer itself: the sort runs under Wine (sortEndToEnd) query and modify through here.
    EXPECT_NE(response.find("<RefNumber>3001</RefNumber>"), std::string::npos) << response;

    // Failures come back as the request processor's HRESULT with its description after our
    // plain words.
    r = t->ProcessRequest(ticket, "this is not qbXML", &response);
    EXPECT_EQ(r.hresult, 0x80040400u) << r.message;
    EXPECT_GT(r.message.size(), DescribeHresult("ProcessRequest", r.hresult).size() + 1)
        << r.message;
    r = t->ProcessRequest("{not-the-ticket}", test::QbxmlRequest(""), &response);
    EXPECT_EQ(r.hresult, 0x80040402u) << r.message;
    EXPECT_NE(r.message.find("ticket"), std::string::npos) << r.message;

    EXPECT_TRUE(t->EndSession(ticket).ok);
    EXPECT_TRUE(t->CloseConnection().ok);

    // QuickBooks running with no company open: a session on "the open file" is refused.
    ASSERT_TRUE(test::RegisterQbCom(""));
    r = test::AskThroughCom("", &response);
    EXPECT_EQ(r.hresult, 0x80040416u) << r.message;
    EXPECT_NE(r.message.find("QuickBooks is not running"), std::string::npos) << r.message;
}

}  // namespace
}  // namespace pelmark::qb
