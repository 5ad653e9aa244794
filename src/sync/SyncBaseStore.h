#pragma once

#include "SyncBase.h"

#include <optional>

class DataStore;

// Keeps each resource's SyncBase in the store, beside the records it describes.
class SyncBaseStore
{
public:
    explicit SyncBaseStore(DataStore& store);

    // The base agreed with `server`; absent when there is none or it was agreed
    // with another server.
    std::optional<SyncBase> load(const QString& resource, const QString& server) const;
    // Nothing is written to a store found damaged.
    bool save(const QString& resource, const SyncBase& base, QString* error = nullptr);
    // Forgets every base: after a sign-out the next account starts afresh.
    void clear();

private:
    DataStore& m_store;
};
