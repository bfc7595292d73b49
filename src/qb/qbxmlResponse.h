// qbXML response sets parsed into read-only views: each response's status, type and detail.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <pugixml.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace pelmark::qb {

// Response-type codes (Response::Type) of the four sales transactions, as the SDK's object
// layer numbers them; the query of each kind has the lower code, the modify the higher one.
inline constexpr int kRtInvoiceQueryRs = 1088;
inline constexpr int kRtInvoiceModRs = 1157;
inline constexpr int kRtSalesOrderQueryRs = 1155;
inline constexpr int kRtSalesOrderModRs = 1161;
inline constexpr int kRtSalesReceiptQueryRs = 1043;
inline constexpr int kRtSalesReceiptModRs = 1394;
inline constexpr int kRtEstimateQueryRs = 1104;
inline constexpr int kRtEstimateModRs = 1171;
// Every other qbXML 7.0 response has a code of its own from 20000 up (ResponseTypeCode);
// an element that is no qbXML 7.0 response has this one.
inline constexpr int kRtUnknown = 0;
// StatusCode() of a response without a (numeric) statusCode attribute.
inline constexpr int kNoStatus = -1;

int ResponseTypeCode(std::string_view responseName);  // kRtUnknown when not a response

// A read-only view of one element of a parsed document. A null view (absent element) answers
// every question with "" / false / nothing, so reading a field the response lacks is harmless.
class View {
  public:
    View() = default;
    View(std::shared_ptr<const pugi::xml_document> doc, pugi::xml_node node);

    bool IsNull() const { return !node_; }
    explicit operator bool() const { return !IsNull(); }
    std::string Name() const;

    // Paths are '/'-separated element names below this one ("CustomerRef/FullName"); each
    // step takes the first element of that name. An empty path is this element.
    bool Has(std::string_view path) const;
    View Child(std::string_view path) const;
    // Direct child elements with that name (all of them when the name is empty), in order:
    // the returned objects of a query, the lines of a transaction.
    std::vector<View> Children(std::string_view name = {}) const;

    // The element's text, entity references decoded to UTF-8; "" when absent. Every value is
    // text here; GetDouble/GetInt/GetBool read the typed value when it parses.
    std::string GetValue(std::string_view path = {}) const;
    std::string GetAsString(std::string_view path = {}) const { return GetValue(path); }
    std::optional<double> GetDouble(std::string_view path = {}) const;
    std::optional<long long> GetInt(std::string_view path = {}) const;
    std::optional<bool> GetBool(std::string_view path = {}) const;

    bool HasAttribute(std::string_view name) const;
    std::string Attribute(std::string_view name) const;

    std::string ToXMLString() const;  // this element and everything below it

  private:
    pugi::xml_node Find(std::string_view path) const;

    std::shared_ptr<const pugi::xml_document> doc_;
    pugi::xml_node node_;
};

// One response of a response set (an XxxRs element). A null response stands for one that is
// not there (GetAt past the end, as when QuickBooks answered fewer requests than were sent).
class Response {
  public:
    Response() = default;
    explicit Response(View element) : element_(std::move(element)) {}

    bool IsNull() const { return element_.IsNull(); }
    // False when statusCode is absent or not a number; StatusCode() is then kNoStatus.
    bool HasStatus() const;
    int StatusCode() const;
    std::string StatusSeverity() const;  // "Info", "Warn" or "Error" as QuickBooks spells them
    std::string StatusMessage() const;
    bool HasRequestID() const { return element_.HasAttribute("requestID"); }
    std::string RequestID() const { return element_.Attribute("requestID"); }
    std::string IteratorID() const { return element_.Attribute("iteratorID"); }

    // The response-type code (kRtInvoiceModRs, ...); kRtUnknown for an unknown element.
    int Type() const;
    std::string TypeName() const { return element_.Name(); }  // "InvoiceModRs"

    // What the response carries, as the SDK's Detail: the returned object itself for an answer
    // that holds one (Add, Mod, HostQuery, ...); the response element for a list (a query's
    // Rets are its Children) or for fields held directly (ListDelRs). Null when it carries
    // nothing (a failure, or a query that matched nothing).
    View Detail() const;
    const View& Element() const { return element_; }
    std::string ToXMLString() const { return element_.ToXMLString(); }

  private:
    View element_;
};

class ResponseList {
  public:
    std::size_t Count() const { return responses_.size(); }
    Response GetAt(std::size_t index) const;  // a null Response past the end

  private:
    friend struct ResponseSetBuilder;
    std::vector<Response> responses_;
};

class ResponseSet {
  public:
    const qb::ResponseList& ResponseList() const { return list_; }
    const View& Root() const { return root_; }  // the QBXML element
    // The document exactly as QuickBooks sent it.
    const std::string& ToXMLString() const { return text_; }

  private:
    friend struct ResponseSetBuilder;
    std::string text_;
    View root_;
    qb::ResponseList list_;
};

enum class ParseStatus {
    Ok,
    Empty,          // no text, or only blanks
    NotWellFormed,  // not XML, or an XML error before the end of the text
    Truncated,      // the text ends before the document does
    NotQbxml,       // the root element is not QBXML
    NoMsgsRs,       // QBXML holds no QBXMLMsgsRs
};

struct ResponseParseResult {
    ParseStatus status = ParseStatus::Ok;
    std::size_t offset = 0;    // byte offset of the problem
    int line = 0, column = 0;  // 1-based, from the offset; 0 when there is no position
    std::string description;
    ResponseSet set;  // ParseResponseSet: the responses (empty unless ok)
    View root;        // the document element when the text was well-formed
    bool ok() const { return status == ParseStatus::Ok; }
};

ResponseParseResult ParseResponseSet(std::string_view xmlText);
// A saved piece of a response, such as one InvoiceRet, read on its own: status Ok with `root`
// when well-formed; no QBXML envelope is required.
ResponseParseResult ParseXmlFragment(std::string_view xmlText);

}  // namespace pelmark::qb
