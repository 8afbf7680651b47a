#include "AppTestMain.h"

#include "BinOutlineModel.h"
#include "DocumentSheets.h"
#include "DocumentWindow.h"
#include "QtMainThread.h"
#include "RecordingAlertPresenter.h"
#include "TLAlert.h"
#include "TLMainThread.h"
#include "TLRegularBin.h"
#include "TLSmartRangeItem.h"

#include <QAbstractItemModelTester>
#include <QAction>
#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QStatusBar>
#include <QTreeView>

#include <filesystem>
#include <memory>

namespace {

// The rows of the bin outline, top level, by name.
QStringList topLevelNames(DocumentWindow &window)
{
    QStringList names;
    BinOutlineModel *model = window.outlineModel();
    for (int row = 0; row < model->rowCount(); ++row)
        names << model->index(row, 0).data().toString();
    return names;
}

void clickRow(DocumentWindow &window, int row, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
{
    QTreeView *outline = window.outlineView();
    const QRect rect = outline->visualRect(window.outlineModel()->index(row, 0));
    QTest::mouseClick(outline->viewport(), Qt::LeftButton, modifiers, rect.center());
}

// The platform's order of events: press, release, double-click, release.
void doubleClickRow(DocumentWindow &window, int row)
{
    QWidget *viewport = window.outlineView()->viewport();
    const QPoint centre = window.outlineView()->visualRect(window.outlineModel()->index(row, 0)).center();
    QTest::mouseClick(viewport, Qt::LeftButton, Qt::NoModifier, centre);
    QTest::mouseDClick(viewport, Qt::LeftButton, Qt::NoModifier, centre);
    QTest::mouseRelease(viewport, Qt::LeftButton, Qt::NoModifier, centre);
}

template <typename Widget>
Widget *sheetChild(QDialog *sheet, const char *name)
{
    return sheet ? sheet->findChild<Widget *>(QString::fromLatin1(name)) : nullptr;
}

} // namespace

class DocumentWindowTest : public QObject
{
    Q_OBJECT

private:
    std::shared_ptr<test::RecordingAlertPresenter> m_presenter;
    std::shared_ptr<QtMainThread> m_mainThread;
    std::unique_ptr<test::TemporaryFolder> m_folder;
    QString m_projectPath;

    // A window showing a fresh copy of the sample project.
    std::unique_ptr<DocumentWindow> openSample()
    {
        auto window = std::make_unique<DocumentWindow>();
        if (!window->openProject(m_projectPath))
            return nullptr;
        window->show();
        window->activateWindow();
        if (!QTest::qWaitForWindowActive(window.get()))
            return nullptr;
        return window;
    }

    void addRange(DocumentWindow &window, const QString &expression)
    {
        window.binRangeAction()->trigger();
        QDialog *sheet = window.sheets().rangeSheet();
        QVERIFY(sheet && sheet->isVisible());
        auto *field = sheetChild<QLineEdit>(sheet, "rangeTextField");
        QVERIFY(field);
        field->selectAll();
        QTest::keyClicks(field, expression);
        QTest::mouseClick(sheetChild<QPushButton>(sheet, "rangeCreateButton"), Qt::LeftButton);
        QTRY_VERIFY(!sheet->isVisible());
    }

private slots:
    void initTestCase()
    {
        m_mainThread = std::make_shared<QtMainThread>();
        TLMainThread::setShared(m_mainThread);
        m_presenter = std::make_shared<test::RecordingAlertPresenter>();
        TLAlert::setPresenter(m_presenter);
    }

    void cleanupTestCase()
    {
        TLAlert::setPresenter(nullptr);
        TLMainThread::setShared(nullptr);
    }

    void init()
    {
        m_folder = std::make_unique<test::TemporaryFolder>();
        const std::string path = m_folder->file("Harbour.xml");
        test::writeFile(path, test::readFile(CORVALE_EXAMPLES_DIR "/sample-project.xml"));
        m_projectPath = QString::fromStdString(path);
        // The bin tree of a project is kept by its name, outside its folder.
        if (const auto settings = MyDocument::settingsPathForProject(path))
            std::filesystem::remove_all(*settings);
        m_presenter->returnCode = 1;
    }

    void cleanup() { m_folder.reset(); }

    void opensProjectIntoTitledWindow()
    {
        DocumentWindow window;
        QVERIFY(!window.openProject(m_projectPath + QStringLiteral(".missing")));
        QVERIFY(window.projectPath().isEmpty());

        QVERIFY(window.openProject(m_projectPath));
        QCOMPARE(window.projectPath(), m_projectPath);
        QVERIFY(window.windowTitle().startsWith(QStringLiteral("Harbour.xml")));
        QCOMPARE(window.outlineModel()->rowCount(), 0);
        // An xmeml file is saved, never sent: the send item is not shown.
        QVERIFY(!window.sendAction()->isVisible());
    }

    void addsEachKindOfBinThroughTheWindow()
    {
        auto window = openSample();
        QVERIFY(window);
        QAbstractItemModelTester tester(window->outlineModel(), QAbstractItemModelTester::FailureReportingMode::QtTest);

        window->emptyBinAction()->trigger();
        QCOMPARE(topLevelNames(*window), QStringList{QStringLiteral("Untitled Bin")});
        QModelIndex firstRow = window->outlineModel()->index(0, 0);
        auto *editor = qobject_cast<QLineEdit *>(window->outlineView()->indexWidget(firstRow));
        QVERIFY(editor);
        QVERIFY(editor->geometry().left() >= window->outlineView()->visualRect(firstRow).left() + 23);
        editor->selectAll();
        QTest::keyClicks(editor, QStringLiteral("Spots"));
        QTest::keyClick(editor, Qt::Key_Return);
        QTRY_COMPARE(window->document().dataArray()->front()->binName(), std::string("Spots"));
        doubleClickRow(*window, 0);
        QTRY_VERIFY(window->outlineView()->indexWidget(firstRow));
        QTest::keyClick(window->outlineView()->indexWidget(firstRow), Qt::Key_Escape);
        QTRY_VERIFY(!window->outlineView()->indexWidget(firstRow));

        window->outlineView()->clearSelection();
        addRange(*window, QStringLiteral("Reel [1-3]"));
        QCOMPARE(topLevelNames(*window),
                 (QStringList{"Spots", "Reel 1", "Reel 2", "Reel 3"}));

        window->outlineView()->clearSelection();
        window->smartBinAction()->trigger();
        QDialog *smartBinSheet = window->sheets().smartBinSheet();
        QVERIFY(smartBinSheet && smartBinSheet->isVisible());
        QTest::mouseClick(sheetChild<QPushButton>(smartBinSheet, "smartBinCreateButton"), Qt::LeftButton);
        QTRY_VERIFY(!smartBinSheet->isVisible());
        QCOMPARE(window->outlineModel()->rowCount(), 5);

        window->outlineView()->clearSelection();
        window->smartRangeAction()->trigger();
        QDialog *smartRangeSheet = window->sheets().smartRangeSheet();
        QVERIFY(smartRangeSheet && smartRangeSheet->isVisible());
        QTRY_VERIFY(!window->document().isUpdatingPreview());
        const auto previewed = int(window->document().smartRangePreview().size());
        QVERIFY(previewed > 0);
        QTest::mouseClick(sheetChild<QPushButton>(smartRangeSheet, "smartRangeCreateBtn"), Qt::LeftButton);
        QTRY_VERIFY(!smartRangeSheet->isVisible());
        QCOMPARE(window->outlineModel()->rowCount(), 5 + previewed);
        QTRY_VERIFY(window->isWindowModified());
    }

    void selectingOneRangeItemSelectsItsSeriesAndRefusesBins()
    {
        auto window = openSample();
        QVERIFY(window);
        addRange(*window, QStringLiteral("Reel [1-3]"));
        QSignalSpy notifications(window.get(), &DocumentWindow::notificationPosted);

        clickRow(*window, 1);
        QCOMPARE(window->selectedNodes().size(), std::size_t(3));
        QCOMPARE(notifications.last().at(0).toString(), QStringLiteral("disableAddButtons"));

        const auto before = m_presenter->alerts().size();
        window->emptyBinAction()->trigger();
        const auto alerts = m_presenter->alerts();
        QCOMPARE(alerts.size(), before + 1);
        QCOMPARE(alerts.back().message, std::string("Bins can only be added to regular bins"));
        QCOMPARE(alerts.back().parentWindow, static_cast<void *>(static_cast<QWidget *>(window.get())));
        QCOMPARE(window->outlineModel()->rowCount(), 3);

        // Double-clicking a member re-opens its series in the range sheet.
        doubleClickRow(*window, 2);
        QDialog *sheet = window->sheets().rangeSheet();
        QTRY_VERIFY(sheet->isVisible());
        QCOMPARE(sheetChild<QLineEdit>(sheet, "rangeTextField")->text(), QStringLiteral("Reel [1-3]"));
        sheet->reject();
    }

    void deleteKeyRemovesSelectedBinsAndSaveWritesTheRest()
    {
        auto window = openSample();
        QVERIFY(window);
        addRange(*window, QStringLiteral("Keep [1-2]"));
        window->outlineView()->clearSelection();
        addRange(*window, QStringLiteral("Gone [1-1]"));
        QVERIFY(!window->isWindowModified());

        clickRow(*window, 2);
        window->outlineView()->setFocus();
        QTest::keyClick(window->outlineView(), Qt::Key_Delete);
        QCOMPARE(topLevelNames(*window), (QStringList{"Keep 1", "Keep 2"}));
        QTRY_VERIFY(window->isWindowModified());

        window->saveDocument();
        QTRY_VERIFY(!window->document().isSaving());
        QTRY_VERIFY(!window->isWindowModified());
        const std::string saved = test::readFile(m_projectPath.toStdString());
        QVERIFY(saved.find("<name>Keep 2</name>") != std::string::npos);
        QVERIFY(saved.find("Gone 1") == std::string::npos);
    }

    void projectsThatCannotBeOpenedAreRefusedWithTheReason()
    {
        const std::string notXML = m_folder->file("Shot list.xml");
        test::writeFile(notXML, "1. Harbour, wide\n2. Boats\n");
        const std::string project = m_folder->file("Spots.fcp");
        test::writeFile(project, "binary project");
        const std::pair<std::string, std::string> cases[] = {
            {notXML, ": it is not well-formed XML ("},
            {project, ": Final Cut Pro projects open only through Final Cut Pro; export the project as XML"},
            {m_folder->file("Missing.xml"), ": No such file or directory"},
        };
        for (const auto &[path, reason] : cases) {
            const auto shownBefore = m_presenter->alerts().size();
            DocumentWindow window;
            QVERIFY(!window.openProject(QString::fromStdString(path)));
            QCOMPARE(m_presenter->alerts().size(), shownBefore + 1);
            const auto alert = m_presenter->alerts().back();
            QCOMPARE(alert.message, std::string("The project could not be opened"));
            QVERIFY2(alert.informativeText.find("cannot open " + path + reason) != std::string::npos,
                     alert.informativeText.c_str());
        }
        // Nothing was written over the file that is not a project.
        QCOMPARE(test::readFile(notXML), std::string("1. Harbour, wide\n2. Boats\n"));
    }

    void settingsThatCannotBeKeptAreReportedOnTheWindow()
    {
        auto window = openSample();
        QVERIFY(window);
        const auto settings = MyDocument::settingsPathForProject(m_projectPath.toStdString());
        QVERIFY(settings);
        std::filesystem::remove(*settings);
        std::filesystem::create_directories(*settings); // a folder where the file must go
        addRange(*window, QStringLiteral("Reel [1-2]"));
        window->document().updateChangeCountDone();
        const auto shownBefore = m_presenter->alerts().size();

        window->saveDocument();
        QTRY_VERIFY(!window->document().isSaving());
        QTRY_COMPARE(m_presenter->alerts().size(), shownBefore + 1);
        const auto alert = m_presenter->alerts().back();
        QCOMPARE(alert.message, std::string("The bins could not be kept"));
        QCOMPARE(alert.parentWindow, static_cast<void *>(static_cast<QWidget *>(window.get())));
        QVERIFY(window->isWindowModified());
        QVERIFY(test::readFile(m_projectPath.toStdString()).find("<name>Reel 2</name>") != std::string::npos);
        std::filesystem::remove_all(*settings);
    }

    void namesASaveWouldChangeAreWarnedOfAndWhatItLeftOutIsShown()
    {
        auto window = openSample();
        QVERIFY(window);
        const QString leftOut = QStringLiteral("Saving leaves the bin \"R&D 1\" out: its name holds \"&\" or \"<\" "
                                               "and is not well-formed XML.");
        window->binRangeAction()->trigger();
        QDialog *rangeSheet = window->sheets().rangeSheet();
        sheetChild<QLineEdit>(rangeSheet, "rangeTextField")->selectAll();
        QTest::keyClicks(sheetChild<QLineEdit>(rangeSheet, "rangeTextField"), QStringLiteral("R&D [1-2]"));
        QCOMPARE(sheetChild<QLabel>(rangeSheet, "rangeNameWarning")->text(), leftOut);
        QVERIFY(sheetChild<QLabel>(rangeSheet, "rangeNameWarning")->isVisible());
        QTest::mouseClick(sheetChild<QPushButton>(rangeSheet, "rangeCreateButton"), Qt::LeftButton);
        QTRY_VERIFY(!rangeSheet->isVisible());

        window->outlineView()->clearSelection();
        window->smartBinAction()->trigger();
        QDialog *smartBinSheet = window->sheets().smartBinSheet();
        QVERIFY(!sheetChild<QLabel>(smartBinSheet, "smartBinNameWarning")->isVisible());
        auto *nameField = sheetChild<QLineEdit>(smartBinSheet, "smartBinNameTextField");
        nameField->selectAll();
        QTest::keyClicks(nameField, QStringLiteral("Q&amp;A"));
        QCOMPARE(sheetChild<QLabel>(smartBinSheet, "smartBinNameWarning")->text(),
                 QStringLiteral("Saving writes the name \"Q&amp;A\" as XML, so the project will read it as \"Q&A\"."));
        smartBinSheet->reject();

        window->outlineView()->clearSelection();
        window->emptyBinAction()->trigger();
        const QModelIndex newRow = window->outlineModel()->index(2, 0);
        auto *editor = qobject_cast<QLineEdit *>(window->outlineView()->indexWidget(newRow));
        QVERIFY(editor);
        editor->selectAll();
        QTest::keyClicks(editor, QStringLiteral("A<B"));
        QVERIFY(window->statusBar()->currentMessage().startsWith(QStringLiteral("Saving leaves the bin \"A<B\" out")));
        QTest::keyClick(editor, Qt::Key_Backspace);
        QTest::keyClick(editor, Qt::Key_Backspace);
        QTest::keyClicks(editor, QStringLiteral("B"));
        QCOMPARE(window->statusBar()->currentMessage(), QString());
        QTest::keyClick(editor, Qt::Key_Return);

        QVERIFY(!window->noticeBar()->isVisible());
        window->saveDocument();
        QTRY_VERIFY(!window->document().isSaving());
        QTRY_VERIFY(window->noticeBar()->isVisible());
        QCOMPARE(window->noticeText()->text(),
                 QStringLiteral("The bin \"R&D 1\" could not be merged into the project (its name holds \"&\" or "
                                "\"<\" and is not well-formed XML) and will be gone when the project is next opened.\n"
                                "The bin \"R&D 2\" could not be merged into the project (its name holds \"&\" or "
                                "\"<\" and is not well-formed XML) and will be gone when the project is next opened."));

        // A save that writes everything takes the bar away.
        clickRow(*window, 0);
        window->removeAction()->trigger();
        window->saveDocument();
        QTRY_VERIFY(!window->document().isSaving());
        QTRY_VERIFY(!window->noticeBar()->isVisible());
    }

    void saveAsMovesTheDocumentAndRevertDropsLaterChanges()
    {
        auto window = openSample();
        QVERIFY(window);
        addRange(*window, QStringLiteral("Saved [1-2]"));
        const QString copy = QString::fromStdString(m_folder->file("Copy.xml"));
        QVERIFY(window->saveDocumentToPath(copy));
        QTRY_VERIFY(!window->document().isSaving());
        QCOMPARE(window->projectPath(), copy);
        QVERIFY(window->windowTitle().startsWith(QStringLiteral("Copy.xml")));
        QVERIFY(test::readFile(copy.toStdString()).find("<name>Saved 2</name>") != std::string::npos);

        window->outlineView()->clearSelection();
        addRange(*window, QStringLiteral("Unsaved [1-1]"));
        QCOMPARE(window->outlineModel()->rowCount(), 3);
        window->revertDocumentToSaved();
        QCOMPARE(m_presenter->alerts().back().description.defaultButtonTitle, std::optional<std::string>("Revert"));
        QCOMPARE(topLevelNames(*window), (QStringList{"Saved 1", "Saved 2"}));
        QCOMPARE(window->projectPath(), copy);
    }

    void outlineModelFollowsNestedEditsKeepingExpansion()
    {
        MyDocument document;
        BinOutlineModel model(document);
        QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
        QTreeView view;
        view.setModel(&model);

        const auto named = [](const char *name) {
            auto bin = TLRegularBin::create();
            bin->setBinName(name);
            return bin;
        };
        const auto outer = named("Outer");
        const auto first = named("First");
        const auto second = named("Second");
        document.addItem(outer, nullptr, false, false);
        document.addItem(first, outer, false, false);
        model.reloadOutline();
        view.expand(model.indexForNode(outer));
        QCOMPARE(model.rowCount(model.indexForNode(outer)), 1);

        document.addItem(second, outer, false, false);
        model.reloadItem(outer, true);
        QCOMPARE(model.rowCount(model.indexForNode(outer)), 2);
        QCOMPARE(model.indexForNode(second).row(), 1);

        document.remove({first});
        model.reloadOutline();
        QCOMPARE(model.indexForNode(second).row(), 0);
        QVERIFY(!model.indexForNode(first).isValid());
        QVERIFY(view.isExpanded(model.indexForNode(outer)));

        // F2 and a slow second click rename only regular bins.
        const auto smartRange = TLSmartRangeItem::create("Scene 1", 7);
        document.addItem(smartRange, outer, false, false);
        model.reloadItem(outer, true);
        QVERIFY(!(model.flags(model.indexForNode(smartRange)) & Qt::ItemIsEditable));
        QVERIFY(model.flags(model.indexForNode(second)) & Qt::ItemIsEditable);
        document.remove({smartRange});
        model.reloadItem(outer, true);

        QVERIFY(model.setData(model.indexForNode(second), QStringLiteral("Renamed")));
        QCOMPARE(second->binName(), std::string("Renamed"));
        QCOMPARE(model.nodeForIndex(model.index(0, 0, model.indexForNode(outer))), TLBinNodePtr(second));

        document.remove({outer});
        model.reloadOutline();
        QCOMPARE(model.rowCount(), 0);
        QVERIFY(!model.nodeForIndex({}));
    }

    void closingWithUnsavedChangesAsksFirst()
    {
        auto window = openSample();
        QVERIFY(window);
        addRange(*window, QStringLiteral("A [1-2]"));
        clickRow(*window, 0);
        QTest::keyClick(window->outlineView(), Qt::Key_Delete);
        QVERIFY(window->document().isDocumentEdited());

        m_presenter->returnCode = 0; // Cancel
        QVERIFY(!window->close());
        QVERIFY(window->isVisible());
        QVERIFY(m_presenter->alerts().back().message.starts_with("Do you want to save the changes"));
        QVERIFY(!window->document().isQuitting());

        m_presenter->returnCode = -1; // Don't Save
        QVERIFY(window->close());
        QVERIFY(test::readFile(m_projectPath.toStdString()).find("<name>A 2</name>") == std::string::npos);
    }
};

CORVALE_QTEST_MAIN(DocumentWindowTest)
#include "DocumentWindowTest.moc"
