#include <gtest/gtest.h>

#include <cerrno>

#include "Kernel/Recorder.h"
#include "Managers/FileManager.h"
#include "RuntimeFakes.h"

using namespace tactora;
namespace fs = std::filesystem;

namespace {

// Describes a failure by its error number and path, so a test sees which failure reached it.
struct DescribingLanguages final : Languages {
    std::string fileErrorDescription(int posixError, std::string_view path) const override {
        return "<" + std::to_string(posixError) + " " + std::string(path) + ">";
    }
};

}  // namespace

// What follows "Info:" is the platform's own description of that very failure: its error and its
// path, for each directory and for a new recording.
TEST(FailureText, InfoCarriesThePlatformsDescriptionOfTheFailure) {
    DescribingLanguages describing;
    {
        tactora::testing::FakeDevice device;
        platform().languages = &describing;
        const fs::path scripts = device.map(devicepaths::scriptsDirectory);
        fs::create_directories(scripts.parent_path());
        fs::create_symlink(device.root.path() / "nowhere", scripts);  // nothing can be made there
        EXPECT_FALSE(FileManager::prepareDirectories());
        ASSERT_EQ(device.alerts.shown().size(), 1u);
        EXPECT_EQ(device.alerts.shown()[0].message, "Failed to create Scripts directory. Info:<" +
                                                        std::to_string(EEXIST) + " " + scripts.string() + ">");
    }
    {
        tactora::testing::ControlDevice device;
        platform().languages = &describing;
        const fs::path taken = device.scriptsDirectory() / "2014-05-01 13:45:10.lua";
        fs::create_directories(taken);  // a directory where the new script should go
        startRecording();
        ASSERT_EQ(device.hostAlerts.openAlerts().size(), 1u);
        EXPECT_EQ(device.hostAlerts.openAlerts()[0].request.message,
                  "Create script failed.Info:<" + std::to_string(EISDIR) + " " + taken.string() + ">");
        stopRecording();
    }
}
