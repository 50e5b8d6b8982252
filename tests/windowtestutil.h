#pragma once
// Helpers for the window tests: a dialog seam that answers from a queue and records every
// dialog and box instead of blocking, a fresh working folder per test (so Zarnel.ini never
// leaks between tests), a started window, drops, file trees and cancelling a progress dialog.

#include "app/dialogs.h"
#include "app/mainwindow.h"
#include "app/ui_mainwindow.h"

#include "testutil.h"

#include <QtWidgets>

#include <functional>
#include <memory>
#include <vector>

namespace wintest {

// A file or folder dialog takes the next queued answer ("" = cancelled) and is recorded as
// "kind caption|start folder|filter or options"; a box as "kind|text|informative text".
class ScriptedDialogs : public Dialogs {
public:
    ScriptedDialogs() { install(this); }
    ~ScriptedDialogs() override { install(nullptr); }
    QStringList answers, asked, boxes;
    QList<QUrl> urls;

    QString answer(const QString& what, const QString& dir, const QString& extra)
    {
        asked << what + QLatin1Char('|') + dir + QLatin1Char('|') + extra;
        return answers.isEmpty() ? QString() : answers.takeFirst();
    }
    QString getExistingDirectory(QWidget*, const QString& c, const QString& d, QFileDialog::Options o) override
    { return answer("dir " + c, d, QString::number(int(o))); }
    QString getOpenFileName(QWidget*, const QString& c, const QString& d, const QString& f) override
    { return answer("open " + c, d, f); }
    QString getSaveFileName(QWidget*, const QString& c, const QString& d, const QString& f) override
    { return answer("save " + c, d, f); }
    void showMessage(QMessageBox::Icon icon, const QString& text, const QString& informative) override
    {
        const char* kind =
            icon == QMessageBox::Information ? "info|" : icon == QMessageBox::Warning ? "warn|" : "other|";
        boxes << kind + text + QLatin1Char('|') + informative;
    }
    void about(QWidget*, const QString& title, const QString& text) override { boxes << "about|" + title + '|' + text; }
    void aboutQt(QWidget*, const QString& title) override { boxes << "aboutQt|" + title; }
    bool openUrl(const QUrl& url) override { urls << url; return true; }
};

// Makes a fresh temporary folder the working directory for its lifetime.
class TempWorkDir {
public:
    TempWorkDir() : previous(QDir::currentPath()) { QDir::setCurrent(dir.path()); }
    ~TempWorkDir() { QDir::setCurrent(previous); }
    QString path(const QString& relative = QString()) const
    { return relative.isEmpty() ? dir.path() : dir.filePath(relative); }

private:
    QTemporaryDir dir;
    QString previous;
};

inline QByteArray readIni() { return testutil::readFile(QStringLiteral("Zarnel.ini")); }
inline bool writeIni(const QByteArray& content) { return testutil::writeFile(QStringLiteral("Zarnel.ini"), content); }
inline QVariant setting(const char* key)
{
    return QSettings(QStringLiteral("Zarnel.ini"), QSettings::IniFormat).value(QLatin1String(key));
}

// A window as the entry point leaves it before the event loop; args follow the program name,
// and before() runs between setArg and initialize (to arm a canceller for the command line).
inline std::unique_ptr<MainWindow> startWindow(const QByteArrayList& args = {},
                                               const std::function<void(MainWindow&)>& before = {})
{
    static QByteArrayList store;
    static std::vector<char*> argv;
    store = QByteArrayList{"zarnel"} + args;
    argv.clear();
    for (QByteArray& arg : store) argv.push_back(arg.data());
    argv.push_back(nullptr);
    auto window = std::make_unique<MainWindow>();
    window->setArg(int(store.size()), argv.data());
    if (before) before(*window);
    window->initialize();
    return window;
}

inline void drop(MainWindow& window, const QStringList& paths)
{
    QMimeData mime;
    QList<QUrl> urls;
    for (const QString& p : paths) urls << QUrl::fromLocalFile(p);
    mime.setUrls(urls);
    // Qt delivers a drop only to the widget that accepted the drag's entry.
    QDragEnterEvent enter(QPoint(20, 20), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&window, &enter);
    QDropEvent event(QPointF(20, 20), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
    if (enter.isAccepted()) QCoreApplication::sendEvent(&window, &event);
}

// Picks a combo item as the user does: the selection, then the activation the slots listen to.
inline void choose(QComboBox* combo, int index)
{
    combo->setCurrentIndex(index);
    emit combo->activated(index);
}

inline QStringList listTexts(const MainWindow& window)
{
    QStringList texts;
    const QListWidget* list = window.ui->listWidget_Files;
    for (int i = 0; i < list->count(); ++i) texts << list->item(i)->text();
    return texts;
}

using Tree = QMap<QString, QByteArray>;  // relative path -> content

inline bool writeTree(const QString& root, const Tree& tree)
{
    bool ok = QDir().mkpath(root);
    for (auto it = tree.begin(); it != tree.end(); ++it)
        ok = testutil::writeFile(root + QLatin1Char('/') + it.key(), it.value()) && ok;
    return ok;
}

inline Tree readTree(const QString& root)
{
    Tree tree;
    QDirIterator it(root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        tree[QDir(root).relativeFilePath(path)] = testutil::readFile(path);
    }
    return tree;
}

// Cancels the progress dialog with the given label once ready() holds. Looked at on every tick
// of a zero timer (the scans process events per entry) and when a dialog gets its style sheet,
// the last step of building one (the engines check Cancel before they process any event).
class Canceller : public QObject {
public:
    explicit Canceller(const QString& label, std::function<bool()> ready = [] { return true; })
        : label(label), ready(std::move(ready))
    {
        qApp->installEventFilter(this);
        startTimer(0);
    }
    ~Canceller() override { qApp->removeEventFilter(this); }
    bool fired = false;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        const bool look = event->type() == QEvent::StyleChange || (watched == this && event->type() == QEvent::Timer);
        if (fired || !look || !ready()) return false;
        for (QWidget* w : QApplication::topLevelWidgets()) {
            auto* dialog = qobject_cast<QProgressDialog*>(w);
            if (dialog && dialog->labelText() == label) {
                dialog->cancel();
                fired = true;
            }
        }
        return false;
    }

private:
    QString label;
    std::function<bool()> ready;
};

}  // namespace wintest
