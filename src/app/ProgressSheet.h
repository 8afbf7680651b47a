// The sheet that shows a save or a send under way.
#pragma once

#include <QDialog>

#include <string>

class QLabel;
class QProgressBar;

// A label ("progressLabel") over an indeterminate bar ("progressBar"),
// window-modal on its parent. It has no buttons and Escape does not close it:
// only the work it stands for ends it.
class ProgressSheet : public QDialog
{
    Q_OBJECT
public:
    explicit ProgressSheet(QWidget *parent = nullptr);

    // Shows the sheet unless it is already visible, brings it to the front
    // and runs the bar.
    void start();
    // Hides the sheet and stops the bar; nothing when it is not visible.
    void end();
    void setLabelText(const std::string &text);

    // Escape does nothing.
    void reject() override;

private:
    QLabel *m_label = nullptr;
    QProgressBar *m_bar = nullptr;
};
