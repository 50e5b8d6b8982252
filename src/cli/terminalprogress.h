#pragma once
// A progress line on stderr, drawn only when stderr is a terminal so scripts see clean output.

#include "archive/progress.h"

#include <cstdio>
#include <unistd.h>

class TerminalProgress : public Progress
{
public:
    explicit TerminalProgress(const char* label)
        : label(label)
        , enabled(isatty(2) == 1)
    { }
    ~TerminalProgress() override { finish(); }

    void setMaximum(int value) override { maximum = value; }
    void setValue(int value) override
    {
        if (!enabled || maximum <= 0 || value == last) return;
        last = value;
        std::fprintf(stderr, "\r%s %d/%d", label, value > maximum ? maximum : value, maximum);
        std::fflush(stderr);
        drawn = true;
    }
    void finish()
    {
        if (drawn) std::fprintf(stderr, "\r\033[K");
        drawn = false;
    }

private:
    const char* label;
    bool enabled;
    bool drawn = false;
    int maximum = 0;
    int last = -1;
};
