#pragma once
// Choosing archive format, version and compression from the kinds of gathered files.

#include "creation/sourceentry.h"

#include <QString>

struct CreationSettings
{
    int archiveFormat = 0; // 0 general, 1 texture
    int archiveVersion = 1;
    int zlibLevel = 1;
    int lz4Mode = 1;
};

struct AssistanceResult
{
    bool ver3Enabled = false;
    bool allDds = false;
    bool allCompressible = true;
    bool settingsChanged = false; // the rule changed the settings (save and refresh)
    CreationSettings settings;    // the settings after the rule
    QString message;              // the status-bar line
};

// The rules run after each load; assist is the state of "BA2 Create assistance".
AssistanceResult assessSources(const SourceList& sources, bool assist,
                               const CreationSettings& current);
