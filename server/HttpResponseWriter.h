#pragma once

#include "HttpAnswer.h"

#include <QByteArray>

// The one place an answer becomes bytes on the wire. A header whose name is not a
// token, or whose value holds CR, LF, NUL or another control character, would let
// whoever chose it write headers or a response of their own: such an answer is
// never sent; a 500 goes instead, and the refusal is logged. So no handler, now or
// later, can be turned into a header injection.
class HttpResponseWriter
{
public:
    static QByteArray write(const HttpAnswer& answer, bool headRequest, bool keepAlive);
    static bool isSafeHeader(QByteArrayView name, QByteArrayView value);
    static QByteArray reasonPhrase(int status);
};
