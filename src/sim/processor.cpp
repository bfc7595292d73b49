// qbsim's request processor: checks a qbXML message set against the qbXML reference, then
// answers its requests one by one from the company, with QuickBooks' statuses and messages.
#include "sim/processor.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <vector>

#include "qb/qbxml.h"
#include "sim/answer.h"

namespace pelmark::sim {

namespace detail {

// ---- Statuses, as QuickBooks words them -------------------------------------------------

Status StatusOk() {
    return {0, "Status OK", {}};
}
Status NoMatch() {
    return {1, "A query request did not find a matching object in QuickBooks", {}};
}
// A ListID or FullName filter naming an object that is not there; the objects found are
// returned all the same.
Status PartlyFound(const std::string& missing) {
    return {500,
            "The query request has not been fully completed. There was a required element (\"" +
                missing + "\") that could not be found in QuickBooks.",
            {}};
}
Status ObjectNotFound(const std::string& id) {
    return {3120, "Object \"" + id + "\" specified in the request cannot be found.", {}};
}
Status ConversionError(const std::string& field, const std::string& value) {
    const bool quantity = field.find("Quantity") != std::string::npos;
    return {quantity ? 3045 : 3040,
            std::string("There was an error when converting the ") +
                (quantity ? "quantity" : "amount") + " \"" + value + "\" in the field \"" + field +
                "\".",
            {}};
}

Status InvalidObjectID(const std::string& id, const std::string& field) {
    return {
        3000, "The given object ID \"" + id + "\" in the field \"" + field + "\" is invalid.", {}};
}

// ---- Helpers shared by the answers ------------------------------------------------------

std::vector<pugi::xml_node> Elements(pugi::xml_node parent) {
    std::vector<pugi::xml_node> out;
    for (pugi::xml_node c : parent.children()) {
        if (c.type() == pugi::node_element) out.push_back(c);
    }
    return out;
}

std::vector<std::string> Texts(pugi::xml_node parent, const char* name) {
    std::vector<std::string> out;
    for (pugi::xml_node c : parent.children(name)) out.emplace_back(c.text().get());
    return out;
}

std::string Upper(std::string s) {
    for (char& c : s) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    return s;
}

void RemoveComments(pugi::xml_node node) {
    for (pugi::xml_node c = node.first_child(); c;) {
        pugi::xml_node next = c.next_sibling();
        if (c.type() == pugi::node_comment) {
            node.remove_child(c);
        } else if (c.type() == pugi::node_element) {
            RemoveComments(c);
        }
        c = next;
    }
}

// qbsim compares modified dates as the local times they are written in, offsets aside; a date
// alone stands for the start of the day (From) or its end (To).
std::string ComparableTime(std::string value, bool endOfDay) {
    if (value.size() == 10) value += endOfDay ? "T23:59:59" : "T00:00:00";
    return value.substr(0, 19);
}

bool CriterionMatches(pugi::xml_node filter, const char* textElement, const std::string& have) {
    const std::string text = Upper(have), want = Upper(ChildText(filter, textElement));
    std::string_view how = filter.child("MatchCriterion").text().get();
    if (how == "StartsWith") return text.rfind(want, 0) == 0;
    if (how == "Contains") return text.find(want) != std::string::npos;
    return text.size() >= want.size() &&
           text.compare(text.size() - want.size(), want.size(), want) == 0;
}

bool Wanted(const std::vector<std::string>& owners, std::string_view owner) {
    return std::any_of(owners.begin(), owners.end(),
                       [&](const std::string& o) { return SameOwner(o, owner); });
}

void Trim(pugi::xml_node ret, const std::vector<std::string>& owners, bool limited,
          const std::vector<std::string>& include) {
    RemoveComments(ret);
    for (pugi::xml_node c : Elements(ret)) {
        std::string_view name = c.name();
        bool keep = true;
        if (name == "DataExtRet") {
            std::string owner = ChildText(c, "OwnerID");
            keep = Wanted(owners, owner.empty() ? "0" : owner);
        }
        // IncludeRetElement names elements exactly as the reference spells them; a name that is
        // no element (such as the object layer's "DataExtRetList") selects nothing.
        if (keep && limited)
            keep = std::find(include.begin(), include.end(), name) != include.end();
        if (!keep) ret.remove_child(c);
    }
}

Status AnswerObjects(const std::vector<pugi::xml_node>& objects, std::string_view metaData,
                     const std::function<void(pugi::xml_node)>& shape, pugi::xml_node rs) {
    Status status = objects.empty() ? NoMatch() : StatusOk();
    if (metaData == "MetaDataOnly" || metaData == "MetaDataAndResponseData") {
        status.retCount = static_cast<int>(objects.size());
    }
    if (metaData == "MetaDataOnly") return status;
    for (pugi::xml_node o : objects) shape(rs.append_copy(o));
    return status;
}

pugi::xml_node FindDefinition(const Company& company, const std::string& owner,
                              const std::string& name) {
    for (pugi::xml_node def : company.Objects("DataExtDefRet")) {
        std::string defOwner = ChildText(def, "OwnerID");
        if (SameOwner(defOwner.empty() ? "0" : defOwner, owner) &&
            SameText(ChildText(def, "DataExtName"), name)) {
            return def;
        }
    }
    return {};
}

}  // namespace detail

namespace {

using namespace detail;

// ---- Statuses only the processor gives ---------------------------------------------------

const char* SeverityOf(int code) {
    if (code < 500) return "Info";
    if (code < 1000) return "Warn";
    return "Error";
}

Status NotImplemented() {
    return {1030, "This request is not supported by this implementation.", {}};
}
// QuickBooks' name-in-use message; qbsim assumes DataExtAdd of a field that already has a value
// answers with it.
Status NameInUse(const std::string& name) {
    return {3100, "The name \"" + name + "\" of the list element is already in use.", {}};
}
// A custom-field modify or delete where the object holds no value of that field. Only the
// sentence "Attribute with specified name cannot be found." is known of QuickBooks' message (the
// program looks for it); qbsim puts it after the object-not-found text, as QuickBooks appends
// its inner error to other messages.
Status NoSuchValue(const std::string& id) {
    Status s = ObjectNotFound(id);
    s.message += "  QuickBooks error message: Attribute with specified name cannot be found.";
    return s;
}
Status EmptyValue(const std::string& name) {
    return {3180,
            "There was an error when saving a data extension named \"" + name +
                "\".  QuickBooks error message: The value is empty; use DataExtDel to clear it.",
            {}};
}
Status NotProcessed() {
    return {3231, "The request has not been processed.", {}};
}
Status NoPermission() {
    return {3260, "Insufficient permission level to perform this action.", {}};
}

// ---- Small helpers ----------------------------------------------------------------------

struct Refusal {
    std::string message;
};

int LineOf(std::string_view text, std::ptrdiff_t offset) {
    if (offset < 0) return 0;
    std::size_t end = std::min(static_cast<std::size_t>(offset), text.size());
    return 1 + static_cast<int>(std::count(text.begin(), text.begin() + end, '\n'));
}

// The document as plain ASCII: every other character as a numeric character reference, as the
// responses QuickBooks writes show them ("&#174;").
std::string AsciiOnly(const std::string& utf8) {
    std::string out;
    out.reserve(utf8.size());
    for (std::size_t i = 0; i < utf8.size();) {
        auto c = static_cast<unsigned char>(utf8[i]);
        if (c < 0x80) {
            out += static_cast<char>(c);
            ++i;
            continue;
        }
        int extra = c >= 0xF0 ? 3 : c >= 0xE0 ? 2 : 1;
        unsigned cp = c & (c >= 0xF0 ? 0x07 : c >= 0xE0 ? 0x0F : 0x1F);
        for (int k = 1; k <= extra && i + k < utf8.size(); ++k) {
            cp = (cp << 6) | (static_cast<unsigned char>(utf8[i + k]) & 0x3F);
        }
        out += "&#" + std::to_string(cp) + ";";
        i += extra + 1;
    }
    return out;
}

// ---- The message set: XML, envelope, version, and the qbXML reference --------------------

struct MessageSet {
    pugi::xml_document doc;
    int major = 0, minor = 0;
    std::string version;
    bool stopOnError = true;
    std::vector<pugi::xml_node> requests;
};

// Builds each request into the qbXML request model, which knows the reference's elements,
// their order, OR groups, types and versions; whatever it refuses, QuickBooks' parser refuses.
class ReferenceCheck {
  public:
    explicit ReferenceCheck(std::string_view text) : text_(text) {}

    void Run(const MessageSet& set) {
        qb::MsgSetRequest model("US", set.major, set.minor);
        for (pugi::xml_node rq : set.requests) {
            current_ = rq;
            try {
                qb::Node& node = model.Append(rq.name());
                Build(node, rq);
            } catch (const qb::QbxmlError& e) {
                Refuse(current_, e.what());
            }
        }
        // OR groups: setting one branch clears the others, so a request that names two
        // alternatives leaves one of them unset.
        for (const auto& [node, source] : built_) {
            bool hasContent = node->IsLeaf() || !Elements(source).empty();
            if (hasContent && !node->IsSet()) {
                Refuse(source, "<" + std::string(source.name()) +
                                   "> cannot be used together with the element it is an "
                                   "alternative to");
            }
        }
        try {
            (void)model.ToXMLString();  // required elements
        } catch (const qb::QbxmlError& e) {
            throw Refusal{e.what()};
        }
    }

  private:
    // A transaction's lines and line groups are one repeated choice ("0 or more InvoiceLineAdd OR
    // InvoiceLineGroupAdd"), so they may stand in any order among themselves.
    static bool Interleaved(std::string a, std::string b) {
        for (std::string* s : {&a, &b}) {
            if (auto at = s->find("LineGroup"); at != std::string::npos) s->erase(at + 4, 5);
        }
        return a == b && a.find("Line") != std::string::npos;
    }

    [[noreturn]] void Refuse(pugi::xml_node at, const std::string& what) {
        int line = LineOf(text_, at.offset_debug());
        throw Refusal{(line > 0 ? "line " + std::to_string(line) + ": " : std::string()) + what};
    }

    void Build(qb::Node& node, pugi::xml_node source) {
        for (pugi::xml_attribute a : source.attributes()) node.SetAttribute(a.name(), a.value());
        const std::vector<std::string> order = node.ChildNames();
        std::size_t position = 0;
        std::string previous;
        std::set<std::string> once;
        for (pugi::xml_node child : source.children()) {
            if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata) {
                std::string_view text = child.value();
                if (text.find_first_not_of(" \t\r\n") != std::string_view::npos) {
                    Refuse(child.parent(),
                           "<" + std::string(source.name()) + "> holds text where elements belong");
                }
                continue;
            }
            if (child.type() != pugi::node_element) continue;
            current_ = child;
            const std::string name = child.name();
            auto at =
                std::find(order.begin() + static_cast<std::ptrdiff_t>(position), order.end(), name);
            if (at == order.end() && std::find(order.begin(), order.end(), name) != order.end() &&
                !Interleaved(name, previous)) {
                Refuse(child, "<" + name + "> must come before <" + previous + "> in <" +
                                  std::string(source.name()) + ">");
            }
            if (at != order.end()) position = static_cast<std::size_t>(at - order.begin());
            previous = name;
            qb::Node* n = nullptr;
            try {
                n = &node.Append(name);
            } catch (const qb::QbxmlError& e) {
                if (e.kind() != qb::QbxmlErrorKind::NotRepeatable) throw;
                if (!once.insert(name).second) {
                    Refuse(child, "<" + name + "> may occur only once in <" +
                                      std::string(source.name()) + ">");
                }
                try {
                    n = &node.Child(name);
                } catch (const qb::QbxmlError& e2) {
                    if (e2.kind() != qb::QbxmlErrorKind::NotAnAggregate) throw;
                    n = &node.Field(name);
                }
            }
            built_.emplace_back(n, child);
            if (n->IsLeaf()) {
                if (!Elements(child).empty()) {
                    Refuse(child, "<" + name + "> holds a value, not elements");
                }
                for (pugi::xml_attribute a : child.attributes())
                    n->SetAttribute(a.name(), a.value());
                std::string_view value = child.text().get();
                // QuickBooks' parser takes an empty object ID and the request answers it with
                // status 3000; the model refuses one, so a stand-in checks the structure.
                if (value.empty() && (name == "TxnID" || name == "TxnLineID" || name == "ListID"))
                    value = "0";
                n->SetValue(value);
            } else {
                Build(*n, child);
            }
        }
    }

    std::string_view text_;
    pugi::xml_node current_;
    std::vector<std::pair<qb::Node*, pugi::xml_node>> built_;
};

// "major.minor" or "major", each part one to four digits: every qbXML version there is.
bool ParseVersion(std::string_view text, int* major, int* minor) {
    auto part = [](std::string_view digits, int* out) {
        if (digits.empty() || digits.size() > 4) return false;
        *out = 0;
        for (char c : digits) {
            if (c < '0' || c > '9') return false;
            *out = *out * 10 + (c - '0');
        }
        return true;
    };
    const auto dot = text.find('.');
    *minor = 0;
    return part(text.substr(0, dot), major) && *major >= 1 &&
           (dot == std::string_view::npos || part(text.substr(dot + 1), minor));
}

// A host answers every qbXML version up to the highest it lists: QuickBooks keeps accepting the
// older specifications, and its list names only the versions that were published.
bool Supported(const Company& company, int major, int minor) {
    for (pugi::xml_node v : company.Host().children("SupportedQBXMLVersion")) {
        int hostMajor = 0, hostMinor = 0;
        if (!ParseVersion(v.text().get(), &hostMajor, &hostMinor)) continue;
        if (major < hostMajor || (major == hostMajor && minor <= hostMinor)) return true;
    }
    return false;
}

void ParseMessageSet(const Company& company, std::string_view text, MessageSet& set) {
    if (text.find_first_not_of(" \t\r\n") == std::string_view::npos) {
        throw Refusal{"the request is empty"};
    }
    pugi::xml_parse_result parsed = set.doc.load_buffer(
        text.data(), text.size(), pugi::parse_default | pugi::parse_pi | pugi::parse_declaration);
    if (!parsed) {
        throw Refusal{"line " + std::to_string(LineOf(text, parsed.offset)) +
                      ": not well-formed XML: " + parsed.description()};
    }
    // QuickBooks validates every message set against the qbXML version it declares.
    pugi::xml_node pi;
    for (pugi::xml_node n : set.doc.children()) {
        if (n.type() == pugi::node_pi && std::string_view(n.name()) == "qbxml") pi = n;
    }
    if (!pi) throw Refusal{"the request has no <?qbxml version=\"...\"?> instruction"};
    std::string_view value = pi.value();
    auto quote = value.find_first_of("\"'");
    auto close = quote == std::string_view::npos ? quote : value.find(value[quote], quote + 1);
    if (value.substr(0, value.find('=')).find("version") == std::string_view::npos ||
        close == std::string_view::npos) {
        throw Refusal{"the <?qbxml?> instruction names no version"};
    }
    set.version = std::string(value.substr(quote + 1, close - quote - 1));
    // A version above the host's highest, or one that is no number at all ("7.-1", a minor
    // part too long for an int), is refused like a document QuickBooks cannot parse.
    if (!ParseVersion(set.version, &set.major, &set.minor) ||
        !Supported(company, set.major, set.minor)) {
        throw Refusal{"qbXML version " + set.version + " is not one this QuickBooks supports"};
    }
    pugi::xml_node root = set.doc.document_element();
    if (std::string_view(root.name()) != "QBXML") {
        throw Refusal{"line " + std::to_string(LineOf(text, root.offset_debug())) +
                      ": the root element is <" + root.name() + ">, not <QBXML>"};
    }
    std::vector<pugi::xml_node> sets = Elements(root);
    if (sets.size() != 1 || std::string_view(sets[0].name()) != "QBXMLMsgsRq") {
        throw Refusal{"<QBXML> must hold exactly one <QBXMLMsgsRq>"};
    }
    pugi::xml_node msgs = sets[0];
    for (pugi::xml_attribute a : msgs.attributes()) {
        std::string_view name = a.name();
        if (name != "onError" && name != "oldMessageSetID" && name != "newMessageSetID" &&
            name != "responseData") {
            throw Refusal{"<QBXMLMsgsRq> has no attribute " + std::string(name)};
        }
    }
    // responseData="includeNone" and the message set IDs for error recovery are accepted and not
    // acted on.
    std::string_view onError = msgs.attribute("onError").value();
    if (onError == "stopOnError") {
        set.stopOnError = true;
    } else if (onError == "continueOnError") {
        set.stopOnError = false;
    } else {
        // rollbackOnError is QuickBooks Online's; QuickBooks Desktop has no rollback.
        throw Refusal{"<QBXMLMsgsRq> needs onError=\"stopOnError\" or \"continueOnError\", not \"" +
                      std::string(onError) + "\""};
    }
    set.requests = Elements(msgs);
    ReferenceCheck(text).Run(set);
}

// The first quantity, amount, price or percentage in a request beyond what QuickBooks holds.
std::optional<Status> NumberOutOfRange(pugi::xml_node node) {
    static const std::set<std::string_view> numeric = {
        "Quantity",    "Rate",       "RatePercent",       "Amount",
        "TotalAmount", "MarkupRate", "MarkupRatePercent", "SalesTaxPercentage",
        "ExchangeRate"};
    for (pugi::xml_node c : Elements(node)) {
        if (numeric.count(c.name()) && Elements(c).empty()) {
            const std::string text = c.text().get();
            if (std::fabs(std::strtod(text.c_str(), nullptr)) > kLargestNumber)
                return ConversionError(c.name(), text);
        } else if (std::optional<Status> bad = NumberOutOfRange(c)) {
            return bad;
        }
    }
    return std::nullopt;
}

// ---- Answers ----------------------------------------------------------------------------

// What a query asks for, read from the filter elements the list queries share.
struct ListQuery {
    std::vector<std::string> listIDs, fullNames;
    std::optional<long> maxReturned;
    std::string activeStatus = "ActiveOnly";
    std::string fromModified, toModified;
    pugi::xml_node nameFilter, nameRangeFilter, totalBalanceFilter;
    bool limited = false;  // IncludeRetElement given
    std::vector<std::string> include;
    std::vector<std::string> owners;
    std::string metaData;
};

// The iterator attributes are accepted but not acted on: every match comes in one response.
ListQuery ReadQuery(pugi::xml_node rq) {
    ListQuery q;
    q.listIDs = Texts(rq, "ListID");
    q.fullNames = Texts(rq, "FullName");
    if (pugi::xml_node m = rq.child("MaxReturned")) q.maxReturned = m.text().as_int();
    if (pugi::xml_node a = rq.child("ActiveStatus")) q.activeStatus = a.text().get();
    q.fromModified = ChildText(rq, "FromModifiedDate");
    q.toModified = ChildText(rq, "ToModifiedDate");
    q.nameFilter = rq.child("NameFilter");
    q.nameRangeFilter = rq.child("NameRangeFilter");
    q.totalBalanceFilter = rq.child("TotalBalanceFilter");
    q.include = Texts(rq, "IncludeRetElement");
    q.limited = !q.include.empty();
    q.owners = Texts(rq, "OwnerID");
    q.metaData = rq.attribute("metaData").value();
    return q;
}

bool NameMatches(const ListQuery& q, const std::string& fullName) {
    const std::string name = Upper(fullName);
    if (q.nameFilter && !CriterionMatches(q.nameFilter, "Name", fullName)) return false;
    if (q.nameRangeFilter) {
        std::string from = Upper(ChildText(q.nameRangeFilter, "FromName"));
        std::string to = Upper(ChildText(q.nameRangeFilter, "ToName"));
        if (!from.empty() && name < from) return false;
        if (!to.empty() && name > to) return false;
    }
    return true;
}

bool BalanceMatches(const ListQuery& q, pugi::xml_node object) {
    if (!q.totalBalanceFilter) return true;
    double balance = object.child("TotalBalance").text().as_double();
    double amount = q.totalBalanceFilter.child("Amount").text().as_double();
    std::string_view op = q.totalBalanceFilter.child("Operator").text().get();
    if (op == "LessThan") return balance < amount;
    if (op == "LessThanEqual") return balance <= amount;
    if (op == "Equal") return balance == amount;
    if (op == "GreaterThan") return balance > amount;
    return balance >= amount;
}

// The objects a list query selects, and the first ListID or FullName that found nothing. Objects
// come in the order of the company file (QuickBooks' list order when the file was taken from
// it). Name filters look at the full name ("Parent:Child"), without regard to case; a name range
// compares plain text, so ToName "F" excludes "Fenwick".
std::vector<pugi::xml_node> Select(const std::vector<pugi::xml_node>& candidates,
                                   const ListQuery& q, std::string* missing) {
    std::vector<pugi::xml_node> out;
    if (!q.listIDs.empty() || !q.fullNames.empty()) {
        // By ID or name QuickBooks returns the objects asked for, inactive ones included, in the
        // order asked.
        for (const std::string& id : q.listIDs) {
            auto it = std::find_if(candidates.begin(), candidates.end(),
                                   [&](pugi::xml_node o) { return ChildText(o, "ListID") == id; });
            if (it != candidates.end()) {
                out.push_back(*it);
            } else if (missing->empty()) {
                *missing = id;
            }
        }
        for (const std::string& name : q.fullNames) {
            auto it = std::find_if(candidates.begin(), candidates.end(),
                                   [&](pugi::xml_node o) { return SameText(FullNameOf(o), name); });
            if (it != candidates.end()) {
                out.push_back(*it);
            } else if (missing->empty()) {
                *missing = name;
            }
        }
        return out;
    }
    for (pugi::xml_node o : candidates) {
        bool active = std::string_view(o.child("IsActive").text().get()) != "false";
        if (q.activeStatus == "ActiveOnly" && !active) continue;
        if (q.activeStatus == "InactiveOnly" && active) continue;
        std::string modified = ComparableTime(ChildText(o, "TimeModified"), false);
        if (!q.fromModified.empty() && modified < ComparableTime(q.fromModified, false)) continue;
        if (!q.toModified.empty() && modified > ComparableTime(q.toModified, true)) continue;
        if (!NameMatches(q, FullNameOf(o)) || !BalanceMatches(q, o)) continue;
        if (q.maxReturned && static_cast<long>(out.size()) >= *q.maxReturned) break;
        out.push_back(o);
    }
    return out;
}

// A list query's answer: each object shaped as the query asked.
Status AnswerObjects(const std::vector<pugi::xml_node>& objects, const ListQuery& q,
                     pugi::xml_node rs) {
    return detail::AnswerObjects(
        objects, q.metaData, [&](pugi::xml_node ret) { Trim(ret, q.owners, q.limited, q.include); },
        rs);
}

Status AnswerListQuery(const std::vector<pugi::xml_node>& candidates, pugi::xml_node rq,
                       pugi::xml_node rs) {
    ListQuery q = ReadQuery(rq);
    for (const std::string& id : q.listIDs) {
        if (id.empty()) return InvalidObjectID(id, "list id");
    }
    std::string missing;
    std::vector<pugi::xml_node> objects = Select(candidates, q, &missing);
    Status status = AnswerObjects(objects, q, rs);
    if (!missing.empty()) {
        std::optional<int> count = status.retCount;
        status = PartlyFound(missing);
        status.retCount = count;
    }
    return status;
}

Status HostQuery(Context& ctx, pugi::xml_node rq, pugi::xml_node rs) {
    pugi::xml_node host = rs.append_copy(ctx.company.Host());
    std::pair version(ctx.major, ctx.minor);
    // Elements newer than the message set's version are not in its HostRet.
    if (version < std::pair(3, 0)) {
        for (const char* name : {"Country", "IsAutomaticLogin", "QBFileMode"}) {
            host.remove_child(name);
        }
    }
    if (version < std::pair(6, 0) || !rq.child("IncludeListMetaData")) {
        host.remove_child("ListMetaData");
    }
    ListQuery q = ReadQuery(rq);
    Trim(host, {}, q.limited, q.include);
    return StatusOk();
}

Status CompanyQuery(Context& ctx, pugi::xml_node rq, pugi::xml_node rs) {
    ListQuery q = ReadQuery(rq);
    Trim(rs.append_copy(ctx.company.CompanyInfo()), q.owners, q.limited, q.include);
    return StatusOk();
}

// The company's one PreferencesRet; a company file without it has none to give.
Status PreferencesQuery(Context& ctx, pugi::xml_node rq, pugi::xml_node rs) {
    ListQuery q = ReadQuery(rq);
    std::vector<pugi::xml_node> found = ctx.company.Objects("PreferencesRet");
    if (found.empty()) return NoMatch();
    Trim(rs.append_copy(found.front()), {}, q.limited, q.include);
    return StatusOk();
}

Status DataExtDefQuery(Context& ctx, pugi::xml_node rq, pugi::xml_node rs) {
    ListQuery q = ReadQuery(rq);
    std::vector<std::string> assigned = Texts(rq, "AssignToObject");
    std::vector<pugi::xml_node> objects;
    for (pugi::xml_node def : ctx.company.Objects("DataExtDefRet")) {
        std::string owner = ChildText(def, "OwnerID");
        if (owner.empty()) owner = "0";
        bool take;
        if (!q.owners.empty()) {
            take = Wanted(q.owners, owner);
        } else if (!assigned.empty()) {
            take = std::any_of(assigned.begin(), assigned.end(), [&](const std::string& a) {
                for (pugi::xml_node t : def.children("AssignToObject")) {
                    if (a == t.text().get()) return true;
                }
                return false;
            });
        } else {
            // qbsim assumes that, asked for no owner, QuickBooks shows its own custom fields
            // and keeps other applications' private definitions to themselves.
            take = SameOwner(owner, "0");
        }
        if (take) objects.push_back(def);
    }
    q.owners.clear();
    return AnswerObjects(objects, q, rs);
}

Status CustomerQuery(Context& ctx, pugi::xml_node rq, pugi::xml_node rs) {
    return AnswerListQuery(ctx.company.Objects("CustomerRet"), rq, rs);
}

Status ItemQuery(Context& ctx, pugi::xml_node rq, pugi::xml_node rs) {
    // A user without the right to see costs and prices cannot read whole items; a query that
    // limits the returned elements is let through (qbsim does not check which elements).
    if (ctx.company.RestrictedUser() && !rq.child("IncludeRetElement")) return NoPermission();
    return AnswerListQuery(ctx.company.Items(), rq, rs);
}

Status SalesTaxCodeQuery(Context& ctx, pugi::xml_node rq, pugi::xml_node rs) {
    if (ctx.company.RestrictedUser() && !rq.child("IncludeRetElement")) return NoPermission();
    return AnswerListQuery(ctx.company.Objects("SalesTaxCodeRet"), rq, rs);
}

Status TemplateQuery(Context& ctx, pugi::xml_node rq, pugi::xml_node rs) {
    ListQuery q = ReadQuery(rq);
    return AnswerObjects(ctx.company.Objects("TemplateRet"), q, rs);
}

// ---- Custom fields (DataExtAdd, DataExtMod, DataExtDel) ---------------------------------

// The object whose custom field a request names: `holder` carries the DataExtRet elements,
// `top` is the list object or transaction whose TimeModified and EditSequence change.
struct Target {
    pugi::xml_node holder, top;
    std::string id;          // for messages: the ListID, TxnID or TxnLineID named
    std::string objectType;  // for the definition's AssignToObject: "Item", "Invoice", ...
    bool isLine = false;
};

std::optional<Status> FindTarget(Context& ctx, pugi::xml_node body, Target* t) {
    Company& company = ctx.company;
    if (pugi::xml_node type = body.child("ListDataExtType")) {
        t->objectType = type.text().get();
        pugi::xml_node ref = body.child("ListObjRef");
        // Every item kind is one list; the other list types are one Ret kind each.
        const std::string single = t->objectType + "Ret";
        std::vector<std::string_view> kinds = {single};
        if (t->objectType == "Item") kinds.assign(std::begin(kItemRets), std::end(kItemRets));
        // With both, QuickBooks goes by ListID and ignores FullName.
        if (pugi::xml_node id = ref.child("ListID")) {
            t->id = id.text().get();
            t->top = company.FindByListID(kinds, t->id);
        } else {
            t->id = ChildText(ref, "FullName");
            t->top = company.FindByFullName(kinds, t->id);
        }
        if (!t->top) return ObjectNotFound(t->id);
        t->holder = t->top;
    } else if (pugi::xml_node kind = body.child("TxnDataExtType")) {
        t->objectType = kind.text().get();
        t->id = ChildText(body, "TxnID");
        t->top = company.FindTxn(t->objectType, t->id);
        if (!t->top) return ObjectNotFound(t->id);
        t->holder = t->top;
        if (pugi::xml_node line = body.child("TxnLineID")) {
            t->id = line.text().get();
            t->holder = Company::FindTxnLine(t->top, t->id);
            t->isLine = true;
            if (!t->holder) return ObjectNotFound(t->id);
        }
    } else {
        t->objectType = ChildText(body, "OtherDataExtType");  // "Company"
        t->top = t->holder = company.CompanyInfo();
        t->id = t->objectType;
    }
    return std::nullopt;
}

// Whether a definition lets the object carry the field. qbsim assumes QuickBooks' rules for
// where custom fields show: on the objects the definition is assigned to, and on transaction
// lines also when it is assigned to items (item fields are the line columns of sales forms).
bool Applies(pugi::xml_node def, const Target& t) {
    for (pugi::xml_node a : def.children("AssignToObject")) {
        std::string_view to = a.text().get();
        if (to == t.objectType) return true;
        if (t.isLine && to == "Item") return true;
    }
    return false;
}

}  // namespace

void detail::OrderDataExts(const Company& company, pugi::xml_node holder) {
    const std::vector<pugi::xml_node> defs = company.Objects("DataExtDefRet");
    auto rank = [&](pugi::xml_node v) {
        std::string owner = ChildText(v, "OwnerID");
        for (std::size_t i = 0; i < defs.size(); ++i) {
            std::string defOwner = ChildText(defs[i], "OwnerID");
            if (SameOwner(owner.empty() ? "0" : owner, defOwner.empty() ? "0" : defOwner) &&
                SameText(ChildText(defs[i], "DataExtName"), ChildText(v, "DataExtName")))
                return i;
        }
        return defs.size();
    };
    std::vector<pugi::xml_node> values;
    for (pugi::xml_node v : holder.children("DataExtRet")) values.push_back(v);
    std::stable_sort(values.begin(), values.end(),
                     [&](pugi::xml_node a, pugi::xml_node b) { return rank(a) < rank(b); });
    for (pugi::xml_node v : values) holder.append_move(v);
}

namespace {

pugi::xml_node FindValue(pugi::xml_node holder, const std::string& owner, const std::string& name) {
    for (pugi::xml_node v : holder.children("DataExtRet")) {
        std::string o = ChildText(v, "OwnerID");
        if (SameOwner(o.empty() ? "0" : o, owner) && SameText(ChildText(v, "DataExtName"), name)) {
            return v;
        }
    }
    return {};
}

// A custom-field write changes its object's TimeModified and EditSequence; CompanyRet has
// neither, so a company field only marks the company changed.
void Changed(Company& company, pugi::xml_node top) {
    if (top == company.CompanyInfo()) {
        company.MarkModified();
    } else {
        company.Touch(top);
    }
}

enum class ExtOp { Add, Mod, Del };

Status DataExt(Context& ctx, pugi::xml_node rq, pugi::xml_node rs, ExtOp op) {
    const char* bodyName = op == ExtOp::Add   ? "DataExtAdd"
                           : op == ExtOp::Mod ? "DataExtMod"
                                              : "DataExtDel";
    pugi::xml_node body = rq.child(bodyName);
    // QuickBooks keeps OwnerIDs in capitals.
    const std::string owner = Upper(ChildText(body, "OwnerID"));
    const std::string name = ChildText(body, "DataExtName");
    const std::string value = ChildText(body, "DataExtValue");
    Target t;
    if (std::optional<Status> failed = FindTarget(ctx, body, &t)) return *failed;
    pugi::xml_node def = FindDefinition(ctx.company, owner, name);
    // qbsim answers a field that is not defined for the object as an object QuickBooks cannot
    // find, naming the field, without the "Attribute" sentence of a missing value.
    if (!def || !Applies(def, t)) return ObjectNotFound(name);
    pugi::xml_node existing = FindValue(t.holder, owner, name);
    const std::string definedName = ChildText(def, "DataExtName");

    switch (op) {
        case ExtOp::Add: {
            // A value the object already holds (an inherited item value on a new line) is
            // refused with 3100, the name-in-use status QuickBooks gives an Add of anything that
            // exists (shared/qbxml/real/SOURCES.md's status table). No public answer shows the
            // exact status of this case, so the client falls back to DataExtMod on any status.
            if (existing) return NameInUse(name);
            // qbsim assumes QuickBooks treats an empty custom field as no value at all, so an
            // empty value cannot be written; DataExtDel clears a field.
            if (value.empty()) return EmptyValue(definedName);
            // DataExtRet is the last element of every object, line and line group.
            existing = t.holder.append_child("DataExtRet");
            existing.append_child("OwnerID").text().set(owner.c_str());
            existing.append_child("DataExtName").text().set(definedName.c_str());
            existing.append_child("DataExtType").text().set(ChildText(def, "DataExtType").c_str());
            existing.append_child("DataExtValue").text().set(value.c_str());
            OrderDataExts(ctx.company, t.holder);
            break;
        }
        case ExtOp::Mod:
            if (!existing) return NoSuchValue(t.id);
            if (value.empty()) return EmptyValue(definedName);
            existing.child("DataExtValue").text().set(value.c_str());
            break;
        case ExtOp::Del: {
            if (!existing) return NoSuchValue(t.id);
            pugi::xml_node ret = rs.append_child("DataExtDelRet");
            ret.append_child("OwnerID").text().set(owner.c_str());
            ret.append_child("DataExtName").text().set(definedName.c_str());
            for (pugi::xml_node e : Elements(body)) {
                std::string_view n = e.name();
                if (n == "ListDataExtType" || n == "TxnDataExtType" || n == "TxnID" ||
                    n == "TxnLineID" || n == "OtherDataExtType") {
                    ret.append_copy(e);
                } else if (n == "ListObjRef") {
                    pugi::xml_node ref = ret.append_child("ListObjRef");
                    ref.append_child("ListID").text().set(ChildText(t.top, "ListID").c_str());
                    ref.append_child("FullName").text().set(FullNameOf(t.top).c_str());
                }
            }
            ret.append_child("TimeDeleted").text().set(ctx.company.Now().c_str());
            t.holder.remove_child(existing);
            Changed(ctx.company, t.top);
            return StatusOk();
        }
    }
    Changed(ctx.company, t.top);
    pugi::xml_node ret = rs.append_copy(existing);
    // A stored value may lack OwnerID or DataExtType when pasted by hand; the answer has them.
    if (!ret.child("OwnerID")) ret.prepend_child("OwnerID").text().set(owner.c_str());
    if (!ret.child("DataExtType")) {
        ret.insert_child_after("DataExtType", ret.child("DataExtName"))
            .text()
            .set(ChildText(def, "DataExtType").c_str());
    }
    return StatusOk();
}

const std::map<std::string, Handler>& Handlers() {
    static const std::map<std::string, Handler> handlers = [] {
        std::map<std::string, Handler> all = {
            {"HostQueryRq", HostQuery},
            {"CompanyQueryRq", CompanyQuery},
            {"DataExtDefQueryRq", DataExtDefQuery},
            {"PreferencesQueryRq", PreferencesQuery},
            {"CustomerQueryRq", CustomerQuery},
            {"ItemQueryRq", ItemQuery},
            {"SalesTaxCodeQueryRq", SalesTaxCodeQuery},
            {"TemplateQueryRq", TemplateQuery},
            {"DataExtAddRq", [](Context& c, pugi::xml_node q,
                                pugi::xml_node s) { return DataExt(c, q, s, ExtOp::Add); }},
            {"DataExtModRq", [](Context& c, pugi::xml_node q,
                                pugi::xml_node s) { return DataExt(c, q, s, ExtOp::Mod); }},
            {"DataExtDelRq", [](Context& c, pugi::xml_node q,
                                pugi::xml_node s) { return DataExt(c, q, s, ExtOp::Del); }},
        };
        for (auto& [name, handler] : TransactionHandlers()) all.emplace(name, std::move(handler));
        return all;
    }();
    return handlers;
}

// An answer as QuickBooks writes it for the message set's version: only the elements the
// version's reference has for that response, in the reference's order. The company file may hold
// newer elements (a 13.0 company answered at 7.0) or elements no reference knows; they stay in
// the file and are never sent. Each QuickBooks release keeps answering the older qbXML versions,
// and the features of a newer one are reached only by declaring that version (CData's QuickBooks
// driver notes on QBXMLVersion,
// cdn.cdata.com/help/RQK/jp/powerbi/RSBQuickBooks_p_QBXMLVersion.htm).
void Conform(pugi::xml_node node, const qb::SchemaNode& schema) {
    std::vector<std::pair<int, pugi::xml_node>> kept;
    for (pugi::xml_node c : Elements(node)) {
        int order = 0;
        const qb::SchemaNode child = schema.Child(c.name(), &order);
        if (!child) {
            node.remove_child(c);
            continue;
        }
        if (!child.IsLeaf()) Conform(c, child);
        kept.emplace_back(order, c);
    }
    std::stable_sort(kept.begin(), kept.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    for (auto& [order, c] : kept) node.append_move(c);
}

}  // namespace

ProcessResult ProcessRequest(Company& company, std::string_view requestXml, bool failSave) {
    ProcessResult result;
    if (!company.IsLoaded()) {
        result.ok = false;
        result.hresult = kHrParseError;
        result.message = "no company is open";
        return result;
    }
    MessageSet set;
    try {
        ParseMessageSet(company, requestXml, set);
    } catch (const Refusal& r) {
        result.ok = false;
        result.hresult = kHrParseError;
        result.message = std::string(kParseErrorText) + " " + r.message;
        return result;
    } catch (const std::exception& e) {
        // Whatever the reference model cannot take is a document QuickBooks cannot parse.
        result.ok = false;
        result.hresult = kHrParseError;
        result.message = std::string(kParseErrorText) + " " + e.what();
        return result;
    }

    const bool wasModified = company.Modified();
    company.ClearModified();
    pugi::xml_document out;
    pugi::xml_node msgs = out.append_child("QBXML").append_child("QBXMLMsgsRs");
    Context ctx{company, set.major, set.minor};
    bool failed = false;
    for (pugi::xml_node rq : set.requests) {
        std::string name = rq.name();
        pugi::xml_node rs = msgs.append_child((name.substr(0, name.size() - 2) + "Rs").c_str());
        Status status;
        if (failSave) {
            status = {kStatusSaveError,
                      "There was an error when saving a " + name.substr(0, name.size() - 2) +
                          ".  QuickBooks error message: The transaction could not be saved.",
                      {}};
        } else if (failed && set.stopOnError) {
            status = NotProcessed();
        } else {
            auto handler = Handlers().find(name);
            // Requests QuickBooks knows but qbsim does not answer (yet).
            if (std::optional<Status> bad = NumberOutOfRange(rq)) {
                status = *bad;
            } else {
                status =
                    handler == Handlers().end() ? NotImplemented() : handler->second(ctx, rq, rs);
            }
        }
        if (qb::SchemaNode schema = qb::SchemaNode::Response(rs.name(), set.major, set.minor))
            Conform(rs, schema);
        if (status.code >= 1000) failed = true;
        if (pugi::xml_attribute id = rq.attribute("requestID")) {
            rs.append_attribute("requestID").set_value(id.value());
        }
        rs.append_attribute("statusCode").set_value(status.code);
        rs.append_attribute("statusSeverity").set_value(SeverityOf(status.code));
        rs.append_attribute("statusMessage").set_value(status.message.c_str());
        if (status.retCount) rs.append_attribute("retCount").set_value(*status.retCount);
    }
    result.changed = company.Modified();
    company.KeepModified(wasModified);

    std::ostringstream text;
    out.save(text, "", pugi::format_indent | pugi::format_no_declaration, pugi::encoding_utf8);
    result.response = "<?xml version=\"1.0\" ?>\n" + AsciiOnly(text.str());
    return result;
}

}  // namespace pelmark::sim
