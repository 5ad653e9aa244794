#pragma once

#include <QList>

// The tables of the store, one version for the whole schema. DataStore creates
// them; StoreProbe compares an existing file against them.
class StoreSchema
{
public:
    StoreSchema() = delete;

    static constexpr int Version = 1;

    // The statements that create the current schema in an empty file, in order.
    static const QList<const char*>& statements();
};
