#include "Managers/Database.h"

#include <sqlite3.h>
#include <strings.h>

#include <algorithm>
#include <mutex>

namespace tactora {

namespace {

std::mutex observerMutex;
std::function<void(const std::string&)>& statementObserver() {
    static std::function<void(const std::string&)> observer;
    return observer;
}

void observe(const std::string& sql) {
    std::lock_guard lock(observerMutex);
    if (statementObserver()) statementObserver()(sql);
}

}  // namespace

// --- ResultSet -----------------------------------------------------------------------------------

ResultSet::ResultSet(Database* owner, sqlite3_stmt* statement) : owner_(owner), statement_(statement) {}

ResultSet::~ResultSet() { close(); }

void ResultSet::close() {
    if (statement_) sqlite3_finalize(statement_);
    statement_ = nullptr;
    onRow_ = false;
    if (owner_) owner_->forget(this);
    owner_ = nullptr;
}

bool ResultSet::next() {
    // SQLite starts a finished statement over when stepped again; a result set ends for good.
    if (!statement_ || finished_) return false;
    int rc = sqlite3_step(statement_);
    onRow_ = rc == SQLITE_ROW;
    finished_ = !onRow_;
    return onRow_;
}

int ResultSet::columnIndex(const std::string& name) const {
    if (!hasRow()) return -1;
    int count = sqlite3_column_count(statement_);
    for (int i = 0; i < count; ++i) {
        const char* column = sqlite3_column_name(statement_, i);
        if (column && strcasecmp(column, name.c_str()) == 0) return i;
    }
    return -1;
}

std::optional<std::string> ResultSet::stringForColumn(const std::string& name) const {
    int index = columnIndex(name);
    if (index < 0 || sqlite3_column_type(statement_, index) == SQLITE_NULL) return std::nullopt;
    const unsigned char* text = sqlite3_column_text(statement_, index);
    if (!text) return std::nullopt;
    return std::string(reinterpret_cast<const char*>(text), std::size_t(sqlite3_column_bytes(statement_, index)));
}

bool ResultSet::boolForColumn(const std::string& name) const { return intForColumn(name) != 0; }

std::int32_t ResultSet::intForColumn(const std::string& name) const {
    int index = columnIndex(name);
    return index < 0 ? 0 : intForColumnIndex(index);
}

double ResultSet::doubleForColumn(const std::string& name) const {
    int index = columnIndex(name);
    return index < 0 ? 0.0 : sqlite3_column_double(statement_, index);
}

std::int32_t ResultSet::intForColumnIndex(int index) const {
    if (!hasRow() || index < 0 || index >= sqlite3_column_count(statement_)) return 0;
    // sqlite3_column_int keeps the low 32 bits of a wider integer.
    return sqlite3_column_int(statement_, index);
}

// --- Database ------------------------------------------------------------------------------------

Database::Database(std::string path) : path_(std::move(path)) {}

Database::~Database() { close(); }

bool Database::open() {
    if (handle_) return true;
    int rc = sqlite3_open_v2(path_.c_str(), &handle_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    if (rc != SQLITE_OK) {
        sqlite3_close_v2(handle_);
        handle_ = nullptr;
        return false;
    }
    sqlite3_busy_timeout(handle_, busyTimeoutMilliseconds);
    return true;
}

bool Database::executeUpdate(const std::string& sql) {
    observe(sql);
    if (!handle_) return false;
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(handle_, sql.c_str(), int(sql.size()), &statement, nullptr) != SQLITE_OK || !statement) {
        sqlite3_finalize(statement);
        return false;
    }
    int rc;
    do {
        rc = sqlite3_step(statement);
    } while (rc == SQLITE_ROW);
    sqlite3_finalize(statement);
    return rc == SQLITE_DONE;
}

std::unique_ptr<ResultSet> Database::executeQuery(const std::string& sql) {
    observe(sql);
    if (!handle_) return nullptr;
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(handle_, sql.c_str(), int(sql.size()), &statement, nullptr) != SQLITE_OK || !statement) {
        sqlite3_finalize(statement);
        return nullptr;
    }
    std::unique_ptr<ResultSet> rows(new ResultSet(this, statement));
    openResultSets_.push_back(rows.get());
    return rows;
}

void Database::close() {
    // Ending a result set removes it from the list, so take them from the back.
    while (!openResultSets_.empty()) openResultSets_.back()->close();
    if (handle_) sqlite3_close_v2(handle_);
    handle_ = nullptr;
}

std::string Database::lastErrorMessage() const {
    return handle_ ? std::string(sqlite3_errmsg(handle_)) : std::string("not open");
}

void Database::forget(ResultSet* rows) {
    openResultSets_.erase(std::remove(openResultSets_.begin(), openResultSets_.end(), rows), openResultSets_.end());
}

void Database::setStatementObserver(std::function<void(const std::string&)> observer) {
    std::lock_guard lock(observerMutex);
    statementObserver() = std::move(observer);
}

}  // namespace tactora
