#include "AudioService.h"
#include "ModuleLoader.h"

#include <QDir>
#include <QFile>
#include <QMetaEnum>
#include <QSignalSpy>
#include <QSoundEffect>
#include <QTemporaryDir>
#include <QTest>

namespace {
using Sound = AudioService::Sound;

void copySound(const QString& name, const QString& target)
{
    QDir().mkpath(QFileInfo(target).absolutePath());
    QVERIFY(QFile::copy(QStringLiteral(":/Sounds/") + name + QStringLiteral(".wav"), target));
}
} // namespace

class TestAudioService final : public QObject
{
    Q_OBJECT

    const ModuleLoader m_modules{QStringLiteral(TIDEWELL_TEST_MODULE_DIR)};
    AudioService m_audio{m_modules};

private slots:
    // Qt Multimedia's own warnings vary with the machine's audio; ours must each be expected.
    void init() { QTest::failOnWarning(QRegularExpression(QStringLiteral("^AudioService: "))); }

    // Each name is the base name of a shipped file that decodes, so none plays silence.
    void everySoundHasAShippedFile()
    {
        for (int i = 0; i < QMetaEnum::fromType<Sound>().keyCount(); ++i) {
            const QString name = AudioService::name(Sound(i));
            QSoundEffect effect;
            effect.setSource(QUrl(QStringLiteral("qrc:/Sounds/") + name + QStringLiteral(".wav")));
            QTRY_VERIFY2(effect.status() == QSoundEffect::Ready, qPrintable(name));
        }
    }

    void lookupOrder()
    {
        QTemporaryDir resources;
        QTemporaryDir bundle;
        AudioService& audio = m_audio;
        audio.setResourceDirectory(resources.path());
        audio.setBundleRoot(bundle.path());
        const QString name = QStringLiteral("check");
        QCOMPARE(audio.locateSound(name), QString());

        // Each place found wins over every later one.
        const QStringList places{bundle.filePath(QStringLiteral("check.wav")),
                                 bundle.filePath(QStringLiteral("Sounds/check.wav")),
                                 resources.filePath(QStringLiteral("check.wav")),
                                 resources.filePath(QStringLiteral("Sounds/check.wav"))};
        for (const QString& place : places) {
            copySound(name, place);
            QCOMPARE(QFileInfo(audio.locateSound(name)).absoluteFilePath(),
                     QFileInfo(place).absoluteFilePath());
        }

        // The default bundle is the binary's own copy.
        audio.setResourceDirectory(QDir::tempPath() + QStringLiteral("/no-such-dir"));
        audio.setBundleRoot(QStringLiteral(":"));
        QCOMPARE(audio.locateSound(name), QStringLiteral(":/Sounds/check.wav"));
    }

    void cacheMuteAndMissing()
    {
        QTemporaryDir empty;
        AudioService& audio = m_audio;
        audio.setResourceDirectory(empty.path());
        audio.setBundleRoot(empty.path());
        QSignalSpy played(&audio, &AudioService::played);

        // Muted: nothing is looked up, loaded or logged (an unexpected log fails the test).
        audio.setMuted(true);
        audio.play(Sound::Error1);
        QCOMPARE(audio.loadCount(), 0);
        QCOMPARE(played.count(), 0);
        audio.setMuted(false);

        QTest::ignoreMessage(QtWarningMsg, "AudioService: missing sound error1.wav");
        audio.play(Sound::Error1);
        // A missing file is not cached: the next play finds it, and later ones reuse it.
        copySound(QStringLiteral("error1"), empty.filePath(QStringLiteral("error1.wav")));
        for (int i = 0; i < 3; ++i)
            audio.play(Sound::Error1);
        QCOMPARE(audio.loadCount(), 1);
        QCOMPARE(played.count(), 3);

        // A file that is not a sound is reported and dropped from the cache, so a repaired
        // file is loaded by a later play.
        QFile bad(empty.filePath(QStringLiteral("check.wav")));
        QVERIFY(bad.open(QIODevice::WriteOnly));
        bad.write("not a wave file");
        bad.close();
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral(
                                               "^AudioService: failed to load check: .+")));
        // Repairing the file before the decoder has read it would hide the failure.
        static bool reported = false;
        static QtMessageHandler previous = nullptr;
        previous = qInstallMessageHandler(
            [](QtMsgType type, const QMessageLogContext& context, const QString& message) {
                reported = reported || message.startsWith(u"AudioService: failed to load check");
                previous(type, context, message);
            });
        audio.play(Sound::Check);
        QTRY_VERIFY(reported);
        qInstallMessageHandler(previous);
        QVERIFY(bad.remove());
        copySound(QStringLiteral("check"), bad.fileName());
        QTRY_VERIFY((audio.play(Sound::Check), audio.loadCount() == 3));
    }
};

QTEST_GUILESS_MAIN(TestAudioService)
#include "tst_audioservice.moc"
