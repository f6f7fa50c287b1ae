// The panels' visual-format constraints, read the way NSLayoutConstraint reads them. On the device a
// constraint that names a view missing from the views dictionary throws inside SpringBoard, and a
// view placed on one axis only lands anywhere, so these faults must show up here.

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Views/ControlPanelView.h"
#include "Views/PlaySettingsView.h"

using namespace tactora;

namespace {

// One step of a chain: a gap of `size` points, or a view with an optional fixed size.
struct Step {
    bool isView = false;
    std::string name;
    std::optional<double> size;
};

struct Chain {
    char axis = 0;  // 'H' or 'V'
    bool leadingEdge = false;
    bool trailingEdge = false;
    std::vector<Step> steps;
};

// The subset of the visual format language the panels use: "H:|-12-[a]-3-[b(40)]-0-|", views and
// gaps alternating (two views side by side would need the standard spacing, which the panels never use).
std::optional<Chain> parse(std::string_view format) {
    static const std::string view = R"(\[[A-Za-z_]\w*(\(\d+\))?\])";
    static const std::regex whole("[HV]:\\|?(-\\d+-)?" + view + "(-\\d+-" + view + ")*(-\\d+-)?\\|?");
    static const std::regex step(R"(-(\d+)-|\[(\w+)(?:\((\d+)\))?\])");
    const std::string text(format);
    if (!std::regex_match(text, whole)) return std::nullopt;
    Chain chain{text[0], text[2] == '|', text.back() == '|', {}};
    for (auto it = std::sregex_iterator(text.begin(), text.end(), step); it != std::sregex_iterator(); ++it) {
        const std::smatch& m = *it;
        if (m[1].matched) chain.steps.push_back({false, {}, std::stod(m[1])});
        else chain.steps.push_back({true, m[2], m[3].matched ? std::optional(std::stod(m[3])) : std::nullopt});
    }
    return chain;
}

struct PanelLayout {
    std::string panel;
    std::vector<std::string_view> viewNames;
    std::vector<std::string_view> constraints;
    double width;   // of the content view, or 0 when the content is a table cell of any width
    double height;  // likewise
};

std::vector<PanelLayout> panels() {
    using Control = ControlPanelView::Layout;
    using Settings = PlaySettingsView::Layout;
    // The smallest screen the tweak runs on: 320 x 568 points.
    return {
        {"control panel", {Control::viewNames.begin(), Control::viewNames.end()},
         {Control::constraints.begin(), Control::constraints.end()}, Control::contentWidth,
         ControlPanelView::contentHeight(320, 568)},
        {"script row", {Control::cellViewNames.begin(), Control::cellViewNames.end()},
         {Control::cellConstraints.begin(), Control::cellConstraints.end()}, 0, 0},
        {"play settings", {Settings::viewNames.begin(), Settings::viewNames.end()},
         {Settings::constraints.begin(), Settings::constraints.end()}, Settings::contentWidth, Settings::contentHeight},
    };
}

}  // namespace

// Every constraint parses and names only views of its panel; every view is placed on both axes;
// a chain from edge to edge adds up to the content's size when all its views have a fixed size,
// and leaves room when some view takes what is left.
TEST(PanelLayout, ConstraintsNameTheirViewsPlaceEachOnBothAxesAndFitTheContent) {
    int edgeToEdge = 0;
    for (const PanelLayout& layout : panels()) {
        SCOPED_TRACE(layout.panel);
        std::set<std::string_view> names(layout.viewNames.begin(), layout.viewNames.end());
        EXPECT_EQ(names.size(), layout.viewNames.size()) << "a view name is listed twice";
        std::map<std::string, std::set<char>> axes;
        for (std::string_view format : layout.constraints) {
            auto chain = parse(format);
            ASSERT_TRUE(chain) << format;
            double fixed = 0;
            bool flexible = false;
            for (const Step& step : chain->steps) {
                if (step.isView) {
                    EXPECT_TRUE(names.count(step.name)) << step.name << " in " << format;
                    axes[step.name].insert(chain->axis);
                }
                if (step.size) fixed += *step.size;
                else flexible = true;
            }
            if (layout.width == 0 || !chain->leadingEdge || !chain->trailingEdge) continue;
            const double extent = chain->axis == 'H' ? layout.width : layout.height;
            if (flexible) EXPECT_LT(fixed, extent) << format;
            else EXPECT_DOUBLE_EQ(fixed, extent) << format;
            ++edgeToEdge;
        }
        for (std::string_view name : layout.viewNames) EXPECT_EQ(axes[std::string(name)], (std::set<char>{'H', 'V'})) << name;
    }
    EXPECT_GE(edgeToEdge, 10);  // every panel has such chains; none may be skipped by a parse slip
}
