// The real dialogs behind the window's modal seam.

#include "app/dialogs.h"

#include <QDesktopServices>

namespace {
Dialogs*& installed()
{
    static Dialogs* dialogs = nullptr;
    return dialogs;
}
} // namespace

QString Dialogs::getExistingDirectory(QWidget* parent, const QString& caption, const QString& dir,
                                      QFileDialog::Options options)
{
    return QFileDialog::getExistingDirectory(parent, caption, dir, options);
}

QString Dialogs::getOpenFileName(QWidget* parent, const QString& caption, const QString& dir,
                                 const QString& filter)
{
    return QFileDialog::getOpenFileName(parent, caption, dir, filter);
}

QString Dialogs::getSaveFileName(QWidget* parent, const QString& caption, const QString& dir,
                                 const QString& filter)
{
    return QFileDialog::getSaveFileName(parent, caption, dir, filter);
}

void Dialogs::showMessage(QMessageBox::Icon icon, const QString& text,
                          const QString& informativeText)
{
    QMessageBox box;
    box.setIcon(icon);
    box.setText(text);
    box.setInformativeText(informativeText);
    box.exec();
}

void Dialogs::about(QWidget* parent, const QString& title, const QString& text)
{
    QMessageBox::about(parent, title, text);
}

void Dialogs::aboutQt(QWidget* parent, const QString& title)
{
    QMessageBox::aboutQt(parent, title);
}

bool Dialogs::openUrl(const QUrl& url)
{
    return QDesktopServices::openUrl(url);
}

Dialogs& Dialogs::current()
{
    static Dialogs real;
    Dialogs* dialogs = installed();
    return dialogs ? *dialogs : real;
}

void Dialogs::install(Dialogs* dialogs)
{
    installed() = dialogs;
}
