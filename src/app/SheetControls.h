// Controls every bin sheet shares, made one way so the sheets look and
// behave alike.
#pragma once

#include <QString>

#include <string>

class QDialog;
class QDialogButtonBox;
class QLabel;
class QProgressBar;
class QPushButton;
class QWidget;

// The Cancel and Create pair along a sheet's bottom edge. Create is the
// default button (Return presses it); Cancel rejects the sheet. The
// object names let tests find the buttons.
struct SheetButtons
{
    QDialogButtonBox *box = nullptr;
    QPushButton *cancel = nullptr;
    QPushButton *create = nullptr;
};
SheetButtons makeSheetButtons(QDialog *sheet, const QString &cancelName, const QString &createName);

// An indeterminate busy bar, hidden until a background build starts.
QProgressBar *makeBusySpinner(QDialog *sheet, const QString &objectName);

// The line under a name field that says what a save will make of the name
// typed, hidden while there is nothing to say.
QLabel *makeNameWarning(QWidget *parent, const QString &objectName);
// Shows `warning` (TLWriteReport's words) in the line, or hides it for "".
void showNameWarning(QLabel *label, const std::string &warning);
