#include "BundleInfo.h"
#include "DataStore.h"

#include <QCoreApplication>

#include <cstdio>

// Until the desktop shell exists, the executable only opens (or creates) the
// store and says where it lives.
int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(BundleInfo::current().name);
    DataStore& store = DataStore::shared();
    std::printf("%s\n", qPrintable(store.path()));
    return 0;
}
