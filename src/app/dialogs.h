#pragma once
// Every modal interaction of the window goes through this seam: message boxes, file and
// folder dialogs, about boxes and the browser. The default shows the real Qt dialogs; tests
// install a scripted one that answers and records instead of blocking.

#include <QFileDialog>
#include <QMessageBox>
#include <QString>
#include <QUrl>

class Dialogs
{
public:
    virtual ~Dialogs() = default;
    virtual QString getExistingDirectory(QWidget* parent, const QString& caption,
                                         const QString& dir, QFileDialog::Options options);
    virtual QString getOpenFileName(QWidget* parent, const QString& caption, const QString& dir,
                                    const QString& filter);
    virtual QString getSaveFileName(QWidget* parent, const QString& caption, const QString& dir,
                                    const QString& filter);
    // A parentless modal box with an icon, a text and an informative text.
    virtual void showMessage(QMessageBox::Icon icon, const QString& text,
                             const QString& informativeText);
    virtual void about(QWidget* parent, const QString& title, const QString& text);
    virtual void aboutQt(QWidget* parent, const QString& title);
    virtual bool openUrl(const QUrl& url);

    // The seam in use; the real dialogs unless a test installed another. The caller keeps
    // ownership of what it installs; install(nullptr) restores the real dialogs.
    static Dialogs& current();
    static void install(Dialogs* dialogs);
};
