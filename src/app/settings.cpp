// Reads Pelmark.ini into a form's controls, saves the forms' settings back, and checks numbers.
#include "app/settings.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <string_view>
#include <variant>

#include "app/context.h"
#include "app/fieldLists.h"
#include "app/logs.h"
#include "app/text.h"
#include "app/version.h"
#include "ui/form.h"
#include "ui/frmMain.h"

namespace pelmark {

namespace {

using ui::Control;
using ui::ControlKind;

constexpr const char* kNoSelection = "--None--";
constexpr const char* kKeepDefault = "--Default--";

void EnsurePaths(App& app) {
    const std::string base = app.folders.data + kProductName;
    if (app.settings.path.empty()) app.settings.path = base + ".ini";
    if (app.settings.tempPath.empty()) app.settings.tempPath = base + ".ino";
}

enum class LineKind { Comment, Header, Record, Invalid };

LineKind Classify(const std::string& line) {
    if (line.empty()) return LineKind::Comment;
    switch (line[0]) {
        case ';':
            return LineKind::Comment;
        case '[':
            return LineKind::Header;
        case '*':
        case '#':
        case '!':
            return LineKind::Comment;
        default:
            break;
    }
    return line.find('=') != std::string::npos ? LineKind::Record : LineKind::Invalid;
}

std::string SectionName(const std::string& header) {
    size_t close = header.find(']');
    return Trim(header.substr(1, close == std::string::npos ? std::string::npos : close - 1));
}

std::optional<int> ParseIndex(const std::string& text) {
    std::string t = Trim(text);
    int n = 0;
    auto [end, ec] = std::from_chars(t.data(), t.data() + t.size(), n);
    if (t.empty() || ec != std::errc() || end != t.data() + t.size() || n < 0) return {};
    return n;
}

// The three key forms: name, name(index) and name[id].
struct Key {
    std::string name;
    int index = -1;
    std::optional<std::string> tag;
};

// The key, or the log text that explains why it cannot be used.
std::variant<Key, std::string> ParseKey(const std::string& key, int recNo) {
    Key k;
    if (size_t open = key.find('('); open != std::string::npos) {
        size_t close = key.find(')', open);
        std::optional<int> index;
        if (close != std::string::npos) index = ParseIndex(key.substr(open + 1, close - open - 1));
        if (!index) return "Invalid Control Array Ini=" + key + ", rec#=" + std::to_string(recNo);
        k.name = Trim(key.substr(0, open));
        k.index = *index;
        return k;
    }
    if (size_t open = key.find('['); open != std::string::npos) {
        size_t close = key.find(']', open);
        if (close == std::string::npos) {
            return "Invalid Control ID Ini=" + key + ", rec#=" + std::to_string(recNo);
        }
        k.name = Trim(key.substr(0, open));
        k.tag = key.substr(open + 1, close - open - 1);
        return k;
    }
    k.name = key;
    return k;
}

// Settings of controls that later versions of the form no longer carry: still accepted, so
// that an old settings file reads without a report, but not applied.
bool IsRetiredSetting(const std::string& name) {
    static constexpr std::string_view kPriceByQty = "txtFilePriceByQty";
    return EqualsNoCase(name, "cboAdvCustType") ||
           (name.size() >= kPriceByQty.size() &&
            EqualsNoCase(std::string_view(name).substr(0, kPriceByQty.size()), kPriceByQty));
}

bool IsSetValue(const std::string& value) {
    return value == "1" || StartsWith(Upper(value), "T");
}

// A number read from the file as an up-down value; out-of-range numbers stop at the int limits.
int ToInt(const std::string& text) {
    const double n = LeadingNumber(text);
    if (!(n > std::numeric_limits<int>::min())) return std::numeric_limits<int>::min();
    if (!(n < std::numeric_limits<int>::max())) return std::numeric_limits<int>::max();
    return static_cast<int>(n);
}

// Keeps an up-down in step with the label it sets, so both show the value that was read.
void SyncUpDowns(ui::Form& form, const Control& label) {
    if (!IsNumeric(label.caption)) return;
    for (Control& c : form.controls()) {
        if (c.kind == ControlKind::UpDown && EqualsNoCase(c.buddy, label.name)) {
            c.value = ToInt(label.caption);
        }
    }
}

// Applies one value to a control; false when the control cannot take it.
bool Apply(ui::Form& form, Control& c, const std::string& value) {
    switch (c.kind) {
        case ControlKind::CheckBox:
            c.value = IsSetValue(value) ? 1 : 0;
            return true;
        case ControlKind::OptionButton:
            form.SetOption(c, IsSetValue(value));
            return true;
        case ControlKind::TextBox:
            c.text = value;
            return true;
        case ControlKind::ComboBox: {
            if (value.empty() || EqualsNoCase(value, kKeepDefault)) return true;
            if (EqualsNoCase(value, kNoSelection)) {
                c.listIndex = -1;
                c.text.clear();
                return true;
            }
            for (size_t i = 0; i < c.list.size(); ++i) {
                if (EqualsNoCase(c.list[i], value)) {
                    c.listIndex = static_cast<int>(i);
                    c.text = c.list[i];
                    return true;
                }
            }
            // Not in the list (yet): the lists come from QuickBooks and may load later, so the
            // value waits in the text for a later fill to select it and for a save to keep it.
            c.listIndex = -1;
            c.text = value;
            return IsCompanyListCombo(c.name);
        }
        case ControlKind::ListBox: {
            c.selected.assign(c.list.size(), false);
            bool ok = true;
            if (Trim(value).empty()) return true;
            for (const std::string& piece : Split(value, ',')) {
                std::optional<int> i = ParseIndex(piece);
                if (i && *i < static_cast<int>(c.list.size())) {
                    c.selected[*i] = true;
                } else {
                    ok = false;
                }
            }
            return ok;
        }
        case ControlKind::Label:
            c.caption = value;
            SyncUpDowns(form, c);
            return true;
        case ControlKind::CommandButton:
        case ControlKind::Frame:
            c.caption = value;
            return true;
        case ControlKind::UpDown:
            if (!IsNumeric(value)) return false;
            c.value = ToInt(value);
            return true;
        case ControlKind::Grid:
        case ControlKind::TabStrip:
        case ControlKind::ProgressBar:
            return false;
    }
    return false;
}

std::string JoinLines(const std::vector<std::string>& lines) {
    std::string out;
    for (const std::string& line : lines) {
        if (!out.empty()) out += kCrLf;
        out += line;
    }
    return out;
}

// "error number description", numbered as the classic runtime numbers these failures.
std::string FileErrorText(const FileResult& r) {
    int number = 75;
    std::string words = "Path/File access error";
    if (r.status == FileStatus::NotFound) {
        number = 53;
        words = "File not found";
    } else if (r.status == FileStatus::HeldByOther) {
        number = 70;
        words = "Permission denied";
    }
    return std::to_string(number) + " " + (r.error.empty() ? words : r.error);
}

std::string SettingKey(const Control& c) {
    if (c.index >= 0) return c.name + "(" + std::to_string(c.index) + ")";
    if (!c.tag.empty()) return c.name + "[" + c.tag + "]";
    return c.name;
}

std::string SettingValue(const Control& c) {
    switch (c.kind) {
        case ControlKind::CheckBox:
            return std::to_string(c.value);
        case ControlKind::OptionButton:
            return c.value != 0 ? "True" : "False";
        case ControlKind::TextBox:
            return c.text;
        case ControlKind::ComboBox:
            if (c.listIndex >= 0 && c.listIndex < static_cast<int>(c.list.size())) {
                // The empty entry of a list means no choice, as no selection does.
                return c.list[c.listIndex].empty() ? kNoSelection : c.list[c.listIndex];
            }
            return c.text.empty() ? kNoSelection : c.text;
        case ControlKind::ListBox: {
            std::string out;
            for (size_t i = 0; i < c.selected.size(); ++i) {
                if (!c.selected[i]) continue;
                if (!out.empty()) out += ",";
                out += std::to_string(i);
            }
            return out;
        }
        case ControlKind::UpDown:
            return std::to_string(c.value);
        case ControlKind::Label:
        case ControlKind::CommandButton:
        case ControlKind::Frame:
        case ControlKind::Grid:
        case ControlKind::TabStrip:
        case ControlKind::ProgressBar:
            return c.caption;
    }
    return {};
}

// A record is one line: a line break inside a value would read back as an invalid record.
std::string OneRecordLine(std::string value) {
    value = ReplaceAll(std::move(value), "\r\n", " ");
    value = ReplaceAll(std::move(value), "\r", " ");
    return ReplaceAll(std::move(value), "\n", " ");
}

// UTF-8 of a code point.
void AppendUtf8(std::string& out, unsigned cp) {
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (cp >> 18));
        out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
}

bool IsUtf8(std::string_view s) {
    for (std::size_t i = 0; i < s.size();) {
        const auto c = static_cast<unsigned char>(s[i]);
        const std::size_t n = c < 0x80         ? 1
                              : (c >> 5) == 6  ? 2
                              : (c >> 4) == 14 ? 3
                              : (c >> 3) == 30 ? 4
                                               : 0;
        if (n == 0 || i + n > s.size()) return false;
        for (std::size_t k = 1; k < n; ++k)
            if ((static_cast<unsigned char>(s[i + k]) & 0xC0) != 0x80) return false;
        i += n;
    }
    return true;
}

// The settings file as UTF-8 text. Notepad saves "Unicode" as UTF-16 with a byte-order mark and
// older Windows editors save the ANSI code page; both are read. What is not text at all gets
// its encoding named in `problem` and no text.
std::optional<std::string> DecodeSettings(std::string_view raw, std::string* problem) {
    auto starts = [&](std::string_view bom) { return raw.substr(0, bom.size()) == bom; };
    if (starts(std::string_view("\xFF\xFE\0\0", 4)) ||
        starts(std::string_view("\0\0\xFE\xFF", 4))) {
        *problem = "it is UTF-32; save it as UTF-8 or UTF-16 (Unicode)";
        return std::nullopt;
    }
    std::string out;  // outlives `raw`, which points into it once UTF-16 is decoded
    if (starts("\xFF\xFE") || starts("\xFE\xFF")) {
        const bool little = raw[0] == '\xFF';
        for (std::size_t i = 2; i + 1 < raw.size(); i += 2) {
            const auto a = static_cast<unsigned char>(raw[i]),
                       b = static_cast<unsigned char>(raw[i + 1]);
            unsigned unit = little ? a | (b << 8) : (a << 8) | b;
            if (unit >= 0xD800 && unit < 0xDC00 && i + 3 < raw.size()) {
                const auto c = static_cast<unsigned char>(raw[i + 2]),
                           d = static_cast<unsigned char>(raw[i + 3]);
                const unsigned low = little ? c | (d << 8) : (c << 8) | d;
                if (low >= 0xDC00 && low < 0xE000) {
                    unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
                    i += 2;
                }
            }
            AppendUtf8(out, unit);
        }
        raw = out;
        if (raw.find('\0') == std::string_view::npos) return out;
    }
    if (raw.find('\0') != std::string_view::npos) {
        *problem = raw.size() > 1 && (raw[1] == '\0' || raw[0] == '\0')
                       ? "it looks like UTF-16 without a byte-order mark; save it as UTF-8 or "
                         "as UTF-16 (Unicode) from Notepad"
                       : "it holds binary data, not text";
        return std::nullopt;
    }
    if (IsUtf8(raw)) return std::string(raw);
    out.clear();  // Windows-1252 read as Latin-1, which agrees on every letter it has
    for (char c : raw) AppendUtf8(out, static_cast<unsigned char>(c));
    return out;
}

// A line as it may be shown: control characters and stray bytes become "?".
std::string Printable(std::string_view line) {
    std::string out;
    for (char c : line) out += static_cast<unsigned char>(c) < 0x20 || c == 0x7F ? '?' : c;
    return out.size() > 120 ? out.substr(0, 120) + "..." : out;
}

}  // namespace

void ReadIni(App& app, ui::Form& form, const ReadIniOptions& options) {
    DebugLog(app, "Read Ini Entered ", 5);
    EnsurePaths(app);
    SettingsFile& ini = app.settings;
    ini.notFoundControls.clear();
    ini.notFoundValues.clear();
    ini.version.clear();
    ini.records.clear();
    ini.loaded = false;

    std::optional<std::string> text = app.sys.files->ReadAll(ini.path);
    if (!text) {
        // First run (or a data folder that is gone): carry on with the form's own defaults.
        ini.notFoundValues = ini.path + " ini value/folder not found ";
        DoErrorsNoReturn(app, std::string("WARNING\t") + ini.notFoundValues, kContinueOrTerminate);
        DebugLog(app, "Read ini Exit ", 5);
        return;
    }

    std::string problem;
    std::optional<std::string> decoded = DecodeSettings(*text, &problem);
    if (!decoded) {
        CloseWMsg(app, std::string(kProductName) + " cannot read the settings file " + ini.path +
                           ": " + problem + ".");
    }
    std::vector<std::string> lines = SplitLines(*decoded);
    for (std::string& line : lines) line = TrimWs(line);
    for (size_t i = 0; i < lines.size() && i < 4; ++i) {
        if (StartsWith(Upper(lines[i]), ";VER=")) ini.version = lines[i].substr(5);
    }
    // Record numbers in messages are the user's line numbers, whether or not a header is forced.
    int firstLineNo = 1;
    if (!lines.empty() && Classify(lines[0]) != LineKind::Header) {
        lines.insert(lines.begin(), "[frmMain]");
        firstLineNo = 0;
        DebugLog(app, "Read ini forced [frmMain]", 1);
    }
    ini.records = lines;
    ini.loaded = true;

    // A malformed line stops the program before any control is touched.
    for (size_t i = 0; i < lines.size(); ++i) {
        if (Classify(lines[i]) == LineKind::Invalid) {
            CloseWMsg(app, std::string(kProductName) + " invalid ini record #=" +
                               std::to_string(firstLineNo + static_cast<int>(i)) + kCrLf +
                               Printable(lines[i]) + kCrLf + "Line " +
                               std::to_string(firstLineNo + static_cast<int>(i)) + " of " +
                               ini.path +
                               " is neither a [section], a comment nor a name=value record. "
                               "Correct or delete that line, or delete the file to start "
                               "from the defaults.");
        }
    }

    std::vector<std::string> notFoundControls, notFoundValues;
    std::string section;
    for (size_t i = 0; i < lines.size(); ++i) {
        const std::string& line = lines[i];
        const int recNo = firstLineNo + static_cast<int>(i);
        LineKind kind = Classify(line);
        if (kind == LineKind::Header) section = SectionName(line);
        if (kind != LineKind::Record || !EqualsNoCase(section, form.name())) continue;

        size_t eq = line.find('=');
        const std::string keyText = Trim(line.substr(0, eq));
        const std::string value = Trim(line.substr(eq + 1));
        auto parsed = ParseKey(keyText, recNo);
        if (auto* problem = std::get_if<std::string>(&parsed)) {
            DebugLog(app, *problem, 0);
            continue;
        }
        const Key& key = std::get<Key>(parsed);
        if (!options.only.empty()) {
            bool wanted = false;
            for (const std::string& name : options.only) wanted |= EqualsNoCase(name, key.name);
            if (!wanted) continue;
        }
        if (IsRetiredSetting(key.name)) continue;

        Control* control =
            key.tag ? form.FindByTag(key.name, *key.tag) : form.Find(key.name, key.index);
        if (control == nullptr) {
            notFoundControls.push_back("Rec#=" + std::to_string(recNo) + " form [" + form.name() +
                                       "], record=" + line);
            continue;
        }
        // A number box given text is a value of the wrong type: kept, and reported with the
        // values not found, once.
        const std::optional<std::string> wrongType = ui::CheckMainField(key.name, value);
        if (!Apply(form, *control, value) || wrongType) {
            notFoundValues.push_back(keyText + "(" + value + ")" +
                                     (wrongType ? ": " + *wrongType : std::string()));
            DebugLog(app, "Read Ini:settings not found " + keyText + "(" + value + ")", 1);
        }
    }
    ini.notFoundControls = JoinLines(notFoundControls);
    ini.notFoundValues = JoinLines(notFoundValues);

    if (options.reportNotFound && !ini.notFoundControls.empty()) {
        DoErrorsNoReturn(app,
                         "INFO\t" + ini.notFoundControls + kCrLf +
                             "The following INI controls were not found. Usaully occurs when "
                             "updating versions. Continue?",
                         kContinueOrTerminate);
    }
    if (options.reportNotFound && !ini.notFoundValues.empty()) {
        DoErrorsNoReturn(app,
                         std::string("INFO\tThe settings INI value(s) for the below were not "
                                     "found: ") +
                             kCrLf + ini.notFoundValues + kCrLf +
                             "This can occur if you changed QB",
                         kContinueOrTerminate);
    }
    DebugLog(app, "Read ini Exit ", 5);
}

void SaveSettings(App& app, const std::vector<const ui::Form*>& forms) {
    DebugLog(app, "Save Settings Entered ", 5);
    EnsurePaths(app);
    FileSystem& files = *app.sys.files;
    const std::string& path = app.settings.path;
    const std::string& temp = app.settings.tempPath;

    if (files.Exists(temp)) {
        if (FileResult r = files.Remove(temp); !r.ok()) {
            DebugLog(app, "Save settings do it err=" + FileErrorText(r), 0);
        }
    }
    if (files.Exists(path)) {
        if (FileResult r = files.Rename(path, temp); !r.ok()) {
            // Without the move the current file is the only good copy. Keep a copy of it as
            // the backup when that works; either way the save goes on, because refusing it
            // would lose the settings the user just asked to keep, while the old ones are lost
            // only if the write below fails as well.
            DebugLog(app, "Save settings do it err=" + FileErrorText(r), 0);
            if (FileResult c = files.Copy(path, temp); !c.ok()) {
                DebugLog(app, "Save settings do it err=" + FileErrorText(c), 0);
            }
        }
    }

    std::string out = ";Ver=" + VersionText() + kCrLf;
    for (const ui::Form* form : forms) {
        out += "[" + form->name() + "]" + kCrLf;
        for (const Control& c : form->controls()) {
            if (!c.holdsSetting) continue;
            out += SettingKey(c) + "=" + OneRecordLine(SettingValue(c)) + kCrLf;
        }
    }
    out += std::string("[]") + kCrLf;

    for (;;) {
        FileResult r = files.WriteAll(path, out);
        if (r.ok()) break;
        if (r.status == FileStatus::HeldByOther) {
            int answer = ShowMessage(app, path + " is held by another process, retry?",
                                     kMbYesNo | kMbQuestion);
            if (answer == kAnsYes) continue;
            CloseEnd(app);
        }
        DebugLog(app, "Save settings do it err=" + FileErrorText(r), 0);
        return;
    }
    DebugLog(app, "Save Settings Exit", 5);
}

bool ValidateField(const std::string& value, const FieldLimits& limits, std::string* reason) {
    auto fail = [&](const char* why) {
        if (reason != nullptr) *reason = why;
        return false;
    };
    const std::string v = Trim(ReplaceAll(ReplaceAll(value, ",", ""), "$", ""));
    if (v.empty()) {
        if (!limits.allowBlank) return fail("Is Blank");
    } else {
        if (!IsNumeric(v)) return fail("Not numeric");
        const double n = CleanNumber(v);
        if (limits.wholeNumber && n != std::trunc(n)) return fail("Not numeric");
        if (n < limits.min || (limits.max && n > *limits.max)) return fail("Out of valid Range");
    }
    if (reason != nullptr) reason->clear();
    return true;
}

std::optional<std::string> CheckBlankLines(const std::string& text) {
    std::string reason;
    if (ValidateField(text, FieldLimits{0, 9, false, true}, &reason)) return std::nullopt;
    return std::string("Invalid number. Must be between ") + "0" + "-" + "9" + " " + reason;
}

std::optional<std::string> CheckDebugLevel(const std::string& text) {
    if (ValidateField(text, FieldLimits{0, std::nullopt, false, false}, nullptr)) {
        return std::nullopt;
    }
    return "Invalid " + text;
}

}  // namespace pelmark
