// The panels' visual-format constraints, read the way NSLayoutConstraint reads them. On the device a
// constraint that names a view missing from the views dictionary throws inside SpringBoard, and a
// view placed on one axis only lands anywhere, so these faults must show up here.

#include <gtest/gtest.h>

#include <cctype>
#include <map>
#include <optional>
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

// The subset of the visual format language the panels use: "H:|-12-[a]-3-[b(40)]-0-|".
std::optional<Chain> parse(std::string_view format) {
    Chain chain;
    if (format.size() < 3 || (format[0] != 'H' && format[0] != 'V') || format[1] != ':') return std::nullopt;
    chain.axis = format[0];
    size_t at = 2;
    auto number = [&](char end) -> std::optional<double> {
        size_t stop = format.find(end, at);
        if (stop == std::string_view::npos || stop == at) return std::nullopt;
        std::string digits(format.substr(at, stop - at));
        for (char c : digits) {
            if (!std::isdigit(static_cast<unsigned char>(c))) return std::nullopt;
        }
        at = stop + 1;
        return std::stod(digits);
    };
    if (format[at] == '|') {
        chain.leadingEdge = true;
        ++at;
    }
    while (at < format.size()) {
        char c = format[at];
        if (c == '-') {
            ++at;
            auto gap = number('-');
            if (!gap) return std::nullopt;
            chain.steps.push_back({false, {}, gap});
        } else if (c == '[') {
            ++at;
            size_t start = at;
            while (at < format.size() && (std::isalnum(static_cast<unsigned char>(format[at])) || format[at] == '_')) ++at;
            if (at == start || std::isdigit(static_cast<unsigned char>(format[start]))) return std::nullopt;
            Step view{true, std::string(format.substr(start, at - start)), std::nullopt};
            if (at < format.size() && format[at] == '(') {
                ++at;
                view.size = number(')');
                if (!view.size) return std::nullopt;
            }
            if (at >= format.size() || format[at] != ']') return std::nullopt;
            ++at;
            chain.steps.push_back(view);
        } else if (c == '|' && at + 1 == format.size()) {
            chain.trailingEdge = true;
            ++at;
        } else {
            return std::nullopt;
        }
    }
    // Views and gaps alternate; two views side by side would need the standard spacing, which
    // the panels never use.
    for (size_t i = 1; i < chain.steps.size(); ++i) {
        if (chain.steps[i].isView == chain.steps[i - 1].isView) return std::nullopt;
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

TEST(PanelLayout, ConstraintsParseAndNameOnlyViewsOfTheirPanel) {
    for (const PanelLayout& layout : panels()) {
        SCOPED_TRACE(layout.panel);
        std::set<std::string_view> names(layout.viewNames.begin(), layout.viewNames.end());
        EXPECT_EQ(names.size(), layout.viewNames.size()) << "a view name is listed twice";
        for (std::string_view format : layout.constraints) {
            auto chain = parse(format);
            ASSERT_TRUE(chain) << format;
            for (const Step& step : chain->steps) {
                if (!step.isView) continue;
                EXPECT_TRUE(names.count(step.name)) << step.name << " in " << format;
            }
        }
    }
}

TEST(PanelLayout, EveryViewIsPlacedOnBothAxes) {
    for (const PanelLayout& layout : panels()) {
        SCOPED_TRACE(layout.panel);
        std::map<std::string, std::set<char>> axes;
        for (std::string_view format : layout.constraints) {
            auto chain = parse(format);
            ASSERT_TRUE(chain) << format;
            for (const Step& step : chain->steps) {
                if (step.isView) axes[step.name].insert(chain->axis);
            }
        }
        for (std::string_view name : layout.viewNames) {
            EXPECT_EQ(axes[std::string(name)], (std::set<char>{'H', 'V'})) << name;
        }
    }
}

// A chain from edge to edge must add up to the content's size when every view in it has a fixed
// size, and leave room when some view takes what is left.
TEST(PanelLayout, ChainsFromEdgeToEdgeFitTheContent) {
    int checked = 0;
    for (const PanelLayout& layout : panels()) {
        if (layout.width == 0) continue;
        SCOPED_TRACE(layout.panel);
        for (std::string_view format : layout.constraints) {
            auto chain = parse(format);
            ASSERT_TRUE(chain) << format;
            if (!chain->leadingEdge || !chain->trailingEdge) continue;
            double fixed = 0;
            bool flexible = false;
            for (const Step& step : chain->steps) {
                if (step.size) fixed += *step.size;
                else flexible = true;
            }
            const double extent = chain->axis == 'H' ? layout.width : layout.height;
            if (flexible) {
                EXPECT_LT(fixed, extent) << format;
            } else {
                EXPECT_DOUBLE_EQ(fixed, extent) << format;
            }
            ++checked;
        }
    }
    EXPECT_GE(checked, 10);  // every panel has such chains; none may be skipped by a parse slip
}
