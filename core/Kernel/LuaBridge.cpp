// The interpreter that scripts run in:
//   - the global table of script functions (registerFunctions),
//   - preparing a fresh state (package.path, Extensions.lua),
//   - running a chunk and reporting its error by the user's options,
//   - interrupting a running chunk from another thread (the stop word, its hook and the wakeup of
//     the pauses that watch it).
#include "Kernel/LuaBridge.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>

extern "C" {
#include <lauxlib.h>
#include <lua.h>
#include <lualib.h>
}

#include "Control/Helper.h"
#include "Kernel/ScriptFunctions.h"
#include "Platform/Clock.h"
#include "Platform/Paths.h"
#include "Platform/Platform.h"

namespace tactora {

namespace {

// One word for the whole process, not one per bridge: 1 asks whatever chunk is running to end.
// The hook reads it on the script's thread while another thread writes it; relaxed atomics keep
// that lock-free without being a data race.
std::atomic<int> stop{0};

// Lets `require` find modules kept beside the scripts.
constexpr const char* packagePathChunk =
    "package.path = package.path .. \";\" .. rootPathOfDocuments() .. \"?.lua\"";

// How a stop reaches a script that runs Lua code without pause.
//
// Lua's own interpreter answers Ctrl-C by setting a hook from the signal handler. Here the stop
// comes from another thread, and lua_sethook writes several fields of the state that the running
// VM reads without synchronisation: a data race, which C++ does not allow. So the hook is set
// only from the script's own thread, and the VM is never touched from outside:
//   - while a chunk runs, a count hook looks at the stop word (a relaxed atomic) about once a
//     millisecond: after each look it sets the count of VM instructions until the next one from
//     how long the last ones took (at most twice the last count, at most
//     `mostInstructionsBetweenLooks`, at least 1). A tight loop looks every 4096 instructions,
//     which costs it about 5 % (the VM counts down on every instruction; the hook call itself is
//     rare), where a hook on every instruction, call and return cost 2.6 times its speed;
//   - every script function looks at the word when it returns (stoppable), as the hook on every
//     return did: a loop of touches or screen reads ends at the first return after the stop;
//   - a chunk that starts already stopped gets the hook on every instruction, call and return,
//     so that it ends before it does anything;
//   - the pauses and other waits that scripts call watch the word themselves and raise the stop
//     the moment it is asked (interruptedError).
// A stop therefore takes effect within about a millisecond of Lua code, at the return of a script
// function, or at the end of a longer instruction or library call in progress. Only a loop that
// turns from quick instructions to slow library calls (megabytes of string work, say) can run up
// to 4096 instructions before its next look.
constexpr int mostInstructionsBetweenLooks = 4096;
constexpr int firstInstructionsBetweenLooks = 16;
constexpr std::chrono::microseconds lookEvery{1000};
constexpr int everyStep = LUA_MASKCALL | LUA_MASKRET | LUA_MASKCOUNT;

// When the script's thread last looked; hooks only ever run on that thread.
thread_local std::chrono::steady_clock::time_point lastLook;

void lstop(lua_State* L, lua_Debug*) {
    if (stop.load(std::memory_order_relaxed) == 1) interruptedError(L);
    if (lua_gethookmask(L) != LUA_MASKCOUNT) return;
    const auto now = std::chrono::steady_clock::now();
    const double took = std::chrono::duration<double>(now - lastLook).count();
    lastLook = now;
    const int count = lua_gethookcount(L);
    // Scaled so that the next look comes about `lookEvery` from now at the pace of the last ones.
    const double wanted = took > 0 ? count * (std::chrono::duration<double>(lookEvery).count() / took)
                                   : double(mostInstructionsBetweenLooks);
    const double most = std::min(2.0 * count, double(mostInstructionsBetweenLooks));
    const int next = wanted >= most ? static_cast<int>(most) : wanted <= 1 ? 1 : static_cast<int>(wanted);
    if (next != count) lua_sethook(L, lstop, LUA_MASKCOUNT, next);
}

// A script function that ends the script when a stop came while it ran, as the stop hook on every
// return did.
template <lua_CFunction function>
int stoppable(lua_State* L) {
    const int results = function(L);
    if (stopRequested()) return interruptedError(L);
    return results;
}

// The text of the error value on the stack top. A script may raise a table or nil; it is still
// reported, not dereferenced.
const char* errorText(lua_State* L) {
    const char* text = lua_tolstring(L, -1, nullptr);
    if (text) return text;
    return lua_pushfstring(L, "(error object is a %s value)", luaL_typename(L, -1));
}

// Scripts get no shell, on the device or on the host. os.execute answers as Lua does where
// system() has no shell: false for "is there one?", and nil, a reason and -1 for any command.
int executeWithoutShell(lua_State* L) {
    if (lua_isnoneornil(L, 1)) {
        lua_pushboolean(L, 0);
        return 1;
    }
    luaL_checkstring(L, 1);
    lua_pushnil(L);
    lua_pushliteral(L, "no shell");
    lua_pushinteger(L, -1);
    return 3;
}

// io.popen as in a Lua built without it.
int popenWithoutShell(lua_State* L) { return luaL_error(L, "'popen' not supported"); }

void withoutShell(lua_State* L) {
    lua_getglobal(L, "os");
    if (lua_istable(L, -1)) {
        lua_pushcfunction(L, executeWithoutShell);
        lua_setfield(L, -2, "execute");
    }
    lua_getglobal(L, "io");
    if (lua_istable(L, -1)) {
        lua_pushcfunction(L, popenWithoutShell);
        lua_setfield(L, -2, "popen");
    }
    lua_pop(L, 2);
}

}  // namespace

LuaBridge::LuaBridge() : L(nullptr) {}

LuaBridge::~LuaBridge() {
    if (L) lua_close(L);
}

void registerFunctions(lua_State* L) {
    struct Entry {
        const char* name;
        lua_CFunction function;
    };
    // Later Lua code, Extensions.lua included, may replace any of these.
    static constexpr Entry globals[] = {
        {"homeButtonDown", stoppable<homeButtonDownProxy>},
        {"homeButtonUp", stoppable<homeButtonUpProxy>},
        {"touchDown", stoppable<touchDownProxy>},
        {"touchMove", stoppable<touchMoveProxy>},
        {"touchUp", stoppable<touchUpProxy>},
        {"rootPathOfDocuments", stoppable<rootDirProxy>},
        {"rootDir", stoppable<rootDirProxy>},
        {"logging", stoppable<logProxy>},
        {"log", stoppable<logProxy>},
        {"usleep", stoppable<usleepProxy>},
        {"alert", stoppable<alertProxy>},
        {"vibrate", stoppable<vibrateProxy>},
        {"playAudio", stoppable<playAudioProxy>},
        {"screenshot", stoppable<screenshotProxy>},
        {"screenshotRegion", stoppable<screenshotRegionProxy>},
        {"getScreenSize", stoppable<getScreenSizeProxy>},
        {"getScreenResolution", stoppable<getScreenResolutionProxy>},
        {"getScreenBitDepth", stoppable<getScreenBitDepthProxy>},
        {"getColor", stoppable<getColorProxy>},
        {"findColor", stoppable<findColorProxy>},
        {"findImage", stoppable<findImageProxy>},
        {"appRun", stoppable<appRunProxy>},
        {"appKill", stoppable<appKillProxy>},
        {"appIsActive", stoppable<appIsActiveProxy>},
    };
    for (const Entry& global : globals) {
        lua_pushcclosure(L, global.function, 0);
        lua_setglobal(L, global.name);
    }
}

void LuaBridge::initEnv() {
    L = luaL_newstate();
    if (!L) {
        logging2("%s", "cannot create the Lua state: not enough memory");
        return;
    }
    luaL_openlibs(L);
    withoutShell(L);
    registerFunctions(L);
    // A failure here is not worth a message; its error value simply stays on the stack.
    if (luaL_loadstring(L, packagePathChunk) == LUA_OK) lua_pcallk(L, 0, LUA_MULTRET, 0, 0, nullptr);
    loadLuaExtensions();
}

void LuaBridge::loadLuaExtensions() {
    std::string path = platform().paths->map(devicepaths::extensionsFile);
    int status = luaL_loadfilex(L, path.c_str(), nullptr);
    if (status == LUA_OK) status = lua_pcallk(L, 0, LUA_MULTRET, 0, 0, nullptr);
    if (status != LUA_OK) {
        int top = lua_gettop(L);
        logging2("%s", errorText(L));
        lua_settop(L, top - 1);
    }
}

void LuaBridge::runLuaString(const std::string& script) {
    run([&script](lua_State* state) { return luaL_loadstring(state, script.c_str()); });
}

void LuaBridge::runLuaFile(const std::string& path) {
    run([&path](lua_State* state) { return luaL_loadfilex(state, path.c_str(), nullptr); });
}

void LuaBridge::stopLuaRunning() {
    // Pairs with the fence in run(): whoever cleared the caller's flag before this store, the
    // run sees either the cleared flag or this word.
    std::atomic_thread_fence(std::memory_order_seq_cst);
    stop.store(1, std::memory_order_relaxed);
    // A script in a pause is woken to see the word at once.
    platform().clock->wakeSleepers();
}

bool stopRequested() { return stop.load(std::memory_order_relaxed) == 1; }

int interruptedError(lua_State* L) {
    // Without the hook a script that catches the error goes on unchecked until the next run.
    lua_sethook(L, nullptr, 0, 0);
    return luaL_error(L, "interrupted");
}

void LuaBridge::run(const std::function<int(lua_State*)>& load) {
    stop.store(0, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_seq_cst);
    if (runCondition_ && !runCondition_()) stop.store(1, std::memory_order_relaxed);
    lastError_.clear();
    if (!L) initEnv();
    if (!L) {
        lastError_ = "cannot create the Lua state: not enough memory";
        return;
    }
    int base = lua_gettop(L);
    if (stopRequested()) {
        lua_sethook(L, lstop, everyStep, 1);
    } else {
        lastLook = std::chrono::steady_clock::now();
        lua_sethook(L, lstop, LUA_MASKCOUNT, firstInstructionsBetweenLooks);
    }
    int status = load(L);
    if (status == LUA_OK) status = lua_pcallk(L, 0, LUA_MULTRET, 0, 0, nullptr);
    if (status != LUA_OK) {
        const char* text = errorText(L);
        // A stopped script is not an error; Lua puts the chunk and line in front of the word.
        if (!str_ends_with(text, "interrupted")) {
            lastError_ = text;
            if (Helper::ifLogErrors()) logging2("%s", text);
            if (Helper::ifShowErrorsByAlert()) alert(text);
        }
    }
    // The chunk's results or its error go; the state and its globals stay for the next run.
    lua_settop(L, base);
    lastSync();
}

}  // namespace tactora
