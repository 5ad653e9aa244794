#include "KeychainBackend.h"

namespace {
const QString unavailable = QStringLiteral("no keyring on this system");

// No secret store: nothing is ever there, nothing is kept, and a signed-in token
// lives only as long as the process (the hub says so).
class KeychainBackendNone final : public KeychainBackend
{
public:
    KeychainReply read(const QString&, const QString&) override
    {
        return {KeychainReply::Outcome::NotRunning, {}, unavailable};
    }
    KeychainReply write(const QString&, const QString&, const QByteArray&) override
    {
        return {KeychainReply::Outcome::Failed, {}, unavailable};
    }
    KeychainReply remove(const QString&, const QString&) override
    {
        return {KeychainReply::Outcome::Missing, {}, {}};
    }
};
} // namespace

std::shared_ptr<KeychainBackend> KeychainBackend::system(const ModuleLoader&)
{
    static const auto keychain = std::make_shared<KeychainBackendNone>();
    return keychain;
}
