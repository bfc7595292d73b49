// Tests of the qbXML message model: request order, text, lengths, OR groups, rejections and
// versions, and the parsing of QuickBooks' own responses and of broken ones.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <sstream>

#include "app/text.h"
#include "fakes/qbFakes.h"
#include "qb/qbxml.h"
#include "qb/qbxmlResponse.h"

namespace pelmark::qb {
namespace {

namespace fs = std::filesystem;

fs::path RealDir() {
    return fs::path(PELMARK_SOURCE_DIR) / ".." / "shared" / "qbxml" / "real";
}

// The request as written, read back.
View WrittenRequest(const MsgSetRequest& set) {
    ResponseParseResult parsed = ParseXmlFragment(set.ToXMLString());
    EXPECT_TRUE(parsed.ok()) << parsed.description;
    return parsed.root.Child("QBXMLMsgsRq").Children()[0];
}

// An InvoiceModRq with what it requires, for tests about one of its fields.
Node& InvoiceMod(MsgSetRequest& set) {
    Node& mod = set.Append("InvoiceModRq").Child("InvoiceMod");
    mod.Field("TxnID").SetValue("1-1");
    mod.Field("EditSequence").SetValue("1");
    return mod;
}

TEST(QbxmlRequest, WritesSchemaOrderWhateverOrderFieldsWereSetIn) {
    MsgSetRequest set("US", 7, 0);
    Node& rq = set.Append("InvoiceModRq");
    rq.Append("IncludeRetElement").SetValue("TxnID");
    Node& mod = rq.Child("InvoiceMod");
    mod.Field("Other").SetValue("o");
    Node& first = mod.Append("InvoiceLineMod");
    first.Field("Other2").SetValue("b");
    first.Field("Amount").SetValue(1.0);
    first.Field("Desc").SetValue("first");
    first.Field("ItemRef/FullName").SetValue("Item");
    first.Field("TxnLineID").SetValue(-1);
    Node& group = mod.Append("InvoiceLineGroupMod");
    group.Field("Quantity").SetValue(2);
    group.Field("TxnLineID").SetValue(-1);
    group.Field("ItemGroupRef/FullName").SetValue("Kit");
    rq.Append("InvoiceMod/InvoiceLineMod").Field("TxnLineID").SetValue(-1);
    mod.Append("InvoiceLineMod").Field("TxnLineID").SetValue(-1);
    mod.Field("Memo").SetValue("m");
    mod.Field("RefNumber").SetValue("7");
    rq.Append("IncludeRetElement").SetValue("RefNumber");
    mod.Field("EditSequence").SetValue("5");
    mod.Field("TxnID").SetValue("1-1");
    mod.Field("CustomerRef/FullName").SetValue("C");
    rq.Append("IncludeRetElement").SetValue("EditSequence");

    // tests/data/qb/schema-order.txt: the header fields in the reference's order, then the lines
    // and line groups in the order they were added, each line's fields in order.
    test::ExpectRecorded("schema-order", set.ToXMLString());
    EXPECT_EQ(mod.Count("InvoiceLineMod"), 3u);
    EXPECT_EQ(mod.Append("InvoiceLineMod").Path(), "InvoiceModRq/InvoiceMod/InvoiceLineMod[4]");
}

TEST(QbxmlRequest, EscapesTextAndWritesOnlyAscii) {
    struct Case {
        const char* value;
        const char* written;
        const char* readBack;
    };
    const Case cases[] = {
        {"A & B <c> \"d\" 'e'", "A &amp; B &lt;c&gt; &quot;d&quot; &apos;e&apos;",
         "A & B <c> \"d\" 'e'"},
        {"caf\xC3\xA9", "caf&#233;", "caf\xC3\xA9"},
        {"\xE2\x82\xAC 5", "&#8364; 5", "\xE2\x82\xAC 5"},
        {"\xF0\x9F\x98\x80", "&#128512;", "\xF0\x9F\x98\x80"},
        // Bytes that are not UTF-8 are Windows-1252, as the "A" window functions deliver them.
        {"it\x92s \xE9t\xE9", "it&#8217;s &#233;t&#233;", "it\xE2\x80\x99s \xC3\xA9t\xC3\xA9"},
        {"a\r\nb\tc", "a&#13;\nb\tc", "a\r\nb\tc"},
    };
    for (const Case& c : cases) {
        MsgSetRequest set("US", 7, 0);
        InvoiceMod(set).Field("Memo").SetValue(c.value);
        std::string xml = set.ToXMLString();
        EXPECT_NE(xml.find(std::string("<Memo>") + c.written + "</Memo>"), std::string::npos)
            << c.written << "\n"
            << xml;
        EXPECT_TRUE(std::all_of(xml.begin(), xml.end(), [](char ch) { return ch > 0; })) << xml;
        EXPECT_EQ(WrittenRequest(set).GetValue("InvoiceMod/Memo"), c.readBack);
    }
    MsgSetRequest set("US", 7, 0);
    Node& rq = set.Append("CustomerQueryRq");
    rq.SetAttribute("requestID", "a\"<&\n");
    EXPECT_NE(set.ToXMLString().find("requestID=\"a&quot;&lt;&amp;&#10;\""), std::string::npos);
    EXPECT_EQ(WrittenRequest(set).Attribute("requestID"), "a\"<&\n");
    try {
        InvoiceMod(set).Field("Memo").SetValue("bell\x07");
        ADD_FAILURE() << "a control character was accepted";
    } catch (const QbxmlError& e) {
        EXPECT_EQ(e.kind(), QbxmlErrorKind::BadValue);
    }
}

// tests/data/qbxml-fields.txt: maximum lengths and the versions elements came with.
TEST(QbxmlRequest, LengthsAndVersionsAreThoseOfTheReference) {
    std::istringstream table(test::SourceFile("tests/data/qbxml-fields.txt"));
    int checked = 0;
    for (std::string line; std::getline(table, line);) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream in(line);
        std::string version, request, path, what;
        int maxLength = -1;
        in >> version >> request >> path >> what >> maxLength;
        const bool present = what != "absent";
        MsgSetRequest set("US", std::stoi(version),
                          std::stoi(version.substr(version.find('.') + 1)));
        ++checked;
        try {
            if (path == "-") {
                EXPECT_EQ(set.Supports(request), present) << line;
                set.Append(request);
            } else {
                Node* node = &set.Append(request);
                std::vector<std::string> segments = Split(path, '/');
                for (std::size_t i = 0; i < segments.size(); ++i) {
                    std::string name = segments[i];
                    const bool repeated = name.back() == '*';
                    if (repeated) name.pop_back();
                    if (i + 1 == segments.size()) {
                        const auto names = node->ChildNames();
                        EXPECT_EQ(node->Supports(name), present) << line;
                        EXPECT_EQ(std::count(names.begin(), names.end(), name), present) << line;
                    }
                    node = repeated                   ? &node->Append(name)
                           : i + 1 == segments.size() ? &node->Field(name)
                                                      : &node->Child(name);
                }
                if (maxLength >= 0) {
                    EXPECT_EQ(node->GetMaxLength(), maxLength) << line;
                }
            }
            EXPECT_TRUE(present) << line << ": accepted";
        } catch (const QbxmlError& e) {
            EXPECT_FALSE(present) << line << ": " << e.what();
            EXPECT_EQ(e.kind(), QbxmlErrorKind::NotInVersion) << line;
            EXPECT_NE(std::string(e.what()).find("needs qbXML"), std::string::npos) << e.what();
        }
    }
    EXPECT_GE(checked, 26);

    MsgSetRequest set("US", 7, 0);
    Node& ref = InvoiceMod(set).Field("RefNumber");
    ref.SetValue("12345678901");
    EXPECT_THROW(ref.SetValue("123456789012"), QbxmlError);
    EXPECT_EQ(ref.GetValue(), "12345678901");
    std::string eleven;  // lengths count characters, not UTF-8 bytes
    for (int i = 0; i < 11; ++i) eleven += "\xC3\xA9";
    ref.SetValue(eleven);
}

// Each step's request in tests/data/qb/or-groups.txt: a TxnID replaces the RefNumbers; a date
// range by transaction date replaces the modified-date range and keeps the rest of the outer
// branch; a RefNumber replaces that branch whole; a line's price level replaces its rate.
TEST(QbxmlRequest, ChoosingABranchOfAnOrGroupClearsTheOthers) {
    MsgSetRequest set("US", 7, 0);
    Node& q = set.Append("InvoiceQueryRq");
    q.Field("IncludeLineItems").SetValue(true);
    q.Append("RefNumber").SetValue("1001");
    q.Append("RefNumber").SetValue("1002");
    q.Append("TxnID").SetValue("5-1");
    std::string steps = set.ToXMLString();
    q.Field("MaxReturned").SetValue(10);
    q.Field("ModifiedDateRangeFilter/FromModifiedDate").SetValue("2024-01-01T00:00:00");
    q.Append("EntityFilter/FullName").SetValue("Acme");
    q.Field("TxnDateRangeFilter/FromTxnDate").SetValue("2024-01-01");
    q.Field("TxnDateRangeFilter/DateMacro").SetValue("ThisMonth");
    steps += set.ToXMLString();
    q.Append("RefNumber").SetValue("9");
    steps += set.ToXMLString();

    // A reference into a cleared branch stays usable and takes its branch back.
    Node& line = InvoiceMod(set).Append("InvoiceLineMod");
    line.Field("TxnLineID").SetValue(-1);
    Node& rate = line.Field("Rate");
    rate.SetValue(1.5);
    line.Field("RatePercent").SetValue(-5);
    line.Field("PriceLevelRef/FullName").SetValue("Retail");
    EXPECT_FALSE(rate.IsSet());
    steps += set.ToXMLString();
    rate.SetValue(2.0);
    EXPECT_FALSE(line.Child("PriceLevelRef").IsSet());
    test::ExpectRecorded("or-groups", steps + set.ToXMLString());
}

// Plays one row's steps of tests/data/qb/rejections.txt on `set`.
void Play(MsgSetRequest& set, std::istream& steps) {
    Node *at = nullptr, *back = nullptr;
    for (std::string s; steps >> s;) {
        const std::size_t eq = s.find_first_of("=!");
        if (s == "mod") {
            at = back = &InvoiceMod(set);
        } else if (s == "write") {
            set.ToXMLString();
        } else if (s == "^") {
            at = back;
        } else if (s[0] == '+') {
            at = at ? &at->Append(s.substr(1)) : &set.Append(s.substr(1));
        } else if (s[0] == '>') {
            at = back = &at->Child(s.substr(1));
        } else if (s[0] == '@') {
            at->SetAttribute(s.substr(1, eq - 1), s.substr(eq + 1));
        } else if (eq == std::string::npos) {
            at = &at->Field(s.substr(1));
        } else if (Node& f = at->Field(s.substr(1, eq - 1)); s[eq] == '!') {
            f.SetEmpty();
        } else if (s[eq + 1] == '#') {
            f.SetValue(std::stoi(s.substr(eq + 2)));
        } else {
            f.SetValue(s.substr(eq + 1));
        }
    }
}

TEST(QbxmlRequest, RejectsWhatTheSchemaDoesNotAllow) {
    const char* const kinds[] = {"UnknownElement",   "UnknownRequest", "NotInVersion",
                                 "NotSupported",     "NotALeaf",       "NotAnAggregate",
                                 "NotRepeatable",    "BadValue",       "TooLong",
                                 "UnknownAttribute", "MissingRequired"};
    std::istringstream table(test::SourceFile("tests/data/qb/rejections.txt"));
    int rows = 0;
    for (std::string line; std::getline(table, line);) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream row(line);
        std::string kind, path;
        row >> kind >> path;
        MsgSetRequest set("US", 7, 0);
        ++rows;
        try {
            Play(set, row);
            ADD_FAILURE() << line << ": accepted";
        } catch (const QbxmlError& e) {
            EXPECT_EQ(kinds[static_cast<int>(e.kind())], kind) << line << "\n" << e.what();
            EXPECT_EQ(e.path(), path) << line;
        }
    }
    EXPECT_EQ(rows, 18);
    EXPECT_THROW(MsgSetRequest("CA", 7, 0), QbxmlError);
    EXPECT_THROW(MsgSetRequest("US", 0, 5), QbxmlError);
}

// tests/data/qb/value-formats.txt: amounts with two decimals (rounded, no negative zero), rates
// to five, quantities and percentages as short as they go, dates as given, empty texts.
TEST(QbxmlRequest, FormatsValuesAsTheirSchemaTypeWants) {
    const std::pair<const char*, std::function<void(Node&)>> cases[] = {
        {"Amount", [](Node& f) { f.SetValue(12.5); }},
        {"Amount", [](Node& f) { f.SetValue(-0.001); }},
        {"Amount", [](Node& f) { f.SetValue(7); }},
        {"Amount", [](Node& f) { f.SetValue("-89.10"); }},
        {"Rate", [](Node& f) { f.SetValue(2.123456); }},
        {"Quantity", [](Node& f) { f.SetValue(3.0); }},
        {"Quantity", [](Node& f) { f.SetValue(0.25); }},
        {"RatePercent", [](Node& f) { f.SetValue(-15); }},
        {"ServiceDate", [](Node& f) { f.SetValue("2024-02-29"); }},
        {"Desc", [](Node& f) { f.SetValue(""); }},
        {"Desc", [](Node& f) { f.SetEmpty(); }},
    };
    MsgSetRequest lines("US", 7, 0);
    Node& mod = InvoiceMod(lines);
    for (const auto& [name, set] : cases) {
        Node& line = mod.Append("InvoiceLineMod");
        line.Field("TxnLineID").SetValue(-1);
        set(line.Field(name));
        EXPECT_TRUE(line.Field(name).IsSet()) << name;
    }
    test::ExpectRecorded("value-formats", lines.ToXMLString());
    MsgSetRequest set("US", 7, 0);
    Node& q = set.Append("ItemQueryRq");
    q.Field("MaxReturned").SetValue(2.0);
    EXPECT_EQ(q.Field("MaxReturned").GetAsString(), "2");
    EXPECT_THROW(q.Field("MaxReturned").SetValue(2.5), QbxmlError);
    EXPECT_FALSE(q.Field("ActiveStatus").IsSet());
    q.Field("MaxReturned").Clear();
    EXPECT_FALSE(q.IsSet());
}

// ---- Responses --------------------------------------------------------------------------

TEST(QbxmlResponse, ReadsEveryResponseQuickBooksWrote) {
    ASSERT_TRUE(fs::is_directory(RealDir())) << "no " << RealDir();
    int sets = 0, fragments = 0;
    for (const auto& entry : fs::directory_iterator(RealDir())) {
        if (entry.path().extension() != ".xml") continue;
        std::string name = entry.path().filename().string();
        std::string text = test::SourceFile("../shared/qbxml/real/" + name);
        if (text.find("<QBXMLMsgsRq") != std::string::npos) continue;  // a request
        if (text.find("<QBXMLMsgsRs") == std::string::npos) {
            ResponseParseResult r = ParseXmlFragment(text);  // a returned object saved alone
            ASSERT_TRUE(r.ok()) << name << ": " << r.description;
            EXPECT_TRUE(r.root.Name().ends_with("Ret")) << name;
            ++fragments;
            continue;
        }
        ResponseParseResult r = ParseResponseSet(text);
        ASSERT_TRUE(r.ok()) << name << ": " << r.description;
        ++sets;
        EXPECT_EQ(r.set.ToXMLString(), text);
        const ResponseList& list = r.set.ResponseList();
        EXPECT_GE(list.Count(), 1u) << name;
        for (std::size_t i = 0; i < list.Count(); ++i) {
            Response rs = list.GetAt(i);
            EXPECT_TRUE(rs.HasStatus()) << name;
            std::string severity = rs.StatusSeverity();
            EXPECT_EQ(severity, rs.StatusCode() == 0 || rs.StatusCode() == 1 ? "Info"
                                : rs.StatusCode() < 1000                     ? "Warn"
                                                                             : "Error")
                << name << " #" << i;
            EXPECT_NE(rs.Type(), kRtUnknown) << name << " " << rs.TypeName();
            EXPECT_EQ(rs.Detail().IsNull(), rs.Element().Children().empty()) << name;
        }
        EXPECT_TRUE(list.GetAt(list.Count()).IsNull() &&
                    list.GetAt(list.Count()).Type() == kRtUnknown);
    }
    EXPECT_EQ(sets, 16);
    EXPECT_EQ(fragments, 1);
    // A stale edit sequence (3200) returns the object as it is now, with the fresh EditSequence.
    ResponseParseResult stale = ParseResponseSet(
        test::SourceFile("../shared/qbxml/real/"
                         "CustomerModRs_status3200_stale_editsequence_returns_current_object.xml"));
    EXPECT_EQ(stale.set.ResponseList().GetAt(0).Detail().GetValue("EditSequence"), "1272665327");
}

TEST(QbxmlResponse, BrokenResponsesGiveAClearResult) {
    struct Case {
        std::string text;
        ParseStatus status;
        int line, column;
        const char* describes;
    };
    const std::string good =
        "<?xml version=\"1.0\" ?>\n<QBXML>\n<QBXMLMsgsRs>\n"
        "<InvoiceModRs requestID=\"0\" statusCode=\"0\" statusSeverity=\"Info\" "
        "statusMessage=\"Status OK\">\n<InvoiceRet><TxnID>1-1</TxnID></InvoiceRet>\n"
        "</InvoiceModRs>\n</QBXMLMsgsRs>\n</QBXML>\n";
    const Case cases[] = {
        {"", ParseStatus::Empty, 0, 0, "empty"},
        {" \r\n\t", ParseStatus::Empty, 0, 0, "empty"},
        {"QuickBooks is busy", ParseStatus::NotWellFormed, 1, 1, "not XML"},
        {good.substr(0, good.find("<TxnID>") + 9), ParseStatus::Truncated, 5, 0, "cut off"},
        {good.substr(0, good.find("</QBXML>") + 5), ParseStatus::Truncated, 8, 6, "cut off"},
        {"<QBXML>\n<QBXMLMsgsRs>\n<A></B>\n</QBXMLMsgsRs>\n</QBXML>", ParseStatus::NotWellFormed, 3,
         6, "not well-formed"},
        {"<QBXML><QBXMLMsgsRs><A statusCode=\"0></QBXMLMsgsRs></QBXML>\n\n",
         ParseStatus::NotWellFormed, 0, 0, "not well-formed"},
        {"<?xml version=\"1.0\"?>\n<QBXMLMsgsRs/>", ParseStatus::NotQbxml, 2, 2, "<QBXMLMsgsRs>"},
        {"<QBXML><QBXMLMsgsRq onError=\"stopOnError\"/></QBXML>", ParseStatus::NoMsgsRs, 1, 2,
         "QBXMLMsgsRq"},
        {"<QBXML/>", ParseStatus::NoMsgsRs, 1, 2, "empty"},
    };
    for (const Case& c : cases) {
        ResponseParseResult r = ParseResponseSet(c.text);
        EXPECT_EQ(r.status, c.status) << c.text << "\n" << r.description;
        EXPECT_FALSE(r.ok());
        EXPECT_EQ(r.set.ResponseList().Count(), 0u);
        if (c.line) {
            EXPECT_EQ(r.line, c.line) << c.text << "\n" << r.description;
        }
        if (c.column) {
            EXPECT_EQ(r.column, c.column) << c.text << "\n" << r.description;
        }
        EXPECT_NE(r.description.find(c.describes), std::string::npos) << r.description;
    }
    EXPECT_TRUE(ParseResponseSet(good).ok());
}

}  // namespace
}  // namespace pelmark::qb
