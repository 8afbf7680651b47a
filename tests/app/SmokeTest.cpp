#include "AppTestMain.h"

#include <QWidget>

class SmokeTest : public QObject
{
    Q_OBJECT
private slots:
    void widgetsShowOffscreen()
    {
        QWidget widget;
        widget.show();
        QVERIFY(QTest::qWaitForWindowExposed(&widget));
    }
};

CORVALE_QTEST_MAIN(SmokeTest)
#include "SmokeTest.moc"
