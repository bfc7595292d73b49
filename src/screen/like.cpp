// The classic "Like" wildcard comparison that window titles and classes are matched with.
#include <algorithm>
#include <cctype>
#include <string>
#include <vector>

#include "screen/WindowsStuff.h"

namespace pelmark::screen {
namespace {

enum class TokKind { Star, One, Digit, List, Char };

struct Tok {
    TokKind kind = TokKind::Char;
    char ch = 0;
    bool negated = false;
    std::vector<std::pair<char, char>> ranges;  // List: inclusive ranges
    bool empty = false;                         // "[]" matches no character at all
};

// Splits the pattern into tokens; false when a "[" is not closed.
bool Tokenize(std::string_view p, std::vector<Tok>& out) {
    for (size_t i = 0; i < p.size(); ++i) {
        char c = p[i];
        Tok t;
        if (c == '*') {
            // A run of stars matches what one star does.
            if (!out.empty() && out.back().kind == TokKind::Star) continue;
            t.kind = TokKind::Star;
        } else if (c == '?') {
            t.kind = TokKind::One;
        } else if (c == '#') {
            t.kind = TokKind::Digit;
        } else if (c == '[') {
            size_t close = p.find(']', i + 1);
            if (close == std::string_view::npos) return false;
            std::string_view body = p.substr(i + 1, close - i - 1);
            t.kind = TokKind::List;
            if (!body.empty() && body[0] == '!') {
                t.negated = true;
                body.remove_prefix(1);
            }
            if (body.empty() && !t.negated) t.empty = true;
            for (size_t k = 0; k < body.size(); ++k) {
                // "A-Z" is a range; a "-" first or last in the list is the character itself.
                if (k + 2 < body.size() && body[k + 1] == '-') {
                    t.ranges.emplace_back(body[k], body[k + 2]);
                    k += 2;
                } else {
                    t.ranges.emplace_back(body[k], body[k]);
                }
            }
            i = close;
        } else {
            t.kind = TokKind::Char;
            t.ch = c;
        }
        out.push_back(std::move(t));
    }
    return true;
}

bool InList(const Tok& t, char c) {
    unsigned char u = static_cast<unsigned char>(c);
    bool in = false;
    for (auto [lo, hi] : t.ranges)
        if (u >= static_cast<unsigned char>(lo) && u <= static_cast<unsigned char>(hi)) in = true;
    return in != t.negated;
}

bool MatchOne(const Tok& t, char c) {
    switch (t.kind) {
        case TokKind::One:
            return true;
        case TokKind::Digit:
            return std::isdigit(static_cast<unsigned char>(c)) != 0;
        case TokKind::List:
            return InList(t, c);
        case TokKind::Char:
            return t.ch == c;
        case TokKind::Star:
            break;
    }
    return false;
}

}  // namespace

bool Like(std::string_view text, std::string_view pattern) {
    std::vector<Tok> toks;
    if (!Tokenize(pattern, toks)) return false;
    // match[j]: the tokens so far match the first j characters of the text.
    std::vector<char> match(text.size() + 1, 0), next(text.size() + 1, 0);
    match[0] = 1;
    for (const Tok& t : toks) {
        std::fill(next.begin(), next.end(), 0);
        if (t.kind == TokKind::Star) {
            char seen = 0;
            for (size_t j = 0; j <= text.size(); ++j) {
                seen = seen || match[j];
                next[j] = seen;
            }
        } else if (t.kind == TokKind::List && t.empty) {
            next = match;
        } else {
            for (size_t j = 0; j < text.size(); ++j)
                if (match[j] && MatchOne(t, text[j])) next[j + 1] = 1;
        }
        match.swap(next);
    }
    return match[text.size()] != 0;
}

std::string LikeEscape(std::string_view text) {
    std::string r;
    r.reserve(text.size());
    for (char c : text) {
        if (c == '*' || c == '?' || c == '#' || c == '[') {
            r += '[';
            r += c;
            r += ']';
        } else {
            r += c;
        }
    }
    return r;
}

}  // namespace pelmark::screen
