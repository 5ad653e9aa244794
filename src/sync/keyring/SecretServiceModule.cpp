#include "SecretServiceModule.h"

#include "SecretServiceKeychain.h"

std::shared_ptr<KeychainBackend> SecretServiceModule::backend()
{
    // One for the whole process: the secret-store library keeps per-process state
    // tied to the thread that first used it, so its worker thread must never change.
    static const auto keychain = std::make_shared<SecretServiceKeychain>();
    return keychain;
}
