// The sheet that adds a smart range series: criterion, preview and create.
#pragma once

#include "TLBinNode.h"

#include <QDialog>

#include <cstdint>
#include <functional>

class MyDocument;
class QComboBox;
class QProgressBar;
class QPushButton;
class QTreeWidget;

// The criterion pop-up ("smartRangeCriteriaPopUp", each item standing for a
// criterion number), the preview outline of the bins to be made with their
// clips ("smartRangeOutlineView"), the spinner ("smartRangeSpinner") and
// Cancel and Create ("smartRangeCreateBtn"). Choosing a criterion asks the
// document for a new preview; every bin previewed is made on Create.
// Window-modal on its parent.
class SmartRangeSheet : public QDialog
{
    Q_OBJECT
public:
    // `selectedNode` answers the outline's selected node when Create is
    // pressed; the document must outlive the sheet.
    SmartRangeSheet(MyDocument &document, std::function<TLBinNodePtr()> selectedNode, QWidget *parent = nullptr);

    // The criterion number of the chosen pop-up item.
    std::int64_t criteria() const;
    // Shows the sheet (open()).
    void present();
    // Hides the sheet without asking the document.
    void dismiss();
    // Rebuilds the preview outline from the document's answers for its
    // smart range preview.
    void reloadPreview();
    void startSpinner();
    void stopSpinner();
    void setCreateEnabled(bool enabled);

    // Escape: the document's cancel.
    void reject() override;

private:
    MyDocument &m_document;
    std::function<TLBinNodePtr()> m_selectedNode;
    QComboBox *m_criteriaPopUp = nullptr;
    QTreeWidget *m_previewOutline = nullptr;
    QProgressBar *m_spinner = nullptr;
    QPushButton *m_createButton = nullptr;
};
