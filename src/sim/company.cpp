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

Company::Company() = default;
Company::~Company() = default;
Company::Company(Company&&) noexcept = default;
Company& Company::operator=(Company&&) noexcept = default;

LoadResult Company::LoadText(std::string_view xml) {
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
    doc_ = std::move(doc);
    modified_ = false;
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
    std::ifstream in(fs::path(path), std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    if (!in || in.bad()) {
        result.status = LoadStatus::Unreadable;
        result.description = "the company file " + path + " could not be read";
        return result;
    }
    if (!bytes) return LoadText(text.str());
    *bytes = std::move(text).str();
    return LoadText(*bytes);
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
std::string Company::SaveText() const {
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

SaveResult Company::SaveFile(const std::string& path) const {
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
    std::string xml = SaveText();
#ifndef NDEBUG
    if (reuseSaved_ && xml != ToXml()) {
        std::fprintf(stderr, "qbsim: an object changed without a new EditSequence\n");
        std::abort();
    }
#endif
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
    std::vector<pugi::xml_node> out;
    for (pugi::xml_node e : Elements(Root())) {
        if (retName == e.name()) out.push_back(e);
    }
    return out;
}

std::vector<pugi::xml_node> Company::Items() const {
    std::vector<pugi::xml_node> out;
    for (pugi::xml_node e : Elements(Root())) {
        if (IsItemRet(e.name())) out.push_back(e);
    }
    return out;
}

// These run for every reference in every request, over every object of the company: the name
// is measured once per object, and no list of the objects is built.
pugi::xml_node Company::FindByListID(const std::vector<std::string_view>& retNames,
                                     std::string_view listID) const {
    for (pugi::xml_node e = Root().first_child(); e; e = e.next_sibling()) {
        const std::string_view name = e.name();
        if (std::find(retNames.begin(), retNames.end(), name) != retNames.end() &&
            e.child("ListID").text().get() == listID) {
            return e;
        }
    }
    return {};
}

pugi::xml_node Company::FindByFullName(const std::vector<std::string_view>& retNames,
                                       std::string_view fullName) const {
    for (pugi::xml_node e = Root().first_child(); e; e = e.next_sibling()) {
        const std::string_view name = e.name();
        if (std::find(retNames.begin(), retNames.end(), name) != retNames.end() &&
            SameText(FullNameOf(e), fullName)) {
            return e;
        }
    }
    return {};
}

pugi::xml_node Company::FindTxn(std::string_view kind, std::string_view txnID) const {
    std::string retName = std::string(kind) + "Ret";
    for (pugi::xml_node e : Root().children(retName.c_str())) {
        if (ChildText(e, "TxnID") == txnID) return e;
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

void Company::Touch(pugi::xml_node object) {
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

}  // namespace pelmark::sim
