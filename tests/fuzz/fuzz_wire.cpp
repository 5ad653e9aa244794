// The wire decoders as the app (reply envelopes) and the server (PUT bodies) run
// them. The first byte picks the decoder; whatever decodes must encode to a body
// that decodes to the same encoding again.
#include "FuzzCheck.h"
#include "WireEnvelope.h"

#include <cstddef>
#include <cstdint>

namespace {

template <typename Decoded>
void roundTrip(const std::optional<Decoded>& decoded,
               std::optional<Decoded> (*decodeBody)(const QByteArray&, QString*))
{
    if (!decoded)
        return;
    const QByteArray encoded = WireEnvelope::encode(*decoded);
    QString error;
    const std::optional<Decoded> again = decodeBody(encoded, &error);
    FUZZ_CHECK(again.has_value());
    FUZZ_CHECK(WireEnvelope::encode(*again) == encoded);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1)
        return 0;
    const QByteArray body(reinterpret_cast<const char*>(data) + 1, qsizetype(size - 1));
    QString error;
    switch (data[0] % 7) {
    case 0:
        roundTrip(WireEnvelope::decodeHabits(body, &error), &WireEnvelope::decodeHabitsBody);
        break;
    case 1:
        roundTrip(WireEnvelope::decodeHabitsBody(body, &error), &WireEnvelope::decodeHabitsBody);
        break;
    case 2:
        roundTrip(WireEnvelope::decodeTasks(body, &error), &WireEnvelope::decodeTasksBody);
        break;
    case 3:
        roundTrip(WireEnvelope::decodeTasksBody(body, &error), &WireEnvelope::decodeTasksBody);
        break;
    case 4: {
        std::optional<PomodoroState> state;
        if (WireEnvelope::decodePomodoro(body, &state, &error))
            roundTrip(state, &WireEnvelope::decodePomodoroBody);
        break;
    }
    case 5:
        roundTrip(WireEnvelope::decodePomodoroBody(body, &error),
                  &WireEnvelope::decodePomodoroBody);
        break;
    default:
        WireEnvelope::decodeOk(body, &error);
        break;
    }
    return 0;
}
