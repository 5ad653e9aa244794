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
        QTest::newRow("flag") << "1F1E9-1F1EA" << QStringLiteral("🇩🇪");
        QTest::newRow("blanks around") << " \n1F4A7\t " << QStringLiteral("💧");
        QTest::newRow("doubled hyphen") << "1F3CB--FE0F" << QStringLiteral("🏋️");
        QTest::newRow("emoji passes") << QStringLiteral("💧") << QStringLiteral("💧");
        QTest::newRow("text passes") << "zz"
                                     << "zz";
        QTest::newRow("surrogate") << "D800"
                                   << "D800";
        QTest::newRow("last surrogate") << "DFFF"
                                        << "DFFF";
        QTest::newRow("beyond range") << "110000"
                                      << "110000";
        QTest::newRow("overflows 32 bits") << "1FFFFFFFF"
                                           << "1FFFFFFFF";
        QTest::newRow("lone hyphen") << "-"
                                     << "-";
        QTest::newRow("empty") << ""
                               << "";
        QTest::newRow("inner blank kept") << "1F4A7 1F4A7"
                                          << "1F4A7 1F4A7";
        QTest::newRow("blanks only") << "   "
                                     << "   ";
        QTest::newRow("last code point") << "10FFFF" << QString::fromUcs4(U"\U0010FFFF", 1);
        QTest::newRow("fullwidth digits pass") << QStringLiteral("１２") << QStringLiteral("１２");
    }

    void decode()
    {
        QFETCH(QString, input);
        QTEST(EmojiCoding::decode(input), "expected");
    }
};

QTEST_GUILESS_MAIN(TestEmojiCoding)
#include "tst_emojicoding.moc"
