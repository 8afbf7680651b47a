// The sheets of a document window, driven through their own controls over the
// sample project: range series, smart bins, smart ranges and progress.
#include "AppTestMain.h"
#include "DocumentSheets.h"
#include "MyDocument.h"
#include "QtMainThread.h"
#include "RecordingAlertPresenter.h"
#include "TLAlert.h"
#include "TLMainThread.h"
#include "TLMediaItem.h"
#include "TLSmartBin.h"

#include <QComboBox>
#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMainWindow>
#include <QProgressBar>
#include <QPushButton>
#include <QTableWidget>
#include <QTreeWidget>

#include <atomic>
#include <filesystem>
#include <thread>

namespace {

// The window side of the document, as far as the sheets go.
class SheetsView : public MyDocumentView
{
public:
    QWidget *window = nullptr;
    DocumentSheets *sheets = nullptr;

    void *windowHandle() const override { return window; }
    void startProgress() override { sheets->startProgress(); }
    void endProgress() override { sheets->endProgress(); }
    void updateProgressLabel(const std::string &text) override { sheets->updateProgressLabel(text); }
    void showRangeSheet() override { sheets->showRangeSheet(); }
    void closeRangeSheet() override { sheets->closeRangeSheet(); }
    void setRangeExpressionText(const std::string &text) override { sheets->setRangeExpressionText(text); }
    void reloadRangePreview() override { sheets->reloadRangePreview(); }
    void setRangeCountText(const std::string &text) override { sheets->setRangeCountText(text); }
    void showSmartBinSheet() override { sheets->showSmartBinSheet(); }
    void closeSmartBinSheet() override { sheets->closeSmartBinSheet(); }
    void *smartBinSheetHandle() const override { return sheets->smartBinSheetHandle(); }
    void reloadSmartBinTable() override { sheets->reloadSmartBinTable(); }
    void editSmartBinFilterText(std::size_t row) override { sheets->editSmartBinFilterText(row); }
    void endSmartBinEditing() override { sheets->endSmartBinEditing(); }
    void startSmartBinSpinner() override { sheets->startSmartBinSpinner(); }
    void stopSmartBinSpinner() override { sheets->stopSmartBinSpinner(); }
    void showSmartRangeSheet() override { sheets->showSmartRangeSheet(); }
    void closeSmartRangeSheet() override { sheets->closeSmartRangeSheet(); }
    void reloadSmartRangePreview() override { sheets->reloadSmartRangePreview(); }
    void startSmartRangeSpinner() override { sheets->startSmartRangeSpinner(); }
    void stopSmartRangeSpinner() override { sheets->stopSmartRangeSpinner(); }
    void setSmartRangeCreateEnabled(bool enabled) override { sheets->setSmartRangeCreateEnabled(enabled); }
};

std::vector<std::string> names(const TLNodeListPtr &nodes)
{
    std::vector<std::string> result;
    for (const auto &node : *nodes)
        result.push_back(node->displayName());
    return result;
}

QStringList topLevelTexts(const QTreeWidget &outline)
{
    QStringList texts;
    for (int row = 0; row < outline.topLevelItemCount(); ++row)
        texts << outline.topLevelItem(row)->text(0);
    return texts;
}

// The editor of the cell being edited; closed ones linger until deleted.
QLineEdit *openEditor(const QTableWidget &table)
{
    for (auto *editor : table.viewport()->findChildren<QLineEdit *>())
        if (editor->isVisible())
            return editor;
    return nullptr;
}

template <typename Widget>
Widget *child(QDialog *sheet, const char *name)
{
    return sheet ? sheet->findChild<Widget *>(QString::fromLatin1(name)) : nullptr;
}

} // namespace

class SheetsTest : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        TLMainThread::setShared(m_mainThread);
    }

    void cleanupTestCase()
    {
        TLAlert::setPresenter(nullptr);
        TLMainThread::setShared(nullptr);
    }

    void init()
    {
        m_alerts = std::make_shared<test::RecordingAlertPresenter>();
        TLAlert::setPresenter(m_alerts);
        m_selected = nullptr;
        m_window = std::make_unique<QMainWindow>();
        m_view = std::make_shared<SheetsView>();
        m_view->window = m_window.get();
        m_document = std::make_unique<MyDocument>(MyDocumentServices{{}, m_mainThread, m_view, {}});
        m_sheets = std::make_unique<DocumentSheets>(*m_document, m_window.get(), [this] { return m_selected; });
        m_view->sheets = m_sheets.get();
        m_window->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));

        m_projectPath = m_folder.path() / "Sample.xml";
        std::filesystem::copy_file(CORVALE_EXAMPLES_DIR "/sample-project.xml", m_projectPath,
                                   std::filesystem::copy_options::overwrite_existing);
        QVERIFY(m_document->readFromURL(m_projectPath.string()));
    }

    void cleanup()
    {
        // Workers wait for the main thread, so it keeps handling events while
        // they finish.
        std::atomic<bool> finished = false;
        std::thread waiter([this, &finished] {
            m_document->waitForSave();
            m_document->waitForCommands();
            finished = true;
        });
        while (!finished)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        waiter.join();
        m_sheets.reset();
        m_view->sheets = nullptr;
        m_document.reset();
        m_window.reset();
    }

    void rangeSheetPreviewsAsTypedAndCreatesOrReplacesASeries()
    {
        m_document->binRangeClick();
        QDialog *sheet = m_sheets->rangeSheet();
        QVERIFY(sheet && sheet->isVisible());
        QCOMPARE(sheet->windowModality(), Qt::WindowModal);
        QCOMPARE(sheet->parentWidget(), m_window.get());
        auto *field = child<QLineEdit>(sheet, "rangeTextField");
        auto *preview = child<QListWidget>(sheet, "rangeTableView");
        auto *count = child<QLabel>(sheet, "rangeCount");
        QVERIFY(field && preview && count);
        QCOMPARE(field->text(), QStringLiteral("Reel [1-10]"));
        QCOMPARE(preview->count(), 10);
        QCOMPARE(count->text(), QStringLiteral("10 items"));

        field->selectAll();
        QTest::keyClicks(field, "Cam [1-3");
        QCOMPARE(preview->count(), 0);
        QCOMPARE(count->text(), QStringLiteral("0 items"));
        QTest::keyClicks(field, "]");
        QCOMPARE(preview->count(), 3);
        QCOMPARE(preview->item(2)->text(), QStringLiteral("Cam 3"));
        QCOMPARE(count->text(), QStringLiteral("3 items"));

        QTest::mouseClick(child<QPushButton>(sheet, "rangeCreateButton"), Qt::LeftButton);
        QVERIFY(!sheet->isVisible());
        QCOMPARE(names(m_document->dataArray()), (std::vector<std::string>{"Cam 1", "Cam 2", "Cam 3"}));

        // A double-click re-opens the series; Create then replaces it.
        m_selected = m_document->dataArray()->at(1);
        m_document->outlineViewDoubleClick(m_selected);
        QVERIFY(sheet->isVisible());
        QCOMPARE(field->text(), QStringLiteral("Cam [1-3]"));
        QCOMPARE(preview->count(), 3);
        field->selectAll();
        QTest::keyClicks(field, "Cam 1");
        QCOMPARE(count->text(), QStringLiteral("1 item"));
        QTest::keyClick(field, Qt::Key_Return);
        QVERIFY(!sheet->isVisible());
        QCOMPARE(names(m_document->dataArray()), (std::vector<std::string>{"Cam 1"}));
        QVERIFY(m_alerts->alerts().empty());
    }

    void rangeSheetShowsTheRefusalAndCancelsWithEscape()
    {
        m_selected = TLMediaItem::create(std::nullopt, "clip", std::nullopt);
        m_document->binRangeClick();
        QDialog *sheet = m_sheets->rangeSheet();
        QTest::mouseClick(child<QPushButton>(sheet, "rangeCreateButton"), Qt::LeftButton);
        const auto shown = m_alerts->alerts();
        QCOMPARE(shown.size(), std::size_t(1));
        QCOMPARE(shown[0].message, std::string("Ranges can only be added to regular bins"));
        QVERIFY(sheet->isVisible());

        QTest::keyClick(sheet, Qt::Key_Escape);
        QVERIFY(!sheet->isVisible());
        QVERIFY(m_document->dataArray()->empty());
        QVERIFY(m_document->rangePreviewNames().empty());
    }

    void smartBinSheetBuildsFromItsRowsAndTakesTextStillBeingTyped()
    {
        m_document->smartBinClick();
        QDialog *sheet = m_sheets->smartBinSheet();
        QVERIFY(sheet && sheet->isVisible());
        QCOMPARE(sheet->windowModality(), Qt::WindowModal);
        QCOMPARE(m_sheets->smartBinSheetHandle(), static_cast<void *>(sheet));
        auto *table = child<QTableWidget>(sheet, "smartBinTableView");
        QCOMPARE(table->rowCount(), 1);

        // The field pop-up writes its index into the row.
        auto *fieldPopUp = qobject_cast<QComboBox *>(table->cellWidget(0, 0));
        QVERIFY(fieldPopUp);
        QTest::keyClick(fieldPopUp, Qt::Key_Down);
        QVERIFY(m_document->smartBinObjectValue("filterType", 0) == MyDocument::TableValue(std::int64_t(1)));
        QTest::keyClick(fieldPopUp, Qt::Key_Up);
        QVERIFY(m_document->smartBinObjectValue("filterType", 0) == MyDocument::TableValue(std::int64_t(0)));

        // The new row's text is being edited; Create takes it unfinished.
        auto *editor = openEditor(*table);
        QVERIFY(editor);
        QCOMPARE(editor->text(), QStringLiteral("Unknown"));
        editor->selectAll();
        QTest::keyClicks(editor, "A002");
        // A new row keeps what was typed into the one before.
        QTest::mouseClick(child<QPushButton>(sheet, "smartBinAddButton"), Qt::LeftButton);
        QCOMPARE(table->rowCount(), 2);
        QCOMPARE(table->item(0, 2)->text(), QStringLiteral("A002"));
        editor = openEditor(*table);
        QVERIFY(editor);
        editor->selectAll();
        QTest::keyClicks(editor, "C00");
        auto *name = child<QLineEdit>(sheet, "smartBinNameTextField");
        name->setText(QStringLiteral("Second roll"));
        QTest::mouseClick(child<QPushButton>(sheet, "smartBinCreateButton"), Qt::LeftButton);
        QTRY_VERIFY(!sheet->isVisible());
        QVERIFY(child<QProgressBar>(sheet, "smartBinSpinner")->isHidden());

        QCOMPARE(m_document->dataArray()->size(), std::size_t(1));
        const auto bin = std::dynamic_pointer_cast<TLSmartBin>(m_document->dataArray()->at(0));
        QVERIFY(bin);
        QCOMPARE(bin->binName(), std::string("Second roll"));
        QCOMPARE(bin->matchType(), std::int64_t(2));
        QCOMPARE(bin->filterArray()->size(), std::size_t(2));
        QCOMPARE(bin->filterArray()->at(0)->filterString(), std::string("A002"));
        QCOMPARE(bin->filterArray()->at(1)->filterString(), std::string("C00"));
        QVERIFY(!bin->children()->empty());
        for (const auto &clip : *bin->children())
            QVERIFY(clip->displayName().find("A002_C00") != std::string::npos);
    }

    void smartBinSheetRemovesRowsAndRefusesToBuildFromNone()
    {
        m_document->smartBinClick();
        QDialog *sheet = m_sheets->smartBinSheet();
        auto *table = child<QTableWidget>(sheet, "smartBinTableView");
        QTest::mouseClick(child<QPushButton>(sheet, "smartBinAddButton"), Qt::LeftButton);
        QCOMPARE(table->rowCount(), 2);
        auto *remove = child<QPushButton>(sheet, "smartBinRemoveButton");
        table->clearSelection();
        QVERIFY(!remove->isEnabled());
        table->selectAll();
        QVERIFY(remove->isEnabled());
        QTest::mouseClick(remove, Qt::LeftButton);
        QCOMPARE(table->rowCount(), 0);
        QVERIFY(m_document->smartBinFilterArray().empty());

        QTest::mouseClick(child<QPushButton>(sheet, "smartBinCreateButton"), Qt::LeftButton);
        const auto shown = m_alerts->alerts();
        QCOMPARE(shown.size(), std::size_t(1));
        QCOMPARE(shown[0].message, std::string("Unable to create smart bin"));
        QCOMPARE(shown[0].parentWindow, static_cast<void *>(sheet));
        QVERIFY(sheet->isVisible());
        QTest::mouseClick(child<QPushButton>(sheet, "smartBinCancelButton"), Qt::LeftButton);
        QVERIFY(!sheet->isVisible());
        QVERIFY(m_document->dataArray()->empty());
    }

    void smartRangeSheetPreviewsTheChosenCriterionAndCreatesEveryBin()
    {
        m_sheets->openSmartRangeSheet();
        QDialog *sheet = m_sheets->smartRangeSheet();
        QVERIFY(sheet && sheet->isVisible());
        QCOMPARE(sheet->windowModality(), Qt::WindowModal);
        auto *outline = child<QTreeWidget>(sheet, "smartRangeOutlineView");
        auto *popUp = child<QComboBox>(sheet, "smartRangeCriteriaPopUp");
        auto *create = child<QPushButton>(sheet, "smartRangeCreateBtn");
        QCOMPARE(m_sheets->smartRangeCriteria(), std::int64_t(0));
        QTRY_VERIFY(topLevelTexts(*outline).contains(QStringLiteral("mov")));

        // One step down to "Scene" (criterion 7): of overlapping previews the
        // last to finish is kept, so the test makes only one.
        popUp->setCurrentIndex(popUp->findData(QVariant::fromValue<qlonglong>(7)) - 1);
        QTest::keyClick(popUp, Qt::Key_Down);
        QCOMPARE(m_sheets->smartRangeCriteria(), std::int64_t(7));
        QTRY_VERIFY(topLevelTexts(*outline).contains(QStringLiteral("B roll")));
        QTRY_VERIFY(child<QProgressBar>(sheet, "smartRangeSpinner")->isHidden());
        const QStringList previewed = topLevelTexts(*outline);
        QVERIFY(!previewed.contains(QStringLiteral("mov")));
        QVERIFY(outline->topLevelItem(0)->childCount() > 0);

        QTest::mouseClick(create, Qt::LeftButton);
        QVERIFY(!create->isEnabled());
        QTRY_VERIFY(!sheet->isVisible());
        const auto created = names(m_document->dataArray());
        QCOMPARE(int(created.size()), previewed.size());
        for (std::size_t index = 0; index < created.size(); ++index)
            QCOMPARE(QString::fromStdString(created[index]), previewed[int(index)]);
        QVERIFY(m_document->isDocumentEdited());

        m_sheets->openSmartRangeSheet();
        QVERIFY(sheet->isVisible());
        QVERIFY(create->isEnabled());
        QTest::keyClick(sheet, Qt::Key_Escape);
        QVERIFY(!sheet->isVisible());
    }

    void progressSheetShowsASaveUnderWay()
    {
        QVERIFY(!m_sheets->progressSheet());
        m_sheets->updateProgressLabel("Waiting...");
        m_sheets->startProgress();
        QDialog *sheet = m_sheets->progressSheet();
        QVERIFY(sheet && sheet->isVisible());
        QCOMPARE(sheet->windowModality(), Qt::WindowModal);
        QCOMPARE(child<QLabel>(sheet, "progressLabel")->text(), QStringLiteral("Waiting..."));
        QTest::keyClick(sheet, Qt::Key_Escape);
        QVERIFY(sheet->isVisible());
        m_sheets->endProgress();
        QVERIFY(!sheet->isVisible());

        // A save on its own thread hands the sheet's changes to this one.
        const auto target = (m_folder.path() / "Saved.xml").string();
        QVERIFY(m_document->writeSafelyToURL(target, "xml"));
        QTRY_VERIFY(!m_document->isSaving());
        QTRY_VERIFY(!sheet->isVisible());
        QCOMPARE(child<QLabel>(sheet, "progressLabel")->text(), QStringLiteral("Writing file..."));
        QVERIFY(std::filesystem::exists(target));
    }

private:
    // The application's own door: workers' hand-overs run in the event loop.
    std::shared_ptr<QtMainThread> m_mainThread = std::make_shared<QtMainThread>();
    std::shared_ptr<test::RecordingAlertPresenter> m_alerts;
    test::TemporaryFolder m_folder;
    std::filesystem::path m_projectPath;
    std::unique_ptr<QMainWindow> m_window;
    std::shared_ptr<SheetsView> m_view;
    std::unique_ptr<MyDocument> m_document;
    std::unique_ptr<DocumentSheets> m_sheets;
    TLBinNodePtr m_selected;
};

CORVALE_QTEST_MAIN(SheetsTest)
#include "SheetsTest.moc"
