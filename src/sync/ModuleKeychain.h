#pragma once

#include "KeychainBackend.h"
#include "ModuleLoader.h"

#include <QMutex>

// The secret store from the tidewell_keyring module, loaded at the first call:
// the keyring library and its Qt binding would cost every start memory, and the
// token is not looked up before the user has signed in on this machine.
class ModuleKeychain final : public KeychainBackend
{
public:
    explicit ModuleKeychain(ModuleLoader modules);

    KeychainReply read(const QString& service, const QString& account) override;
    KeychainReply write(const QString& service, const QString& account,
                        const QByteArray& data) override;
    KeychainReply remove(const QString& service, const QString& account) override;
    void whenKeyringStarts(QObject* owner, std::function<void()> started) override;

private:
    // The module's secret store; null, with the reply to give, when it does not load.
    std::shared_ptr<KeychainBackend> backend(KeychainReply* missing);

    ModuleLoader m_modules;
    QMutex m_lock;
    bool m_tried = false;
    std::shared_ptr<KeychainBackend> m_backend;
    QString m_why;
};
