#pragma once
// How a long-running engine (reader, extractor, writer, folder scan) reports progress and
// learns about a cancel. The window adapts a QProgressDialog or QProgressBar, the CLI a
// terminal line, tests a recorder; engines only ever see this interface.

class Progress
{
public:
    virtual ~Progress() = default;
    virtual void setMinimum(int minimum) { (void)minimum; }
    virtual void setMaximum(int maximum) { (void)maximum; }
    virtual void setValue(int value) { (void)value; }
    // True once the user asked to stop; engines poll it only between files.
    virtual bool wasCanceled() { return false; }
    // Lets the window repaint during long loops; a no-op outside the window.
    virtual void processEvents() { }
};

// For callers that want neither progress nor cancel.
class NullProgress : public Progress
{ };
