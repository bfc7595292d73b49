// The sort journal's file format, its atomic save and the list of journals.
#include "app/journal.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "app/context.h"
#include "app/text.h"

namespace pelmark {

namespace {

constexpr const char* kFirstLine = "Pelmark sort journal 1";
constexpr const char* kTransactionKey = "transaction=";
constexpr const char* kChecksumKey = "end of journal, checksum=";
constexpr const char* kExtension = ".journal";

std::string Checksum(const std::string& text) {
    std::uint64_t h = 1469598103934665603ull;  // FNV-1a
    for (unsigned char c : text) h = (h ^ c) * 1099511628211ull;
    char out[20];
    std::snprintf(out, sizeof out, "%016llx", static_cast<unsigned long long>(h));
    return out;
}

// Values are one line each: a line feed in a custom-field value or a description is escaped.
std::string Escape(const std::string& v) {
    std::string out;
    for (char c : v) {
        if (c == '\\')
            out += "\\\\";
        else if (c == '\n')
            out += "\\n";
        else if (c == '\r')
            out += "\\r";
        else
            out += c;
    }
    return out;
}
std::string Unescape(const std::string& v) {
    std::string out;
    for (std::size_t i = 0; i < v.size(); ++i) {
        if (v[i] != '\\' || i + 1 == v.size()) {
            out += v[i];
            continue;
        }
        const char n = v[++i];
        out += n == 'n' ? '\n' : n == 'r' ? '\r' : n;
    }
    return out;
}

std::string Safe(const std::string& text) {
    std::string out;
    for (char c : text) out += std::isalnum(static_cast<unsigned char>(c)) || c == '-' ? c : '_';
    return out.substr(0, 40);
}

int KeptJournals(const App& app) {
    const std::string text = Trim(app.frmMain.Text("txtJournalsKept"));
    const int n = text.empty() ? 0 : std::atoi(text.c_str());
    return n > 0 ? n : kJournalsKeptDefault;
}

std::vector<std::string> JournalFiles(App& app) {
    std::vector<std::string> names;
    for (std::string& n : app.sys.files->ListFiles(JournalFolder(app)))
        if (n.size() > 8 && n.ends_with(kExtension)) names.push_back(std::move(n));
    std::sort(names.rbegin(), names.rend());  // their names start with the time
    return names;
}

}  // namespace

namespace {

// The journal's records in the order they are written: one value each, then lists.
constexpr std::pair<const char*, std::string Journal::*> kValues[] = {
    {"time", &Journal::time},
    {"company", &Journal::company},
    {"kind", &Journal::kind},
    {"txnID", &Journal::txnID},
    {"refNumber", &Journal::refNumber},
    {"editSequence", &Journal::editSequence},
    {"editSequenceAfter", &Journal::editSequenceAfter},
    {"state", &Journal::state},
};
constexpr std::pair<const char*, std::vector<std::string> Journal::*> kLists[] = {
    {"setting", &Journal::settings},
    {"order", &Journal::order},
    {"customField", &Journal::customFields},
};

}  // namespace

std::string JournalText(const Journal& j) {
    std::string t = std::string(kFirstLine) + "\n";
    auto put = [&](const char* key, const std::string& value) {
        t += std::string(key) + "=" + Escape(value) + "\n";
    };
    for (const auto& [key, member] : kValues) put(key, j.*member);
    for (const auto& [key, member] : kLists)
        for (const std::string& s : j.*member) put(key, s);
    t += std::string(kTransactionKey) + "\n" + j.transaction + "\n";
    return t + kChecksumKey + Checksum(t) + "\n";
}

JournalRead ParseJournal(const std::string& text) {
    JournalRead r;
    const std::size_t end = text.rfind(kChecksumKey);
    if (text.rfind(kFirstLine, 0) != 0 || end == std::string::npos ||
        TrimWs(text.substr(end + std::string(kChecksumKey).size())) !=
            Checksum(text.substr(0, end))) {
        r.error = "it is cut short or was edited";
        return r;
    }
    Journal& j = r.journal;
    std::size_t at = text.find('\n') + 1;
    while (at < end) {
        std::size_t eol = text.find('\n', at);
        const std::string line = text.substr(at, eol - at);
        at = eol + 1;
        if (line == kTransactionKey) {
            j.transaction = text.substr(at, end - at);
            if (!j.transaction.empty() && j.transaction.back() == '\n') j.transaction.pop_back();
            break;
        }
        const std::size_t eq = line.find('=');
        const std::string key = line.substr(0, eq), value = Unescape(line.substr(eq + 1));
        for (const auto& [name, member] : kValues)
            if (key == name) j.*member = value;
        for (const auto& [name, member] : kLists)
            if (key == name) (j.*member).push_back(value);
    }
    if (j.kind.empty() || j.txnID.empty() || j.transaction.empty()) {
        r.error = "it holds no transaction";
        return r;
    }
    r.ok = true;
    return r;
}

std::string JournalFolder(const App& app) {
    return AddBackslash(app.folders.data + "Journals");
}

bool SaveJournal(App& app, Journal& j, std::string& error) {
    FileSystem& fs = *app.sys.files;
    const std::string folder = JournalFolder(app);
    if (FileResult made = fs.MakeDir(folder); !made.ok()) {
        error = "cannot make the folder " + folder + ": " + made.error;
        return false;
    }
    const bool first = j.path.empty();
    if (first) {
        const LocalTime t = app.sys.clock->Now();
        char stamp[40];
        std::snprintf(stamp, sizeof stamp, "%04d-%02d-%02d %02d:%02d:%02d", t.year, t.month, t.day,
                      t.hour, t.minute, t.second);
        j.time = stamp;
        std::snprintf(stamp, sizeof stamp, "%04d%02d%02d-%02d%02d%02d-%03d", t.year, t.month, t.day,
                      t.hour, t.minute, t.second, t.millisecond);
        // A number after the time keeps two sorts in the same millisecond apart and in order.
        for (int n = 0; j.path.empty() || fs.Exists(j.path); ++n) {
            char number[16];
            std::snprintf(number, sizeof number, "-%02d-", n);
            j.path = folder + stamp + number + Safe(j.kind) + "-" + Safe(j.refNumber) + kExtension;
        }
    }
    // Written beside it and renamed over it: a crash leaves the old journal or the new one.
    const std::string temp = j.path + ".tmp";
    FileResult w = fs.WriteAll(temp, JournalText(j));
    if (w.ok()) w = fs.Rename(temp, j.path);
    if (!w.ok()) {
        error = "cannot write " + j.path + ": " + w.error;
        if (first) j.path.clear();
        return false;
    }
    if (first) {
        const std::vector<std::string> names = JournalFiles(app);
        for (std::size_t i = static_cast<std::size_t>(KeptJournals(app)); i < names.size(); ++i)
            fs.Remove(folder + names[i]);
    }
    return true;
}

JournalRead LoadJournal(App& app, const std::string& path) {
    JournalRead r;
    const std::optional<std::string> text = app.sys.files->ReadAll(path);
    if (!text) {
        r.error = "it cannot be read";
        return r;
    }
    r = ParseJournal(*text);
    r.journal.path = path;
    return r;
}

std::vector<Journal> ListJournals(App& app) {
    std::vector<Journal> out;
    for (const std::string& name : JournalFiles(app)) {
        JournalRead r = LoadJournal(app, JournalFolder(app) + name);
        if (!r.ok) r.journal.state = "damaged (" + r.error + ")";
        out.push_back(std::move(r.journal));
    }
    return out;
}

}  // namespace pelmark
