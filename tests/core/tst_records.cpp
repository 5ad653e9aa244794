#include "DesktopFrame.h"
#include "WidgetPlacement.h"

#include <QTest>

class TestRecords final : public QObject
{
    Q_OBJECT

private slots:
    void legacyMigration_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<bool>("statusBar");
        QTest::addColumn<bool>("floating");
        QTest::addColumn<bool>("expectStatusBar");
        QTest::addColumn<bool>("expectFloating");
        QTest::newRow("statusbar") << "statusbar" << false << false << true << false;
        QTest::newRow("desktop") << "desktop" << false << false << false << true;
        QTest::newRow("off") << "off" << false << false << false << false;
        QTest::newRow("unknown") << "floating" << false << false << false << false;
        QTest::newRow("flag blocks") << "desktop" << true << false << true << false;
        QTest::newRow("other flag blocks") << "statusbar" << false << true << false << true;
    }

    void legacyMigration()
    {
        QFETCH(QString, mode);
        QFETCH(bool, statusBar);
        QFETCH(bool, floating);
        WidgetPlacement p(QStringLiteral("pomodoro"));
        p.setMode(mode);
        p.setInStatusBar(statusBar);
        p.setInFloating(floating);
        p.migrateFromLegacyModeIfNeeded();
        QTEST(p.inStatusBar(), "expectStatusBar");
        QTEST(p.inFloating(), "expectFloating");
        QCOMPARE(p.mode(), mode);
    }

    void frameCodec_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("valid");
        QTest::newRow("all four") << R"({"h":200.5,"w":240,"y":-300,"x":12.25})" << true;
        QTest::newRow("three keys") << R"({"x":1,"y":2,"w":3})" << false;
        QTest::newRow("not json") << "x=1,y=2" << false;
        QTest::newRow("string value") << R"({"x":"1","y":2,"w":3,"h":4})" << false;
        QTest::newRow("extra non-number") << R"({"x":1,"y":2,"w":3,"h":4,"z":null})" << false;
        QTest::newRow("array") << "[1,2,3,4]" << false;
        QTest::newRow("empty") << "" << false;
    }

    void frameCodec()
    {
        QFETCH(QString, text);
        QFETCH(bool, valid);
        const std::optional<QRectF> frame = DesktopFrame::decode(text);
        QCOMPARE(frame.has_value(), valid);
        if (!frame)
            return;
        QCOMPARE(*frame, QRectF(12.25, -300, 240, 200.5));
        const QString encoded = DesktopFrame::encode(*frame);
        QVERIFY(!encoded.contains(u'\n'));
        QCOMPARE(DesktopFrame::decode(encoded).value_or(QRectF()), *frame);
    }
};

QTEST_GUILESS_MAIN(TestRecords)
#include "tst_records.moc"
