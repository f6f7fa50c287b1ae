#include <gtest/gtest.h>

#include <set>

#include "Platform/Languages.h"
#include "Platform/Platform.h"
#include "Views/Localization.h"

using namespace tactora;

namespace {

class FixedLanguages final : public Languages {
public:
    std::vector<std::string> list;
    std::vector<std::string> preferredLanguages() const override { return list; }
};

struct Row {
    const char* key;
    const char* en;
    const char* ja;
    const char* zhs;
    const char* zht;
};

// Every text the interface shows, as users of each language know it.
const Row expectedTexts[] = {
    {"Tactora",
     "Tactora",
     "Tactora",
     "Tactora",
     "Tactora"},
    {"Click to record or select to play",
     "Click to record or select to play",
     "記録をクリックし、或いはスクリプトの実行を選びます",
     "点击录制或选择脚本运行",
     "點擊錄製或選擇腳本運行"},
    {"Record",
     "Record",
     "記録",
     "录制",
     "錄製"},
    {"Dencrypt Password",
     "Dencrypt Password",
     "暗証コードをなくすパスワード",
     "解密密码",
     "解密密碼"},
    {"Cancel",
     "Cancel",
     "キャンセル",
     "取消",
     "取消"},
    {"Confirm",
     "Confirm",
     "確認",
     "确定",
     "確定"},
    {"Wrong password!",
     "Wrong password!",
     "パスワードエラー！",
     "密码错误！",
     "密碼錯誤！"},
    {"OK",
     "OK",
     "オーケー",
     "OK",
     "OK"},
    {"Loop playing with",
     "Loop playing with",
     "以下の設定で循環に実行します",
     "用以下设置循环运行",
     "用以下設置循環運行"},
    {"Play Now",
     "Play Now",
     "直ちに実行",
     "立即运行",
     "立即運行"},
    {"Play Later",
     "Play Later",
     "後に実行",
     "稍后运行",
     "稍後運行"},
    {"Times",
     "Times",
     "回数",
     "次数",
     "次數"},
    {"Interval",
     "Interval",
     "間隔",
     "间隔",
     "間隔"},
    {"Speed",
     "Speed",
     "速度",
     "速度",
     "速度"},
    {"Tip",
     "Tip",
     "ヒント",
     "提示",
     "提示"},
    {"PLAY_LATER_TIP",
     "It's ready to play, click on the volume down button to start/stop(repeatable, and the control action can't be changed), hold on the volume down button(maybe you've changed the Activator control action in the settings) to quit ready-to-play status.",
     "実行準備状態へすでに入っています。音量ダウンボタンをクリックして起動する或いは実行を停止します（繰り返し起動したり停止したりすることができます。同制御動作はActivatorを通じて修正できません）。音量ダウンボタンを長押しして実行準備の状態を終了します（また、Activatorで他の制御動作へと修正します）。",
     "已进入“准备运行”状态，点击音量减键启动或停止运行（可以重复启动或停止，该控制动作不可通过Activator修改），长按音量减键（或您通过Activator修改为的其它控制动作）来退出“准备运行”状态。",
     "已進入“準備運行”狀態，點擊音量減鍵啟動或停止運行（可以重複啟動或停止，該控制動作不可通過Activator修改），長按音量減鍵（或您通過Activator修改為的其它控制動作）來退出“準備運行”狀態。"},
    {"Don't show again",
     "Don't show again",
     "二度とこのメッセージを表示しません",
     "不再提示",
     "不再提示"},
    {"Got it",
     "Got it",
     "分かりました",
     "知道了",
     "知道了"},
    {"Quited Ready-to-Play Status!",
     "Quited Ready-to-Play Mode!",
     "実行準備状態を終了しました！",
     "已退出“准备运行”模式！",
     "已退出“準備運行”狀態！"},
    {"Recording Finished!",
     "Recording Finished!",
     "記録が終了しました！",
     "录制结束！",
     "錄製結束！"},
    {"Playing Finished!",
     "Playing Finished!",
     "実行が終了しました！",
     "运行结束！",
     "運行結束！"},
    {"Error",
     "Error",
     "エラー",
     "错误",
     "錯誤"},
    {"Create script failed.Info:",
     "Create script failed.Info:",
     "スクリプトの作成が失敗しました。情報：",
     "创建脚本失败。信息：",
     "創建腳本失敗。信息："},
    {"interrupted!",
     "interrupted!",
     "中止しました！",
     "已中断！",
     "已中斷！"},
};

class LocalizationTest : public ::testing::Test {
protected:
    void SetUp() override { platform().languages = &languages; }
    void speak(std::vector<std::string> list) { languages.list = std::move(list); }

    ScopedPlatform scope;
    FixedLanguages languages;
};

}  // namespace

TEST_F(LocalizationTest, EveryKeyGivesItsTextInTheChosenLanguage) {
    struct Choice {
        std::vector<std::string> preferred;
        const char* Row::*column;
    };
    const Choice choices[] = {
        {{"en"}, &Row::en},
        {{"ja", "en"}, &Row::ja},
        {{"zh-Hans"}, &Row::zhs},
        {{"zh-Hant", "ja"}, &Row::zht},
        // Only the bare tags select a translation; everything else is English.
        {{"ja-JP"}, &Row::en},
        {{"zh-Hans-CN"}, &Row::en},
        {{"zh-hans"}, &Row::en},
        {{"fr", "ja"}, &Row::en},
        {{"en", "zh-Hans"}, &Row::en},
        {{}, &Row::en},
    };
    for (const Choice& choice : choices) {
        speak(choice.preferred);
        for (const Row& row : expectedTexts) {
            SCOPED_TRACE(std::string(row.key) + " in " +
                         (choice.preferred.empty() ? std::string("<none>") : choice.preferred.front()));
            EXPECT_EQ(Localization::localize(row.key), std::optional<std::string>(row.*choice.column));
            EXPECT_EQ(localizedText(row.key), row.*choice.column);
        }
    }
}

TEST_F(LocalizationTest, TablesHoldExactlyTheKnownKeys) {
    std::set<std::string> keys;
    for (const Row& row : expectedTexts) keys.insert(row.key);
    ASSERT_EQ(keys.size(), 24u);
    Localization& shared = Localization::sharedInstance();
    for (const LocalizationTable* table :
         {&shared.enKeyValue(), &shared.jaKeyValue(), &shared.zhsKeyValue(), &shared.zhtKeyValue()}) {
        std::set<std::string> tableKeys;
        for (const auto& [key, text] : *table) tableKeys.insert(key);
        EXPECT_EQ(tableKeys, keys);
    }
}

TEST_F(LocalizationTest, UnknownKeysGiveNothingInEveryLanguage) {
    for (const char* language : {"en", "ja", "zh-Hans", "zh-Hant", "fr"}) {
        speak({language});
        for (const char* key : {"Stop", "", "record", "Quited Ready-to-Play Mode!", "PLAY_LATER_TIP "}) {
            EXPECT_EQ(Localization::localize(key), std::nullopt) << key << " in " << language;
            EXPECT_EQ(localizedText(key), "") << key << " in " << language;
        }
    }
}

TEST_F(LocalizationTest, ALanguageChangeShowsAtTheNextLookup) {
    speak({"ja"});
    EXPECT_EQ(localizedText("Record"), "記録");
    speak({"zh-Hant"});
    EXPECT_EQ(localizedText("Record"), "錄製");
    speak({"en"});
    EXPECT_EQ(localizedText("Record"), "Record");
}
