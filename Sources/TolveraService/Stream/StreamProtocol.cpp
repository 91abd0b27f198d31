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

namespace refusal {

std::string cannotHear(std::string_view source) {
  const LanguageName name = languageName(source);
  return "本地服务听不懂" + name.chinese +
         "，目前只能识别英语：请把源语言设为英语或自动。 / The local service cannot hear " + name.english +
         ". It recognises English only: set the spoken language to English or automatic.";
}

std::string cannotTranslate(std::string_view target, const std::vector<std::string>& targets) {
  const LanguageName name = languageName(target);
  std::string chinese;
  std::string english;
  for (const std::string& code : targets) {
    const LanguageName offered = languageName(code);
    chinese += (chinese.empty() ? "" : "、") + offered.chinese;
    english += (english.empty() ? "" : ", ") + offered.english;
  }
  const bool none = targets.empty();
  return "本地服务不能译成" + name.chinese + "。" +
         (none ? "这里没有安装翻译数据，" : "它能把英语译成" + chinese + "，也") +
         "能直接显示英语字幕（目标语言选英语）。 / The local service cannot translate into " + name.english +
         ". " +
         (none ? "No translation data is installed here; it"
               : "It translates English into " + english + ", and") +
         " shows English captions when the target is English.";
}

std::string unknownToken() {
  return "本地服务不认识这个账户。请退出程序后重新打开，它会建立新账户。 / The local service does not know "
         "this "
         "account. Quit the program and open it again: it then makes a new account.";
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
