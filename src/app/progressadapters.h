#pragma once
// The window's progress widgets seen through the engines' Progress interface.

#include "archive/progress.h"

class QProgressBar;
class QProgressDialog;

// A window-modal progress dialog: range, value and its Cancel button.
class DialogProgress : public Progress
{
public:
    explicit DialogProgress(QProgressDialog* dialog)
        : dialog(dialog)
    { }
    void setMinimum(int minimum) override;
    void setMaximum(int maximum) override;
    void setValue(int value) override;
    bool wasCanceled() override;
    void processEvents() override;

private:
    QProgressDialog* dialog;
};

// The status-bar progress bar of an archive load; it has no Cancel. A styled bar costs tens of
// microseconds per update, so it moves in at most a thousand visible steps (and always shows the
// last value) rather than once per record of a large archive.
class BarProgress : public Progress
{
public:
    explicit BarProgress(QProgressBar* bar)
        : bar(bar)
    { }
    void setMinimum(int minimum) override;
    void setMaximum(int maximum) override;
    void setValue(int value) override;
    void processEvents() override;

private:
    QProgressBar* bar;
    int maximum = 0;
    int shown = -1;
};
