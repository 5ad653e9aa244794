#pragma once

#include <QList>

// The tables of the store, one version for the whole schema. DataStore creates
// them and upgrades older stores; StoreProbe compares an existing file against them.
class StoreSchema
{
public:
    StoreSchema() = delete;

    static constexpr int Version = 3;

    // The statements that create the schema of `version` in an empty file, in order.
    static QList<const char*> statements(int version = Version);
    // The statements that bring a store of `version` to the current one, in order.
    static QList<const char*> upgrade(int fromVersion);
};
