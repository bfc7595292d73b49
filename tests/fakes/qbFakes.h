// A scripted QuickBooks transport and a small answering company for the SDK layer's tests, and
// the runner of the project's qbXML validator over the requests they recorded.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "app/items.h"
#include "fakes/fakes.h"
#include "qb/qbCommon.h"
#include "qb/transport.h"

namespace pelmark::test {

// Records every call and request text; answers ProcessRequest from queued texts, then from
// `answer`. Any call can be made to fail with an HRESULT.
class ScriptedQbTransport : public qb::QbTransport {
  public:
    qb::TransportResult OpenConnection(const std::string& appID,
                                       const std::string& appName) override;
    qb::TransportResult BeginSession(const std::string& companyFile, int openMode,
                                     std::string* ticket) override;
    qb::TransportResult ProcessRequest(const std::string& ticket, const std::string& request,
                                       std::string* response) override;
    qb::TransportResult GetCurrentCompanyFileName(const std::string& ticket,
                                                  std::string* fileName) override;
    qb::TransportResult EndSession(const std::string& ticket) override;
    qb::TransportResult CloseConnection() override;

    // Answers taken before `answer` is asked, in order.
    void Queue(std::string response) { queued_.push_back(std::move(response)); }
    std::function<std::string(const std::string& request)> answer;

    // The named method ("BeginSession", ...) fails once, after `after` calls that go through.
    void FailNext(const std::string& method, uint32_t hresult, int after = 0) {
        failures_.push_back({method, hresult, after});
    }

    std::vector<std::string> calls;     // method names, in order
    std::vector<std::string> requests;  // every ProcessRequest text, in order
    std::string appName;
    int openMode = -1;
    std::string companyFile = "C:\\Company Files\\Sample Co.QBW";
    std::string ticket = "{ticket-1}";
    bool connected = false, inSession = false;

  private:
    std::optional<qb::TransportResult> Fault(const std::string& method);
    struct Failure {
        std::string method;
        uint32_t hresult;
        int after;
    };
    std::vector<Failure> failures_;
    std::deque<std::string> queued_;
};

// qbXML answer texts.
std::string QbxmlAnswer(const std::vector<std::string>& responses);
// One response element: <NameRs requestID statusCode statusSeverity statusMessage>body</...>.
std::string Rs(const std::string& name, int code, const std::string& severity,
               const std::string& message, const std::string& body = {},
               const std::string& requestID = "0");
std::string OkRs(const std::string& name, const std::string& body = {},
                 const std::string& requestID = "0");

// A company that answers every request of a message set in order, under stopOnError: after
// the first response with severity "Error" the rest answer 3231. Requests without a script
// get their defaults: the host and company queries describe the company, other queries find
// nothing (status 1), and every other request succeeds with an empty body.
class FakeQuickBooks {
  public:
    std::vector<std::string> versions = {"1.0", "2.0", "2.1", "3.0", "4.0",
                                         "5.0", "6.0", "7.0", "8.0", "13.0"};
    std::string companyName = "Sample Co";
    std::string dataExtDefs;  // DataExtDefRet elements; none: status 1

    // The next answer to a request of that name ("ItemQueryRq"): a whole response element
    // (make it with Rs/OkRs; its requestID is set to the request's).
    void Script(const std::string& requestName, std::string responseElement);

    std::string Answer(const std::string& requestText);
    // Request names answered so far, in order ("HostQueryRq", ...).
    std::vector<std::string> answered;

  private:
    std::map<std::string, std::deque<std::string>> script_;
};

// A TestApp whose QuickBooks is a FakeQuickBooks; prompts of every level are shown, so that
// the "INFO" reports of the SDK layer can be seen.
struct QbTestApp : TestApp {
    QbTestApp();
    FakeQuickBooks& company() { return company_; }
    ScriptedQbTransport& transport() { return transport_; }
    const ScriptedQbTransport& transport() const { return transport_; }
    // Request texts sent from the nth on.
    std::vector<std::string> RequestsFrom(std::size_t n) const;
    // The texts of the prompts shown so far, joined.
    std::string Prompts() const;
    // The requests sent and the prompts shown since the last call, and the stored error text, as
    // text for ExpectRecorded; the prompts and the error text are cleared.
    std::string TakeTranscript();

  private:
    FakeQuickBooks company_;
    ScriptedQbTransport transport_;
    std::size_t transcribed_ = 0;
};

// A test with a QbTestApp whose session is open; `sentBefore` counts the requests sent so far.
struct OpenQbTest : ::testing::Test {
    QbTestApp t;
    std::size_t sentBefore = 0;
    void SetUp() override {
        ASSERT_TRUE(qb::QBOpen(t.app));
        sentBefore = t.transport().requests.size();
    }
    std::vector<std::string> Sent() const { return t.RequestsFrom(sentBefore); }
};

// An item in one line: own name|full name|depth|kind|desc|price|cost|tax code.
std::string ShowItem(const ItemRec& i);

// The text of a file under the source tree ("tests/data/qb/..."); an empty text fails the test.
std::string SourceFile(const std::string& path);

// Compares `text` with tests/data/qb/NAME.txt, what the program sent and said when the recording
// was last reviewed; PELMARK_RECORD=1 writes the text instead (review the difference).
void ExpectRecorded(const std::string& name, const std::string& text);

// Runs shared/tools/qbxml_validate.py over the request texts (named SCENARIO_N.xml) and fails
// the test for each one it does not pass, or when it cannot run. The Windows build runs under
// Wine without python3, so there it checks nothing.
void ExpectValidRequests(const std::string& scenario, const std::vector<std::string>& requests);

}  // namespace pelmark::test
