#include "DesktopFrame.h"
#include "EmojiCoding.h"
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

    void emojiIcon_data()
    {
        QTest::addColumn<QString>("input");
        QTest::addColumn<QString>("expected");
        // Icons are stored as hex code points, "-" between the points of a sequence.
        QTest::newRow("code point") << "1F4A7" << QStringLiteral("💧");
        QTest::newRow("lower case") << "1f4a7" << QStringLiteral("💧");
        QTest::newRow("sequence") << "1F3CB-FE0F" << QStringLiteral("🏋️");
        QTest::newRow("blanks around") << " \n1F4A7\t " << QStringLiteral("💧");
        QTest::newRow("doubled hyphen") << "1F3CB--FE0F" << QStringLiteral("🏋️");
        QTest::newRow("last code point") << "10FFFF" << QString::fromUcs4(U"\U0010FFFF", 1);
        // Anything but a sequence of valid code points is taken as the icon itself.
        for (const char* kept : {"💧", "zz", "D800", "DFFF", "110000", "1FFFFFFFF", "-", "",
                                 "1F4A7 1F4A7", "   ", "１２"})
            QTest::addRow("kept '%s'", kept) << QString::fromUtf8(kept) << QString::fromUtf8(kept);
    }

    void emojiIcon()
    {
        QFETCH(QString, input);
        QTEST(EmojiCoding::decode(input), "expected");
    }
};

QTEST_GUILESS_MAIN(TestRecords)
#include "tst_records.moc"
