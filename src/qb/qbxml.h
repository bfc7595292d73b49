// The qbXML request model: message sets of requests built field by field against Intuit's qbXML
// 7.0 and 13.0 schemas and written out in the schema's element order, as the SDK's object layer
// does.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace pelmark::qb {

namespace detail {
struct SchemaElem;
}

// What went wrong when a request was built. Each kind is a mistake of the calling code (or a
// value it should have checked first), so it is thrown as QbxmlError rather than returned:
// QuickBooks would reject such a request as a whole, far from the line that caused it.
enum class QbxmlErrorKind {
    UnknownElement,    // the schema has no element of that name under that parent
    UnknownRequest,    // not a request of QBXMLMsgsRq
    NotInVersion,      // the element is newer than the message set's qbXML version
    NotSupported,      // private to Intuit, or not available in QuickBooks Desktop
    NotALeaf,          // a value set on (or Field() of) an aggregate
    NotAnAggregate,    // a child asked of a leaf, or Child() of a leaf
    NotRepeatable,     // Append of an element that occurs once, or a path through a repeated one
    BadValue,          // not of the leaf's type, not one of its values, out of range, bad character
    TooLong,           // more characters than the QuickBooks Desktop maximum
    UnknownAttribute,  // no such attribute, or a value that is not one of its values
    MissingRequired,   // ToXMLString: a required element, or one of a required choice, is not set
};

class QbxmlError : public std::logic_error {
  public:
    QbxmlError(QbxmlErrorKind kind, std::string path, const std::string& message)
        : std::logic_error(path + ": " + message), kind_(kind), path_(std::move(path)) {}
    QbxmlErrorKind kind() const { return kind_; }
    // Where: "InvoiceModRq/InvoiceMod/InvoiceLineMod[2]/Desc".
    const std::string& path() const { return path_; }

  private:
    QbxmlErrorKind kind_;
    std::string path_;
};

// Text handling shared by requests and their callers. Text in the model is UTF-8; bytes that do
// not form UTF-8 are read as Windows-1252, the ANSI code page of US Windows, because text taken
// from other windows or the clipboard through the "A" functions arrives that way.
std::size_t CharCount(std::string_view text);                        // characters, not bytes
std::string LeftChars(std::string_view text, std::size_t maxChars);  // the first maxChars chars

// One element of a request: an aggregate (children) or a leaf (a value): the SDK's request
// objects and their field objects in one type. Children are made on first use; only elements
// holding a value (or an attribute) somewhere below them are written. References to nodes stay
// valid as long as the message set holds the request.
class Node {
  public:
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;
    ~Node();

    std::string_view Name() const;
    std::string Path() const;
    bool IsLeaf() const;

    // The one aggregate (Child) or leaf (Field) at a '/'-separated path below this aggregate,
    // such as "ItemRef/FullName"; made when absent. Every step must occur at most once here;
    // repeated elements (lines, list filters) are added with Append.
    Node& Child(std::string_view path);
    Node& Field(std::string_view path);
    // A new occurrence, after the existing ones, of a repeatable child (aggregate or leaf).
    Node& Append(std::string_view name);
    // Occurrences of the named child that will be written.
    std::size_t Count(std::string_view name) const;
    // Whether the named child may be used here: it exists, is in the message set's version, and
    // is available in QuickBooks Desktop. Never throws.
    bool Supports(std::string_view name) const;
    // Names of the children that Supports, in schema order.
    std::vector<std::string> ChildNames() const;

    // Leaf values. Setting a value (or clearing with SetEmpty) chooses this element's branch of
    // every OR group it belongs to and clears the other branches. Text is checked against the
    // leaf's type and maximum length (longer text throws TooLong; cut it with LeftChars).
    void SetValue(std::string_view text);
    void SetValue(const char* text) { SetValue(std::string_view(text)); }
    void SetValue(const std::string& text) { SetValue(std::string_view(text)); }
    void SetValue(bool value);
    void SetValue(
        double value);  // amounts with 2 decimals; prices, quantities, percentages up to 5
    template <std::integral T>
    requires(!std::same_as<T, bool> && !std::same_as<T, char>) void SetValue(T value) {
        SetInteger(static_cast<long long>(value));
    }
    // An empty element, which is how qbXML clears a value. Text leaves only.
    void SetEmpty();
    // The QuickBooks Desktop maximum length in characters; 0 when the schema gives none.
    int GetMaxLength() const;
    // A leaf: holds a value (SetEmpty counts). An aggregate: something below it does.
    bool IsSet() const;
    // The value as set ("" when unset or empty). Every value is held as its qbXML text.
    std::string GetValue() const;
    std::string GetAsString() const { return GetValue(); }

    // Attributes the schema declares for this element (requestID, iterator, defMacro, ...).
    void SetAttribute(std::string_view name, std::string_view value);

    // Unsets this element and everything below it.
    void Clear();

  private:
    friend class MsgSetRequest;
    Node(const detail::SchemaElem* def, Node* parent, int slot, int major, int minor);

    int FindSlot(std::string_view name, bool forUse) const;
    Node& Step(std::string_view name, bool append);
    Node& Walk(std::string_view path, bool wantLeaf);
    void SetInteger(long long value);
    void Store(std::string text);
    void ChooseBranches();
    void CheckRequired() const;
    void Write(std::string& out, int depth, const std::string* requestId) const;
    [[noreturn]] void Fail(QbxmlErrorKind kind, const std::string& message) const;

    const detail::SchemaElem* def_;
    Node* parent_;
    int slot_;  // position among the parent's schema children; -1 for a request
    int major_, minor_;
    std::vector<std::unique_ptr<Node>> kids_;  // in the order they were made
    std::optional<std::string> value_;
    std::vector<std::pair<std::string, std::string>> attrs_;
};

// A read-only place in Intuit's reference of a response (QBXMLMsgsRs) at one qbXML version, for
// shaping and checking answers: which children an element has at that version and in what order.
class SchemaNode {
  public:
    SchemaNode() = default;
    // A response such as "InvoiceQueryRs"; null when the version has none of that name.
    static SchemaNode Response(std::string_view name, int major, int minor);
    explicit operator bool() const { return def_ != nullptr; }
    bool IsLeaf() const;
    // The child of that name that the version has; null when none. `order` receives its place
    // in schema order; all members of a repeating OR group (lines and line groups) share one.
    SchemaNode Child(std::string_view name, int* order = nullptr) const;

  private:
    SchemaNode(const detail::SchemaElem* def, int major, int minor)
        : def_(def), major_(major), minor_(minor) {}
    const detail::SchemaElem* def_ = nullptr;
    int major_ = 0, minor_ = 0;
};

// A leaf element: the SDK's field object.
using Field = Node;

// The message set's error mode. QuickBooks Desktop does not support rollbackOnError.
enum class OnError { stopOnError = 0, continueOnError = 1 };

struct MsgSetAttributes {
    OnError onError = OnError::stopOnError;
};

// A message set request: the requests of one round trip to QuickBooks.
class MsgSetRequest {
  public:
    // Country "US" only: the schema table holds QuickBooks Desktop (US) lengths. The version
    // decides which elements may be used; a version above 13.0 adds nothing this table knows.
    MsgSetRequest(std::string country, int major, int minor);
    MsgSetRequest(MsgSetRequest&&) noexcept;
    MsgSetRequest& operator=(MsgSetRequest&&) noexcept;
    ~MsgSetRequest();

    MsgSetAttributes attributes;

    void ClearRequests();
    // A new request such as "InvoiceModRq" at the end of the set.
    Node& Append(std::string_view requestName);
    std::size_t Count() const { return requests_.size(); }
    // Throws std::out_of_range past the end.
    Node& GetAt(std::size_t index);
    const Node& GetAt(std::size_t index) const;
    bool Supports(std::string_view requestName) const;

    const std::string& Country() const { return country_; }
    int MajorVersion() const { return major_; }
    int MinorVersion() const { return minor_; }
    std::string Version() const;  // "7.0"

    // The qbXML document: requests in the order appended, each request's elements in schema
    // order. Text outside ASCII is written as numeric character references, so the document is
    // plain ASCII and survives any code-page conversion on its way to QuickBooks. A request
    // without its own requestID gets its position ("0", "1", ...). Throws MissingRequired when a
    // required element is not set.
    std::string ToXMLString() const;

  private:
    std::string country_;
    int major_, minor_;
    std::vector<std::unique_ptr<Node>> requests_;
};

}  // namespace pelmark::qb
