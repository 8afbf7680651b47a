#include "AppTestMain.h"

#include "FakeAppleEventTransport.h"
#include "ProjectLoaderDialog.h"
#include "RecordingAlertPresenter.h"
#include "TLAlert.h"

#include <QItemSelectionModel>
#include <QPushButton>
#include <QTableWidget>

#include <memory>

namespace {

// Final Cut Pro with these projects open; an empty list with `running` false.
TLAppleEvents finalCutProWith(std::vector<std::string> projects, bool running = true)
{
    auto host = std::make_shared<test::FakeAppleEventTransport>();
    host->running = running;
    host->openProjects = std::move(projects);
    return TLAppleEvents(host, [](const std::string &) {});
}

void selectRows(QTableWidget *table, std::initializer_list<int> rows)
{
    table->clearSelection();
    for (const int row : rows) {
        table->selectionModel()->select(table->model()->index(row, 0),
                                        QItemSelectionModel::Select | QItemSelectionModel::Rows);
    }
}

} // namespace

class ProjectLoaderDialogTest : public QObject
{
    Q_OBJECT

private:
    std::shared_ptr<test::RecordingAlertPresenter> m_alerts;
    std::vector<std::string> m_opened;

    TLFCPProjectLoader::OpenDocument recordOpening()
    {
        m_opened.clear();
        return [this](const std::string &path) -> std::optional<std::string> {
            m_opened.push_back(path);
            if (path == "/Projects/Locked.fcp")
                return std::string("The project is locked.");
            return std::nullopt;
        };
    }

private slots:
    void init()
    {
        m_alerts = std::make_shared<test::RecordingAlertPresenter>();
        TLAlert::setPresenter(m_alerts);
    }

    void cleanup() { TLAlert::setPresenter(nullptr); }

    void opensTheSelectedProjectsInRowOrderAndReportsEachFailure()
    {
        ProjectLoaderDialog dialog(
            finalCutProWith({"/Projects/Locked.fcp", "/Projects/B.fcp", "/Projects/C.fcp"}),
            recordOpening());
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        QCOMPARE(dialog.table()->rowCount(), 3);
        QCOMPARE(dialog.table()->item(1, 0)->text(), QStringLiteral("/Projects/B.fcp"));
        QVERIFY(!dialog.table()->item(1, 0)->icon().isNull());
        QVERIFY(dialog.openButton()->isEnabled());

        QTest::mouseClick(dialog.openButton(), Qt::LeftButton);
        QVERIFY(m_opened.empty());
        QVERIFY(dialog.isVisible());

        selectRows(dialog.table(), {2, 0});
        QTest::mouseClick(dialog.openButton(), Qt::LeftButton);
        QCOMPARE(m_opened, (std::vector<std::string>{"/Projects/Locked.fcp", "/Projects/C.fcp"}));
        QVERIFY(!dialog.isVisible());
        QVERIFY(!dialog.loader().hasModalSession());
        const auto alerts = m_alerts->alerts();
        QCOMPARE(alerts.size(), std::size_t(1));
        QCOMPARE(alerts[0].message, std::string("Error loading project"));
        QCOMPARE(alerts[0].informativeText, std::string("The project is locked."));
    }

    void finalCutProNotRunningGivesAnEmptyListAndNoOpen()
    {
        ProjectLoaderDialog dialog(finalCutProWith({"/Projects/A.fcp"}, false), recordOpening());
        QCOMPARE(dialog.table()->rowCount(), 0);
        QVERIFY(!dialog.openButton()->isEnabled());
        QVERIFY(dialog.loader().hasModalSession());
    }

    void closeBoxEscapeAndCancelEndTheSessionAndShownDialogsGoAway()
    {
        ProjectLoaderDialog closed(finalCutProWith({"/Projects/A.fcp"}), recordOpening());
        closed.show();
        QVERIFY(closed.close());
        QVERIFY(!closed.loader().hasModalSession());

        ProjectLoaderDialog escaped(finalCutProWith({"/Projects/A.fcp"}), recordOpening());
        escaped.show();
        QVERIFY(QTest::qWaitForWindowExposed(&escaped));
        QTest::keyClick(&escaped, Qt::Key_Escape);
        QVERIFY(!escaped.isVisible());
        QVERIFY(!escaped.loader().hasModalSession());

        ProjectLoaderDialog &dialog =
            *ProjectLoaderDialog::showOpenDialog(recordOpening(), finalCutProWith({"/A.fcp"}));
        const QPointer<ProjectLoaderDialog> shown(&dialog);
        QVERIFY(dialog.isVisible());
        QCOMPARE(dialog.windowModality(), Qt::ApplicationModal);
        QTest::mouseClick(dialog.cancelButton(), Qt::LeftButton);
        QTRY_VERIFY(shown.isNull());
        QVERIFY(m_opened.empty());
    }
};

CORVALE_QTEST_MAIN(ProjectLoaderDialogTest)
#include "ProjectLoaderDialogTest.moc"
