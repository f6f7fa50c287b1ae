// The user-visible texts in the four languages the system speaks.
//
// For most entries the key is the English text itself; "PLAY_LATER_TIP" names the long tip shown
// when a script waits for the start/stop event. Some texts read oddly on purpose and must stay as
// they are ("Dencrypt Password", "Quited Ready-to-Play Mode!", "Create script failed.Info:"): other
// programs and users' habits depend on them.
#include "Views/Localization.h"

#include <vector>

#include "Platform/Languages.h"
#include "Platform/Platform.h"

namespace tactora {

Localization& Localization::sharedInstance() {
    // Created at the first lookup and kept for the life of the process.
    static Localization* instance = new Localization();
    return *instance;
}

Localization::Localization() { initKeyValues(); }

void Localization::initKeyValues() {
    enKeyValue_ = LocalizationTable{
        {"Tactora", "Tactora"},
        {"Click to record or select to play", "Click to record or select to play"},
        {"Record", "Record"},
        {"Dencrypt Password", "Dencrypt Password"},
        {"Cancel", "Cancel"},
        {"Confirm", "Confirm"},
        {"Wrong password!", "Wrong password!"},
        {"OK", "OK"},
        {"Loop playing with", "Loop playing with"},
        {"Play Now", "Play Now"},
        {"Play Later", "Play Later"},
        {"Times", "Times"},
        {"Interval", "Interval"},
        {"Speed", "Speed"},
        {"Tip", "Tip"},
        {"PLAY_LATER_TIP", "It's ready to play, click on the volume down button to start/stop(repeatable, and the control action can't be changed), hold on the volume down button(maybe you've changed the Activator control action in the settings) to quit ready-to-play status."},
        {"Don't show again", "Don't show again"},
        {"Got it", "Got it"},
        {"Quited Ready-to-Play Status!", "Quited Ready-to-Play Mode!"},
        {"Recording Finished!", "Recording Finished!"},
        {"Playing Finished!", "Playing Finished!"},
        {"Error", "Error"},
        {"Create script failed.Info:", "Create script failed.Info:"},
        {"interrupted!", "interrupted!"},
    };
    jaKeyValue_ = LocalizationTable{
        {"Tactora", "Tactora"},
        {"Click to record or select to play", "記録をクリックし、或いはスクリプトの実行を選びます"},
        {"Record", "記録"},
        {"Dencrypt Password", "暗証コードをなくすパスワード"},
        {"Cancel", "キャンセル"},
        {"Confirm", "確認"},
        {"Wrong password!", "パスワードエラー！"},
        {"OK", "オーケー"},
        {"Loop playing with", "以下の設定で循環に実行します"},
        {"Play Now", "直ちに実行"},
        {"Play Later", "後に実行"},
        {"Times", "回数"},
        {"Interval", "間隔"},
        {"Speed", "速度"},
        {"Tip", "ヒント"},
        {"PLAY_LATER_TIP", "実行準備状態へすでに入っています。音量ダウンボタンをクリックして起動する或いは実行を停止します（繰り返し起動したり停止したりすることができます。同制御動作はActivatorを通じて修正できません）。音量ダウンボタンを長押しして実行準備の状態を終了します（また、Activatorで他の制御動作へと修正します）。"},
        {"Don't show again", "二度とこのメッセージを表示しません"},
        {"Got it", "分かりました"},
        {"Quited Ready-to-Play Status!", "実行準備状態を終了しました！"},
        {"Recording Finished!", "記録が終了しました！"},
        {"Playing Finished!", "実行が終了しました！"},
        {"Error", "エラー"},
        {"Create script failed.Info:", "スクリプトの作成が失敗しました。情報："},
        {"interrupted!", "中止しました！"},
    };
    zhsKeyValue_ = LocalizationTable{
        {"Tactora", "Tactora"},
        {"Click to record or select to play", "点击录制或选择脚本运行"},
        {"Record", "录制"},
        {"Dencrypt Password", "解密密码"},
        {"Cancel", "取消"},
        {"Confirm", "确定"},
        {"Wrong password!", "密码错误！"},
        {"OK", "OK"},
        {"Loop playing with", "用以下设置循环运行"},
        {"Play Now", "立即运行"},
        {"Play Later", "稍后运行"},
        {"Times", "次数"},
        {"Interval", "间隔"},
        {"Speed", "速度"},
        {"Tip", "提示"},
        {"PLAY_LATER_TIP", "已进入“准备运行”状态，点击音量减键启动或停止运行（可以重复启动或停止，该控制动作不可通过Activator修改），长按音量减键（或您通过Activator修改为的其它控制动作）来退出“准备运行”状态。"},
        {"Don't show again", "不再提示"},
        {"Got it", "知道了"},
        {"Quited Ready-to-Play Status!", "已退出“准备运行”模式！"},
        {"Recording Finished!", "录制结束！"},
        {"Playing Finished!", "运行结束！"},
        {"Error", "错误"},
        {"Create script failed.Info:", "创建脚本失败。信息："},
        {"interrupted!", "已中断！"},
    };
    zhtKeyValue_ = LocalizationTable{
        {"Tactora", "Tactora"},
        {"Click to record or select to play", "點擊錄製或選擇腳本運行"},
        {"Record", "錄製"},
        {"Dencrypt Password", "解密密碼"},
        {"Cancel", "取消"},
        {"Confirm", "確定"},
        {"Wrong password!", "密碼錯誤！"},
        {"OK", "OK"},
        {"Loop playing with", "用以下設置循環運行"},
        {"Play Now", "立即運行"},
        {"Play Later", "稍後運行"},
        {"Times", "次數"},
        {"Interval", "間隔"},
        {"Speed", "速度"},
        {"Tip", "提示"},
        {"PLAY_LATER_TIP", "已進入“準備運行”狀態，點擊音量減鍵啟動或停止運行（可以重複啟動或停止，該控制動作不可通過Activator修改），長按音量減鍵（或您通過Activator修改為的其它控制動作）來退出“準備運行”狀態。"},
        {"Don't show again", "不再提示"},
        {"Got it", "知道了"},
        {"Quited Ready-to-Play Status!", "已退出“準備運行”狀態！"},
        {"Recording Finished!", "錄製結束！"},
        {"Playing Finished!", "運行結束！"},
        {"Error", "錯誤"},
        {"Create script failed.Info:", "創建腳本失敗。信息："},
        {"interrupted!", "已中斷！"},
    };
}

std::optional<std::string> Localization::localize(const std::string& key) {
    // The language is asked anew on every lookup so that a change of the device language shows at
    // once. Only the bare tags select a translation: "ja-JP" or "zh-Hans-CN" get English.
    std::vector<std::string> languages = platform().languages->preferredLanguages();
    const std::string first = languages.empty() ? std::string() : languages.front();
    Localization& shared = sharedInstance();
    const LocalizationTable* table = &shared.enKeyValue_;
    if (first == "zh-Hans") {
        table = &shared.zhsKeyValue_;
    } else if (first == "zh-Hant") {
        table = &shared.zhtKeyValue_;
    } else if (first == "ja") {
        table = &shared.jaKeyValue_;
    }
    auto found = table->find(key);
    if (found == table->end()) return std::nullopt;
    return found->second;
}

std::string localizedText(const std::string& key) { return Localization::localize(key).value_or(std::string()); }

}  // namespace tactora
