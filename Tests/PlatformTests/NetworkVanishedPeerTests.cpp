#include "PlatformTests/NetworkFixture.h"

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <cstdlib>

namespace tolvera::test {
namespace {

// A second network, joined to this one by a wire that can be cut. Making one needs the right to do so.
class SeparateNetwork {
 public:
  SeparateNetwork() {
    joined = run("ip netns add $n && ip link add $w type veth peer name ${w}f netns $n && "
                 "ip addr add 169.254.77.1/30 dev $w && ip link set $w up && "
                 "ip -n $n addr add 169.254.77.2/30 dev ${w}f && ip -n $n link set ${w}f up");
  }
  ~SeparateNetwork() { run("ip link del $w; ip netns del $n"); }
  SeparateNetwork(const SeparateNetwork&) = delete;
  SeparateNetwork& operator=(const SeparateNetwork&) = delete;

  // From now on both directions lose what is sent.
  void cut() const { run("ip -n $n link set ${w}f down"); }

  // A server in that network: a thread that has entered it makes the sockets.
  std::unique_ptr<LoopbackServer> server() const {
    std::unique_ptr<LoopbackServer> made;
    std::jthread([this, &made] {
      const int there = open(("/run/netns/tolvera" + id_).c_str(), O_RDONLY | O_CLOEXEC);
      const bool entered = setns(there, CLONE_NEWNET) == 0;
      close(there);
      if (!entered) return;
      LoopbackServer::Options options;
      options.address = "169.254.77.2";
      made = std::make_unique<LoopbackServer>(options);
    }).join();
    return made;
  }

  bool joined = false;

 private:
  bool run(const std::string& commands) const {
    return std::system(
               ("{ n=tolvera" + id_ + " w=tv" + id_ + "; " + commands + "; } >/dev/null 2>&1").c_str()) == 0;
  }

  const std::string id_ = std::to_string(getpid());
};

using NetworkVanishedPeer = NetworkTest;

TEST_F(NetworkVanishedPeer, IsNoticed) {
  BeastOptions impatient;
  impatient.unacknowledged = 2s;
  impatient.keepAliveIdle = impatient.keepAliveInterval = 1s;
  BeastURLSession session(network_.get_executor(), impatient);
  for (const bool inSilence : {false, true}) {
    const SeparateNetwork far;
    const auto server = far.joined ? far.server() : nullptr;
    if (!server) GTEST_SKIP() << "needs the right to make a network namespace and to enter it";
    auto socket = open(session, server->url("ws", "/?token=secret"));
    run(socket->send(std::string("hello")));
    auto pending = start(socket->receive());
    far.cut();
    if (!inSilence) run(socket->send(bytes(3200)));
    EXPECT_TRUE(endsWithin(pending, 10s)) << inSilence;
    EXPECT_EQ(end(pending), "169.254.77.2:" + std::to_string(server->port()) + " has stopped answering");
  }
}

} // namespace
} // namespace tolvera::test
