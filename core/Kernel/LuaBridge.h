#pragma once

#include <functional>
#include <string>

struct lua_State;

namespace tactora {

// The Lua 5.2 interpreter in which scripts run. One run at a time; stopLuaRunning may be called
// from any thread.
class LuaBridge {
public:
    LuaBridge();
    ~LuaBridge();
    LuaBridge(const LuaBridge&) = delete;
    LuaBridge& operator=(const LuaBridge&) = delete;

    void initEnv();
    void loadLuaExtensions();
    void runLuaString(const std::string& script);
    void runLuaFile(const std::string& path);
    void stopLuaRunning();
    // Each later run starts already stopped when `condition` is false as it begins. The runner
    // passes "still playing": a stop that lands after the runner last looked but before the chunk
    // started would otherwise be wiped by the start of the run, and an endless script would never
    // end. Without a condition a stop asked while nothing runs is forgotten by the next run.
    void keepRunningWhile(std::function<bool()> condition) { runCondition_ = std::move(condition); }

    lua_State* state() const { return L; }
    // The error the latest run ended with; empty when it ran to its end or was stopped. Read on
    // the thread that ran it.
    const std::string& lastError() const { return lastError_; }

private:
    // Loads a chunk with `load`, runs it, reports its error and flushes the touches.
    void run(const std::function<int(lua_State*)>& load);

    lua_State* L = nullptr;
    std::function<bool()> runCondition_;
    std::string lastError_;
};

// True from the moment a stop is asked for the run in progress until the next run begins. Work
// that runs outside the interpreter for long (pauses, whole-screen searches) looks at it to give up
// early; any thread may ask.
bool stopRequested();

// Ends the running chunk as a stop does: removes the stop hook and raises "interrupted", which is
// never reported as an error. For script functions that wait and see stopRequested().
int interruptedError(lua_State* L);

// Registers the 24 script functions as globals, in their fixed order.
void registerFunctions(lua_State* L);

}  // namespace tactora
