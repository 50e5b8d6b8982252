#include "archive/namepattern.h"

#include <cstring>
#include <string_view>

namespace {

std::u32string folded(const QString& text)
{
    const QVector<uint> ucs4 = text.toCaseFolded().toUcs4();
    return std::u32string(ucs4.begin(), ucs4.end());
}

std::vector<std::u32string> split(const std::u32string& text)
{
    std::vector<std::u32string> parts;
    size_t from = 0;
    while (true) {
        const size_t slash = text.find(U'/', from);
        parts.push_back(text.substr(from, slash == std::u32string::npos ? slash : slash - from));
        if (slash == std::u32string::npos) return parts;
        from = slash + 1;
    }
}

// Matches c against the class that starts after the '[' at p; on success (class closed) sets
// next to the position after its ']'. An unclosed '[' is no class.
template<typename String>
bool inClass(const String& p, size_t at, char32_t c, bool& matched, size_t& next)
{
    size_t i = at;
    const bool negated = i < p.size() && (p[i] == U'!' || p[i] == U'^');
    if (negated) ++i;
    bool found = false;
    bool first = true;
    for (; i < p.size(); first = false) {
        if (p[i] == U']' && !first) {
            matched = found != negated;
            next = i + 1;
            return true;
        }
        char32_t low = p[i], high = p[i];
        if (i + 2 < p.size() && p[i + 1] == U'-' && p[i + 2] != U']') {
            high = p[i + 2];
            i += 3;
        } else {
            ++i;
        }
        if (low <= c && c <= high) found = true;
    }
    return false;
}

// One component against one pattern component: '*', '?' and classes. The classic walk that
// returns to the last '*' on a mismatch; it needs no deeper backtracking.
template<typename Pattern, typename Name>
bool componentMatches(const Pattern& p, const Name& s)
{
    size_t pi = 0, si = 0;
    size_t starP = SIZE_MAX, starS = 0;
    while (si < s.size()) {
        if (pi < p.size() && p[pi] == U'*') {
            while (pi < p.size() && p[pi] == U'*')
                ++pi;
            starP = pi;
            starS = si;
            continue;
        }
        if (pi < p.size()) {
            bool matched = false;
            size_t next = pi + 1;
            if (p[pi] == U'[' && inClass(p, pi + 1, char32_t(s[si]), matched, next)) {
                // a class
            } else {
                matched = p[pi] == U'?' || char32_t(p[pi]) == char32_t(s[si]);
                next = pi + 1;
            }
            if (matched) {
                pi = next;
                ++si;
                continue;
            }
        }
        if (starP == SIZE_MAX) return false;
        pi = starP;
        si = ++starS;
    }
    while (pi < p.size() && p[pi] == U'*')
        ++pi;
    return pi == p.size();
}

} // namespace

NamePattern::NamePattern(const QString& pattern)
    : components(split(folded(pattern)))
    , lastComponentOnly(components.size() == 1)
{
    // Case folding maps no ASCII letter outside ASCII, so an ASCII pattern can match ASCII
    // names byte by byte.
    std::string ascii;
    for (const std::u32string& part : components) {
        ascii.clear();
        for (char32_t c : part) {
            if (c >= 0x80) {
                asciiComponents.clear();
                return;
            }
            ascii += char(c);
        }
        asciiComponents.push_back(ascii);
    }
}

namespace {

// The same walk as within a component, with "**" for '*' and components for characters.
template<typename Pattern, typename Name>
bool pathMatches(const std::vector<Pattern>& components, const std::vector<Name>& parts)
{
    size_t pi = 0, si = 0;
    size_t starP = SIZE_MAX, starS = 0;
    const auto anyDepth = [&](size_t k) {
        return components[k].size() == 2 && components[k][0] == '*' && components[k][1] == '*';
    };
    while (si < parts.size()) {
        if (pi < components.size() && anyDepth(pi)) {
            starP = ++pi;
            starS = si;
            continue;
        }
        if (pi < components.size() && componentMatches(components[pi], parts[si])) {
            ++pi;
            ++si;
            continue;
        }
        if (starP == SIZE_MAX) return false;
        pi = starP;
        si = ++starS;
    }
    while (pi < components.size() && anyDepth(pi))
        ++pi;
    return pi == components.size();
}

// An ASCII name lower-cased in place and cut at each '/', for patterns that are ASCII too.
std::vector<std::string_view> asciiParts(std::string& name)
{
    std::vector<std::string_view> parts;
    size_t from = 0;
    for (size_t k = 0; k <= name.size(); ++k) {
        if (k < name.size() && name[k] != '/') {
            if (name[k] >= 'A' && name[k] <= 'Z') name[k] = char(name[k] + 32);
            continue;
        }
        parts.emplace_back(name.data() + from, k - from);
        from = k + 1;
    }
    return parts;
}

} // namespace

bool NamePattern::matches(const QString& name) const
{
    const std::vector<std::u32string> parts = split(folded(name));
    if (lastComponentOnly) return componentMatches(components[0], parts.back());
    return pathMatches(components, parts);
}

bool NamePattern::matches(const char* name) const
{
    const char* c = name;
    while (*c && !(*c & 0x80))
        ++c;
    if (*c || asciiComponents.empty()) return matches(QString::fromUtf8(name));
    if (lastComponentOnly) {
        const char* slash = std::strrchr(name, '/');
        std::string last(slash ? slash + 1 : name);
        return componentMatches(asciiComponents[0], asciiParts(last)[0]);
    }
    std::string lowered(name);
    return pathMatches(asciiComponents, asciiParts(lowered));
}

bool NamePattern::anyMatches(const std::vector<NamePattern>& patterns, const QString& name)
{
    if (patterns.empty()) return true;
    for (const NamePattern& pattern : patterns)
        if (pattern.matches(name)) return true;
    return false;
}

bool NamePattern::anyMatches(const std::vector<NamePattern>& patterns, const char* name)
{
    if (patterns.empty()) return true;
    for (const NamePattern& pattern : patterns)
        if (pattern.matches(name)) return true;
    return false;
}

std::vector<NamePattern> NamePattern::compile(const QStringList& patterns)
{
    std::vector<NamePattern> compiled;
    for (const QString& pattern : patterns)
        compiled.emplace_back(pattern);
    return compiled;
}
