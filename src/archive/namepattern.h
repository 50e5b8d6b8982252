#pragma once
// Shell-style patterns over stored names, as a user types them to pick files of an archive.
// Matching ignores case and uses '/' as the separator: '*' and '?' match within one
// component, "[...]" is a character class ("[!...]" or "[^...]" for its complement, "a-z" a
// range), a component that is exactly "**" matches any number of components (none included).
// A pattern without '/' is matched against the last component of the name only, so "*.dds"
// takes every DDS file anywhere.

#include <QString>
#include <QStringList>

#include <string>
#include <vector>

class NamePattern
{
public:
    explicit NamePattern(const QString& pattern);

    bool matches(const QString& name) const;
    // name: a stored name as UTF-8 bytes; plain ASCII names are matched without conversion.
    bool matches(const char* name) const;

    // True when any of patterns matches name; an empty list matches every name.
    static bool anyMatches(const std::vector<NamePattern>& patterns, const QString& name);
    static bool anyMatches(const std::vector<NamePattern>& patterns, const char* name);
    static std::vector<NamePattern> compile(const QStringList& patterns);

private:
    std::vector<std::u32string> components;   // case-folded
    std::vector<std::string> asciiComponents; // the same when all ASCII, else empty
    bool lastComponentOnly;
};
