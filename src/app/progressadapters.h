#pragma once
// The window's progress widgets seen through the engines' Progress interface.

#include "archive/progress.h"

class QProgressBar;
class QProgressDialog;

// A window-modal progress dialog: range, value and its Cancel button.
class DialogProgress : public Progress {
public:
    explicit DialogProgress(QProgressDialog* dialog) : dialog(dialog) {}
    void setMinimum(int minimum) override;
    void setMaximum(int maximum) override;
    void setValue(int value) override;
    bool wasCanceled() override;
    void processEvents() override;

private:
    QProgressDialog* dialog;
};

// The status-bar progress bar of an archive load; it has no Cancel.
class BarProgress : public Progress {
public:
    explicit BarProgress(QProgressBar* bar) : bar(bar) {}
    void setMinimum(int minimum) override;
    void setMaximum(int maximum) override;
    void setValue(int value) override;
    void processEvents() override;

private:
    QProgressBar* bar;
};
