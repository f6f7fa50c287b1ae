// The store of play settings and trigger assignments.
//
// Every operation opens its own connection, runs one statement and closes it again. Statement
// texts are formed by plain string formatting: string values go in unescaped between single
// quotes, and a missing string is written as the text "(null)". A title with an apostrophe
// therefore makes its statement fail, which takes the ordinary failure path. Other programs
// share this file and these exact texts, so neither the formatting nor the statements change.
#include "Managers/DataManager.h"

#include <cstdarg>
#include <cstdio>
#include <vector>

#include "Managers/Database.h"
#include "Platform/DiagnosticLog.h"
#include "Platform/Paths.h"
#include "Platform/Platform.h"

namespace tactora {

namespace {

constexpr const char* updateFailedMessage = "error to update data";

// printf-style formatting of a statement template.
[[gnu::format(printf, 1, 2)]] std::string format(const char* templateText, ...) {
    va_list arguments;
    va_start(arguments, templateText);
    va_list copy;
    va_copy(copy, arguments);
    int length = std::vsnprintf(nullptr, 0, templateText, copy);
    va_end(copy);
    std::string text;
    if (length > 0) {
        std::vector<char> buffer(std::size_t(length) + 1);
        std::vsnprintf(buffer.data(), buffer.size(), templateText, arguments);
        text.assign(buffer.data(), std::size_t(length));
    }
    va_end(arguments);
    return text;
}

// A string argument as the formatter shows it; none reads "(null)".
const char* text(const std::optional<std::string>& value) { return value ? value->c_str() : "(null)"; }

enum class Outcome { notOpened, failed, done };

// Runs one update statement on a connection of its own.
Outcome runUpdate(const std::string& sql) {
    Database db(DataManager::dataFilePath());
    if (!db.open()) return Outcome::notOpened;
    bool ok = db.executeUpdate(sql);
    db.close();
    return ok ? Outcome::done : Outcome::failed;
}

// A statement that did not run is logged; a file that could not be opened is not.
#define TACTORA_UPDATE_LOGGED(function, sql)                                              \
    do {                                                                                  \
        Outcome outcome = runUpdate(sql);                                                 \
        if (outcome == Outcome::failed) TACTORA_DIAGNOSTIC(function, updateFailedMessage); \
        return outcome == Outcome::done;                                                  \
    } while (false)

std::optional<PlaySettingsList> queryPlaySettings(const std::string& sql) {
    Database db(DataManager::dataFilePath());
    if (!db.open()) return std::nullopt;
    PlaySettingsList list;
    if (auto rows = db.executeQuery(sql)) list = DataManager::mapFMResultSetToPlaySettingsArray(*rows);
    db.close();
    return list;
}

std::optional<ActivatorTriggerList> queryTriggers(const std::string& sql) {
    Database db(DataManager::dataFilePath());
    if (!db.open()) return std::nullopt;
    ActivatorTriggerList list;
    if (auto rows = db.executeQuery(sql)) list = DataManager::mapFMResultSetToActivatorTriggerArray(*rows);
    db.close();
    return list;
}

template <class List>
typename List::value_type firstOf(const std::optional<List>& list) {
    if (!list || list->empty()) return nullptr;
    return list->front();
}

constexpr const char* selectPlaySettings = "SELECT SCRIPT_TITLE, PLAY_DIRECTLY, TIME, INTERVAL, SPEED FROM PLAY_SETTINGS";
constexpr const char* selectTriggers = "SELECT EVENT_NAME, FOR_WHAT, SCRIPT_TITLE FROM ACTIVATOR_TRIGGER";

}  // namespace

std::string DataManager::dataFilePath() {
    std::string directory = platform().paths->map(devicepaths::libraryDirectory);
    if (!directory.empty() && directory.back() != '/') directory += '/';
    return directory + "data.sqlite3";
}

bool DataManager::initDb() {
    // Unlike the other operations this one does not close explicitly; the connection ends when
    // the object goes.
    Database db(dataFilePath());
    if (!db.open()) return false;
    bool ok = db.executeUpdate(
                  "CREATE TABLE IF NOT EXISTS PLAY_SETTINGS (ROW INTEGER PRIMARY KEY, SCRIPT_TITLE TEXT, "
                  "PLAY_DIRECTLY BOOLEAN, TIME INTEGER, INTERVAL INTEGER, SPEED NUMERIC);") &&
              db.executeUpdate(
                  "CREATE TABLE IF NOT EXISTS ACTIVATOR_TRIGGER (ROW INTEGER PRIMARY KEY, EVENT_NAME TEXT, "
                  "FOR_WHAT INTEGER, SCRIPT_TITLE TEXT);");
    if (!ok) TACTORA_DIAGNOSTIC("+[DataManager initDb]", "error to init db");
    return ok;
}

bool DataManager::insertPlaySettings(const PlaySettings& settings) {
    TACTORA_UPDATE_LOGGED("+[DataManager insertPlaySettings:]",
                          format("INSERT OR REPLACE INTO PLAY_SETTINGS (SCRIPT_TITLE, PLAY_DIRECTLY, TIME, INTERVAL, "
                                 "SPEED) VALUES ('%s', %d, %ld,%ld, %.1f);",
                                 text(settings.scriptTitle()), int(settings.playDirectly()), settings.repeatTime(),
                                 settings.repeatInterval(), double(settings.playSpeed())));
}

bool DataManager::updatePlaySettings(const PlaySettings& settings) {
    TACTORA_UPDATE_LOGGED("+[DataManager updatePlaySettings:]",
                          format("UPDATE PLAY_SETTINGS SET PLAY_DIRECTLY=%d, TIME=%ld, INTERVAL=%ld, SPEED=%.1f WHERE "
                                 "SCRIPT_TITLE='%s';",
                                 int(settings.playDirectly()), settings.repeatTime(), settings.repeatInterval(),
                                 double(settings.playSpeed()), text(settings.scriptTitle())));
}

bool DataManager::updateScriptTitleOfPlaySettingsFrom(const std::optional<std::string>& oldTitle,
                                                      const std::optional<std::string>& newTitle) {
    TACTORA_UPDATE_LOGGED("+[DataManager updateScriptTitleOfPlaySettingsFrom:to:]",
                          format("UPDATE PLAY_SETTINGS SET SCRIPT_TITLE='%s' WHERE SCRIPT_TITLE='%s';",
                                 text(newTitle), text(oldTitle)));
}

bool DataManager::deletePlaySettingsByScriptTitle(const std::optional<std::string>& title) {
    // Deletions by title are not logged.
    return runUpdate(format("DELETE FROM PLAY_SETTINGS WHERE SCRIPT_TITLE='%s';", text(title))) == Outcome::done;
}

std::optional<PlaySettingsList> DataManager::findAllPlaySettings() {
    return queryPlaySettings(format("%s ORDER BY ROW;", selectPlaySettings));
}

std::shared_ptr<PlaySettings> DataManager::findPlaySettingsByScriptTitle(const std::optional<std::string>& title) {
    return firstOf(queryPlaySettings(format("%s WHERE SCRIPT_TITLE='%s' ORDER BY ROW;", selectPlaySettings, text(title))));
}

long DataManager::countPlaySettings() {
    Database db(dataFilePath());
    if (!db.open()) return -1;
    long count = -1;
    if (auto rows = db.executeQuery("SELECT COUNT(*) FROM PLAY_SETTINGS;")) {
        if (rows->next()) count = rows->intForColumnIndex(0);
    }
    db.close();
    return count;
}

bool DataManager::addActivatorTrigger(const ActivatorTrigger& trigger) {
    TACTORA_UPDATE_LOGGED("+[DataManager addActivatorTrigger:]",
                          format("INSERT OR REPLACE INTO ACTIVATOR_TRIGGER (EVENT_NAME, FOR_WHAT, SCRIPT_TITLE) "
                                 "VALUES ('%s', %ld, '%s');",
                                 text(trigger.eventName()), trigger.forWhat(), text(trigger.scriptTitle())));
}

bool DataManager::removeActivatorTrigger(const std::optional<std::string>& eventName) {
    TACTORA_UPDATE_LOGGED("+[DataManager removeActivatorTrigger:]",
                          format("DELETE FROM ACTIVATOR_TRIGGER WHERE EVENT_NAME='%s';", text(eventName)));
}

bool DataManager::removeActivatorTriggerByScriptTitle(const std::optional<std::string>& title) {
    return runUpdate(format("DELETE FROM ACTIVATOR_TRIGGER WHERE SCRIPT_TITLE='%s';", text(title))) == Outcome::done;
}

bool DataManager::updateScriptTitleOfActivatorTriggerFrom(const std::optional<std::string>& oldTitle,
                                                          const std::optional<std::string>& newTitle) {
    TACTORA_UPDATE_LOGGED("+[DataManager updateScriptTitleOfActivatorTriggerFrom:to:]",
                          format("UPDATE ACTIVATOR_TRIGGER SET SCRIPT_TITLE='%s' WHERE SCRIPT_TITLE='%s';",
                                 text(newTitle), text(oldTitle)));
}

std::optional<ActivatorTriggerList> DataManager::getActivatorTriggersAll() {
    return queryTriggers(format("%s ORDER BY ROW;", selectTriggers));
}

std::shared_ptr<ActivatorTrigger> DataManager::getActivatorTriggerByEventName(const std::optional<std::string>& eventName) {
    return firstOf(queryTriggers(format("%s WHERE EVENT_NAME='%s' ORDER BY ROW;", selectTriggers, text(eventName))));
}

std::shared_ptr<ActivatorTrigger> DataManager::getActivatorTriggerByScriptTitle(const std::optional<std::string>& title) {
    return firstOf(queryTriggers(format("%s WHERE SCRIPT_TITLE='%s' ORDER BY ROW;", selectTriggers, text(title))));
}

// The two role lookups have no ORDER BY: whichever row SQLite yields first wins.
std::shared_ptr<ActivatorTrigger> DataManager::getActivatorTriggerForControlPanel() {
    return firstOf(queryTriggers(format("%s WHERE FOR_WHAT=1;", selectTriggers)));
}

std::shared_ptr<ActivatorTrigger> DataManager::getActivatorTriggerForStartStopPlaying() {
    return firstOf(queryTriggers(format("%s WHERE FOR_WHAT=2;", selectTriggers)));
}

PlaySettingsList DataManager::mapFMResultSetToPlaySettingsArray(ResultSet& rows) {
    PlaySettingsList list;
    while (rows.next()) {
        auto settings = std::make_shared<PlaySettings>();
        settings->setScriptTitle(rows.stringForColumn("SCRIPT_TITLE"));
        settings->setPlayDirectly(rows.boolForColumn("PLAY_DIRECTLY"));
        settings->setRepeatTime(long(rows.intForColumn("TIME")));
        settings->setRepeatInterval(long(rows.intForColumn("INTERVAL")));
        settings->setPlaySpeed(float(rows.doubleForColumn("SPEED")));
        list.push_back(std::move(settings));
    }
    return list;
}

ActivatorTriggerList DataManager::mapFMResultSetToActivatorTriggerArray(ResultSet& rows) {
    ActivatorTriggerList list;
    while (rows.next()) {
        auto trigger = std::make_shared<ActivatorTrigger>();
        trigger->setEventName(rows.stringForColumn("EVENT_NAME"));
        trigger->setForWhat(long(rows.intForColumn("FOR_WHAT")));
        trigger->setScriptTitle(rows.stringForColumn("SCRIPT_TITLE"));
        list.push_back(std::move(trigger));
    }
    return list;
}

}  // namespace tactora
