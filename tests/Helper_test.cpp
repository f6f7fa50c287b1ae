#include "Control/Helper.h"

#include <gtest/gtest.h>

#include "FoundationFakes.h"

using namespace tactora;
using namespace tactora::testing;

namespace {

const std::pair<const char*, bool (*)()> options[] = {{showPlayFinishedAlertKey, &Helper::ifShowPlayFinishedAlert},
                                                      {showErrorsByAlertKey, &Helper::ifShowErrorsByAlert},
                                                      {logErrorsKey, &Helper::ifLogErrors}};

class HelperTest : public ::testing::Test {
protected:
    void SetUp() override { platform().userDefaults = &defaults; }
    ScopedPlatform scope;
    MemoryUserDefaults defaults;
};

}  // namespace

// An option never set reads true and is stored as true; a read never rewrites a stored value.
TEST_F(HelperTest, AnOptionIsReadWithTheStoresTruthRulesAndDefaultsToTrue) {
    using Value = DefaultsValue;
    const std::pair<std::optional<Value>, bool> stored[] = {
        {std::nullopt, true},         {Value(false), false},       {Value(true), true},
        {Value(std::int64_t(0)), false}, {Value(std::int64_t(7)), true}, {Value(std::string("NO")), false},
        {Value(std::string("yes")), true}};
    for (const auto& [key, read] : options) {
        for (const auto& [value, expected] : stored) {
            defaults.values.clear();
            if (value) defaults.setObject(key, *value);
            EXPECT_EQ(read(), expected) << key;
            EXPECT_EQ(defaults.objectForKey(key), value.value_or(Value(true))) << key;
            EXPECT_EQ(defaults.values.size(), 1u);
        }
    }
}

// Each message id sets its own option from any non-zero byte of a four-byte payload.
TEST_F(HelperTest, SettingsMessagesStoreTheirOptionAndIgnoreAnythingMalformed) {
    // The message, and the option it changes (none for a malformed one) with its new value.
    const struct { std::int32_t id; std::vector<std::uint8_t> data; const char* key; bool value; } cases[] = {
        {4, {0, 0, 0, 0}, showPlayFinishedAlertKey, false}, {4, {2, 0, 0, 0}, showPlayFinishedAlertKey, true},
        {4, {0, 0, 0, 1}, showPlayFinishedAlertKey, true},  {5, {0, 0, 0, 0}, showErrorsByAlertKey, false},
        {5, {1, 0, 0, 0}, showErrorsByAlertKey, true},      {6, {0, 0, 0, 0}, logErrorsKey, false},
        {6, {0xff, 0xff, 0xff, 0xff}, logErrorsKey, true},  {4, {0, 0, 0, 0, 0, 0, 0, 0}, nullptr, false},
        {5, {0, 0, 0}, nullptr, false},                     {6, {}, nullptr, false},
        {3, {0, 0, 0, 0}, nullptr, false},                  {7, {0, 0, 0, 0}, nullptr, false},
        {-4, {0, 0, 0, 0}, nullptr, false},                 {1 << 16 | 4, {0, 0, 0, 0}, nullptr, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << "id " << c.id << ", " << c.data.size() << " bytes");
        // Every option holds a marker of another type first, so any write shows.
        for (const auto& option : options) defaults.setObject(option.first, std::int64_t(9));
        myCallBack(c.id, c.data);
        for (const auto& [key, read] : options) {
            const bool changes = c.key && std::string(c.key) == key;
            EXPECT_EQ(defaults.objectForKey(key), changes ? DefaultsValue(c.value) : DefaultsValue(std::int64_t(9))) << key;
        }
    }
}
