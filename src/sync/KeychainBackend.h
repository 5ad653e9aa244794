#pragma once

#include <QByteArray>
#include <QString>

#include <functional>
#include <memory>

class ModuleLoader;
class QObject;

// What a keychain call came to. A call that got no answer in time is not an
// answer: the item may well be there once the secret store wakes up.
struct KeychainReply
{
    // NotRunning: no secret store runs, so nothing is there now; one may start later.
    enum class Outcome { Done, Missing, NotRunning, Failed, NoAnswer };
    Outcome outcome = Outcome::Failed;
    QByteArray data; // a read's item data, when Done
    QString why;     // a short reason, when Failed or NoAnswer

    bool answered() const { return outcome != Outcome::NoAnswer; }
};

// Where the token is kept: the system's secret store, or a fake in tests.
// Calls block the calling thread, each for a bounded time; KeychainStore makes
// them on a thread of its own, never on the GUI thread. One implementation per
// platform; where there is none, nothing is kept.
class KeychainBackend
{
public:
    virtual ~KeychainBackend() = default;

    // This platform's secret store, one for the whole process; where it comes in
    // a module, `modules` finds it.
    static std::shared_ptr<KeychainBackend> system(const ModuleLoader& modules);

    // Done with the item's data, Missing when there surely is no such item.
    virtual KeychainReply read(const QString& service, const QString& account) = 0;
    // Creates or replaces the item: Done when it is stored.
    virtual KeychainReply write(const QString& service, const QString& account,
                                const QByteArray& data) = 0;
    // Done (or Missing) when no such item is left.
    virtual KeychainReply remove(const QString& service, const QString& account) = 0;
    // After a read found no secret store running: runs `started` once, on the
    // calling thread, when one starts. What watches for it is a child of `owner`,
    // which lives on that thread. Backends that cannot tell never run it.
    virtual void whenKeyringStarts(QObject* owner, std::function<void()> started)
    {
        (void)owner;
        (void)started;
    }
};
