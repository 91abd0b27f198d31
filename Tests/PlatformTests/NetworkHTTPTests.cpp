#include "Harness/TemporaryDirectory.h"
#include "Platform/Linux/Network/FileWatch.h"
#include "PlatformTests/NetworkFixture.h"

#include <fstream>

namespace tolvera::test {
namespace {

using NetworkHTTP = NetworkTest;

TEST_F(NetworkHTTP, CarriesRequestWhole) {
  server_.onRequest([](const auto&) { return Reply::http(200, R"({"url":"x"})"); });
  const auto address = "service.test:" + std::to_string(server_.port());
  auto request = get("http://" + address + "/livetranslate/api/checkout?lang=zh#part");
  request.method = "POST";
  request.headers = {{"Authorization", "Bearer secret"}};
  request.body = R"({"pack":"p1"})";
  EXPECT_EQ(run(session_.data(request)), R"(200 {"url":"x"})");
  const auto seen = server_.requests().at(0);
  EXPECT_EQ(seen.method, "POST");
  EXPECT_EQ(seen.target, "/livetranslate/api/checkout?lang=zh");
  EXPECT_EQ(seen.headers.at("host"), address);
  EXPECT_EQ(seen.headers.at("authorization"), "Bearer secret");
  EXPECT_EQ(seen.body, request.body);
}

TEST_F(NetworkHTTP, TakesWholeRepliesOfAnyStatus) {
  const std::string elsewhere = "Location: " + server_.url("http", "/elsewhere") + "\r\n";
  const std::string tooLarge = "The reply of " + where_ + " is over 256 KiB";
  const std::string chunked = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
  const std::string endless(300'000, '0');
  std::string small = chunked; // each chunk is small, and all together are not
  for (int i = 0; i < 3'000; ++i) small += "1;" + std::string(100, 'a') + "\r\nx\r\n";
  const std::pair<std::string, std::string> cases[] = {
      {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nsa\r\n2\r\nid\r\n0\r\n\r\n", "200 said"},
      {"HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 401 No\r\nContent-Length: 4\r\n\r\nsaid", "401 said"},
      {"HTTP/1.0 500 No\r\n\r\nsaid", "500 said"},
      {"HTTP/1.1 204 Nothing\r\n\r\n", "204 "},
      {"HTTP/1.1 302 Found\r\n" + elsewhere + "Content-Length: 4\r\n\r\nsaid", "302 said"},
      {"\x01\x02 garbage \xff\r\n\r\n", where_ + " did not answer in HTTP"},
      {"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nshort", where_ + " ended the connection"},
      {"HTTP/1.1 200 OK\r\nContent-Length: 99999999\r\n\r\n", tooLarge},
      {"HTTP/1.1 200 OK\r\nA: " + endless, tooLarge},
      {chunked + "1;" + endless, tooLarge},
      {chunked + "0\r\nA: " + endless, tooLarge},
      {chunked + endless, tooLarge},
      {small, tooLarge},
      {"", where_ + " ended the connection"},
  };
  for (const auto& [reply, expected] : cases) {
    server_.onRequest([&reply](const auto&) { return Reply::raw(reply); });
    EXPECT_EQ(run(session_.data(get(server_.url("http")))), expected) << reply.substr(0, 60);
  }
  EXPECT_EQ(server_.requests().size(), std::size(cases)) << "no redirect is followed";
}

TEST_F(NetworkHTTP, EndsAfterTimeoutOrWithCaller) {
  server_.onRequest([](const auto&) { return Reply::silence(); });
  auto request = get(server_.url("http", "/?token=secret"));
  request.timeout = 200ms;
  EXPECT_EQ(run(session_.data(request)), "No answer from " + where_ + " within 0.2 s");

  auto caller = [](BeastURLSession& session, platform::HTTPRequest what) -> Task<void> {
    co_await session.data(std::move(what));
  };
  const auto waiting = spawn(main_.get_executor(), "caller", caller(session_, get(server_.url("http"))));
  ASSERT_TRUE(eventually([&] { return server_.requests().size() == 2; }));
  EXPECT_FALSE(waiting.finished());
  waiting.cancel();
  EXPECT_TRUE(eventually([&] { return waiting.finished(); }));
  EXPECT_TRUE(allClosed());
}

TEST_F(NetworkHTTP, RefusesUnsafeRequests) {
  auto split = get(server_.url("http"));
  split.headers = {{"Authorization", "Bearer secret\r\nX-Other: 1"}};
  EXPECT_EQ(run(session_.data(split)), "A header of the request cannot be sent");
  EXPECT_EQ(run(session_.data(get("http:///path"))), "The address names no host");
  EXPECT_TRUE(server_.requests().empty());
}

TEST(FileWatch, SeesFileInFolderThatComesLater) {
  namespace fs = std::filesystem;
  const TemporaryDirectory runtime;
  const auto folder = runtime / "tolvera";
  boost::asio::io_context context;
  int appeared = 0;
  const adapters::FileWatch watch(context.get_executor(), folder / "service", [&appeared] { ++appeared; });
  for (int start = 1; start <= 3; ++start) {
    fs::create_directory(folder);
    if (start > 1) context.run_for(std::chrono::milliseconds(20)); // the first file comes with its folder
    std::ofstream(folder / "new") << "18790";
    fs::rename(folder / "new", folder / "service");
    while (appeared < start && context.run_one_for(std::chrono::seconds(10)) > 0) {
    }
    EXPECT_EQ(appeared, start);
    if (start == 1) fs::remove_all(folder);
  }
}

} // namespace
} // namespace tolvera::test
