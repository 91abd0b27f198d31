#include "PlatformTests/NetworkFixture.h"

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <cstdlib>

namespace tolvera::test {
namespace {

// A second network, joined to ours by one wire that can be cut. It needs the right to make one.
class SeparateNetwork {
 public:
  SeparateNetwork() : name_("tolvera" + std::to_string(getpid())), wire_("tv" + std::to_string(getpid())) {
    const auto far = wire_ + "f";
    made_ = ip("netns add " + name_);
    joined_ = made_ && ip("link add " + wire_ + " type veth peer name " + far + " netns " + name_) &&
              ip("addr add 169.254.77.1/30 dev " + wire_) && ip("link set " + wire_ + " up") &&
              ip("-n " + name_ + " addr add 169.254.77.2/30 dev " + far) &&
              ip("-n " + name_ + " link set " + far + " up");
  }
  ~SeparateNetwork() {
    ip("link del " + wire_);
    if (made_) ip("netns del " + name_);
  }
  SeparateNetwork(const SeparateNetwork&) = delete;
  SeparateNetwork& operator=(const SeparateNetwork&) = delete;

  [[nodiscard]] bool joined() const { return joined_; }
  // What is on the wire is lost from now on, in both directions and without a word.
  void cut() const { ip("-n " + name_ + " link set " + wire_ + "f down"); }

  // A server in that network: its sockets are made by a thread that is there.
  std::unique_ptr<LoopbackServer> server() const {
    std::unique_ptr<LoopbackServer> made;
    std::thread inside([this, &made] {
      const int there = open(("/run/netns/" + name_).c_str(), O_RDONLY | O_CLOEXEC);
      if (there < 0) return;
      const bool entered = setns(there, CLONE_NEWNET) == 0;
      close(there);
      if (!entered) return;
      LoopbackServer::Options options;
      options.address = "169.254.77.2";
      made = std::make_unique<LoopbackServer>(options);
    });
    inside.join();
    return made;
  }

 private:
  static bool ip(const std::string& arguments) {
    return std::system(("ip " + arguments + " >/dev/null 2>&1").c_str()) == 0;
  }

  std::string name_;
  std::string wire_;
  bool made_ = false;
  bool joined_ = false;
};

class NetworkVanishedPeer : public NetworkTest {
 protected:
  void SetUp() override {
    if (!far_.joined()) GTEST_SKIP() << "needs the right to make a network namespace";
    server_ = far_.server();
    if (!server_) GTEST_SKIP() << "needs the right to enter a network namespace";
    socket_ = open(impatient_, server_->url("ws", "/?token=secret"));
    run(socket_->send(std::string("hello")));
    pending_.emplace(start(socket_->receive()));
    far_.cut();
  }

  static BeastOptions impatient() {
    BeastOptions options;
    options.unacknowledged = 2s;
    options.keepAliveIdle = 1s;
    options.keepAliveInterval = 1s;
    return options;
  }
  void expectNoticed() {
    const auto failure = pending_->failure(10s);
    EXPECT_EQ(failure.code(), code(TransportError::connectionLost));
    EXPECT_EQ(failure.localizedDescription(),
              "169.254.77.2:" + std::to_string(server_->port()) + " has stopped answering");
  }

  SeparateNetwork far_;
  std::unique_ptr<LoopbackServer> server_;
  BeastURLSession impatient_{network_.get_executor(), impatient()};
  std::shared_ptr<WebSocketTask> socket_;
  std::optional<Started<WebSocketTask::Message>> pending_;
};

TEST_F(NetworkVanishedPeer, IsNoticedWhileDataFlows) {
  run(socket_->send(platform::Data(3200)));
  expectNoticed();
}

TEST_F(NetworkVanishedPeer, IsNoticedInSilence) { expectNoticed(); }

} // namespace
} // namespace tolvera::test
