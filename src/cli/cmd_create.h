#pragma once
// zarnel-cli create [OPTIONS] -o ARCHIVE PATH...

#include <QStringList>

// args: everything after the word "create". Gathers the paths as a drop on the window would,
// fills the settings left out from the creation assistance, writes the archive and prints
// the outcome. Returns the process exit code: 0 on "Complete.", 2 on a usage error, 1 else.
// jobs is the dispatcher's --jobs value: the writer's worker threads.
int runCreate(const QStringList& args, int jobs = 1);
