// The progress sheet of saving and sending.
#include "ProgressSheet.h"

#include <QLabel>
#include <QProgressBar>
#include <QVBoxLayout>

ProgressSheet::ProgressSheet(QWidget *parent) : QDialog(parent)
{
    setObjectName(QStringLiteral("windowProgress"));
    setWindowTitle(tr("Working"));
    setWindowModality(Qt::WindowModal);
    setWindowFlag(Qt::WindowCloseButtonHint, false);

    m_label = new QLabel(this);
    m_label->setObjectName(QStringLiteral("progressLabel"));
    m_bar = new QProgressBar(this);
    m_bar->setObjectName(QStringLiteral("progressBar"));
    m_bar->setTextVisible(false);
    m_bar->setRange(0, 1);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_label);
    layout->addWidget(m_bar);
    setMinimumWidth(320);
}

void ProgressSheet::start()
{
    if (!isVisible())
        open();
    raise();
    activateWindow();
    // A range of nothing is Qt's busy bar.
    m_bar->setRange(0, 0);
}

void ProgressSheet::end()
{
    if (!isVisible())
        return;
    m_bar->setRange(0, 1);
    QDialog::done(QDialog::Rejected);
}

void ProgressSheet::setLabelText(const std::string &text)
{
    m_label->setText(QString::fromStdString(text));
}

void ProgressSheet::reject()
{
}
