// Plain words for the request processor's failures.
#include <gtest/gtest.h>

#include "fakes/fakes.h"
#include "qb/transport.h"

namespace pelmark::qb {
namespace {

TEST(TransportWordsTest, KnownAndUnknownCodes) {
    for (const auto& row : test::DataRows("hresult-words.txt")) {
        const std::string text =
            DescribeHresult("BeginSession", std::stoul(row[0], nullptr, 16), "from the SDK");
        EXPECT_EQ(text.rfind("BeginSession failed: ", 0), 0u) << text;
        EXPECT_NE(text.find(row[1]), std::string::npos) << text;
        EXPECT_NE(text.find("(HRESULT 0x" + row[0] + ") from the SDK"), std::string::npos) << text;
    }
}

}  // namespace
}  // namespace pelmark::qb
