#pragma once

#include "KeychainModule.h"

#include <QObject>

// The tidewell_keyring module's root object.
class SecretServiceModule final : public QObject, public KeychainModule
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID KeychainModule_iid)
    Q_INTERFACES(KeychainModule)

public:
    std::shared_ptr<KeychainBackend> backend() override;
};
