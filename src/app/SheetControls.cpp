#include "SheetControls.h"

#include <QDialog>
#include <QDialogButtonBox>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>

SheetButtons makeSheetButtons(QDialog *sheet, const QString &cancelName, const QString &createName)
{
    SheetButtons buttons;
    buttons.box = new QDialogButtonBox(sheet);
    buttons.cancel = buttons.box->addButton(QDialogButtonBox::Cancel);
    buttons.cancel->setObjectName(cancelName);
    buttons.create = buttons.box->addButton(QDialog::tr("Create"), QDialogButtonBox::AcceptRole);
    buttons.create->setObjectName(createName);
    buttons.create->setDefault(true);
    QObject::connect(buttons.cancel, &QPushButton::clicked, sheet, &QDialog::reject);
    return buttons;
}

QProgressBar *makeBusySpinner(QDialog *sheet, const QString &objectName)
{
    auto *spinner = new QProgressBar(sheet);
    spinner->setObjectName(objectName);
    spinner->setRange(0, 0);
    spinner->setTextVisible(false);
    spinner->setMaximumWidth(80);
    spinner->hide();
    return spinner;
}

QLabel *makeNameWarning(QWidget *parent, const QString &objectName)
{
    auto *label = new QLabel(parent);
    label->setObjectName(objectName);
    label->setWordWrap(true);
    label->setStyleSheet(QStringLiteral("color: palette(link)"));
    label->hide();
    return label;
}

void showNameWarning(QLabel *label, const std::string &warning)
{
    label->setText(QString::fromStdString(warning));
    label->setVisible(!warning.empty());
}
