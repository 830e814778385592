#include "qx/text/match.h"

namespace QX {

namespace {

// --- Replacing -----------------------------------------------------------------------------------

// The rule as it is told, with all its blocks.
template <typename Text>
Text replace_stepwise(Text text, Text const& from, Text const& to) {
    for (unsigned int at; (at = text.find(from)) != Text::npos;) {
        text = text.substr(0, at) + to + text.substr(at + from.length(), Text::npos);
    }
    return text;
}

template <typename Text>
Text replace_once_through(Text const& text, Text const& from, Text const& to) {
    if (from.empty()) return text.empty() ? text : to + text;
    Text result;
    unsigned int start = 0;
    for (unsigned int at; (at = text.find(from, start)) != Text::npos;) {
        result.append(text.data() + start, at - start);
        result.append(to);
        start = at + from.length();
    }
    result.append(text.data() + start, text.length() - start);
    return Text(static_cast<Text const&>(result));
}

template <typename Text>
bool ends_with(Text const& text, Text const& end) {
    if (text.length() < end.length() || text.back() != end.back()) return false;
    return text.compare(text.length() - end.length(), end.length(), end) == 0;
}

// The same result in one pass. Matches are of one length, so that the first to end is the first
// to begin: `done` has none but at its very end, and what replaces it is read again from `ahead`,
// which is kept backwards.
template <typename Text>
Text replace_rereading(Text const& text, Text const& from, Text const& to) {
    Text done(text, 0, text.find(from));
    Text ahead;
    unsigned int next = done.length();
    while (!ahead.empty() || next < text.length()) {
        if (ahead.empty()) {
            done += text[next++];
        } else {
            done += ahead.back();
            ahead.resize(ahead.length() - 1);
        }
        if (!ends_with(done, from)) continue;
        done.resize(done.length() - from.length());
        for (unsigned int i = to.length(); i-- > 0;) ahead += to[i];
    }
    return Text(static_cast<Text const&>(done));
}

template <typename Text>
Text replace_all(Text&& text, Text const& from, Text const& to) {
    if (text.find(from) == Text::npos) return static_cast<Text&&>(text);
    if (from.empty() || to.find(from) != Text::npos) return replace_once_through(text, from, to);
    if (QX_UNLIKELY(allocation_hook)) return replace_stepwise(static_cast<Text&&>(text), from, to);
    return replace_rereading(text, from, to);
}

// --- Matching ------------------------------------------------------------------------------------

template <typename Unit>
Unit fold(Unit unit) {
    return unit >= 'a' && unit <= 'z' ? static_cast<Unit>(unit - 32) : unit;
}

template <typename Unit>
bool is_match_all(Unit const* pattern) {
    if (pattern[0] != '*') return false;
    return pattern[1] == 0 || (pattern[1] == '.' && pattern[2] == '*' && pattern[3] == 0);
}

// Only the last `*` need ever take more: an earlier one has its match already.
template <typename Unit>
bool matches(Unit const* name, Unit const* pattern) {
    if (is_match_all(pattern)) return true;
    Unit const* after_star = nullptr;
    Unit const* retry = nullptr;
    while (*name) {
        if (*pattern == '*') {
            after_star = ++pattern;
            retry = name;
            if (is_match_all(pattern)) return true;  // what follows a `*` is a pattern of its own
        } else if (*pattern && (*pattern == '?' || fold(*pattern) == fold(*name))) {
            ++pattern;
            ++name;
        } else {
            if (!after_star) return false;
            pattern = after_star;
            name = ++retry;
        }
    }
    while (*pattern == '*') ++pattern;
    return *pattern == 0;
}

}  // namespace

String replace(String text, String const& from, String const& to) {
    return replace_all(static_cast<String&&>(text), from, to);
}

UniString replace(UniString text, UniString const& from, UniString const& to) {
    return replace_all(static_cast<UniString&&>(text), from, to);
}

bool matches_dos_pattern(char const* name, char const* pattern) {
    return matches(name, pattern);
}

bool matches_dos_pattern(wchar_t const* name, wchar_t const* pattern) {
    return matches(name, pattern);
}

}  // namespace QX
