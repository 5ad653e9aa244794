#pragma once

#include "KeychainBackend.h"

#include <QtPlugin>

#include <memory>

// The root of the keyring module: hands out the process's one secret store.
class KeychainModule
{
public:
    virtual ~KeychainModule() = default;
    virtual std::shared_ptr<KeychainBackend> backend() = 0;
};

#define KeychainModule_iid "com.brenlow.tidewell.KeychainModule/1"
Q_DECLARE_INTERFACE(KeychainModule, KeychainModule_iid)
