#pragma once

#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Managers/DataManager.h"
#include "Managers/PlaySettingsManager.h"
#include "Platform/Presenter.h"

namespace tactora {

class ControlPanelView;

// The control panel's choices, all on the main thread.
class ControlPanelViewDelegate {
public:
    virtual ~ControlPanelViewDelegate() = default;
    // Record was touched; the panel closes right after.
    virtual void controlPanelViewDidClickOnRecord(ControlPanelView& panel) = 0;
    // A script row was touched (its full path); the panel closes right after.
    virtual void controlPanelViewDidSelectScript(ControlPanelView& panel, const std::string& path) = 0;
    // The panel was told to close; the delegate lets go of it.
    virtual void controlPanelViewDidDismiss(ControlPanelView& panel) = 0;
};

// The control panel: a Record button, the scripts of the scripts directory and Cancel. The model
// holds the rules and the texts; a presenter draws it with the layout constants below.
class ControlPanelView : public PresentedPanel, public std::enable_shared_from_this<ControlPanelView> {
public:
    // One row of the script list.
    struct Cell {
        std::string text;                   // the file name
        std::string activatorAssignedLabel;  // tag 601: "◎" when a trigger plays this script
        std::string playSettingsLabel;       // tag 602: "▷" when the script plays directly
    };

    // Layout of the container and its content, read by every presenter.
    struct Layout {
        static constexpr double contentWidth = 260;
        static constexpr double contentHeightOfShorterScreenSide = 0.82;
        static constexpr int transitionStyle = 4;  // drop down
        static constexpr double alpha = 0.96;
        static constexpr double cornerRadius = 4;
        static constexpr double titleFontSize = 18;    // bold, black, centred
        static constexpr double messageFontSize = 10;  // dark grey, centred
        static constexpr double recordButtonFontSize = 16;  // the danger style
        static constexpr double cancelButtonFontSize = 14;
        static constexpr std::array<std::string_view, 5> viewNames = {
            "titleLabel", "messageLabel", "recordButton", "_scriptListTableView", "cancelButton"};
        static constexpr std::array<std::string_view, 6> constraints = {
            "H:|-12-[titleLabel]-12-|",
            "H:|-12-[messageLabel]-12-|",
            "H:|-12-[recordButton]-12-|",
            "H:|-0-[_scriptListTableView]-12-|",
            "H:|-12-[cancelButton]-12-|",
            "V:|-0-[titleLabel]-3-[messageLabel]-10-[recordButton(40)]-5-[_scriptListTableView]-7-[cancelButton(30)]-0-|",
        };
        // A row of the list.
        static constexpr std::string_view cellReuseIdentifier = "ItemCellIdentifier";
        static constexpr double cellFontSize = 14;
        static constexpr double markerFontSize = 9;
        static constexpr std::array<int, 3> markerColor = {75, 216, 99};  // 8-bit red, green, blue
        static constexpr int activatorAssignedLabelTag = 601;
        static constexpr int playSettingsLabelTag = 602;
        static constexpr std::array<std::string_view, 2> cellViewNames = {"activatorAssignedLabel",
                                                                          "playSettingsLabel"};
        static constexpr std::array<std::string_view, 3> cellConstraints = {
            "H:[activatorAssignedLabel(11)]-5-[playSettingsLabel(11)]-10-|",
            "V:|-16-[activatorAssignedLabel(11)]",
            "V:|-16-[playSettingsLabel(11)]",
        };
    };
    static constexpr std::string_view assignedMarker = "\u25CE";      // ◎
    static constexpr std::string_view playDirectlyMarker = "\u25B7";  // ▷

    // Builds the panel and loads the list. Use make() so the panel can keep itself alive while
    // it tells its delegate that it closed.
    explicit ControlPanelView(ControlPanelViewDelegate* delegate);
    static std::shared_ptr<ControlPanelView> make(ControlPanelViewDelegate* delegate) {
        return std::make_shared<ControlPanelView>(delegate);
    }
    std::string_view panelName() const override { return "ControlPanelView"; }

    void show();
    void loadFiles();
    // The container closes, then the delegate hears of it. Every way of closing comes here.
    void dismissAnimated(bool animated);
    void clickOnRecord();
    void clickOnCancel();

    // The table's data source and delegate.
    size_t numberOfRows() const { return files_.size(); }
    Cell cellForRow(size_t row) const;
    void didSelectRow(size_t row);

    std::string pathForFile(const std::string& name) const;
    bool fileIsDirectory(const std::string& name) const;
    bool isScriptAssignedActivatorTrigger(const std::string& scriptTitle) const;

    // The texts on screen.
    std::string titleText() const;
    std::string messageText() const;
    std::string recordButtonTitle() const;
    std::string cancelButtonTitle() const;
    // The content height for a screen of `width` x `height` points.
    static double contentHeight(double width, double height);

    const std::vector<std::string>& files() const { return files_; }
    const std::string& documentsDirectory() const { return documentsDirectory_; }
    bool isDismissed() const { return dismissed_; }

private:
    std::string documentsDirectory_;
    std::vector<std::string> files_;
    PlaySettingsManager playSettingsManager_;
    ActivatorTriggerList activatorTriggersInDBArray_;
    ControlPanelViewDelegate* delegate_;
    bool dismissed_ = false;
};

}  // namespace tactora
