// The desktop program: one window, one optional path on the command line.

#include "app/mainwindow.h"

#include <QApplication>
#include <QFont>

#include <csignal>

int main(int argc, char** argv)
{
    // A file-size limit must end a write with an error we report, not kill the process.
    std::signal(SIGXFSZ, SIG_IGN);
    QApplication app(argc, argv); // strips the options Qt handles itself from argc/argv
    QFont font;
    font.setFamily(QStringLiteral("Arial"));
    font.setPixelSize(15);
    QApplication::setFont(font);
    MainWindow window;
    window.setArg(argc, argv);
    window.initialize();
    window.show();
    return app.exec();
}
