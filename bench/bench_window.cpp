// Window-side loading at scale, offscreen: dropping a generated folder of small files (scan,
// duplicate check, sort, list fill, assistance) and opening an archive of as many files with
// the full list shown. Runs each size once and prints the times and the 4x-size ratio.
//
// Usage: bench_window [LARGE_COUNT]   (default 100000; the small run is a quarter of it)

#include "app/dialogs.h"
#include "app/mainwindow.h"
#include "app/ui_mainwindow.h"
#include "archive/progress.h"
#include "creation/gather.h"
#include "creation/writer.h"

#include <QApplication>
#include <QDir>
#include <QDropEvent>
#include <QElapsedTimer>
#include <QFile>
#include <QListWidget>
#include <QMimeData>
#include <QPushButton>
#include <QTemporaryDir>
#include <QUrl>

#include <cstdio>
#include <ctime>
#include <memory>

namespace {

// Answers the Open Archive dialog and swallows boxes, so nothing waits for a user.
class QuietDialogs : public Dialogs
{
public:
    QString openFile;
    int boxes = 0;
    QString getOpenFileName(QWidget*, const QString&, const QString&, const QString&) override
    {
        return openFile;
    }
    void showMessage(QMessageBox::Icon, const QString&, const QString&) override { ++boxes; }
};

bool makeFolder(const QString& root, int count)
{
    const int perFolder = 1000;
    for (int i = 0; i < count; ++i) {
        const QString folder
            = root + QStringLiteral("/d%1").arg(i / perFolder, 3, 10, QLatin1Char('0'));
        if (i % perFolder == 0 && !QDir().mkpath(folder)) return false;
        QFile file(folder + QStringLiteral("/file_%1.txt").arg(i, 6, 10, QLatin1Char('0')));
        if (!file.open(QIODevice::WriteOnly)) return false;
        file.write(QByteArray::number(i) + " small payload\n");
    }
    return true;
}

std::unique_ptr<MainWindow> freshWindow()
{
    static char program[] = "bench_window";
    static char* argv[] = {program, nullptr};
    auto window = std::make_unique<MainWindow>();
    window->setArg(1, argv);
    window->initialize();
    window->show();
    QApplication::processEvents();
    return window;
}

// Process CPU time, which the other work on a shared machine disturbs less than wall time.
double cpuMs()
{
    return double(std::clock()) * 1000.0 / CLOCKS_PER_SEC;
}

struct Times
{
    double dropMs = 0;
    double openMs = 0;
    double dropCpuMs = 0;
    double openCpuMs = 0;
    int listed = 0;
    int opened = 0;
};

bool runOnce(const QString& base, int count, Times& times)
{
    const QString folder = base + QStringLiteral("/Folder%1").arg(count);
    const QString archive = base + QStringLiteral("/archive%1.ba2").arg(count);
    std::fprintf(stderr, "generating %d files...\n", count);
    if (!makeFolder(folder, count)) return false;

    // The archive is written by the core writer (stored, version 1) from the same folder.
    {
        SourceList sources;
        GatherState state;
        state.sources = &sources;
        state.table = &defaultNameHashTable();
        NullProgress progress;
        if (gatherPaths(state, {folder}, nullptr) != LoadStatus::Loaded) return false;
        if (writeArchive(sources, archive, false, 1, 0, 1, progress).status != SaveStatus::Complete)
            return false;
    }

    QuietDialogs dialogs;
    Dialogs::install(&dialogs);
    {
        auto window = freshWindow();
        window->listView = 1;
        QMimeData mime;
        mime.setUrls({QUrl::fromLocalFile(folder)});
        QDragEnterEvent enter(QPoint(10, 10), Qt::CopyAction, &mime, Qt::LeftButton,
                              Qt::NoModifier);
        QCoreApplication::sendEvent(window.get(), &enter);
        QDropEvent drop(QPointF(10, 10), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
        QElapsedTimer timer;
        timer.start();
        const double cpu = cpuMs();
        QCoreApplication::sendEvent(window.get(), &drop);
        times.dropCpuMs = cpuMs() - cpu;
        times.dropMs = double(timer.nsecsElapsed()) / 1e6;
        times.listed = window->ui->listWidget_Files->count();
    }
    {
        auto window = freshWindow();
        window->listView = 1;
        dialogs.openFile = archive;
        QElapsedTimer timer;
        timer.start();
        const double cpu = cpuMs();
        window->ui->pushButton_File->click();
        times.openCpuMs = cpuMs() - cpu;
        times.openMs = double(timer.nsecsElapsed()) / 1e6;
        times.opened = window->ui->listWidget_Files->count();
    }
    Dialogs::install(nullptr);
    return dialogs.boxes == 0 && times.listed == count && times.opened == count;
}

} // namespace

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const int large = argc > 1 ? QByteArray(argv[1]).toInt() : 100000;
    const int small = large / 4;
    if (large < 4) {
        std::fprintf(stderr, "count too small\n");
        return 2;
    }

    QTemporaryDir scratch;
    const QString previous = QDir::currentPath();
    QDir::setCurrent(scratch.path()); // Zarnel.ini lands in the scratch folder

    Times smallTimes, largeTimes;
    const bool ok
        = runOnce(scratch.path(), small, smallTimes) && runOnce(scratch.path(), large, largeTimes);
    QDir::setCurrent(previous);
    if (!ok) {
        std::fprintf(stderr, "benchmark run failed\n");
        return 1;
    }
    const auto row = [](const char* label, double drop, double dropCpu, double open,
                        double openCpu) {
        std::printf("%-20s %12.1f %12.1f %12.1f %12.1f\n", label, drop, dropCpu, open, openCpu);
    };
    std::printf("%-20s %12s %12s %12s %12s\n", "", "drop ms", "drop cpu ms", "open ms",
                "open cpu ms");
    row(qPrintable(QStringLiteral("%1 files").arg(small)), smallTimes.dropMs, smallTimes.dropCpuMs,
        smallTimes.openMs, smallTimes.openCpuMs);
    row(qPrintable(QStringLiteral("%1 files").arg(large)), largeTimes.dropMs, largeTimes.dropCpuMs,
        largeTimes.openMs, largeTimes.openCpuMs);
    std::printf("%-20s %12.2f %12.2f %12.2f %12.2f\n", "ratio large/small",
                largeTimes.dropMs / smallTimes.dropMs, largeTimes.dropCpuMs / smallTimes.dropCpuMs,
                largeTimes.openMs / smallTimes.openMs, largeTimes.openCpuMs / smallTimes.openCpuMs);
    return 0;
}
