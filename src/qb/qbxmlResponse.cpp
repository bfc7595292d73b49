// Parsing of qbXML response sets with pugixml, and the read-only views over them.
#include "qb/qbxmlResponse.h"

#include <algorithm>
#include <charconv>
#include <sstream>

namespace pelmark::qb {

namespace {

struct ResponseTypeEntry {
    const char* name;
    int code;
    bool single;  // the body is one returned object, which Detail() gives directly
};

#define QBXML_SCHEMA_RESPONSES
#include "qb/qbxmlSchema.inc"
#undef QBXML_SCHEMA_RESPONSES

const ResponseTypeEntry* FindResponseType(std::string_view name) {
    for (const auto& e : kResponseTypes) {
        if (name == e.name) return &e;
    }
    return nullptr;
}

std::string_view TrimWhite(std::string_view s) {
    auto first = s.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos) return {};
    auto last = s.find_last_not_of(" \t\r\n");
    return s.substr(first, last - first + 1);
}

template <typename T>
std::optional<T> ParseNumber(std::string_view s) {
    s = TrimWhite(s);
    if (!s.empty() && s[0] == '+') s.remove_prefix(1);
    T value{};
    auto [ptr, ec] = std::from_chars(s.data(), s.data() + s.size(), value);
    if (s.empty() || ec != std::errc() || ptr != s.data() + s.size()) return std::nullopt;
    return value;
}

void SetPosition(ResponseParseResult& r, std::string_view text, std::size_t offset) {
    r.offset = std::min(offset, text.size());
    r.line = 1 + static_cast<int>(std::count(text.begin(), text.begin() + r.offset, '\n'));
    auto lineStart = text.rfind('\n', r.offset == 0 ? 0 : r.offset - 1);
    std::size_t start = (lineStart == std::string_view::npos || r.offset == 0) ? 0 : lineStart + 1;
    r.column = 1 + static_cast<int>(r.offset - start);
}

std::string Where(const ResponseParseResult& r) {
    return "line " + std::to_string(r.line) + ", column " + std::to_string(r.column) + " (byte " +
           std::to_string(r.offset) + ")";
}

// Loads the text; on failure fills the status, position and description of `r`.
std::shared_ptr<pugi::xml_document> Load(std::string_view text, ResponseParseResult& r) {
    if (TrimWhite(text).empty()) {
        r.status = ParseStatus::Empty;
        r.description = "the response is empty";
        return nullptr;
    }
    auto doc = std::make_shared<pugi::xml_document>();
    pugi::xml_parse_result parsed =
        doc->load_buffer(text.data(), text.size(), pugi::parse_default, pugi::encoding_auto);
    if (parsed.status == pugi::status_no_document_element) {
        r.status = ParseStatus::NotWellFormed;
        r.description = "the response is not XML: it holds no element";
        SetPosition(r, text, 0);
        return nullptr;
    }
    if (!parsed) {
        SetPosition(r, text, static_cast<std::size_t>(std::max<std::ptrdiff_t>(parsed.offset, 0)));
        // When no markup is closed after the error, the text stopped before the document did
        // (pugixml points at the last byte, or inside the unfinished tag): a response cut off
        // on its way rather than a malformed one.
        if (text.find('>', r.offset + 1) == std::string_view::npos) {
            SetPosition(r, text, text.size());
            r.status = ParseStatus::Truncated;
            r.description = "the response is cut off: the text ends at " + Where(r) +
                            " before the document does (" + parsed.description() + ")";
        } else {
            r.status = ParseStatus::NotWellFormed;
            r.description =
                "the response is not well-formed XML at " + Where(r) + ": " + parsed.description();
        }
        return nullptr;
    }
    return doc;
}

}  // namespace

struct ResponseSetBuilder {
    static void Fill(ResponseSet& set, std::string_view text, View root, View msgs) {
        set.text_ = std::string(text);
        set.root_ = std::move(root);
        for (const View& v : msgs.Children()) set.list_.responses_.emplace_back(v);
    }
};

int ResponseTypeCode(std::string_view responseName) {
    const ResponseTypeEntry* e = FindResponseType(responseName);
    return e ? e->code : kRtUnknown;
}

// ---- View -------------------------------------------------------------------------------

View::View(std::shared_ptr<const pugi::xml_document> doc, pugi::xml_node node)
    : doc_(std::move(doc)), node_(node) {}

std::string View::Name() const {
    return node_ ? node_.name() : "";
}

pugi::xml_node View::Find(std::string_view path) const {
    pugi::xml_node n = node_;
    while (n && !path.empty()) {
        auto slash = path.find('/');
        std::string name(path.substr(0, slash));
        n = n.child(name.c_str());
        path = slash == std::string_view::npos ? std::string_view() : path.substr(slash + 1);
    }
    return n;
}

bool View::Has(std::string_view path) const {
    return static_cast<bool>(Find(path));
}

View View::Child(std::string_view path) const {
    pugi::xml_node n = Find(path);
    return n ? View(doc_, n) : View();
}

std::vector<View> View::Children(std::string_view name) const {
    std::vector<View> out;
    for (pugi::xml_node c = node_.first_child(); c; c = c.next_sibling()) {
        if (c.type() == pugi::node_element && (name.empty() || name == c.name())) {
            out.emplace_back(doc_, c);
        }
    }
    return out;
}

std::string View::GetValue(std::string_view path) const {
    return Find(path).text().get();
}

std::optional<double> View::GetDouble(std::string_view path) const {
    return ParseNumber<double>(Find(path).text().get());
}

std::optional<long long> View::GetInt(std::string_view path) const {
    return ParseNumber<long long>(Find(path).text().get());
}

std::optional<bool> View::GetBool(std::string_view path) const {
    std::string_view text = TrimWhite(Find(path).text().get());
    if (text == "true") return true;
    if (text == "false") return false;
    return std::nullopt;
}

bool View::HasAttribute(std::string_view name) const {
    return static_cast<bool>(node_.attribute(std::string(name).c_str()));
}

std::string View::Attribute(std::string_view name) const {
    return node_.attribute(std::string(name).c_str()).value();
}

std::string View::ToXMLString() const {
    if (!node_) return "";
    std::ostringstream out;
    node_.print(out, "  ", pugi::format_default);
    return out.str();
}

// ---- Response ---------------------------------------------------------------------------

bool Response::HasStatus() const {
    return ParseNumber<int>(element_.Attribute("statusCode")).has_value();
}

int Response::StatusCode() const {
    return ParseNumber<int>(element_.Attribute("statusCode")).value_or(kNoStatus);
}

std::string Response::StatusSeverity() const {
    return element_.Attribute("statusSeverity");
}

std::string Response::StatusMessage() const {
    return element_.Attribute("statusMessage");
}

int Response::Type() const {
    return IsNull() ? kRtUnknown : ResponseTypeCode(TypeName());
}

View Response::Detail() const {
    std::vector<View> body = element_.Children();
    if (body.empty()) return {};
    const ResponseTypeEntry* e = FindResponseType(TypeName());
    return e && e->single ? body.front() : element_;
}

Response ResponseList::GetAt(std::size_t index) const {
    return index < responses_.size() ? responses_[index] : Response();
}

// ---- Parsing ----------------------------------------------------------------------------

ResponseParseResult ParseResponseSet(std::string_view xmlText) {
    ResponseParseResult r;
    auto doc = Load(xmlText, r);
    if (!doc) return r;
    pugi::xml_node root = doc->document_element();
    r.root = View(doc, root);
    if (std::string_view(root.name()) != "QBXML") {
        r.status = ParseStatus::NotQbxml;
        SetPosition(r, xmlText,
                    static_cast<std::size_t>(std::max<std::ptrdiff_t>(root.offset_debug(), 0)));
        r.description = "the response's root element is <" + std::string(root.name()) +
                        ">, not <QBXML>, at " + Where(r);
        return r;
    }
    pugi::xml_node msgs = root.child("QBXMLMsgsRs");
    if (!msgs) {
        r.status = ParseStatus::NoMsgsRs;
        SetPosition(r, xmlText,
                    static_cast<std::size_t>(std::max<std::ptrdiff_t>(root.offset_debug(), 0)));
        std::string found;
        for (const View& v : r.root.Children()) found += (found.empty() ? "" : ", ") + v.Name();
        r.description =
            "<QBXML> holds no <QBXMLMsgsRs>" +
            (found.empty() ? std::string(" (it is empty)") : " (it holds " + found + ")");
        return r;
    }
    ResponseSetBuilder::Fill(r.set, xmlText, r.root, View(doc, msgs));
    return r;
}

ResponseParseResult ParseXmlFragment(std::string_view xmlText) {
    ResponseParseResult r;
    auto doc = Load(xmlText, r);
    if (doc) r.root = View(doc, doc->document_element());
    return r;
}

}  // namespace pelmark::qb
