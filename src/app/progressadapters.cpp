#include "app/progressadapters.h"

#include <QCoreApplication>
#include <QProgressBar>
#include <QProgressDialog>

void DialogProgress::setMinimum(int minimum)
{
    dialog->setMinimum(minimum);
}
void DialogProgress::setMaximum(int maximum)
{
    dialog->setMaximum(maximum);
}
void DialogProgress::setValue(int value)
{
    dialog->setValue(value);
}
bool DialogProgress::wasCanceled()
{
    return dialog->wasCanceled();
}
void DialogProgress::processEvents()
{
    QCoreApplication::processEvents();
}

void BarProgress::setMinimum(int minimum)
{
    bar->setMinimum(minimum);
}
void BarProgress::setMaximum(int value)
{
    maximum = value;
    bar->setMaximum(value);
}

void BarProgress::setValue(int value)
{
    const int step = maximum / 1000 > 1 ? maximum / 1000 : 1;
    if (value != maximum && shown >= 0 && value >= shown && value - shown < step) return;
    shown = value;
    bar->setValue(value);
}
void BarProgress::processEvents()
{
    QCoreApplication::processEvents();
}
