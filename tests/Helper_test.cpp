#include <gtest/gtest.h>

#include <array>

#include "Control/Helper.h"
#include "FoundationFakes.h"

using namespace tactora;
using namespace tactora::testing;

namespace {

struct Option {
    const char* key;
    bool (*read)();
};

const Option options[] = {
    {showPlayFinishedAlertKey, &Helper::ifShowPlayFinishedAlert},
    {showErrorsByAlertKey, &Helper::ifShowErrorsByAlert},
    {logErrorsKey, &Helper::ifLogErrors},
};

class HelperTest : public ::testing::Test {
protected:
    void SetUp() override { platform().userDefaults = &defaults; }
    ScopedPlatform scope;
    MemoryUserDefaults defaults;
};

}  // namespace

// An option never set reads true and is stored as true; a read never rewrites a stored value.
TEST_F(HelperTest, AnOptionIsReadWithTheStoresTruthRulesAndDefaultsToTrue) {
    const std::pair<std::optional<DefaultsValue>, bool> stored[] = {
        {std::nullopt, true},
        {DefaultsValue(false), false},         {DefaultsValue(true), true},
        {DefaultsValue(std::int64_t(0)), false}, {DefaultsValue(std::int64_t(7)), true},
        {DefaultsValue(std::string("NO")), false}, {DefaultsValue(std::string("yes")), true},
    };
    for (const Option& option : options) {
        for (const auto& [value, expected] : stored) {
            defaults.values.clear();
            if (value) defaults.setObject(option.key, *value);
            EXPECT_EQ(option.read(), expected) << option.key;
            EXPECT_EQ(defaults.objectForKey(option.key), value.value_or(DefaultsValue(true))) << option.key;
            EXPECT_EQ(defaults.values.size(), 1u);
        }
    }
}

TEST_F(HelperTest, SettingsMessagesStoreTheirOptionAndIgnoreAnythingMalformed) {
    using Bytes = std::vector<std::uint8_t>;
    struct Case {
        std::int32_t id;
        Bytes data;
        const char* key;  // the option that changes, or none
        bool value;
    };
    const Case cases[] = {
        {4, {0, 0, 0, 0}, showPlayFinishedAlertKey, false},
        {4, {2, 0, 0, 0}, showPlayFinishedAlertKey, true},
        {4, {0, 0, 0, 1}, showPlayFinishedAlertKey, true},  // only the top byte set: still non-zero
        {5, {0, 0, 0, 0}, showErrorsByAlertKey, false},
        {5, {1, 0, 0, 0}, showErrorsByAlertKey, true},
        {6, {0, 0, 0, 0}, logErrorsKey, false},
        {6, {0xff, 0xff, 0xff, 0xff}, logErrorsKey, true},
        {4, {0, 0, 0, 0, 0, 0, 0, 0}, nullptr, false},
        {5, {0, 0, 0}, nullptr, false},
        {6, {}, nullptr, false},
        {3, {0, 0, 0, 0}, nullptr, false},
        {7, {0, 0, 0, 0}, nullptr, false},
        {-4, {0, 0, 0, 0}, nullptr, false},
        {1 << 16 | 4, {0, 0, 0, 0}, nullptr, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << "id " << c.id << ", " << c.data.size() << " bytes");
        // A known state first: everything on but with a marker type, so any write shows.
        defaults.values.clear();
        for (const Option& option : options) defaults.setObject(option.key, std::int64_t(9));
        myCallBack(c.id, c.data);
        for (const Option& option : options) {
            auto stored = defaults.objectForKey(option.key);
            if (c.key && std::string(c.key) == option.key) {
                EXPECT_EQ(stored, DefaultsValue(c.value)) << option.key;
            } else {
                EXPECT_EQ(stored, DefaultsValue(std::int64_t(9))) << option.key << " must not change";
            }
        }
    }
}
