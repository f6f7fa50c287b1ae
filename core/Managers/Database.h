// A thin object layer over the SQLite C API: a database opened by path, complete statement texts
// run one at a time, and result sets stepped row by row. No parameters are bound.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace tactora {

class Database;

// The rows of one query. Column reads refer to the current row (after next() answered true);
// names are matched without regard to case. A missing column or a NULL value reads as none, 0,
// false or 0.0.
class ResultSet {
public:
    ~ResultSet();
    ResultSet(const ResultSet&) = delete;
    ResultSet& operator=(const ResultSet&) = delete;

    // Steps to the next row; false at the end, on an error, or once the database was closed.
    bool next();
    std::optional<std::string> stringForColumn(const std::string& name) const;
    bool boolForColumn(const std::string& name) const;
    // The low 32 bits of the stored integer.
    std::int32_t intForColumn(const std::string& name) const;
    double doubleForColumn(const std::string& name) const;
    std::int32_t intForColumnIndex(int index) const;
    // Ends the query; further next() calls answer false.
    void close();

private:
    friend class Database;
    ResultSet(Database* owner, sqlite3_stmt* statement);
    int columnIndex(const std::string& name) const;
    bool hasRow() const { return statement_ && onRow_; }

    Database* owner_;
    sqlite3_stmt* statement_;
    bool onRow_ = false;
    bool finished_ = false;
};

class Database {
public:
    // How long a statement waits for another process's lock on the file before it fails. Every
    // statement runs on SpringBoard's main thread, so a lock held elsewhere may freeze the screen
    // no longer than this per statement.
    static constexpr int busyTimeoutMilliseconds = 1000;

    // Makes a database object for `path` without opening it.
    explicit Database(std::string path);
    // Closes the connection if still open.
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    // Opens the file, creating it if missing (its directory must exist).
    bool open();
    // Runs one complete statement; true when it ran to the end.
    bool executeUpdate(const std::string& sql);
    // Prepares one complete query; none when it cannot be prepared or the database is not open.
    std::unique_ptr<ResultSet> executeQuery(const std::string& sql);
    // Closes the connection, ending every result set still open on it.
    void close();

    const std::string& path() const { return path_; }
    // SQLite's message for the last failure on this connection.
    std::string lastErrorMessage() const;

    // Every statement text handed to executeUpdate or executeQuery, in order (diagnostics and
    // tests). Process-wide; pass an empty function to stop observing.
    static void setStatementObserver(std::function<void(const std::string&)> observer);

private:
    friend class ResultSet;
    void forget(ResultSet* rows);

    std::string path_;
    sqlite3* handle_ = nullptr;
    std::vector<ResultSet*> openResultSets_;
};

}  // namespace tactora
