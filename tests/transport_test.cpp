// Plain words for the request processor's failures.
#include <gtest/gtest.h>

#include "qb/transport.h"

namespace pelmark::qb {
namespace {

TEST(TransportWordsTest, KnownAndUnknownCodes) {
    struct Case {
        uint32_t hr;
        const char* words;
    } cases[] = {
        {0x80040416, "QuickBooks is not running"},
        {0x80040408, "Could not start QuickBooks"},
        {0x80040418, "has not been authorised"},
        {0x80040414, "A dialog box is open in QuickBooks"},
        {0x80040422, "single-user mode on another computer"},
        {0x80040154, "64-bit"},
        {0x12345678, "the QuickBooks SDK reported an error."},
    };
    for (const Case& c : cases) {
        std::string text = DescribeHresult("BeginSession", c.hr, "from the SDK");
        EXPECT_EQ(text.rfind("BeginSession failed: ", 0), 0u) << text;
        EXPECT_NE(text.find(c.words), std::string::npos) << text;
        char code[16];
        std::snprintf(code, sizeof code, "0x%08X", static_cast<unsigned>(c.hr));
        EXPECT_NE(text.find(std::string("(HRESULT ") + code + ") from the SDK"), std::string::npos)
            << text;
    }
}

}  // namespace
}  // namespace pelmark::qb
