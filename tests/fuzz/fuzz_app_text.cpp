// Small texts the app takes from outside: habit icons (emoji or code points), the
// stored frame of a floating panel, a sign-in callback URL and a second launch's
// message on the single-instance socket. The first byte picks the parser.
#include "CallbackUrl.h"
#include "DesktopFrame.h"
#include "EmojiCoding.h"
#include "FuzzCheck.h"
#include "InstanceMessage.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1)
        return 0;
    const QByteArray bytes(reinterpret_cast<const char*>(data) + 1, qsizetype(size - 1));
    const QString text = QString::fromUtf8(bytes);
    switch (data[0] % 4) {
    case 0: {
        const QString decoded = EmojiCoding::decode(text);
        FUZZ_CHECK(EmojiCoding::decode(decoded).size() <= decoded.size());
        break;
    }
    case 1:
        if (const std::optional<QRectF> frame = DesktopFrame::decode(text)) {
            const std::optional<QRectF> again = DesktopFrame::decode(DesktopFrame::encode(*frame));
            FUZZ_CHECK(again.has_value());
        }
        break;
    case 2: {
        const CallbackUrl callback =
            CallbackUrl::parse(QUrl(text, QUrl::TolerantMode), QStringLiteral("tidewell"));
        FUZZ_CHECK(callback.verdict != CallbackUrl::Verdict::Usable || !callback.token.isEmpty());
        break;
    }
    default: {
        InstanceMessage message;
        if (InstanceMessage::parse(bytes, &message)) {
            InstanceMessage again;
            QByteArray line = message.encode();
            line.chop(1); // the newline that ends it on the socket
            FUZZ_CHECK(InstanceMessage::parse(line, &again));
            FUZZ_CHECK(again.url == message.url && again.activation == message.activation);
        }
        break;
    }
    }
    return 0;
}
