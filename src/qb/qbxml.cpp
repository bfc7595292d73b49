// The qbXML request model: schema lookups, value checks and formatting, OR-group choice, and
// writing message sets in schema order.
#include "qb/qbxml.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <system_error>

namespace pelmark::qb {

namespace detail {

enum class LeafType : std::uint8_t {
    Aggregate,
    Str,
    Id,
    Amt,
    Price,
    Quan,
    Percent,
    Float,
    Int,
    Date,
    DateTime,
    Bool,
    Enum,
    Guid,
    TimeInterval,
};

enum : std::uint8_t {
    kOpt = 1,
    kRep = 2,
    kPrivate = 4,
    kNotQbd = 8,
    kHasMin = 16,
    kHasMax = 32,
};

struct SchemaAttr {
    const char* name;
    const char* type;
    bool required;
    std::uint16_t firstEnum, enumCount;
};

// An OR group of an element; parent is the enclosing group (local index) when nested.
struct SchemaGroup {
    std::int16_t parent;
    std::uint8_t parentBranch;
    std::uint8_t opt, rep, nullable;
    std::uint8_t branches;
};

struct SchemaChild {
    std::uint16_t elem;
    std::int16_t group;  // local index into the parent's groups, -1 when in no group
    std::uint8_t branch;
};

struct SchemaElem {
    const char* name;
    LeafType type;
    std::uint8_t flags;
    std::uint8_t vMajor, vMinor;
    std::uint16_t maxLen;
    double minValue, maxValue;
    std::uint16_t firstEnum, enumCount;
    std::uint16_t firstAttr, attrCount;
    std::uint16_t firstChild, childCount;
    std::uint16_t firstGroup, groupCount;
};

namespace {
#define QBXML_SCHEMA_REQUESTS
#include "qb/qbxmlSchema.inc"
#undef QBXML_SCHEMA_REQUESTS
}  // namespace

}  // namespace detail

using detail::LeafType;
using detail::SchemaElem;

namespace {

const SchemaElem& ElemAt(int index) {
    return detail::kElems[index];
}

// The reference a message set is built against. Intuit's 13.0 reference is not a superset of
// 7.0 (it drops payroll elements and adds UK/CA ones without a version mark), so versions up to
// 7.x use the 7.0 reference and newer ones the 13.0 reference, gated by each element's version.
const SchemaElem& MsgsRq(int major, bool subscriptions = false) {
    if (major <= 7)
        return ElemAt(subscriptions ? detail::kSubscriptionMsgsRqElem70 : detail::kMsgsRqElem70);
    return ElemAt(subscriptions ? detail::kSubscriptionMsgsRqElem130 : detail::kMsgsRqElem130);
}
const detail::SchemaChild& ChildSlot(const SchemaElem& e, int slot) {
    return detail::kChildren[e.firstChild + slot];
}
const detail::SchemaGroup& GroupAt(const SchemaElem& e, int group) {
    return detail::kGroups[e.firstGroup + group];
}
const SchemaElem& SlotElem(const SchemaElem& e, int slot) {
    return ElemAt(ChildSlot(e, slot).elem);
}

const char* TypeName(LeafType t) {
    static constexpr const char* kNames[] = {
        "aggregate",    "STRTYPE",     "IDTYPE",    "AMTTYPE",  "PRICETYPE",
        "QUANTYPE",     "PERCENTTYPE", "FLOATTYPE", "INTTYPE",  "DATETYPE",
        "DATETIMETYPE", "BOOLTYPE",    "ENUMTYPE",  "GUIDTYPE", "TIMEINTERVALTYPE"};
    return kNames[static_cast<int>(t)];
}

// The (group, branch) pairs a child slot sits in, innermost first.
std::vector<std::pair<int, int>> GroupChain(const SchemaElem& e, int slot) {
    std::vector<std::pair<int, int>> chain;
    int g = ChildSlot(e, slot).group;
    int b = ChildSlot(e, slot).branch;
    while (g >= 0) {
        chain.emplace_back(g, b);
        b = GroupAt(e, g).parentBranch;
        g = GroupAt(e, g).parent;
    }
    return chain;
}

bool InGroup(const SchemaElem& e, int slot, int group, int* branch = nullptr) {
    for (auto [g, b] : GroupChain(e, slot)) {
        if (g == group) {
            if (branch) *branch = b;
            return true;
        }
    }
    return false;
}

// Two children exclude each other when they sit in different branches of an OR group that
// does not repeat. Members of a repeating group (lines and line groups) may be mixed freely.
bool Excludes(const SchemaElem& e, int a, int b) {
    auto chainA = GroupChain(e, a);
    auto chainB = GroupChain(e, b);
    for (auto [ga, ba] : chainA) {
        for (auto [gb, bb] : chainB) {
            if (ga == gb) return !GroupAt(e, ga).rep && ba != bb;
        }
    }
    return false;
}

int RepeatingGroup(const SchemaElem& e, int slot) {
    for (auto [g, b] : GroupChain(e, slot)) {
        if (GroupAt(e, g).rep) return g;
    }
    return -1;
}

bool Repeatable(const SchemaElem& e, int slot) {
    return (SlotElem(e, slot).flags & detail::kRep) || RepeatingGroup(e, slot) >= 0;
}

// Where a child is written: its schema position, except that all members of a repeating group
// share the group's position, so lines and line groups keep the order they were added in.
int OrderKey(const SchemaElem& e, int slot) {
    int g = RepeatingGroup(e, slot);
    if (g < 0) return slot;
    for (int i = 0; i < e.childCount; ++i) {
        if (InGroup(e, i, g)) return i;
    }
    return slot;
}

// "A OR (B AND C)" for messages.
std::string Describe(const SchemaElem& e, int group) {
    std::string out;
    for (int b = 0; b < GroupAt(e, group).branches; ++b) {
        std::vector<std::string> names;
        for (int s = 0; s < e.childCount; ++s) {
            int branch = -1;
            if (InGroup(e, s, group, &branch) && branch == b)
                names.emplace_back(SlotElem(e, s).name);
        }
        std::string part;
        for (const auto& n : names) part += (part.empty() ? "" : " AND ") + n;
        if (names.size() > 1) part = "(" + part + ")";
        out += (out.empty() ? "" : " OR ") + part;
    }
    return out;
}

// Windows-1252 characters 0x80-0x9F; the undefined ones stand for themselves.
constexpr char32_t kCp1252[32] = {0x20AC, 0x81,   0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                  0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x8D,   0x017D, 0x8F,
                                  0x90,   0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                  0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x9D,   0x017E, 0x0178};

// Decodes one character at text[i]: UTF-8 when the bytes form it, otherwise one Windows-1252
// byte. Returns the code point and advances i.
char32_t NextChar(std::string_view text, std::size_t& i) {
    auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
    unsigned char c = byte(i);
    if (c < 0x80) {
        ++i;
        return c;
    }
    int len = c >= 0xF0 && c <= 0xF4 ? 4 : c >= 0xE0 ? 3 : c >= 0xC2 && c <= 0xDF ? 2 : 0;
    if (len && i + len <= text.size()) {
        char32_t cp = c & (0x3F >> (len - 1));
        bool ok = true;
        for (int k = 1; k < len && ok; ++k) {
            unsigned char cc = byte(i + k);
            ok = (cc & 0xC0) == 0x80;
            cp = (cp << 6) | (cc & 0x3F);
        }
        bool shortest = len == 2 || (len == 3 && cp >= 0x800) || (len == 4 && cp >= 0x10000);
        if (ok && shortest && cp <= 0x10FFFF && (cp < 0xD800 || cp > 0xDFFF)) {
            i += len;
            return cp;
        }
    }
    ++i;
    return c < 0xA0 ? kCp1252[c - 0x80] : c;
}

bool IsXmlChar(char32_t cp) {
    if (cp < 0x20) return cp == '\t' || cp == '\n' || cp == '\r';
    return cp != 0xFFFE && cp != 0xFFFF;
}

void AppendEscaped(std::string& out, std::string_view text, bool inAttribute) {
    for (std::size_t i = 0; i < text.size();) {
        char32_t cp = NextChar(text, i);
        switch (cp) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\'':
                out += "&apos;";
                break;
            case '\r':
                out += "&#13;";
                break;  // a bare CR would be read back as LF
            case '\n':
            case '\t':
                if (inAttribute) {
                    out += cp == '\n' ? "&#10;" : "&#9;";
                } else {
                    out += static_cast<char>(cp);
                }
                break;
            default:
                if (cp < 0x80) {
                    out += static_cast<char>(cp);
                } else {
                    out += "&#" + std::to_string(static_cast<std::uint32_t>(cp)) + ";";
                }
        }
    }
}

bool AllDigits(std::string_view s) {
    return !s.empty() &&
           std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool IsInteger(std::string_view s) {
    if (!s.empty() && (s[0] == '+' || s[0] == '-')) s.remove_prefix(1);
    return AllDigits(s);
}

// [+-]?(digits[.digits?] | .digits), with an exponent when allowed.
bool IsNumber(std::string_view s, bool exponent) {
    if (exponent) {
        auto e = s.find_first_of("eE");
        if (e != std::string_view::npos) {
            if (!IsInteger(s.substr(e + 1))) return false;
            s = s.substr(0, e);
        }
    }
    if (!s.empty() && (s[0] == '+' || s[0] == '-')) s.remove_prefix(1);
    auto dot = s.find('.');
    if (dot == std::string_view::npos) return AllDigits(s);
    std::string_view whole = s.substr(0, dot), frac = s.substr(dot + 1);
    if (whole.empty()) return AllDigits(frac);
    return AllDigits(whole) && (frac.empty() || AllDigits(frac));
}

bool IsDate(std::string_view s) {
    if (s.size() != 10 || s[4] != '-' || s[7] != '-') return false;
    if (!AllDigits(s.substr(0, 4)) || !AllDigits(s.substr(5, 2)) || !AllDigits(s.substr(8, 2))) {
        return false;
    }
    int y = std::stoi(std::string(s.substr(0, 4)));
    int m = std::stoi(std::string(s.substr(5, 2)));
    int d = std::stoi(std::string(s.substr(8, 2)));
    static constexpr int kDays[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (m < 1 || m > 12 || d < 1 || d > kDays[m - 1]) return false;
    bool leap = (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
    return !(m == 2 && d == 29 && !leap);
}

bool IsTwoDigits(std::string_view s, int max) {
    return s.size() == 2 && AllDigits(s) && std::stoi(std::string(s)) <= max;
}

// yyyy-mm-dd[Thh:mm:ss[Z|+hh:mm|-hh:mm]]
bool IsDateTime(std::string_view s) {
    if (!IsDate(s.substr(0, 10))) return false;
    if (s.size() == 10) return true;
    if (s.size() < 19 || s[10] != 'T' || s[13] != ':' || s[16] != ':') return false;
    if (!IsTwoDigits(s.substr(11, 2), 23) || !IsTwoDigits(s.substr(14, 2), 59) ||
        !IsTwoDigits(s.substr(17, 2), 59)) {
        return false;
    }
    std::string_view zone = s.substr(19);
    if (zone.empty() || zone == "Z") return true;
    return zone.size() == 6 && (zone[0] == '+' || zone[0] == '-') && zone[3] == ':' &&
           IsTwoDigits(zone.substr(1, 2), 23) && IsTwoDigits(zone.substr(4, 2), 59);
}

bool IsHex(std::string_view s) {
    return std::all_of(s.begin(), s.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
    });
}

// "0" (the owner of the user's own custom fields) or a GUID, braces optional.
bool IsGuid(std::string_view s) {
    if (s == "0") return true;
    if (s.size() == 38 && s.front() == '{' && s.back() == '}') s = s.substr(1, 36);
    if (s.size() != 36) return false;
    for (int dash : {8, 13, 18, 23}) {
        if (s[dash] != '-') return false;
    }
    return IsHex(s.substr(0, 8)) && IsHex(s.substr(9, 4)) && IsHex(s.substr(14, 4)) &&
           IsHex(s.substr(19, 4)) && IsHex(s.substr(24, 12));
}

// PnDTnHnMnS, any part optional.
bool IsTimeInterval(std::string_view s) {
    if (!s.empty() && s[0] == '-') s.remove_prefix(1);
    if (s.empty() || s[0] != 'P') return false;
    s.remove_prefix(1);
    auto number = [&](char unit, bool fraction) {
        std::size_t n = 0;
        while (n < s.size() && ((s[n] >= '0' && s[n] <= '9') || (fraction && s[n] == '.'))) ++n;
        if (n == 0 || n >= s.size() || s[n] != unit) return false;
        s.remove_prefix(n + 1);
        return true;
    };
    auto optional = [&](char unit, bool fraction) {
        std::string_view saved = s;
        if (!number(unit, fraction)) s = saved;
    };
    optional('D', false);
    if (s.empty()) return true;
    if (s[0] != 'T') return false;
    s.remove_prefix(1);
    optional('H', false);
    optional('M', false);
    optional('S', true);
    return s.empty();
}

double ToDouble(std::string_view s) {
    if (!s.empty() && s[0] == '+') s.remove_prefix(1);
    double v = 0;
    std::from_chars(s.data(), s.data() + s.size(), v);
    return v;
}

std::string Fixed(double v, int decimals) {
    char buf[400];
    auto r = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::fixed, decimals);
    std::string s(buf, r.ptr);
    if (s[0] == '-' && s.find_first_not_of("-0.") == std::string::npos) s.erase(0, 1);
    return s;
}

std::string TrimZeros(std::string s) {
    if (s.find('.') == std::string::npos) return s;
    s.erase(s.find_last_not_of('0') + 1);
    if (s.back() == '.') s.pop_back();
    return s;
}

std::string Shortest(double v) {
    char buf[64];
    auto r = std::to_chars(buf, buf + sizeof buf, v);
    return std::string(buf, r.ptr);
}

bool IsNumeric(LeafType t) {
    return t == LeafType::Amt || t == LeafType::Price || t == LeafType::Quan ||
           t == LeafType::Percent || t == LeafType::Float || t == LeafType::Int;
}

std::string Quote(std::string_view s) {
    return "\"" + std::string(s) + "\"";
}

}  // namespace

std::size_t CharCount(std::string_view text) {
    std::size_t n = 0;
    for (std::size_t i = 0; i < text.size(); ++n) NextChar(text, i);
    return n;
}

std::string LeftChars(std::string_view text, std::size_t maxChars) {
    std::size_t i = 0;
    for (std::size_t n = 0; n < maxChars && i < text.size(); ++n) NextChar(text, i);
    return std::string(text.substr(0, i));
}

// ---- Node -------------------------------------------------------------------------------

Node::Node(const SchemaElem* def, Node* parent, int slot, int major, int minor)
    : def_(def), parent_(parent), slot_(slot), major_(major), minor_(minor) {}

Node::~Node() = default;

std::string_view Node::Name() const {
    return def_->name;
}

bool Node::IsLeaf() const {
    return def_->type != LeafType::Aggregate;
}

std::string Node::Path() const {
    std::string path = parent_ ? parent_->Path() + "/" : "";
    path += def_->name;
    if (parent_) {
        int same = 0, position = 0;
        for (const auto& k : parent_->kids_) {
            if (k->slot_ != slot_) continue;
            ++same;
            if (k.get() == this) position = same;
        }
        if (same > 1) path += "[" + std::to_string(position) + "]";
    }
    return path;
}

void Node::Fail(QbxmlErrorKind kind, const std::string& message) const {
    throw QbxmlError(kind, Path(), message);
}

int Node::FindSlot(std::string_view name, bool forUse) const {
    for (int s = 0; s < def_->childCount; ++s) {
        const SchemaElem& c = SlotElem(*def_, s);
        if (name != c.name) continue;
        if (!forUse) return s;
        if (c.flags & (detail::kPrivate | detail::kNotQbd)) {
            Fail(QbxmlErrorKind::NotSupported,
                 Quote(name) + " is not available in QuickBooks Desktop");
        }
        if (std::pair(int(c.vMajor), int(c.vMinor)) > std::pair(major_, minor_)) {
            Fail(QbxmlErrorKind::NotInVersion,
                 Quote(name) + " needs qbXML " + std::to_string(c.vMajor) + "." +
                     std::to_string(c.vMinor) + "; the message set is " + std::to_string(major_) +
                     "." + std::to_string(minor_));
        }
        return s;
    }
    if (forUse) Fail(QbxmlErrorKind::UnknownElement, "has no element " + Quote(name));
    return -1;
}

bool Node::Supports(std::string_view name) const {
    if (IsLeaf()) return false;
    int s = FindSlot(name, false);
    if (s < 0) return false;
    const SchemaElem& c = SlotElem(*def_, s);
    return !(c.flags & (detail::kPrivate | detail::kNotQbd)) &&
           std::pair(int(c.vMajor), int(c.vMinor)) <= std::pair(major_, minor_);
}

std::vector<std::string> Node::ChildNames() const {
    std::vector<std::string> names;
    for (int s = 0; s < def_->childCount; ++s) {
        if (Supports(SlotElem(*def_, s).name)) names.emplace_back(SlotElem(*def_, s).name);
    }
    return names;
}

Node& Node::Step(std::string_view name, bool append) {
    if (IsLeaf()) Fail(QbxmlErrorKind::NotAnAggregate, "is a leaf; it has no " + Quote(name));
    int s = FindSlot(name, true);
    bool repeatable = Repeatable(*def_, s);
    if (append && !repeatable) {
        Fail(QbxmlErrorKind::NotRepeatable,
             Quote(name) + " occurs once here; use Child or Field, not Append");
    }
    if (!append) {
        if (repeatable) {
            Fail(QbxmlErrorKind::NotRepeatable, Quote(name) + " may repeat here; use Append");
        }
        for (auto& k : kids_) {
            if (k->slot_ == s) return *k;
        }
    }
    const SchemaElem* def = &SlotElem(*def_, s);
    kids_.push_back(std::unique_ptr<Node>(new Node(def, this, s, major_, minor_)));
    return *kids_.back();
}

Node& Node::Walk(std::string_view path, bool wantLeaf) {
    Node* n = this;
    while (true) {
        auto slash = path.find('/');
        std::string_view name = path.substr(0, slash);
        Node& next = n->Step(name, false);
        if (slash == std::string_view::npos) {
            if (wantLeaf && !next.IsLeaf()) {
                next.Fail(QbxmlErrorKind::NotALeaf, "is an aggregate; use Child");
            }
            if (!wantLeaf && next.IsLeaf()) {
                next.Fail(QbxmlErrorKind::NotAnAggregate, "is a leaf; use Field");
            }
            return next;
        }
        if (next.IsLeaf())
            next.Fail(QbxmlErrorKind::NotAnAggregate, "is a leaf; it has no children");
        n = &next;
        path.remove_prefix(slash + 1);
    }
}

Node& Node::Child(std::string_view path) {
    return Walk(path, false);
}

Node& Node::Field(std::string_view path) {
    return Walk(path, true);
}

Node& Node::Append(std::string_view path) {
    auto slash = path.rfind('/');
    Node& parent = slash == std::string_view::npos ? *this : Child(path.substr(0, slash));
    return parent.Step(slash == std::string_view::npos ? path : path.substr(slash + 1), true);
}

std::size_t Node::Count(std::string_view name) const {
    int s = FindSlot(name, false);
    if (s < 0) Fail(QbxmlErrorKind::UnknownElement, "has no element " + Quote(name));
    return std::count_if(kids_.begin(), kids_.end(),
                         [&](const auto& k) { return k->slot_ == s && k->IsSet(); });
}

bool Node::IsSet() const {
    if (value_ || !attrs_.empty()) return true;
    return std::any_of(kids_.begin(), kids_.end(), [](const auto& k) { return k->IsSet(); });
}

std::string Node::GetValue() const {
    return value_.value_or("");
}

int Node::GetMaxLength() const {
    return def_->maxLen;
}

void Node::Clear() {
    value_.reset();
    attrs_.clear();
    for (auto& k : kids_) k->Clear();
}

// Setting content in one branch of an OR group clears the other branches, at every level up to
// the request, as the SDK's OR objects do.
void Node::ChooseBranches() {
    for (Node* n = this; n->parent_; n = n->parent_) {
        Node* p = n->parent_;
        auto chain = GroupChain(*p->def_, n->slot_);
        if (std::none_of(chain.begin(), chain.end(),
                         [&](auto gb) { return !GroupAt(*p->def_, gb.first).rep; })) {
            continue;  // in no exclusive group: nothing to clear at this level
        }
        for (auto& k : p->kids_) {
            if (k.get() != n && k->slot_ != n->slot_ && Excludes(*p->def_, n->slot_, k->slot_)) {
                k->Clear();
            }
        }
    }
}

void Node::Store(std::string text) {
    value_ = std::move(text);
    ChooseBranches();
}

void Node::SetValue(std::string_view text) {
    if (!IsLeaf()) Fail(QbxmlErrorKind::NotALeaf, "is an aggregate; values go on its fields");
    const LeafType type = def_->type;
    auto bad = [&](const std::string& what) {
        Fail(QbxmlErrorKind::BadValue, Quote(text) + " is not " + what);
    };
    std::size_t chars = 0;
    for (std::size_t i = 0; i < text.size(); ++chars) {
        if (!IsXmlChar(NextChar(text, i))) bad("valid text: it holds a control character");
    }
    switch (type) {
        case LeafType::Str:
            if (def_->maxLen && chars > def_->maxLen) {
                Fail(QbxmlErrorKind::TooLong, std::to_string(chars) + " characters; at most " +
                                                  std::to_string(def_->maxLen) + " are allowed");
            }
            break;
        case LeafType::Id:
            if (text.empty()) bad("an ID");
            break;
        case LeafType::Enum: {
            bool found = false;
            std::string values;
            for (int i = 0; i < def_->enumCount; ++i) {
                std::string_view v = detail::kEnumValues[def_->firstEnum + i];
                found |= v == text;
                if (i < 12) values += (i ? ", " : "") + std::string(v);
            }
            if (!found) bad("one of " + values + (def_->enumCount > 12 ? ", ..." : ""));
            break;
        }
        case LeafType::Bool:
            if (text != "true" && text != "false") bad("true or false");
            break;
        case LeafType::Int:
            if (!IsInteger(text)) bad("an integer");
            break;
        case LeafType::Amt:
        case LeafType::Price:
        case LeafType::Quan:
        case LeafType::Percent:
        case LeafType::Float:
            if (!IsNumber(text, type == LeafType::Float)) bad("a number");
            break;
        case LeafType::Date:
            if (!IsDate(text)) bad("a date (yyyy-mm-dd)");
            break;
        case LeafType::DateTime:
            if (!IsDateTime(text)) bad("a date-time (yyyy-mm-ddThh:mm:ss[+hh:mm])");
            break;
        case LeafType::Guid:
            if (!IsGuid(text)) bad("a GUID or 0");
            break;
        case LeafType::TimeInterval:
            if (!IsTimeInterval(text)) bad("a time interval (PTnHnMnS)");
            break;
        case LeafType::Aggregate:
            break;
    }
    if (IsNumeric(type)) {
        double v = ToDouble(text);
        if ((def_->flags & detail::kHasMin) && v < def_->minValue)
            bad("at least " + Shortest(def_->minValue));
        if ((def_->flags & detail::kHasMax) && v > def_->maxValue)
            bad("at most " + Shortest(def_->maxValue));
    }
    Store(std::string(text));
}

void Node::SetValue(bool value) {
    if (!IsLeaf()) Fail(QbxmlErrorKind::NotALeaf, "is an aggregate; values go on its fields");
    if (def_->type != LeafType::Bool) {
        Fail(QbxmlErrorKind::BadValue,
             std::string("a Boolean cannot go in a ") + TypeName(def_->type));
    }
    Store(value ? "true" : "false");
}

void Node::SetValue(double value) {
    if (!IsLeaf()) Fail(QbxmlErrorKind::NotALeaf, "is an aggregate; values go on its fields");
    const LeafType type = def_->type;
    if (!IsNumeric(type)) {
        Fail(QbxmlErrorKind::BadValue, std::string("a number cannot go in a ") + TypeName(type));
    }
    if (!std::isfinite(value)) Fail(QbxmlErrorKind::BadValue, "the number is not finite");
    std::string text;
    switch (type) {
        case LeafType::Amt:
            text = Fixed(value, 2);
            break;
        case LeafType::Float:
            text = Shortest(value);
            break;
        case LeafType::Int:
            if (value != std::trunc(value) || std::fabs(value) > 9e15) {
                Fail(QbxmlErrorKind::BadValue, Shortest(value) + " is not an integer");
            }
            text = Fixed(value, 0);
            break;
        default:  // prices, quantities and percentages carry up to 5 decimals in QuickBooks
            text = TrimZeros(Fixed(value, 5));
    }
    SetValue(std::string_view(text));
}

void Node::SetInteger(long long value) {
    if (!IsLeaf()) Fail(QbxmlErrorKind::NotALeaf, "is an aggregate; values go on its fields");
    const LeafType type = def_->type;
    if (type == LeafType::Amt) {
        SetValue(std::string_view(std::to_string(value) + ".00"));
    } else if (IsNumeric(type) || type == LeafType::Str || type == LeafType::Id) {
        SetValue(std::string_view(std::to_string(value)));
    } else {
        Fail(QbxmlErrorKind::BadValue, std::string("an integer cannot go in a ") + TypeName(type));
    }
}

void Node::SetEmpty() {
    if (!IsLeaf()) Fail(QbxmlErrorKind::NotALeaf, "is an aggregate; clear its fields");
    if (def_->type != LeafType::Str) {
        Fail(QbxmlErrorKind::BadValue, std::string("an empty ") + TypeName(def_->type) +
                                           " is not valid qbXML; only text fields can be cleared");
    }
    Store("");
}

void Node::SetAttribute(std::string_view name, std::string_view value) {
    for (int i = 0; i < def_->attrCount; ++i) {
        const detail::SchemaAttr& a = detail::kAttrs[def_->firstAttr + i];
        if (name != a.name) continue;
        bool ok = a.enumCount == 0;
        for (int k = 0; k < a.enumCount; ++k) ok |= value == detail::kEnumValues[a.firstEnum + k];
        if (std::string_view(a.type) == "INTTYPE") ok &= IsInteger(value);
        for (std::size_t p = 0; p < value.size();) ok &= IsXmlChar(NextChar(value, p));
        if (!ok) {
            Fail(QbxmlErrorKind::UnknownAttribute, Quote(value) + " is not a valid " + Quote(name));
        }
        for (auto& [n, v] : attrs_) {
            if (n == name) {
                v = value;
                ChooseBranches();
                return;
            }
        }
        attrs_.emplace_back(name, value);
        ChooseBranches();
        return;
    }
    Fail(QbxmlErrorKind::UnknownAttribute, "has no attribute " + Quote(name));
}

void Node::CheckRequired() const {
    const SchemaElem& e = *def_;
    std::vector<bool> present(e.childCount, false);
    for (const auto& k : kids_) {
        if (k->IsSet()) present[k->slot_] = true;
    }
    auto missing = [&](const std::string& what) {
        Fail(QbxmlErrorKind::MissingRequired, "missing required " + what);
    };
    // A required child of the element itself, or of the chosen branch of a group.
    auto checkSlots = [&](int group, int branch) {
        for (int s = 0; s < e.childCount; ++s) {
            const auto& c = ChildSlot(e, s);
            if (c.group == group && (group < 0 || c.branch == branch) &&
                !(SlotElem(e, s).flags & detail::kOpt) && !present[s]) {
                missing(std::string("element ") + SlotElem(e, s).name);
            }
        }
    };
    auto checkGroup = [&](auto& self, int g) -> void {
        int chosen = -1;
        for (int s = 0; s < e.childCount && chosen < 0; ++s) {
            int b = -1;
            if (present[s] && InGroup(e, s, g, &b)) chosen = b;
        }
        if (chosen < 0) {
            if (!GroupAt(e, g).nullable) missing("choice of " + Describe(e, g));
            return;
        }
        if (GroupAt(e, g).rep) return;
        checkSlots(g, chosen);
        for (int h = 0; h < e.groupCount; ++h) {
            if (GroupAt(e, h).parent == g && GroupAt(e, h).parentBranch == chosen) self(self, h);
        }
    };
    checkSlots(-1, 0);
    for (int g = 0; g < e.groupCount; ++g) {
        if (GroupAt(e, g).parent < 0) checkGroup(checkGroup, g);
    }
    for (const auto& k : kids_) {
        if (!k->IsLeaf() && k->IsSet()) k->CheckRequired();
    }
}

void Node::Write(std::string& out, int depth, const std::string* requestId) const {
    out.append(2 * depth, ' ');
    out += '<';
    out += def_->name;
    for (int i = 0; i < def_->attrCount; ++i) {
        std::string_view name = detail::kAttrs[def_->firstAttr + i].name;
        auto it = std::find_if(attrs_.begin(), attrs_.end(),
                               [&](const auto& a) { return a.first == name; });
        const std::string* value = it != attrs_.end() ? &it->second : nullptr;
        if (!value && requestId && name == "requestID") value = requestId;
        if (!value) continue;
        out += ' ';
        out += name;
        out += "=\"";
        AppendEscaped(out, *value, true);
        out += '"';
    }
    if (IsLeaf()) {
        out += '>';
        AppendEscaped(out, value_.value_or(""), false);
        out += "</";
        out += def_->name;
        out += ">\n";
        return;
    }
    std::vector<int> keys(def_->childCount);
    for (int s = 0; s < def_->childCount; ++s) keys[s] = OrderKey(*def_, s);
    std::vector<const Node*> kids;
    for (const auto& k : kids_) {
        if (k->IsSet()) kids.push_back(k.get());
    }
    if (kids.empty()) {
        out += "/>\n";
        return;
    }
    std::stable_sort(kids.begin(), kids.end(),
                     [&](const Node* a, const Node* b) { return keys[a->slot_] < keys[b->slot_]; });
    out += ">\n";
    for (const Node* k : kids) k->Write(out, depth + 1, nullptr);
    out.append(2 * depth, ' ');
    out += "</";
    out += def_->name;
    out += ">\n";
}

// ---- SchemaNode ---------------------------------------------------------------------------

SchemaNode SchemaNode::Response(std::string_view name, int major, int minor) {
    SchemaNode set(&ElemAt(major <= 7 ? detail::kMsgsRsElem70 : detail::kMsgsRsElem130), major,
                   minor);
    return set.Child(name);
}

bool SchemaNode::IsLeaf() const {
    return def_ && def_->type != LeafType::Aggregate;
}

SchemaNode SchemaNode::Child(std::string_view name, int* order) const {
    if (!def_) return {};
    for (int s = 0; s < def_->childCount; ++s) {
        const SchemaElem& c = SlotElem(*def_, s);
        if (name != c.name) continue;
        // QuickBooks Desktop never returns what the reference marks "not in QBD" (TaxAmount).
        if ((c.flags & detail::kNotQbd) ||
            std::pair(int(c.vMajor), int(c.vMinor)) > std::pair(major_, minor_))
            return {};
        if (order) *order = OrderKey(*def_, s);
        return SchemaNode(&c, major_, minor_);
    }
    return {};
}

// ---- MsgSetRequest ----------------------------------------------------------------------

MsgSetRequest::MsgSetRequest(std::string country, int major, int minor)
    : country_(std::move(country)), major_(major), minor_(minor) {
    if (country_ != "US") {
        throw QbxmlError(QbxmlErrorKind::BadValue, "MsgSetRequest",
                         "country " + Quote(country_) +
                             ": only US QuickBooks Desktop lengths are known; use \"US\"");
    }
    if (major < 1 || minor < 0) {
        throw QbxmlError(QbxmlErrorKind::BadValue, "MsgSetRequest",
                         "qbXML version " + Version() + " does not exist");
    }
}

MsgSetRequest::MsgSetRequest(MsgSetRequest&&) noexcept = default;
MsgSetRequest& MsgSetRequest::operator=(MsgSetRequest&&) noexcept = default;
MsgSetRequest::~MsgSetRequest() = default;

std::string MsgSetRequest::Version() const {
    return std::to_string(major_) + "." + std::to_string(minor_);
}

void MsgSetRequest::ClearRequests() {
    requests_.clear();
}

bool MsgSetRequest::Supports(std::string_view requestName) const {
    const SchemaElem& set = MsgsRq(major_);
    for (int s = 0; s < set.childCount; ++s) {
        const SchemaElem& r = SlotElem(set, s);
        if (requestName == r.name) {
            return !(r.flags & (detail::kPrivate | detail::kNotQbd)) &&
                   std::pair(int(r.vMajor), int(r.vMinor)) <= std::pair(major_, minor_);
        }
    }
    return false;
}

Node& MsgSetRequest::Append(std::string_view requestName) {
    const SchemaElem& set = MsgsRq(major_);
    std::string name(requestName);
    for (int s = 0; s < set.childCount; ++s) {
        const SchemaElem& r = SlotElem(set, s);
        if (requestName != r.name) continue;
        if (r.flags & (detail::kPrivate | detail::kNotQbd)) {
            throw QbxmlError(QbxmlErrorKind::NotSupported, name,
                             "is not available in QuickBooks Desktop");
        }
        if (std::pair(int(r.vMajor), int(r.vMinor)) > std::pair(major_, minor_)) {
            throw QbxmlError(QbxmlErrorKind::NotInVersion, name,
                             "needs qbXML " + std::to_string(r.vMajor) + "." +
                                 std::to_string(r.vMinor) + "; the message set is " + Version());
        }
        requests_.push_back(std::unique_ptr<Node>(new Node(&r, nullptr, -1, major_, minor_)));
        return *requests_.back();
    }
    const SchemaElem& subscriptions = MsgsRq(major_, true);
    for (int s = 0; s < subscriptions.childCount; ++s) {
        if (requestName == SlotElem(subscriptions, s).name) {
            throw QbxmlError(QbxmlErrorKind::UnknownRequest, name,
                             "belongs to QBXMLSubscriptionMsgsRq, not to a message set request");
        }
    }
    throw QbxmlError(QbxmlErrorKind::UnknownRequest, name, "is not a qbXML request");
}

Node& MsgSetRequest::GetAt(std::size_t index) {
    return *requests_.at(index);
}

const Node& MsgSetRequest::GetAt(std::size_t index) const {
    return *requests_.at(index);
}

std::string MsgSetRequest::ToXMLString() const {
    const char* onError = nullptr;
    switch (attributes.onError) {
        case OnError::stopOnError:
            onError = "stopOnError";
            break;
        case OnError::continueOnError:
            onError = "continueOnError";
            break;
    }
    if (!onError) {
        throw QbxmlError(QbxmlErrorKind::BadValue, "QBXMLMsgsRq/@onError",
                         "must be stopOnError or continueOnError");
    }
    for (const auto& r : requests_) r->CheckRequired();
    std::string out = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<?qbxml version=\"" + Version() +
                      "\"?>\n<QBXML>\n  <QBXMLMsgsRq onError=\"" + onError + "\">\n";
    for (std::size_t i = 0; i < requests_.size(); ++i) {
        std::string id = std::to_string(i);
        requests_[i]->Write(out, 2, &id);
    }
    out += "  </QBXMLMsgsRq>\n</QBXML>\n";
    return out;
}

}  // namespace pelmark::qb
