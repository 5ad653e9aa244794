#pragma once

#include "AppServices.h"
#include "FakeKeychain.h"
#include "FakeNotifications.h"
#include "GrantingInhibitor.h"

#include <QTest>

// The services as the app builds them, over the store at `storePath` (a
// throwaway one by default) and fakes of everything outside the process: the
// keyring, the notification server, the screensaver and the browser. A test
// changes what it needs before building AppServices from them.
inline AppServices::Parts testParts(const QString& storePath = QStringLiteral(":memory:"))
{
    AppServices::Parts parts;
    QString error;
    parts.store = DataStore::open(storePath, &error);
    if (!parts.store)
        qFatal("test store %s: %s", qPrintable(storePath), qPrintable(error));
    parts.notifications = std::make_unique<FakeNotifications>();
    parts.inhibitor = std::make_unique<GrantingInhibitor>();
    parts.keychain = std::make_shared<FakeKeychain>();
    parts.browser = [](const QUrl&) { return false; };
    parts.moduleDirectory = QStringLiteral(TIDEWELL_TEST_MODULE_DIR);
    return parts;
}

// Lets pushes that wait for the keyring's first answer finish before the
// services go, so no coroutine is left waiting on them.
inline void settle(AppServices& services)
{
    QTRY_VERIFY(!services.auth().isLoading());
    // QCoro resumes a coroutine awaiting a signal through a queued call: let those
    // the last change of isLoading released run now, before the services go.
    QCoreApplication::sendPostedEvents();
    QCoreApplication::processEvents();
}
