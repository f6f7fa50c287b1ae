// The panels' visual-format constraints, read the way NSLayoutConstraint reads them. On the device a
// constraint that names a view missing from the views dictionary throws inside SpringBoard, and a
// view placed on one axis only lands anywhere, so these faults must show up here.

#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <set>

#include "Views/ControlPanelView.h"
#include "Views/PlaySettingsView.h"

using namespace tactora;

namespace {

struct Chain {
    char axis;  // 'H' or 'V'
    bool edgeToEdge;
    double fixed = 0;       // the gaps and the views of fixed size
    bool flexible = false;  // some view takes what is left
    std::vector<std::string> views;
};

// The subset of the visual format language the panels use: "H:|-12-[a]-3-[b(40)]-0-|", views and
// gaps alternating (two views side by side would need the standard spacing, which the panels never use).
std::optional<Chain> parse(std::string_view format) {
    static const std::string view = R"(\[[A-Za-z_]\w*(\(\d+\))?\])";
    static const std::regex whole("[HV]:\\|?(-\\d+-)?" + view + "(-\\d+-" + view + ")*(-\\d+-)?\\|?");
    static const std::regex step(R"(-(\d+)-|\[(\w+)(?:\((\d+)\))?\])");
    const std::string text(format);
    if (!std::regex_match(text, whole)) return std::nullopt;
    Chain chain{text[0], text[2] == '|' && text.back() == '|', 0, false, {}};
    for (auto it = std::sregex_iterator(text.begin(), text.end(), step); it != std::sregex_iterator(); ++it) {
        const std::smatch& m = *it;
        if (m[2].matched) chain.views.push_back(m[2]);
        if (m[1].matched || m[3].matched) chain.fixed += std::stod(m[1].matched ? m[1] : m[3]);
        else chain.flexible = true;
    }
    return chain;
}

}  // namespace

// Every constraint parses and names only views of its panel; every view is placed on both axes;
// a chain from edge to edge adds up to the content's size when all its views have a fixed size,
// and leaves room when some view takes what is left.
TEST(PanelLayout, ConstraintsNameTheirViewsPlaceEachOnBothAxesAndFitTheContent) {
    using Control = ControlPanelView::Layout;
    using Settings = PlaySettingsView::Layout;
    const struct {
        const char* panel;
        std::vector<std::string_view> viewNames, constraints;
        double width, height;  // of the content on the smallest screen (320 x 568), 0 for a table cell of any size
    } panels[] = {
        {"control panel", {Control::viewNames.begin(), Control::viewNames.end()},
         {Control::constraints.begin(), Control::constraints.end()}, Control::contentWidth,
         ControlPanelView::contentHeight(320, 568)},
        {"script row", {Control::cellViewNames.begin(), Control::cellViewNames.end()},
         {Control::cellConstraints.begin(), Control::cellConstraints.end()}, 0, 0},
        {"play settings", {Settings::viewNames.begin(), Settings::viewNames.end()},
         {Settings::constraints.begin(), Settings::constraints.end()}, Settings::contentWidth, Settings::contentHeight},
    };
    int edgeToEdge = 0;
    for (const auto& layout : panels) {
        SCOPED_TRACE(layout.panel);
        const std::set<std::string_view> names(layout.viewNames.begin(), layout.viewNames.end());
        EXPECT_EQ(names.size(), layout.viewNames.size()) << "a view name is listed twice";
        std::map<std::string, std::set<char>> axes;
        for (std::string_view format : layout.constraints) {
            auto chain = parse(format);
            ASSERT_TRUE(chain) << format;
            for (const std::string& view : chain->views) {
                EXPECT_TRUE(names.count(view)) << view << " in " << format;
                axes[view].insert(chain->axis);
            }
            if (layout.width == 0 || !chain->edgeToEdge) continue;
            const double extent = chain->axis == 'H' ? layout.width : layout.height;
            if (chain->flexible) EXPECT_LT(chain->fixed, extent) << format;
            else EXPECT_DOUBLE_EQ(chain->fixed, extent) << format;
            ++edgeToEdge;
        }
        for (std::string_view name : layout.viewNames) EXPECT_EQ(axes[std::string(name)], (std::set<char>{'H', 'V'})) << name;
    }
    EXPECT_GE(edgeToEdge, 10);  // every panel has such chains; none may be skipped by a parse slip
}
