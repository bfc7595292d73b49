// The scripted QuickBooks transport, the answering fake company, and the validator runner.
#include "fakes/qbFakes.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

#include <gtest/gtest.h>

#include "qb/qbCommon.h"
#include "qb/qbxmlResponse.h"

namespace pelmark::test {

namespace {

const char* const kNoMatch = "A query request did not find a matching object in QuickBooks";

std::string WithRequestID(std::string element, const std::string& requestID) {
    const std::string key = "requestID=\"";
    std::size_t at = element.find(key);
    if (at == std::string::npos) return element;
    std::size_t start = at + key.size();
    std::size_t end = element.find('"', start);
    if (end == std::string::npos) return element;
    return element.replace(start, end - start, requestID);
}

}  // namespace

// ---- ScriptedQbTransport ------------------------------------------------------------------

std::optional<qb::TransportResult> ScriptedQbTransport::Fault(const std::string& method) {
    calls.push_back(method);
    for (auto it = failures_.begin(); it != failures_.end(); ++it) {
        if (it->method == method && it->after-- == 0) {
            qb::TransportResult r{false, it->hresult, qb::DescribeHresult(method, it->hresult)};
            failures_.erase(it);
            return r;
        }
    }
    return std::nullopt;
}

qb::TransportResult ScriptedQbTransport::OpenConnection(const std::string&,
                                                        const std::string& name) {
    if (auto f = Fault("OpenConnection")) return *f;
    appName = name;
    connected = true;
    return {};
}

qb::TransportResult ScriptedQbTransport::BeginSession(const std::string&, int mode,
                                                      std::string* out) {
    if (auto f = Fault("BeginSession")) return *f;
    openMode = mode;
    inSession = true;
    *out = ticket;
    return {};
}

qb::TransportResult ScriptedQbTransport::ProcessRequest(const std::string&,
                                                        const std::string& request,
                                                        std::string* response) {
    requests.push_back(request);
    if (auto f = Fault("ProcessRequest")) return *f;
    if (!queued_.empty()) {
        *response = std::move(queued_.front());
        queued_.pop_front();
        return {};
    }
    if (answer) {
        *response = answer(request);
        return {};
    }
    return {false, 0x80040402, "ProcessRequest failed: the test scripted no answer"};
}

qb::TransportResult ScriptedQbTransport::GetCurrentCompanyFileName(const std::string&,
                                                                   std::string* fileName) {
    if (auto f = Fault("GetCurrentCompanyFileName")) return *f;
    *fileName = companyFile;
    return {};
}

qb::TransportResult ScriptedQbTransport::EndSession(const std::string&) {
    if (auto f = Fault("EndSession")) return *f;
    inSession = false;
    return {};
}

qb::TransportResult ScriptedQbTransport::CloseConnection() {
    if (auto f = Fault("CloseConnection")) return *f;
    connected = false;
    return {};
}

// ---- Answer texts -------------------------------------------------------------------------

std::string QbxmlAnswer(const std::vector<std::string>& responses) {
    std::string out = "<?xml version=\"1.0\" ?>\n<QBXML>\n<QBXMLMsgsRs>\n";
    for (const std::string& r : responses) out += r + "\n";
    return out + "</QBXMLMsgsRs>\n</QBXML>\n";
}

std::string Rs(const std::string& name, int code, const std::string& severity,
               const std::string& message, const std::string& body, const std::string& requestID) {
    return "<" + name + " requestID=\"" + requestID + "\" statusCode=\"" + std::to_string(code) +
           "\" statusSeverity=\"" + severity + "\" statusMessage=\"" + XmlEscape(message) + "\">" +
           body + "</" + name + ">";
}

std::string OkRs(const std::string& name, const std::string& body, const std::string& requestID) {
    return Rs(name, 0, "Info", "Status OK", body, requestID);
}

// ---- FakeQuickBooks -----------------------------------------------------------------------

void FakeQuickBooks::Script(const std::string& requestName, std::string responseElement) {
    script_[requestName].push_back(std::move(responseElement));
}

std::string FakeQuickBooks::Answer(const std::string& requestText) {
    qb::ResponseParseResult doc = qb::ParseXmlFragment(requestText);
    if (!doc.ok()) return QbxmlAnswer({});
    qb::View msgs = doc.root.Child("QBXMLMsgsRq");
    const bool stopOnError = msgs.Attribute("onError") != "continueOnError";
    bool stopped = false;
    std::vector<std::string> out;
    for (const qb::View& request : msgs.Children()) {
        const std::string name = request.Name();
        answered.push_back(name);
        const std::string rsName = name.substr(0, name.size() - 2) + "Rs";
        const std::string id = request.Attribute("requestID");
        std::string element;
        if (stopped) {
            element = Rs(rsName, 3231, "Error", "The request has not been processed.", "", id);
        } else if (auto s = script_.find(name); s != script_.end() && !s->second.empty()) {
            element = WithRequestID(std::move(s->second.front()), id);
            s->second.pop_front();
        } else if (name == "HostQueryRq") {
            std::string host =
                "<HostRet><ProductName>QuickBooks Pro 2014</ProductName><MajorVersion>24"
                "</MajorVersion><MinorVersion>0</MinorVersion><Country>US</Country>";
            for (const std::string& v : versions)
                host += "<SupportedQBXMLVersion>" + v + "</SupportedQBXMLVersion>";
            element = OkRs(rsName,
                           host +
                               "<IsAutomaticLogin>false</IsAutomaticLogin><QBFileMode>SingleUser"
                               "</QBFileMode></HostRet>",
                           id);
        } else if (name == "CompanyQueryRq") {
            element = OkRs(rsName,
                           "<CompanyRet><CompanyName>" + companyName +
                               "</CompanyName><LegalCompanyName>" + companyName +
                               " Inc.</LegalCompanyName><Address><State>CA</State></Address>"
                               "</CompanyRet>",
                           id);
        } else if (name == "DataExtDefQueryRq") {
            element = dataExtDefs.empty() ? Rs(rsName, 1, "Info", kNoMatch, "", id)
                                          : OkRs(rsName, dataExtDefs, id);
        } else if (name.size() > 7 && name.compare(name.size() - 7, 7, "QueryRq") == 0) {
            element = Rs(rsName, 1, "Info", kNoMatch, "", id);
        } else {
            element = OkRs(rsName, "", id);
        }
        qb::ResponseParseResult parsed = qb::ParseXmlFragment(element);
        if (stopOnError && parsed.ok() && parsed.root.Attribute("statusSeverity") == "Error")
            stopped = true;
        out.push_back(std::move(element));
    }
    return QbxmlAnswer(out);
}

// ---- QbTestApp ----------------------------------------------------------------------------

QbTestApp::QbTestApp() {
    transport_.answer = [this](const std::string& rq) { return company_.Answer(rq); };
    app.sys.qbTransport = &transport_;
    app.frmMain.SetOption(*app.frmMain.Find("optStopOnInfo"), true);
}

std::vector<std::string> QbTestApp::RequestsFrom(std::size_t n) const {
    const auto& all = transport_.requests;
    if (n >= all.size()) return {};
    return {all.begin() + static_cast<std::ptrdiff_t>(n), all.end()};
}

std::string QbTestApp::Prompts() const {
    std::string out;
    for (const auto& shown : prompter.shown) out += shown.text + "\n----\n";
    return out;
}

std::string QbTestApp::TakeTranscript() {
    std::string out;
    for (const std::string& rq : RequestsFrom(transcribed_)) out += "--- request\n" + rq;
    transcribed_ = transport_.requests.size();
    for (const auto& s : prompter.shown)
        out += "--- prompt " + s.title + " " + std::to_string(s.style) + "\n" + s.text + "\n";
    if (!app.qb.storedErrorText.empty()) out += "--- stored\n" + app.qb.storedErrorText + "\n";
    prompter.shown.clear();
    app.qb.storedErrorText.clear();
    return out;
}

std::string ShowItem(const ItemRec& i) {
    return i.name + "|" + i.fullName + "|" + std::to_string(i.depth) + "|" +
           std::to_string(i.kind) + "|" + i.desc + "|" + i.price + "|" + i.cost + "|" +
           i.salesTaxCode;
}

std::string SourceFile(const std::string& path) {
    std::ifstream in(std::string(PELMARK_SOURCE_DIR) + "/" + path, std::ios::binary);
    std::string text((std::istreambuf_iterator<char>(in)), {});
    EXPECT_FALSE(text.empty()) << "no " << path;
    return text;
}

void ExpectRecorded(const std::string& name, const std::string& text) {
    const std::string path = std::string(PELMARK_SOURCE_DIR) + "/tests/data/qb/" + name + ".txt";
    if (std::getenv("PELMARK_RECORD")) {
        std::ofstream(path, std::ios::binary) << text;
        return;
    }
    std::ifstream in(path, std::ios::binary);
    const std::string recorded((std::istreambuf_iterator<char>(in)), {});
    EXPECT_EQ(text, recorded) << path;
}

// ---- Validator ----------------------------------------------------------------------------

void ExpectValidRequests(const std::string& scenario, const std::vector<std::string>& requests) {
#ifdef _WIN32
    (void)scenario;
    (void)requests;
#else
    namespace fs = std::filesystem;
    fs::path validator =
        fs::path(PELMARK_SOURCE_DIR) / ".." / "shared" / "tools" / "qbxml_validate.py";
    ASSERT_TRUE(fs::exists(validator)) << "no " << validator;
    fs::path dir =
        fs::temp_directory_path() / ("pelmark_qbreq_" + std::to_string(std::random_device{}()));
    fs::create_directories(dir);
    std::string command = "python3 '" + validator.string() + "'";
    for (std::size_t i = 0; i < requests.size(); ++i) {
        fs::path file = dir / (scenario + "_" + std::to_string(i) + ".xml");
        std::ofstream(file, std::ios::binary) << requests[i];
        command += " '" + file.string() + "'";
    }
    std::string output;
    if (FILE* pipe = popen((command + " 2>&1").c_str(), "r")) {
        char buf[4096];
        while (std::size_t n = fread(buf, 1, sizeof buf, pipe)) output.append(buf, n);
        pclose(pipe);
    }
    for (std::size_t i = 0; i < requests.size(); ++i) {
        const std::string file = (dir / (scenario + "_" + std::to_string(i) + ".xml")).string();
        EXPECT_NE(output.find(file + ": ok\n"), std::string::npos) << output << "\n" << requests[i];
    }
    std::error_code ec;
    fs::remove_all(dir, ec);
#endif
}

}  // namespace pelmark::test
