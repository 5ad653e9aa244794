#pragma once

#include <QHash>
#include <QList>
#include <QString>
#include <QVariant>

struct sqlite3;
struct sqlite3_stmt;

// The store's read-write SQLite connection, straight on the C library: the app
// needs no more of SQL than statements with bound values, and a database layer
// with its driver plugin would cost memory for the whole session.
class StoreConnection
{
public:
    StoreConnection() = default;
    ~StoreConnection();
    StoreConnection(const StoreConnection&) = delete;
    StoreConnection& operator=(const StoreConnection&) = delete;

    // Opens, creating the file when missing; false with the reason.
    bool open(const QString& path, QString* error);
    sqlite3* handle() const { return m_db; }

    // Runs `sql` with `values` bound in order; every row's columns go to `rows`
    // when given (integers as qlonglong, reals as double, text as QString, blobs
    // as QByteArray, NULL as an invalid QVariant). False with the error, described
    // as describe() does.
    bool exec(const QString& sql, const QVariantList& values = {},
              QList<QVariantList>* rows = nullptr, QString* error = nullptr);

    // One statement (or several) run as it stands, without keeping it prepared:
    // for settings and the schema, which run once.
    bool run(const char* sql, QString* error);

    bool begin(QString* error) { return exec(QStringLiteral("BEGIN"), {}, nullptr, error); }
    bool commit(QString* error) { return exec(QStringLiteral("COMMIT"), {}, nullptr, error); }
    void rollback();

    // An error as the user reads it; damage to the file (a corrupt page, not a
    // database, an I/O error) starts with DamagePrefix.
    static inline const QString DamagePrefix = QStringLiteral("the store file is damaged: ");
    static QString describe(int resultCode, const QString& message);
    static bool isDamage(const QString& described) { return described.startsWith(DamagePrefix); }

private:
    sqlite3_stmt* prepared(const QString& sql, QString* error);
    bool fail(int resultCode, QString* error) const;

    sqlite3* m_db = nullptr;
    // Each statement is prepared once: the same few run on every save.
    QHash<QString, sqlite3_stmt*> m_statements;
};
