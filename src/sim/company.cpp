// Loading, checking, saving and changing qbsim's company file.
#include "sim/company.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <system_error>
#include <thread>

namespace pelmark::sim {

namespace fs = std::filesystem;

namespace {

// Comments survive a load and save, so notes in a hand-written company stay where they were.
constexpr unsigned kParseOptions =
    pugi::parse_default | pugi::parse_comments | pugi::parse_declaration | pugi::parse_pi;

bool EndsWith(std::string_view s, std::string_view suffix) {
    return s.size() >= suffix.size() && s.substr(s.size() - suffix.size()) == suffix;
}

bool IsItemRet(std::string_view name) {
    return std::find(std::begin(kItemRets), std::end(kItemRets), name) != std::end(kItemRets);
}

// The base file's root attribute that its log names.
constexpr const char* kGeneration = "generation";
constexpr const char* kRemoveName = "QBSimRemove";
constexpr std::string_view kCommit = "</QBSimChange>\n";

// What identifies a stored object: its TxnID or ListID ("" for neither).
std::string IdOf(pugi::xml_node object) {
    pugi::xml_node id = object.child("TxnID");
    if (!id) id = object.child("ListID");
    return id.text().get();
}

// The list kinds whose Ret carries FullName (the others have Name only).
bool HasFullName(std::string_view retName) {
    static const std::set<std::string_view> kinds = {
        "CustomerRet",        "ItemServiceRet",   "ItemNonInventoryRet",
        "ItemOtherChargeRet", "ItemInventoryRet", "ItemInventoryAssemblyRet",
        "ItemDiscountRet",    "AccountRet",       "ClassRet"};
    return kinds.count(retName) > 0;
}

std::vector<pugi::xml_node> Elements(pugi::xml_node parent) {
    std::vector<pugi::xml_node> out;
    for (pugi::xml_node c : parent.children()) {
        if (c.type() == pugi::node_element) out.push_back(c);
    }
    return out;
}

bool IsHex(std::string_view s) {
    return !s.empty() && std::all_of(s.begin(), s.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
    });
}

bool IsDigits(std::string_view s) {
    return !s.empty() &&
           std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; });
}

int Number(std::string_view s) {
    int n = 0;
    for (char c : s) n = n * 10 + (c - '0');
    return n;
}

// Days since 1970-01-01 of a civil date (Howard Hinnant's algorithm).
std::int64_t DaysFromCivil(std::int64_t y, unsigned m, unsigned d) {
    y -= m <= 2;
    const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<std::int64_t>(doe) - 719468;
}

void CivilFromDays(std::int64_t z, int& y, int& m, int& d) {
    z += 719468;
    const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const unsigned doe = static_cast<unsigned>(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    d = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
    m = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
    y = static_cast<int>(static_cast<std::int64_t>(yoe) + era * 400 + (m <= 2));
}

// "yyyy-mm-ddThh:mm:ss" with an optional "+hh:mm", "-hh:mm" or "Z": seconds since 1970 (UTC).
bool ParseDateTime(std::string_view s, std::int64_t* seconds) {
    if (s.size() < 19 || s[4] != '-' || s[7] != '-' || s[10] != 'T' || s[13] != ':' ||
        s[16] != ':') {
        return false;
    }
    for (int i : {0, 1, 2, 3, 5, 6, 8, 9, 11, 12, 14, 15, 17, 18}) {
        if (s[i] < '0' || s[i] > '9') return false;
    }
    int y = Number(s.substr(0, 4)), mo = Number(s.substr(5, 2)), d = Number(s.substr(8, 2));
    int h = Number(s.substr(11, 2)), mi = Number(s.substr(14, 2)), se = Number(s.substr(17, 2));
    if (mo < 1 || mo > 12 || d < 1 || d > 31 || h > 23 || mi > 59 || se > 59) return false;
    std::int64_t offset = 0;
    std::string_view zone = s.substr(19);
    if (zone == "Z") {
    } else if (zone.size() == 6 && (zone[0] == '+' || zone[0] == '-') && zone[3] == ':' &&
               IsDigits(zone.substr(1, 2)) && IsDigits(zone.substr(4, 2))) {
        offset = (Number(zone.substr(1, 2)) * 60 + Number(zone.substr(4, 2))) * 60;
        if (zone[0] == '-') offset = -offset;
    } else if (!zone.empty()) {
        return false;
    }
    *seconds = DaysFromCivil(y, mo, d) * 86400 + h * 3600 + mi * 60 + se - offset;
    return true;
}

void SetChildText(pugi::xml_node object, const char* name, const std::string& value,
                  std::initializer_list<const char*> after) {
    pugi::xml_node child = object.child(name);
    if (!child) {
        pugi::xml_node anchor;
        for (const char* a : after) {
            if (pugi::xml_node n = object.child(a)) anchor = n;
        }
        child = anchor ? object.insert_child_after(name, anchor) : object.prepend_child(name);
    }
    child.text().set(value.c_str());
}

// Everything checked on load, with the place of the first problem.
class Checker {
  public:
    explicit Checker(std::string_view text) : text_(text) {}

    LoadResult Check(const pugi::xml_document& doc) {
        pugi::xml_node root = doc.document_element();
        if (!root) return Fail({}, "the file holds no element");
        if (std::string_view(root.name()) != kRootName) {
            return Fail(root, "the root element is <" + std::string(root.name()) + ">, not <" +
                                  kRootName + ">");
        }
        int hosts = 0, companies = 0, settings = 0;
        for (pugi::xml_node e : Elements(root)) {
            std::string_view name = e.name();
            if (name == kSettingsName) {
                if (++settings > 1) return Fail(e, "a second <QBSimSettings>");
                if (!CheckSettings(e)) return result_;
                continue;
            }
            if (name == kFaultName) {
                const std::string_view kind = e.attribute("kind").value();
                if (e.attribute("request").as_int() < 1 ||
                    (kind != "error" && kind != "lost" && kind != "status"))
                    return Fail(e,
                                "<QBSimFault> needs request=\"K\" (1 or more) and "
                                "kind=\"error\", \"lost\" or \"status\"");
                continue;
            }
            if (!EndsWith(name, "Ret")) {
                return Fail(e, "<" + std::string(name) +
                                   "> is neither a QuickBooks object (an ...Ret element) nor "
                                   "<QBSimSettings> or <QBSimFault>");
            }
            if (name == "HostRet") {
                ++hosts;
                if (!CheckHost(e)) return result_;
            } else if (name == "CompanyRet") {
                ++companies;
            } else if (name == "PreferencesRet" || name == "CompanyActivityRet") {
                // Company-wide objects without a ListID.
            } else if (name == "DataExtDefRet") {
                if (!CheckDefinition(e)) return result_;
            } else if (e.child("TxnID")) {
                if (!CheckTxn(e)) return result_;
            } else if (!CheckListObject(e)) {
                return result_;
            }
            if (!CheckDataExts(e)) return result_;
        }
        if (hosts != 1) return Fail(root, "the company needs exactly one <HostRet>");
        if (companies != 1) return Fail(root, "the company needs exactly one <CompanyRet>");
        return result_;
    }

  private:
    LoadResult Fail(pugi::xml_node at, std::string description) {
        result_.status = LoadStatus::Malformed;
        result_.description = std::move(description);
        std::ptrdiff_t offset = at ? at.offset_debug() : -1;
        if (offset >= 0) {
            std::size_t end = std::min(static_cast<std::size_t>(offset), text_.size());
            result_.line =
                1 + static_cast<int>(std::count(text_.begin(), text_.begin() + end, '\n'));
            std::size_t start = text_.rfind('\n', end == 0 ? 0 : end - 1);
            result_.column = static_cast<int>(
                start == std::string_view::npos || end == 0 ? end + 1 : end - start);
        }
        return result_;
    }

    bool Require(pugi::xml_node e, const char* child) {
        if (!ChildText(e, child).empty()) return true;
        Fail(e, "<" + std::string(e.name()) + "> has no " + child);
        return false;
    }

    bool CheckSettings(pugi::xml_node e) {
        for (pugi::xml_attribute a : e.attributes()) {
            std::string_view name = a.name(), value = a.value();
            if (name == "restrictedUser") {
                if (value != "true" && value != "false") {
                    Fail(e, "restrictedUser must be true or false, not \"" + std::string(value) +
                                "\"");
                    return false;
                }
            } else if (name == "nextID") {
                if (!IsHex(value) || value.size() > 8) {
                    Fail(e, "nextID must be 1 to 8 hexadecimal digits");
                    return false;
                }
            } else if (name == "clock") {
                std::int64_t seconds;
                if (!ParseDateTime(value, &seconds)) {
                    Fail(e, "clock must be a date-time such as 2024-05-01T09:30:00-05:00");
                    return false;
                }
            } else {
                Fail(e, "<QBSimSettings> has no setting \"" + std::string(name) + "\"");
                return false;
            }
        }
        for (pugi::xml_node record : Elements(e)) {
            if (std::string_view(record.name()) != "TxnDisplay") {
                Fail(record, "<QBSimSettings> holds <TxnDisplay> records only, not <" +
                                 std::string(record.name()) + ">");
                return false;
            }
            std::int64_t seconds;
            if (!IsDigits(record.attribute("sequence").value()) ||
                std::string_view(record.attribute("txnType").value()).empty() ||
                std::string_view(record.attribute("txnID").value()).empty() ||
                !ParseDateTime(record.attribute("time").value(), &seconds)) {
                Fail(record, "<TxnDisplay> needs sequence (a number), txnType, txnID and time");
                return false;
            }
        }
        return true;
    }

    bool CheckHost(pugi::xml_node e) {
        if (!Require(e, "ProductName") || !Require(e, "MajorVersion") ||
            !Require(e, "MinorVersion")) {
            return false;
        }
        int versions = 0;
        for (pugi::xml_node v : e.children("SupportedQBXMLVersion")) {
            std::string_view text = v.text().get();
            auto dot = text.find('.');
            if (dot == std::string_view::npos || !IsDigits(text.substr(0, dot)) ||
                !IsDigits(text.substr(dot + 1))) {
                Fail(v, "SupportedQBXMLVersion \"" + std::string(text) +
                            "\" is not a version such as 7.0");
                return false;
            }
            ++versions;
        }
        if (versions == 0) {
            Fail(e, "<HostRet> has no SupportedQBXMLVersion");
            return false;
        }
        return true;
    }

    bool CheckDefinition(pugi::xml_node e) {
        if (!Require(e, "DataExtName") || !Require(e, "DataExtType")) return false;
        std::string owner = ChildText(e, "OwnerID");
        std::string key =
            Upper(owner.empty() ? "0" : owner) + "|" + Upper(ChildText(e, "DataExtName"));
        if (!definitions_.insert(key).second) {
            Fail(e,
                 "a second definition of the custom field \"" + ChildText(e, "DataExtName") + "\"");
            return false;
        }
        return true;
    }

    bool CheckListObject(pugi::xml_node e) {
        std::string name = e.name();
        if (!Require(e, "ListID") || !Require(e, "Name")) return false;
        if (HasFullName(name) && !Require(e, "FullName")) return false;
        // All item kinds share one list, so one ListID space and one name space.
        std::string space = IsItemRet(name) ? "Item" : name;
        if (!listIDs_[space].insert(ChildText(e, "ListID")).second) {
            Fail(e, "ListID " + ChildText(e, "ListID") + " is used twice");
            return false;
        }
        if (!fullNames_[space].insert(Upper(FullNameOf(e))).second) {
            Fail(e, "the name \"" + FullNameOf(e) + "\" is used twice in one list");
            return false;
        }
        return true;
    }

    bool CheckTxn(pugi::xml_node e) {
        if (!Require(e, "TxnID")) return false;
        if (!txnIDs_.insert(ChildText(e, "TxnID")).second) {
            Fail(e, "TxnID " + ChildText(e, "TxnID") + " is used twice");
            return false;
        }
        std::string kind = std::string(e.name()).substr(0, std::string_view(e.name()).size() - 3);
        std::set<std::string> lineIDs;
        auto checkLine = [&](pugi::xml_node line) {
            if (!Require(line, "TxnLineID")) return false;
            if (!lineIDs.insert(ChildText(line, "TxnLineID")).second) {
                Fail(line, "TxnLineID " + ChildText(line, "TxnLineID") + " is used twice");
                return false;
            }
            return true;
        };
        // pugixml's named iteration keeps the name's pointer, so the name must outlive the loop.
        const std::string lineName = kind + "LineRet", groupName = kind + "LineGroupRet";
        for (pugi::xml_node line : Elements(e)) {
            std::string_view n = line.name();
            if (n == lineName) {
                if (!checkLine(line)) return false;
            } else if (n == groupName) {
                if (!checkLine(line)) return false;
                for (pugi::xml_node inner : line.children(lineName.c_str())) {
                    if (!checkLine(inner)) return false;
                }
            }
        }
        return true;
    }

    // Every DataExtRet inside an object, at any depth (lines and line groups carry them too).
    bool CheckDataExts(pugi::xml_node e) {
        for (pugi::xml_node c : Elements(e)) {
            if (std::string_view(c.name()) == "DataExtRet") {
                if (!Require(c, "DataExtName")) return false;
                if (!c.child("DataExtValue")) {
                    Fail(c, "<DataExtRet> has no DataExtValue");
                    return false;
                }
            } else if (!CheckDataExts(c)) {
                return false;
            }
        }
        return true;
    }

    static std::string Upper(std::string s) {
        for (char& c : s) {
            if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
        }
        return s;
    }

    std::string_view text_;
    LoadResult result_;
    std::set<std::string> definitions_, txnIDs_;
    std::map<std::string, std::set<std::string>> listIDs_, fullNames_;
};

}  // namespace

std::string LoadResult::ToString() const {
    if (line <= 0) return description;
    return "line " + std::to_string(line) + ", column " + std::to_string(column) + ": " +
           description;
}

bool SameText(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        char x = a[i], y = b[i];
        if (x >= 'a' && x <= 'z') x = static_cast<char>(x - 'a' + 'A');
        if (y >= 'a' && y <= 'z') y = static_cast<char>(y - 'a' + 'A');
        if (x != y) return false;
    }
    return true;
}

std::string ChildText(pugi::xml_node node, const char* name) {
    return node.child(name).text().get();
}

std::string FullNameOf(pugi::xml_node object) {
    if (pugi::xml_node full = object.child("FullName")) return full.text().get();
    return ChildText(object, "Name");
}

bool SameOwner(std::string_view a, std::string_view b) {
    auto strip = [](std::string_view s) {
        if (s.size() >= 2 && s.front() == '{' && s.back() == '}') s = s.substr(1, s.size() - 2);
        return s;
    };
    return SameText(strip(a), strip(b));
}

// Every top-level element by name and by TxnID or ListID, in file order. Changes through
// Append, Replace and Remove keep it; it is built again when the root's first or last child is
// not the one it was built with (an element added or taken away another way).
struct Company::Index {
    pugi::xml_node first, last;
    std::unordered_map<std::string, std::vector<pugi::xml_node>> byName, byID;
    std::vector<pugi::xml_node> items;

    void Add(pugi::xml_node e) {
        byName[e.name()].push_back(e);
        if (std::string id = IdOf(e); !id.empty()) byID[id].push_back(e);
        if (IsItemRet(e.name())) items.push_back(e);
    }
    void Swap(pugi::xml_node old, pugi::xml_node now) {
        auto in = [&](std::vector<pugi::xml_node>& list) {
            std::replace(list.begin(), list.end(), old, now);
        };
        in(byName[old.name()]);
        if (IsItemRet(old.name())) in(items);
        const std::string oldID = IdOf(old), newID = IdOf(now);
        if (oldID == newID) {
            if (!oldID.empty()) in(byID[oldID]);
        } else {
            Drop(byID, oldID, old);
            if (!newID.empty()) byID[newID].push_back(now);
        }
    }
    void Remove(pugi::xml_node e) {
        Drop(byName, e.name(), e);
        Drop(byID, IdOf(e), e);
        items.erase(std::remove(items.begin(), items.end(), e), items.end());
    }
    static void Drop(std::unordered_map<std::string, std::vector<pugi::xml_node>>& map,
                     const std::string& key, pugi::xml_node e) {
        auto found = map.find(key);
        if (found == map.end()) return;
        found->second.erase(std::remove(found->second.begin(), found->second.end(), e),
                            found->second.end());
        if (found->second.empty()) map.erase(found);
    }
};

const Company::Index& Company::Indexed() const {
    const pugi::xml_node root = Root();
    if (!index_ || index_->first != root.first_child() || index_->last != root.last_child()) {
        index_ = std::make_unique<Index>();
        for (pugi::xml_node e : Elements(root)) index_->Add(e);
        index_->first = root.first_child();
        index_->last = root.last_child();
    }
    return *index_;
}

Company::Company() = default;
Company::~Company() = default;
Company::Company(Company&&) noexcept = default;
Company& Company::operator=(Company&&) noexcept = default;

LoadResult Company::LoadText(std::string_view xml) {
    std::string generation;
    LoadResult result = Parse(xml, &generation);
    // Text that is not a company file's: its first save writes the whole file.
    if (result.ok()) path_.clear(), generation_.clear(), ForgetLog();
    return result;
}

LoadResult Company::Parse(std::string_view xml, std::string* generation) {
    auto doc = std::make_unique<pugi::xml_document>();
    pugi::xml_parse_result parsed = doc->load_buffer(xml.data(), xml.size(), kParseOptions);
    LoadResult result;
    if (!parsed) {
        result.status = LoadStatus::Malformed;
        result.description = std::string("not well-formed XML: ") + parsed.description();
        std::size_t end = std::min(
            static_cast<std::size_t>(std::max<std::ptrdiff_t>(parsed.offset, 0)), xml.size());
        result.line = 1 + static_cast<int>(std::count(xml.begin(), xml.begin() + end, '\n'));
        std::size_t start = end == 0 ? std::string_view::npos : xml.rfind('\n', end - 1);
        result.column = static_cast<int>(start == std::string_view::npos ? end + 1 : end - start);
        return result;
    }
    result = Checker(xml).Check(*doc);
    if (!result.ok()) return result;
    // The generation belongs to the file, not to the company: ToXml leaves it out.
    pugi::xml_node root = doc->document_element();
    if (pugi::xml_attribute a = root.attribute(kGeneration)) {
        *generation = a.value();
        root.remove_attribute(a);
    }
    doc_ = std::move(doc);
    index_.reset();
    modified_ = untracked_ = false;
    dirty_.clear();
    removed_.clear();
    saved_.clear();
    return result;
}

LoadResult Company::LoadFile(const std::string& path, std::string* bytes) {
    LoadResult result;
    std::error_code ec;
    if (!fs::exists(fs::path(path), ec)) {
        result.status = LoadStatus::NotFound;
        result.description = "the company file " + path + " does not exist";
        return result;
    }
    std::string text;
    if (!ReadShared(path, text)) {
        result.status = LoadStatus::Unreadable;
        result.description = "the company file " + path + " could not be read";
        return result;
    }
    Company next;
    next.reuseSaved_ = reuseSaved_;
    std::string generation;
    result = next.Parse(text, &generation);
    if (!result.ok()) return result;
    next.path_ = path;
    next.generation_ = std::move(generation);
    next.baseSize_ = text.size();
    if (next.ReadLogTail(path) == Tail::Reload) {
        result.status = LoadStatus::Malformed;
        result.description = "the change log " + LogPathOf(path) + " is damaged: a record that " +
                             "ends with its commit mark is not readable";
        return result;
    }
    *this = std::move(next);
    if (bytes) *bytes = std::move(text);
    return result;
}

namespace {

// Straight into a string: a stream would hold the whole company a second time.
struct StringWriter : pugi::xml_writer {
    std::string text;
    void write(const void* data, std::size_t size) override {
        text.append(static_cast<const char*>(data), size);
    }
};

constexpr const char* kIndent = "  ";

// What identifies an object's text: kind, ID and EditSequence ("" for objects without both).
std::string TextKey(pugi::xml_node object) {
    pugi::xml_node id = object.child("TxnID");
    if (!id) id = object.child("ListID");
    const std::string_view idText = id.text().get(),
                           sequence = object.child("EditSequence").text().get();
    if (idText.empty() || sequence.empty()) return {};
    return std::string(object.name()) + '\n' + std::string(idText) + '\n' + std::string(sequence);
}

}  // namespace

std::string Company::ToXml() const {
    if (!doc_) return {};
    StringWriter out;
    doc_->save(out, kIndent, pugi::format_default, pugi::encoding_utf8);
    return std::move(out.text);
}

// The document as ToXml writes it, put together from the text of each child of the root: what
// surrounds them comes from a copy of the document whose root holds one stand-in child, and
// pugixml prints a child at depth 1 exactly as it does inside the document (indented, with its
// line break), as long as the root holds elements and comments only.
std::string Company::SaveText() {
    const pugi::xml_node root = Root();
    if (!reuseSaved_ || !root.first_child()) return ToXml();
    pugi::xml_document shell;
    for (pugi::xml_node n : doc_->children()) {
        if (n != root) {
            shell.append_copy(n);
            continue;
        }
        pugi::xml_node copy = shell.append_child(root.name());
        for (pugi::xml_attribute a : root.attributes()) copy.append_copy(a);
        copy.append_child("_");
    }
    StringWriter frame;
    shell.save(frame, kIndent, pugi::format_default, pugi::encoding_utf8);
    const std::string mark = std::string(kIndent) + "<_ />\n";
    const std::size_t at = frame.text.find(mark);
    if (at == std::string::npos) return ToXml();
    StringWriter out;
    out.text.reserve(saveSize_);
    out.text.append(frame.text, 0, at);
    std::unordered_map<std::string, std::string> next;
    next.reserve(saved_.size() + 16);
    for (pugi::xml_node c : root.children()) {
        if (c.type() == pugi::node_pcdata || c.type() == pugi::node_cdata) return ToXml();
        std::string key = TextKey(c);
        auto [entry, fresh] =
            key.empty() ? std::pair{next.end(), false} : next.try_emplace(std::move(key));
        if (!fresh) {  // not reusable, or a second object of the same key
            c.print(out, kIndent, pugi::format_default, pugi::encoding_utf8, 1);
            continue;
        }
        if (auto before = saved_.find(entry->first); before != saved_.end()) {
            entry->second = std::move(before->second);
        } else {
            StringWriter one;
            c.print(one, kIndent, pugi::format_default, pugi::encoding_utf8, 1);
            entry->second = std::move(one.text);
        }
        out.text += entry->second;
    }
    out.text.append(frame.text, at + mark.size());
    saved_ = std::move(next);
    saveSize_ = out.text.size();
    return std::move(out.text);
}

SaveResult Company::SaveFile(const std::string& path) {
    SaveResult result;
    if (!doc_) return {false, "there is no company to save", {}, {}};
    const fs::path target = fs::path(path);
    std::error_code ec;
    // A read-only company stays as it is (QuickBooks opens no company it cannot write). On
    // Windows the read-only attribute shows as permissions without write bits.
    const fs::perms perms = fs::status(target, ec).permissions();
    if (!ec && (perms & fs::perms::owner_write) == fs::perms::none) {
        return {false, "the company file " + path + " is read-only; nothing was changed", {}, {}};
    }
    // A name of its own for each save, so that two processes never write into one temporary file.
    std::random_device random;
    char suffix[32];
    std::snprintf(suffix, sizeof suffix, ".%08x%08x.tmp", static_cast<unsigned>(random()),
                  static_cast<unsigned>(random()));
    fs::path temp = target;
    temp += suffix;
    char generation[24];
    std::snprintf(generation, sizeof generation, "%08X%08X", static_cast<unsigned>(random()),
                  static_cast<unsigned>(random()));
    pugi::xml_attribute mark = Root().append_attribute(kGeneration);
    mark.set_value(generation);
    std::string xml = SaveText();
#ifndef NDEBUG
    if (reuseSaved_ && xml != ToXml()) {
        std::fprintf(stderr, "qbsim: an object changed without a new EditSequence\n");
        std::abort();
    }
#endif
    Root().remove_attribute(mark);
    {
        std::ofstream out(temp, std::ios::binary | std::ios::trunc);
        if (!out) return {false, "could not create " + temp.string(), {}, {}};
        out.write(xml.data(), static_cast<std::streamsize>(xml.size()));
        out.flush();
        out.close();
        if (out.fail()) {
            fs::remove(temp, ec);
            return {false, "could not write " + temp.string(), {}, {}};
        }
    }
    // Set back by a whole grain and one second more, and a fraction that is a multiple of 100 ns
    // (what Windows keeps), so that no later write can give the file the same time.
    const std::int64_t back =
        kStampGrain + 1'000'000'000 + static_cast<std::int64_t>(random() % 10'000'000) * 100;
    SetWriteTime(temp.string(), (FileClockNow() - back) / 100 * 100);
    // std::filesystem::rename replaces an existing file on POSIX and, through MoveFileExW with
    // MOVEFILE_REPLACE_EXISTING, on Windows too. Windows refuses the replace while another
    // program has the file open without FILE_SHARE_DELETE, and Wine while anyone has it open at
    // all (its server's rename: "can't replace an opened file"). Readers such as the screen
    // that shows the company hold it only for the moment a read takes, so the replace is tried
    // again for up to two seconds before the save gives up.
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    for (;;) {
        fs::rename(temp, target, ec);
        if (!ec || std::chrono::steady_clock::now() >= giveUp) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    if (ec) {
        std::error_code ignored;
        fs::remove(temp, ignored);
        return {false, "could not replace " + path + ": " + ec.message(), {}, {}};
    }
    // The log continued the old base; with the new one in place it is stale whether or not it
    // can be deleted now (Windows refuses while a reader has it open).
    fs::remove(fs::path(LogPathOf(path)), ec);
    path_ = path;
    generation_ = generation;
    baseSize_ = xml.size();
    ForgetLog();
    dirty_.clear();
    removed_.clear();
    untracked_ = false;
    result.written = std::move(xml);
    result.stamp = StampOf(path);
    return result;
}

bool Company::IsLoaded() const {
    return doc_ != nullptr;
}

pugi::xml_node Company::Root() const {
    return doc_ ? doc_->document_element() : pugi::xml_node();
}

pugi::xml_node Company::Settings() const {
    return Root().child(kSettingsName);
}

pugi::xml_node Company::MakeSettings() {
    pugi::xml_node s = Settings();
    if (!s) s = Root().prepend_child(kSettingsName);
    return s;
}

bool Company::RestrictedUser() const {
    return std::string_view(Settings().attribute("restrictedUser").value()) == "true";
}

pugi::xml_node Company::Host() const {
    return Root().child("HostRet");
}

pugi::xml_node Company::CompanyInfo() const {
    return Root().child("CompanyRet");
}

std::vector<pugi::xml_node> Company::Objects(std::string_view retName) const {
    const Index& index = Indexed();
    auto found = index.byName.find(std::string(retName));
    return found == index.byName.end() ? std::vector<pugi::xml_node>() : found->second;
}

std::vector<pugi::xml_node> Company::Items() const {
    return Indexed().items;
}

// These run for every reference in every request: through the index, so that they cost the
// objects of one ID or kind, not the company.
pugi::xml_node Company::FindByListID(const std::vector<std::string_view>& retNames,
                                     std::string_view listID) const {
    const Index& index = Indexed();
    auto found = index.byID.find(std::string(listID));
    if (found == index.byID.end()) return {};
    for (pugi::xml_node e : found->second) {
        if (std::find(retNames.begin(), retNames.end(), std::string_view(e.name())) !=
                retNames.end() &&
            e.child("ListID").text().get() == listID) {
            return e;
        }
    }
    return {};
}

pugi::xml_node Company::FindByFullName(const std::vector<std::string_view>& retNames,
                                       std::string_view fullName) const {
    // The first in file order among the kinds: items share one list, the others have one each.
    const Index& index = Indexed();
    std::vector<pugi::xml_node> all;
    const std::vector<pugi::xml_node>* candidates = &index.items;
    if (!std::all_of(retNames.begin(), retNames.end(), IsItemRet)) {
        auto one =
            retNames.size() == 1 ? index.byName.find(std::string(retNames[0])) : index.byName.end();
        candidates = one != index.byName.end() ? &one->second : &(all = Elements(Root()));
    }
    for (pugi::xml_node e : *candidates) {
        const std::string_view name = e.name();
        if (std::find(retNames.begin(), retNames.end(), name) != retNames.end() &&
            SameText(FullNameOf(e), fullName)) {
            return e;
        }
    }
    return {};
}

pugi::xml_node Company::FindTxn(std::string_view kind, std::string_view txnID) const {
    const std::string retName = std::string(kind) + "Ret";
    const Index& index = Indexed();
    auto found = index.byID.find(std::string(txnID));
    if (found == index.byID.end()) return {};
    for (pugi::xml_node e : found->second) {
        if (e.name() == retName && e.child("TxnID").text().get() == txnID) return e;
    }
    return {};
}

pugi::xml_node Company::FindTxnLine(pugi::xml_node txn, std::string_view txnLineID) {
    std::string_view name = txn.name();
    if (!EndsWith(name, "Ret")) return {};
    std::string kind(name.substr(0, name.size() - 3));
    const std::string lineName = kind + "LineRet", groupName = kind + "LineGroupRet";
    for (pugi::xml_node line : Elements(txn)) {
        if (line.name() == lineName || line.name() == groupName) {
            if (ChildText(line, "TxnLineID") == txnLineID) return line;
        }
        if (line.name() == groupName) {
            for (pugi::xml_node inner : line.children(lineName.c_str())) {
                if (ChildText(inner, "TxnLineID") == txnLineID) return inner;
            }
        }
    }
    return {};
}

std::uint32_t Company::TakeCounter() {
    std::uint32_t next = 0;
    pugi::xml_attribute stored = Settings().attribute("nextID");
    if (stored) {
        next = static_cast<std::uint32_t>(std::stoul(stored.value(), nullptr, 16));
    } else {
        // No counter yet: continue above the highest counter part among the IDs in the file, and
        // never below 0x80000000, where QuickBooks' own IDs start.
        next = 0x80000000u;
        auto scan = [&](auto& self, pugi::xml_node parent) -> void {
            for (pugi::xml_node e : Elements(parent)) {
                std::string_view name = e.name();
                if (name != "ListID" && name != "TxnID" && name != "TxnLineID") {
                    self(self, e);
                    continue;
                }
                std::string_view id = e.text().get();
                auto dash = id.find('-');
                if (dash == std::string_view::npos || dash > 8 || !IsHex(id.substr(0, dash))) {
                    continue;
                }
                auto value = static_cast<std::uint32_t>(
                    std::stoul(std::string(id.substr(0, dash)), nullptr, 16));
                next = std::max(next, value + 1);
            }
        };
        scan(scan, Root());
    }
    char text[16];
    std::snprintf(text, sizeof text, "%08X", static_cast<unsigned>(next + 1));
    pugi::xml_node settings = MakeSettings();
    if (!settings.attribute("nextID")) settings.append_attribute("nextID");
    settings.attribute("nextID").set_value(text);
    modified_ = true;
    return next;
}

std::string Company::NewListID() {
    char text[40];
    std::snprintf(text, sizeof text, "%08X-%010lld", static_cast<unsigned>(TakeCounter()),
                  static_cast<long long>(NowSeconds()));
    return text;
}

std::string Company::NewTxnID() {
    return NewListID();
}

std::string Company::NewTxnLineID(std::string_view txnID) {
    auto dash = txnID.find('-');
    std::string suffix =
        dash == std::string_view::npos ? std::string() : std::string(txnID.substr(dash + 1));
    if (suffix.empty()) return NewListID();
    char text[16];
    std::snprintf(text, sizeof text, "%08X-", static_cast<unsigned>(TakeCounter()));
    return text + suffix;
}

std::string Company::Now() const {
    std::string_view clock = Settings().attribute("clock").value();
    if (!clock.empty()) return std::string(clock);
    std::int64_t s = NowSeconds();
    int y, m, d;
    CivilFromDays(s / 86400, y, m, d);
    int rest = static_cast<int>(s % 86400);
    char text[40];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d+00:00", y, m, d, rest / 3600,
                  rest / 60 % 60, rest % 60);
    return text;
}

std::int64_t Company::NowSeconds() const {
    std::int64_t seconds;
    if (ParseDateTime(Settings().attribute("clock").value(), &seconds)) return seconds;
    return std::chrono::duration_cast<std::chrono::seconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

void Company::Dirty(pugi::xml_node object) {
    if (replaying_) return;
    while (object && object.parent() != Root()) object = object.parent();
    if (!object) return;
    if (std::find(dirty_.begin(), dirty_.end(), object) == dirty_.end()) dirty_.push_back(object);
}

pugi::xml_node Company::Append(pugi::xml_node object) {
    Index* index = index_ ? (Indexed(), index_.get()) : nullptr;
    pugi::xml_node stored = Root().append_copy(object);
    if (index) {
        index->Add(stored);
        index->first = Root().first_child();
        index->last = stored;
    }
    Dirty(stored);
    modified_ = true;
    return stored;
}

pugi::xml_node Company::Replace(pugi::xml_node old, pugi::xml_node object) {
    Index* index = index_ ? (Indexed(), index_.get()) : nullptr;
    pugi::xml_node stored = Root().insert_copy_after(object, old);
    if (index) index->Swap(old, stored);
    std::replace(dirty_.begin(), dirty_.end(), old, stored);
    Root().remove_child(old);
    if (index) index->first = Root().first_child(), index->last = Root().last_child();
    Dirty(stored);
    modified_ = true;
    return stored;
}

void Company::Remove(pugi::xml_node object) {
    Index* index = index_ ? (Indexed(), index_.get()) : nullptr;
    if (index) index->Remove(object);
    dirty_.erase(std::remove(dirty_.begin(), dirty_.end(), object), dirty_.end());
    if (!replaying_) removed_.emplace_back(object.name(), IdOf(object));
    Root().remove_child(object);
    if (index) index->first = Root().first_child(), index->last = Root().last_child();
    modified_ = true;
}

void Company::Touch(pugi::xml_node object) {
    Dirty(object);
    SetChildText(object, "TimeModified", Now(), {"ListID", "TxnID", "TimeCreated"});
    // QuickBooks' EditSequence is a time in seconds; a change within the same second (or under a
    // fixed clock) still gets a new one.
    std::string old = ChildText(object, "EditSequence");
    std::int64_t next = NowSeconds();
    if (IsDigits(old) && old.size() < 19) next = std::max<std::int64_t>(next, std::stoll(old) + 1);
    SetChildText(object, "EditSequence", std::to_string(next),
                 {"ListID", "TxnID", "TimeCreated", "TimeModified"});
    modified_ = true;
}

std::vector<DisplayRequest> Company::DisplayRequests() const {
    std::vector<DisplayRequest> out;
    for (pugi::xml_node r : Settings().children("TxnDisplay")) {
        out.push_back({r.attribute("sequence").as_int(), r.attribute("txnType").value(),
                       r.attribute("txnID").value(), r.attribute("time").value()});
    }
    return out;
}

void Company::RecordDisplay(std::string_view txnType, std::string_view txnID) {
    pugi::xml_node settings = MakeSettings();
    long sequence = 1;
    std::size_t count = 0;
    for (pugi::xml_node r : settings.children("TxnDisplay")) {
        sequence = std::max(sequence, r.attribute("sequence").as_int() + 1L);
        ++count;
    }
    for (; count >= kDisplayHistory; --count) settings.remove_child("TxnDisplay");
    pugi::xml_node r = settings.append_child("TxnDisplay");
    r.append_attribute("sequence").set_value(sequence);
    r.append_attribute("txnType").set_value(std::string(txnType).c_str());
    r.append_attribute("txnID").set_value(std::string(txnID).c_str());
    r.append_attribute("time").set_value(Now().c_str());
    modified_ = true;
}

// ---- The change log ----------------------------------------------------------------------

std::string LogPathOf(const std::string& companyPath) {
    return companyPath + ".log";
}

void Company::ForgetLog() {
    logEnd_ = 0;
    logRecords_ = 0;
    logStamp_ = path_.empty() ? FileStamp() : StampOf(LogPathOf(path_));
}

std::string Company::LogHeader() const {
    return "<QBSimLog base=\"" + generation_ + "\" size=\"" + std::to_string(baseSize_) + "\"/>\n";
}

Company::Tail Company::ReadLogTail(const std::string& path) {
    if (!doc_ || path != path_) return Tail::Reload;
    const std::string logPath = LogPathOf(path);
    const FileStamp stamp = StampOf(logPath);
    if (stamp == logStamp_) return Tail::Same;
    std::string text;
    if (!stamp.ok || !ReadShared(logPath, text)) {
        // Gone: the base was written anew since (when the log was in use), or there never was one.
        if (logEnd_ > 0) return Tail::Reload;
        logStamp_ = stamp;
        return Tail::Same;
    }
    const std::string header = LogHeader();
    const bool ours = !generation_.empty() && text.compare(0, header.size(), header) == 0;
    if (logEnd_ > 0 && (!ours || text.size() < logEnd_)) return Tail::Reload;
    logStamp_ = stamp;
    if (!ours) return Tail::Same;  // stale: left from before the base was written
    std::size_t at = logEnd_ > 0 ? static_cast<std::size_t>(logEnd_) : header.size();
    const std::size_t before = logRecords_;
    const bool wasModified = modified_;
    replaying_ = true;
    for (std::size_t end; (end = text.find(kCommit, at)) != std::string::npos; at = end) {
        end += kCommit.size();
        pugi::xml_document record;
        if (!record.load_buffer(text.data() + at, end - at, kParseOptions) ||
            std::string_view(record.document_element().name()) != "QBSimChange") {
            replaying_ = false;
            modified_ = wasModified;
            return Tail::Reload;
        }
        for (pugi::xml_node c : Elements(record.document_element())) {
            const std::string_view name = c.name();
            if (name == kSettingsName) {
                // In place: the settings stay the root's first child, and the index stays good.
                pugi::xml_node settings = MakeSettings();
                settings.remove_attributes();
                settings.remove_children();
                for (pugi::xml_attribute a : c.attributes()) settings.append_copy(a);
                for (pugi::xml_node n : c.children()) settings.append_copy(n);
                continue;
            }
            const bool removal = name == kRemoveName;
            const std::string kind = removal ? c.attribute("kind").value() : std::string(name);
            const std::string id = removal ? c.attribute("id").value() : IdOf(c);
            pugi::xml_node old;
            if (id.empty()) {
                const std::vector<pugi::xml_node> all = Objects(kind);
                if (!all.empty()) old = all.front();
            } else if (auto found = Indexed().byID.find(id); found != Indexed().byID.end()) {
                for (pugi::xml_node o : found->second)
                    if (kind == o.name()) old = o;
            }
            if (removal) {
                if (old) Remove(old);
            } else {
                old ? Replace(old, c) : Append(c);
            }
        }
        ++logRecords_;
    }
    replaying_ = false;
    modified_ = wasModified;
    logEnd_ = at;
    return logRecords_ > before ? Tail::Applied : Tail::Same;
}

SaveResult Company::SaveChanges(const std::string& path) {
    if (!doc_) return {false, "there is no company to save", {}, {}};
    bool whole = untracked_ || generation_.empty() || path != path_;
    pugi::xml_document record;
    pugi::xml_node change = record.append_child("QBSimChange");
    if (pugi::xml_node settings = Settings()) change.append_copy(settings);
    for (pugi::xml_node o : dirty_) {
        whole = whole || IdOf(o).empty();
        change.append_copy(o);
    }
    for (const auto& [kind, id] : removed_) {
        pugi::xml_node r = change.append_child(kRemoveName);
        r.append_attribute("kind").set_value(kind.c_str());
        if (!id.empty()) r.append_attribute("id").set_value(id.c_str());
    }
    StringWriter text;
    if (logEnd_ == 0) text.text = LogHeader();
    record.save(text, kIndent, pugi::format_default | pugi::format_no_declaration,
                pugi::encoding_utf8);
    // A log past half the base costs more to read than the base does to write.
    if (whole || !change.first_child() ||
        logEnd_ + text.text.size() > std::max<std::uint64_t>(baseSize_ / 2, 256 * 1024))
        return SaveFile(path);
    std::error_code ec;
    const fs::perms perms = fs::status(fs::path(path), ec).permissions();
    if (!ec && (perms & fs::perms::owner_write) == fs::perms::none)
        return {false, "the company file " + path + " is read-only; nothing was changed", {}, {}};
    const fs::path logPath = fs::path(LogPathOf(path));
    if (logEnd_ > 0) {
        // A record a writer did not finish goes before this one is added.
        const std::uintmax_t size = fs::file_size(logPath, ec);
        if (ec) return SaveFile(path);
        if (size != logEnd_) fs::resize_file(logPath, logEnd_, ec);
        if (ec) return {false, "could not write " + logPath.string() + ": " + ec.message(), {}, {}};
    }
    {
        std::ofstream out(logPath,
                          std::ios::binary | (logEnd_ > 0 ? std::ios::app : std::ios::trunc));
        // Windows keeps a deleted file's name until its last handle is closed ("If a file cannot
        // be deleted, its name cannot be reused", Microsoft's "Closing and Deleting Files"), so
        // a log deleted while a reader held it may not be made again yet: a full save instead.
        if (!out.is_open() && logEnd_ == 0) return SaveFile(path);
        out.write(text.text.data(), static_cast<std::streamsize>(text.text.size()));
        out.flush();
        out.close();
        if (out.fail()) return {false, "could not write " + logPath.string(), {}, {}};
    }
    logEnd_ += text.text.size();
    ++logRecords_;
    logStamp_ = StampOf(logPath.string());
    dirty_.clear();
    removed_.clear();
    SaveResult result;
    result.logged = true;
    return result;
}

}  // namespace pelmark::sim
