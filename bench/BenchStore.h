#pragma once

#include "DataStore.h"

#include <cstdio>
#include <cstdlib>
#include <memory>

// The store at `path`, or the process ends with the reason: a bench has no way on.
inline std::unique_ptr<DataStore> openStoreOrExit(const QString& path)
{
    QString error;
    auto store = DataStore::open(path, &error);
    if (!store) {
        std::fprintf(stderr, "cannot open %s: %s\n", qPrintable(path), qPrintable(error));
        std::exit(1);
    }
    return store;
}
