#include "ModuleKeychain.h"

#include "KeychainModule.h"

#include <utility>

std::shared_ptr<KeychainBackend> KeychainBackend::system(const ModuleLoader& modules)
{
    static const auto keychain = std::make_shared<ModuleKeychain>(modules);
    return keychain;
}

ModuleKeychain::ModuleKeychain(ModuleLoader modules)
    : m_modules(std::move(modules))
{}

std::shared_ptr<KeychainBackend> ModuleKeychain::backend(KeychainReply* missing)
{
    QMutexLocker locker(&m_lock);
    if (!std::exchange(m_tried, true)) {
        QObject* root = m_modules.load(QStringLiteral("tidewell_keyring"), &m_why);
        if (auto* module = qobject_cast<KeychainModule*>(root))
            m_backend = module->backend();
        else if (root)
            m_why = QStringLiteral("tidewell_keyring.so is not a keyring module");
    }
    if (!m_backend)
        *missing = {KeychainReply::Outcome::Failed,
                    {},
                    QStringLiteral("the keyring module did not load: ") + m_why};
    return m_backend;
}

KeychainReply ModuleKeychain::read(const QString& service, const QString& account)
{
    KeychainReply missing;
    const auto keychain = backend(&missing);
    return keychain ? keychain->read(service, account) : missing;
}

KeychainReply ModuleKeychain::write(const QString& service, const QString& account,
                                    const QByteArray& data)
{
    KeychainReply missing;
    const auto keychain = backend(&missing);
    return keychain ? keychain->write(service, account, data) : missing;
}

KeychainReply ModuleKeychain::remove(const QString& service, const QString& account)
{
    KeychainReply missing;
    const auto keychain = backend(&missing);
    return keychain ? keychain->remove(service, account) : missing;
}

void ModuleKeychain::whenKeyringStarts(QObject* owner, std::function<void()> started)
{
    KeychainReply missing;
    if (const auto keychain = backend(&missing))
        keychain->whenKeyringStarts(owner, std::move(started));
}
