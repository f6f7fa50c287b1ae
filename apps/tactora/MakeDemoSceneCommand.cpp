// tactora make-demo-scene DIR: draws the example scene (screens, the findImage template and
// scene.json) into DIR.
#include <iostream>

#include "Command.h"
#include "host/DemoScene.h"

namespace tactora::cli {

namespace {

void setup(CLI::App& app, GlobalOptions& options) {
    auto* command = app.add_subcommand("make-demo-scene", "Draw the example scene the demo plays on into a directory");
    auto directory = std::make_shared<std::string>();
    command->add_option("directory", *directory, "Where to write scene.json and its PNG files")->required();
    command->callback([directory, &options] {
        std::string error;
        if (!host::writeDemoScene(*directory, error)) {
            std::cerr << "tactora make-demo-scene: " << error << "\n";
            options.exitCode = 1;
            return;
        }
        std::cout << *directory << "/scene.json\n";
    });
}

RegisterCommand registered(90, setup);

}  // namespace

}  // namespace tactora::cli
