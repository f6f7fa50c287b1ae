#pragma once

#include <cstdint>

struct lua_State;

namespace tactora {

// The functions behind the general script globals, and the ones the bridge itself uses.

// The scripts directory with a trailing "/".
const char* rootPathOfDocuments();
// Appends "MM-dd HH:mm:ss <text>\n" to the log file.
void logging(const char* text);
// printf-style, cut to 4094 bytes, then logging.
void logging2(const char* format, ...) __attribute__((format(printf, 1, 2)));
// Sleeps us * (2 - playSpeed) microseconds.
void customUsleep(unsigned us);
// Shows `text` in an alert on the main thread without waiting.
void alert(const char* text);
void vibrate();
void playAudio();
void appRun(const char* bundleId);
void appKill(const char* bundleId);
bool appIsActive(const char* bundleId);
// Flushes the pending touches and waits 16 ms.
void lastSync();

// The Lua-facing wrappers, registered by registerFunctions.
int homeButtonDownProxy(lua_State* L);
int homeButtonUpProxy(lua_State* L);
int touchDownProxy(lua_State* L);
int touchMoveProxy(lua_State* L);
int touchUpProxy(lua_State* L);
int rootDirProxy(lua_State* L);
int logProxy(lua_State* L);
int usleepProxy(lua_State* L);
int alertProxy(lua_State* L);
int vibrateProxy(lua_State* L);
int playAudioProxy(lua_State* L);
int screenshotProxy(lua_State* L);
int screenshotRegionProxy(lua_State* L);
int getScreenSizeProxy(lua_State* L);
int getScreenResolutionProxy(lua_State* L);
int getScreenBitDepthProxy(lua_State* L);
int getColorProxy(lua_State* L);
int findColorProxy(lua_State* L);
int findImageProxy(lua_State* L);
int appRunProxy(lua_State* L);
int appKillProxy(lua_State* L);
int appIsActiveProxy(lua_State* L);

}  // namespace tactora
