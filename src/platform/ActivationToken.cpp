#include "platform/ActivationToken.h"

#include <algorithm>

namespace {

constexpr QByteArrayView waylandPrefix = "xdg:";
constexpr QByteArrayView startupIdPrefix = "x11:";

QByteArray& pending()
{
    static QByteArray token;
    return token;
}

QByteArray take(QByteArrayView prefix)
{
    if (!pending().startsWith(prefix)) {
        return QByteArray();
    }
    QByteArray value = pending().mid(prefix.size());
    pending().clear();
    return value;
}

} // namespace

namespace ActivationToken {

QByteArray fromEnvironment()
{
    QByteArray encoded;
    if (const QByteArray token = qgetenv("XDG_ACTIVATION_TOKEN"); !token.isEmpty()) {
        encoded = waylandPrefix.toByteArray().append(token);
    } else if (const QByteArray id = qgetenv("DESKTOP_STARTUP_ID"); !id.isEmpty()) {
        encoded = startupIdPrefix.toByteArray().append(id);
    }
    return isValid(encoded) ? encoded : QByteArray();
}

bool isValid(QByteArrayView encoded)
{
    if (encoded.size() > maxLength ||
        (!encoded.startsWith(waylandPrefix) && !encoded.startsWith(startupIdPrefix))) {
        return false;
    }
    const QByteArrayView value = encoded.sliced(waylandPrefix.size());
    return !value.isEmpty() &&
           std::all_of(value.begin(), value.end(), [](char c) { return c > ' ' && c < 127; });
}

void setPending(const QByteArray& encoded)
{
    if (isValid(encoded)) {
        pending() = encoded;
    }
}

QByteArray takeWayland()
{
    return take(waylandPrefix);
}

QByteArray takeStartupId()
{
    return take(startupIdPrefix);
}

} // namespace ActivationToken
