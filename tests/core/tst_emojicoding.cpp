#include "EmojiCoding.h"

#include <QTest>

class TestEmojiCoding final : public QObject
{
    Q_OBJECT

private slots:
    void decode_data()
    {
        QTest::addColumn<QString>("input");
        QTest::addColumn<QString>("expected");
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

    void decode()
    {
        QFETCH(QString, input);
        QTEST(EmojiCoding::decode(input), "expected");
    }
};

QTEST_GUILESS_MAIN(TestEmojiCoding)
#include "tst_emojicoding.moc"
