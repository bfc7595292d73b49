// The COM transport on a Windows without QuickBooks: every failure comes back in plain words.
#include <gtest/gtest.h>

#include "qb/transport.h"

namespace pelmark::qb {
namespace {

TEST(ComTransportTest, NoRequestProcessorIsReportedNotThrown) {
    auto t = MakeComTransport();
    TransportResult open = t->OpenConnection("", "Corvalt's Pelmark");
    ASSERT_FALSE(open.ok);
    // Without QuickBooks the ProgID is unknown (or its class is not registered).
    EXPECT_TRUE(open.hresult == 0x800401F3 || open.hresult == 0x80040154) << open.message;
    EXPECT_NE(open.message.find("QBXMLRP2.RequestProcessor"), std::string::npos) << open.message;
    EXPECT_NE(open.message.find("HRESULT 0x80040"), std::string::npos) << open.message;

    // The calls after a failed connection fail the same way instead of crashing.
    std::string ticket;
    TransportResult begin = t->BeginSession("", kOpenDoNotCare, &ticket);
    EXPECT_FALSE(begin.ok);
    EXPECT_NE(begin.message.find("BeginSession failed"), std::string::npos) << begin.message;
    std::string response;
    EXPECT_FALSE(t->ProcessRequest(ticket, "<?xml version=\"1.0\"?>", &response).ok);
    EXPECT_TRUE(response.empty());
}

}  // namespace
}  // namespace pelmark::qb
