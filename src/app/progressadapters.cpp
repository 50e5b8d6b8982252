#include "app/progressadapters.h"

#include <QCoreApplication>
#include <QProgressBar>
#include <QProgressDialog>

void DialogProgress::setMinimum(int minimum) { dialog->setMinimum(minimum); }
void DialogProgress::setMaximum(int maximum) { dialog->setMaximum(maximum); }
void DialogProgress::setValue(int value) { dialog->setValue(value); }
bool DialogProgress::wasCanceled() { return dialog->wasCanceled(); }
void DialogProgress::processEvents() { QCoreApplication::processEvents(); }

void BarProgress::setMinimum(int minimum) { bar->setMinimum(minimum); }
void BarProgress::setMaximum(int maximum) { bar->setMaximum(maximum); }
void BarProgress::setValue(int value) { bar->setValue(value); }
void BarProgress::processEvents() { QCoreApplication::processEvents(); }
