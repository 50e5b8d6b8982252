#pragma once
// Helpers for driving the window's operations offscreen (beside the scripted dialogs and the
// scratch working folder of windowtestutil.h): file trees, drops, list contents, and cancelling
// a progress dialog at a chosen moment.

#include "app/mainwindow.h"
#include "app/ui_mainwindow.h"

#include "testutil.h"
#include "windowtestutil.h"

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QDropEvent>
#include <QFileInfo>
#include <QListWidget>
#include <QMimeData>
#include <QProgressDialog>
#include <QStatusBar>
#include <QTimer>
#include <QUrl>

#include <functional>
#include <map>
#include <memory>

namespace opstest {

// "caption|start folder" of every file or folder dialog asked so far.
inline QStringList askedDialogs(const wintest::ScriptedDialogs& dialogs)
{
    QStringList asked;
    for (const wintest::RecordedFileDialog& d : dialogs.fileDialogs) asked << d.caption + QLatin1Char('|') + d.dir;
    return asked;
}

using Tree = std::map<QString, QByteArray>;  // relative path -> content

inline bool writeTree(const QString& root, const Tree& tree)
{
    for (const auto& [relative, bytes] : tree)
        if (!testutil::writeFile(root + QLatin1Char('/') + relative, bytes)) return false;
    return QDir().mkpath(root);
}

// Every file below root, by relative path.
inline Tree readTree(const QString& root)
{
    Tree tree;
    QDir base(root);
    std::function<void(const QString&)> walk = [&](const QString& folder) {
        const QFileInfoList entries =
            QDir(folder).entryInfoList(QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden);
        for (const QFileInfo& info : entries) {
            if (info.isDir()) walk(info.filePath());
            else tree[base.relativeFilePath(info.filePath())] = testutil::readFile(info.filePath());
        }
    };
    walk(root);
    return tree;
}

// A window set up as at start-up without a command-line path.
inline std::unique_ptr<MainWindow> makeWindow(const QByteArray& argument = QByteArray())
{
    static char program[] = "zarnel";
    static QByteArray argumentStore;
    static char* argv[3] = {program, nullptr, nullptr};
    argumentStore = argument;
    argv[1] = argumentStore.isEmpty() ? nullptr : argumentStore.data();
    auto window = std::make_unique<MainWindow>();
    window->setArg(argument.isEmpty() ? 1 : 2, argv);
    window->initialize();
    window->show();
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
    if (!enter.isAccepted()) return;
    QDropEvent event(QPointF(20, 20), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&window, &event);
}

inline QStringList listTexts(const MainWindow& window)
{
    QStringList texts;
    const QListWidget* list = window.ui->listWidget_Files;
    for (int i = 0; i < list->count(); ++i) texts << list->item(i)->text();
    return texts;
}

// Picks a combo item as the user does: the selection, then the activation the slots listen to.
inline void choose(QComboBox* combo, int index)
{
    combo->setCurrentIndex(index);
    emit combo->activated(index);
}

inline QString statusText(MainWindow& window) { return window.statusBar()->currentMessage(); }

// Cancels the progress dialog with the given label once ready() holds. Checked whenever the
// running operation processes events (the reading dialog's scan does so per entry).
class CancelWhen : public QObject {
public:
    CancelWhen(MainWindow& window, const QString& label, std::function<bool()> ready)
        : window(window), label(label), ready(std::move(ready))
    {
        connect(&timer, &QTimer::timeout, this, [this] { poll(); });
        timer.start(0);
    }
    bool fired = false;

private:
    void poll()
    {
        if (fired || !ready()) return;
        for (QProgressDialog* dialog : window.findChildren<QProgressDialog*>()) {
            if (dialog->labelText() != label) continue;
            dialog->cancel();
            fired = true;
        }
    }
    MainWindow& window;
    QString label;
    std::function<bool()> ready;
    QTimer timer;
};

// Cancels an engine dialog (Create Archive, Extract All) as soon as it is built: the engines
// do not process events before their first cancel check, so no timer could get in first.
class CancelEngineDialog : public QObject {
public:
    explicit CancelEngineDialog(const QString& label) : label(label) { qApp->installEventFilter(this); }
    ~CancelEngineDialog() override { qApp->removeEventFilter(this); }
    bool fired = false;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        // The style sheet is the last thing the dialog recipe sets, so the dialog is complete.
        if (!fired && event->type() == QEvent::StyleChange) {
            auto* dialog = qobject_cast<QProgressDialog*>(watched);
            if (dialog && dialog->labelText() == label) {
                dialog->cancel();
                fired = true;
            }
        }
        return false;
    }

private:
    QString label;
};

// A small uncompressed 32-bit RGBA DDS picture (one mip level).
inline QByteArray rgbaDds(uint32_t width, uint32_t height, uint32_t seed)
{
    QByteArray header(128, '\0');
    auto put = [&](int offset, uint32_t v) {
        for (int i = 0; i < 4; ++i) header[offset + i] = char((v >> (8 * i)) & 0xFF);
    };
    put(0, 0x20534444);  // "DDS "
    put(4, 124);
    put(8, 0x0000100F);
    put(12, height);
    put(16, width);
    put(20, width * 4);
    put(28, 1);
    put(76, 32);
    put(80, 0x41);  // RGB | alpha pixels
    put(88, 32);
    put(92, 0x000000FF);
    put(96, 0x0000FF00);
    put(100, 0x00FF0000);
    put(104, 0xFF000000);
    put(108, 0x1000);
    return header + testutil::patternBytes(int(width * height * 4), seed);
}

}  // namespace opstest
