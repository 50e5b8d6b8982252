#pragma once
// Helpers for the window tests: a scripted dialog seam that answers file dialogs from queues
// and records every box instead of blocking, a fresh working folder per test (so Zarnel.ini
// never leaks between tests), and a started MainWindow.

#include "app/dialogs.h"
#include "app/mainwindow.h"
#include "app/ui_mainwindow.h"

#include <QDir>
#include <QFile>
#include <QQueue>
#include <QTemporaryDir>
#include <QVector>

#include <memory>

namespace wintest {

struct RecordedBox {
    enum Kind { Message, About, AboutQt };
    Kind kind = Message;
    QMessageBox::Icon icon = QMessageBox::NoIcon;
    QString text;             // message text, or the about box title
    QString informativeText;  // message informative text, or the about box body
};

struct RecordedFileDialog {
    QString function;  // "getExistingDirectory", "getOpenFileName" or "getSaveFileName"
    QString caption;
    QString dir;
    QString filter;
};

// Answers come from the queues (an empty queue answers "" = cancelled); every call is recorded.
class ScriptedDialogs : public Dialogs {
public:
    ScriptedDialogs() { Dialogs::install(this); }
    ~ScriptedDialogs() override { Dialogs::install(nullptr); }

    QQueue<QString> directoryAnswers;
    QQueue<QString> openAnswers;
    QQueue<QString> saveAnswers;
    QVector<RecordedBox> boxes;
    QVector<RecordedFileDialog> fileDialogs;
    QVector<QUrl> openedUrls;

    QString getExistingDirectory(QWidget*, const QString& caption, const QString& dir,
                                 QFileDialog::Options) override
    {
        fileDialogs.append({QStringLiteral("getExistingDirectory"), caption, dir, QString()});
        return directoryAnswers.isEmpty() ? QString() : directoryAnswers.dequeue();
    }
    QString getOpenFileName(QWidget*, const QString& caption, const QString& dir,
                            const QString& filter) override
    {
        fileDialogs.append({QStringLiteral("getOpenFileName"), caption, dir, filter});
        return openAnswers.isEmpty() ? QString() : openAnswers.dequeue();
    }
    QString getSaveFileName(QWidget*, const QString& caption, const QString& dir,
                            const QString& filter) override
    {
        fileDialogs.append({QStringLiteral("getSaveFileName"), caption, dir, filter});
        return saveAnswers.isEmpty() ? QString() : saveAnswers.dequeue();
    }
    void showMessage(QMessageBox::Icon icon, const QString& text, const QString& informativeText) override
    {
        boxes.append({RecordedBox::Message, icon, text, informativeText});
    }
    void about(QWidget*, const QString& title, const QString& text) override
    {
        boxes.append({RecordedBox::About, QMessageBox::NoIcon, title, text});
    }
    void aboutQt(QWidget*, const QString& title) override
    {
        boxes.append({RecordedBox::AboutQt, QMessageBox::NoIcon, title, QString()});
    }
    bool openUrl(const QUrl& url) override
    {
        openedUrls.append(url);
        return true;
    }
};

// Makes a fresh temporary folder the working directory for its lifetime.
class TempWorkDir {
public:
    TempWorkDir() : previous(QDir::currentPath()) { QDir::setCurrent(dir.path()); }
    ~TempWorkDir() { QDir::setCurrent(previous); }
    QString path() const { return dir.path(); }
    QString filePath(const QString& name) const { return dir.filePath(name); }

private:
    QTemporaryDir dir;
    QString previous;
};

inline QString iniPath() { return QDir::current().filePath(QStringLiteral("Zarnel.ini")); }

inline QByteArray readIni()
{
    QFile f(iniPath());
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

inline bool writeIni(const QByteArray& content)
{
    QFile f(iniPath());
    return f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write(content) == content.size();
}

// A started window as the entry point leaves it before the event loop (no command-line path).
inline std::unique_ptr<MainWindow> startWindow()
{
    static char program[] = "zarnel";
    static char* argv[] = {program, nullptr};
    auto window = std::make_unique<MainWindow>();
    window->setArg(1, argv);
    window->initialize();
    return window;
}

}  // namespace wintest
