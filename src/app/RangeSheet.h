// The sheet that adds a range series: expression, preview and count.
#pragma once

#include "TLBinNode.h"

#include <QDialog>

#include <functional>
#include <string>

class MyDocument;
class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;

// The expression field ("rangeTextField"), the preview of the bin names
// ("rangeTableView"), the count text ("rangeCount") and the Cancel and Create
// buttons. Every edit of the field asks the document for a new preview;
// Create and Cancel (also Escape) go to the document's commands, which close
// the sheet through dismiss(). Window-modal on its parent.
class RangeSheet : public QDialog
{
    Q_OBJECT
public:
    // `selectedNode` answers the outline's selected node when Create is
    // pressed; the document must outlive the sheet.
    RangeSheet(MyDocument &document, std::function<TLBinNodePtr()> selectedNode, QWidget *parent = nullptr);

    // Shows the sheet (open()) and puts the focus into the field.
    void present();
    // Hides the sheet without asking the document.
    void dismiss();
    // Sets the field's text; no preview is asked for.
    void setExpressionText(const std::string &expression);
    // Refills the preview from MyDocument::rangePreviewNames(), each name
    // with the range item icon, and warns of the first name a save would
    // leave out or read as other text.
    void reloadPreview();
    void setCountText(const std::string &text);

    // Escape: the document's cancel.
    void reject() override;

private:
    MyDocument &m_document;
    std::function<TLBinNodePtr()> m_selectedNode;
    QLineEdit *m_expressionField = nullptr;
    QListWidget *m_previewList = nullptr;
    QLabel *m_countLabel = nullptr;
    QLabel *m_nameWarning = nullptr;
    QPushButton *m_createButton = nullptr;
};
