#include "TolveraService/Stream/StreamProtocol.h"

#include "TolveraService/Engine/BilingualLanguageNames.h"

#include <boost/json.hpp>
#include <boost/url.hpp>

namespace tolvera::service {

namespace json = boost::json;

std::optional<StreamParameters> parseStreamParameters(std::string_view target) {
  const auto url = boost::urls::parse_origin_form(target);
  if (!url) return std::nullopt;
  const auto items = url->params();
  const auto item = [&](std::string_view name) -> std::string {
    const auto found = items.find(name);
    return found == items.end() ? std::string() : std::string((*found).value);
  };
  StreamParameters parameters;
  parameters.token = item("token");
  parameters.target = item("target");
  parameters.source = item("source");
  parameters.dub = item("dub") == "1";
  parameters.showSource = item("src") == "1";
  parameters.voice = item("voice");
  return parameters;
}

bool isStopFrame(std::string_view text) {
  boost::system::error_code error;
  const json::value value = json::parse(text, error);
  if (error || !value.is_object()) return false;
  const json::value* type = value.get_object().if_contains("type");
  return type != nullptr && type->is_string() && type->get_string() == "stop";
}

namespace {

std::string secondsFrame(std::string_view type, double secondsLeft) {
  return json::serialize(json::object{{"type", type}, {"secondsLeft", secondsLeft}});
}

} // namespace

std::string readyFrame(double secondsLeft) { return secondsFrame("ready", secondsLeft); }

std::string balanceFrame(double secondsLeft) { return secondsFrame("balance", secondsLeft); }

std::string captionFrame(CaptionKind kind, std::string_view text, std::string_view stash, bool final) {
  return json::serialize(json::object{{"type", kind == CaptionKind::source ? "src" : "tr"},
                                      {"text", text},
                                      {"stash", stash},
                                      {"final", final}});
}

std::string errorFrame(std::string_view code, std::string_view message) {
  return json::serialize(json::object{{"type", "error"}, {"code", code}, {"message", message}});
}

namespace {

constexpr std::size_t fewLanguages = 8;

LanguageName listOf(const std::vector<std::string>& codes) {
  LanguageName list;
  for (const std::string& code : codes) {
    const LanguageName name = languageName(code);
    list.chinese += (list.chinese.empty() ? "" : "、") + name.chinese;
    list.english += (list.english.empty() ? "" : ", ") + name.english;
  }
  return list;
}

} // namespace

namespace refusal {

std::string cannotHear(std::string_view source, const std::vector<std::string>& languages) {
  const LanguageName name = languageName(source);
  const LanguageName names = listOf(languages);
  const bool few = languages.size() <= fewLanguages;
  const std::string count = std::to_string(languages.size());
  return "本地服务听不懂" + name.chinese + "，它能识别" +
         (few ? names.chinese : "其他 " + count + " 种语言") +
         "：请另选源语言。 / The local service cannot hear " + name.english + ". It recognises " +
         (few ? names.english + " only" : count + " other languages") + ": choose another spoken language.";
}

std::string cannotTranslate(std::string_view source, std::string_view target,
                            const std::vector<std::string>& targets, const std::string& silentServer) {
  const LanguageName from = languageName(source);
  const LanguageName name = languageName(target);
  const LanguageName names = listOf(targets);
  const bool none = targets.empty();
  if (!silentServer.empty())
    return "翻译服务器 " + silentServer + " 没有应答，因此不能把" + from.chinese + "译成" + name.chinese +
           "。请启动它后再试。 / The translation server " + silentServer +
           " does not answer, so there is no translation from " + from.english + " into " + name.english +
           ". Start it, and then the run again.";
  return "本地服务不能把" + from.chinese + "译成" + name.chinese + "。" +
         (none ? "这里没有安装翻译数据，" : "它能译成" + names.chinese + "，也") + "能直接显示" +
         from.chinese + "字幕。 / The local service cannot translate " + from.english + " into " +
         name.english + ". " +
         (none ? "No translation data is installed here; it"
               : "It translates into " + names.english + ", and") +
         " shows " + from.english + " captions when that is the target too.";
}

std::string translationFailed(const std::string& reason) {
  return "连续几句话都没能翻译，翻译已停止（" + reason +
         "）。 / Several sentences in a row could not be translated, so the run ends (" + reason + ").";
}

std::string hearingFailed(const std::string& reason) {
  return "语音识别服务器连续几次没有结果，翻译已停止（" + reason +
         "）。 / The server that recognises speech failed several times in a row, so the run ends (" +
         reason + ").";
}

std::string tooSlow(const std::string& server) {
  if (!server.empty())
    return "识别服务器 " + server + " 跟不上说话的速度，翻译已停止。 / The server " + server +
           " cannot keep up with the speech, so the run ends.";
  return "这台电脑跟不上语音识别的速度，翻译已停止：请关闭其他繁忙的程序后再试。 / This machine cannot keep "
         "up "
         "with the speech, so the run ends. Close other busy programs and start again.";
}

std::string engineFailed() {
  return "语音识别出了故障，这一路已停止，请重新开始。 / Speech recognition has failed, so this run ends. "
         "Start again.";
}

std::string unknownToken() {
  return "本地服务不认识这个账户。请退出程序后重新打开，它会建立新账户。 / The local service does not know "
         "this "
         "account. Quit the program and open it again: it then makes a new account.";
}

std::string noEngine() {
  return "语音识别尚未安装。请在终端运行：tolvera-service models install base-q8_0 / "
         "Speech recognition is not installed. Run in a terminal: tolvera-service models install base-q8_0";
}

std::string busy(std::size_t streams) {
  const std::string count = std::to_string(streams);
  return "本地服务正忙：这台电脑最多同时翻译 " + count +
         " 路，请先停止其中一路。 / The local service is busy: this machine translates " + count +
         " streams at a time. Stop one of them first.";
}

std::string outOfTime() { return "时长已用完。 / The time on this account is used up."; }

std::string replaced() {
  return "此账户开始了另一路翻译，这一路已停止。 / Another run was started on this account, so this one "
         "ends.";
}

std::string storeFailed() {
  return "本地服务暂时无法读写账户：磁盘可能已满。请腾出空间后再试。 / The local service cannot read or "
         "write its "
         "accounts at the moment; the disk may be full. Make room and start again.";
}

} // namespace refusal

} // namespace tolvera::service
