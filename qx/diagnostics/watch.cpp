#include "qx/diagnostics/watch.h"

namespace QX_WATCH {

namespace {

using QX::String;

bool is_kept_negative(int kind) {
    return kind == -5 || kind == -4;
}

// The least number stays: it has no positive.
void make_positive(int& kind) {
    if (kind < 0) kind = static_cast<int>(0u - static_cast<unsigned int>(kind));
}

unsigned long long number(char const* at, char const* end) {
    unsigned long long value = 0;
    for (; at < end && *at >= '0' && *at <= '9'; ++at)
        value = 10 * value + static_cast<unsigned long long>(*at - '0');
    return value;
}

void split(int& kind, String const& path, String& head, String& tail) {
    unsigned int const point = path.find('.');
    if (point == String::npos) {
        if (path.empty() || !is_kept_negative(kind)) make_positive(kind);
        head = path;
        tail = String();
        return;
    }
    String const rest = path.substr(point + 1);
    head = path.substr(0, point);
    tail = rest;
}

}  // namespace

void parse(int& kind, String const& path, String& head, String& tail, unsigned long long& index) {
    split(kind, path, head, tail);
    unsigned int const bracket = head.find('[');
    if (bracket == String::npos) return;
    index = number(head.c_str() + bracket + 1, head.c_str() + head.length() - 1);
    head = head.substr(0, bracket);
}

}  // namespace QX_WATCH
