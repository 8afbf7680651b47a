#include "AppTestMain.h"

#include "AppIcons.h"

#include <QImage>

class AppIconsTest : public QObject
{
    Q_OBJECT

private slots:
    void binIconsHaveARenderingForEachDensity()
    {
        for (const char *name :
             {"empty-bin-small", "bin-range-single", "smart-range-single", "smart-bin-small"}) {
            const QIcon icon = AppIcons::named(name);
            QVERIFY2(!icon.isNull(), name);
            QCOMPARE(icon.availableSizes(),
                     (QList<QSize>{QSize(16, 16), QSize(32, 32), QSize(64, 64)}));
            // A 16-point row on a double-density screen gets the 32-pixel
            // drawing itself, not the 16-pixel one scaled up.
            const QPixmap dense = icon.pixmap(QSize(16, 16), 2.0);
            QCOMPARE(dense.size(), QSize(32, 32));
            QImage drawn(QStringLiteral(":/icons/%1-32.png").arg(QLatin1String(name)));
            drawn.setDevicePixelRatio(2.0);
            QCOMPARE(dense.toImage().convertToFormat(QImage::Format_ARGB32),
                     drawn.convertToFormat(QImage::Format_ARGB32));
        }
    }

    void unknownNamesGiveNoIconAndTheApplicationAlwaysHasOne()
    {
        QVERIFY(AppIcons::named("").isNull());
        QVERIFY(AppIcons::named("smart-bin").isNull());
        QVERIFY(AppIcons::named("../corvale").isNull());
        const QIcon application = AppIcons::application();
        QVERIFY(!application.isNull());
        QCOMPARE(application.pixmap(QSize(256, 256)).size(), QSize(256, 256));
    }
};

CORVALE_QTEST_MAIN(AppIconsTest)
#include "AppIconsTest.moc"
