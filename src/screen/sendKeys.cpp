// Parses SendKeys notation into key strokes, naming the position of anything malformed.
#include "screen/sendKeys.h"

#include <cctype>
#include <cstdint>
#include <string>

namespace pelmark::screen {
namespace {

// Names SendKeys accepts in braces (without regard to case), with the virtual keys they press.
struct NamedKey {
    std::string_view name;
    int vk;
};
constexpr NamedKey kNamedKeys[] = {
    {"BACKSPACE", kVkBack},   {"BS", kVkBack},       {"BKSP", kVkBack},
    {"BREAK", 0x03},  // VK_CANCEL: Ctrl+Break
    {"CAPSLOCK", kVkCapital}, {"DELETE", kVkDelete}, {"DEL", kVkDelete},
    {"DOWN", kVkDown},        {"END", kVkEnd},       {"ENTER", kVkReturn},
    {"ESC", kVkEscape},       {"HELP", 0x2F},        {"HOME", kVkHome},
    {"INSERT", kVkInsert},    {"INS", kVkInsert},    {"LEFT", kVkLeft},
    {"NUMLOCK", 0x90},        {"PGDN", kVkNext},     {"PGUP", kVkPrior},
    {"PRTSC", 0x2C},          {"RIGHT", kVkRight},   {"SCROLLLOCK", 0x91},
    {"TAB", kVkTab},          {"UP", kVkUp},         {"ADD", 0x6B},
    {"SUBTRACT", 0x6D},       {"MULTIPLY", 0x6A},    {"DIVIDE", 0x6F},
};

// A repeat beyond this is a typing mistake, not a request for that many keys.
constexpr long kMaxRepeat = 1000;

struct Mods {
    bool shift = false, ctrl = false, alt = false;
    bool any() const { return shift || ctrl || alt; }
    Mods operator|(const Mods& o) const { return {shift || o.shift, ctrl || o.ctrl, alt || o.alt}; }
};

std::string Quote(std::string_view s) {
    return "\"" + std::string(s) + "\"";
}

std::string UpperAscii(std::string_view s) {
    std::string r(s);
    for (char& c : r) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return r;
}

// Virtual key of a braced name, 0 when it is not one.
int NamedVk(std::string_view name) {
    std::string up = UpperAscii(name);
    for (const NamedKey& k : kNamedKeys)
        if (k.name == up) return k.vk;
    if (up.size() >= 2 && up.size() <= 3 && up[0] == 'F') {
        int n = 0;
        for (size_t i = 1; i < up.size(); ++i) {
            if (!std::isdigit(static_cast<unsigned char>(up[i]))) return 0;
            n = n * 10 + (up[i] - '0');
        }
        if (n >= 1 && n <= 16 && up[1] != '0') return kVkF1 + n - 1;
    }
    return 0;
}

class Parser {
  public:
    explicit Parser(std::string_view text) : s_(text) {}

    SendKeysParse Run() {
        Sequence(0, {});
        if (result_.ok && pos_ < s_.size()) Fail("\")\" has no opening \"(\"", pos_);
        if (!result_.ok) result_.strokes.clear();
        return std::move(result_);
    }

  private:
    void Fail(std::string what, size_t where) {
        if (!result_.ok) return;
        result_.ok = false;
        result_.error = std::move(what);
        result_.position = where;
    }

    // A literal character under modifiers: letters, digits and the space are pressed as their
    // keys (Alt+A is the A key with Alt down); without modifiers the character is typed.
    void Char(char c, Mods m) {
        KeyStroke k;
        k.shift = m.shift, k.ctrl = m.ctrl, k.alt = m.alt;
        unsigned char u = static_cast<unsigned char>(c);
        if (m.any() && std::isalnum(u) && u < 0x80) {
            k.vk = std::toupper(u);
        } else if (m.any() && c == ' ') {
            k.vk = kVkSpace;
        } else {
            k.ch = c;
        }
        result_.strokes.push_back(k);
    }

    void Key(int vk, Mods m) {
        KeyStroke k;
        k.vk = vk;
        k.shift = m.shift, k.ctrl = m.ctrl, k.alt = m.alt;
        result_.strokes.push_back(k);
    }

    // Items up to the end of the text or, inside a group, up to its ")".
    void Sequence(int depth, Mods held) {
        while (result_.ok && pos_ < s_.size()) {
            if (s_[pos_] == ')') {
                if (depth == 0) Fail("\")\" has no opening \"(\"", pos_);
                return;
            }
            Item(held);
        }
    }

    // One key, braced key or group, with the modifiers written in front of it.
    void Item(Mods held) {
        Mods m;
        size_t modPos = pos_;
        while (pos_ < s_.size() && (s_[pos_] == '+' || s_[pos_] == '^' || s_[pos_] == '%')) {
            if (s_[pos_] == '+') m.shift = true;
            if (s_[pos_] == '^') m.ctrl = true;
            if (s_[pos_] == '%') m.alt = true;
            modPos = pos_++;
        }
        Mods all = held | m;
        if (pos_ >= s_.size() || s_[pos_] == ')') {
            Fail("modifier " + Quote(s_.substr(modPos, 1)) + " is not followed by a key", modPos);
            return;
        }
        char c = s_[pos_];
        switch (c) {
            case '(':
                Group(all);
                break;
            case '{':
                Braced(all);
                break;
            case '}':
                Fail("\"}\" has no opening \"{\"", pos_);
                break;
            case '~':
                Key(kVkReturn, all);
                ++pos_;
                break;
            default:
                Char(c, all);
                ++pos_;
        }
    }

    // Groups nest by recursion; a text of thousands of "(" must get an answer, not exhaust
    // the stack. No key sequence a person writes comes near the limit.
    static constexpr int kMaxNesting = 32;

    void Group(Mods all) {
        size_t open = pos_++;
        if (nesting_ == kMaxNesting) {
            Fail("groups \"(\" are nested more than " + std::to_string(kMaxNesting) + " deep",
                 open);
            return;
        }
        size_t before = result_.strokes.size();
        ++nesting_;
        Sequence(1, all);
        --nesting_;
        if (!result_.ok) return;
        if (pos_ >= s_.size()) {
            Fail("\"(\" has no closing \")\"", open);
            return;
        }
        if (result_.strokes.size() == before) {
            Fail("empty group \"()\"", open);
            return;
        }
        ++pos_;  // the ")"
    }

    // "{NAME}", "{NAME n}", "{c}" for a character itself ("{(}", "{{}", "{}}"), "{c n}".
    void Braced(Mods all) {
        size_t open = pos_;
        size_t start = open + 1;
        // "{}}" (or "{} 3}") is the closing brace itself, so the end is searched after it.
        bool braceItself = start + 1 < s_.size() && s_[start] == '}' &&
                           (s_[start + 1] == '}' || s_[start + 1] == ' ');
        size_t from = braceItself ? start + 1 : start;
        size_t close = s_.find('}', from);
        if (close == std::string_view::npos) {
            Fail("\"{\" has no closing \"}\"", open);
            return;
        }
        std::string_view body = s_.substr(start, close - start);
        if (body.empty()) {
            Fail("empty braces \"{}\"", open);
            return;
        }
        std::string_view name = body;
        long count = 1;
        size_t blank = body.rfind(' ');
        if (body.size() > 1 && blank != std::string_view::npos && blank >= 1) {
            std::string_view digits = body.substr(blank + 1);
            bool numeric = !digits.empty() && digits.size() <= 6;
            for (char d : digits) numeric = numeric && std::isdigit(static_cast<unsigned char>(d));
            if (!numeric) {
                Fail("bad repeat count in " + Quote(s_.substr(open, close - open + 1)), open);
                return;
            }
            count = std::stol(std::string(digits));
            if (count > kMaxRepeat) {
                Fail("repeat count above " + std::to_string(kMaxRepeat) + " in " +
                         Quote(s_.substr(open, close - open + 1)),
                     open);
                return;
            }
            name = body.substr(0, blank);
        }
        int vk = 0;
        if (name.size() > 1) {
            vk = NamedVk(name);
            if (vk == 0) {
                Fail("unknown key name " + Quote(s_.substr(open, close - open + 1)), open);
                return;
            }
        }
        for (long i = 0; i < count; ++i) {
            if (vk != 0)
                Key(vk, all);
            else
                Char(name[0], all);
        }
        pos_ = close + 1;
    }

    std::string_view s_;
    size_t pos_ = 0;
    int nesting_ = 0;  // groups open around the current position
    SendKeysParse result_;
};

}  // namespace

SendKeysParse ParseSendKeys(std::string_view keys) {
    return Parser(keys).Run();
}

}  // namespace pelmark::screen
